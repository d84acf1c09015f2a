// Distance kernels of the matching database: free functions over raw float arrays.
//
// Each kernel compares a stored vector `a` (aLength floats) with a query `b` (bLength floats)
// over the entries first <= i < last, with k = i - first counting the steps from 0. Every
// float is widened to double before any arithmetic, every sum runs in double and the order
// of the additions is exactly the order of i, so results are reproducible bit for bit.
//
// A kernel answers -1.0 when it refuses the input. The kernels that compare lengths refuse
// two vectors of different length; every kernel refuses a range that runs past the end of
// either vector (only a damaged stored vector can have one, and reading past it would be
// undefined).
//
// The `...Many` forms score several stored vectors against one query and give, for every
// vector, exactly the bits of the single kernel. They let a full scan keep several
// independent sums in flight instead of waiting on one long chain of additions.
#ifndef ORVANE_DATABASE_DISTANCEKERNELS_H_
#define ORVANE_DATABASE_DISTANCEKERNELS_H_

#include <cstddef>
#include <cstdint>
#include <memory>

// Kind 0. Per block of `period` steps two running sums s (of a) and t (of b) restart at 0;
// at each step s += a[i], t += b[i], total += |s - t|. Result: total / (last - first).
// A shift of mass into a neighbouring bin costs little, one into a distant bin costs much.
// Lengths are not compared.
double windowedCumulativeDifference(const float* a, uint32_t aLength, const float* b,
                                    uint32_t bLength, uint32_t first, uint32_t last,
                                    uint32_t period);

// Kind 1. sum += (ln b[i] / ln a[i]) * b[i], where a logarithm of 0 counts as 0 (so a zero
// or a one in `a` divides by zero, as IEEE arithmetic has it). Result: sum / (last - first).
// Lengths are not compared; `period` is unused.
double logarithmRatio(const float* a, uint32_t aLength, const float* b, uint32_t bLength,
                      uint32_t first, uint32_t last, uint32_t period);

// Kind 2. sum += |a[i] - b[i]|. Result: sum / (last - first). Compares lengths; `period` is
// unused.
double meanAbsoluteDifference(const float* a, uint32_t aLength, const float* b, uint32_t bLength,
                              uint32_t first, uint32_t last, uint32_t period);

// Kind 3. A block sum u (double) collects |a[i] - b[i]|; at every step where k is a multiple
// of `period`, first v += (u / period)^2 with v rounded to float after the addition, and u
// restarts at 0. The last block is never added (kept: the table of this kind depends on it).
// Result: v / ((double)(last - first) / period). Compares lengths.
double blockSquare(const float* a, uint32_t aLength, const float* b, uint32_t bLength,
                   uint32_t first, uint32_t last, uint32_t period);

// Kind 4. sqrt(sum of (a[i] - b[i])^2 / (last - first)). Compares lengths; `period` is unused.
double rootMeanSquareDifference(const float* a, uint32_t aLength, const float* b,
                                uint32_t bLength, uint32_t first, uint32_t last, uint32_t period);

// Kind 5, of a shape of its own: takes ownership of `x` (mLength floats) and releases it.
// Each x[i] becomes the float |x[i] - m[i]| * w[i] (computed in double); the result is the
// double sum of the new x divided by `divisor`. Compares the lengths of m and w.
double weightedDifference(std::unique_ptr<float[]> x, const float* m, uint32_t mLength,
                          const float* w, uint32_t wLength, double divisor);

// The shape shared by kinds 0 to 4.
using DistanceKernel = double (*)(const float* a, uint32_t aLength, const float* b,
                                  uint32_t bLength, uint32_t first, uint32_t last,
                                  uint32_t period);

// out[j] = windowedCumulativeDifference(a[j], aLength[j], b, ...) for j < count.
void windowedCumulativeDifferenceMany(const float* const* a, const uint32_t* aLength,
                                      size_t count, const float* b, uint32_t bLength,
                                      uint32_t first, uint32_t last, uint32_t period,
                                      double* out);

// out[j] = meanAbsoluteDifference(a[j], aLength[j], b, ...) for j < count.
void meanAbsoluteDifferenceMany(const float* const* a, const uint32_t* aLength, size_t count,
                                const float* b, uint32_t bLength, uint32_t first, uint32_t last,
                                uint32_t period, double* out);

using DistanceKernelMany = void (*)(const float* const* a, const uint32_t* aLength,
                                    size_t count, const float* b, uint32_t bLength,
                                    uint32_t first, uint32_t last, uint32_t period, double* out);

// The many-vector form of any kernel of shape DistanceKernel, one call per vector; used for
// the kinds that no built-in table scans.
template <DistanceKernel kernel>
void distanceOneByOne(const float* const* a, const uint32_t* aLength, size_t count,
                      const float* b, uint32_t bLength, uint32_t first, uint32_t last,
                      uint32_t period, double* out) {
  for (size_t j = 0; j < count; ++j) {
    out[j] = kernel(a[j], aLength[j], b, bLength, first, last, period);
  }
}

#endif  // ORVANE_DATABASE_DISTANCEKERNELS_H_
