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
    EXPECT_EQ((std::vector<int>{image.lineStep, image.byteSize, image.roiWidth, image.roiHeight}),
              (std::vector<int>{c.lineStep, c.byteSize, c.width, c.height}));
    ASSERT_NE(image.data, nullptr);
    EXPECT_EQ(std::vector<unsigned char>(image.data, image.data + image.byteSize),
              std::vector<unsigned char>(image.byteSize, 0));
  }
}

TEST(CImageBuffer, BorrowedMemorySurvivesReleaseAndRecreation) {
  std::vector<unsigned char> owner(40, 7);
  CImageBuffer image;
  image.attach(4, 3, 3, 8, 0, 10, owner.data(), 2, 3, -1, -1, -1, -1, 2);
  // The line step is taken as given.
  EXPECT_EQ((std::vector<int>{image.lineStep, image.byteSize, image.borrowed}),
            (std::vector<int>{10, 40, 1}));
  // As the edge image does when it looks at the gray image and a smaller copy is wanted.
  image.resizeIfNeeded(2, 2);
  EXPECT_NE(image.data, owner.data());
  EXPECT_EQ((std::vector<int>{image.borrowed, image.channels, image.lineStep}),
            (std::vector<int>{0, 3, 8}));
  EXPECT_EQ(owner, std::vector<unsigned char>(40, 7));
  // At the present size the buffer and its contents stay.
  unsigned char* kept = image.data;
  image.data[0] = 42;
  image.resizeIfNeeded(2, 2);
  EXPECT_EQ(image.data, kept);
  EXPECT_EQ(image.data[0], 42);
  image.release();
  EXPECT_EQ(image.data, nullptr);
  EXPECT_EQ((std::vector<int>{image.width, image.kind}), (std::vector<int>{0, 2}));
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
