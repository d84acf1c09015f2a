#include "message/CMsgBlob.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/HexBytes.h"

namespace {

std::string encodedHex(const std::string& text) {
  const CMsgBlob blob(reinterpret_cast<const unsigned char*>(text.data()),
                      static_cast<unsigned>(text.size()));
  std::vector<unsigned char> bytes(blob.size());
  EXPECT_EQ(blob.encode(bytes.data()), bytes.data());
  return hexText(bytes);
}

// The bytes taken out of an item, or the thrown text.
std::string decoded(const std::string& hex) {
  const std::vector<unsigned char> item = hexBytes(hex);
  CMsgBlob blob;
  try {
    blob.decode(item.data(), item.size());
  } catch (const std::string& text) {
    return text;
  }
  return std::string(reinterpret_cast<const char*>(blob.data()), blob.length());
}

TEST(CMsgBlobTest, EncodesTextAsTagFiveWithoutTerminator) {
  EXPECT_EQ(encodedHex("ab"), "35 00 00 00 02 61 62");
  EXPECT_EQ(encodedHex(""), "35 00 00 00 00");
  EXPECT_EQ(CMsgBlob().size(), 5u);
}

TEST(CMsgBlobTest, ElementTagsGiveTheLowestByteOfEachElement) {
  const struct {
    const char* item;
    std::string bytes;
  } cases[] = {
      {"35 00 00 00 02 61 62", "ab"},
      {"35 00 00 00 00", ""},
      {"36 00 00 00 02 01 61 02 62", "ab"},
      {"37 00 00 00 02 01 02 03 61 04 05 06 62", "ab"},
      {"38 00 00 00 01 01 02 03 04 05 06 07 61", "a"},
      // As a message delimits it, an element item spans only L + 5 bytes: elements past
      // that span read as 0.
      {"36 00 00 00 02 00 61", std::string("a\0", 2)},
      // Too short for the head, or for L bytes: the span disagrees with L.
      {"35 00 00", "Error in Protocol"},
      {"35 00 00 00 03 61 62", "Error in Protocol"},
      {"37 FF FF FF FF 00", "Error in Protocol"},
      {"33 00 00 00 04 00 00 00 05", "Error in Protocol !"},
      {"39 00 00 00 00", "Error in Protocol !"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.item);
    EXPECT_EQ(decoded(c.item), c.bytes);
  }
}

}  // namespace
