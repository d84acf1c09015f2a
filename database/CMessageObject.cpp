#include "database/CMessageObject.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "database/DatabaseErrors.h"
#include "message/CReceiveMsg.h"
#include "message/CSendMsg.h"

CMessageObject::CMessageObject(const char* tag) {
  std::memcpy(this->tag, tag, std::min<std::size_t>(std::strlen(tag), 4));
}

CMessageObject::~CMessageObject() = default;

const unsigned char* CMessageObject::sendToBuffer() {
  message.reset();
  auto* sending = new CSendMsg;
  message.reset(sending);
  prepare();
  if (direction == 0) {
    pack();
  } else {
    unpack();
  }
  message->terminate();
  message->finish(tag);
  // The message's own bytes: a copy of a large store's message would double the memory
  // that a save holds.
  return sending->data();
}

unsigned CMessageObject::messageSize() const {
  if (!message) throw std::string(kSocketNotInitialized);
  return message->size();
}

int CMessageObject::receiveFromBuffer(const unsigned char* bytes, unsigned size) {
  return receive([&](CReceiveMsg& receiving) { receiving.setBuffer(bytes, size); });
}

int CMessageObject::receiveFromBuffer(MsgBytes&& bytes) {
  return receive([&](CReceiveMsg& receiving) { receiving.takeBuffer(std::move(bytes)); });
}

int CMessageObject::receiveFromSource(std::size_t length, CReceiveMsg::Source source,
                                      std::size_t window) {
  return receive([&](CReceiveMsg& receiving) {
    receiving.setSource(length, std::move(source), window);
  });
}

int CMessageObject::receive(const std::function<void(CReceiveMsg&)>& fill) {
  message.reset();
  try {
    auto* receiving = new CReceiveMsg;
    message.reset(receiving);
    fill(*receiving);
    if (message->checkHeader(tag) == 0) return 1;
    prepare();
    if (direction == 0) {
      unpack();
    } else {
      pack();
    }
    return 0;
  } catch (...) {
    message.reset();
    return 1;
  }
}
