#include "database/GroupMeans.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "imaging/GridMeans.h"
#include "vexl/ByteOrder.h"
#include "tests/support/ThrownText.h"

namespace {

// The writers hold bins in registers across the tiles; the extractor's grid means add tile
// by tile through memory. Every float must come out the same, on values that round at each
// addition, signed zeros, subnormals, infinities and NaNs, on grids odd and narrow; with a
// row fewer than they need, they refuse before writing.
TEST(GroupMeansTest, SameBitsAsTheExtractorsGridMeans) {
  uint32_t state = 12345;
  const auto awkward = [&state]() {
    state = state * 1664525u + 1013904223u;
    switch (state >> 28) {
      case 0: return -0.0f;
      case 1: return std::numeric_limits<float>::denorm_min() * static_cast<float>(state & 0xff);
      case 2: return (state & 1) != 0 ? std::numeric_limits<float>::infinity() : 3.0e38f;
      case 3: return (state & 0x100) != 0 ? std::numeric_limits<float>::quiet_NaN() : 1.0f;
      default: return floatFromBits((state & 0x807fffffu) | ((100 + (state >> 23) % 50) << 23));
    }
  };
  const uint32_t shapes[][3] = {{1, 1, 1}, {1, 4, 3}, {3, 1, 2}, {2, 3, 5}, {3, 3, 16},
                                {3, 3, 4}, {4, 4, 6}, {5, 7, 7}, {7, 5, 17}, {8, 8, 9}};
  for (const auto& shape : shapes) {
    const uint32_t x = shape[0], y = shape[1], bins = shape[2];
    SCOPED_TRACE(testing::Message() << x << " x " << y << " tiles of " << bins << " bins");
    std::vector<float> tiles(x * y * bins);
    for (float& value : tiles) value = awkward();
    const int xi = static_cast<int>(x), yi = static_cast<int>(y), b = static_cast<int>(bins);
    for (const bool sixteen : {false, true}) {
      const uint32_t rows = x + y + (sixteen ? 8 : 1);
      std::vector<float> expected(rows * bins), got(rows * bins);
      float* out = expected.data();
      out += gridGlobalMean(tiles.data(), xi, yi, b, out, sixteen ? 3 : 1);
      out += gridColumnMeans(tiles.data(), xi, yi, b, out, 1);
      out += gridRowMeans(tiles.data(), xi, yi, b, out, 1);
      if (sixteen) {
        out += gridQuadrantMeans(tiles.data(), xi, yi, b, out, 1);
        gridCentreMean(tiles.data(), xi, yi, b, out, 1);
      }
      const MakeMeansFunction makeMeans = sixteen ? MakeMeans16 : MakeMeans3;
      EXPECT_EQ(thrownText([&] { makeMeans(tiles.data(), x, y, bins, got.data(), rows - 1); }),
                "MakeMeans not enough space");
      EXPECT_EQ(got, std::vector<float>(rows * bins));
      EXPECT_EQ(makeMeans(tiles.data(), x, y, bins, got.data(), rows), rows * bins);
      EXPECT_EQ(std::memcmp(expected.data(), got.data(), got.size() * sizeof(float)), 0)
          << (sixteen ? "MakeMeans16" : "MakeMeans3");
    }
  }
}

}  // namespace
