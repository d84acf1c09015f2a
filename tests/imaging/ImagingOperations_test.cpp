#include "imaging/ImagingOperations.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace {

// Every test of this program calls through the slots: they are filled before any runs.
[[maybe_unused]] const int kSlotsFilled = selectProcessor();

using Rgb = std::array<unsigned char, 3>;

// Gray weights without rounding: 2,213,249 and 3,33,138 sit on a step, any weight one lower
// drops 154 to 153, any one higher lifts 35 to 36. HSV: 255,0,1 wraps h to 254.83, truncated
// to 255; S of 254,127,127 is 127.5, kept at 127 by the guard just below one half; yellow's
// 42.5 with the float one sixth is 42.5000012, which reaches 43.
TEST(ImagingOperations, GrayAndHsvOfKnownColours) {
  const struct {
    Rgb rgb;
    int gray;
    Rgb hsv;
  } cases[] = {{{255, 255, 255}, 255, {0, 0, 255}},   {{1, 1, 1}, 1, {0, 0, 1}},
               {{0, 0, 1}, 0, {170, 255, 1}},         {{0, 0, 255}, 29, {170, 255, 255}},
               {{255, 0, 0}, 76, {0, 255, 255}},      {{0, 255, 0}, 149, {85, 255, 255}},
               {{10, 20, 30}, 18, {149, 170, 30}},    {{2, 213, 249}, 154, {134, 253, 249}},
               {{3, 33, 138}, 35, {161, 249, 138}},   {{0, 0, 0}, 0, {0, 0, 0}},
               {{0, 255, 255}, 178, {128, 255, 255}}, {{255, 0, 255}, 105, {213, 255, 255}},
               {{200, 100, 50}, 124, {14, 191, 200}}, {{255, 0, 1}, 76, {255, 255, 255}},
               {{254, 127, 127}, 164, {0, 127, 254}}, {{255, 255, 0}, 225, {43, 255, 255}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.rgb));
    // Nine pixels: a vector's worth and one more.
    std::vector<unsigned char> line, gray(9, 99), hsv(27, 99), expected;
    for (int i = 0; i < 9; ++i) {
      line.insert(line.end(), c.rgb.begin(), c.rgb.end());
      expected.insert(expected.end(), c.hsv.begin(), c.hsv.end());
    }
    ASSERT_EQ(rgbToGray(line.data(), 27, gray.data(), 9, 9, 1), kStsNoErr);
    ASSERT_EQ(rgbToHsv(line.data(), 27, hsv.data(), 27, 9, 1), kStsNoErr);
    EXPECT_EQ(gray, std::vector<unsigned char>(9, static_cast<unsigned char>(c.gray)));
    EXPECT_EQ(hsv, expected);
  }
}

using Ints = std::vector<int>;

TEST(ImagingOperations, HistogramEvenLevelsAndTheLostTopValue) {
  // One line: the values 0, 15, 16, 63, 64, 240, 254, 255 in every channel.
  std::vector<unsigned char> line;
  for (unsigned char v : {0, 15, 16, 63, 64, 240, 254, 255}) line.insert(line.end(), {v, v, v});
  int hist[3][17], levels[3][17];
  int* const histPtr[3] = {hist[0], hist[1], hist[2]};
  int* const levelPtr[3] = {levels[0], levels[1], levels[2]};
  const int counts[3] = {17, 5, 2}, lower[3] = {0, 0, 0}, upper[3] = {255, 255, 255};
  for (auto& h : hist) h[16] = h[4] = h[1] = -5;  // entries that must stay unwritten
  ASSERT_EQ(histogramEven(line.data(), 24, 8, 1, histPtr, levelPtr, counts, lower, upper),
            kStsNoErr);
  EXPECT_EQ(Ints(levels[0], levels[0] + 17),
            (Ints{0, 16, 32, 48, 64, 80, 96, 112, 128, 144, 160, 176, 192, 208, 224, 240, 255}));
  // 255 falls into no bin; 254 is in the last one.
  EXPECT_EQ(Ints(hist[0], hist[0] + 17),
            (Ints{2, 1, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, -5}));
  EXPECT_EQ(Ints(hist[1], hist[1] + 5), (Ints{4, 1, 0, 2, -5}));
  EXPECT_EQ(Ints(hist[2], hist[2] + 2), (Ints{7, -5}));
  // One channel alone: pixels (0, 64, 255) twice.
  const unsigned char two[6] = {0, 64, 255, 0, 64, 255};
  int one[5], oneLevels[5];
  ASSERT_EQ(channelHistogram(two, 6, 2, 1, 1, one, oneLevels, 5, 0, 255), kStsNoErr);
  EXPECT_EQ(Ints(one, one + 4), (Ints{0, 2, 0, 0}));
  // The remainder of the span goes to the first steps: 10 over 4 steps is 3, 3, 2, 2. Levels
  // are clamped to 0..256 before counting: the value 0 lands in bin 1 of channel 0, and the
  // clamped bins above 256 stay empty.
  const int odd[3] = {5, 5, 5}, low[3] = {-3, 250, 0}, high[3] = {7, 260, 10};
  ASSERT_EQ(histogramEven(line.data(), 3, 1, 1, histPtr, levelPtr, odd, low, high), kStsNoErr);
  EXPECT_EQ(Ints(levels[0], levels[0] + 5), (Ints{-3, 0, 3, 5, 7}));
  EXPECT_EQ(Ints(levels[1], levels[1] + 5), (Ints{250, 253, 256, 258, 260}));
  EXPECT_EQ(Ints(hist[0], hist[0] + 4), (Ints{0, 1, 0, 0}));
  EXPECT_EQ(Ints(hist[1], hist[1] + 4), (Ints{0, 0, 0, 0}));
}

// Null pointers, then sizes, then steps; the channel order or number last, the level counts
// before sizes.
TEST(ImagingOperations, StatusChecksStandInTheirOrder) {
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
