#include "message/CReceiveMsg.h"

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
  readPos = 0;
}

// An item ends 5 + L bytes after its tag, whatever the tag (so an element-tag item is
// stepped into, not over). The end of the message is the end mark, or an item that ends
// exactly at the buffer's end: kept, that last item is never delivered.
std::size_t CReceiveMsg::itemEnd() const {
  const std::size_t total = buffer.size();
  if (readPos >= total || buffer[readPos] == kEndMark) return 0;
  if (total - readPos < kItemHeadSize) throw std::string(kErrorInProtocol);
  const std::size_t end = readPos + kItemHeadSize + loadBigEndian32(&buffer[readPos + 1]);
  if (end == total) return 0;
  if (end > total) throw std::string(kErrorInProtocol);
  return end;
}

template <typename T>
T CReceiveMsg::next() {
  const std::size_t end = itemEnd();
  if (end == 0) return T();
  CMsgValue<T> item;
  item.decode(&buffer[readPos], end - readPos);
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
void CReceiveMsg::passFloats(float* values, std::size_t count) {
  std::size_t i = 0;
  const unsigned char* bytes = buffer.data();
  for (; i < count && readPos < buffer.size() && buffer.size() - readPos > kFloatItemSize; ++i) {
    const unsigned char* item = bytes + readPos;
    if (std::memcmp(item, kFloatItemHead, kItemHeadSize) != 0) break;
    values[i] = floatFromBits(loadBigEndian32(item + kItemHeadSize));
    readPos += kFloatItemSize;
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
  item.decode(&buffer[readPos], end - readPos);
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
  if (buffer.size() < kHeaderSize) {
    readPos = 0;
    return 0;
  }
  readPos = kFirstItem;
  return std::memcmp(buffer.data(), header, kHeaderSize) == 0 ? 1 : 0;
}

void CReceiveMsg::terminate() {}

const unsigned char* CReceiveMsg::getBuffer() { throw std::string(kReceiveGetBufferNotAllowed); }

void CReceiveMsg::setBuffer(const unsigned char* data, unsigned length) {
  buffer.assign(data, data + length);
  readPos = 0;
}

void CReceiveMsg::takeBuffer(MsgBytes&& bytes) {
  buffer = std::move(bytes);
  readPos = 0;
}

unsigned CReceiveMsg::size() const { return static_cast<unsigned>(buffer.size()); }
