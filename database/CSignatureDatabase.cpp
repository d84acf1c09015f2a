#include "database/CSignatureDatabase.h"

#include <algorithm>
#include <exception>
#include <iostream>

#include "database/DatabaseErrors.h"
#include "vexl/ByteOrder.h"

namespace {

// The one feature version that signatures of this library carry.
constexpr char kFeatureVersion[] = "V6";

// Scores at or below this count as the same photo.
constexpr double kSamePhotoThreshold = 0.07;

// Unsigned keys that order like the float scores under `<`: negative scores below positive
// ones, -0 with +0, and NaN (only a NaN weight or a damaged stream makes one) after all.
uint32_t orderKey(float score) {
  if (score != score) return UINT32_MAX;
  const uint32_t bits = score == 0.0f ? 0u : floatBits(score);
  return (bits & 0x80000000u) != 0 ? ~bits : bits | 0x80000000u;
}

float scoreOfKey(uint32_t key) {
  return floatFromBits((key & 0x80000000u) != 0 ? key & 0x7fffffffu : ~key);
}

// Sorts entries (key << 32 | position) by key, stably: a least-significant-digit radix
// sort over the key's four bytes, skipping a byte that all keys share. Entries that come in
// position order leave with equal keys in position order.
void sortByKeyStably(std::vector<uint64_t>& entries) {
  std::vector<uint64_t> spare(entries.size());
  for (int shift = 32; shift < 64; shift += 8) {
    size_t start[257] = {};
    for (uint64_t e : entries) ++start[((e >> shift) & 0xff) + 1];
    if (std::find(start + 1, start + 257, entries.size()) != start + 257) continue;
    for (size_t b = 1; b < 257; ++b) start[b] += start[b - 1];
    for (uint64_t e : entries) spare[start[(e >> shift) & 0xff]++] = e;
    entries.swap(spare);
  }
}

}  // namespace

CSignatureDatabase::CSignatureDatabase() : versions{kFeatureVersion} {
  setWeight(0, 0.5f);
  setWeight(1, 0.5f);
}

CSignatureDatabase::~CSignatureDatabase() = default;

void CSignatureDatabase::init(const std::vector<SFeatureGroupDef>& defs, uint32_t reserveCount) {
  clearAll();
  groups.resize(defs.size());
  groupResults.resize(defs.size());
  for (size_t g = 0; g < defs.size(); ++g) groups[g].init(defs[g], reserveCount);
  setWeight(0, 50.0f);
  setWeight(1, 50.0f);
}

void CSignatureDatabase::requireKnownVersion(const std::string& version) const {
  if (std::find(versions.begin(), versions.end(), version) == versions.end()) {
    throw std::string(kWrongFeatureVersion);
  }
}

// The item goes into every group or into none: a failing group's add leaves its own list as
// it was, and the groups before it drop the item they took, so the lists stay in step.
void CSignatureDatabase::addFeatures(const std::string& version, const FeatureTiles& tiles,
                                     uint32_t idLow, uint32_t idHigh, uint32_t tag) {
  try {
    requireKnownVersion(version);
    if (groups.empty()) throw std::string(kAddWithoutInit);
    size_t added = 0;
    try {
      for (; added < groups.size(); ++added) {
        CFeatureGroup& group = groups[added];
        group.add(tiles(group.featureName, group.tileValues()), idLow, idHigh, tag);
      }
    } catch (...) {
      // Even the group's own id check ends here: a caller sees only this text.
      for (size_t g = 0; g < added; ++g) groups[g].items.pop_back();
      throw std::string(kAddUnknownError);
    }
  } catch (const std::exception& e) {
    throw std::string(e.what());
  }
}

void CSignatureDatabase::removeSignature(uint32_t idLow, uint32_t idHigh) {
  bool found = false;
  uint32_t position = 0;
  for (CFeatureGroup& group : groups) group.remove(idLow, idHigh, found, position);
}

void CSignatureDatabase::clearAll() {
  for (CFeatureGroup& group : groups) {
    group.items.clear();
    group.results.clear();
  }
  finalResults.clear();
}

uint32_t CSignatureDatabase::itemCount() const {
  if (groups.empty()) throw std::string(kNoDatabase);
  return static_cast<uint32_t>(groups[0].items.size());
}

// score_i = (((0 + s_0i) + s_1i) + s_2i) + s_3i, each addition rounded to float, groups in
// order. The ranking is ascending by score and stable: equal scores keep the order of the
// items, so a ranking is reproducible run after run.
const std::vector<SClassifyResult>& CSignatureDatabase::classifyFeatures(
    const std::string& version, const FeatureTiles& tiles, int mode,
    DistanceFunction /*chosen*/) {
  try {
    requireKnownVersion(version);
    if (groups.empty()) throw std::string(kClassifyWithoutInit);
    if (groups[0].items.empty()) throw std::string(kClassifyNoItems);
    groupResults.resize(groups.size());
    for (size_t g = 0; g < groups.size(); ++g) {
      CFeatureGroup& group = groups[g];
      groupResults[g] = group.classify(tiles(group.featureName, group.tileValues()), mode);
      // Groups out of step (only a damaged stream leaves them so) cannot be summed.
      if (groupResults[g].size() != groupResults[0].size()) {
        throw std::string(kClassifyUnknownError);
      }
    }
    const std::vector<SClassifyResult>& ids = groupResults[0];
    std::vector<uint64_t> ranked(ids.size());
    for (size_t i = 0; i < ids.size(); ++i) {
      float score = 0.0f;
      for (const std::vector<SClassifyResult>& results : groupResults) score += results[i].score;
      ranked[i] = uint64_t{orderKey(score)} << 32 | i;
    }
    sortByKeyStably(ranked);
    finalResults.resize(ids.size());
    for (size_t j = 0; j < ranked.size(); ++j) {
      finalResults[j] = ids[static_cast<uint32_t>(ranked[j])];
      finalResults[j].score = scoreOfKey(static_cast<uint32_t>(ranked[j] >> 32));
    }
    return finalResults;
  } catch (const std::string&) {
    throw;
  } catch (...) {
    throw std::string(kClassifyUnknownError);
  }
}

// c = percent clamped to [0, 100]; s = (float)(c * 0.01); weight = s, or (float)(s * 0.2)
// for key 1 (the edge group enters at a fifth); scale = weightValue * groupWeight in float.
void CSignatureDatabase::setWeight(int32_t key, float percent) {
  float clamped = percent;
  if (clamped > 100.0f) clamped = 100.0f;
  if (clamped < 0.0f) clamped = 0.0f;
  const float s = static_cast<float>(static_cast<double>(clamped) * 0.01);
  SGroupWeight& entry = weights[key];
  entry.percent = percent;
  entry.weight = key == 1 ? static_cast<float>(static_cast<double>(s) * 0.2) : s;
  for (CFeatureGroup& group : groups) {
    const auto it = weights.find(group.weightKey);
    if (it == weights.end()) {
      std::cerr << kGroupNotExist << '\n';
      continue;
    }
    group.weightValue = it->second.weight;
    group.scale = group.weightValue * group.groupWeight;
  }
}

bool CSignatureDatabase::getWeight(int32_t key, float* percent) const {
  const auto it = weights.find(key);
  if (it == weights.end()) return false;
  *percent = it->second.percent;
  return true;
}

uint32_t CSignatureDatabase::countBelowThreshold(const std::vector<SClassifyResult>& ranked) {
  uint32_t count = 0;
  while (count < ranked.size() &&
         static_cast<double>(ranked[count].score) <= kSamePhotoThreshold) {
    ++count;
  }
  return count;
}
