#include "database/CFeatureGroup.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "database/CGroupScan.h"
#include "database/DatabaseErrors.h"

namespace {

// A signature without the group's feature. Not a failure text of its own: the callers turn
// it into their "Unknown Error".
[[noreturn]] void missingFeature() { throw std::invalid_argument("feature missing"); }

// Four floats divided as one (each quotient rounded as a float division alone).
using FourFloats = float __attribute__((vector_size(16)));

// v[i] /= table[i] where table[i] is not 0.
void divideWhereSet(float* v, const float* table, uint32_t count) {
  for (uint32_t i = 0; i < count; ++i) {
    if (table[i] != 0.0f) v[i] /= table[i];
  }
}

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
  vectors.setShape((tilesX * tilesY + meanRows) * binsPerTile, tileValues());
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
    const float* table = normTable.m_data;
    uint32_t i = 0;
    // Four entries whose divisors are all set are divided together, the rest one by one.
    for (; i + 4 <= count; i += 4) {
      if (table[i] != 0.0f && table[i + 1] != 0.0f && table[i + 2] != 0.0f &&
          table[i + 3] != 0.0f) {
        FourFloats values, divisors;
        std::memcpy(&values, v + i, sizeof values);
        std::memcpy(&divisors, table + i, sizeof divisors);
        values /= divisors;
        std::memcpy(v + i, &values, sizeof values);
      } else {
        divideWhereSet(v + i, table + i, 4);
      }
    }
    divideWhereSet(v + i, table + i, count - i);
  }
}

void CFeatureGroup::add(const float* tiles, uint32_t idLow, uint32_t idHigh, uint32_t tag) {
  if (tiles == nullptr) missingFeature();
  if (idLow == 0 && idHigh == 0) throw std::string(kAddWithoutId);
  makeVector(building, tiles);
  // Only a group changed since init could build a vector of another length.
  if (building.m_cols != vectors.length()) throw std::logic_error("vector length changed");
  append(SGroupItem(static_cast<uint32_t>(items.size()), idLow, idHigh, tag), building.m_data);
}

void CFeatureGroup::append(const SGroupItem& item, const float* vector) {
  vectors.append(vector);
  try {
    items.push_back(item);
  } catch (...) {
    vectors.popBack();
    throw;
  }
}

void CFeatureGroup::dropLast() {
  items.pop_back();
  vectors.popBack();
}

const std::vector<SClassifyResult>& CFeatureGroup::classify(const float* tiles, int mode) {
  if (items.empty()) throw std::string(kClassifyEmptyGroup);
  if (tiles == nullptr) missingFeature();
  CGroupScan scan(*this, tiles, mode, fastestScanForm());
  results.assign(items.size(), SClassifyResult());
  float shares[kBlockLanes];
  for (size_t block = 0; block < vectors.blockCount(); ++block) {
    const size_t start = block * kBlockLanes;
    const size_t count = std::min<size_t>(kBlockLanes, items.size() - start);
    scan.scoreBlock(block, count, shares);
    for (size_t j = 0; j < count; ++j) {
      SClassifyResult& result = results[start + j];
      result.idLow = items[start + j].idLow;
      result.idHigh = items[start + j].idHigh;
      result.score = shares[j];
    }
  }
  return results;
}

void CFeatureGroup::remove(uint32_t idLow, uint32_t idHigh, bool& found, uint32_t& position) {
  if (items.empty()) throw std::string(kRemoveFromEmpty);
  if (!found) {
    size_t at = 0;
    while (at < items.size() && (items[at].idLow != idLow || items[at].idHigh != idHigh)) ++at;
    if (at == items.size()) throw std::string(kIndexNotFound);
    position = static_cast<uint32_t>(at);
    found = true;
  }
  // Groups out of step (only a damaged stream leaves them so) may not hold the position.
  if (position >= items.size()) throw std::string(kIndexNotFound);
  if (position + 1 != items.size()) {
    SGroupItem& gap = items[position];
    const SGroupItem& last = items.back();
    gap.idLow = last.idLow;
    gap.idHigh = last.idHigh;
    gap.tag = last.tag;
    gap.index = position;
    vectors.copyLastTo(position);
  }
  dropLast();
}
