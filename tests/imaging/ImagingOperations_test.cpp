#include "imaging/ImagingOperations.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace {

class ImagingOperations : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(selectProcessor(), 0); }
};

using Rgb = std::array<unsigned char, 3>;

TEST_F(ImagingOperations, RgbToGrayWeightsWithoutRounding) {
  const struct {
    Rgb rgb;
    int gray;
  } cases[] = {
      {{255, 255, 255}, 255}, {{1, 1, 1}, 1},     {{0, 0, 1}, 0},     {{0, 0, 255}, 29},
      {{255, 0, 0}, 76},      {{0, 255, 0}, 149}, {{10, 20, 30}, 18},
      // Sums that sit on a step: any weight one lower drops 154 to 153, any weight one
      // higher lifts 35 to 36.
      {{2, 213, 249}, 154},   {{3, 33, 138}, 35},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.rgb));
    // Nine pixels: a vector's worth and one more.
    std::vector<unsigned char> line;
    for (int i = 0; i < 9; ++i) line.insert(line.end(), c.rgb.begin(), c.rgb.end());
    std::vector<unsigned char> gray(9, 99);
    ASSERT_EQ(rgbToGray(line.data(), 27, gray.data(), 9, 9, 1), kStsNoErr);
    EXPECT_EQ(gray, std::vector<unsigned char>(9, static_cast<unsigned char>(c.gray)));
  }
}

TEST_F(ImagingOperations, RgbToHsvKnownColours) {
  const struct {
    Rgb rgb;
    Rgb hsv;
  } cases[] = {
      {{255, 0, 0}, {0, 255, 255}},
      {{0, 255, 0}, {85, 255, 255}},
      {{0, 0, 255}, {170, 255, 255}},
      {{77, 77, 77}, {0, 0, 77}},
      {{0, 0, 0}, {0, 0, 0}},
      {{0, 255, 255}, {128, 255, 255}},
      {{255, 0, 255}, {213, 255, 255}},
      {{200, 100, 50}, {14, 191, 200}},
      // h just below 0 wraps to 254.83 and truncates to 255, not 0.
      {{255, 0, 1}, {255, 255, 255}},
      // 255 * 0.5 = 127.5: the guard constant is just below one half, so S is 127.
      {{254, 127, 127}, {0, 127, 254}},
      // Yellow: 42.5 with the float one sixth is 42.5000012, which reaches 43.
      {{255, 255, 0}, {43, 255, 255}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.rgb));
    Rgb hsv = {9, 9, 9};
    ASSERT_EQ(rgbToHsv(c.rgb.data(), 3, hsv.data(), 3, 1, 1), kStsNoErr);
    EXPECT_EQ(hsv, c.hsv);
  }
}

TEST_F(ImagingOperations, SwapChannelsTouchesOnlyTheRegionAndTwiceRestores) {
  // Two lines of two pixels, each line padded to 8 bytes.
  std::vector<unsigned char> image = {1, 2, 3, 4, 5, 6, 77, 78, 7, 8, 9, 10, 11, 12, 79, 80};
  const std::vector<unsigned char> original = image;
  const int order[3] = {2, 1, 0};
  ASSERT_EQ(swapChannels(image.data(), 8, 2, 2, order), kStsNoErr);
  EXPECT_EQ(image,
            (std::vector<unsigned char>{3, 2, 1, 6, 5, 4, 77, 78, 9, 8, 7, 12, 11, 10, 79, 80}));
  ASSERT_EQ(swapChannels(image.data(), 8, 2, 2, order), kStsNoErr);
  EXPECT_EQ(image, original);
  const int spread[3] = {1, 1, 0};
  ASSERT_EQ(swapChannels(image.data(), 8, 1, 1, spread), kStsNoErr);
  EXPECT_EQ(std::vector<unsigned char>(image.begin(), image.begin() + 4),
            (std::vector<unsigned char>{2, 2, 1, 4}));
}

TEST_F(ImagingOperations, HistogramEvenLevelsAndTheLostTopValue) {
  // One line: the values 0, 15, 16, 63, 64, 240, 254, 255 in every channel.
  const unsigned char values[] = {0, 15, 16, 63, 64, 240, 254, 255};
  std::vector<unsigned char> line;
  for (unsigned char v : values) line.insert(line.end(), {v, v, v});
  int hist[3][17], levels[3][17];
  int* const histPtr[3] = {hist[0], hist[1], hist[2]};
  int* const levelPtr[3] = {levels[0], levels[1], levels[2]};
  const int counts[3] = {17, 5, 2}, lower[3] = {0, 0, 0}, upper[3] = {255, 255, 255};
  for (auto& h : hist) h[16] = h[4] = h[1] = -5;  // entries that must stay unwritten
  ASSERT_EQ(histogramEven(line.data(), static_cast<int>(line.size()), 8, 1, histPtr, levelPtr,
                          counts, lower, upper),
            kStsNoErr);

  EXPECT_EQ(std::vector<int>(levels[0], levels[0] + 17),
            (std::vector<int>{0, 16, 32, 48, 64, 80, 96, 112, 128, 144, 160, 176, 192, 208, 224,
                              240, 255}));
  EXPECT_EQ(std::vector<int>(levels[1], levels[1] + 5), (std::vector<int>{0, 64, 128, 192, 255}));
  EXPECT_EQ(std::vector<int>(levels[2], levels[2] + 2), (std::vector<int>{0, 255}));

  // 255 falls into no bin; 254 is in the last one.
  EXPECT_EQ(std::vector<int>(hist[0], hist[0] + 17),
            (std::vector<int>{2, 1, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, -5}));
  EXPECT_EQ(std::vector<int>(hist[1], hist[1] + 5), (std::vector<int>{4, 1, 0, 2, -5}));
  EXPECT_EQ(std::vector<int>(hist[2], hist[2] + 2), (std::vector<int>{7, -5}));
  // One channel alone: pixels (0, 64, 255) twice.
  const unsigned char two[6] = {0, 64, 255, 0, 64, 255};
  int one[5], oneLevels[5];
  ASSERT_EQ(channelHistogram(two, 6, 2, 1, 1, one, oneLevels, 5, 0, 255), kStsNoErr);
  EXPECT_EQ(std::vector<int>(one, one + 4), (std::vector<int>{0, 2, 0, 0}));

  // The remainder of the span goes to the first steps: 10 over 4 steps is 3, 3, 2, 2.
  const int odd[3] = {5, 5, 5}, low[3] = {-3, 250, 0}, high[3] = {7, 260, 10};
  ASSERT_EQ(histogramEven(line.data(), 3, 1, 1, histPtr, levelPtr, odd, low, high), kStsNoErr);
  EXPECT_EQ(std::vector<int>(levels[0], levels[0] + 5), (std::vector<int>{-3, 0, 3, 5, 7}));
  EXPECT_EQ(std::vector<int>(levels[1], levels[1] + 5),
            (std::vector<int>{250, 253, 256, 258, 260}));
  // Levels are clamped to 0..256 before counting: the value 0 lands in bin 1 of channel 0,
  // and the clamped bins above 256 stay empty.
  EXPECT_EQ(std::vector<int>(hist[0], hist[0] + 4), (std::vector<int>{0, 1, 0, 0}));
  EXPECT_EQ(std::vector<int>(hist[1], hist[1] + 4), (std::vector<int>{0, 0, 0, 0}));
}

// Null pointers, then sizes, then steps; the channel order or number last, the level counts
// before sizes.
TEST_F(ImagingOperations, StatusChecksStandInTheirOrder) {
  unsigned char px[12] = {};
  int h[3][5], l[3][5];
  int* const hp[3] = {h[0], h[1], h[2]};
  int* const lp[3] = {l[0], l[1], l[2]};
  int* const hnull[3] = {h[0], nullptr, h[2]};
  const int n5[3] = {5, 5, 5}, n1[3] = {5, 1, 5}, lo[3] = {0, 0, 0}, up[3] = {255, 255, 255};
  const int badOrder[3] = {0, 3, 1};
  EXPECT_EQ(swapChannels(nullptr, 0, 0, 0, badOrder), kStsNullPtrErr);
  EXPECT_EQ(swapChannels(px, 0, 0, 1, badOrder), kStsSizeErr);
  EXPECT_EQ(swapChannels(px, 0, 1, 1, badOrder), kStsStepErr);
  EXPECT_EQ(swapChannels(px, 3, 1, 1, badOrder), kStsChannelOrderErr);
  EXPECT_EQ(rgbToGray(px, 0, nullptr, 0, 0, 0), kStsNullPtrErr);
  EXPECT_EQ(rgbToHsv(px, 0, px, 0, -1, 1), kStsSizeErr);
  EXPECT_EQ(rgbToHsv(px, 0, px, 3, 1, 1), kStsStepErr);
  EXPECT_EQ(histogramEven(px, 0, 0, 0, hnull, lp, n1, lo, up), kStsNullPtrErr);
  EXPECT_EQ(histogramEven(px, 0, 0, 0, hp, lp, n1, lo, up), kStsHistoLevelsErr);
  EXPECT_EQ(histogramEven(px, 0, 0, 1, hp, lp, n5, lo, up), kStsSizeErr);
  EXPECT_EQ(histogramEven(px, 0, 1, 1, hp, lp, n5, lo, up), kStsStepErr);
  EXPECT_EQ(channelHistogram(px, 0, 0, 0, 3, nullptr, l[0], 1, 0, 255), kStsNullPtrErr);
  EXPECT_EQ(channelHistogram(px, 0, 0, 0, 3, h[0], l[0], 1, 0, 255), kStsHistoLevelsErr);
  EXPECT_EQ(channelHistogram(px, 0, 0, 1, 3, h[0], l[0], 5, 0, 255), kStsSizeErr);
  EXPECT_EQ(channelHistogram(px, 0, 1, 1, 3, h[0], l[0], 5, 0, 255), kStsStepErr);
  EXPECT_EQ(channelHistogram(px, 3, 1, 1, 3, h[0], l[0], 5, 0, 255), kStsChannelOrderErr);
}

}  // namespace
