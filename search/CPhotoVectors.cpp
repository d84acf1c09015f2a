#include "search/CPhotoVectors.h"

#include <algorithm>
#include <cstdint>
#include <string>

#if defined(__linux__)
#include <sys/mman.h>
#endif

#include "database/CSignatureDatabase.h"
#include "database/DatabaseErrors.h"
#include "feature/CFeatureObject.h"
#include "signature/CAudioSignMulti.h"
#include "signature/CSignDataMulti.h"

namespace {

// A new database: its groups give the vectors' layout, means, normalisation and scales.
const CSignatureDatabase& newDatabase() {
  static CSignatureDatabase database;
  static const bool ready = [] {
    std::vector<SFeatureGroupDef> defs;
    buildFeatureGroupDefs(defs);
    database.init(defs, 0);
    return true;
  }();
  (void)ready;
  return database;
}

// Backs the whole pages of [data, data + bytes) with memory at once: one call instead of a
// page fault per page when a library's vectors are read in, which took most of the time of
// reading them. Only a hint; nothing changes where the system cannot do it.
void populate(const void* data, size_t bytes) {
#if defined(__linux__) && defined(MADV_POPULATE_WRITE)
  constexpr uintptr_t kPage = 4096;
  const uintptr_t begin = (reinterpret_cast<uintptr_t>(data) + kPage - 1) & ~(kPage - 1);
  const uintptr_t end = (reinterpret_cast<uintptr_t>(data) + bytes) & ~(kPage - 1);
  if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_POPULATE_WRITE);
#else
  (void)data;
  (void)bytes;
#endif
}

}  // namespace

const std::vector<CFeatureGroup>& CPhotoVectors::groups() { return newDatabase().groups; }

uint32_t CPhotoVectors::vectorLength(size_t group) {
  const CFeatureGroup& g = groups()[group];
  return (g.tilesX * g.tilesY + g.meanRows) * g.binsPerTile;
}

uint32_t CPhotoVectors::photoFloats() {
  uint32_t floats = 0;
  for (size_t g = 0; g < groupCount(); ++g) floats += vectorLength(g);
  return floats;
}

std::vector<uint32_t> CPhotoVectors::allLengths() {
  std::vector<uint32_t> all;
  for (size_t g = 0; g < groupCount(); ++g) all.push_back(vectorLength(g));
  return all;
}

void CPhotoVectors::reserve(size_t photos) {
  ids.reserve(photos);
  for (size_t g = 0; g < data.size(); ++g) {
    data[g].reserve(photos * lengths[g]);
    populate(data[g].data() + data[g].size(),
             (data[g].capacity() - data[g].size()) * sizeof(float));
  }
}

void CPhotoVectors::addSignature(const CAudioSignMulti& signature, uint32_t id) {
  const CSignDataMulti* data = signature.getData();
  char version[256] = "";
  if (data != nullptr) data->getMeta("VER", version, sizeof version);
  addFeatures(version, [data](const std::string& name, uint32_t count) -> const float* {
    const CFeatureObject<float>* feature = data->getFeature(name.c_str());
    if (feature == nullptr) return nullptr;
    const HeapMatrix<float>& values = feature->m_matrix;
    return uint64_t{values.m_rows} * values.m_cols < count ? nullptr : values.m_data;
  }, id);
}

// The checks and their order are the store's add: version first, then each group's feature.
void CPhotoVectors::addFeatures(const std::string& version,
                                const CSignatureDatabase::FeatureTiles& tiles, uint32_t id) {
  const std::vector<std::string>& versions = newDatabase().versions;
  if (std::find(versions.begin(), versions.end(), version) == versions.end()) {
    throw std::string(kWrongFeatureVersion);
  }
  if (id == 0) throw std::string(kAddUnknownError);
  std::vector<HeapMatrix<float>> built(groupCount());
  std::vector<const float*> rows(groupCount());
  for (size_t g = 0; g < groupCount(); ++g) {
    const CFeatureGroup& group = groups()[g];
    const float* groupTiles = tiles(group.featureName, group.tileValues());
    if (groupTiles == nullptr) throw std::string(kAddUnknownError);
    group.makeVector(built[g], groupTiles);
    rows[g] = built[g].m_data;
  }
  addVectors(1, &id, rows.data());
}

void CPhotoVectors::addVectors(size_t count, const uint32_t* photoIds,
                               const float* const* groupVectors) {
  ids.insert(ids.end(), photoIds, photoIds + count);
  for (size_t g = 0; g < data.size(); ++g) {
    data[g].insert(data[g].end(), groupVectors[g], groupVectors[g] + count * lengths[g]);
  }
}

std::vector<float*> CPhotoVectors::addSpace(size_t count, const uint32_t* photoIds) {
  const size_t first = ids.size();
  ids.insert(ids.end(), photoIds, photoIds + count);
  std::vector<float*> space;
  for (size_t g = 0; g < data.size(); ++g) {
    data[g].resize(data[g].size() + count * lengths[g]);
    space.push_back(data[g].data() + first * lengths[g]);
  }
  return space;
}

void CPhotoVectors::addAll(const CPhotoVectors& other) {
  ids.insert(ids.end(), other.ids.begin(), other.ids.end());
  for (size_t g = 0; g < data.size(); ++g) {
    data[g].insert(data[g].end(), other.data[g].begin(), other.data[g].end());
  }
}

bool CPhotoVectors::removeId(uint32_t id) {
  const auto found = std::find(ids.begin(), ids.end(), id);
  if (found == ids.end()) return false;
  const size_t position = static_cast<size_t>(found - ids.begin());
  const size_t last = ids.size() - 1;
  ids[position] = ids[last];
  ids.pop_back();
  for (size_t g = 0; g < data.size(); ++g) {
    std::vector<float>& v = data[g];
    std::copy(v.begin() + last * lengths[g], v.end(), v.begin() + position * lengths[g]);
    v.resize(last * lengths[g]);
  }
  return true;
}
