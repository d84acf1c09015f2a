// Exactness of the resize against an independent reference of its arithmetic, and the
// fallbacks for tiny sources.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "imaging/ImagingOperations.h"
#include "tests/imaging/TestPhoto.h"

namespace {

// Reference written from the definition: each output sample on its own, from the 4x4 source
// samples around it, with no shared tables, weights or line buffers.
struct Position {
  int index;  // the second of the four samples
  float t;
};

std::vector<Position> referenceAxis(int size, double factor, int outSize) {
  const double scaled = size * factor;
  const double step = scaled <= 1.0 ? 0.0 : (size - 1) * (1.0 / (scaled - 1.0));
  std::vector<Position> positions;
  double s = 0.0;
  for (int j = 0; j < outSize; ++j, s += step) {
    const int i = static_cast<int>(s + 1e-7);
    if (i == size - 1) {
      positions.push_back({i - 2, 2.0f});
    } else {
      const int moved = i == 0 ? 1 : (i == size - 2 ? i - 1 : i);
      positions.push_back({moved, static_cast<float>(s - moved)});
    }
  }
  return positions;
}

double referenceCubic(const double p[4], float t, bool floatC) {
  const double a = 1.0 + t;
  const double b = a * t * 0.5;
  double c = (t - 1.0) * b * 0.33333334f;
  if (floatC) c = static_cast<float>(c);
  const double d1 = p[1] - p[0];
  const double d2 = (p[2] - p[1]) - d1;
  const double d3 = p[1] - 2.0 * p[2] + p[3] - d2;
  return p[0] + d3 * c + d2 * b + d1 * a;
}

int referenceSample(const TestPhoto& src, const Position& px, const Position& py, int c) {
  double column[4];
  for (int r = 0; r < 4; ++r) {
    double row[4];
    for (int k = 0; k < 4; ++k) row[k] = src.at(px.index - 1 + k, py.index - 1 + r, c);
    column[r] = static_cast<float>(referenceCubic(row, px.t, false));
  }
  const int v = static_cast<int>(referenceCubic(column, py.t, true) + 1e-7);
  return v < 0 ? 0 : (v > 255 ? 255 : v);
}

// Resizes the whole source with one factor into a target one byte wider per line than needed.
TestPhoto resize(const TestPhoto& src, int outWidth, int outHeight, double factor, int* status) {
  TestPhoto out{outWidth, outHeight, src.channels, outWidth * src.channels + 1, {}};
  out.bytes.assign(static_cast<size_t>(out.step) * outHeight, 0xEE);
  *status = (src.channels == 3 ? resize3 : resize1)(
      src.bytes.data(), src.width, src.height, src.step, 0, 0, src.width, src.height,
      out.bytes.data(), out.step, outWidth, outHeight, factor, factor, kInterCubic);
  return out;
}

TEST(Resize, MatchesTheReferenceBitForBit) {
  // The fit into the box (longer side to 256), the 256x256 gray image to 70, awkward ratios,
  // and the identity, where the cubic's widened 0.33333334 can leave the last column one low.
  const struct {
    int width, height, channels, padding, outWidth, outHeight;
    double factor;
  } cases[] = {{640, 480, 3, 0, 256, 192, 0.4},
               {257, 255, 3, 1, 256, 254, 256.0 / 257},
               {97, 61, 3, 3, 256, 160, 256.0 / 97},
               {4, 4, 3, 0, 256, 256, 64.0},
               {1999, 97, 3, 0, 256, 12, 256.0 / 1999},
               {256, 256, 1, 0, 70, 70, 70.0 / 256},
               {300, 113, 1, 1, 256, 96, 256.0 / 300},
               {6, 4, 1, 0, 256, 170, 256.0 / 6},
               {16, 16, 3, 0, 16, 16, 1.0},
               {16, 16, 1, 0, 16, 16, 1.0}};
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.width) + "x" + std::to_string(c.height));
    const TestPhoto src = makeTestPhoto(c.width, c.height, c.channels, c.padding, 0, c.width * 31u);
    int status;
    const TestPhoto got = resize(src, c.outWidth, c.outHeight, c.factor, &status);
    ASSERT_EQ(status, kStsNoErr);
    const std::vector<Position> xs = referenceAxis(c.width, c.factor, c.outWidth);
    const std::vector<Position> ys = referenceAxis(c.height, c.factor, c.outHeight);
    int differ = 0;
    for (int y = 0; y < c.outHeight; ++y) {
      for (int x = 0; x < c.outWidth; ++x) {
        for (int ch = 0; ch < c.channels; ++ch) {
          differ += got.at(x, y, ch) != referenceSample(src, xs[x], ys[y], ch);
        }
      }
      EXPECT_EQ(got.bytes[y * got.step + got.step - 1], 0xEE) << "wrote beyond the output";
    }
    EXPECT_EQ(differ, 0) << "samples differ";
  }
}

// Width 3 falls back to linear: 0, 100, 200 to five columns steps by 0.5, the last position
// takes sample 1 with t = 1. Width or height 1 falls back to nearest: a whole factor or
// inverse steps by 1 / factor.
TEST(Resize, FallbacksForTinySources) {
  const struct {
    TestPhoto src;
    int outWidth, outHeight;
    double factor;
    std::vector<int> line;  // every line (or, for one column, the first channel down)
  } cases[] = {{{3, 2, 1, 3, {0, 100, 200, 0, 100, 200}}, 5, 3, 5.0 / 3, {0, 50, 100, 150, 200}},
               {{1, 3, 3, 3, {0, 9, 9, 1, 9, 9, 2, 9, 9}}, 2, 6, 2.0, {0, 0, 1, 1, 2, 2}},
               {{8, 1, 1, 8, {10, 11, 12, 13, 14, 15, 16, 17}}, 4, 1, 0.5, {10, 12, 14, 16}}};
  for (const auto& c : cases) {
    int status;
    const TestPhoto got = resize(c.src, c.outWidth, c.outHeight, c.factor, &status);
    ASSERT_EQ(status, kStsNoErr);
    for (int y = 0; y < c.outHeight; ++y) {
      for (int x = 0; x < c.outWidth; ++x) {
        EXPECT_EQ(got.at(x, y, 0), c.src.width == 1 ? c.line[y] : c.line[x]) << x << "," << y;
      }
    }
  }
}

TEST(Resize, StatusChecksStandInTheirOrder) {
  unsigned char px[48] = {}, dst[48];
  // Source given, its width and line step, region x and width, target width, factor,
  // interpolation, and the status.
  const int cases[][9] = {{0, 0, 0, -1, 0, 0, 0, 0, kStsNullPtrErr},
                          {1, 0, 0, -1, 0, 0, 0, 0, kStsSizeErr},
                          {1, 4, 0, -1, 0, 0, 0, 0, kStsStepErr},
                          {1, 4, 12, 0, 0, 4, 0, 0, kStsSizeErr},
                          {1, 4, 12, 0, 4, 0, 0, 0, kStsSizeErr},
                          {1, 4, 12, 4, 4, 4, 0, 0, kStsOutsideSource},
                          {1, 4, 12, 0, 4, 4, 0, 0, kStsResizeFactorErr},
                          {1, 4, 12, 0, 4, 4, 1, 3, kStsInterpolationErr},
                          {1, 4, 12, -1, 4, 4, 1, 2, kStsSizeErr},
                          {1, 4, 12, 0, 4, 4, 1, 2, kStsNoErr}};
  for (const auto& c : cases) {
    EXPECT_EQ(resize3(c[0] ? px : nullptr, c[1], 4, c[2], c[3], 0, c[4], 4, dst, 12, c[5], 4, c[6],
                      c[6], c[7]),
              c[8]);
  }
  // A gray line of one pixel may be one byte long.
  EXPECT_EQ(resize1(px, 1, 4, 1, 0, 0, 1, 4, dst, 2, 2, 4, 2.0, 1.0, kInterCubic), kStsNoErr);
}

}  // namespace
