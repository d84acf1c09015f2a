#include "imaging/CImageBuffer.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(CImageBuffer, CreateRoundsLineStepsAndClearsTheBuffer) {
  const struct {
    int height, width, channels, depth;
    unsigned char planar;
    int lineStep, byteSize;
  } cases[] = {
      {256, 256, 3, 8, 0, 768, 196608},
      {256, 256, 1, 8, 0, 256, 65536},
      {70, 70, 1, 8, 0, 72, 5040},
      {3, 5, 3, 8, 0, 16, 48},
      {3, 5, 3, 8, 1, 8, 72},  // planar: one plane after the other
      {2, 5, 3, 16 | CImageBuffer::kDoubleSampleBit, 0, 60, 120},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::Message() << c.width << "x" << c.height << "x" << c.channels);
    CImageBuffer image;
    image.create(c.height, c.width, c.channels, c.depth, c.planar, 2);
    EXPECT_EQ(image.lineStep, c.lineStep);
    EXPECT_EQ(image.byteSize, c.byteSize);
    EXPECT_EQ(image.roiWidth, c.width);
    EXPECT_EQ(image.roiHeight, c.height);
    ASSERT_NE(image.data, nullptr);
    EXPECT_EQ(std::vector<unsigned char>(image.data, image.data + image.byteSize),
              std::vector<unsigned char>(image.byteSize, 0));
  }
}

TEST(CImageBuffer, BorrowedMemorySurvivesReleaseAndRecreation) {
  std::vector<unsigned char> owner(40, 7);
  CImageBuffer image;
  image.attach(4, 3, 3, 8, 0, 10, owner.data(), 2, 3, -1, -1, -1, -1, 2);
  EXPECT_EQ(image.lineStep, 10);  // taken as given
  EXPECT_EQ(image.byteSize, 40);
  EXPECT_EQ(image.borrowed, 1);
  // As the edge image does when it looks at the gray image and a smaller copy is wanted.
  image.resizeIfNeeded(2, 2);
  EXPECT_NE(image.data, owner.data());
  EXPECT_EQ(image.borrowed, 0);
  EXPECT_EQ(image.channels, 3);
  EXPECT_EQ(image.lineStep, 8);
  EXPECT_EQ(owner, std::vector<unsigned char>(40, 7));
  // At the present size the buffer and its contents stay.
  unsigned char* kept = image.data;
  image.data[0] = 42;
  image.resizeIfNeeded(2, 2);
  EXPECT_EQ(image.data, kept);
  EXPECT_EQ(image.data[0], 42);
  image.release();
  EXPECT_EQ(image.data, nullptr);
  EXPECT_EQ(image.width, 0);
  EXPECT_EQ(image.kind, 2);
}

TEST(CImageBuffer, UnrepresentableSizeIsOutOfMemory) {
  CImageBuffer image;
  try {
    image.create(100000, 100000, 3, 8, 0, 2);
    FAIL() << "expected a throw";
  } catch (const char* text) {
    EXPECT_STREQ(text, "Out of Memory");
  }
}

}  // namespace
