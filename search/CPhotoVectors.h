// CPhotoVectors: the group vectors of many photos, as the matching database holds them, and
// the photos' ids. The vectors of a group lie one after another in one array, so a scan over
// one group reads memory in order.
//
// A vector is built from a signature exactly as a new database builds its own (same groups,
// same means, same normalisation), so scores computed from these vectors are the store's
// scores. Photos keep the order in which they came, and a removal moves the last photo into
// the gap as the store does: position i here is the store's item i after the same adds and
// removals.
#ifndef ORVANE_SEARCH_CPHOTOVECTORS_H_
#define ORVANE_SEARCH_CPHOTOVECTORS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "database/CSignatureDatabase.h"

class CAudioSignMulti;

class CPhotoVectors {
 public:
  // The groups of a new database, in its order: what each vector holds and how it scores.
  static const std::vector<CFeatureGroup>& groups();
  static size_t groupCount() { return groups().size(); }
  static uint32_t vectorLength(size_t group);
  // Floats of one photo over all groups.
  static uint32_t photoFloats();

  size_t size() const { return ids.size(); }
  uint32_t id(size_t position) const { return ids[position]; }
  const float* vector(size_t group, size_t position) const {
    return data[group].data() + position * lengths[group];
  }

  void reserve(size_t photos);

  // Appends a photo under `id` from its signature. Fails, leaving the set as it was, with
  // the store's texts: "Wrong Feature Version" for a signature without the version "V6",
  // "addSignature Unknown Error" for the id 0 or a missing or short feature.
  void addSignature(const CAudioSignMulti& signature, uint32_t id);

  // addSignature for a signature given as its "VER" text and its features.
  void addFeatures(const std::string& version, const CSignatureDatabase::FeatureTiles& tiles,
                   uint32_t id);

  // Appends `count` photos whose vectors are ready: groupVectors[g] holds count vectors of
  // group g one after another.
  void addVectors(size_t count, const uint32_t* photoIds, const float* const* groupVectors);

  // Appends `count` photos under photoIds with vectors of zeros, and returns where the vectors
  // of each group begin, for the caller to fill.
  std::vector<float*> addSpace(size_t count, const uint32_t* photoIds);

  // Appends every photo of `other`.
  void addAll(const CPhotoVectors& other);

  // Takes out the first photo with this id, the last photo moving into its place; false
  // when there is none.
  bool removeId(uint32_t id);

 private:
  std::vector<uint32_t> ids;
  std::vector<std::vector<float>> data = std::vector<std::vector<float>>(groupCount());
  std::vector<uint32_t> lengths = allLengths();

  static std::vector<uint32_t> allLengths();
};

#endif  // ORVANE_SEARCH_CPHOTOVECTORS_H_
