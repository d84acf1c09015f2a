#include "database/CFeatureGroup.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "database/SFeatureGroupDef.h"
#include "tests/support/ThrownText.h"

namespace {

enum { kEdge, kHue, kSat, kVal };

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

CFeatureGroup builtIn(int index) { return groupOf(builtInDef(index)); }

std::vector<float> vectorOf(const CFeatureGroup& g, const std::vector<float>& tiles) {
  HeapMatrix<float> out;
  g.makeVector(out, tiles.data());
  EXPECT_EQ(out.m_rows, 1u);
  return std::vector<float>(out.m_data, out.m_data + out.m_cols);
}

TEST(FeatureGroupTest, BuiltInGroupsAfterInit) {
  // shape: vectorLength, bins, tilesX, tilesY, meanRows, normalise, reserved0, weightKey,
  // ends of distance rows 0 and 1, normTable size.
  const struct {
    const char* name;
    std::vector<uint32_t> shape;
    float groupWeight;
    MakeMeansFunction makeMeans;
    uint32_t kind;
  } expected[] = {
      {"GRY_EDGEDG", {192, 6, 4, 4, 16, 1, 1, 1, 96, 192, 192}, 1.0f, MakeMeans16, 2},
      {"HUE_HSTHUE", {256, 16, 3, 3, 7, 0, 1, 0, 144, 256, 256}, 0.4f, MakeMeans3, 0},
      {"SAT_HSTSAT", {64, 4, 3, 3, 7, 0, 1, 0, 36, 64, 64}, 0.3f, MakeMeans3, 0},
      {"VAL_HSTVAL", {64, 4, 3, 3, 7, 0, 1, 0, 36, 64, 64}, 0.3f, MakeMeans3, 0},
  };
  for (int i = 0; i < 4; ++i) {
    SCOPED_TRACE(expected[i].name);
    const CFeatureGroup g = builtIn(i);
    ASSERT_EQ(g.distanceRows.size(), 5u);
    ASSERT_EQ(g.distanceFunctions.size(), 5u);
    EXPECT_EQ(g.name + g.featureName, expected[i].name);
    EXPECT_EQ(
        std::vector<uint32_t>({g.vectorLength, g.binsPerTile, g.tilesX, g.tilesY, g.meanRows,
                               g.normalise, g.reserved0, static_cast<uint32_t>(g.weightKey),
                               g.distanceRows[0].end, g.distanceRows[1].end, g.normTable.m_size}),
        expected[i].shape);
    EXPECT_EQ(g.groupWeight, expected[i].groupWeight);
    EXPECT_EQ(g.scale, 0.5f * expected[i].groupWeight);  // until the database sets the weights
    EXPECT_EQ(g.makeMeans, expected[i].makeMeans);
    for (int row = 0; row < 2; ++row) {
      EXPECT_EQ(g.distanceFunctions[row], distanceFunctionOfKind(expected[i].kind));
    }
  }
  const CFeatureGroup edge = builtIn(kEdge);
  EXPECT_EQ(edge.normTable.m_data[0], 0.078622f);
  EXPECT_EQ(edge.normTable.m_data[98], 0.014598f);
  EXPECT_EQ(edge.normTable.m_data[191], 0.188103f);
  for (size_t b = 0; b < 6; ++b) {  // the global mean's three rows scale alike
    EXPECT_EQ(edge.normTable.m_data[96 + b], edge.normTable.m_data[102 + b]);
    EXPECT_EQ(edge.normTable.m_data[96 + b], edge.normTable.m_data[108 + b]);
  }
  const SDistanceRow hue = builtIn(kHue).distanceRows[2];
  EXPECT_EQ(std::vector<uint32_t>({hue.start, hue.end, hue.kind}),
            std::vector<uint32_t>({144, 160, 2}));
}

TEST(FeatureGroupTest, InitReservesAndSkipsUnknownKinds) {
  EXPECT_GE(groupOf(builtInDef(kSat), 5000).items.capacity(), 5000u);
  SFeatureGroupDef def = builtInDef(kSat);
  def.distanceRows[0].kind = 6;
  def.meansKind = 2;
  CFeatureGroup g;
  g.init(def, 0);
  EXPECT_EQ(g.distanceFunctions.size(), 4u);
  EXPECT_EQ(g.makeMeans, nullptr);
  // The list now runs out of step with the rows: row 4 has no function left.
  g.makeMeans = MakeMeans3;
  const std::vector<float> tiles(g.tileValues(), 1.0f);
  g.add(tiles.data(), 1, 0, 0);
  EXPECT_EQ(thrownText([&] { g.classify(tiles.data(), 4); }), "Error classifing");
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
      for (float& t : tiles) {
        state = state * 1664525u + 1013904223u;
        t = static_cast<float>(state >> 9) / 8388608.0f / 3.0f;
      }
      ASSERT_EQ(vectorOf(g, tiles), referenceVector(g, tiles));
    }
  }
}

// Mode clamping and the colour kinds are checked through the database.
TEST(FeatureGroupTest, ClassifyScoresTheModesRowTimesScaleOrRefuses) {
  CFeatureGroup edge = builtIn(kEdge);
  std::vector<float> zeros(96, 0.0f), query(96, 0.0f);
  query[0] = edge.normTable.m_data[0];  // 1.0 once normalised; moves every mean over tile 0
  EXPECT_EQ(thrownText([&] { edge.classify(query.data(), 0); }),
            "classify called to empty database");
  EXPECT_EQ(thrownText([&] { edge.add(zeros.data(), 0, 0, 0); }),
            "addSignature used without correct id specified");
  EXPECT_THROW(edge.add(nullptr, 1, 0, 0), std::invalid_argument);
  EXPECT_TRUE(edge.items.empty());
  edge.add(zeros.data(), 0, 1, 9);  // a high word alone is an id
  edge.scale = 0.1f;
  EXPECT_EQ(edge.classify(query.data(), 0)[0].score, static_cast<float>(1.0 / 96 * 0.1f));
  EXPECT_GT(edge.classify(query.data(), 1)[0].score, static_cast<float>(1.0 / 192 * 0.1f));
  EXPECT_EQ(thrownText([&] { edge.classify(query.data(), 5); }), "Error classifing");
  EXPECT_THROW(edge.classify(nullptr, 0), std::invalid_argument);
  edge.distanceRows[1].end = 193;  // a range past the end of every vector
  EXPECT_EQ(thrownText([&] { edge.classify(query.data(), 1); }), "Error classifing");
}

}  // namespace
