#include "imaging/GridMeans.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using GridFn = int (*)(const float*, int, int, int, float*, int);

struct GridCase {
  const char* name;
  GridFn fn;
  int rows;  // result rows per copy on the grid under test
};

std::vector<float> uniformGrid(int tilesX, int tilesY, const std::vector<float>& tile) {
  std::vector<float> grid;
  for (int i = 0; i < tilesX * tilesY; ++i) grid.insert(grid.end(), tile.begin(), tile.end());
  return grid;
}

TEST(GridMeans, UniformGridGivesTheTileEverywhereAndClearsStaleOutput) {
  const std::vector<float> tile = {0.25f, 3.0f, 0.0f, 7.5f, 1.0f, 0.125f};
  const int bins = static_cast<int>(tile.size());
  const std::vector<float> grid = uniformGrid(4, 4, tile);
  const GridCase cases[] = {{"global", gridGlobalMean, 1},
                            {"columns", gridColumnMeans, 4},
                            {"rows", gridRowMeans, 4},
                            {"quadrants", gridQuadrantMeans, 4},
                            {"centre", gridCentreMean, 1}};
  for (const GridCase& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<float> out(c.rows * bins * 2 + 1, -99.0f);
    ASSERT_EQ(c.fn(grid.data(), 4, 4, bins, out.data(), 2), c.rows * bins * 2);
    for (int i = 0; i < c.rows * bins * 2; ++i) EXPECT_EQ(out[i], tile[i % bins]) << i;
    EXPECT_EQ(out.back(), -99.0f) << "wrote past the returned count";
  }
}

// 1e8f + 1 rounds back to 1e8f, so the result shows both the order of addition and that
// every partial sum is stored as a float.
TEST(GridMeans, OrderOfAdditionAndFloatRoundingArePartOfTheResult) {
  // 2x2 grid, one bin: row 0 = {1e8, 1}, row 1 = {-1e8, 1}.
  const float grid[] = {1e8f, 1.0f, -1e8f, 1.0f};
  float out[4];
  // y outer, x inner: ((1e8 + 1) - 1e8) + 1 = 1, then / 4.
  ASSERT_EQ(gridGlobalMean(grid, 2, 2, 1, out, 1), 1);
  EXPECT_EQ(out[0], 0.25f);

  // The same pattern on a 4x4 grid, in the top-left quadrant and in the centre; both are
  // added x outer, y inner: ((1e8 - 1e8) + 1) + 1 = 2, then / 4.
  for (int corner : {0, 5}) {
    SCOPED_TRACE(corner);
    float big[16] = {};
    big[corner] = 1e8f;
    big[corner + 1] = 1.0f;
    big[corner + 4] = -1e8f;
    big[corner + 5] = 1.0f;
    GridFn fn = corner == 0 ? gridQuadrantMeans : gridCentreMean;
    ASSERT_EQ(fn(big, 4, 4, 1, out, 1), corner == 0 ? 4 : 1);
    EXPECT_EQ(out[0], 0.5f);
  }
}

TEST(GridMeans, ColumnsRowsAndQuadrantsPickTheirTiles) {
  // 3x3 grid, one bin, tile (x, y) = 10^y * (x + 1): columns and rows are easy to tell apart.
  const float grid[] = {1, 2, 3, 10, 20, 30, 100, 200, 300};
  float out[4];
  ASSERT_EQ(gridColumnMeans(grid, 3, 3, 1, out, 1), 3);
  EXPECT_EQ(out[0], static_cast<float>(111.0 / 3));
  EXPECT_EQ(out[1], static_cast<float>(222.0 / 3));
  EXPECT_EQ(out[2], static_cast<float>(333.0 / 3));
  ASSERT_EQ(gridRowMeans(grid, 3, 3, 1, out, 1), 3);
  EXPECT_EQ(out[0], static_cast<float>(6.0 / 3));
  EXPECT_EQ(out[1], static_cast<float>(60.0 / 3));
  EXPECT_EQ(out[2], static_cast<float>(600.0 / 3));
  // Split at 1: the middle column and row go right and bottom; counts 1, 2, 2, 4.
  ASSERT_EQ(gridQuadrantMeans(grid, 3, 3, 1, out, 1), 4);
  EXPECT_EQ(out[0], 1.0f);
  EXPECT_EQ(out[1], 2.5f);
  EXPECT_EQ(out[2], 55.0f);
  EXPECT_EQ(out[3], 137.5f);
}

TEST(GridMeans, CentreOfInnerTilesAndEmptyCentreOnNarrowGrid) {
  float grid[16 * 2] = {};
  for (int t : {5, 6, 9, 10}) grid[t * 2] = grid[t * 2 + 1] = 1.0f;
  float out[6];
  ASSERT_EQ(gridCentreMean(grid, 4, 4, 2, out, 3), 6);
  for (float v : out) EXPECT_EQ(v, 1.0f);

  // Below 4 tiles across, the middle part is empty and the scale infinite.
  const float small[9] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
  ASSERT_EQ(gridCentreMean(small, 3, 3, 1, out, 1), 1);
  EXPECT_TRUE(std::isnan(out[0]));
}

}  // namespace
