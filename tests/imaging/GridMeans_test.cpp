#include "imaging/GridMeans.h"

#include <gtest/gtest.h>

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

}  // namespace
