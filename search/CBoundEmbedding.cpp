#include "search/CBoundEmbedding.h"

#include <cmath>
#include <stdexcept>

#include "database/CFeatureGroup.h"
#include "database/DistanceFunctions.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#include <immintrin.h>
#define ORVANE_SEARCH_AVX2 1
#endif

namespace {

// Coordinates per block at most: a tile of more bins is split into parts of this size or less.
constexpr uint32_t kBlockCoordinates = 8;


#if defined(ORVANE_SEARCH_AVX2)
__attribute__((target("avx2"))) void distancesAvx2(const float* x, const float* rows,
                                                   size_t count, const float* factors,
                                                   float* out) {
  constexpr size_t kVectors = CBoundEmbedding::kDims / 8;
  const __m256 sign = _mm256_set1_ps(-0.0f);
  __m256 xv[kVectors];
  __m256 fv[kVectors];
  for (size_t v = 0; v < kVectors; ++v) {
    xv[v] = _mm256_loadu_ps(x + 8 * v);
    fv[v] = _mm256_loadu_ps(factors + 8 * v);
  }
  for (size_t k = 0; k < count; ++k) {
    const float* row = rows + k * CBoundEmbedding::kDims;
    __m256 sum = _mm256_setzero_ps();
    for (size_t v = 0; v < kVectors; ++v) {
      const __m256 d = _mm256_andnot_ps(sign, _mm256_sub_ps(_mm256_loadu_ps(row + 8 * v), xv[v]));
      sum = _mm256_add_ps(sum, _mm256_mul_ps(d, fv[v]));
    }
    const __m128 half = _mm_add_ps(_mm256_castps256_ps128(sum), _mm256_extractf128_ps(sum, 1));
    const __m128 pair = _mm_add_ps(half, _mm_movehl_ps(half, half));
    out[k] = _mm_cvtss_f32(_mm_add_ss(pair, _mm_shuffle_ps(pair, pair, 1)));
  }
}

bool haveAvx2() {
  static const bool have = __builtin_cpu_supports("avx2");
  return have;
}
#endif

}  // namespace

CBoundEmbedding::CBoundEmbedding()
    : ones(kDims, 1.0f), modeOne(kDims, 0.0f) {
  const std::vector<CFeatureGroup>& groups = CPhotoVectors::groups();
  uint32_t coordinates = 0;
  for (uint32_t g = 0; g < groups.size(); ++g) {
    const CFeatureGroup& group = groups[g];
    const SDistanceRow& row = group.distanceRows.at(0);
    if (row.kind != kWindowedCumulativeDifference && row.kind != kMeanAbsoluteDifference) {
      throw std::logic_error("no bound for this distance");
    }
    // Mode 1 bounds scale mode-0 entries when its row compares the same coordinates over a
    // range that holds mode 0's: each entry then weighs (end0 - start0) / (end1 - start1).
    const SDistanceRow& wide = group.distanceRows.at(1);
    const float factor = wide.kind == row.kind && wide.start == row.start && wide.end >= row.end
                             ? static_cast<float>(static_cast<double>(row.end - row.start) /
                                                  static_cast<double>(wide.end - wide.start))
                             : 0.0f;
    // One coordinate weighs the group's scale over its mode-0 range length.
    weights.push_back(static_cast<double>(group.scale) / static_cast<double>(row.end - row.start));
    firstCoordinate.push_back(coordinates);
    coordinates += row.end - row.start;
    if (row.end <= row.start || coordinates > kMaxCoordinates) {
      throw std::logic_error("no bound for this range");
    }
    const uint32_t period = group.binsPerTile;
    if (period == 0) throw std::logic_error("no bound for this range");
    const uint32_t parts = (period + kBlockCoordinates - 1) / kBlockCoordinates;
    for (uint32_t tile = 0; tile < row.end - row.start; tile += period) {
      for (uint32_t part = 0; part < parts; ++part) {
        const uint32_t first = tile + period * part / parts;
        const uint32_t last = tile + period * (part + 1) / parts;
        if (blocks.size() == kDims) throw std::logic_error("embedding too short");
        modeOne[blocks.size()] = factor;
        blocks.push_back({g, first, last - first});
      }
    }
  }
}

// Coordinates in double: x_i, or for a cumulative group the running sum of x within its tile
// (restarting every binsPerTile entries from the range start, as the distance does).
// E_B = (float)(w * sum of the block's coordinates); mass = sum of |E_B|.
double CBoundEmbedding::embed(const CPhotoVectors& photos, size_t position, float* row) const {
  const std::vector<CFeatureGroup>& groups = CPhotoVectors::groups();
  double x[kMaxCoordinates];
  for (size_t g = 0; g < groups.size(); ++g) {
    const CFeatureGroup& group = groups[g];
    const SDistanceRow& range = group.distanceRows[0];
    const float* v = photos.vector(g, position) + range.start;
    double* out = x + firstCoordinate[g];
    const uint32_t length = range.end - range.start;
    if (range.kind == kMeanAbsoluteDifference) {
      for (uint32_t k = 0; k < length; ++k) out[k] = static_cast<double>(v[k]);
      continue;
    }
    double running = 0.0;
    for (uint32_t k = 0; k < length; ++k) {
      if (k % group.binsPerTile == 0) running = 0.0;
      running += static_cast<double>(v[k]);
      out[k] = running;
    }
  }
  double mass = 0.0;
  for (size_t d = 0; d < kDims; ++d) {
    if (d >= blocks.size()) {
      row[d] = 0.0f;
      continue;
    }
    const SBlock& block = blocks[d];
    const double* coordinates = x + firstCoordinate[block.group] + block.first;
    double sum = 0.0;
    for (uint32_t k = 0; k < block.count; ++k) sum += coordinates[k];
    row[d] = static_cast<float>(sum * weights[block.group]);
    mass += std::fabs(static_cast<double>(row[d]));
  }
  return mass;
}

void CBoundEmbedding::distances(const float* x, const float* rows, size_t count,
                                const float* factors, float* out) {
#if defined(ORVANE_SEARCH_AVX2)
  if (haveAvx2()) {
    distancesAvx2(x, rows, count, factors, out);
    return;
  }
#endif
  for (size_t k = 0; k < count; ++k) {
    const float* row = rows + k * kDims;
    float sum = 0.0f;
    for (size_t d = 0; d < kDims; ++d) sum += std::fabs(row[d] - x[d]) * factors[d];
    out[k] = sum;
  }
}
