#include "message/CSendMsg.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <stdexcept>
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
constexpr std::size_t kMaxMessageSize = 0xFFFFFFFFu;

}  // namespace

CSendMsg::~CSendMsg() = default;

void CSendMsg::reset() {
  start = kFrontRoom;
  used = 0;
}

// Sizes and lengths of a message are 32-bit: a message may not grow past that.
// A large message grows by half its size at a time, not by doubling: while the old and the
// new block coexist, that keeps the peak at 2.5 times the message instead of 3.
void CSendMsg::extend(std::size_t count) {
  if (count > kMaxMessageSize - used) throw std::length_error(kMessageTooLarge);
  const std::size_t room = buffer.size() + buffer.size() / 2;
  buffer.resize(std::max(start + used + count, std::min(room, start + kMaxMessageSize)));
}

unsigned char* CSendMsg::grow(std::size_t count) {
  if (start + used + count > buffer.size()) extend(count);
  unsigned char* at = buffer.data() + start + used;
  used += count;
  return at;
}

void CSendMsg::reserve(std::size_t bytes) {
  if (bytes > buffer.size()) buffer.resize(std::min(bytes, kFrontRoom + kMaxMessageSize));
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

// A float item as the float slot writes it: tag "3", L = 4, the bits big-endian.
void CSendMsg::passFloats(float* values, std::size_t count) {
  if (count > (kMaxMessageSize - used) / kFloatItemSize) {
    throw std::length_error(kMessageTooLarge);
  }
  unsigned char* at = grow(count * kFloatItemSize);
  for (std::size_t i = 0; i < count; ++i, at += kFloatItemSize) {
    std::memcpy(at, kFloatItemHead, kItemHeadSize);
    storeBigEndian32(at + kItemHeadSize, floatBits(values[i]));
  }
}

void CSendMsg::finish(const unsigned char* header) {
  const unsigned bodyLength = size();
  if (start >= kHeaderSize + kLengthSize) {
    start -= kHeaderSize + kLengthSize;
    used += kHeaderSize + kLengthSize;
  } else {
    grow(kHeaderSize + kLengthSize);
    std::memmove(buffer.data() + start + kHeaderSize + kLengthSize, buffer.data() + start,
                 bodyLength);
  }
  std::memcpy(buffer.data() + start, header, kHeaderSize);
  storeBigEndian32(buffer.data() + start + kHeaderSize, bodyLength);
}

int CSendMsg::checkHeader(const unsigned char*) { return 0; }

const unsigned char* CSendMsg::getBuffer() {
  // The new block is made before the old one goes, so the two are never the same.
  std::unique_ptr<unsigned char[]> copy(new unsigned char[used]);
  if (used != 0) std::memcpy(copy.get(), data(), used);
  scratch = std::move(copy);
  return scratch.get();
}

void CSendMsg::setBuffer(const unsigned char*, unsigned) {
  throw std::string(kSendSetBufferNotAllowed);
}

unsigned CSendMsg::size() const { return static_cast<unsigned>(used); }
