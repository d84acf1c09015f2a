#include "message/CReceiveMsg.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <string>

#include "message/CMsgBlob.h"
#include "message/CMsgValue.h"
#include "message/MessageErrors.h"
#include "message/MsgItem.h"
#include "vexl/ByteOrder.h"

namespace {

// Header and body length in front of the first item.
constexpr std::size_t kHeaderSize = 5;
constexpr std::size_t kFirstItem = 9;

}  // namespace

CReceiveMsg::~CReceiveMsg() = default;

void CReceiveMsg::reset() {
  buffer.clear();
  windowStart = total = readPos = 0;
  source = nullptr;
}

// The window moves up to the read position and grows to what is asked, at least a window's
// worth, never past the message.
void CReceiveMsg::ensure(std::size_t end) {
  const std::size_t present = windowStart + buffer.size();
  if (end <= present) return;
  const std::size_t keep = present - readPos;
  if (keep != 0) std::memmove(buffer.data(), at(readPos), keep);
  windowStart = readPos;
  const std::size_t wanted = std::min(total - readPos, std::max(end - readPos, window));
  buffer.resize(wanted);
  if (source(buffer.data() + keep, wanted - keep) != wanted - keep) {
    buffer.resize(keep);
    throw std::string(kErrorInProtocol);
  }
}

// An item ends 5 + L bytes after its tag, whatever the tag (so an element-tag item is
// stepped into, not over). The end of the message is the end mark, or an item that ends
// exactly at the buffer's end: kept, that last item is never delivered.
std::size_t CReceiveMsg::itemEnd() {
  if (readPos >= total) return 0;
  ensure(std::min(total, readPos + kItemHeadSize));
  if (*at(readPos) == kEndMark) return 0;
  if (total - readPos < kItemHeadSize) throw std::string(kErrorInProtocol);
  const std::size_t end = readPos + kItemHeadSize + loadBigEndian32(at(readPos + 1));
  if (end == total) return 0;
  if (end > total) throw std::string(kErrorInProtocol);
  ensure(end);
  return end;
}

template <typename T>
T CReceiveMsg::next() {
  const std::size_t end = itemEnd();
  if (end == 0) return T();
  CMsgValue<T> item;
  item.decode(at(readPos), end - readPos);
  readPos = end;
  return item.value();
}

uint64_t CReceiveMsg::pass(uint64_t) { return next<uint64_t>(); }
int64_t CReceiveMsg::pass(int64_t) { return next<int64_t>(); }
double CReceiveMsg::pass(double) { return next<double>(); }
float CReceiveMsg::pass(float) { return next<float>(); }
unsigned CReceiveMsg::pass(unsigned) { return next<unsigned>(); }
MsgInt32 CReceiveMsg::pass(MsgInt32) { return MsgInt32(next<int32_t>()); }
int CReceiveMsg::pass(int) { return next<int>(); }
MsgUInt32 CReceiveMsg::pass(MsgUInt32) { return MsgUInt32(next<uint32_t>()); }
unsigned char CReceiveMsg::pass(unsigned char) { return next<unsigned char>(); }
char CReceiveMsg::pass(char) { return next<char>(); }
bool CReceiveMsg::pass(bool) { return next<bool>(); }

// A float item that ends before the buffer's last byte is read by the float slot as its
// bits: the sweep takes those, and leaves anything else (the end of the message, an item
// ending exactly at the buffer's end, another tag or length) to the slot itself.
// The sweep reads in the window, which holds all `count` items when they are there.
void CReceiveMsg::passFloats(float* values, std::size_t count) {
  std::size_t i = 0;
  if (readPos < total) {
    const std::size_t wanted = count > (total - readPos) / kFloatItemSize
                                   ? total
                                   : std::min(total, readPos + count * kFloatItemSize + 1);
    ensure(wanted);
    const std::size_t last = std::min(windowStart + buffer.size(), total - 1);
    for (; i < count && readPos + kFloatItemSize <= last; ++i) {
      const unsigned char* item = at(readPos);
      if (std::memcmp(item, kFloatItemHead, kItemHeadSize) != 0) break;
      values[i] = floatFromBits(loadBigEndian32(item + kItemHeadSize));
      readPos += kFloatItemSize;
    }
  }
  for (; i < count; ++i) values[i] = next<float>();
}

unsigned char* CReceiveMsg::passBlob(unsigned char*& data, unsigned& length) {
  const std::size_t end = itemEnd();
  if (end == 0) {
    length = 0;
    delete[] data;
    data = nullptr;
    return nullptr;
  }
  CMsgBlob item;
  item.decode(at(readPos), end - readPos);
  readPos = end;
  unsigned char* block = new unsigned char[item.length()];
  if (item.length() != 0) std::memcpy(block, item.data(), item.length());
  delete[] data;
  data = block;
  length = item.length();
  return data;
}

template <typename Bytes>
Bytes& CReceiveMsg::replaceByBlob(Bytes& bytes) {
  bytes.clear();
  unsigned char* data = nullptr;
  unsigned length = 0;
  const std::unique_ptr<unsigned char[]> block(passBlob(data, length));
  bytes.insert(bytes.end(), block.get(), block.get() + length);
  return bytes;
}

std::vector<unsigned char>& CReceiveMsg::passBytes(std::vector<unsigned char>& bytes) {
  return replaceByBlob(bytes);
}

std::string& CReceiveMsg::passString(std::string& text) { return replaceByBlob(text); }

void CReceiveMsg::finish(const unsigned char*) {}

int CReceiveMsg::checkHeader(const unsigned char* header) {
  readPos = 0;
  if (total < kHeaderSize) return 0;
  ensure(std::min(total, kFirstItem));
  const bool same = std::memcmp(at(0), header, kHeaderSize) == 0;
  readPos = std::min(total, kFirstItem);
  return same ? 1 : 0;
}

void CReceiveMsg::terminate() {}

const unsigned char* CReceiveMsg::getBuffer() { throw std::string(kReceiveGetBufferNotAllowed); }

void CReceiveMsg::setBuffer(const unsigned char* data, unsigned length) {
  reset();
  buffer.assign(data, data + length);
  total = length;
}

void CReceiveMsg::takeBuffer(MsgBytes&& bytes) {
  reset();
  buffer = std::move(bytes);
  total = buffer.size();
}

void CReceiveMsg::setSource(std::size_t length, Source from, std::size_t windowBytes) {
  reset();
  total = length;
  source = std::move(from);
  window = windowBytes;
}

unsigned CReceiveMsg::size() const { return static_cast<unsigned>(total); }
