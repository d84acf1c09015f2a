#include "database/SFeatureGroupDef.h"

#include <algorithm>

namespace {

// Scale factors of the edge group, one per entry of its 192-float vector, laid out like the
// vector: 16 tiles, the global mean three times, 4 columns, 4 rows, 4 quadrants, the centre.
constexpr float kEdgeNormTable[192] = {
    0.078622f, 0.267349f, 0.02342f, 0.024369f, 0.146997f, 0.35802f,  // tile 0
    0.077012f, 0.250848f, 0.024329f, 0.025917f, 0.140014f, 0.303709f,  // tile 1
    0.079738f, 0.251289f, 0.023225f, 0.02861f, 0.139336f, 0.294223f,  // tile 2
    0.080837f, 0.267117f, 0.022388f, 0.025912f, 0.148817f, 0.353761f,  // tile 3
    0.084171f, 0.252473f, 0.023822f, 0.026611f, 0.137799f, 0.305161f,  // tile 4
    0.094307f, 0.22969f, 0.024068f, 0.028124f, 0.123351f, 0.214667f,  // tile 5
    0.094972f, 0.231918f, 0.025294f, 0.027853f, 0.124669f, 0.218391f,  // tile 6
    0.087442f, 0.251255f, 0.024551f, 0.028649f, 0.141149f, 0.306349f,  // tile 7
    0.08555f, 0.235239f, 0.02434f, 0.027093f, 0.13162f, 0.271149f,  // tile 8
    0.093882f, 0.218581f, 0.023958f, 0.028774f, 0.121784f, 0.214347f,  // tile 9
    0.090624f, 0.225001f, 0.02624f, 0.029643f, 0.122562f, 0.218287f,  // tile 10
    0.087432f, 0.235151f, 0.025078f, 0.029416f, 0.134935f, 0.279708f,  // tile 11
    0.083028f, 0.23756f, 0.023074f, 0.027466f, 0.139087f, 0.288082f,  // tile 12
    0.08572f, 0.226556f, 0.024049f, 0.026186f, 0.135391f, 0.271621f,  // tile 13
    0.086123f, 0.233164f, 0.024604f, 0.028466f, 0.136134f, 0.27188f,  // tile 14
    0.092231f, 0.237184f, 0.024413f, 0.027496f, 0.141289f, 0.296526f,  // tile 15
    0.062817f, 0.211236f, 0.014598f, 0.017564f, 0.104296f, 0.225103f,  // global
    0.062817f, 0.211236f, 0.014598f, 0.017564f, 0.104296f, 0.225103f,  // global (copy)
    0.062817f, 0.211236f, 0.014598f, 0.017564f, 0.104296f, 0.225103f,  // global (copy)
    0.066845f, 0.223052f, 0.016827f, 0.01949f, 0.114623f, 0.2655f,  // column 0
    0.073338f, 0.204161f, 0.017087f, 0.01934f, 0.102823f, 0.203131f,  // column 1
    0.072702f, 0.207355f, 0.017167f, 0.020044f, 0.102654f, 0.201887f,  // column 2
    0.069407f, 0.222228f, 0.017197f, 0.020507f, 0.117494f, 0.268915f,  // column 3
    0.067428f, 0.2529f, 0.018722f, 0.021396f, 0.134764f, 0.310748f,  // row 0
    0.074413f, 0.234708f, 0.018321f, 0.021839f, 0.120126f, 0.237452f,  // row 1
    0.073691f, 0.22076f, 0.018166f, 0.021879f, 0.116354f, 0.228084f,  // row 2
    0.070733f, 0.226339f, 0.017913f, 0.021397f, 0.128107f, 0.268239f,  // row 3
    0.068473f, 0.233209f, 0.018138f, 0.020294f, 0.120212f, 0.263179f,  // quadrant 0
    0.07058f, 0.232696f, 0.017998f, 0.021292f, 0.120707f, 0.259099f,  // quadrant 1
    0.071687f, 0.212767f, 0.017417f, 0.020762f, 0.115927f, 0.238627f,  // quadrant 2
    0.072759f, 0.215991f, 0.017925f, 0.021666f, 0.116902f, 0.243545f,  // quadrant 3
    0.080848f, 0.210907f, 0.017913f, 0.021468f, 0.106031f, 0.188103f,  // centre
};

struct SGroupLiterals {
  const char* name;
  const char* featureName;
  uint32_t normalise;
  uint32_t vectorLength;
  uint32_t binsPerTile;
  uint32_t tiles;  // along each axis
  uint32_t meanRows;
  uint32_t meansKind;
  int32_t weightKey;
  float groupWeight;
  SDistanceRow rows[5];
  const float* normTable;  // null: a zero table, which no operation applies
};

// Row 0 compares the tiles, row 1 tiles and means; the colour groups' rows 2 and 4 cover
// just their global mean row.
const SGroupLiterals kGroups[] = {
    {"GRY_EDG", "EDG", 1, 192, 6, 4, 16, 1, 1, 1.0f,
     {{0, 96, 2}, {0, 192, 2}, {0, 192, 2}, {0, 96, 2}, {0, 192, 2}}, kEdgeNormTable},
    {"HUE_HST", "HUE", 0, 256, 16, 3, 7, 0, 0, 0.4f,
     {{0, 144, 0}, {0, 256, 0}, {144, 160, 2}, {0, 256, 2}, {144, 160, 0}}, nullptr},
    {"SAT_HST", "SAT", 0, 64, 4, 3, 7, 0, 0, 0.3f,
     {{0, 36, 0}, {0, 64, 0}, {36, 40, 0}, {0, 64, 2}, {36, 40, 0}}, nullptr},
    {"VAL_HST", "VAL", 0, 64, 4, 3, 7, 0, 0, 0.3f,
     {{0, 36, 0}, {0, 64, 0}, {36, 40, 0}, {0, 64, 2}, {36, 40, 0}}, nullptr},
};

}  // namespace

void buildFeatureGroupDefs(std::vector<SFeatureGroupDef>& defs) {
  for (const SGroupLiterals& g : kGroups) {
    SFeatureGroupDef def;
    def.name = g.name;
    def.featureName = g.featureName;
    def.reserved0 = 1;
    def.normalise = g.normalise;
    def.vectorLength = g.vectorLength;
    def.binsPerTile = g.binsPerTile;
    def.tilesX = g.tiles;
    def.tilesY = g.tiles;
    def.meanRows = g.meanRows;
    def.meansKind = g.meansKind;
    def.weightKey = g.weightKey;
    def.groupWeight = g.groupWeight;
    def.weightValue = 0.5f;
    def.distanceRows.assign(std::begin(g.rows), std::end(g.rows));
    def.normTable.Resize(g.vectorLength);
    float* table = def.normTable.m_data;
    if (g.normTable != nullptr) {
      std::copy(g.normTable, g.normTable + g.vectorLength, table);
    } else {
      std::fill(table, table + g.vectorLength, 0.0f);
    }
    defs.push_back(def);
  }
}
