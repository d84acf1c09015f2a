#include "signature/StreamPrimitives.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tests/support/HexBytes.h"

namespace {

TEST(Varint, EncodesWithFewestBytesAndDecodesBack) {
  const std::pair<uint32_t, const char*> cases[] = {
      {0, "00"},       {127, "7F"},         {128, "8100"},         {16383, "FF7F"},
      {16384, "818000"}, {0x10000000, "8180808000"}, {0xFFFFFFFF, "8FFFFFFF7F"}};
  for (const auto& [value, hex] : cases) {
    const std::string bytes = hexString(hex);
    std::ostringstream out;
    EXPECT_EQ(putVarint(out, value), bytes.size()) << hex;
    EXPECT_EQ(out.str(), bytes) << value;
    std::istringstream in(bytes);
    EXPECT_EQ(getVarint(in), value) << hex;
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    uint32_t fetched = 0;
    EXPECT_TRUE(fetchVarint(p, p + bytes.size(), fetched) && fetched == value) << hex;
  }
  // Readers take any number of groups, summing in 32 bits; the end of the stream fails them.
  std::istringstream overlong(hexString("81 80 80 80 80 05")), cut(hexString("82"));
  EXPECT_EQ(getVarint(overlong), 5u);
  getVarint(cut);
  EXPECT_TRUE(cut.fail());
}

}  // namespace
