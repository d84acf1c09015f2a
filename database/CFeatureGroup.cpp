#include "database/CFeatureGroup.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "database/DatabaseErrors.h"

namespace {

// Stored vectors scored per call of a many-vector kernel: enough to keep its lanes busy,
// small enough for the stack.
constexpr size_t kScanChunk = 64;

// A signature without the group's feature. Not a failure text of its own: the callers turn
// it into their "Unknown Error".
[[noreturn]] void missingFeature() { throw std::invalid_argument("feature missing"); }

}  // namespace

void CFeatureGroup::init(const SFeatureGroupDef& def, uint32_t reserveCount) {
  name = def.name;
  featureName = def.featureName;
  reserved0 = def.reserved0;
  normalise = def.normalise;
  reserved1 = def.reserved1;
  vectorLength = def.vectorLength;
  reserved2 = def.reserved2;
  binsPerTile = def.binsPerTile;
  tilesX = def.tilesX;
  tilesY = def.tilesY;
  meanRows = def.meanRows;
  meansKind = def.meansKind;
  weightKey = def.weightKey;
  groupWeight = def.groupWeight;
  weightValue = def.weightValue;
  nameList = def.nameList;
  distanceRows = def.distanceRows;
  normTable = def.normTable;

  items.clear();
  if (reserveCount != 0 && reserveCount > items.capacity()) items.reserve(reserveCount);

  if (meansKind == 0) {
    makeMeans = MakeMeans3;
  } else if (meansKind == 1) {
    makeMeans = MakeMeans16;
  }

  distanceFunctions.clear();
  for (const SDistanceRow& row : distanceRows) {
    if (DistanceFunction function = distanceFunctionOfKind(row.kind)) {
      distanceFunctions.push_back(function);
    }
  }
  scale = weightValue * groupWeight;
}

// Normalisation is a float division per entry (exactly what a double division rounded to
// float gives).
void CFeatureGroup::makeVector(HeapMatrix<float>& out, const float* tiles) const {
  const uint32_t n = (tilesX * tilesY + meanRows) * binsPerTile;
  out.Resize(1, n);
  float* v = out.m_data;
  std::copy(tiles, tiles + tileValues(), v);
  // A group without a means writer (one that no definition set up) cannot build vectors.
  if (makeMeans == nullptr) throw std::logic_error("no means writer");
  makeMeans(v, tilesX, tilesY, binsPerTile, v + tileValues(), meanRows);
  if (normalise == 1) {
    // Bounded by the vector and the table, so a definition with a longer vectorLength cannot
    // reach past either.
    const uint32_t count = std::min({vectorLength, n, normTable.m_size});
    for (uint32_t i = 0; i < count; ++i) {
      if (normTable.m_data[i] != 0.0f) v[i] /= normTable.m_data[i];
    }
  }
}

void CFeatureGroup::add(const float* tiles, uint32_t idLow, uint32_t idHigh,
                             uint32_t tag) {
  if (tiles == nullptr) missingFeature();
  if (idLow == 0 && idHigh == 0) throw std::string(kAddWithoutId);
  items.emplace_back(static_cast<uint32_t>(items.size()), idLow, idHigh, tag);
  try {
    makeVector(items.back().vector, tiles);
  } catch (...) {
    items.pop_back();
    throw;
  }
}

// score = (float)(d * scale), with d the double distance and scale widened to double.
const std::vector<SClassifyResult>& CFeatureGroup::classify(const float* tiles, int mode) {
  if (items.empty()) throw std::string(kClassifyEmptyGroup);
  if (tiles == nullptr) missingFeature();
  HeapMatrix<float> query;
  makeVector(query, tiles);
  results.assign(items.size(), SClassifyResult());

  uint32_t m = static_cast<uint32_t>(mode);
  if (m > distanceRows.size()) m = 1;
  // A mode equal to the number of rows, or a function list shorter than the rows (a kind
  // above 5 in the table), leaves no distance to call: refused rather than read past a list.
  if (m >= distanceRows.size() || m >= distanceFunctions.size()) {
    throw std::string(kClassifyError);
  }
  const SDistanceRow& row = distanceRows[m];
  const DistanceKernelMany many = distanceManyOf(distanceFunctions[m]);
  if (many == nullptr) throw std::string(kClassifyError);
  const double widenedScale = static_cast<double>(scale);

  const float* stored[kScanChunk];
  uint32_t storedLength[kScanChunk];
  double distance[kScanChunk];
  for (size_t start = 0; start < items.size(); start += kScanChunk) {
    const size_t count = std::min(kScanChunk, items.size() - start);
    for (size_t j = 0; j < count; ++j) {
      const HeapMatrix<float>& v = items[start + j].vector;
      stored[j] = v.m_data;
      // A vector without a row (only a damaged stream leaves one) has nothing to compare.
      storedLength[j] = v.m_rows == 0 ? 0 : v.m_cols;
    }
    many(stored, storedLength, count, query.m_data, query.m_cols, row.start, row.end,
         binsPerTile, distance);
    for (size_t j = 0; j < count; ++j) {
      const SGroupItem& item = items[start + j];
      // An index outside the list can only come from a damaged stream.
      if (distance[j] == -1.0 || item.index >= results.size()) {
        throw std::string(kClassifyError);
      }
      SClassifyResult& result = results[item.index];
      result.idLow = item.idLow;
      result.idHigh = item.idHigh;
      result.score = static_cast<float>(distance[j] * widenedScale);
    }
  }
  return results;
}

void CFeatureGroup::remove(uint32_t idLow, uint32_t idHigh, bool& found, uint32_t& position) {
  if (items.empty()) throw std::string(kRemoveFromEmpty);
  if (!found) {
    const auto it = std::find_if(items.begin(), items.end(), [&](const SGroupItem& item) {
      return item.idLow == idLow && item.idHigh == idHigh;
    });
    if (it == items.end()) throw std::string(kIndexNotFound);
    position = static_cast<uint32_t>(it - items.begin());
    found = true;
  }
  // Groups out of step (only a damaged stream leaves them so) may not hold the position.
  if (position >= items.size()) throw std::string(kIndexNotFound);
  if (position + 1 != items.size()) {
    SGroupItem& gap = items[position];
    SGroupItem& last = items.back();
    gap.idLow = last.idLow;
    gap.idHigh = last.idHigh;
    gap.tag = last.tag;
    gap.index = position;
    swapStorage(gap.vector, last.vector);
  }
  items.pop_back();
}
