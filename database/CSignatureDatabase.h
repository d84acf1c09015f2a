// CSignatureDatabase: the signature store behind the exported database. It keeps the four
// feature groups side by side, one vector per stored signature in each, at the same
// position in all four; it scores a query against every stored signature (a full scan, no
// index) and ranks them by score, lower is closer.
//
// The signatures themselves are not kept, only their group vectors and id words. Every
// failure is a thrown std::string with a fixed text (DatabaseErrors.h). One thread at a
// time: a classification writes its results into members.
//
// The store saves itself to a stream and loads itself back as one typed message headed
// "ORV1" (doc/formats.md, "Database stream"): versions, weights and the ready vectors of
// every group, not the group definitions. A load always ends with both weights at 0.5.
#ifndef ORVANE_DATABASE_CSIGNATUREDATABASE_H_
#define ORVANE_DATABASE_CSIGNATUREDATABASE_H_

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <string>
#include <vector>

#include "database/BlockKernels.h"
#include "database/CFeatureGroup.h"
#include "database/CMessageObject.h"
#include "database/DistanceFunctions.h"
#include "database/SClassifyResult.h"
#include "database/SFeatureGroupDef.h"
#include "database/SGroupWeight.h"
#include "signature/CAudioSignMulti.h"

// What a caller will read of a ranking; only that much is put in order.
struct SRankCut {
  uint32_t maxResults = 0;     // the best this many; 0 for all
  bool samePhotoOnly = false;  // only the scores of at most 0.07, whatever maxResults says
};

class CSignatureDatabase : public CMessageObject {
 public:
  // What the store reads from a signature besides its version: the data of the float
  // feature of a given name, or null when the signature has no such feature or when it
  // holds fewer than `count` floats (a short feature would be read past its end).
  using FeatureTiles =
      std::function<const float*(const std::string& featureName, uint32_t count)>;

  // Accepts the feature version "V6"; weights 0.5 for keys 0 and 1; no groups yet.
  // Saved messages are headed by `messageTag`, four characters ("ORV1" by default).
  CSignatureDatabase();
  explicit CSignatureDatabase(const char* messageTag);
  ~CSignatureDatabase() override;

  // Empties the store, sets up one group per definition, each reserving room for
  // reserveCount items, then sets both weights to 50.
  void init(const std::vector<SFeatureGroupDef>& defs, uint32_t reserveCount);

  // Adds a signature under the id words, one vector in every group. On failure nothing is
  // added. Fails with "Wrong Feature Version" (no "VER" frame "V6", or no signature at all),
  // "addSignature without database initialized", or "addSignature Unknown Error" for the id
  // 0, 0, a missing or short feature or a failure in building a vector.
  void addSignature(const CAudioSignMulti& signature, uint32_t idLow, uint32_t idHigh,
                    uint32_t tag);

  // addSignature for a signature given as its "VER" text and its features.
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
  // lowest score first; equal scores keep the order of the items. Only the leading entries
  // that `cut` names are returned. The reference stays valid until the next classification
  // or clearAll. `chosen` is accepted for the exported layer's sake and has no effect: each
  // group's own table decides the distance. Fails with "Wrong Feature Version",
  // "classifyFloat without database initialized", "classifyFloat with 0 items in
  // databases", "classify called to empty database", "Error classifing" (a row that leaves
  // no distance) or "classifyFloat Error Unknown Error" (a missing or short feature, groups
  // out of step, anything else); the previous results then stay.
  const std::vector<SClassifyResult>& classifyFloat(const CAudioSignMulti& signature, int mode,
                                                    DistanceFunction chosen,
                                                    const SRankCut& cut = SRankCut());

  // classifyFloat for a query given as its "VER" text and its features.
  const std::vector<SClassifyResult>& classifyFeatures(const std::string& version,
                                                       const FeatureTiles& tiles, int mode,
                                                       DistanceFunction chosen,
                                                       const SRankCut& cut = SRankCut());

  // Sets the weight of `key` from `percent` (clamped to 0..100, then / 100, and a fifth of
  // that for key 1) and refreshes the scale of every group.
  void setWeight(int32_t key, float percent);

  // The percent last set for `key`, unclamped; false, *percent untouched, for a key never set.
  bool getWeight(int32_t key, float* percent) const;

  // Number of leading results whose score is at most 0.07: the ones that count as the same
  // photo.
  static uint32_t countBelowThreshold(const std::vector<SClassifyResult>& ranked);

  // Nothing to prepare.
  void prepare() override;
  // Writes versions, weights and every group's items, in the order unpack reads them.
  void pack() override;
  // Clears the store and reads it back. Versions are replaced, weights merged by key. A
  // damaged message throws, leaving what was read before the damage; so does one that does
  // not fit this store: a group count other than the store's, an item index other than its
  // position, a vector shape other than its group's, or a count larger than the message
  // could hold.
  void unpack() override;

  // Writes the stream: the message's size as 4 bytes, big-endian, then the message. Returns
  // the bytes written. Any failure becomes "Error OStreaming Database", the store unchanged.
  uint32_t saveToStream(std::ostream& out);
  // Reads a stream written by saveToStream and returns 4 plus the size it announces. A
  // stream with another header, or a damaged one, is not reported (see unpack); a short
  // stream is read as far as it goes. Then both weights are set to 0.5, whatever the stream
  // held. A failure of the stream itself becomes "Error IStreaming Database", the store
  // unchanged.
  uint32_t loadFromStream(std::istream& in);

  std::map<int32_t, SGroupWeight> weights;
  std::vector<CFeatureGroup> groups;
  std::vector<std::string> versions;
  std::vector<SClassifyResult> finalResults;
  // The form of the scan's kernels: the fastest by default; both give the same bits.
  ScanForm scanForm = fastestScanForm();

 private:
  // Sums every item's group shares into `scores`, block by block.
  void scoreAll(const FeatureTiles& tiles, int mode);
  // Puts the entries of `scores` that `cut` names into finalResults, ranked.
  void rank(const SRankCut& cut);
  size_t packedSize() const;
  void requireKnownVersion(const std::string& version) const;

  // The score of every item of the last classification, by position.
  std::vector<float> scores;
  // The ranking's entries and its room to sort through, kept from one classification to the
  // next: buffers taken afresh for every query would have their pages faulted in each time.
  std::vector<uint64_t> rankEntries;
  std::vector<uint64_t> rankSpare;
  // The tiles of the signature being added, by group.
  std::vector<const float*> addedTiles;
};

#endif  // ORVANE_DATABASE_CSIGNATUREDATABASE_H_
