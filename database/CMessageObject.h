// CMessageObject: an object that packs itself into a typed message and unpacks itself from
// one. Subclasses write pack() and unpack() as two lists of the same typed calls in the same
// order; this base runs them against a sending or a receiving message and owns that message,
// which stays alive (with a copy of the whole message, or the last window of one read from
// a source) until the next send or receive.
#ifndef ORVANE_DATABASE_CMESSAGEOBJECT_H_
#define ORVANE_DATABASE_CMESSAGEOBJECT_H_

#include <functional>
#include <memory>

#include "message/CMsgBase.h"
#include "message/CReceiveMsg.h"
#include "message/MsgBytes.h"

class CMessageObject {
 public:
  // `tag`: the four characters that head every message of this object.
  explicit CMessageObject(const char* tag);
  CMessageObject(const CMessageObject&) = delete;
  CMessageObject& operator=(const CMessageObject&) = delete;
  virtual ~CMessageObject();

  // Called before pack or unpack, in both directions.
  virtual void prepare() = 0;
  // Writes the object's values through `message`, in the order unpack reads them.
  virtual void pack() = 0;
  // Reads the object's values through `message`.
  virtual void unpack() = 0;

  // Packs the object into a new finished message and returns its bytes, which stay with this
  // object (the message's own, not a copy of them); their count is messageSize().
  const unsigned char* sendToBuffer();
  // Bytes of the last message. Throws "socket not initialized" when there is none.
  unsigned messageSize() const;
  // Unpacks the object from a message of `size` bytes. 0 on success; 1 when the header is
  // not this object's tag (nothing is read) or when unpacking failed part way (the message
  // is dropped, and the object keeps what was read up to the failure).
  int receiveFromBuffer(const unsigned char* bytes, unsigned size);
  // The same, taking the bytes over instead of copying them.
  // REQUIRES: fewer than 2^32 bytes.
  int receiveFromBuffer(MsgBytes&& bytes);
  // The same, reading the `length` bytes from `source` while unpacking, `window` bytes or
  // more at a time, so that the whole message is never held at once.
  int receiveFromSource(std::size_t length, CReceiveMsg::Source source, std::size_t window);

 protected:
  // 0: pack on send and unpack on receive; otherwise the other way round.
  unsigned char direction = 0;
  // The message of the last send or receive; null before the first.
  std::unique_ptr<CMsgBase> message;

 private:
  // Receives the message that `fill` puts into a new receiving message.
  int receive(const std::function<void(CReceiveMsg&)>& fill);

  // Four characters and a zero byte.
  unsigned char tag[5] = {};
};

#endif  // ORVANE_DATABASE_CMESSAGEOBJECT_H_
