// CSendMsg: collects typed values into a message. The calling order is: the put calls,
// terminate(), finish(header), then getBuffer() and size(). Puts after finish() land behind
// the end mark; nothing prevents it. A put that would make the message larger than
// 2^32 - 1 bytes throws std::length_error.
#ifndef ORVANE_MESSAGE_CSENDMSG_H_
#define ORVANE_MESSAGE_CSENDMSG_H_

#include <cstddef>

#include "message/CMsgBase.h"
#include "message/MsgBytes.h"

class CSendMsg : public CMsgBase {
  // Header and body length.
  static constexpr std::size_t kFrontRoom = 9;

 public:
  CSendMsg() = default;
  ~CSendMsg() override;

  void reset() override;
  uint64_t pass(uint64_t value) override;
  int64_t pass(int64_t value) override;
  double pass(double value) override;
  float pass(float value) override;
  unsigned pass(unsigned value) override;
  MsgInt32 pass(MsgInt32 value) override;
  int pass(int value) override;
  MsgUInt32 pass(MsgUInt32 value) override;
  unsigned char pass(unsigned char value) override;
  char pass(char value) override;
  bool pass(bool value) override;
  // Bytes and text travel as one tag "5" item, text without a terminator.
  // REQUIRES: fewer than 2^32 - 5 bytes.
  std::vector<unsigned char>& passBytes(std::vector<unsigned char>& bytes) override;
  std::string& passString(std::string& text) override;
  unsigned char* passBlob(unsigned char*& data, unsigned& length) override;
  void finish(const unsigned char* header) override;
  // Answers 0: a message being built has no header to check.
  int checkHeader(const unsigned char* header) override;
  void terminate() override;
  // Releases the block of the previous call.
  const unsigned char* getBuffer() override;
  // Throws "CSendMsg::setBuffer not allowed".
  void setBuffer(const unsigned char* data, unsigned length) override;
  unsigned size() const override;
  void passFloats(float* values, std::size_t count) override;

  // Makes room for a message of `bytes` bytes in all, header included, so that a sender
  // that knows its size in advance never has the buffer copied as it grows.
  void reserve(std::size_t bytes);
  // The message itself, size() bytes, valid until the next call that changes it: unlike
  // getBuffer, no copy.
  const unsigned char* data() const { return buffer.empty() ? nullptr : buffer.data() + start; }

 private:
  template <typename T>
  T append(T value);
  template <typename Bytes>
  Bytes& appendBlob(Bytes& bytes);
  // Makes room for `count` more bytes at the end and returns where they start.
  unsigned char* grow(std::size_t count);
  void extend(std::size_t count);

  // The message is the `used` bytes from `start`; the rest is room to grow into. Until the
  // first finish, `start` keeps room for the header and body length in front of the items,
  // so that finishing does not move them.
  MsgBytes buffer;
  std::size_t start = kFrontRoom;
  std::size_t used = 0;
};

#endif  // ORVANE_MESSAGE_CSENDMSG_H_
