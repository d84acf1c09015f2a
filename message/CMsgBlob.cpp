#include "message/CMsgBlob.h"

#include <cstring>
#include <string>

#include "message/MessageErrors.h"
#include "message/MsgItem.h"
#include "vexl/ByteOrder.h"

CMsgBlob::CMsgBlob(const unsigned char* bytes, unsigned length) : payload(bytes, bytes + length) {}

unsigned CMsgBlob::size() const { return length() + static_cast<unsigned>(kItemHeadSize); }

unsigned char* CMsgBlob::encode(unsigned char* destination) const {
  destination[0] = kTagBytes;
  storeBigEndian32(destination + 1, length());
  if (!payload.empty()) {
    std::memcpy(destination + kItemHeadSize, payload.data(), payload.size());
  }
  return destination;
}

void CMsgBlob::decode(const unsigned char* bytes, std::size_t itemLength) {
  encoded.assign(bytes, bytes + itemLength);
  if (itemLength < kItemHeadSize) throw std::string(kErrorInProtocol);
  const std::size_t count = loadBigEndian32(&encoded[1]);
  // Tags "6" to "8" count elements, so their payload is longer than L; the item as a message
  // delimits it is only L + 5 bytes. We allocate no more than the item holds, and elements
  // that lie past the item's end read as 0.
  if (count > itemLength - kItemHeadSize) throw std::string(kErrorInProtocol);
  const unsigned char tag = encoded[0];
  const std::size_t width = tag >= kTagBytes ? msgTagWidth(tag) : 0;
  if (width == 0) throw std::string(kErrorInProtocolTag);
  payload.assign(count, 0);
  for (std::size_t i = 0; i < count; ++i) {
    // Big-endian: the lowest byte of element i is its last one.
    const std::size_t lowest = kItemHeadSize + i * width + width - 1;
    if (lowest >= itemLength) break;
    payload[i] = encoded[lowest];
  }
}
