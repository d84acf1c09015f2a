#include "message/CMsgValue.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/HexBytes.h"

namespace {

template <typename T>
std::string encodedHex(T value) {
  CMsgValue<T> item(value);
  std::vector<unsigned char> bytes(item.size());
  EXPECT_EQ(item.encode(bytes.data()), bytes.data());
  return hexText(bytes);
}

template <typename T>
T decodeHex(const std::string& hex) {
  const std::vector<unsigned char> item = hexBytes(hex);
  CMsgValue<T> value;
  value.decode(item.data(), item.size());
  return value.value();
}

// The text of the std::string that decoding throws, or "" when it does not throw.
template <typename T>
std::string decodeFailure(const std::string& hex, T* stored = nullptr) {
  const std::vector<unsigned char> item = hexBytes(hex);
  CMsgValue<T> value;
  try {
    value.decode(item.data(), item.size());
  } catch (const std::string& text) {
    if (stored != nullptr) *stored = value.value();
    return text;
  }
  return "";
}

TEST(CMsgValueTest, EncodesEachWidthAsItsItem) {
  EXPECT_EQ(encodedHex(5), "33 00 00 00 04 00 00 00 05");
  EXPECT_EQ(encodedHex(1.0f), "33 00 00 00 04 3F 80 00 00");
  EXPECT_EQ(encodedHex(true), "31 00 00 00 01 01");
  EXPECT_EQ(encodedHex(1.0), "34 00 00 00 08 3F F0 00 00 00 00 00 00");
  EXPECT_EQ(encodedHex('a'), "31 00 00 00 01 61");
  EXPECT_EQ(encodedHex(int64_t{-2}), "34 00 00 00 08 FF FF FF FF FF FF FF FE");
  EXPECT_EQ(CMsgValue<int>(7).encode(nullptr), nullptr);
}

// One row per item: the value each reader type takes out of it.
TEST(CMsgValueTest, ConvertsEveryTagForEveryReader) {
  struct Row {
    const char* item;
    bool asBool;
    unsigned char asByte;
    int asInt;
    unsigned asUnsigned;
    int64_t asInt64;
    uint64_t asUint64;
    uint32_t floatBitsRead;
    uint64_t doubleBitsRead;
  };
  const Row rows[] = {
      // tag 1: sign-extended for the numbers, converted numerically for the floats
      {"31 00 00 00 01 FF", true, 0xFF, -1, 0xFFFFFFFFu, -1, ~uint64_t{0}, floatBits(-1.0f),
       doubleBits(-1.0)},
      {"31 00 00 00 01 02", true, 0x02, 2, 2, 2, 2, floatBits(2.0f), doubleBits(2.0)},
      // tag 2: zero-extended
      {"32 00 00 00 02 FF FE", true, 0xFE, 0xFFFE, 0xFFFE, 0xFFFE, 0xFFFE, floatBits(65534.0f),
       doubleBits(65534.0)},
      {"32 00 00 00 02 01 00", true, 0x00, 256, 256, 256, 256, floatBits(256.0f),
       doubleBits(256.0)},
      // tag 3: bits taken over; bool looks at the lowest byte alone, so 256 is false
      {"33 00 00 00 04 00 00 01 00", false, 0x00, 256, 256, 256, 256, 0x100, 0x100},
      {"33 00 00 00 04 FF FF FF FF", true, 0xFF, -1, 0xFFFFFFFFu, 0xFFFFFFFF, 0xFFFFFFFF,
       0xFFFFFFFFu, 0xFFFFFFFF},
      {"33 00 00 00 04 3F 80 00 00", false, 0x00, 0x3F800000, 0x3F800000, 0x3F800000, 0x3F800000,
       floatBits(1.0f), 0x3F800000},
      // tag 4: the narrow readers take the low word
      {"34 00 00 00 08 11 22 33 44 55 66 77 00", false, 0x00, 0x55667700, 0x55667700,
       0x1122334455667700, 0x1122334455667700, 0x55667700, 0x1122334455667700},
      {"34 00 00 00 08 00 00 00 00 00 00 00 01", true, 0x01, 1, 1, 1, 1, 1, 1},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.item);
    EXPECT_EQ(decodeHex<bool>(row.item), row.asBool);
    EXPECT_EQ(decodeHex<unsigned char>(row.item), row.asByte);
    EXPECT_EQ(decodeHex<char>(row.item), static_cast<char>(row.asByte));
    EXPECT_EQ(decodeHex<int>(row.item), row.asInt);
    EXPECT_EQ(decodeHex<unsigned>(row.item), row.asUnsigned);
    EXPECT_EQ(decodeHex<int64_t>(row.item), row.asInt64);
    EXPECT_EQ(decodeHex<uint64_t>(row.item), row.asUint64);
    EXPECT_EQ(floatBits(decodeHex<float>(row.item)), row.floatBitsRead);
    EXPECT_EQ(doubleBits(decodeHex<double>(row.item)), row.doubleBitsRead);
  }
}

TEST(CMsgValueTest, RefusesItemsOfWrongSpanTagOrWidth) {
  // L disagrees with the item's span, including spans too short for the head.
  EXPECT_EQ(decodeFailure<int>("33 00 00 00 04 00 00 00"), "Error in Protocol");
  EXPECT_EQ(decodeFailure<int>("33 00 00 00 04 00 00 00 05 00"), "Error in Protocol");
  EXPECT_EQ(decodeFailure<int>("33 00"), "Error in Protocol");
  EXPECT_EQ(decodeFailure<int>(""), "Error in Protocol");
  EXPECT_EQ(decodeFailure<int>("33 FF FF FF FF 00 00 00 00"), "Error in Protocol");
  // Tags other than "1" to "4".
  EXPECT_EQ(decodeFailure<int>("35 00 00 00 02 61 62"), "Error in Protocol !");
  EXPECT_EQ(decodeFailure<int>("30 00 00 00 01 01"), "Error in Protocol !");
  EXPECT_EQ(decodeFailure<double>("58 00 00 00 00"), "Error in Protocol !");
  // A wrong width fails after the value is stored.
  int stored = 0;
  EXPECT_EQ(decodeFailure<int>("31 00 00 00 02 FF 7F", &stored), "Error in Protocol !");
  EXPECT_EQ(stored, -1);
  // A payload shorter than the tag's width reads as zero beyond the item's end.
  int64_t wide = 0;
  EXPECT_EQ(decodeFailure<int64_t>("34 00 00 00 01 AB", &wide), "Error in Protocol !");
  EXPECT_EQ(wide, static_cast<int64_t>(0xAB00000000000000u));
}

}  // namespace
