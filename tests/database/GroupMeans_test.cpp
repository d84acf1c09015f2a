#include "database/GroupMeans.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/ThrownText.h"

namespace {

// The layout of the rows is checked bit for bit through the group vectors; here, the bound.
TEST(GroupMeansTest, TooFewRowsFailBeforeWriting) {
  const struct {
    MakeMeansFunction makeMeans;
    uint32_t tiles, spaceRows;
    bool fits;
  } cases[] = {
      {MakeMeans3, 3, 6, false},
      {MakeMeans3, 3, 7, true},
      // The threefold global mean, quadrants and centre need 8 rows besides x and y means.
      {MakeMeans16, 4, 13, false},
      {MakeMeans16, 4, 15, false},
      {MakeMeans16, 4, 16, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.tiles << " tiles, " << c.spaceRows << " rows");
    const std::vector<float> tiles(c.tiles * c.tiles * 2, 1.0f);
    std::vector<float> out(c.spaceRows * 2, -1.0f);
    EXPECT_EQ(thrownText(
                  [&] { c.makeMeans(tiles.data(), c.tiles, c.tiles, 2, out.data(), c.spaceRows); }),
              c.fits ? "" : "MakeMeans not enough space");
    if (!c.fits) {
      EXPECT_EQ(out, std::vector<float>(c.spaceRows * 2, -1.0f));
    }
  }
}

}  // namespace
