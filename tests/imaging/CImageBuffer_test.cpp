#include "imaging/CImageBuffer.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(CImageBuffer, CreateRoundsLineStepsAndClearsTheBuffer) {
  // height, width, channels, depth, planar; then the line step and the size in bytes.
  const int cases[][7] = {{256, 256, 3, 8, 0, 768, 196608},
                          {70, 70, 1, 8, 0, 72, 5040},
                          {3, 5, 3, 8, 0, 16, 48},
                          {3, 5, 3, 8, 1, 8, 72},  // planar: one plane after the other
                          {2, 5, 3, 16 | CImageBuffer::kDoubleSampleBit, 0, 60, 120}};
  for (const auto& c : cases) {
    CImageBuffer image;
    image.create(c[0], c[1], c[2], c[3], static_cast<unsigned char>(c[4]), 2);
    EXPECT_EQ((std::vector<int>{image.lineStep, image.byteSize, image.roiWidth, image.roiHeight}),
              (std::vector<int>{c[5], c[6], c[1], c[0]}));
    ASSERT_NE(image.data, nullptr);
    EXPECT_EQ(std::vector<unsigned char>(image.data, image.data + image.byteSize),
              std::vector<unsigned char>(image.byteSize, 0));
  }
}

TEST(CImageBuffer, UnrepresentableSizeIsOutOfMemory) {
  CImageBuffer image;
  const char* failure = "";
  try {
    image.create(100000, 100000, 3, 8, 0, 2);
  } catch (const char* text) {
    failure = text;
  }
  EXPECT_STREQ(failure, "Out of Memory");
}

}  // namespace
