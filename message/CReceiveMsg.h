// CReceiveMsg: gives back the values of a message in the order in which they were put. The
// calling order is: setBuffer() (or takeBuffer(), or setSource()), checkHeader(header), then
// the get calls. The end of the message is no failure: from there on every get answers 0
// (0.0, false, an empty string, a null blob) for ever. A damaged item throws "Error in
// Protocol" or "Error in Protocol !" and leaves the read position where it was. No read
// leaves the message.
//
// A message read from a source is held a window at a time: the bytes from the item being
// read on, at least a window's worth, so that a large message is decoded while it is read
// and never held whole. It answers exactly as the same bytes in one buffer.
#ifndef ORVANE_MESSAGE_CRECEIVEMSG_H_
#define ORVANE_MESSAGE_CRECEIVEMSG_H_

#include <cstddef>
#include <functional>

#include "message/CMsgBase.h"
#include "message/MsgBytes.h"

class CReceiveMsg : public CMsgBase {
 public:
  CReceiveMsg() = default;
  ~CReceiveMsg() override;

  void reset() override;
  uint64_t pass(uint64_t typeOnly) override;
  int64_t pass(int64_t typeOnly) override;
  double pass(double typeOnly) override;
  float pass(float typeOnly) override;
  unsigned pass(unsigned typeOnly) override;
  MsgInt32 pass(MsgInt32 typeOnly) override;
  int pass(int typeOnly) override;
  MsgUInt32 pass(MsgUInt32 typeOnly) override;
  unsigned char pass(unsigned char typeOnly) override;
  char pass(char typeOnly) override;
  bool pass(bool typeOnly) override;
  // Replace the contents by the next item's bytes.
  std::vector<unsigned char>& passBytes(std::vector<unsigned char>& bytes) override;
  std::string& passString(std::string& text) override;
  unsigned char* passBlob(unsigned char*& data, unsigned& length) override;
  // Does nothing.
  void finish(const unsigned char* header) override;
  // Under 5 bytes: moves to 0 and answers 0. Otherwise moves to the first item (offset 9)
  // and answers 1 if the first five bytes equal `header`, else 0.
  int checkHeader(const unsigned char* header) override;
  // Does nothing.
  void terminate() override;
  // Throws "CReceiveMsg::getBuffer not allowed".
  const unsigned char* getBuffer() override;
  void setBuffer(const unsigned char* data, unsigned length) override;
  // As setBuffer, taking the bytes over instead of copying them.
  // REQUIRES: fewer than 2^32 bytes.
  void takeBuffer(MsgBytes&& bytes);
  // Copies up to `count` bytes of the message, in order, to `into`; returns how many.
  using Source = std::function<std::size_t(unsigned char* into, std::size_t count)>;
  // The message becomes the `length` bytes that `source` gives, read as they are needed,
  // `window` bytes or more at a time. A source that gives fewer bytes than it owes makes
  // the read that needs them throw "Error in Protocol".
  // REQUIRES: length < 2^32; window >= 1.
  void setSource(std::size_t length, Source source, std::size_t window);
  unsigned size() const override;
  // Gives exactly what `count` reads of the float slot give, one after another (an end of
  // the message, a damaged item or another tag included); a run of well-formed float items
  // is taken in one sweep.
  void passFloats(float* values, std::size_t count) override;

 private:
  // The end of the item at readPos, or 0 at the end of the message. Throws
  // "Error in Protocol" for an item that reaches past the buffer.
  std::size_t itemEnd();
  template <typename T>
  T next();
  // Empties `bytes` and appends the next blob.
  template <typename Bytes>
  Bytes& replaceByBlob(Bytes& bytes);

  // Makes the bytes [readPos, end) of the message present in the buffer.
  // REQUIRES: readPos <= end <= total.
  void ensure(std::size_t end);
  // The byte of the message at offset `pos`.
  // REQUIRES: pos inside the window.
  const unsigned char* at(std::size_t pos) const { return buffer.data() + (pos - windowStart); }

  // The message's bytes from offset windowStart; all of them without a source.
  MsgBytes buffer;
  std::size_t windowStart = 0;
  std::size_t total = 0;  // bytes of the message
  Source source;          // where the bytes past the window come from
  std::size_t window = 0;
  // Offset of the next item.
  std::size_t readPos = 0;
};

#endif  // ORVANE_MESSAGE_CRECEIVEMSG_H_
