#include "search/CBoundEmbedding.h"

#include <algorithm>
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
// part + |group's entry e - x[e]| * factors[e], for the 8 rows of a group; without factors,
// the product by 1 that would change nothing is left out.
template <bool kWeighted>
__attribute__((target("avx2"), always_inline)) inline __m256 addEntry(__m256 part,
                                                                      const float* group,
                                                                      const float* x,
                                                                      const float* factors,
                                                                      size_t e) {
  __m256 difference = _mm256_andnot_ps(
      _mm256_set1_ps(-0.0f),
      _mm256_sub_ps(_mm256_loadu_ps(group + 8 * e), _mm256_broadcast_ss(x + e)));
  if (kWeighted) difference = _mm256_mul_ps(difference, _mm256_broadcast_ss(factors + e));
  return _mm256_add_ps(part, difference);
}

template <bool kWeighted>
__attribute__((target("avx2"))) void laneDistancesAvx2(const float* x, const float* groups,
                                                       size_t count, size_t dims,
                                                       const float* factors, float limit,
                                                       float* out) {
  const __m256 most = _mm256_set1_ps(limit);
  for (size_t g = 0; g < count; ++g) {
    const float* group = groups + g * dims * 8;
    __m256 p0 = _mm256_setzero_ps(), p1 = p0, p2 = p0, p3 = p0, sum = p0;
    for (size_t d = 0; d < dims; d += 8) {
      p0 = addEntry<kWeighted>(p0, group, x, factors, d);
      p1 = addEntry<kWeighted>(p1, group, x, factors, d + 1);
      p2 = addEntry<kWeighted>(p2, group, x, factors, d + 2);
      p3 = addEntry<kWeighted>(p3, group, x, factors, d + 3);
      p0 = addEntry<kWeighted>(p0, group, x, factors, d + 4);
      p1 = addEntry<kWeighted>(p1, group, x, factors, d + 5);
      p2 = addEntry<kWeighted>(p2, group, x, factors, d + 6);
      p3 = addEntry<kWeighted>(p3, group, x, factors, d + 7);
      sum = _mm256_add_ps(_mm256_add_ps(p0, p1), _mm256_add_ps(p2, p3));
      if (_mm256_movemask_ps(_mm256_cmp_ps(sum, most, _CMP_LE_OQ)) == 0) break;
    }
    _mm256_storeu_ps(out + 8 * g, sum);
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
    const uint32_t period = group.binsPerTile;
    if (row.end <= row.start || period == 0) throw std::logic_error("no bound for this range");
    // Mode 1 bounds take the mode-0 entries when its row compares the same coordinates over a
    // range that holds mode 0's: each entry then weighs (end0 - start0) / (end1 - start1), and
    // the rest of the range has entries of its own.
    const SDistanceRow& wide = group.distanceRows.at(1);
    const bool holds = wide.kind == row.kind && wide.start == row.start && wide.end >= row.end;
    const uint32_t length = row.end - row.start;
    const uint32_t wideLength = holds ? wide.end - wide.start : length;
    firstCoordinate.push_back(coordinates);
    coordinateCount.push_back(wideLength);
    coordinates += wideLength;
    if (coordinates > kMaxCoordinates) throw std::logic_error("no bound for this range");
    const size_t first = blocks[0].size();
    // One coordinate weighs the group's scale over the range length.
    addBlocks(0, g, 0, length, period,
              static_cast<double>(group.scale) / static_cast<double>(length));
    const float factor =
        holds ? static_cast<float>(static_cast<double>(length) / static_cast<double>(wideLength))
              : 0.0f;
    for (size_t d = first; d < blocks[0].size(); ++d) modeOne[d] = factor;
    addBlocks(1, g, length, wideLength, period,
              static_cast<double>(group.scale) / static_cast<double>(wideLength));
  }
}

void CBoundEmbedding::addBlocks(int part, uint32_t g, uint32_t from, uint32_t to,
                                uint32_t period, double weight) {
  const uint32_t parts = (period + kBlockCoordinates - 1) / kBlockCoordinates;
  for (uint32_t window = from; window < to; window += period) {
    const uint32_t span = std::min(to, window + period) - window;
    for (uint32_t k = 0; k < parts; ++k) {
      const uint32_t first = window + span * k / parts;
      const uint32_t last = window + span * (k + 1) / parts;
      if (last == first) continue;
      if (blocks[part].size() == (part == 0 ? kDims : kMeanDims)) {
        throw std::logic_error("embedding too short");
      }
      blocks[part].push_back({g, first, last - first, weight});
    }
  }
}

// Coordinates in double: x_i, or for a cumulative group the running sum of x within its
// window (restarting every binsPerTile entries from the range start, as the distance does),
// over mode 1's range where it holds mode 0's. E_B = (float)(w * sum of the block's
// coordinates); mass = sum of |E_B|.
double CBoundEmbedding::embed(const CPhotoVectors& photos, size_t position, float* row) const {
  const std::vector<CFeatureGroup>& groups = CPhotoVectors::groups();
  double x[kMaxCoordinates];
  for (size_t g = 0; g < groups.size(); ++g) {
    const CFeatureGroup& group = groups[g];
    const SDistanceRow& range = group.distanceRows[0];
    const float* v = photos.vector(g, position) + range.start;
    double* out = x + firstCoordinate[g];
    const uint32_t length = coordinateCount[g];
    if (range.kind == kMeanAbsoluteDifference) {
      for (uint32_t k = 0; k < length; ++k) out[k] = static_cast<double>(v[k]);
      continue;
    }
    for (uint32_t window = 0; window < length; window += group.binsPerTile) {
      double running = 0.0;
      for (uint32_t k = window; k < std::min(length, window + group.binsPerTile); ++k) {
        running += static_cast<double>(v[k]);
        out[k] = running;
      }
    }
  }
  double mass = 0.0;
  for (int part = 0; part < 2; ++part) {
    const size_t dims = part == 0 ? kDims : kMeanDims;
    float* entries = row + (part == 0 ? 0 : kDims);
    for (size_t d = 0; d < dims; ++d) {
      if (d >= blocks[part].size()) {
        entries[d] = 0.0f;
        continue;
      }
      const SBlock& block = blocks[part][d];
      const double* coordinates = x + firstCoordinate[block.group] + block.first;
      double sum = 0.0;
      for (uint32_t k = 0; k < block.count; ++k) sum += coordinates[k];
      entries[d] = static_cast<float>(sum * block.weight);
      mass += std::fabs(static_cast<double>(entries[d]));
    }
  }
  return mass;
}

// Each row sums its entries in four parts (entry e into part e % 4), combined as
// (p0 + p1) + (p2 + p3) after every 8 entries. Parts only grow, so a combined sum above the
// limit stays above it to the end.
void CBoundEmbedding::laneDistances(const float* x, const float* groups, size_t count,
                                    size_t dims, const float* factors, float limit,
                                    float* out, bool portable) {
#if defined(ORVANE_SEARCH_AVX2)
  if (!portable && haveAvx2()) {
    if (factors == nullptr) {
      laneDistancesAvx2<false>(x, groups, count, dims, factors, limit, out);
    } else {
      laneDistancesAvx2<true>(x, groups, count, dims, factors, limit, out);
    }
    return;
  }
#endif
  for (size_t g = 0; g < count; ++g) {
    const float* group = groups + g * dims * kLanes;
    for (size_t lane = 0; lane < kLanes; ++lane) {
      float part[4] = {0.0f, 0.0f, 0.0f, 0.0f};
      float sum = 0.0f;
      for (size_t d = 0; d < dims; d += 8) {
        for (size_t e = d; e < d + 8; ++e) {
          const float difference = std::fabs(group[kLanes * e + lane] - x[e]);
          part[e % 4] += factors == nullptr ? difference : difference * factors[e];
        }
        sum = (part[0] + part[1]) + (part[2] + part[3]);
      }
      out[kLanes * g + lane] = sum;
    }
  }
}
