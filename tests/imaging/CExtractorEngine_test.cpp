#include "imaging/CExtractorEngine.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "imaging/CDescriptorExtractor.h"
#include "imaging/CImageBuffer.h"
#include "tests/imaging/TestPhoto.h"
#include "tests/support/ThrownText.h"

namespace {

// The tile values of a run: edges (96), then hue (144), saturation and value (36 each).
std::vector<float> vectorsOf(const SFeatureBuffers& b) {
  std::vector<float> v(b.edg, b.edg + 96);
  v.insert(v.end(), b.hue, b.hue + 144);
  v.insert(v.end(), b.sat, b.sat + 36);
  v.insert(v.end(), b.val, b.val + 36);
  return v;
}

// Tiles of 6 edge, 16 hue, 4 saturation and 4 value bins, each 1 in its bin `hot` (none
// when -1) and 0 elsewhere.
std::vector<float> oneHotTiles(int edgeTiles, int colourTiles, int hue, int sat, int val) {
  std::vector<float> v;
  const int shape[4][3] = {
      {edgeTiles, 6, 5}, {colourTiles, 16, hue}, {colourTiles, 4, sat}, {colourTiles, 4, val}};
  for (const auto& s : shape) {
    for (int i = 0; i < s[0] * s[1]; ++i) v.push_back(i % s[1] == s[2] ? 1.0f : 0.0f);
  }
  return v;
}

TEST(CExtractorEngine, UniformPhotosGiveOneBinPerTile) {
  // Width, height, blue, green, red; the hue, saturation and value bins (-1: the value 255
  // falls into no bin); the photo's region in the working box.
  const int cases[][10] = {
      {640, 480, 77, 77, 77, 0, 0, 1, 256, 192},     {480, 640, 77, 77, 77, 0, 0, 1, 192, 256},
      {256, 256, 255, 255, 255, 0, 0, -1, 256, 256}, {100, 50, 0, 0, 0, 0, 0, 0, 256, 128},
      {1, 1, 255, 0, 0, 10, -1, -1, 256, 256},    // H 170, nearest
      {33, 77, 150, 120, 0, 8, -1, 2, 109, 256},  // RGB 0,120,150: H 135
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c[0]) + "x" + std::to_string(c[1]));
    CExtractorEngine engine(256, 256);
    std::vector<unsigned char> photo;
    for (int k = 0; k < 3 * c[0] * c[1]; ++k) photo.push_back(static_cast<uint8_t>(c[2 + k % 3]));
    engine.run(photo.data(), c[0], c[1], c[0] * 3);
    const CImageBuffer& w = *engine.working;
    EXPECT_EQ((std::vector<int>{w.roiWidth, w.roiHeight, w.data[0], w.data[2]}),
              (std::vector<int>{c[8], c[9], c[4], c[2]}));
    EXPECT_EQ(vectorsOf(engine.buffers), oneHotTiles(16, 9, c[5], c[6], c[7]));
  }
}

TEST(CExtractorEngine, BadPhotosFailInPreprocessing) {
  const std::vector<unsigned char> photo(1000 * 3 * 3, 50);
  // Pixels given, width, height, line step; the status of the resize. The last: the height
  // shrinks to 0.
  const int cases[][5] = {
      {0, 640, 480, 1920, -8}, {1, 0, 3, 0, -6}, {1, 10, 3, -30, -14}, {1, 1000, 3, 3000, -6}};
  CExtractorEngine engine(256, 256);
  for (const auto& c : cases) {
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(thrownText([&] { engine.run(c[0] ? photo.data() : nullptr, c[1], c[2], c[3]); }),
              "Error preprocessing");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "Error Preprocessing: 1. resizing" + std::to_string(c[4]) + "\n");
  }
}

// A photo whose shorter side comes out below 70 is enlarged from the whole gray buffer: a new
// engine fails on it, and afterwards its edges depend on the photo before, its colours not.
TEST(CExtractorEngine, FlatPhotoDependsOnThePhotoBefore) {
  const std::vector<unsigned char> flat = makeTestPhoto(640, 100, 3, 0, 0, 3).bytes;
  const std::vector<unsigned char> noisy = makeTestPhoto(480, 640, 3, 0, 0, 11).bytes;
  const std::vector<unsigned char> black(480 * 640 * 3, 0);
  CExtractorEngine first(256, 256), second(256, 256);
  EXPECT_EQ(thrownText([&] { first.run(flat.data(), 640, 100, 1920); }), "Error extracting");
  first.run(noisy.data(), 480, 640, 1440);
  first.run(flat.data(), 640, 100, 1920);
  second.run(black.data(), 480, 640, 1440);
  second.run(flat.data(), 640, 100, 1920);
  const std::vector<float> a = vectorsOf(first.buffers), b = vectorsOf(second.buffers);
  EXPECT_NE(std::vector<float>(a.begin(), a.begin() + 96),
            std::vector<float>(b.begin(), b.begin() + 96));
  EXPECT_EQ(std::vector<float>(a.begin() + 96, a.end()),
            std::vector<float>(b.begin() + 96, b.end()));
}

// The means of a uniform grid are its tile: edge bin 5, hue and saturation bin 0, value bin 2
// (128 is in [128, 192)); 96 + 112 + 28 + 28 values fill the buffers to the end.
TEST(CDescriptorExtractor, MeansFollowTheTilesWhenEnabled) {
  CExtractorEngine engine(256, 256);  // fills the call slots
  CDescriptorExtractor withMeans(256, 256, true);
  CImageBuffer working;
  working.create(256, 256, 3, 8, 0, 2);
  std::memset(working.data, 128, working.byteSize);
  SFeatureBuffers b = {};
  ASSERT_EQ(withMeans.run(working, b), 0);
  std::vector<float> means(b.edg + 96, b.edg + 192);
  means.insert(means.end(), b.hue + 144, b.hue + 256);
  means.insert(means.end(), b.sat + 36, b.sat + 64);
  means.insert(means.end(), b.val + 36, b.val + 64);
  EXPECT_EQ(means, oneHotTiles(16, 7, 0, 0, 2));
}

}  // namespace
