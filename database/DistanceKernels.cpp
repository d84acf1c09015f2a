#include "database/DistanceKernels.h"

#include <cmath>

#if defined(__SSE2__)
#include <emmintrin.h>
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

#if defined(__SSE2__)

namespace {

// Four stored vectors scored side by side: lane j of a double pair holds vector j (pairs
// 0-1 and 2-3). Every lane performs the scalar kernel's operations in the scalar kernel's
// order, so each lane's result has the scalar bits.
constexpr size_t kLanes = 4;

const __m128d kAbsMask = _mm_castsi128_pd(_mm_set1_epi64x(0x7fffffffffffffffLL));

// The entries i..i+3 of four vectors, transposed: column k holds entry i+k of each vector,
// widened to double as (vectors 0, 1) and (vectors 2, 3).
struct SColumns {
  __m128d low[4];
  __m128d high[4];
};

inline void widen(__m128 column, __m128d* low, __m128d* high) {
  *low = _mm_cvtps_pd(column);
  *high = _mm_cvtps_pd(_mm_movehl_ps(column, column));
}

inline SColumns loadFour(const float* const* a, uint32_t i) {
  __m128 r0 = _mm_loadu_ps(a[0] + i);
  __m128 r1 = _mm_loadu_ps(a[1] + i);
  __m128 r2 = _mm_loadu_ps(a[2] + i);
  __m128 r3 = _mm_loadu_ps(a[3] + i);
  _MM_TRANSPOSE4_PS(r0, r1, r2, r3);
  SColumns c;
  widen(r0, &c.low[0], &c.high[0]);
  widen(r1, &c.low[1], &c.high[1]);
  widen(r2, &c.low[2], &c.high[2]);
  widen(r3, &c.low[3], &c.high[3]);
  return c;
}

inline SColumns loadOne(const float* const* a, uint32_t i) {
  SColumns c;
  widen(_mm_setr_ps(a[0][i], a[1][i], a[2][i], a[3][i]), &c.low[0], &c.high[0]);
  return c;
}

// Runs `step(column, k, i)` for every entry first <= i < last, four entries per load while
// at least four remain.
template <typename Step>
inline void forEachColumn(const float* const* a, uint32_t first, uint32_t last, Step step) {
  uint32_t i = first;
  for (; last - i >= 4; i += 4) {
    const SColumns c = loadFour(a, i);
    for (uint32_t k = 0; k < 4; ++k) step(c.low[k], c.high[k], i + k);
  }
  for (; i < last; ++i) {
    const SColumns c = loadOne(a, i);
    step(c.low[0], c.high[0], i);
  }
}

inline void storeLanes(__m128d low, __m128d high, double divisor, double* out) {
  double lanes[kLanes];
  _mm_storeu_pd(lanes, low);
  _mm_storeu_pd(lanes + 2, high);
  for (size_t j = 0; j < kLanes; ++j) out[j] = lanes[j] / divisor;
}

void windowedCumulativeDifferenceFour(const float* const* a, const float* b, uint32_t first,
                                      uint32_t last, uint32_t period, double* out) {
  __m128d sLow = _mm_setzero_pd(), sHigh = _mm_setzero_pd();
  __m128d totalLow = _mm_setzero_pd(), totalHigh = _mm_setzero_pd();
  double t = 0.0;
  forEachColumn(a, first, last, [&](__m128d low, __m128d high, uint32_t i) {
    if (opensBlock(i - first, period)) {
      sLow = sHigh = _mm_setzero_pd();
      t = 0.0;
    }
    sLow = _mm_add_pd(sLow, low);
    sHigh = _mm_add_pd(sHigh, high);
    t += static_cast<double>(b[i]);
    const __m128d tt = _mm_set1_pd(t);
    totalLow = _mm_add_pd(totalLow, _mm_and_pd(_mm_sub_pd(sLow, tt), kAbsMask));
    totalHigh = _mm_add_pd(totalHigh, _mm_and_pd(_mm_sub_pd(sHigh, tt), kAbsMask));
  });
  storeLanes(totalLow, totalHigh, stepCount(first, last), out);
}

void meanAbsoluteDifferenceFour(const float* const* a, const float* b, uint32_t first,
                                uint32_t last, uint32_t /*period*/, double* out) {
  __m128d sumLow = _mm_setzero_pd(), sumHigh = _mm_setzero_pd();
  forEachColumn(a, first, last, [&](__m128d low, __m128d high, uint32_t i) {
    const __m128d bi = _mm_set1_pd(static_cast<double>(b[i]));
    sumLow = _mm_add_pd(sumLow, _mm_and_pd(_mm_sub_pd(low, bi), kAbsMask));
    sumHigh = _mm_add_pd(sumHigh, _mm_and_pd(_mm_sub_pd(high, bi), kAbsMask));
  });
  storeLanes(sumLow, sumHigh, stepCount(first, last), out);
}

using FourKernel = void (*)(const float* const* a, const float* b, uint32_t first,
                            uint32_t last, uint32_t period, double* out);

// Groups of four vectors that the kernel accepts go through `four`; any other vector, and
// the rest of fewer than four, through the scalar kernel.
void scoreMany(DistanceKernel single, FourKernel four, bool comparesLengths,
               const float* const* a, const uint32_t* aLength, size_t count, const float* b,
               uint32_t bLength, uint32_t first, uint32_t last, uint32_t period, double* out) {
  const auto accepted = [&](size_t j) {
    return rangeFits(aLength[j], bLength, last) && (!comparesLengths || aLength[j] == bLength);
  };
  size_t j = 0;
  if (first < last) {
    for (; count - j >= kLanes; j += kLanes) {
      if (accepted(j) && accepted(j + 1) && accepted(j + 2) && accepted(j + 3)) {
        four(a + j, b, first, last, period, out + j);
      } else {
        for (size_t k = j; k < j + kLanes; ++k) {
          out[k] = single(a[k], aLength[k], b, bLength, first, last, period);
        }
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
  scoreMany(windowedCumulativeDifference, windowedCumulativeDifferenceFour, false, a, aLength,
            count, b, bLength, first, last, period, out);
}

void meanAbsoluteDifferenceMany(const float* const* a, const uint32_t* aLength, size_t count,
                                const float* b, uint32_t bLength, uint32_t first, uint32_t last,
                                uint32_t period, double* out) {
  scoreMany(meanAbsoluteDifference, meanAbsoluteDifferenceFour, true, a, aLength, count, b,
            bLength, first, last, period, out);
}

#else  // no SSE2: one vector at a time

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
