// CSignatureDatabase: the signature store behind the exported database. It keeps the four
// feature groups side by side, one vector per stored signature in each, at the same
// position in all four; it scores a query against every stored signature (a full scan, no
// index) and ranks them by score, lower is closer.
//
// The signatures themselves are not kept, only their group vectors and id words. Every
// failure is a thrown std::string with a fixed text (DatabaseErrors.h). One thread at a
// time: a classification writes its results into members.
#ifndef ORVANE_DATABASE_CSIGNATUREDATABASE_H_
#define ORVANE_DATABASE_CSIGNATUREDATABASE_H_

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "database/CFeatureGroup.h"
#include "database/DistanceFunctions.h"
#include "database/SClassifyResult.h"
#include "database/SFeatureGroupDef.h"
#include "database/SGroupWeight.h"

class CSignatureDatabase {
 public:
  // What the store reads from a signature besides its version: the data of the float
  // feature of a given name, or null when the signature has no such feature or when it
  // holds fewer than `count` floats (a short feature would be read past its end).
  using FeatureTiles =
      std::function<const float*(const std::string& featureName, uint32_t count)>;

  // Accepts the feature version "V6"; weights 0.5 for keys 0 and 1; no groups yet.
  CSignatureDatabase();
  virtual ~CSignatureDatabase();

  // Empties the store, sets up one group per definition, each reserving room for
  // reserveCount items, then sets both weights to 50.
  void init(const std::vector<SFeatureGroupDef>& defs, uint32_t reserveCount);

  // Adds a signature, given as its "VER" text and its features, under the id words, one
  // vector in every group. On failure nothing is added. Fails with "Wrong Feature Version",
  // "addSignature without database initialized", or "addSignature Unknown Error" for the id
  // 0, 0, a missing feature or a failure in building a vector.
  void addFeatures(const std::string& version, const FeatureTiles& tiles, uint32_t idLow,
                   uint32_t idHigh, uint32_t tag);

  // Takes the first item with these id words out of every group, the last item moving into
  // its place.
  void removeSignature(uint32_t idLow, uint32_t idHigh);

  // Drops every item and every result; groups, versions and weights stay.
  void clearAll();

  // Number of stored signatures (items of the first group).
  uint32_t itemCount() const;

  // Scores every stored signature against the query in `mode` and returns them ranked,
  // lowest score first; equal scores keep the order of the items. The reference stays valid
  // until the next classification or clearAll. `chosen` is accepted for the exported
  // layer's sake and has no effect: each group's own table decides the distance.
  const std::vector<SClassifyResult>& classifyFeatures(const std::string& version,
                                                       const FeatureTiles& tiles, int mode,
                                                       DistanceFunction chosen);

  // Sets the weight of `key` from `percent` (clamped to 0..100, then / 100, and a fifth of
  // that for key 1) and refreshes the scale of every group.
  void setWeight(int32_t key, float percent);

  // The percent last set for `key`, unclamped; false, *percent untouched, for a key never set.
  bool getWeight(int32_t key, float* percent) const;

  // Number of leading results whose score is at most 0.07: the ones that count as the same
  // photo.
  static uint32_t countBelowThreshold(const std::vector<SClassifyResult>& ranked);

  std::map<int32_t, SGroupWeight> weights;
  std::vector<CFeatureGroup> groups;
  std::vector<std::string> versions;
  std::vector<std::vector<SClassifyResult>> groupResults;
  std::vector<SClassifyResult> finalResults;

 private:
  void requireKnownVersion(const std::string& version) const;
};

#endif  // ORVANE_DATABASE_CSIGNATUREDATABASE_H_
