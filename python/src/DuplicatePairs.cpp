#include "DuplicatePairs.h"

#include <sstream>
#include <string>
#include <utility>

#include "database/CSignatureDatabase.h"
#include "database/SFeatureGroupDef.h"
#include "search/CPhotoVectors.h"
#include "search/CSearchEngine.h"

namespace {
constexpr char kMessageTag[] = "ORV1";

// The database's photos as the engine reads them, through its own stream.
CPhotoVectors photosOf(CFIDDatabase& database) {
  std::stringstream stream;
  database.save(stream);
  // The exported database keeps its store to itself; a store of our own reads its stream.
  CSignatureDatabase store(kMessageTag);
  try {
    std::vector<SFeatureGroupDef> definitions;
    buildFeatureGroupDefs(definitions);
    store.init(definitions, 0);
    store.loadFromStream(stream);
  } catch (const std::string& text) {
    throw FID_Exception(text);
  }

  CPhotoVectors photos;
  const size_t count = store.itemCount();
  photos.reserve(count);
  std::vector<std::vector<float>> vectors(store.groups.size());
  std::vector<const float*> rows(store.groups.size());
  for (size_t g = 0; g < rows.size(); ++g) {
    vectors[g].resize(store.groups[g].vectors.length());
    rows[g] = vectors[g].data();
  }
  for (size_t i = 0; i < count; ++i) {
    for (size_t g = 0; g < rows.size(); ++g) store.groups[g].vectors.read(i, vectors[g].data());
    const uint32_t id = store.groups[0].items[i].idLow;
    photos.addVectors(1, &id, rows.data());
  }
  return photos;
}

std::vector<std::tuple<int, int, float>> idsOf(const std::vector<SPhotoPair>& found,
                                               const CPhotoVectors& first,
                                               const CPhotoVectors& second) {
  std::vector<std::tuple<int, int, float>> pairs;
  pairs.reserve(found.size());
  for (const SPhotoPair& pair : found) {
    pairs.emplace_back(static_cast<int>(first.id(pair.first)),
                       static_cast<int>(second.id(pair.second)), pair.score);
  }
  return pairs;
}

}  // namespace

std::vector<std::tuple<int, int, float>> duplicatePairs(CFIDDatabase& database, unsigned threads) {
  const CSearchEngine engine(photosOf(database), threads);
  return idsOf(engine.samePhotoPairs(), engine.photos(), engine.photos());
}

std::vector<std::tuple<int, int, float>> duplicatePairs(CFIDDatabase& queries,
                                                        CFIDDatabase& stored, unsigned threads) {
  const CPhotoVectors photos = photosOf(queries);
  const CSearchEngine engine(photosOf(stored), threads);
  return idsOf(engine.samePhotoPairs(photos), photos, engine.photos());
}
