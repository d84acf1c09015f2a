#include "signature/CChunkContainer.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "signature/CSignatureHook.h"
#include "signature/SignatureMessages.h"
#include "signature/StreamPrimitives.h"
#include "vexl/ByteOrder.h"

namespace {

// Band edges and temporal resolution of a stream without "FPAR": 2^-2 and 2^2 kHz, 32.
constexpr FeatPara kDefaultFeatPara = {250.0f, 4000.0f, 32};

bool readFully(std::istream& in, unsigned char* out, std::streamsize n) {
  in.read(reinterpret_cast<char*>(out), n);
  return in.gcount() == n;
}

bool skipBytes(std::istream& in, uint32_t n) {
  in.ignore(n);
  return in.gcount() == static_cast<std::streamsize>(n);
}

bool readWord(std::istream& in, uint32_t& word) {
  unsigned char bytes[4];
  if (!readFully(in, bytes, 4)) return false;
  word = loadBigEndian32(bytes);
  return true;
}

bool readVarintChecked(std::istream& in, uint32_t& value) {
  value = getVarint(in);
  return !in.fail();
}

bool isId(const unsigned char* id, const char* name) {
  return std::memcmp(id, name, std::strlen(name)) == 0;
}

// The decimal number behind the first `letter` of the text (up to its first zero byte).
double numberBehind(const std::string& text, char letter) {
  const char* p = std::strchr(text.c_str(), letter);
  return p == nullptr ? 0.0 : std::atof(p + 1);
}

}  // namespace

uint32_t syncsafe21(uint32_t word) {
  return (word & 0x7F) + ((word >> 1) & 0x3F80) + ((word >> 2) & 0x1FC000);
}

CChunkContainer::CChunkContainer(int mode, const char* versionText, CSignatureHook* hook)
    : mode(mode),
      hook(hook),
      id3TagSize(0),
      infoLength(0),
      versionLength(0),
      tuid(0),
      streamVersion(4),
      chunkSize(0) {
  if (versionText != nullptr) {
    this->versionText = versionText;
    versionLength = static_cast<uint32_t>(this->versionText.size());
  }
}

CChunkContainer::~CChunkContainer() = default;

int CChunkContainer::parseStream(std::istream& in) {
  // pos runs in 32 bits and compares signed with chunkSize, as the form was defined.
  uint32_t pos = static_cast<uint32_t>(-1);
  chunkSize = 0;
  bool seenOuter = false;
  int bits = 0;
  for (;;) {
    if (static_cast<int32_t>(pos) >= chunkSize && streamVersion >= 4) return bits;
    unsigned char id[4];
    if (!readFully(in, id, 4)) return bits;

    if (isId(id, "ORVF")) {
      if (seenOuter) {
        // A second stream follows: leave it for the next reader.
        for (int i = 3; i >= 0; --i) in.putback(static_cast<char>(id[i]));
        return bits;
      }
      seenOuter = true;
      uint32_t word = 0;
      if (!readWord(in, word)) {
        std::cerr << kChunkBadFormat << '\n';
        return kFailFormat;
      }
      const int32_t w = static_cast<int32_t>(word);
      if (w >= 64) {
        streamVersion = 2;
        chunkSize = w;
      } else if (w > 4) {
        std::cerr << kChunkVersionRefused << '\n';
        return 0;
      } else {
        streamVersion = w;
        uint32_t size = 0;
        if (!readVarintChecked(in, size)) {
          std::cerr << kChunkBadFormat << '\n';
          return kFailFormat;
        }
        chunkSize = static_cast<int32_t>(size);
      }
      if (parseSubChunks(in, chunkSize, 0) < 1) {
        std::cerr << kChunkBadFormat << '\n';
        return kFailFormat;
      }
      bits |= kBitOuter;
      const uint32_t body = bodySize();
      pos += body + varintSize(body) + 8;
    } else if (isId(id, "META")) {
      uint32_t length = 0;
      if (!readVarintChecked(in, length)) return bits;
      const uint32_t consumed = readFrom(in, length);
      // kept: both the bytes consumed and the declared length are added.
      pos += consumed + length + 4;
      if (pos == 0) {
        std::cerr << kChunkMetaMismatch << '\n';
        return kFailFormat;
      }
      if (hook != nullptr) {
        const int verified = verifySignatureFrame();
        if (verified < 0) return verified;
        bits |= verified;
      }
      bits |= kBitMeta;
    } else if (isId(id, "ID3")) {
      if (!parseId3Tag(in, id, pos)) return bits;
      bits |= kBitId3;
    } else {
      return bits;
    }
  }
}

bool CChunkContainer::parseId3Tag(std::istream& in, const unsigned char id[4], uint32_t& pos) {
  unsigned char header[10];
  std::memcpy(header, id, 4);
  if (!readFully(in, header + 4, 6)) return false;
  // kept: the size word is taken one byte late (bytes 7 to 9 and a zero byte), so bytes 6
  // and 7 do not count and bytes 8 and 9 stand one 7-bit group too high.
  const uint32_t word =
      (uint32_t{header[7]} << 24) | (uint32_t{header[8]} << 16) | (uint32_t{header[9]} << 8);
  const uint32_t footer = (header[5] & 0x10) != 0 ? 20 : 10;
  const uint32_t tagSize = syncsafe21(word) + footer;
  // kept: tagSize bytes are consumed behind the 10-byte header, 10 more than the tag holds.
  std::vector<unsigned char> body;
  readBounded(in, tagSize, body);
  id3Tag.assign(header, header + 10);
  id3Tag.insert(id3Tag.end(), body.begin(), body.end());
  id3TagSize = tagSize;
  pos += tagSize;
  return true;
}

bool CChunkContainer::readLength(std::istream& in, uint32_t& length, int64_t& pos) const {
  if (streamVersion <= 2) {
    if (!readWord(in, length)) return false;
    pos += 4;
    return true;
  }
  if (!readVarintChecked(in, length)) return false;
  pos += varintSize(length);
  return true;
}

bool CChunkContainer::readPad(std::istream& in, uint32_t length, int64_t& pos) const {
  if (streamVersion >= 3 || (length & 1) == 0) return true;
  unsigned char pad;
  if (!readFully(in, &pad, 1)) return false;
  pos += 1;
  return true;
}

int CChunkContainer::parseSubChunks(std::istream& in, int size, int all) {
  int64_t pos = 0;
  while (size - pos >= 1) {
    unsigned char id[4] = {0, 0, 0, 0};
    if (!readFully(in, id, 4)) {
      std::cerr << kChunkNoSubChunk << '\n';
      return -1;
    }
    pos += 4;
    bool matched = false;
    uint32_t length = 0;
    std::vector<unsigned char> bytes;

    if (isId(id, "VERS")) {
      matched = true;
      if (!readLength(in, length, pos) || !readBounded(in, length, bytes)) return -1;
      pos += length;
      const std::string text(bytes.begin(), bytes.end());
      if (versionLength == 0) {
        versionText = text;
        versionLength = length;
      } else if (std::strncmp(text.c_str(), versionText.c_str(), length) != 0) {
        std::cerr << kChunkVersionMismatch << '\n';
        return -1;
      }
      if (!readPad(in, length, pos)) return -1;
    }
    if (isId(id, "INFO")) {
      matched = true;
      if (!readLength(in, length, pos)) return -1;
      // kept: a second "INFO" leaves its bytes in the stream and desynchronises the reader.
      if (infoLength == 0) {
        if (!readBounded(in, length, bytes)) return -1;
        pos += length;
        infoText.assign(bytes.begin(), bytes.end());
        infoLength = length;
      }
      if (!readPad(in, length, pos)) return -1;
    }
    if (isId(id, "TUID")) {
      matched = true;
      uint64_t value = 0;
      if (streamVersion >= 3) {
        unsigned char word[8];
        if (!readFully(in, word, 8)) return -1;
        value = loadBigEndian64(word);
        pos += 8;
      } else {
        uint32_t word = 0;
        if (!readWord(in, word)) return -1;
        value = static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(word)));
        pos += 4;
      }
      if (tuid == 0) {
        setTuid(value);
      } else if (value != tuid) {
        std::cerr << kChunkTuidMismatch << '\n';
        return -1;
      }
    }
    if (isId(id, "FPAR")) {
      matched = true;
      if (featPara) {
        std::cerr << kChunkFeatParaTwice << '\n';
        throw -1;
      }
      unsigned char para[12];
      if (!readFully(in, para, 12)) return -1;
      pos += 12;
      featPara.reset(new FeatPara{floatFromBits(loadBigEndian32(para)),
                                  floatFromBits(loadBigEndian32(para + 4)),
                                  static_cast<int32_t>(loadBigEndian32(para + 8))});
    }
    if (isId(id, "FEAT")) {
      matched = true;
      // A length below the 4 bytes of the inner id cannot hold data: refused.
      if (!readLength(in, length, pos) || length < 4) return -1;
      // The inner id replaces the id under test, so the tests below see it.
      if (!readFully(in, id, 4)) return -1;
      pos += 4;
      const uint32_t dataLength = length - 4;
      if (!addSubChunk(dataLength, &in, subChunkCount() + 1, 0)) return -1;
      pos += dataLength;
      if (!readPad(in, dataLength, pos)) return -1;
      if (all == 0) break;
    }
    if (isId(id, "META")) {
      matched = true;
      if (all == 0) break;
      if (!readVarintChecked(in, length) || !skipBytes(in, length)) return -1;
      pos += varintSize(length) + length;
    }
    if (isId(id, "ID3")) {
      matched = true;
      if (all == 0) break;
      uint32_t word = 0;
      if (!skipBytes(in, 2) || !readWord(in, word)) return -1;
      length = syncsafe21(word);
      if (!skipBytes(in, length)) return -1;
      pos += 2 + 4 + length;
    }
    if (!matched) {
      std::cerr << kChunkNoSubChunk << '\n';
      return -1;
    }
  }
  if (!featPara) featPara.reset(new FeatPara(kDefaultFeatPara));
  return 1;
}

int CChunkContainer::verifySignatureFrame() {
  if (key.empty()) {
    const unsigned char* bytes = nullptr;
    const int length = hook->getVerificationKey(&bytes);
    if (length > 0 && bytes != nullptr) key.assign(bytes, bytes + length);
  }
  const int index = findFrame("dsig", 4);
  if (index < 0 || hook->hasVerificationKey() == 0) return 0;
  const void* data = nullptr;
  const unsigned length = getFrameData(index, data);
  if (length < 4) {
    std::cerr << kChunkBadSignatureFrame << '\n';
    return kFailSignatureFrame;
  }
  const unsigned char* p = static_cast<const unsigned char*>(data) + 1;
  const unsigned char* end = static_cast<const unsigned char*>(data) + length;
  uint32_t keySize = 0;
  if (!fetchVarint(p, end, keySize) || keySize > static_cast<uint64_t>(end - p)) {
    std::cerr << kChunkBadSignatureFrame << '\n';
    return kFailSignatureFrame;
  }
  const unsigned char* frameKey = p;
  p += keySize;
  // A key longer than the hook's cannot be its match.
  if (keySize > key.size() || std::memcmp(frameKey, key.data(), keySize) != 0) {
    std::cerr << kChunkForeignKey << '\n';
    return kBitForeignKey;
  }
  uint32_t signatureSize = 0;
  if (!fetchVarint(p, end, signatureSize) || signatureSize > static_cast<uint64_t>(end - p)) {
    std::cerr << kChunkBadSignatureFrame << '\n';
    return kFailSignatureFrame;
  }
  // Without a "FEAT" chunk there is nothing to hash: refused as a format failure.
  if (chunks.empty() || !featPara) return kFailFormat;

  hook->verifyInit();
  unsigned char word[8];
  storeBigEndian64(word, tuid);
  hook->verifyUpdate(word, 8);
  if (infoLength != 0) hook->verifyUpdate(infoText.data(), infoLength);
  if (versionLength != 0) hook->verifyUpdate(versionText.data(), versionLength);
  storeBigEndian32(word, floatBits(featPara->lf));
  hook->verifyUpdate(word, 4);
  storeBigEndian32(word, floatBits(featPara->uf));
  hook->verifyUpdate(word, 4);
  storeBigEndian32(word, static_cast<uint32_t>(featPara->sr));
  hook->verifyUpdate(word, 4);
  hook->verifyUpdate(key.data(), static_cast<unsigned>(key.size()));
  hook->verifyUpdate(chunks[0].data.data(), static_cast<unsigned>(chunks[0].data.size()));
  if (hook->verifyFinal(p, signatureSize) != 0) {
    std::cerr << kChunkSignatureFailed << '\n';
    return kFailSignature;
  }
  return 0;
}

uint32_t CChunkContainer::bodySize() const {
  uint32_t size = 4 + varintSize(versionLength) + versionLength;
  if (infoLength != 0) size += 4 + varintSize(infoLength) + infoLength;
  if (tuid != 0) size += 12;
  if (featPara) size += 16;
  for (const SFeatChunk& chunk : chunks) {
    const uint32_t length = static_cast<uint32_t>(chunk.length);
    size += 8 + varintSize(length + 4) + length;
  }
  return size;
}

int CChunkContainer::setTuid(uint64_t value) {
  if (value == 0) {
    std::cerr << kChunkInvalidTuid << '\n';
    return -1;
  }
  tuid = value;
  return 1;
}

const char* CChunkContainer::getInfoText() const {
  return infoLength == 0 ? kChunkNoInfo : infoText.c_str();
}

double CChunkContainer::featureId() const { return numberBehind(versionText, 'F'); }

double CChunkContainer::contentId() const { return numberBehind(versionText, 'C'); }

bool CChunkContainer::checkSubscript(int i) const {
  if (i >= 0 && i < subChunkCount()) return true;
  std::cerr << kChunkSubscript << subChunkCount() << ")\n";
  return false;
}

int CChunkContainer::subChunkIndex(int i) const { return checkSubscript(i) ? chunks[i].index : -1; }

int CChunkContainer::subChunkLength(int i) const {
  return checkSubscript(i) ? chunks[i].length : -1;
}

const unsigned char* CChunkContainer::subChunkData(int i) const {
  return checkSubscript(i) ? chunks[i].data.data() : nullptr;
}

int CChunkContainer::addSubChunk(uint32_t length, std::istream* in, int index, int clearFirst) {
  if (clearFirst != 0) chunks.clear();
  if (length == 0 || in == nullptr) return 1;
  // The record counts its bytes in 32 signed bits.
  if (length > static_cast<uint32_t>(INT32_MAX)) return 0;
  SFeatChunk chunk{index, static_cast<int32_t>(length), {}};
  if (!readBounded(*in, length, chunk.data)) return 0;
  chunks.push_back(std::move(chunk));
  return 1;
}
