#include "message/CMsgValue.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/HexBytes.h"
#include "tests/support/ThrownText.h"

namespace {

// Decodes the item into *stored; gives the std::string thrown, or "".
template <typename T>
std::string decodeHex(const std::string& hex, T* stored) {
  const Bytes item = hexBytes(hex);
  CMsgValue<T> value;
  const std::string thrown = thrownText([&] { value.decode(item.data(), item.size()); });
  *stored = value.value();
  return thrown;
}

template <typename T>
T decoded(const std::string& hex) {
  T value{};
  EXPECT_EQ(decodeHex(hex, &value), "");
  return value;
}

// In hex: what bool, unsigned char, char, int, unsigned, int64_t and uint64_t read from the
// item, then the bits that float and double read.
std::string readings(const std::string& hex) {
  std::ostringstream out;
  out << std::hex << decoded<bool>(hex) << ' ' << +decoded<unsigned char>(hex) << ' '
      << +decoded<char>(hex) << ' ' << decoded<int>(hex) << ' ' << decoded<unsigned>(hex) << ' '
      << decoded<int64_t>(hex) << ' ' << decoded<uint64_t>(hex) << ' '
      << floatBits(decoded<float>(hex)) << ' ' << doubleBits(decoded<double>(hex));
  return out.str();
}

TEST(CMsgValueTest, ConvertsEveryTagForEveryReader) {
  // tag 1 is sign-extended and converted to a number for the floats
  EXPECT_EQ(readings("31 00 00 00 01 FF"),
            "1 ff ffffffff ffffffff ffffffff ffffffffffffffff "
            "ffffffffffffffff bf800000 bff0000000000000");
  // tag 2 is zero-extended
  EXPECT_EQ(readings("32 00 00 00 02 FF FE"),
            "1 fe fffffffe fffe fffe fffe fffe 477ffe00 40efffc000000000");
  // tag 3 hands its bits over; bool looks at the lowest byte alone, so 256 is false
  EXPECT_EQ(readings("33 00 00 00 04 00 00 01 00"), "0 0 0 100 100 100 100 100 100");
  EXPECT_EQ(readings("33 00 00 00 04 FF FF FF FF"),
            "1 ff ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff ffffffff");
  // tag 4: the narrow readers take the low word
  EXPECT_EQ(readings("34 00 00 00 08 11 22 33 44 55 66 77 00"),
            "0 0 0 55667700 55667700 1122334455667700 1122334455667700 55667700 1122334455667700");
  EXPECT_EQ(readings("34 00 00 00 08 00 00 00 00 00 00 00 01"), "1 1 1 1 1 1 1 1 1");
}

TEST(CMsgValueTest, RefusesItemsOfWrongSpanTagOrWidth) {
  int stored = 0;
  // L disagrees with the span (also spans too short for the head); tags other than "1" to "4".
  for (const char* hex : {"33 00 00 00 04 00 00 00", "33 00 00 00 04 00 00 00 05 00", "33 00", "",
                          "33 FF FF FF FF 00 00 00 00"}) {
    EXPECT_EQ(decodeHex(hex, &stored), "Error in Protocol") << hex;
  }
  for (const char* hex : {"35 00 00 00 02 61 62", "30 00 00 00 01 01", "58 00 00 00 00"}) {
    EXPECT_EQ(decodeHex(hex, &stored), "Error in Protocol !") << hex;
  }
  // A wrong width fails after the value is stored; a short payload reads as zero past the end.
  EXPECT_EQ(decodeHex("31 00 00 00 02 FF 7F", &stored), "Error in Protocol !");
  EXPECT_EQ(stored, -1);
  int64_t wide = 0;
  EXPECT_EQ(decodeHex("34 00 00 00 01 AB", &wide), "Error in Protocol !");
  EXPECT_EQ(wide, static_cast<int64_t>(0xAB00000000000000u));
}

}  // namespace
