// CFeatureGroup: one column of the matching database. It reads one feature out of every
// signature, turns its tiles into a group vector (tiles, then coarser means, then optional
// normalisation), keeps one such vector per stored signature, and scores a query against
// all of them with the distance its table gives for the mode.
//
// Stored vectors and queries go through the same makeVector, so they are always comparable;
// the stored ones are kept ready, laid out for the scan (CVectorBlocks), so a comparison
// costs only the distance loop.
#ifndef ORVANE_DATABASE_CFEATUREGROUP_H_
#define ORVANE_DATABASE_CFEATUREGROUP_H_

#include <cstdint>
#include <string>
#include <vector>

#include "database/CVectorBlocks.h"
#include "database/CGroupItems.h"
#include "database/DistanceFunctions.h"
#include "database/GroupMeans.h"
#include "database/SClassifyResult.h"
#include "database/SFeatureGroupDef.h"
#include "vexl/base_vector.h"
#include "vexl/heap_matrix.h"

class CFeatureGroup {
 public:
  // Copies every field of `def`, empties `items` and, when reserveCount is not 0 and exceeds
  // the present capacity, makes room for reserveCount items. Selects makeMeans by
  // meansKind (any other value leaves it), fills distanceFunctions from the kinds of
  // distanceRows (a kind above 5 adds nothing) and sets scale = weightValue * groupWeight.
  void init(const SFeatureGroupDef& def, uint32_t reserveCount);

  // Number of tile values that a feature of this group holds: binsPerTile * tilesX * tilesY.
  uint32_t tileValues() const { return binsPerTile * tilesX * tilesY; }

  // Fills `out` with the one-row group vector of a feature's tiles: the
  // binsPerTile * tilesX * tilesY tile values, then the means rows, then, when normalise is
  // exactly 1, entry i divided by normTable[i] for i < vectorLength where the table is not 0.
  // The storage of `out` is only replaced when it is too small.
  // REQUIRES: tiles holds tileValues() floats.
  void makeVector(HeapMatrix<float>& out, const float* tiles) const;

  // Appends an item with the next index, the id words and the vector of `tiles`. Refuses a
  // missing feature (tiles null) and the id 0, 0; on any failure the group is as before.
  void add(const float* tiles, uint32_t idLow, uint32_t idHigh, uint32_t tag);

  // Appends an item whose vector is ready.
  // REQUIRES: vector holds vectors.length() floats.
  void append(const SGroupItem& item, const float* vector);

  // Drops the last item and its vector.
  // REQUIRES: items is not empty.
  void dropLast();

  // Scores the query tiles against every item with the distance of row `mode` (a mode above
  // the number of rows, a negative one included, uses row 1) and returns `results`, where
  // entry i holds item i's id words and distance * scale as a float. The store itself scores
  // all its groups in one pass (CGroupScan) and does not fill `results`.
  const std::vector<SClassifyResult>& classify(const float* tiles, int mode);

  // Takes one item out by moving the last item into its place. When `found` is false the
  // item is searched by id from the front and `found`, `position` are set; otherwise
  // `position` is trusted, so that the groups after the first follow the first one's search.
  void remove(uint32_t idLow, uint32_t idHigh, bool& found, uint32_t& position);

  std::vector<SClassifyResult> results;  // last classify of this group, by position
  MakeMeansFunction makeMeans = nullptr;
  float scale = 0.0f;     // weightValue * groupWeight: turns a distance into a score share
  uint32_t reserved = 0;  // never assigned; persisted only

  std::string name;
  std::string featureName;
  uint32_t reserved0 = 0;
  uint32_t normalise = 0;
  uint32_t reserved1 = 0;
  uint32_t vectorLength = 0;
  uint32_t reserved2 = 0;
  uint32_t binsPerTile = 0;
  uint32_t tilesX = 0;
  uint32_t tilesY = 0;
  uint32_t meanRows = 0;
  uint32_t meansKind = 0;
  int32_t weightKey = 0;
  float groupWeight = 0.0f;
  float weightValue = 0.0f;
  std::vector<std::string> nameList;
  std::vector<SDistanceRow> distanceRows;
  std::vector<DistanceFunction> distanceFunctions;
  HeapVector<float> normTable;

  CGroupItems items;      // the stored signatures' ids, by position
  CVectorBlocks vectors;  // their vectors, by the same position

 private:
  HeapMatrix<float> building;  // the vector being added
};

#endif  // ORVANE_DATABASE_CFEATUREGROUP_H_
