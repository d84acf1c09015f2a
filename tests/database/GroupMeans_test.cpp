#include "database/GroupMeans.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "database/DatabaseErrors.h"

namespace {

// Tile (x, y) holds x + tilesX * y + b in bin b, so every mean is a small exact number.
std::vector<float> rampTiles(uint32_t tilesX, uint32_t tilesY, uint32_t bins) {
  std::vector<float> tiles;
  for (uint32_t y = 0; y < tilesY; ++y) {
    for (uint32_t x = 0; x < tilesX; ++x) {
      for (uint32_t b = 0; b < bins; ++b) tiles.push_back(static_cast<float>(x + tilesX * y + b));
    }
  }
  return tiles;
}

// The layout of the rows is checked bit for bit through the group vectors; here, the bound.
TEST(GroupMeansTest, TooFewRowsFailBeforeWriting) {
  struct SCase {
    MakeMeansFunction makeMeans;
    uint32_t tiles;
    uint32_t spaceRows;
    bool fits;
  };
  const SCase cases[] = {
      {MakeMeans3, 3, 6, false}, {MakeMeans3, 3, 7, true},
      // The threefold global mean, quadrants and centre need 8 rows besides x and y means.
      {MakeMeans16, 4, 13, false}, {MakeMeans16, 4, 15, false}, {MakeMeans16, 4, 16, true},
  };
  for (const SCase& c : cases) {
    SCOPED_TRACE(testing::Message() << c.tiles << " tiles, " << c.spaceRows << " rows");
    const std::vector<float> tiles = rampTiles(c.tiles, c.tiles, 2);
    std::vector<float> out(c.spaceRows * 2, -1.0f);
    if (c.fits) {
      EXPECT_NO_THROW(c.makeMeans(tiles.data(), c.tiles, c.tiles, 2, out.data(), c.spaceRows));
    } else {
      try {
        c.makeMeans(tiles.data(), c.tiles, c.tiles, 2, out.data(), c.spaceRows);
        ADD_FAILURE() << "no failure";
      } catch (const std::string& e) {
        EXPECT_EQ(e, "MakeMeans not enough space");
      }
      EXPECT_EQ(out, std::vector<float>(c.spaceRows * 2, -1.0f));
    }
  }
}

}  // namespace
