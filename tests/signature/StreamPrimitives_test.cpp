#include "signature/StreamPrimitives.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/support/HexBytes.h"

namespace {

TEST(Varint, EncodesWithFewestBytesAndDecodesBack) {
  const uint32_t values[] = {0, 127, 128, 300, 16383, 16384, 0x10000000, 0xFFFFFFFF};
  const char* hexes[] = {"00", "7F", "8100", "822C", "FF7F", "818000", "8180808000", "8FFFFFFF7F"};
  for (int i = 0; i < 8; ++i) {
    const uint32_t value = values[i];
    SCOPED_TRACE(value);
    const std::string bytes = hexString(hexes[i]);
    std::ostringstream out;
    EXPECT_EQ(putVarint(out, value), bytes.size());
    EXPECT_EQ(out.str(), bytes);
    std::istringstream in(bytes);
    EXPECT_EQ(getVarint(in), value);
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    uint32_t fetched = 0;
    EXPECT_TRUE(fetchVarint(p, p + bytes.size(), fetched));
    EXPECT_EQ(fetched, value);
  }
  // Readers take any number of groups, summing in 32 bits; a limit or the end cuts them.
  const std::string overlong = hexString("81 80 80 80 80 05");
  std::istringstream in(overlong);
  EXPECT_EQ(getVarint(in), 5u);
  const auto* p = reinterpret_cast<const unsigned char*>(overlong.data());
  uint32_t value = 0;
  EXPECT_FALSE(fetchVarint(p, p + 3, value));
  std::istringstream cut(hexString("82"));
  getVarint(cut);
  EXPECT_TRUE(cut.fail());
}

TEST(ReadBounded, HoldsWhatTheStreamDeliveredAndNoMore) {
  std::istringstream in(std::string(70000, 'x') + "tail");
  std::vector<unsigned char> bytes;
  ASSERT_TRUE(readBounded(in, 70000, bytes));
  EXPECT_EQ(bytes.size(), 70000u);
  // 4 GB announced, 4 bytes there.
  EXPECT_FALSE(readBounded(in, 0xFFFFFFFFu, bytes));
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "tail");
}

}  // namespace
