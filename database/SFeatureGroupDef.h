// The definition of a feature group: which feature of a signature the group reads, how it
// turns the feature's tiles into a comparison vector, how two vectors are compared and how
// much the group counts. buildFeatureGroupDefs writes the four built-in groups; they are
// constants of the library, never read from a stream.
#ifndef ORVANE_DATABASE_SFEATUREGROUPDEF_H_
#define ORVANE_DATABASE_SFEATUREGROUPDEF_H_

#include <cstdint>
#include <string>
#include <vector>

#include "database/DistanceFunctions.h"
#include "vexl/base_vector.h"

// One way of comparing two group vectors: entries start <= i < end with distance `kind`.
struct SDistanceRow {
  uint32_t start;
  uint32_t end;
  uint32_t kind;
};

struct SFeatureGroupDef {
  std::string name;         // label only
  std::string featureName;  // the feature read from every signature
  uint32_t reserved0 = 0;   // 1 in every group; never read
  uint32_t normalise = 0;   // exactly 1: divide the vector by normTable
  uint32_t reserved1 = 0;   // never read
  uint32_t vectorLength = 0;  // leading entries that normalisation covers
  uint32_t reserved2 = 0;     // never read
  uint32_t binsPerTile = 0;   // values per tile and per means row; the distance period
  uint32_t tilesX = 0;        // tiles along the fast grid index
  uint32_t tilesY = 0;        // tiles along the slow grid index
  uint32_t meanRows = 0;      // rows of binsPerTile values behind the tiles
  uint32_t meansKind = 0;     // 0: MakeMeans3, 1: MakeMeans16
  int32_t weightKey = 0;      // key into the database's weights
  float groupWeight = 0.0f;   // fixed share of the group under its weight key
  float weightValue = 0.0f;   // the key's weight, refreshed by the database
  std::vector<std::string> nameList;               // empty; never read
  std::vector<SDistanceRow> distanceRows;          // row index = metric of a classification
  std::vector<DistanceFunction> distanceFunctions;  // empty in a definition
  HeapVector<float> normTable;                     // vectorLength scale factors
};

// Appends the four built-in groups, in this order: "GRY_EDG" (edges, feature "EDG", weight
// key 1), "HUE_HST", "SAT_HST", "VAL_HST" (colour, weight key 0 shared 0.4, 0.3, 0.3).
void buildFeatureGroupDefs(std::vector<SFeatureGroupDef>& defs);

#endif  // ORVANE_DATABASE_SFEATUREGROUPDEF_H_
