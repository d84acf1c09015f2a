#include "message/CSendMsg.h"

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

// Body length and header in front of the items.
constexpr std::size_t kLengthSize = 4;
constexpr std::size_t kHeaderSize = 5;

}  // namespace

CSendMsg::~CSendMsg() = default;

void CSendMsg::reset() { buffer.clear(); }

// A large message grows by half its capacity at a time, not by doubling: while the old and
// the new block coexist, that keeps the peak at 2.5 times the message instead of 3.
unsigned char* CSendMsg::grow(std::size_t count) {
  const std::size_t used = buffer.size();
  if (used + count > buffer.capacity()) {
    buffer.reserve(std::max(used + count, buffer.capacity() + buffer.capacity() / 2));
  }
  buffer.resize(used + count);
  return buffer.data() + used;
}

template <typename T>
T CSendMsg::append(T value) {
  CMsgValue<T> item(value);
  item.encode(grow(item.size()));
  return value;
}

uint64_t CSendMsg::pass(uint64_t value) { return append(value); }
int64_t CSendMsg::pass(int64_t value) { return append(value); }
double CSendMsg::pass(double value) { return append(value); }
float CSendMsg::pass(float value) { return append(value); }
unsigned CSendMsg::pass(unsigned value) { return append(value); }
MsgInt32 CSendMsg::pass(MsgInt32 value) { return MsgInt32(append(int32_t{value})); }
int CSendMsg::pass(int value) { return append(value); }
MsgUInt32 CSendMsg::pass(MsgUInt32 value) { return MsgUInt32(append(uint32_t{value})); }
unsigned char CSendMsg::pass(unsigned char value) { return append(value); }
char CSendMsg::pass(char value) { return append(value); }
bool CSendMsg::pass(bool value) { return append(value); }

template <typename Bytes>
Bytes& CSendMsg::appendBlob(Bytes& bytes) {
  unsigned char* data = reinterpret_cast<unsigned char*>(bytes.data());
  unsigned length = static_cast<unsigned>(bytes.size());
  passBlob(data, length);
  return bytes;
}

std::vector<unsigned char>& CSendMsg::passBytes(std::vector<unsigned char>& bytes) {
  return appendBlob(bytes);
}

std::string& CSendMsg::passString(std::string& text) { return appendBlob(text); }

unsigned char* CSendMsg::passBlob(unsigned char*& data, unsigned& length) {
  const CMsgBlob item(data, length);
  item.encode(grow(item.size()));
  return data;
}

void CSendMsg::terminate() { *grow(1) = kEndMark; }

void CSendMsg::finish(const unsigned char* header) {
  const unsigned bodyLength = size();
  grow(kHeaderSize + kLengthSize);
  std::memmove(buffer.data() + kHeaderSize + kLengthSize, buffer.data(), bodyLength);
  std::memcpy(buffer.data(), header, kHeaderSize);
  storeBigEndian32(buffer.data() + kHeaderSize, bodyLength);
}

int CSendMsg::checkHeader(const unsigned char*) { return 0; }

const unsigned char* CSendMsg::getBuffer() {
  // The new block is made before the old one goes, so the two are never the same.
  std::unique_ptr<unsigned char[]> copy(new unsigned char[buffer.size()]);
  if (!buffer.empty()) std::memcpy(copy.get(), buffer.data(), buffer.size());
  scratch = std::move(copy);
  return scratch.get();
}

void CSendMsg::setBuffer(const unsigned char*, unsigned) {
  throw std::string(kSendSetBufferNotAllowed);
}

unsigned CSendMsg::size() const { return static_cast<unsigned>(buffer.size()); }
