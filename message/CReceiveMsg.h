// CReceiveMsg: gives back the values of a message in the order in which they were put. The
// calling order is: setBuffer(), checkHeader(header), then the get calls. The end of the
// message is no failure: from there on every get answers 0 (0.0, false, an empty string, a
// null blob) for ever. A damaged item throws "Error in Protocol" or "Error in Protocol !"
// and leaves the read position where it was. No read leaves the buffer.
#ifndef ORVANE_MESSAGE_CRECEIVEMSG_H_
#define ORVANE_MESSAGE_CRECEIVEMSG_H_

#include <cstddef>

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
  unsigned size() const override;
  // Gives exactly what `count` reads of the float slot give, one after another (an end of
  // the message, a damaged item or another tag included); a run of well-formed float items
  // is taken in one sweep.
  void passFloats(float* values, std::size_t count) override;

 private:
  // The end of the item at readPos, or 0 at the end of the message. Throws
  // "Error in Protocol" for an item that reaches past the buffer.
  std::size_t itemEnd() const;
  template <typename T>
  T next();
  // Empties `bytes` and appends the next blob.
  template <typename Bytes>
  Bytes& replaceByBlob(Bytes& bytes);

  MsgBytes buffer;
  // Offset of the next item.
  std::size_t readPos = 0;
};

#endif  // ORVANE_MESSAGE_CRECEIVEMSG_H_
