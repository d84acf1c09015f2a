#include "database/DistanceKernels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "database/DistanceFunctions.h"
#include "tests/support/NextUnit.h"
#include "vexl/ByteOrder.h"

namespace {

const DistanceKernel kKernels[] = {windowedCumulativeDifference, logarithmRatio,
                                   meanAbsoluteDifference, blockSquare, rootMeanSquareDifference};

TEST(DistanceKernelsTest, KindsGiveHandComputedValues) {
  const DistanceKernel cumulative = windowedCumulativeDifference, meanAbs = meanAbsoluteDifference;
  const struct {
    DistanceKernel kernel;
    std::vector<float> a, b;
    uint32_t first, last, period;
    double expected;
  } cases[] = {
      // Cumulative sums: a distant bin costs 3 steps; with period 2, mass moved across a block
      // boundary counts once in each block.
      {cumulative, {1, 0, 0, 0}, {0, 0, 0, 1}, 0, 4, 4, 0.75},
      {cumulative, {0, 1, 0, 0}, {0, 0, 1, 0}, 0, 4, 2, 0.75},
      {cumulative, {9, 1, 0}, {9, 0, 1}, 1, 3, 16, 0.5},
      // (ln4/ln2)*4 + (ln2/ln4)*2 = 9 over 2 steps; a zero in b adds nothing, in a divides by 0.
      {logarithmRatio, {2, 4}, {4, 2}, 0, 2, 0, 4.5},
      {logarithmRatio, {2, 4}, {0, 0}, 0, 2, 0, 0.0},
      {logarithmRatio, {0}, {2}, 0, 1, 0, HUGE_VAL},
      {meanAbs, {1, 2, 3}, {2, 2, 5}, 0, 3, 6, 1.0},
      {meanAbs, {1, 2, 3}, {2, 2, 5}, 1, 3, 6, 1.0},
      // Blocks of 2: means 1 and 1 count, the last block (mean 5) is dropped; 2 / (6 / 2).
      {blockSquare, {1, 1, 1, 1, 5, 5}, {0, 0, 0, 0, 0, 0}, 0, 6, 2, 2.0 / 3.0},
      {rootMeanSquareDifference, {1, 1, 1, 1}, {3, 3, 3, 3}, 0, 4, 0, 2.0},
      // Refusals: unequal lengths where compared (not by kind 0), a range past either end.
      {meanAbs, {1, 2, 3}, {1, 2}, 0, 2, 6, -1.0},
      {blockSquare, {1, 2}, {1, 2, 3}, 0, 2, 1, -1.0},
      {rootMeanSquareDifference, {1}, {1, 2}, 0, 1, 0, -1.0},
      {cumulative, {1, 2, 3}, {1, 2}, 0, 2, 2, 0.0},
      {cumulative, {1, 2, 3}, {1, 2}, 0, 3, 2, -1.0},
      {logarithmRatio, {1}, {1}, 0, 2, 0, -1.0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    const double d = c.kernel(c.a.data(), static_cast<uint32_t>(c.a.size()), c.b.data(),
                              static_cast<uint32_t>(c.b.size()), c.first, c.last, c.period);
    EXPECT_EQ(doubleBits(d), doubleBits(c.expected)) << d << " != " << c.expected;
  }
  // The weighted form: |1 - 2| * 0.5 + |5 - 2| * 2 = 6.5, over the divisor 2.
  const float m[] = {2, 2}, w[] = {0.5f, 2};
  EXPECT_EQ(weightedDifference(std::unique_ptr<float[]>(new float[2]{1, 5}), m, 2, w, 2, 2.0),
            3.25);
  EXPECT_EQ(weightedDifference(std::unique_ptr<float[]>(new float[2]{1, 5}), m, 2, w, 1, 2.0),
            -1.0);
}

// Each kind's many-vector form, as a row's function finds it, on awkward lengths, counts,
// ranges and periods, with a refused vector mixed in.
TEST(DistanceKernelsTest, ManyFormsMatchTheSingleKernelBitForBit) {
  uint32_t seed = 12345;
  for (uint32_t length : {1u, 2u, 3u, 5u, 7u, 16u, 17u, 36u, 97u}) {
    std::vector<float> b(length);
    for (float& v : b) v = nextUnit(seed) * 3.0f;
    for (size_t count : {1u, 2u, 3u, 5u, 7u, 8u, 9u, 13u, 16u, 17u}) {
      std::vector<std::vector<float>> stored(count, std::vector<float>(length));
      std::vector<const float*> pointers;
      std::vector<uint32_t> lengths;
      for (size_t j = 0; j < count; ++j) {
        for (float& v : stored[j]) v = nextUnit(seed) * 3.0f;
        pointers.push_back(stored[j].data());
        // Vector 2 claims a longer length, vector 9 a shorter one: refused where the kernel
        // refuses them, without harm to their blocks of eight.
        lengths.push_back(j == 9 ? length - 1 : (j == 2 ? length + 1 : length));
      }
      for (uint32_t first : {0u, 1u, 2u}) {
        for (uint32_t period : {0u, 1u, 3u, 4u, 6u, 16u}) {
          for (uint32_t kind = 0; kind < 5; ++kind) {
            std::vector<double> many(count);
            distanceManyOf(distanceFunctionOfKind(kind))(pointers.data(), lengths.data(), count,
                                                         b.data(), length, first, length, period,
                                                         many.data());
            for (size_t j = 0; j < count; ++j) {
              const double single =
                  kKernels[kind](pointers[j], lengths[j], b.data(), length, first, length, period);
              EXPECT_EQ(doubleBits(many[j]), doubleBits(single)) << length << " " << count << " "
                  << first << " " << period << " " << kind << " " << j;
            }
          }
        }
      }
    }
  }
}

}  // namespace
