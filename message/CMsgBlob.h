// CMsgBlob: a byte string of a message (text, byte vectors). It is written as an item of
// tag "5" whose L is the byte count; it reads items of tag "5" and, one lowest byte per
// element, of the element tags "6" to "8".
#ifndef ORVANE_MESSAGE_CMSGBLOB_H_
#define ORVANE_MESSAGE_CMSGBLOB_H_

#include <cstddef>
#include <vector>

class CMsgBlob {
 public:
  CMsgBlob() = default;
  // Copies `length` bytes from `bytes`.
  // REQUIRES: length is at most 2^32 - 6, so that size() fits.
  CMsgBlob(const unsigned char* bytes, unsigned length);

  // Bytes of the item: length() + 5.
  unsigned size() const;

  // Writes the item to `destination` and returns it.
  // REQUIRES: destination has room for size() bytes.
  unsigned char* encode(unsigned char* destination) const;

  // Takes the bytes out of the item of `itemLength` bytes at `bytes`. Throws
  // "Error in Protocol !" for a tag other than "5" to "8", and "Error in Protocol" when the
  // item is too short for its head or for L payload bytes.
  // REQUIRES: itemLength bytes are readable at `bytes`.
  void decode(const unsigned char* bytes, std::size_t itemLength);

  const unsigned char* data() const { return payload.data(); }
  unsigned length() const { return static_cast<unsigned>(payload.size()); }

 private:
  // The item of the last decode.
  std::vector<unsigned char> encoded;
  std::vector<unsigned char> payload;
};

#endif  // ORVANE_MESSAGE_CMSGBLOB_H_
