#include "signature/StreamPrimitives.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/signature/HexBytes.h"

namespace {

struct VarintCase {
  uint32_t value;
  const char* hex;
};

TEST(Varint, EncodesWithFewestBytesAndDecodesBack) {
  const VarintCase cases[] = {
      {0, "00"},         {127, "7F"},       {128, "8100"},         {300, "822C"},
      {16383, "FF7F"},   {16384, "818000"}, {0x0FFFFFFF, "FFFFFF7F"}, {0x10000000, "8180808000"},
      {0xFFFFFFFF, "8FFFFFFF7F"},
  };
  for (const VarintCase& c : cases) {
    SCOPED_TRACE(c.value);
    const std::string expected = fromHex(c.hex);
    EXPECT_EQ(varintSize(c.value), expected.size());

    unsigned char buffer[5];
    ASSERT_EQ(storeVarint(buffer, c.value), expected.size());
    EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), expected.size()), expected);

    std::ostringstream out;
    EXPECT_EQ(putVarint(out, c.value), expected.size());
    EXPECT_EQ(out.str(), expected);

    std::istringstream in(expected + "Z");
    EXPECT_EQ(getVarint(in), c.value);
    EXPECT_EQ(in.get(), 'Z');

    const unsigned char* p = buffer;
    uint32_t value = 0;
    EXPECT_TRUE(fetchVarint(p, buffer + expected.size(), value));
    EXPECT_EQ(value, c.value);
    EXPECT_EQ(p, buffer + expected.size());
  }
}

TEST(Varint, ReadersTakeAnyLengthAndStopAtTheirLimit) {
  // Six continuation groups: the sum runs on in 32 bits, the top groups falling off.
  const std::string overlong = fromHex("81 80 80 80 80 05");
  std::istringstream in(overlong);
  EXPECT_EQ(getVarint(in), 5u);
  EXPECT_FALSE(in.fail());

  const auto* bytes = reinterpret_cast<const unsigned char*>(overlong.data());
  const unsigned char* p = bytes;
  uint32_t value = 0;
  EXPECT_TRUE(fetchVarint(p, nullptr, value));
  EXPECT_EQ(value, 5u);

  // Cut by the limit: false, and p stops at the limit.
  p = bytes;
  EXPECT_FALSE(fetchVarint(p, bytes + 3, value));
  EXPECT_EQ(p, bytes + 3);

  // Cut by the stream's end: the failbit tells.
  std::istringstream cut(fromHex("82"));
  EXPECT_EQ(getVarint(cut), 2u);
  EXPECT_TRUE(cut.fail());
}

TEST(ReadBounded, DeliversWhatTheStreamHoldsAndNoMore) {
  std::istringstream in(std::string(70000, 'x') + "tail");
  std::vector<unsigned char> bytes;
  ASSERT_TRUE(readBounded(in, 70000, bytes));
  EXPECT_EQ(bytes.size(), 70000u);

  // A count of 4 GB on a 4-byte rest: false, and only the 4 bytes are held.
  EXPECT_FALSE(readBounded(in, 0xFFFFFFFFu, bytes));
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "tail");

  std::istringstream empty;
  EXPECT_TRUE(readBounded(empty, 0, bytes));
  EXPECT_TRUE(bytes.empty());
}

}  // namespace
