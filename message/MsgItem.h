// The shape of one item of a typed message: a one-byte ASCII tag, a big-endian u32 L and the
// payload. Tags "1" to "4" hold one number of 1, 2, 4 or 8 bytes (L is that width); tags
// "5" to "8" hold L elements of 1, 2, 4 or 8 bytes. A message ends at the byte "X".
#ifndef ORVANE_MESSAGE_MSGITEM_H_
#define ORVANE_MESSAGE_MSGITEM_H_

#include <cstddef>

// Tag and L in front of every payload.
inline constexpr std::size_t kItemHeadSize = 5;
inline constexpr unsigned char kEndMark = 'X';

inline constexpr unsigned char kTagByte = '1';
inline constexpr unsigned char kTagWord16 = '2';
inline constexpr unsigned char kTagWord32 = '3';
inline constexpr unsigned char kTagWord64 = '4';
inline constexpr unsigned char kTagBytes = '5';
inline constexpr unsigned char kTagWords16 = '6';
inline constexpr unsigned char kTagWords32 = '7';
inline constexpr unsigned char kTagWords64 = '8';

// A float's item: tag "3", L = 4, then its bits.
inline constexpr unsigned char kFloatItemHead[kItemHeadSize] = {kTagWord32, 0, 0, 0, 4};
inline constexpr std::size_t kFloatItemSize = kItemHeadSize + 4;

// Bytes per number (tags "1" to "4") or per element (tags "5" to "8"); 0 for any other byte.
inline constexpr unsigned msgTagWidth(unsigned char tag) {
  switch (tag) {
    case kTagByte:
    case kTagBytes:
      return 1;
    case kTagWord16:
    case kTagWords16:
      return 2;
    case kTagWord32:
    case kTagWords32:
      return 4;
    case kTagWord64:
    case kTagWords64:
      return 8;
    default:
      return 0;
  }
}

#endif  // ORVANE_MESSAGE_MSGITEM_H_
