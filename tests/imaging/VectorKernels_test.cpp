// Every vectorised column against the portable one, bit for bit: every colour through gray
// and HSV, awkward shapes and line steps through every operation, and whole extraction runs.
// Skipped on a processor without a vectorised column.
#include "imaging/VectorKernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "imaging/CExtractorEngine.h"
#include "imaging/ImagingOperations.h"
#include "tests/imaging/TestPhoto.h"
#include "tests/support/ThrownText.h"

namespace {

class VectorColumn : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(selectProcessor(), 0);
    columns = vectorColumns();
    if (columns.empty()) GTEST_SKIP() << "no vectorised column on this processor";
  }

  void TearDown() override {
    if (!columns.empty()) useColumn(*columns.front());
  }
  std::vector<const SImagingColumn*> columns;
};

// Runs an operation on the portable and on every vectorised column, into targets of `size`
// bytes prefilled alike: targets and statuses must agree.
using Operation = std::function<int(const SImagingColumn&, unsigned char*)>;
void expectSameBits(const std::string& what, size_t size, const Operation& run) {
  std::vector<unsigned char> want(size, 0xA5);
  const int status = run(kGenericColumn, want.data());
  for (const SImagingColumn* vector : vectorColumns()) {
    std::vector<unsigned char> got(size, 0xA5);
    EXPECT_EQ(run(*vector, got.data()), status) << what << ", " << vector->name;
    const auto differ = std::mismatch(want.begin(), want.end(), got.begin()).first;
    EXPECT_TRUE(differ == want.end())
        << what << ", " << vector->name << ": first difference at byte " << differ - want.begin();
  }
}

// Every (r, g, b): one 256 by 256 image per red value, green down and blue across.
TEST_F(VectorColumn, GrayAndHsvOfEveryColour) {
  std::vector<unsigned char> rgb(256 * 256 * 3);
  for (int r = 0; r < 256; ++r) {
    for (int i = 0; i < 256 * 256; ++i) {
      rgb[3 * i] = static_cast<unsigned char>(r);
      rgb[3 * i + 1] = static_cast<unsigned char>(i >> 8);
      rgb[3 * i + 2] = static_cast<unsigned char>(i);
    }
    expectSameBits("red " + std::to_string(r), 4 * 256 * 256, [&](const auto& c, auto* d) {
      return 1000 * c.rgbToGray(rgb.data(), 768, d, 256, 256, 256) +
             c.rgbToHsv(rgb.data(), 768, d + 256 * 256, 768, 256, 256);
    });
  }
}

TEST_F(VectorColumn, EveryOperationOnAwkwardShapes) {
  const int sizes[] = {1, 2, 3, 4, 5, 7, 15, 16, 17, 33, 255, 257};
  const int order[3] = {2, 0, 1};
  // The colour tiles' levels, odd ones whose clamps cut bins away, and levels from 1, which
  // fill the kernel's groups of 8 but the last.
  const int counts[3][3] = {{17, 5, 5}, {9, 32, 2}, {17, 6, 6}};
  const int lower[3][3] = {{0, 0, 0}, {-3, 0, 10}, {1, 0, 0}};
  const int upper[3][3] = {{255, 255, 255}, {260, 255, 11}, {255, 255, 255}};
  int index = 0;
  for (int width : sizes) {
    for (int height : sizes) {
      ++index;
      const int kind = index % 4, padding = index % 5;
      const std::string shape = std::to_string(width) + "x" + std::to_string(height);
      const TestPhoto rgb = makeTestPhoto(width, height, 3, padding, kind, index * 7919u);
      const TestPhoto gray = makeTestPhoto(width, height, 1, padding, kind, index * 104729u);
      const unsigned char* const src = rgb.bytes.data();
      const int step = width * 3 + 3;
      const size_t out = static_cast<size_t>(step) * height;
      expectSameBits("gray, hsv " + shape, 2 * out, [&](const auto& c, auto* d) {
        return 1000 * c.rgbToGray(src, rgb.step, d, step, width, height) +
               c.rgbToHsv(src, rgb.step, d + out, step, width, height);
      });
      expectSameBits("swap " + shape, rgb.bytes.size(), [&](const auto& c, auto* d) {
        std::memcpy(d, src, rgb.bytes.size());
        return c.swapChannels(d, rgb.step, width, height, order);
      });
      for (int set = 0; set < 3; ++set) {
        const int channel = (index + set) % 3;
        expectSameBits("histogram " + shape, 8 * 32 * sizeof(int), [&](const auto& c, auto* d) {
          int* ints = reinterpret_cast<int*>(d);
          int* const hist[3] = {ints, ints + 32, ints + 64};
          int* const levels[3] = {ints + 96, ints + 128, ints + 160};
          const int all = c.histogramEven(src, rgb.step, width, height, hist, levels, counts[set],
                                          lower[set], upper[set]);
          return 1000 * all + c.channelHistogram(src, rgb.step, width, height, channel, ints + 192,
                                                 ints + 224, counts[set][channel],
                                                 lower[set][channel], upper[set][channel]);
        });
      }
      // Into the 256 box as the preprocessor fits a photo, to a shorter side of 70 as the edge
      // analysis enlarges one, and by a plain factor; into a 300 by 300 target, where a size
      // of 0 must fail alike.
      for (double factor : {256.0 / std::max(width, height), 70.0 / std::min(width, height), 1.7}) {
        const int w = std::min(300, static_cast<int>(width * factor));
        const int h = std::min(300, static_cast<int>(height * factor));
        expectSameBits(shape + " factor " + std::to_string(factor), 2 * 905 * 300,
                       [&](const auto& c, auto* d) {
                         return 1000 * c.resize3(src, width, height, rgb.step, 0, 0, width, height,
                                                 d, 905, w, h, factor, factor, kInterCubic) +
                                c.resize1(gray.bytes.data(), width, height, gray.step, 0, 0, width,
                                          height, d + 905 * 300, 303, w, h, factor, factor,
                                          kInterCubic);
                       });
      }
    }
  }
}

// One engine per column, fed the same photos in the same order: flat photos take the
// enlargement path, which reads what earlier photos left in the gray image.
TEST_F(VectorColumn, ExtractionRunsGiveTheSameVectors) {
  const int photos[][4] = {{640, 480, 0, 0}, {300, 40, 1, 0}, {1000, 17, 3, 1},   {257, 255, 2, 2},
                           {33, 77, 5, 0},   {7, 300, 1, 1},  {1920, 1080, 7, 2}, {16, 16, 0, 3}};
  std::vector<const SImagingColumn*> all = columns;
  all.insert(all.begin(), &kGenericColumn);
  std::vector<std::unique_ptr<CExtractorEngine>> engines;
  for (const SImagingColumn* column : all) {
    useColumn(*column);
    engines.emplace_back(new CExtractorEngine(256, 256));
  }
  for (const auto& p : photos) {
    SCOPED_TRACE(std::to_string(p[0]) + "x" + std::to_string(p[1]));
    const TestPhoto photo = makeTestPhoto(p[0], p[1], 3, p[2], p[3], p[0] * 31u);
    std::vector<std::string> results;
    for (size_t e = 0; e < all.size(); ++e) {
      useColumn(*all[e]);
      const std::string failure =
          thrownText([&] { engines[e]->run(photo.bytes.data(), p[0], p[1], photo.step); });
      const char* vectors = reinterpret_cast<const char*>(&engines[e]->buffers);
      results.push_back(failure + std::string(vectors, sizeof engines[e]->buffers));
    }
    for (size_t e = 1; e < all.size(); ++e) EXPECT_TRUE(results[e] == results[0]) << all[e]->name;
  }
}

}  // namespace
