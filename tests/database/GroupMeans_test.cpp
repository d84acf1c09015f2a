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

void expectRows(const std::vector<float>& out, uint32_t bins, const std::vector<float>& rowBase) {
  ASSERT_EQ(out.size(), rowBase.size() * bins);
  for (size_t r = 0; r < rowBase.size(); ++r) {
    for (uint32_t b = 0; b < bins; ++b) {
      EXPECT_EQ(out[r * bins + b], rowBase[r] + static_cast<float>(b)) << "row " << r << " bin " << b;
    }
  }
}

TEST(GroupMeansTest, MakeMeans3WritesGlobalThenColumnsThenRows) {
  const std::vector<float> tiles = rampTiles(3, 3, 4);
  std::vector<float> out(7 * 4, -1.0f);
  EXPECT_EQ(MakeMeans3(tiles.data(), 3, 3, 4, out.data(), 7), 28u);
  // Global 1 + 3; column x: x + 3; row y: 1 + 3y.
  expectRows(out, 4, {4, 3, 4, 5, 1, 4, 7});
}

TEST(GroupMeansTest, MakeMeans16WritesTripleGlobalColumnsRowsQuadrantsCentre) {
  const std::vector<float> tiles = rampTiles(4, 4, 6);
  std::vector<float> out(16 * 6, -1.0f);
  EXPECT_EQ(MakeMeans16(tiles.data(), 4, 4, 6, out.data(), 16), 96u);
  expectRows(out, 6,
             {7.5f, 7.5f, 7.5f,              // global, three times
              6, 7, 8, 9,                    // column x: x + 6
              1.5f, 5.5f, 9.5f, 13.5f,       // row y: 1.5 + 4y
              2.5f, 4.5f, 10.5f, 12.5f,      // quadrants TL, TR, BL, BR
              7.5f});                        // centre: the inner four tiles
}

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
