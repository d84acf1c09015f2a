#include "signature/CWholeStream.h"

#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include "feature/CFeatureObject.h"
#include "signature/CChunkContainer.h"
#include "signature/SignatureMessages.h"
#include "signature/StreamPrimitives.h"
#include "vexl/ByteOrder.h"
#include "vexl/Truncate.h"
#include "vexl/heap_matrix.h"

namespace {

constexpr char kStreamId[] = "ORVF";
constexpr int kCurrentVersion = 5;
// Read like version 5; the word is kept as the stream's version.
constexpr int kAlternateVersion = 64;
constexpr unsigned char kKeyKind = '1';

void writeBytes(std::ostream& out, const std::vector<unsigned char>& bytes) {
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// Whether the matrix stream in a chunk has the element type word `word` behind its first
// four bytes; only the word's own characters are compared.
bool hasTypeWord(const unsigned char* data, uint32_t length, const char* word) {
  const size_t size = std::strlen(word);
  return length >= 4 + size && std::memcmp(data + 4, word, size) == 0;
}

// The one feature of an older stream: named "SFM", with its band edges and temporal
// resolution as unsigned parameters (the edges truncated toward zero) and all chunks as rows.
template <typename T>
std::unique_ptr<CFeatureObjectBase> convertFeature(const CChunkContainer& chunks,
                                                   uint16_t featureId, bool vad) {
  auto feature = std::make_unique<CFeatureObject<T>>("SFM", featureId);
  const FeatPara& para = *chunks.getFeaturePara();
  feature->SetParameter("sr", static_cast<uint32_t>(para.sr));
  feature->SetParameter("lf", static_cast<uint32_t>(TruncateToInt64(para.lf)));
  feature->SetParameter("uf", static_cast<uint32_t>(TruncateToInt64(para.uf)));
  if (vad) feature->SetParameter("vad", uint32_t{1});
  HeapMatrix<T> matrix;
  matrix.ReadFromChunks(chunks);
  feature->AppendMatrixRows(matrix);
  return feature;
}

}  // namespace

CWholeStream::CWholeStream(std::istream& in, CSignatureHook* streamHook) : hook(streamHook) {
  // The key taken here is dropped again by readStream; the hook sees the request all the same.
  if (hook) takeEncryptionKey();
  readStream(in);
}

void CWholeStream::setHook(CSignatureHook* streamHook) {
  hook = streamHook;
  takeEncryptionKey();
}

void CWholeStream::takeEncryptionKey() {
  const unsigned char* bytes = nullptr;
  const int length = hook->getEncryptionKey(&bytes);
  if (length > 0 && bytes) {
    key.assign(bytes, bytes + length);
  } else {
    key.clear();
  }
}

int CWholeStream::readStream(std::istream& in) {
  keyKind = 0;
  key.clear();
  signature.clear();
  streamVersion = -1;

  unsigned char head[8];
  in.read(reinterpret_cast<char*>(head), sizeof head);
  if (in.gcount() < static_cast<std::streamsize>(sizeof head) ||
      std::memcmp(head, kStreamId, 4) != 0) {
    throw std::string(kStreamMismatch);
  }
  const int32_t version = static_cast<int32_t>(loadBigEndian32(head + 4));
  if (version > kCurrentVersion && version < kAlternateVersion) {
    throw std::string(kIncompatibleVersion);
  }
  if (version < kCurrentVersion || version > kAlternateVersion) {
    // Not a version word of the current form: the older reader starts again at "ORVF".
    for (int i = sizeof head - 1; i >= 0; --i) in.putback(static_cast<char>(head[i]));
    return readOlderForm(in);
  }
  streamVersion = version;
  const uint32_t totalSize = getVarint(in);
  const uint32_t headerSize = getVarint(in);

  if (headerSize == 0) {
    // Unsigned: the rest of totalSize is exactly one meta block.
    std::vector<unsigned char> block;
    if (!readBounded(in, totalSize - 1u, block) || block.empty() ||
        parse(block.data(), static_cast<unsigned>(block.size())) != block.size()) {
      throw std::string(kStreamMismatch);
    }
    return 0;
  }

  const int kind = in.get();
  keyKind = static_cast<unsigned char>(kind);
  const uint32_t keyLength = getVarint(in);
  // A header cut by the end of the stream cannot add up to headerSize.
  if (kind == std::char_traits<char>::eof() || !readBounded(in, keyLength, key)) {
    throw std::string(kStreamMismatch);
  }
  const uint32_t signatureLength = getVarint(in);
  if (!readBounded(in, signatureLength, signature)) throw std::string(kStreamMismatch);
  const uint64_t headerBytes = uint64_t{1} + varintSize(keyLength) + keyLength +
                               varintSize(signatureLength) + signatureLength;
  if (headerBytes != headerSize) throw std::string(kStreamMismatch);

  // Without a hook a signed stream is read up to its header: no frames, and no complaint.
  if (!hook) return 0;
  return verifyAndParse(in, totalSize, headerSize);
}

int CWholeStream::verifyAndParse(std::istream& in, uint32_t totalSize, uint32_t headerSize) {
  const unsigned char* hookKey = nullptr;
  int hookKeyLength = hook->getVerificationKey(&hookKey);
  if (hookKeyLength != static_cast<int>(key.size())) {
    hookKeyLength = hook->getVerificationKey(&hookKey);
    if (hookKeyLength <= 0) return 0;
  }
  // The hook's key decides how many bytes are compared. A hook key longer than the stream's
  // cannot be its match, so it counts as a difference rather than a read past the stream's key.
  const size_t compared = static_cast<size_t>(std::max(hookKeyLength, 0));
  if (compared > key.size() ||
      (compared && (!hookKey || std::memcmp(hookKey, key.data(), compared) != 0))) {
    throw std::string(kKeyMismatch);
  }

  // A payload cut by the end of the stream is not the block that was signed.
  std::vector<unsigned char> payload;
  const uint32_t payloadLength = totalSize - headerSize - varintSize(headerSize);
  if (!readBounded(in, payloadLength, payload) || payload.empty()) {
    throw std::string(kFileParsingError);
  }
  if (hook->verifyInit() != 0) throw std::string(kCannotInitChecking);
  hook->verifyUpdate(payload.data(), static_cast<unsigned>(payload.size()));
  hook->verifyUpdate(hookKey, static_cast<unsigned>(compared));
  if (hook->verifyFinal(signature.data(), static_cast<unsigned>(signature.size())) != 0) {
    throw std::string(kSignatureFailed);
  }
  if (parse(payload.data(), static_cast<unsigned>(payload.size())) != payload.size()) {
    throw std::string(kFileParsingError);
  }
  return 0;
}

int CWholeStream::writeStream(std::ostream& out) {
  if (frameCount() == 0) throw std::string(kNoDataToWrite);
  signature.clear();

  std::vector<unsigned char> payload;
  uint32_t headerSize = 0;
  if (hook && !hook->hasSigningKey()) {
    std::cout << kNoSigningKeyWarning << kNotSignedWarning << std::endl;
  } else if (hook) {
    payload.resize(encodedSize());
    storeTo(payload.data());
    takeEncryptionKey();
    if (hook->signInit() != 0) throw std::string(kCannotInitSigning);
    hook->signUpdate(payload.data(), static_cast<unsigned>(payload.size()));
    hook->signUpdate(key.data(), static_cast<unsigned>(key.size()));
    const unsigned char* bytes = nullptr;
    unsigned length = 0;
    if (hook->signFinal(&bytes, &length) != 0) throw std::string(kEncryptionFailed);
    if (length && bytes) signature.assign(bytes, bytes + length);
    const uint32_t keyLength = static_cast<uint32_t>(key.size());
    const uint32_t signatureLength = static_cast<uint32_t>(signature.size());
    headerSize = 1 + varintSize(signatureLength) + varintSize(keyLength) + signatureLength +
                 keyLength;
  }

  unsigned char head[8];
  std::memcpy(head, kStreamId, 4);
  storeBigEndian32(head + 4, kCurrentVersion);
  out.write(reinterpret_cast<const char*>(head), sizeof head);
  if (headerSize) {
    const uint32_t payloadLength = static_cast<uint32_t>(payload.size());
    putVarint(out, varintSize(headerSize) + headerSize + payloadLength);
    putVarint(out, headerSize);
    out.put(static_cast<char>(kKeyKind));
    putVarint(out, static_cast<uint32_t>(key.size()));
    writeBytes(out, key);
    putVarint(out, static_cast<uint32_t>(signature.size()));
    writeBytes(out, signature);
    writeBytes(out, payload);
  } else {
    putVarint(out, encodedSize() + 1);
    putVarint(out, 0);
    writeTo(out);
  }
  return 0;
}

int CWholeStream::readOlderForm(std::istream& in) {
  CChunkContainer chunks(1, nullptr, hook);
  // A refused version (0) is no failure here; it leaves no chunk, which convertChunks refuses.
  if (chunks.parseStream(in) < 0) throw std::string(kCannotParseWholeStream);
  return convertChunks(chunks);
}

int CWholeStream::convertChunks(CChunkContainer& chunks) {
  CMetaVec::operator=(chunks);
  streamVersion = chunks.getStreamVersion();
  // Without a chunk there is no type word to look at and no feature to build: refused.
  if (chunks.subChunkCount() == 0 || chunks.getFeaturePara() == nullptr) {
    throw std::string(kCannotParseWholeStream);
  }
  const unsigned char* data = chunks.subChunkData(0);
  const uint32_t length = static_cast<uint32_t>(chunks.subChunkLength(0));
  const uint16_t featureId = static_cast<uint16_t>(TruncateToInt64(chunks.featureId()));
  std::unique_ptr<CFeatureObjectBase> feature;
  if (hasTypeWord(data, length, "uchr") || hasTypeWord(data, length, "char")) {
    feature = convertFeature<unsigned char>(chunks, featureId, false);
  } else if (hasTypeWord(data, length, "flt") || hasTypeWord(data, length, "fil")) {
    const bool vad = std::strstr(chunks.getInfoText(), "VAD") != nullptr;
    feature = convertFeature<float>(chunks, featureId, vad);
  }
  // Any other element type gives no feature frame.
  if (feature) {
    const uint32_t size = feature->GetStreamSize();
    feature->WriteToStream(addTaggedFrame(kTagFeatObj, size), size);
  }
  storeBigEndian64(addTaggedFrame(kTagTuid, 8), chunks.getTuid());
  storeBigEndian32(addTaggedFrame(kTagCuid, 4),
                   static_cast<uint32_t>(TruncateToInt64(chunks.contentId())));
  // The signature frame has served in the chunk reader's check.
  const int index = findTaggedFrame(kTagDsig);
  if (index >= 0) removeFrame(index);
  return 0;
}
