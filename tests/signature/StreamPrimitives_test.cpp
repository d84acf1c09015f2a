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
    std::string stored(6, '\xEE');  // the byte behind the varint stays as it was
    const unsigned size = storeVarint(reinterpret_cast<unsigned char*>(&stored[0]), value);
    EXPECT_EQ(stored.substr(0, size + 1), bytes + '\xEE') << value;
    std::istringstream in(bytes);
    EXPECT_EQ(getVarint(in), value) << hex;
    const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
    uint32_t fetched = 0;
    EXPECT_TRUE(fetchVarint(p, p + bytes.size(), fetched) && fetched == value) << hex;
  }
  // The end of the stream fails a read.
  std::istringstream cut(hexString("82"));
  getVarint(cut);
  EXPECT_TRUE(cut.fail());
}

}  // namespace
