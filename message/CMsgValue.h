// CMsgValue<T>: one typed value of a message and its item. A value is written as the item of
// its width (tag "1" for bool and the char types, "3" for 32-bit integers and float, "4" for
// 64-bit integers and double; floating values as their IEEE bits) and can be read back as any
// of these types from an item of tag "1" to "4", by the fixed conversion rules of decode().
// Decoding never reads outside the item it is given.
#ifndef ORVANE_MESSAGE_CMSGVALUE_H_
#define ORVANE_MESSAGE_CMSGVALUE_H_

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>

#include "message/MessageErrors.h"
#include "message/MsgItem.h"
#include "vexl/ByteOrder.h"

template <typename T>
class CMsgValue {
  static constexpr bool kIsByte =
      std::is_same_v<T, bool> || std::is_same_v<T, char> || std::is_same_v<T, unsigned char>;
  static constexpr bool kIsInteger = std::is_integral_v<T> && !kIsByte;
  static_assert(kIsByte || std::is_same_v<T, float> || std::is_same_v<T, double> ||
                    (kIsInteger && (sizeof(T) == 4 || sizeof(T) == 8)),
                "a message value is bool, char, unsigned char, a 32- or 64-bit integer, "
                "float or double");
  static constexpr unsigned kWidth = kIsByte ? 1 : static_cast<unsigned>(sizeof(T));

 public:
  CMsgValue() : encoded{}, storedValue{} {}
  explicit CMsgValue(T value) : encoded{}, storedValue(value) {}

  // Bytes of the item: 6, 9 or 13.
  unsigned size() const { return static_cast<unsigned>(kItemHeadSize) + kWidth; }

  // Forms the item in `encoded` and copies it to `destination` unless that is null.
  // REQUIRES: destination, when not null, has room for size() bytes.
  unsigned char* encode(unsigned char* destination) {
    encoded[0] = kWidth == 1 ? kTagByte : kWidth == 4 ? kTagWord32 : kTagWord64;
    storeBigEndian32(&encoded[1], kWidth);
    unsigned char* payload = &encoded[kItemHeadSize];
    if constexpr (kWidth == 1) {
      payload[0] = static_cast<unsigned char>(storedValue);
    } else if constexpr (std::is_same_v<T, float>) {
      storeBigEndian32(payload, floatBits(storedValue));
    } else if constexpr (std::is_same_v<T, double>) {
      storeBigEndian64(payload, doubleBits(storedValue));
    } else if constexpr (kWidth == 4) {
      storeBigEndian32(payload, static_cast<uint32_t>(storedValue));
    } else {
      storeBigEndian64(payload, static_cast<uint64_t>(storedValue));
    }
    if (destination != nullptr) std::memcpy(destination, encoded.data(), size());
    return destination;
  }

  // Takes the value out of the item of `itemLength` bytes at `bytes`. Throws
  // "Error in Protocol" when itemLength is not L + 5, and "Error in Protocol !" for a tag
  // other than "1" to "4" or an L other than the tag's width; in the last case the value
  // has been stored already (kept: it is how the format reads).
  // REQUIRES: itemLength bytes are readable at `bytes`.
  void decode(const unsigned char* bytes, std::size_t itemLength) {
    // Only the head and at most 8 payload bytes matter; what the item lacks of them reads
    // as 0, so a short item never makes us read past its end.
    encoded.fill(0);
    if (itemLength != 0) std::memcpy(encoded.data(), bytes, std::min(itemLength, encoded.size()));
    const uint64_t length = loadBigEndian32(&encoded[1]);
    if (length + kItemHeadSize != itemLength) throw std::string(kErrorInProtocol);
    const unsigned char tag = encoded[0];
    const unsigned width = tag <= kTagWord64 ? msgTagWidth(tag) : 0;
    if (width == 0) throw std::string(kErrorInProtocolTag);
    storedValue = convert(tag, &encoded[kItemHeadSize]);
    if (length != width) throw std::string(kErrorInProtocolTag);
  }

  T value() const { return storedValue; }

 private:
  // The payload of a tag "1" to "4" as the type T asks for it:
  //   bool:        tags 1, 2: not 0; tags 3, 4: the lowest byte is not 0 (kept: a tag "3"
  //                value of 256 reads as false)
  //   char types:  the lowest byte
  //   integers:    tag 1 sign-extended, tag 2 zero-extended, tag 3 the 32 bits (zero-extended
  //                into a 64-bit type), tag 4 the 64 bits (the low word for a 32-bit type)
  //   float:       tags 1, 2 converted numerically like an integer; tags 3, 4 the (low) 32
  //                bits taken as a float
  //   double:      tags 1, 2 converted numerically; tag 3 the 32 bits as the low half of the
  //                bits (high half 0), tag 4 the 64 bits taken as a double
  // The widths are not converted into each other: a float read as double is not the number.
  static T convert(unsigned char tag, const unsigned char* payload) {
    uint64_t raw = 0;
    switch (tag) {
      case kTagByte:
        raw = payload[0];
        break;
      case kTagWord16:
        raw = loadBigEndian16(payload);
        break;
      case kTagWord32:
        raw = loadBigEndian32(payload);
        break;
      default:
        raw = loadBigEndian64(payload);
        break;
    }
    if constexpr (std::is_same_v<T, bool>) {
      return tag <= kTagWord16 ? raw != 0 : (raw & 0xFF) != 0;
    } else if constexpr (kIsByte) {
      return static_cast<T>(raw & 0xFF);
    } else {
      if (tag == kTagByte) return static_cast<T>(static_cast<int8_t>(raw));
      if (tag == kTagWord16) return static_cast<T>(raw);
      const uint64_t bits = tag == kTagWord32 ? (raw & 0xFFFFFFFFu) : raw;
      if constexpr (std::is_same_v<T, float>) {
        return floatFromBits(static_cast<uint32_t>(bits));
      } else if constexpr (std::is_same_v<T, double>) {
        return doubleFromBits(bits);
      } else {
        return static_cast<T>(bits);
      }
    }
  }

  // The item head and payload of the last encode or decode.
  std::array<unsigned char, kItemHeadSize + 8> encoded;
  T storedValue;
};

#endif  // ORVANE_MESSAGE_CMSGVALUE_H_
