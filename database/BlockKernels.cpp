#include "database/BlockKernels.h"

#include <cmath>

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define ORVANE_BLOCK_AVX2 1
#include <immintrin.h>
#endif

namespace {

const float* runStart(const float* head, const float* tail, const SBlockRun& run) {
  return (run.tail ? tail : head) + run.offset;
}

// Per lane: s = 0 at a window's start; s += (double)a; total += |s - t|.
void cumulativePortable(const float* head, const float* tail, const SBlockRun* runs,
                        size_t runCount, const double* query, double* totals) {
  double s[kBlockLanes] = {};
  double total[kBlockLanes] = {};
  for (const SBlockRun* run = runs; run != runs + runCount; ++run) {
    const float* a = runStart(head, tail, *run);
    if (run->restart) {
      for (double& sum : s) sum = 0.0;
    }
    for (uint32_t e = 0; e < run->count; ++e, a += kBlockLanes) {
      const double t = *query++;
      for (uint32_t j = 0; j < kBlockLanes; ++j) {
        s[j] += static_cast<double>(a[j]);
        total[j] += std::fabs(s[j] - t);
      }
    }
  }
  for (uint32_t j = 0; j < kBlockLanes; ++j) totals[j] = total[j];
}

// Per lane: total += |(double)a - b|.
void absolutePortable(const float* head, const float* tail, const SBlockRun* runs,
                      size_t runCount, const double* query, double* totals) {
  double total[kBlockLanes] = {};
  for (const SBlockRun* run = runs; run != runs + runCount; ++run) {
    const float* a = runStart(head, tail, *run);
    for (uint32_t e = 0; e < run->count; ++e, a += kBlockLanes) {
      const double b = *query++;
      for (uint32_t j = 0; j < kBlockLanes; ++j) {
        total[j] += std::fabs(static_cast<double>(a[j]) - b);
      }
    }
  }
  for (uint32_t j = 0; j < kBlockLanes; ++j) totals[j] = total[j];
}

#if defined(ORVANE_BLOCK_AVX2)

// The same operations on four registers of four lanes each: plain IEEE double adds and
// subtracts and a sign-bit clear, in the portable form's order, so every lane keeps its bits.
#define ORVANE_AVX2 __attribute__((target("avx2")))

static_assert(kBlockLanes == 16, "four registers of four lanes");

ORVANE_AVX2 inline __m256d widened(const float* a) { return _mm256_cvtps_pd(_mm_loadu_ps(a)); }

// The regions of consecutive blocks follow one another, so the line this far ahead is one
// the scan will read soon: asked for now, it arrives in time even while several regions
// are read side by side. Asking past an allocation's end does no harm.
constexpr size_t kPrefetchFloats = 1024;

ORVANE_AVX2 inline void prefetch(const float* a) {
  _mm_prefetch(reinterpret_cast<const char*>(a + kPrefetchFloats), _MM_HINT_T0);
}

ORVANE_AVX2 inline __m256d absolute(__m256d x) {
  return _mm256_andnot_pd(_mm256_set1_pd(-0.0), x);
}

ORVANE_AVX2 inline void storeTotals(__m256d t0, __m256d t1, __m256d t2, __m256d t3,
                                    double* totals) {
  _mm256_storeu_pd(totals, t0);
  _mm256_storeu_pd(totals + 4, t1);
  _mm256_storeu_pd(totals + 8, t2);
  _mm256_storeu_pd(totals + 12, t3);
}

// The registers are named one by one: kept in arrays, the sums went through memory.
ORVANE_AVX2 void cumulativeAvx2(const float* head, const float* tail, const SBlockRun* runs,
                                size_t runCount, const double* query, double* totals) {
  __m256d s0 = _mm256_setzero_pd(), s1 = s0, s2 = s0, s3 = s0;
  __m256d t0 = s0, t1 = s0, t2 = s0, t3 = s0;
  for (const SBlockRun* run = runs; run != runs + runCount; ++run) {
    const float* a = runStart(head, tail, *run);
    if (run->restart) s0 = s1 = s2 = s3 = _mm256_setzero_pd();
    for (uint32_t e = 0; e < run->count; ++e, a += kBlockLanes) {
      prefetch(a);
      const __m256d t = _mm256_broadcast_sd(query++);
      s0 = _mm256_add_pd(s0, widened(a));
      s1 = _mm256_add_pd(s1, widened(a + 4));
      s2 = _mm256_add_pd(s2, widened(a + 8));
      s3 = _mm256_add_pd(s3, widened(a + 12));
      t0 = _mm256_add_pd(t0, absolute(_mm256_sub_pd(s0, t)));
      t1 = _mm256_add_pd(t1, absolute(_mm256_sub_pd(s1, t)));
      t2 = _mm256_add_pd(t2, absolute(_mm256_sub_pd(s2, t)));
      t3 = _mm256_add_pd(t3, absolute(_mm256_sub_pd(s3, t)));
    }
  }
  storeTotals(t0, t1, t2, t3, totals);
}

ORVANE_AVX2 void absoluteAvx2(const float* head, const float* tail, const SBlockRun* runs,
                              size_t runCount, const double* query, double* totals) {
  __m256d t0 = _mm256_setzero_pd(), t1 = t0, t2 = t0, t3 = t0;
  for (const SBlockRun* run = runs; run != runs + runCount; ++run) {
    const float* a = runStart(head, tail, *run);
    for (uint32_t e = 0; e < run->count; ++e, a += kBlockLanes) {
      prefetch(a);
      const __m256d b = _mm256_broadcast_sd(query++);
      t0 = _mm256_add_pd(t0, absolute(_mm256_sub_pd(widened(a), b)));
      t1 = _mm256_add_pd(t1, absolute(_mm256_sub_pd(widened(a + 4), b)));
      t2 = _mm256_add_pd(t2, absolute(_mm256_sub_pd(widened(a + 8), b)));
      t3 = _mm256_add_pd(t3, absolute(_mm256_sub_pd(widened(a + 12), b)));
    }
  }
  storeTotals(t0, t1, t2, t3, totals);
}

bool haveAvx2() {
  static const bool have = __builtin_cpu_supports("avx2");
  return have;
}

#endif

}  // namespace

ScanForm fastestScanForm() {
#if defined(ORVANE_BLOCK_AVX2)
  if (haveAvx2()) return ScanForm::kAvx2;
#endif
  return ScanForm::kPortable;
}

BlockKernel blockKernelOf(uint32_t kind, ScanForm form) {
  const bool avx2 = form == ScanForm::kAvx2 && fastestScanForm() == ScanForm::kAvx2;
#if defined(ORVANE_BLOCK_AVX2)
  if (avx2) {
    if (kind == 0) return cumulativeAvx2;
    if (kind == 2) return absoluteAvx2;
  }
#else
  (void)avx2;
#endif
  if (kind == 0) return cumulativePortable;
  if (kind == 2) return absolutePortable;
  return nullptr;
}
