#include "imaging/CTileHistogram.h"

#include <gtest/gtest.h>

#include <vector>

#include "imaging/CImageBuffer.h"

namespace {

class TileHistogram : public ::testing::Test {
 protected:
  void SetUp() override { hsv.create(256, 256, 3, 8, 0, 2); }
  // Sets the value of the pixel (channel 2 of the HSV buffer).
  void setValue(int x, int y, unsigned char v) { hsv.data[y * 768 + x * 3 + 2] = v; }

  CImageBuffer hsv;
  CTileHistogram value{256, 256, 3, 3, 4};
  float out[36];
};

// A 640x480 photo fills 256x192, giving tiles of 85x64: column 255 belongs to no tile.
TEST_F(TileHistogram, TilesOfTheRegionRowByRow) {
  hsv.roiHeight = 192;
  for (int y = 0; y < 192; ++y) {
    setValue(255, y, 200);                                          // the left-out column
    for (int x = 85; x < 170 && y >= 128; ++x) setValue(x, y, 70);  // bottom-middle tile
    for (int x = 0; x < 85 && y < 16; ++x) setValue(x, y, 130);     // a quarter of the first
  }
  ASSERT_EQ(value.compute(hsv, out, 2), 0);
  for (int tile = 0; tile < 9; ++tile) {
    const std::vector<float> bins = tile == 0   ? std::vector<float>{0.75f, 0, 0.25f, 0}
                                    : tile == 7 ? std::vector<float>{0, 1, 0, 0}
                                                : std::vector<float>{1, 0, 0, 0};
    EXPECT_EQ(std::vector<float>(out + tile * 4, out + tile * 4 + 4), bins) << tile;
  }
}

TEST_F(TileHistogram, RegionNarrowerThanTheGridFails) {
  hsv.roiWidth = 2;
  EXPECT_EQ(value.compute(hsv, out, 2), -1);
  hsv.roiWidth = hsv.roiHeight = 3;
  EXPECT_EQ(value.compute(hsv, out, 2), 0);
  EXPECT_EQ(out[32], 1.0f);
}

}  // namespace
