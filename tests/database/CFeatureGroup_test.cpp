#include "database/CFeatureGroup.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "database/SFeatureGroupDef.h"
#include "tests/support/NextUnit.h"
#include "tests/support/ThrownText.h"

namespace {

constexpr int kEdge = 0, kSat = 2;

SFeatureGroupDef builtInDef(int index) {
  std::vector<SFeatureGroupDef> defs;
  buildFeatureGroupDefs(defs);
  return defs.at(index);
}

CFeatureGroup groupOf(const SFeatureGroupDef& def, uint32_t reserve = 0) {
  CFeatureGroup group;
  group.init(def, reserve);
  return group;
}

TEST(FeatureGroupTest, BuiltInGroupsAfterInit) {
  const char* const expected[] = {
      "GRY_EDGEDG length 192 bins 6 tiles 4x4 means 16/1 normalise 1 reserved 1 key 1 weight 1 "
      "table 192 rows 0-96:2 0-192:2 0-192:2 0-96:2 0-192:2",
      "HUE_HSTHUE length 256 bins 16 tiles 3x3 means 7/0 normalise 0 reserved 1 key 0 weight 0.4 "
      "table 256 rows 0-144:0 0-256:0 144-160:2 0-256:2 144-160:0",
      "SAT_HSTSAT length 64 bins 4 tiles 3x3 means 7/0 normalise 0 reserved 1 key 0 weight 0.3 "
      "table 64 rows 0-36:0 0-64:0 36-40:0 0-64:2 36-40:0",
      "VAL_HSTVAL length 64 bins 4 tiles 3x3 means 7/0 normalise 0 reserved 1 key 0 weight 0.3 "
      "table 64 rows 0-36:0 0-64:0 36-40:0 0-64:2 36-40:0",
  };
  for (int i = 0; i < 4; ++i) {
    const CFeatureGroup g = groupOf(builtInDef(i));
    std::ostringstream d;
    d << g.name << g.featureName << " length " << g.vectorLength << " bins " << g.binsPerTile
      << " tiles " << g.tilesX << "x" << g.tilesY << " means " << g.meanRows << "/" << g.meansKind
      << " normalise " << g.normalise << " reserved " << g.reserved0 << " key " << g.weightKey
      << " weight " << g.groupWeight << " table " << g.normTable.m_size << " rows";
    ASSERT_EQ(g.distanceFunctions.size(), g.distanceRows.size());
    for (size_t r = 0; r < g.distanceRows.size(); ++r) {
      const SDistanceRow& row = g.distanceRows[r];
      d << " " << row.start << "-" << row.end << ":" << row.kind;
      EXPECT_EQ(g.distanceFunctions[r], distanceFunctionOfKind(row.kind)) << g.name << r;
    }
    EXPECT_EQ(d.str(), expected[i]);
    EXPECT_EQ(g.makeMeans, g.meansKind == 1 ? MakeMeans16 : MakeMeans3) << g.name;
    EXPECT_EQ(g.scale, 0.5f * g.groupWeight) << g.name;  // until the database sets the weights
  }
  const CFeatureGroup edge = groupOf(builtInDef(kEdge));
  EXPECT_EQ(edge.normTable.m_data[0], 0.078622f);
  EXPECT_EQ(edge.normTable.m_data[98], 0.014598f);
  EXPECT_EQ(edge.normTable.m_data[191], 0.188103f);
}

// What a group alone refuses; scores, modes and the texts a store passes on are checked
// through the store.
TEST(FeatureGroupTest, InitSkipsUnknownKindsAndCallsRefuseWhatTheyCannotTake) {
  EXPECT_GE(groupOf(builtInDef(kSat), 5000).items.capacity(), 5000u);
  SFeatureGroupDef def = builtInDef(kSat);
  def.distanceRows[0].kind = 6;
  def.meansKind = 2;
  CFeatureGroup g = groupOf(def);
  EXPECT_EQ(g.distanceFunctions.size(), 4u);
  EXPECT_EQ(g.makeMeans, nullptr);
  g.makeMeans = MakeMeans3;
  const std::vector<float> tiles(g.tileValues(), 1.0f);
  EXPECT_EQ(thrownText([&] { g.add(tiles.data(), 0, 0, 0); }),
            "addSignature used without correct id specified");
  EXPECT_THROW(g.add(nullptr, 1, 0, 0), std::invalid_argument);
  EXPECT_TRUE(g.items.empty());
  g.add(tiles.data(), 0, 1, 9);  // a high word alone is an id
  EXPECT_THROW(g.classify(nullptr, 0), std::invalid_argument);
  // The function list runs out of step with the rows: row 4 has none left.
  EXPECT_EQ(thrownText([&] { g.classify(tiles.data(), 4); }), "Error classifing");
  g.distanceRows[1].end = 65;  // a range past the end of every vector
  EXPECT_EQ(thrownText([&] { g.classify(tiles.data(), 1); }), "Error classifing");
}

// A group vector is its tiles, then the rows of its means writer (checked bit for bit on
// their own), then, with normalise 1, entry i divided by its table value where that is not 0.
std::vector<float> referenceVector(const CFeatureGroup& g, const std::vector<float>& tiles) {
  std::vector<float> v(tiles);
  v.resize(g.vectorLength);
  (g.meansKind == 1 ? MakeMeans16 : MakeMeans3)(tiles.data(), g.tilesX, g.tilesY, g.binsPerTile,
                                                v.data() + tiles.size(), g.meanRows);
  for (size_t i = 0; i < v.size() && g.normalise == 1; ++i) {
    if (g.normTable.m_data[i] != 0.0f) v[i] = v[i] / g.normTable.m_data[i];
  }
  return v;
}

TEST(FeatureGroupTest, VectorsMatchAnIndependentReferenceBitForBit) {
  // The built-in groups, then the edge group with zero table entries and with normalise 2.
  std::vector<SFeatureGroupDef> defs;
  buildFeatureGroupDefs(defs);
  defs.push_back(builtInDef(kEdge));
  defs.back().normTable.m_data[5] = defs.back().normTable.m_data[11] = 0.0f;
  defs.push_back(builtInDef(kEdge));
  defs.back().normalise = 2;
  uint32_t state = 2024;
  for (size_t i = 0; i < defs.size(); ++i) {
    const CFeatureGroup g = groupOf(defs[i]);
    for (int trial = 0; trial < 20; ++trial) {
      SCOPED_TRACE(testing::Message() << "group " << i << " trial " << trial);
      // Histogram-like values with awkward fractions, so every rounding step shows.
      std::vector<float> tiles(g.tileValues());
      for (float& t : tiles) t = nextUnit(state) / 3.0f;
      HeapMatrix<float> out;
      g.makeVector(out, tiles.data());
      ASSERT_EQ(std::vector<float>(out.m_data, out.m_data + out.m_cols), referenceVector(g, tiles));
    }
  }
}

}  // namespace
