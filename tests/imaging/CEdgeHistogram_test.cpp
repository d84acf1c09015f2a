#include "imaging/CEdgeHistogram.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "tests/imaging/TestPhoto.h"

namespace {

class EdgeHistogram : public ::testing::Test {
 protected:
  // A black 256x256 gray image; `bright` sets a w by h rectangle at (x, y) to 200.
  void SetUp() override { gray.create(256, 256, 1, 8, 0, 2); }
  void bright(int x, int y, int w, int h) {
    for (int row = y; row < y + h; ++row) std::fill_n(gray.data + row * 256 + x, w, 200);
  }

  CImageBuffer gray;
  CEdgeHistogram edge{256, 256};
  float out[96] = {};
};

TEST(CEdgeHistogramRules, BlockSizeAssumesFourByThree) {
  const int sides[][2] = {{256, 6}, {230, 6}, {229, 4}, {154, 4}, {153, 2}, {70, 2}, {1, 2}};
  for (const auto& s : sides) EXPECT_EQ(CEdgeHistogram::blockSize(s[0]), s[1]) << s[0];
}

// Scans of random bytes at awkward shapes, line steps and block sizes, against digests
// (FNV-1a of the 96 floats' bytes) taken before the scan's arithmetic was reorganised.
TEST(CEdgeHistogramRules, ScanKeepsItsBitsOnAwkwardShapes) {
  const struct {
    int width, height, stride, block;
    uint64_t digest;
  } scans[] = {
      {37, 23, 37, 4, 0xd849bbe1e3b4a18aull},     {256, 192, 256, 6, 0x6f3479df12081cb2ull},
      {70, 527, 70, 2, 0x0d1df7ecea899dceull},    {255, 5, 255, 4, 0xc651183b060353abull},
      {100, 100, 103, 10, 0x4be5794364366a79ull}, {17, 33, 17, 16, 0xb8392daa65cff375ull}};
  for (const auto& s : scans) {
    const TestPhoto pixels = makeTestPhoto(s.stride, s.height, 1, 0, 0, s.width * 131 + s.height);
    float bins[96];
    CEdgeHistogram::scan(pixels.bytes.data(), s.width, s.stride, s.height, s.block, 11, bins);
    uint64_t digest = 14695981039346656037ull;
    const unsigned char* bytes = reinterpret_cast<const unsigned char*>(bins);
    for (size_t i = 0; i < sizeof bins; ++i) digest = (digest ^ bytes[i]) * 1099511628211ull;
    EXPECT_EQ(digest, s.digest) << s.width << "x" << s.height << " block " << s.block;
  }
}

// Blocks of 2x2 (the quadrant means are the pixels) and 4x4, written as lines of pixels.
// A step of 100 responds 200, 0, 141.4, 141.4, 0. Of the 4x4 blocks, the first's left
// quadrants sum 22 (mean 5.5): response 11 equals the threshold, an edge; the second's sum 21
// (mean 5.25): response 10.5, below it.
TEST(CEdgeHistogramRules, ClassifiesByStrongestResponse) {
  const struct {
    int n;
    std::vector<unsigned char> pixels;
    int type;
  } cases[] = {{2, {100, 0, 100, 0}, 1},
               {2, {100, 100, 0, 0}, 2},
               {2, {90, 0, 0, 0}, 5},     // 90, 90, 127.3, 0, 180
               {2, {50, 30, 30, 10}, 3},  // 40, 40, 56.6, 0, 0
               {2, {30, 50, 10, 30}, 4},  // 0, 40, 0, 56.6, 0
               {2, {77, 77, 77, 77}, 0},
               {4, {6, 5, 0, 0, 5, 6, 0, 0, 6, 5, 0, 0, 5, 6, 0, 0}, 1},
               {4, {6, 5, 0, 0, 5, 5, 0, 0, 6, 5, 0, 0, 5, 5, 0, 0}, 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(CEdgeHistogram::classifyBlock(c.pixels.data(), c.n, c.n, 11), c.type)
        << ::testing::PrintToString(c.pixels);
  }
}

// On 256x256 with blocks of 6, x and y take 42 values; the cell columns and rows get 11, 11,
// 10 and 10 of them, so a cell holds 121, 110 or 100 blocks. One edge block at the top-left
// of every cell shows the count as 1 / count.
TEST_F(EdgeHistogram, CellsHoldDifferentNumbersOfBlocks) {
  for (int y : {0, 66, 132, 192}) {
    for (int x : {0, 66, 132, 192}) bright(x, y, 3, 6);
  }
  ASSERT_EQ(edge.compute(gray, out), 96);
  const int counts[4] = {11, 11, 10, 10};
  for (int cell = 0; cell < 16; ++cell) {
    const int blocks = counts[cell / 4] * counts[cell % 4];
    EXPECT_EQ(out[cell * 6], static_cast<float>(1.0 / blocks)) << cell;
    EXPECT_EQ(out[cell * 6 + 5], static_cast<float>((blocks - 1.0) / blocks)) << cell;
  }
}

// One bright run of six pixels at line 96, columns 0..5, on black. Scanned as stored, it is
// the top line of block (0, 96): one horizontal edge in cell 4. A landscape region of 256x192
// is scanned with 192 bytes per scan line over 256 scan lines: the run starts scan line 128
// (block line 126, cell 4) and ends scan line 127 at x 192 (cell 7), so two blocks see it.
TEST_F(EdgeHistogram, LandscapeRegionIsScannedSheared) {
  bright(0, 96, 6, 1);
  for (int roiHeight : {256, 192}) {
    gray.roiHeight = roiHeight;
    ASSERT_EQ(edge.compute(gray, out), 96);
    for (int cell = 0; cell < 16; ++cell) {
      const float horizontal = cell == 4                       ? 1.0f / 121
                               : cell == 7 && roiHeight == 192 ? 1.0f / 110
                                                               : 0.0f;
      EXPECT_EQ(out[cell * 6 + 1], horizontal) << roiHeight << ", cell " << cell;
    }
  }
}

}  // namespace
