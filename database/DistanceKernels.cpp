#include "database/DistanceKernels.h"

#include <cmath>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define ORVANE_KERNELS_AVX2 1
#include <immintrin.h>
#endif

namespace {

constexpr double kRefused = -1.0;

bool rangeFits(uint32_t aLength, uint32_t bLength, uint32_t last) {
  return last <= aLength && last <= bLength;
}

// Whether k, counting steps from 0, opens a new block of `period` steps. A period of 0
// opens a block at k = 0 only (0 is the one multiple of 0).
bool opensBlock(uint32_t k, uint32_t period) { return period == 0 ? k == 0 : k % period == 0; }

double stepCount(uint32_t first, uint32_t last) { return static_cast<double>(last - first); }

}  // namespace

// total += |s - t| with s, t and total in double; s and t restart at every block.
double windowedCumulativeDifference(const float* a, uint32_t aLength, const float* b,
                                    uint32_t bLength, uint32_t first, uint32_t last,
                                    uint32_t period) {
  if (!rangeFits(aLength, bLength, last)) return kRefused;
  double s = 0.0;
  double t = 0.0;
  double total = 0.0;
  for (uint32_t i = first; i < last; ++i) {
    if (opensBlock(i - first, period)) {
      s = 0.0;
      t = 0.0;
    }
    s += static_cast<double>(a[i]);
    t += static_cast<double>(b[i]);
    total += std::fabs(s - t);
  }
  return total / stepCount(first, last);
}

// sum += (log(b) / log(a)) * b, all in double; log(0) counts as 0.
double logarithmRatio(const float* a, uint32_t aLength, const float* b, uint32_t bLength,
                      uint32_t first, uint32_t last, uint32_t /*period*/) {
  if (!rangeFits(aLength, bLength, last)) return kRefused;
  double sum = 0.0;
  for (uint32_t i = first; i < last; ++i) {
    const double bi = static_cast<double>(b[i]);
    const double ai = static_cast<double>(a[i]);
    const double lb = bi == 0.0 ? 0.0 : std::log(bi);
    const double la = ai == 0.0 ? 0.0 : std::log(ai);
    sum += lb / la * bi;
  }
  return sum / stepCount(first, last);
}

// sum += |(double)a - (double)b|.
double meanAbsoluteDifference(const float* a, uint32_t aLength, const float* b, uint32_t bLength,
                              uint32_t first, uint32_t last, uint32_t /*period*/) {
  if (aLength != bLength || !rangeFits(aLength, bLength, last)) return kRefused;
  double sum = 0.0;
  for (uint32_t i = first; i < last; ++i) {
    sum += std::fabs(static_cast<double>(a[i]) - static_cast<double>(b[i]));
  }
  return sum / stepCount(first, last);
}

// u in double; v = (float)(v + (u / period)^2) at each block start; the open block is dropped.
double blockSquare(const float* a, uint32_t aLength, const float* b, uint32_t bLength,
                   uint32_t first, uint32_t last, uint32_t period) {
  if (aLength != bLength || !rangeFits(aLength, bLength, last)) return kRefused;
  const double p = static_cast<double>(period);
  double u = 0.0;
  float v = 0.0f;
  for (uint32_t i = first; i < last; ++i) {
    if (opensBlock(i - first, period)) {
      const double mean = u / p;
      v = static_cast<float>(static_cast<double>(v) + mean * mean);
      u = 0.0;
    }
    u += std::fabs(static_cast<double>(a[i]) - static_cast<double>(b[i]));
  }
  return static_cast<double>(v) / (stepCount(first, last) / p);
}

// sqrt(sum of squared double differences / (last - first)).
double rootMeanSquareDifference(const float* a, uint32_t aLength, const float* b,
                                uint32_t bLength, uint32_t first, uint32_t last,
                                uint32_t /*period*/) {
  if (aLength != bLength || !rangeFits(aLength, bLength, last)) return kRefused;
  double sum = 0.0;
  for (uint32_t i = first; i < last; ++i) {
    const double d = static_cast<double>(a[i]) - static_cast<double>(b[i]);
    sum += d * d;
  }
  return std::sqrt(sum / stepCount(first, last));
}

// x[i] = (float)(|x[i] - m[i]| * w[i]) in double; result = (double sum of x) / divisor.
double weightedDifference(std::unique_ptr<float[]> x, const float* m, uint32_t mLength,
                          const float* w, uint32_t wLength, double divisor) {
  if (mLength != wLength) return kRefused;
  double sum = 0.0;
  for (uint32_t i = 0; i < mLength; ++i) {
    x[i] = static_cast<float>(
        std::fabs(static_cast<double>(x[i]) - static_cast<double>(m[i])) *
        static_cast<double>(w[i]));
    sum += static_cast<double>(x[i]);
  }
  return sum / divisor;
}

#if defined(ORVANE_KERNELS_AVX2)

// Eight stored vectors scored side by side, where the processor has AVX2: lane j of a
// four-double register holds vector j (registers for vectors 0-3 and 4-7). Every lane
// performs the scalar kernel's operations in the scalar kernel's order (plain IEEE double
// adds, subtracts and a sign-bit clear; no fused operations), so each lane's result has the
// scalar bits. Eight independent chains of additions keep the adder busy where one chain
// would wait on each addition.
#define ORVANE_AVX2 __attribute__((target("avx2")))

namespace {

constexpr size_t kLanes = 8;

// Entries i..i+3 of four vectors, transposed and widened: column[k] holds entry i + k of
// vectors 0-3.
ORVANE_AVX2 inline void loadColumns(const float* const* a, uint32_t i, __m256d* column) {
  __m128 r0 = _mm_loadu_ps(a[0] + i);
  __m128 r1 = _mm_loadu_ps(a[1] + i);
  __m128 r2 = _mm_loadu_ps(a[2] + i);
  __m128 r3 = _mm_loadu_ps(a[3] + i);
  _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
  column[0] = _mm256_cvtps_pd(r0);
  column[1] = _mm256_cvtps_pd(r1);
  column[2] = _mm256_cvtps_pd(r2);
  column[3] = _mm256_cvtps_pd(r3);
}

ORVANE_AVX2 inline __m256d loadEntry(const float* const* a, uint32_t i) {
  return _mm256_cvtps_pd(_mm_setr_ps(a[0][i], a[1][i], a[2][i], a[3][i]));
}

ORVANE_AVX2 inline __m256d absolute(__m256d x) {
  return _mm256_andnot_pd(_mm256_set1_pd(-0.0), x);
}

ORVANE_AVX2 inline void storeLanes(const __m256d* sums, double divisor, double* out) {
  double lanes[kLanes];
  _mm256_storeu_pd(lanes, sums[0]);
  _mm256_storeu_pd(lanes + 4, sums[1]);
  for (size_t j = 0; j < kLanes; ++j) out[j] = lanes[j] / divisor;
}

// Kind 0 over eight lanes.
struct SCumulativeLanes {
  const float* b;
  uint32_t period;
  __m256d s[2] = {_mm256_setzero_pd(), _mm256_setzero_pd()};
  __m256d total[2] = {_mm256_setzero_pd(), _mm256_setzero_pd()};
  double t = 0.0;
  // Steps since the block began, counted instead of divided: k % period == 0 exactly when
  // the count is 0 (with period 0, at k = 0 only).
  uint32_t inBlock = 0;

  ORVANE_AVX2 void step(__m256d low, __m256d high, uint32_t i) {
    if (inBlock == 0) {
      s[0] = s[1] = _mm256_setzero_pd();
      t = 0.0;
    }
    if (++inBlock == period) inBlock = 0;
    s[0] = _mm256_add_pd(s[0], low);
    s[1] = _mm256_add_pd(s[1], high);
    t += static_cast<double>(b[i]);
    const __m256d tt = _mm256_set1_pd(t);
    total[0] = _mm256_add_pd(total[0], absolute(_mm256_sub_pd(s[0], tt)));
    total[1] = _mm256_add_pd(total[1], absolute(_mm256_sub_pd(s[1], tt)));
  }
};

// Kind 2 over eight lanes.
struct SAbsoluteLanes {
  const float* b;
  uint32_t period;
  __m256d total[2] = {_mm256_setzero_pd(), _mm256_setzero_pd()};

  ORVANE_AVX2 void step(__m256d low, __m256d high, uint32_t i) {
    const __m256d bi = _mm256_set1_pd(static_cast<double>(b[i]));
    total[0] = _mm256_add_pd(total[0], absolute(_mm256_sub_pd(low, bi)));
    total[1] = _mm256_add_pd(total[1], absolute(_mm256_sub_pd(high, bi)));
  }
};

// Feeds the entries first <= i < last of eight vectors to `lanes`, in order of i.
// REQUIRES: first < last; every vector holds at least `last` entries.
template <typename Lanes>
ORVANE_AVX2 void scoreEight(const float* const* a, const float* b, uint32_t first,
                            uint32_t last, uint32_t period, double* out) {
  Lanes lanes{b, period};
  uint32_t i = first;
  for (; last - i >= 4; i += 4) {
    __m256d low[4], high[4];
    loadColumns(a, i, low);
    loadColumns(a + 4, i, high);
    for (uint32_t k = 0; k < 4; ++k) lanes.step(low[k], high[k], i + k);
  }
  for (; i < last; ++i) lanes.step(loadEntry(a, i), loadEntry(a + 4, i), i);
  storeLanes(lanes.total, stepCount(first, last), out);
}

using EightKernel = void (*)(const float* const* a, const float* b, uint32_t first,
                             uint32_t last, uint32_t period, double* out);

bool haveAvx2() {
  static const bool have = __builtin_cpu_supports("avx2");
  return have;
}

// Groups of eight vectors that the kernel accepts go through `eight` when the processor
// allows; any other vector, and the rest of fewer than eight, through the scalar kernel.
void scoreMany(DistanceKernel single, EightKernel eight, bool comparesLengths,
               const float* const* a, const uint32_t* aLength, size_t count, const float* b,
               uint32_t bLength, uint32_t first, uint32_t last, uint32_t period, double* out) {
  const auto accepted = [&](size_t j) {
    return rangeFits(aLength[j], bLength, last) && (!comparesLengths || aLength[j] == bLength);
  };
  size_t j = 0;
  if (first < last && haveAvx2()) {
    for (; count - j >= kLanes; j += kLanes) {
      bool all = true;
      for (size_t k = j; k < j + kLanes; ++k) all = all && accepted(k);
      if (all) {
        eight(a + j, b, first, last, period, out + j);
        continue;
      }
      for (size_t k = j; k < j + kLanes; ++k) {
        out[k] = single(a[k], aLength[k], b, bLength, first, last, period);
      }
    }
  }
  for (; j < count; ++j) out[j] = single(a[j], aLength[j], b, bLength, first, last, period);
}

}  // namespace

void windowedCumulativeDifferenceMany(const float* const* a, const uint32_t* aLength,
                                      size_t count, const float* b, uint32_t bLength,
                                      uint32_t first, uint32_t last, uint32_t period,
                                      double* out) {
  scoreMany(windowedCumulativeDifference, scoreEight<SCumulativeLanes>, false, a, aLength, count,
            b, bLength, first, last, period, out);
}

void meanAbsoluteDifferenceMany(const float* const* a, const uint32_t* aLength, size_t count,
                                const float* b, uint32_t bLength, uint32_t first, uint32_t last,
                                uint32_t period, double* out) {
  scoreMany(meanAbsoluteDifference, scoreEight<SAbsoluteLanes>, true, a, aLength, count, b,
            bLength, first, last, period, out);
}

#else  // one vector at a time

void windowedCumulativeDifferenceMany(const float* const* a, const uint32_t* aLength,
                                      size_t count, const float* b, uint32_t bLength,
                                      uint32_t first, uint32_t last, uint32_t period,
                                      double* out) {
  distanceOneByOne<windowedCumulativeDifference>(a, aLength, count, b, bLength, first, last,
                                                 period, out);
}

void meanAbsoluteDifferenceMany(const float* const* a, const uint32_t* aLength, size_t count,
                                const float* b, uint32_t bLength, uint32_t first, uint32_t last,
                                uint32_t period, double* out) {
  distanceOneByOne<meanAbsoluteDifference>(a, aLength, count, b, bLength, first, last, period,
                                           out);
}

#endif
