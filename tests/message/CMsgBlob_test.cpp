#include "message/CMsgBlob.h"

#include <gtest/gtest.h>

#include "tests/support/HexBytes.h"
#include "tests/support/ThrownText.h"

namespace {

// Each item gives its bytes (the lowest byte of each element) or the thrown text.
TEST(CMsgBlobTest, DecodesEveryByteStringTag) {
  const struct {
    const char* item;
    std::string bytes;
  } cases[] = {
      {"35 00 00 00 02 61 62", "ab"},
      {"36 00 00 00 02 01 61 02 62", "ab"},
      {"37 00 00 00 02 01 02 03 61 04 05 06 62", "ab"},
      {"38 00 00 00 01 01 02 03 04 05 06 07 61", "a"},
      // As a message delimits it, an element item spans only L + 5 bytes: elements past
      // that span read as 0.
      {"36 00 00 00 02 00 61", std::string("a\0", 2)},
      {"36 00 00 00 03 00 61 00", std::string("a\0\0", 3)},  // element 1 would end at byte 8
      {"35 00 00", "Error in Protocol"},
      {"35 00 00 00 03 61 62", "Error in Protocol"},
      {"33 00 00 00 04 00 00 00 05", "Error in Protocol !"},
  };
  for (const auto& c : cases) {
    const Bytes item = hexBytes(c.item);
    CMsgBlob blob;
    const std::string thrown = thrownText([&] { blob.decode(item.data(), item.size()); });
    const std::string bytes(reinterpret_cast<const char*>(blob.data()), blob.length());
    EXPECT_EQ(thrown.empty() ? bytes : thrown, c.bytes) << c.item;
  }
}

}  // namespace
