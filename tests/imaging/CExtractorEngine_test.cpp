#include "imaging/CExtractorEngine.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "imaging/CDescriptorExtractor.h"
#include "imaging/CImageBuffer.h"

namespace {

// A BGR photo with lines of `lineStep` bytes; padding bytes hold garbage.
std::vector<unsigned char> randomPhoto(int width, int height, int lineStep, uint32_t seed) {
  std::vector<unsigned char> pixels(static_cast<size_t>(lineStep) * height);
  for (unsigned char& v : pixels) {
    seed = seed * 1664525u + 1013904223u;
    v = static_cast<unsigned char>(seed >> 24);
  }
  // Smooth it a little so that the picture has structure as well as noise.
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width * 3; ++x) {
      unsigned char& v = pixels[static_cast<size_t>(y) * lineStep + x];
      v = static_cast<unsigned char>((v / 4 + (x / 3) * 200 / width + y * 50 / height) & 255);
    }
  }
  return pixels;
}

std::vector<unsigned char> uniformPhoto(int width, int height, unsigned char b, unsigned char g,
                                        unsigned char r) {
  std::vector<unsigned char> pixels;
  for (int i = 0; i < width * height; ++i) pixels.insert(pixels.end(), {b, g, r});
  return pixels;
}

// The vectors a run delivers, tile values only.
struct Vectors {
  std::vector<float> edg, hue, sat, val;
  bool operator==(const Vectors& o) const {
    return edg == o.edg && hue == o.hue && sat == o.sat && val == o.val;
  }
};

Vectors vectorsOf(const CExtractorEngine& engine) {
  const SFeatureBuffers& b = engine.buffers;
  return {{b.edg, b.edg + 96}, {b.hue, b.hue + 144}, {b.sat, b.sat + 36}, {b.val, b.val + 36}};
}

// Tiles of `bins` values, all equal to `tile`.
std::vector<float> repeatTile(int tiles, int bins, int hotBin) {
  std::vector<float> out(tiles * bins, 0.0f);
  if (hotBin < 0) return out;
  for (int t = 0; t < tiles; ++t) out[t * bins + hotBin] = 1.0f;
  return out;
}

TEST(CExtractorEngine, UniformPhotosGiveOneBinPerTile) {
  struct Case {
    const char* name;
    int width, height;
    unsigned char b, g, r;
    int hueBin, satBin, valBin;  // -1: the value 255 falls into no bin
    int roiWidth, roiHeight;     // the photo in the working box
  };
  const Case cases[] = {
      {"gray 640x480", 640, 480, 77, 77, 77, 0, 0, 1, 256, 192},
      {"gray 480x640", 480, 640, 77, 77, 77, 0, 0, 1, 192, 256},
      {"white 256x256", 256, 256, 255, 255, 255, 0, 0, -1, 256, 256},
      {"black 100x50, enlarged", 100, 50, 0, 0, 0, 0, 0, 0, 256, 128},
      {"blue 1x1, nearest", 1, 1, 255, 0, 0, 10, -1, -1, 256, 256},  // H 170
      {"dark red 4000x3000", 4000, 3000, 0, 0, 200, 0, -1, 3, 256, 192},
      {"teal 33x77", 33, 77, 150, 120, 0, 8, -1, 2, 109, 256},  // RGB 0,120,150: H 135
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    CExtractorEngine engine(256, 256);
    const std::vector<unsigned char> photo = uniformPhoto(c.width, c.height, c.b, c.g, c.r);
    engine.run(photo.data(), c.width, c.height, c.width * 3);
    EXPECT_EQ(engine.working->roiWidth, c.roiWidth);
    EXPECT_EQ(engine.working->roiHeight, c.roiHeight);
    // Blue, green, red became red, green, blue.
    EXPECT_EQ(engine.working->data[0], c.r);
    EXPECT_EQ(engine.working->data[2], c.b);
    const Vectors v = vectorsOf(engine);
    EXPECT_EQ(v.edg, repeatTile(16, 6, 5));
    EXPECT_EQ(v.hue, repeatTile(9, 16, c.hueBin));
    EXPECT_EQ(v.sat, repeatTile(9, 4, c.satBin));
    EXPECT_EQ(v.val, repeatTile(9, 4, c.valBin));
  }
}

TEST(CExtractorEngine, SecondRunAndPaddedLinesGiveIdenticalVectors) {
  const int width = 640, height = 480;
  CExtractorEngine engine(256, 256);
  const std::vector<unsigned char> tight = randomPhoto(width, height, width * 3, 5);
  engine.run(tight.data(), width, height, width * 3);
  const Vectors first = vectorsOf(engine);
  engine.run(tight.data(), width, height, width * 3);
  EXPECT_TRUE(vectorsOf(engine) == first);

  // The same pixels on lines of 1927 bytes, with garbage in the 7 padding bytes.
  std::vector<unsigned char> padded = randomPhoto(width, height, 1927, 99);
  for (int y = 0; y < height; ++y) {
    std::memcpy(&padded[static_cast<size_t>(y) * 1927], &tight[static_cast<size_t>(y) * 1920],
                1920);
  }
  CExtractorEngine other(256, 256);
  other.run(padded.data(), width, height, 1927);
  EXPECT_TRUE(vectorsOf(other) == first);
}

TEST(CExtractorEngine, BadPhotosFailInPreprocessing) {
  const std::vector<unsigned char> photo(1000 * 3 * 3, 50);
  struct Case {
    const char* name;
    const unsigned char* pixels;
    int width, height, lineStep, status;
  };
  const Case cases[] = {
      {"null pixels", nullptr, 640, 480, 1920, -8},
      {"zero width", photo.data(), 0, 3, 0, -6},
      {"zero height", photo.data(), 10, 0, 30, -6},
      {"zero size", photo.data(), 0, 0, 0, -6},
      {"negative width", photo.data(), -5, 3, 30, -6},
      {"negative line step", photo.data(), 10, 3, -30, -14},
      {"height shrinks to 0", photo.data(), 1000, 3, 3000, -6},
  };
  CExtractorEngine engine(256, 256);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ::testing::internal::CaptureStdout();
    try {
      engine.run(c.pixels, c.width, c.height, c.lineStep);
      ADD_FAILURE() << "expected a throw";
    } catch (const std::string& text) {
      EXPECT_EQ(text, "Error preprocessing");
    }
    EXPECT_EQ(::testing::internal::GetCapturedStdout(),
              "Error Preprocessing: 1. resizing" + std::to_string(c.status) + "\n");
  }
}

// A photo whose shorter side comes out below 70 needs the enlarged edge image, which a new
// engine cannot make: its first such photo fails, and after any other photo it works.
TEST(CExtractorEngine, FirstFlatPhotoOfANewEngineFails) {
  const std::vector<unsigned char> flat = randomPhoto(640, 100, 1920, 3);
  const std::vector<unsigned char> normal = randomPhoto(640, 480, 1920, 4);
  CExtractorEngine engine(256, 256);
  try {
    engine.run(flat.data(), 640, 100, 1920);
    FAIL() << "expected a throw";
  } catch (const std::string& text) {
    EXPECT_EQ(text, "Error extracting");
  }
  engine.run(normal.data(), 640, 480, 1920);
  engine.run(flat.data(), 640, 100, 1920);
  EXPECT_EQ(engine.working->roiHeight, 40);
}

// The enlargement reads the whole gray buffer: below a flat photo lies what the photo before
// left there, so the edge vector of the same flat photo depends on it. Colours do not.
TEST(CExtractorEngine, EdgeVectorOfAFlatPhotoDependsOnThePhotoBefore) {
  const std::vector<unsigned char> flat = randomPhoto(640, 100, 1920, 3);
  const std::vector<unsigned char> before1 = randomPhoto(480, 640, 1440, 11);
  const std::vector<unsigned char> before2 = uniformPhoto(480, 640, 0, 0, 0);
  CExtractorEngine first(256, 256), second(256, 256);
  first.run(before1.data(), 480, 640, 1440);
  first.run(flat.data(), 640, 100, 1920);
  second.run(before2.data(), 480, 640, 1440);
  second.run(flat.data(), 640, 100, 1920);
  const Vectors a = vectorsOf(first), b = vectorsOf(second);
  EXPECT_NE(a.edg, b.edg);
  EXPECT_EQ(a.hue, b.hue);
  EXPECT_EQ(a.val, b.val);
}

TEST(CDescriptorExtractor, MeansFollowTheTilesWhenEnabled) {
  CExtractorEngine engine(256, 256);  // fills the call slots
  CDescriptorExtractor withMeans(256, 256, true);
  CImageBuffer working;
  working.create(256, 256, 3, 8, 0, 2);
  std::memset(working.data, 128, working.byteSize);  // gray 128
  SFeatureBuffers buffers = {};
  ASSERT_EQ(withMeans.run(working, buffers), 0);
  // Every mean of a uniform grid is its tile: edge bin 5, hue and saturation bin 0, value
  // bin 2 (128 is in [128, 192)); 96 + 112 + 28 + 28 values fill the buffers to the end.
  for (int i = 96; i < 192; ++i) EXPECT_EQ(buffers.edg[i], i % 6 == 5 ? 1.0f : 0.0f) << i;
  for (int i = 144; i < 256; ++i) EXPECT_EQ(buffers.hue[i], i % 16 == 0 ? 1.0f : 0.0f) << i;
  for (int i = 36; i < 64; ++i) {
    EXPECT_EQ(buffers.sat[i], i % 4 == 0 ? 1.0f : 0.0f) << i;
    EXPECT_EQ(buffers.val[i], i % 4 == 2 ? 1.0f : 0.0f) << i;
  }
}

}  // namespace
