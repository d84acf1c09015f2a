#include "signature/CMetaVec.h"

#include <algorithm>
#include <cstring>
#include <iostream>
#include <string>

#include "signature/SignatureMessages.h"
#include "signature/StreamPrimitives.h"

namespace {

constexpr char kBlockId[] = "META";
constexpr unsigned kBlockIdSize = 4;

}  // namespace

const char* CMetaVec::tagName(int index) {
  static const char* const kTags[] = {
      "TPE1", "TIT2", "TALB", "Tuid", "Cuid", "dsig",  "TDOR",  "TSRC",  "TDTG",
      "TLEN", "TSCR", "TIME", "FeatObj", "ATPE1", "ATIT2", "ATUID", "IPINF",
  };
  constexpr int kCount = static_cast<int>(sizeof kTags / sizeof kTags[0]);
  return index >= 0 && index < kCount ? kTags[index] : "_inv_tag_";
}

CMetaVec::CMetaVec(const CMetaVec& other, int tagIndex) { assignExcept(other, tagIndex); }

int CMetaVec::findFrame(const char* id, unsigned length) const {
  int start = 0;
  unsigned dataLength = length;
  findFrameFrom(id, dataLength, start);
  return start;
}

int CMetaVec::findTaggedFrame(int tagIndex, int start) const {
  const char* tag = tagName(tagIndex);
  unsigned length = static_cast<unsigned>(std::strlen(tag));
  findFrameFrom(tag, length, start);
  return start;
}

const unsigned char* CMetaVec::findFrameFrom(const char* id, unsigned& length, int& start) const {
  for (size_t i = static_cast<size_t>(std::max(start, 0)); i < frames.size(); ++i) {
    if (frames[i].hasId(id, length)) {
      start = static_cast<int>(i);
      length = frames[i].dataLength;
      return frames[i].data.data();
    }
  }
  start = -1;
  return nullptr;
}

bool CMetaVec::checkIndex(int index) const {
  if (index < 0) {
    std::cerr << kMetaFrameNotFound << '\n';
    return false;
  }
  if (static_cast<size_t>(index) >= frames.size()) {
    std::cerr << kMetaIndexOutOfRange << frames.size() << ")\n";
    return false;
  }
  return true;
}

unsigned CMetaVec::getFrameData(int index, const void*& data) const {
  if (!checkIndex(index)) return 0;
  data = frameAt(index).data.data();
  return frameAt(index).dataLength;
}

void CMetaVec::appendFrame(const SMetaFrame& frame) { frames.push_back(frame); }

unsigned char* CMetaVec::addNewFrame(unsigned idLength, const char* id, unsigned dataLength) {
  if (idLength < 1 || idLength > 255) throw std::string(kMetaIdLength);
  frames.emplace_back(idLength, dataLength, id, nullptr);
  return frames.back().data.data();
}

unsigned char* CMetaVec::addTaggedFrame(int tagIndex, unsigned dataLength) {
  const char* tag = tagName(tagIndex);
  return addNewFrame(static_cast<unsigned>(std::strlen(tag)), tag, dataLength);
}

int CMetaVec::removeFrame(int index) {
  if (!checkIndex(index)) return 0;
  frames.erase(frames.begin() + index);
  return 1;
}

unsigned CMetaVec::removeAllWithId(const char* id, unsigned length) {
  frames.erase(std::remove_if(frames.begin(), frames.end(),
                              [&](const SMetaFrame& f) { return f.hasId(id, length); }),
               frames.end());
  return frameCount();
}

unsigned CMetaVec::assignExcept(const CMetaVec& other, int tagIndex) {
  const char* tag = tagName(tagIndex);
  const unsigned tagLength = static_cast<unsigned>(std::strlen(tag));
  if (&other == this) return removeAllWithId(tag, tagLength);
  frames.clear();
  for (const SMetaFrame& frame : other.frames) {
    if (!frame.hasId(tag, tagLength)) frames.push_back(frame);
  }
  return frameCount();
}

unsigned CMetaVec::encodedSize(unsigned* varintBytes) const {
  if (frames.empty()) return 0;
  uint32_t sum = 0;
  for (const SMetaFrame& frame : frames) sum += frame.encodedSize();
  if (varintBytes) *varintBytes = varintSize(sum);
  return kBlockIdSize + varintSize(sum) + sum;
}

int CMetaVec::writeTo(std::ostream& out) const {
  std::vector<unsigned char> block(encodedSize());
  if (!storeTo(block.data())) return 1;
  out.write(reinterpret_cast<const char*>(block.data()), static_cast<std::streamsize>(block.size()));
  return 0;
}

unsigned CMetaVec::storeTo(unsigned char* buffer) const {
  if (frames.empty()) {
    std::cerr << kMetaNothingToWrite << '\n';
    return 0;
  }
  unsigned varintBytes = 0;
  const unsigned total = encodedSize(&varintBytes);
  unsigned char* p = buffer;
  std::memcpy(p, kBlockId, kBlockIdSize);
  p += kBlockIdSize;
  p += storeVarint(p, total - kBlockIdSize - varintBytes);
  for (const SMetaFrame& frame : frames) {
    *p++ = static_cast<unsigned char>(frame.idLength);
    if (frame.idLength) std::memcpy(p, frame.id.data(), frame.idLength);
    p += frame.idLength;
    p += storeVarint(p, frame.dataLength);
    if (frame.dataLength) std::memcpy(p, frame.data.data(), frame.dataLength);
    p += frame.dataLength;
  }
  return static_cast<unsigned>(p - buffer);
}

unsigned CMetaVec::parse(const unsigned char* buffer, unsigned length) {
  frames.clear();
  if ((length != 0 && length < kBlockIdSize) || std::memcmp(buffer, kBlockId, kBlockIdSize) != 0) {
    std::cerr << kMetaNotMetaTag << '\n';
    return 0;
  }
  // Offsets from the "M"; a given length bounds every read, and a frame that would pass it ends
  // the parse with the offset where that frame was to end, which is above length.
  const unsigned char* limit = length ? buffer + length : nullptr;
  const auto overrun = [](uint64_t wanted) {
    return static_cast<unsigned>(std::min<uint64_t>(wanted, UINT32_MAX));
  };
  const unsigned char* p = buffer + kBlockIdSize;
  uint32_t frameBytes = 0;
  if (!fetchVarint(p, limit, frameBytes)) return overrun(uint64_t{length} + 1);
  const uint64_t start = static_cast<uint64_t>(p - buffer);
  // A given length wins over S.
  const int64_t end = length ? int64_t{length} - kBlockIdSize - varintSize(frameBytes) +
                                   static_cast<int64_t>(start)
                             : static_cast<int64_t>(start + frameBytes);
  while (p - buffer < end) {
    const uint64_t at = static_cast<uint64_t>(p - buffer);
    if (limit && at + 1 > length) return overrun(at + 1);
    const unsigned idLength = *p++;
    const char* id = reinterpret_cast<const char*>(p);
    if (limit && at + 1 + idLength > length) return overrun(at + 1 + idLength);
    p += idLength;
    uint32_t dataLength = 0;
    if (!fetchVarint(p, limit, dataLength)) return overrun(uint64_t{length} + 1);
    const uint64_t dataEnd = static_cast<uint64_t>(p - buffer) + dataLength;
    if (limit && dataEnd > length) return overrun(dataEnd);
    unsigned char* data = addNewFrame(idLength, id, dataLength);
    if (dataLength) std::memcpy(data, p, dataLength);
    p += dataLength;
  }
  return static_cast<unsigned>(p - buffer);
}

unsigned CMetaVec::readFrom(std::istream& in, unsigned size) {
  unsigned sum = 0;
  while (sum < size) {
    const unsigned consumed = readOneFrame(in);
    if (consumed == 0) {
      std::cerr << kMetaParsingTags << '\n';
      return 0;
    }
    sum += consumed;
  }
  return sum;
}

unsigned CMetaVec::readOneFrame(std::istream& in) {
  // The length byte counts as signed on this path: 128 and above turn into a huge id length that
  // no stream can deliver, so such a frame fails.
  const int byte = in.get();
  const int32_t signedLength = static_cast<signed char>(static_cast<unsigned char>(byte));
  frames.emplace_back(static_cast<uint32_t>(signedLength), in);
  const SMetaFrame& frame = frames.back();
  if (frame.idLength == 0) return 0;
  return frame.idLength + frame.dataLength + varintSize(frame.dataLength) + 1;
}
