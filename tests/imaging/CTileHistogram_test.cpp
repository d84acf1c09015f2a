#include "imaging/CTileHistogram.h"

#include <gtest/gtest.h>

#include <vector>

#include "imaging/CImageBuffer.h"
#include "imaging/ImagingOperations.h"

namespace {

class TileHistogram : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(selectProcessor(), 0);
    hsv.create(256, 256, 3, 8, 0, 2);
  }

  void fill(int roiWidth, int roiHeight, unsigned char h, unsigned char s, unsigned char v) {
    for (int i = 0; i < 256 * 256; ++i) {
      hsv.data[i * 3] = h;
      hsv.data[i * 3 + 1] = s;
      hsv.data[i * 3 + 2] = v;
    }
    hsv.roiWidth = roiWidth;
    hsv.roiHeight = roiHeight;
  }

  CImageBuffer hsv;
  CTileHistogram value{256, 256, 3, 3, 4};
};

// 256x192 gives tiles of 85x64: column 255 belongs to no tile. Tiles go row by row.
TEST_F(TileHistogram, TilesOfTheRegionRowByRow) {
  fill(256, 192, 0, 0, 0);
  for (int y = 0; y < 192; ++y) {
    hsv.data[y * 768 + 255 * 3 + 2] = 200;  // the left-out column
    for (int x = 85; x < 170; ++x) {
      if (y >= 128) hsv.data[y * 768 + x * 3 + 2] = 70;  // bottom-middle tile
    }
  }
  // A quarter of the top-left tile: 85 x 16 pixels.
  for (int y = 0; y < 16; ++y) {
    for (int x = 0; x < 85; ++x) hsv.data[y * 768 + x * 3 + 2] = 130;
  }
  float out[36];
  ASSERT_EQ(value.compute(hsv, out, 2), 0);
  EXPECT_EQ(std::vector<float>(out, out + 4), (std::vector<float>{0.75f, 0, 0.25f, 0}));
  EXPECT_EQ(std::vector<float>(out + 28, out + 32), (std::vector<float>{0, 1, 0, 0}));
  for (int tile : {1, 2, 3, 4, 5, 6, 8}) {
    EXPECT_EQ(std::vector<float>(out + tile * 4, out + tile * 4 + 4),
              (std::vector<float>{1, 0, 0, 0}))
        << tile;
  }
}

TEST_F(TileHistogram, RegionNarrowerThanTheGridFails) {
  fill(2, 256, 0, 0, 0);
  float out[36];
  EXPECT_EQ(value.compute(hsv, out, 2), -1);
  fill(3, 3, 0, 0, 0);
  EXPECT_EQ(value.compute(hsv, out, 2), 0);
  EXPECT_EQ(out[32], 1.0f);
}

}  // namespace
