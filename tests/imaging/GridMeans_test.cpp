#include "imaging/GridMeans.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

// 1e8f + 1 rounds back to 1e8f, so the result shows both the order of addition and that
// every partial sum is stored as a float.
TEST(GridMeans, OrderOfAdditionAndFloatRoundingArePartOfTheResult) {
  // 2x2 grid, y outer, x inner: ((1e8 + 1) - 1e8) + 1 = 1, then / 4.
  const float grid[] = {1e8f, 1.0f, -1e8f, 1.0f};
  float out[4];
  ASSERT_EQ(gridGlobalMean(grid, 2, 2, 1, out, 1), 1);
  EXPECT_EQ(out[0], 0.25f);
  // The same pattern in the top-left quadrant and in the centre of a 4x4 grid; both are
  // added x outer, y inner: ((1e8 - 1e8) + 1) + 1 = 2, then / 4.
  for (int corner : {0, 5}) {
    float big[16] = {};
    big[corner] = 1e8f;
    big[corner + 1] = big[corner + 5] = 1.0f;
    big[corner + 4] = -1e8f;
    ASSERT_EQ((corner == 0 ? gridQuadrantMeans : gridCentreMean)(big, 4, 4, 1, out, 1),
              corner == 0 ? 4 : 1);
    EXPECT_EQ(out[0], 0.5f) << corner;
  }
}

TEST(GridMeans, ColumnsRowsQuadrantsAndCentrePickTheirTiles) {
  // 3x3 grid, one bin, tile (x, y) = 10^y * (x + 1): columns and rows are easy to tell apart.
  const float grid[] = {1, 2, 3, 10, 20, 30, 100, 200, 300};
  std::vector<float> out(4, -1.0f);
  ASSERT_EQ(gridColumnMeans(grid, 3, 3, 1, out.data(), 1), 3);
  EXPECT_EQ(out, (std::vector<float>{111.0f / 3, 222.0f / 3, 333.0f / 3, -1.0f}));
  ASSERT_EQ(gridRowMeans(grid, 3, 3, 1, out.data(), 1), 3);
  EXPECT_EQ(out, (std::vector<float>{6.0f / 3, 60.0f / 3, 600.0f / 3, -1.0f}));
  // Split at 1: the middle column and row go right and bottom; counts 1, 2, 2, 4.
  ASSERT_EQ(gridQuadrantMeans(grid, 3, 3, 1, out.data(), 1), 4);
  EXPECT_EQ(out, (std::vector<float>{1.0f, 2.5f, 55.0f, 137.5f}));
  // Below 4 tiles across, the middle part is empty and the scale infinite.
  ASSERT_EQ(gridCentreMean(grid, 3, 3, 1, out.data(), 1), 1);
  EXPECT_TRUE(std::isnan(out[0]));
}

}  // namespace
