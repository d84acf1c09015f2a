#include "database/CGroupScan.h"

#include <algorithm>
#include <string>

#include "database/CFeatureGroup.h"
#include "database/DatabaseErrors.h"

namespace {

// Whether step k opens a window of `period` steps (with period 0, only k = 0 does), as the
// one-vector kernel decides it.
bool opensWindow(uint64_t k, uint32_t period) { return period == 0 ? k == 0 : k % period == 0; }

}  // namespace

CGroupScan::CGroupScan(const CFeatureGroup& group, const float* tiles, int mode, ScanForm form)
    : group(group) {
  group.makeVector(query, tiles);
  uint32_t m = static_cast<uint32_t>(mode);
  if (m > group.distanceRows.size()) m = 1;
  if (m >= group.distanceRows.size() || m >= group.distanceFunctions.size()) {
    throw std::string(kClassifyError);
  }
  const SDistanceRow& row = group.distanceRows[m];
  function = group.distanceFunctions[m];
  first = row.start;
  last = row.end;
  scale = static_cast<double>(group.scale);
  const CVectorBlocks& vectors = group.vectors;
  const uint32_t length = vectors.length();
  // Stored vectors and the query come from the same makeVector; a group changed behind
  // the store's back could break that, and is refused rather than read past.
  if (query.m_rows != 1 || query.m_cols != length) throw std::string(kClassifyError);

  const bool cumulative = function == distanceFunctionOfKind(kWindowedCumulativeDifference);
  const bool absolute = function == distanceFunctionOfKind(kMeanAbsoluteDifference);
  if (cumulative || absolute) {
    kernel = blockKernelOf(cumulative ? kWindowedCumulativeDifference : kMeanAbsoluteDifference,
                           form);
  }
  if (kernel == nullptr) {
    stored.resize(length);
    return;
  }
  // Both kinds refuse a range past the end of a vector: here, of every vector.
  if (last > length) throw std::string(kClassifyError);
  steps = static_cast<double>(last - first);
  const uint32_t period = group.binsPerTile;
  const uint32_t split = vectors.split();
  // Runs end at a window's end (kind 0) and at the end of the tiles region.
  for (uint64_t i = first; i < last;) {
    const uint64_t k = i - first;
    uint64_t end = last;
    if (cumulative && period != 0) end = std::min<uint64_t>(end, i + period - k % period);
    if (i < split) end = std::min<uint64_t>(end, split);
    const uint64_t entry = i < split ? i : i - split;
    runs.push_back({static_cast<uint32_t>(entry * kBlockLanes), static_cast<uint32_t>(end - i),
                    i >= split, cumulative && opensWindow(k, period)});
    i = end;
  }
  // Kind 0: the query's running sum t, t = 0 at a window's start, t += (double)b[i].
  // Kind 2: the query's entry (double)b[i].
  double t = 0.0;
  for (uint32_t i = first; i < last; ++i) {
    const double b = static_cast<double>(query.m_data[i]);
    if (!cumulative) {
      queryValues.push_back(b);
      continue;
    }
    if (opensWindow(i - first, period)) t = 0.0;
    t += b;
    queryValues.push_back(t);
  }
}

// share = (float)((total / (last - first)) * scale), all in double until the rounding.
void CGroupScan::scoreBlock(size_t block, size_t count, float* shares) {
  const CVectorBlocks& vectors = group.vectors;
  if (kernel != nullptr) {
    double totals[kBlockLanes];
    kernel(vectors.head(block), vectors.tail(block), runs.data(), runs.size(),
           queryValues.data(), totals);
    for (size_t j = 0; j < count; ++j) shares[j] = static_cast<float>(totals[j] / steps * scale);
    return;
  }
  const BaseVector<float> queryView(query.m_data, query.m_cols);
  for (size_t j = 0; j < count; ++j) {
    vectors.read(block * kBlockLanes + j, stored.data());
    const double d =
        function(BaseVector<float>(stored.data(), vectors.length()), queryView, first, last,
                 group.binsPerTile);
    if (d == -1.0) throw std::string(kClassifyError);
    shares[j] = static_cast<float>(d * scale);
  }
}
