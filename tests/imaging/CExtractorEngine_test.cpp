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

std::vector<unsigned char> uniformPhoto(int width, int height, unsigned char b, unsigned char g,
                                        unsigned char r) {
  std::vector<unsigned char> pixels;
  for (int i = 0; i < width * height; ++i) pixels.insert(pixels.end(), {b, g, r});
  return pixels;
}

// The tile values of a run: edges (96), then hue (144), saturation and value (36 each).
std::vector<float> vectorsOf(const CExtractorEngine& engine) {
  const SFeatureBuffers& b = engine.buffers;
  std::vector<float> v(b.edg, b.edg + 96);
  v.insert(v.end(), b.hue, b.hue + 144);
  v.insert(v.end(), b.sat, b.sat + 36);
  v.insert(v.end(), b.val, b.val + 36);
  return v;
}

// Appends `tiles` tiles of `bins` values, with 1 in bin `hot` (none when -1) and 0 elsewhere.
void appendTiles(std::vector<float>& v, int tiles, int bins, int hot) {
  for (int i = 0; i < tiles * bins; ++i) v.push_back(i % bins == hot ? 1.0f : 0.0f);
}

TEST(CExtractorEngine, UniformPhotosGiveOneBinPerTile) {
  const struct {
    const char* name;
    int width, height;
    unsigned char b, g, r;
    int hueBin, satBin, valBin;  // -1: the value 255 falls into no bin
    int roiWidth, roiHeight;     // the photo in the working box
  } cases[] = {
      {"gray 640x480", 640, 480, 77, 77, 77, 0, 0, 1, 256, 192},
      {"gray 480x640", 480, 640, 77, 77, 77, 0, 0, 1, 192, 256},
      {"white 256x256", 256, 256, 255, 255, 255, 0, 0, -1, 256, 256},
      {"black 100x50, enlarged", 100, 50, 0, 0, 0, 0, 0, 0, 256, 128},
      {"blue 1x1, nearest", 1, 1, 255, 0, 0, 10, -1, -1, 256, 256},  // H 170
      {"dark red 4000x3000", 4000, 3000, 0, 0, 200, 0, -1, 3, 256, 192},
      {"teal 33x77", 33, 77, 150, 120, 0, 8, -1, 2, 109, 256},  // RGB 0,120,150: H 135
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CExtractorEngine engine(256, 256);
    const std::vector<unsigned char> photo = uniformPhoto(c.width, c.height, c.b, c.g, c.r);
    engine.run(photo.data(), c.width, c.height, c.width * 3);
    EXPECT_EQ(engine.working->roiWidth, c.roiWidth);
    EXPECT_EQ(engine.working->roiHeight, c.roiHeight);
    EXPECT_EQ(engine.working->data[0], c.r);  // blue, green, red became red, green, blue
    EXPECT_EQ(engine.working->data[2], c.b);
    std::vector<float> expected;
    appendTiles(expected, 16, 6, 5);
    appendTiles(expected, 9, 16, c.hueBin);
    appendTiles(expected, 9, 4, c.satBin);
    appendTiles(expected, 9, 4, c.valBin);
    EXPECT_EQ(vectorsOf(engine), expected);
  }
}

TEST(CExtractorEngine, SecondRunAndPaddedLinesGiveIdenticalVectors) {
  CExtractorEngine engine(256, 256), other(256, 256);
  const std::vector<unsigned char> tight = makeTestPhoto(640, 480, 3, 0, 0, 5).bytes;
  engine.run(tight.data(), 640, 480, 1920);
  const std::vector<float> first = vectorsOf(engine);
  engine.run(tight.data(), 640, 480, 1920);
  EXPECT_EQ(vectorsOf(engine), first);
  // The same pixels on lines of 1927 bytes, with garbage in the 7 padding bytes.
  std::vector<unsigned char> padded = makeTestPhoto(640, 480, 3, 7, 0, 99).bytes;
  for (size_t y = 0; y < 480; ++y) std::memcpy(&padded[y * 1927], &tight[y * 1920], 1920);
  other.run(padded.data(), 640, 480, 1927);
  EXPECT_EQ(vectorsOf(other), first);
}

TEST(CExtractorEngine, BadPhotosFailInPreprocessing) {
  const std::vector<unsigned char> photo(1000 * 3 * 3, 50);
  const struct {
    const char* name;
    const unsigned char* pixels;
    int width, height, lineStep, status;
  } cases[] = {
      {"null pixels", nullptr, 640, 480, 1920, -8},
      {"zero width", photo.data(), 0, 3, 0, -6},
      {"zero height", photo.data(), 10, 0, 30, -6},
      {"negative width", photo.data(), -5, 3, 30, -6},
      {"negative line step", photo.data(), 10, 3, -30, -14},
      {"height shrinks to 0", photo.data(), 1000, 3, 3000, -6},
  };
  CExtractorEngine engine(256, 256);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(thrownText([&] { engine.run(c.pixels, c.width, c.height, c.lineStep); }),
              "Error preprocessing");
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "Error Preprocessing: 1. resizing" + std::to_string(c.status) + "\n");
  }
}

// A photo whose shorter side comes out below 70 needs the enlarged edge image, which a new
// engine cannot make: its first such photo fails, and after any other photo it works. The
// enlargement reads the whole gray buffer, where below the flat photo lies what the photo
// before left: the edge vector depends on that photo, the colours do not.
TEST(CExtractorEngine, FlatPhotoDependsOnThePhotoBefore) {
  const std::vector<unsigned char> flat = makeTestPhoto(640, 100, 3, 0, 0, 3).bytes;
  const std::vector<unsigned char> noisy = makeTestPhoto(480, 640, 3, 0, 0, 11).bytes;
  const std::vector<unsigned char> black = uniformPhoto(480, 640, 0, 0, 0);
  CExtractorEngine first(256, 256), second(256, 256);
  EXPECT_EQ(thrownText([&] { first.run(flat.data(), 640, 100, 1920); }), "Error extracting");
  first.run(noisy.data(), 480, 640, 1440);
  first.run(flat.data(), 640, 100, 1920);
  EXPECT_EQ(first.working->roiHeight, 40);
  second.run(black.data(), 480, 640, 1440);
  second.run(flat.data(), 640, 100, 1920);
  const std::vector<float> a = vectorsOf(first), b = vectorsOf(second);
  EXPECT_NE(std::vector<float>(a.begin(), a.begin() + 96),
            std::vector<float>(b.begin(), b.begin() + 96));
  EXPECT_EQ(std::vector<float>(a.begin() + 96, a.end()),
            std::vector<float>(b.begin() + 96, b.end()));
}

TEST(CDescriptorExtractor, MeansFollowTheTilesWhenEnabled) {
  CExtractorEngine engine(256, 256);  // fills the call slots
  CDescriptorExtractor withMeans(256, 256, true);
  CImageBuffer working;
  working.create(256, 256, 3, 8, 0, 2);
  std::memset(working.data, 128, working.byteSize);
  SFeatureBuffers buffers = {};
  ASSERT_EQ(withMeans.run(working, buffers), 0);
  // Every mean of a uniform grid is its tile: edge bin 5, hue and saturation bin 0, value
  // bin 2 (128 is in [128, 192)); 96 + 112 + 28 + 28 values fill the buffers to the end.
  std::vector<float> edg, hue, sat, val;
  appendTiles(edg, 16, 6, 5);
  appendTiles(hue, 7, 16, 0);
  appendTiles(sat, 7, 4, 0);
  appendTiles(val, 7, 4, 2);
  EXPECT_EQ(std::vector<float>(buffers.edg + 96, buffers.edg + 192), edg);
  EXPECT_EQ(std::vector<float>(buffers.hue + 144, buffers.hue + 256), hue);
  EXPECT_EQ(std::vector<float>(buffers.sat + 36, buffers.sat + 64), sat);
  EXPECT_EQ(std::vector<float>(buffers.val + 36, buffers.val + 64), val);
}

}  // namespace
