#include "database/CFeatureGroup.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "database/SFeatureGroupDef.h"
#include "tests/database/StringThrown.h"

namespace {

enum { kEdge, kHue, kSat, kVal };

SFeatureGroupDef builtInDef(int index) {
  std::vector<SFeatureGroupDef> defs;
  buildFeatureGroupDefs(defs);
  return defs.at(index);
}

CFeatureGroup builtIn(int index, uint32_t reserve = 0) {
  CFeatureGroup group;
  group.init(builtInDef(index), reserve);
  return group;
}

std::vector<float> constantTiles(const CFeatureGroup& g, float value) {
  return std::vector<float>(g.tileValues(), value);
}

std::vector<float> vectorOf(const CFeatureGroup& g, const std::vector<float>& tiles) {
  HeapMatrix<float> out;
  g.makeVector(out, tiles.data());
  EXPECT_EQ(out.m_rows, 1u);
  return std::vector<float>(out.m_data, out.m_data + out.m_cols);
}

TEST(FeatureGroupTest, BuiltInGroupsAfterInit) {
  struct SExpected {
    const char* name;
    const char* feature;
    uint32_t vectorLength, bins, tiles, meanRows, normalise;
    int32_t weightKey;
    float groupWeight;
    MakeMeansFunction makeMeans;
    uint32_t tileRowEnd, kind;
  };
  const SExpected expected[] = {
      {"GRY_EDG", "EDG", 192, 6, 4, 16, 1, 1, 1.0f, MakeMeans16, 96, 2},
      {"HUE_HST", "HUE", 256, 16, 3, 7, 0, 0, 0.4f, MakeMeans3, 144, 0},
      {"SAT_HST", "SAT", 64, 4, 3, 7, 0, 0, 0.3f, MakeMeans3, 36, 0},
      {"VAL_HST", "VAL", 64, 4, 3, 7, 0, 0, 0.3f, MakeMeans3, 36, 0},
  };
  for (int i = 0; i < 4; ++i) {
    const SExpected& e = expected[i];
    SCOPED_TRACE(e.name);
    const CFeatureGroup g = builtIn(i);
    EXPECT_EQ(g.name + g.featureName, std::string(e.name) + e.feature);
    EXPECT_EQ((g.tilesX * g.tilesY + g.meanRows) * g.binsPerTile, e.vectorLength);
    EXPECT_EQ(std::vector<uint32_t>({g.vectorLength, g.binsPerTile, g.tilesX, g.tilesY,
                                     g.meanRows, g.normalise, g.reserved0}),
              std::vector<uint32_t>({e.vectorLength, e.bins, e.tiles, e.tiles, e.meanRows,
                                     e.normalise, 1}));
    EXPECT_EQ(g.weightKey, e.weightKey);
    EXPECT_EQ(g.groupWeight, e.groupWeight);
    EXPECT_EQ(g.scale, 0.5f * e.groupWeight);  // until the database sets the weights
    EXPECT_EQ(g.makeMeans, e.makeMeans);
    ASSERT_EQ(g.distanceRows.size(), 5u);
    ASSERT_EQ(g.distanceFunctions.size(), 5u);
    // Row 0 compares the tiles, row 1 the whole vector, with the same kind.
    for (uint32_t row = 0; row < 2; ++row) {
      EXPECT_EQ(g.distanceRows[row].end, row == 0 ? e.tileRowEnd : e.vectorLength);
      EXPECT_EQ(g.distanceFunctions[row], distanceFunctionOfKind(e.kind));
    }
    EXPECT_EQ(g.normTable.m_size, e.vectorLength);
  }
  const CFeatureGroup edge = builtIn(kEdge);
  EXPECT_EQ(edge.normTable.m_data[0], 0.078622f);
  EXPECT_EQ(edge.normTable.m_data[98], 0.014598f);
  EXPECT_EQ(edge.normTable.m_data[191], 0.188103f);
  for (size_t b = 0; b < 6; ++b) {  // the global mean's three rows scale alike
    EXPECT_EQ(edge.normTable.m_data[96 + b], edge.normTable.m_data[102 + b]);
    EXPECT_EQ(edge.normTable.m_data[96 + b], edge.normTable.m_data[108 + b]);
  }
  const CFeatureGroup hue = builtIn(kHue);
  EXPECT_EQ(hue.distanceRows[2].start, 144u);
  EXPECT_EQ(hue.distanceRows[2].end, 160u);
  EXPECT_EQ(hue.distanceRows[2].kind, 2u);
}

TEST(FeatureGroupTest, InitReservesExactlyAndSkipsUnknownKinds) {
  EXPECT_EQ(builtIn(kSat, 1000).items.capacity(), 1000u);
  SFeatureGroupDef def = builtInDef(kSat);
  def.distanceRows[0].kind = 6;
  def.meansKind = 2;
  CFeatureGroup g;
  g.init(def, 0);
  EXPECT_EQ(g.distanceFunctions.size(), 4u);
  EXPECT_EQ(g.makeMeans, nullptr);
  // The list now runs out of step with the rows: row 4 has no function left.
  g.makeMeans = MakeMeans3;
  const std::vector<float> tiles = constantTiles(g, 1.0f);
  g.add(tiles.data(), 1, 0, 0);
  EXPECT_EQ(stringThrown([&] { g.classify(tiles.data(), 4); }), "Error classifing");
}

TEST(FeatureGroupTest, NormalisationOnlyForExactlyOneAndNonZeroEntries) {
  SFeatureGroupDef def = builtInDef(kEdge);
  def.normTable.m_data[5] = 0.0f;
  CFeatureGroup g;
  g.init(def, 0);
  std::vector<float> tiles(96, 2.0f);
  EXPECT_EQ(vectorOf(g, tiles)[5], 2.0f);
  EXPECT_EQ(vectorOf(g, tiles)[4], 2.0f / def.normTable.m_data[4]);
  def.normalise = 2;
  g.init(def, 0);
  EXPECT_EQ(vectorOf(g, tiles), std::vector<float>(192, 2.0f));
}

// Independent reference of a group vector: every mean row adds its tiles in the listed order,
// each sum rounded to float, then scales by the double 1 / divisor, rounded to float; the
// edge group then divides entry i by its table value in float.
std::vector<float> referenceVector(const CFeatureGroup& g, const std::vector<float>& tiles) {
  const int tx = static_cast<int>(g.tilesX), ty = static_cast<int>(g.tilesY);
  const int bins = static_cast<int>(g.binsPerTile);
  std::vector<float> v(tiles);
  const auto meanRow = [&](const std::vector<std::pair<int, int>>& order, double divisor) {
    for (int b = 0; b < bins; ++b) {
      float sum = 0.0f;
      for (const auto& xy : order) {
        sum = static_cast<float>(static_cast<double>(sum) + tiles[(xy.second * tx + xy.first) * bins + b]);
      }
      v.push_back(static_cast<float>(static_cast<double>(sum) * (1.0 / divisor)));
    }
  };
  // Tiles of x in [x0, x1) and y in [y0, y1), x outer or y outer.
  const auto block = [](int x0, int x1, int y0, int y1, bool xOuter) {
    std::vector<std::pair<int, int>> order;
    for (int outer = xOuter ? x0 : y0; outer < (xOuter ? x1 : y1); ++outer) {
      for (int inner = xOuter ? y0 : x0; inner < (xOuter ? y1 : x1); ++inner) {
        order.push_back(xOuter ? std::make_pair(outer, inner) : std::make_pair(inner, outer));
      }
    }
    return order;
  };
  const int globals = g.meansKind == 1 ? 3 : 1;
  for (int copy = 0; copy < globals; ++copy) meanRow(block(0, tx, 0, ty, false), tx * ty);
  for (int x = 0; x < tx; ++x) meanRow(block(x, x + 1, 0, ty, true), ty);
  for (int y = 0; y < ty; ++y) meanRow(block(0, tx, y, y + 1, true), tx);
  if (g.meansKind == 1) {
    const int hx = tx / 2, hy = ty / 2;
    meanRow(block(0, hx, 0, hy, true), hx * hy);
    meanRow(block(hx, tx, 0, hy, true), (tx - hx) * hy);
    meanRow(block(0, hx, hy, ty, true), hx * (ty - hy));
    meanRow(block(hx, tx, hy, ty, true), (tx - hx) * (ty - hy));
    meanRow(block(tx / 4, 3 * (tx / 4), ty / 4, 3 * (ty / 4), true), (ty / 4) * ((tx / 4) * 4));
  }
  if (g.normalise == 1) {
    for (size_t i = 0; i < v.size(); ++i) v[i] = v[i] / g.normTable.m_data[i];
  }
  return v;
}

TEST(FeatureGroupTest, VectorsMatchAnIndependentReferenceBitForBit) {
  uint32_t state = 2024;
  for (int i = 0; i < 4; ++i) {
    const CFeatureGroup g = builtIn(i);
    for (int trial = 0; trial < 20; ++trial) {
      SCOPED_TRACE(testing::Message() << g.name << " trial " << trial);
      // Histogram-like values with awkward fractions, so every rounding step shows.
      std::vector<float> tiles(g.tileValues());
      for (float& t : tiles) {
        state = state * 1664525u + 1013904223u;
        t = static_cast<float>(state >> 9) / 8388608.0f / 3.0f;
      }
      const std::vector<float> actual = vectorOf(g, tiles);
      const std::vector<float> expected = referenceVector(g, tiles);
      ASSERT_EQ(actual.size(), expected.size());
      for (size_t k = 0; k < actual.size(); ++k) {
        ASSERT_EQ(actual[k], expected[k]) << "entry " << k;
      }
    }
  }
}

TEST(FeatureGroupTest, MakeVectorKeepsLargerStorage) {
  const CFeatureGroup sat = builtIn(kSat);
  HeapMatrix<float> out(1, 500);
  const float* storage = out.m_data;
  const std::vector<float> tiles = constantTiles(sat, 0.25f);
  sat.makeVector(out, tiles.data());
  EXPECT_EQ(out.m_data, storage);
  EXPECT_EQ(out.m_capacity, 500u);
  EXPECT_EQ(out.m_cols, 64u);
}

TEST(FeatureGroupTest, ScoreIsDistanceOfTheModesRowTimesScale) {
  CFeatureGroup edge = builtIn(kEdge);
  std::vector<float> stored(96, 0.0f);
  std::vector<float> query(96, 0.0f);
  // Normalised, this entry is 1.0 in tile 0 and moves every mean row that covers tile 0.
  query[0] = edge.normTable.m_data[0];
  edge.add(stored.data(), 1, 0, 0);
  edge.scale = 0.1f;
  // Row 0: tiles only, a distance of 1 / 96.
  EXPECT_EQ(edge.classify(query.data(), 0)[0].score, static_cast<float>(1.0 / 96 * 0.1f));
  // Rows 1 and 7 (clamped to 1) and -1 (clamped to 1) cover the means as well.
  const float whole = edge.classify(query.data(), 1)[0].score;
  EXPECT_GT(whole, static_cast<float>(1.0 / 192 * 0.1f));
  EXPECT_EQ(edge.classify(query.data(), 7)[0].score, whole);
  EXPECT_EQ(edge.classify(query.data(), -1)[0].score, whole);
  // A mode equal to the number of rows names no row.
  EXPECT_EQ(stringThrown([&] { edge.classify(query.data(), 5); }), "Error classifing");
}

TEST(FeatureGroupTest, ColourGroupComparesCumulativeSumsPerTile) {
  CFeatureGroup sat = builtIn(kSat);
  std::vector<float> stored(36, 0.0f);
  std::vector<float> query(36, 0.0f);
  stored[0] = 1.0f;  // tile 0, bin 0
  query[1] = 1.0f;   // tile 0, bin 1: one step away
  sat.add(stored.data(), 1, 0, 0);
  sat.scale = 1.0f;
  EXPECT_EQ(sat.classify(query.data(), 0)[0].score, static_cast<float>(1.0 / 36));
  query[1] = 0.0f;
  query[4] = 1.0f;  // tile 1, bin 0: counts over all four bins of both tiles
  EXPECT_EQ(sat.classify(query.data(), 0)[0].score, static_cast<float>(8.0 / 36));
}

TEST(FeatureGroupTest, FailuresOfClassify) {
  CFeatureGroup edge = builtIn(kEdge);
  const std::vector<float> tiles = constantTiles(edge, 1.0f);
  EXPECT_EQ(stringThrown([&] { edge.classify(tiles.data(), 0); }),
            "classify called to empty database");
  edge.add(tiles.data(), 1, 0, 0);
  EXPECT_THROW(edge.classify(nullptr, 0), std::invalid_argument);
  // A stored vector of another length is refused by the length-checking kind.
  edge.items[0].vector.Resize(1, 191);
  EXPECT_EQ(stringThrown([&] { edge.classify(tiles.data(), 1); }), "Error classifing");
}

TEST(FeatureGroupTest, AddRefusesIdZeroAndMissingFeatureWithoutChange) {
  CFeatureGroup val = builtIn(kVal);
  const std::vector<float> tiles = constantTiles(val, 1.0f);
  EXPECT_EQ(stringThrown([&] { val.add(tiles.data(), 0, 0, 0); }),
            "addSignature used without correct id specified");
  EXPECT_THROW(val.add(nullptr, 1, 0, 0), std::invalid_argument);
  EXPECT_TRUE(val.items.empty());
  val.add(tiles.data(), 0, 1, 9);  // a high word alone is an id
  EXPECT_EQ(val.items.size(), 1u);
}

// The database checks the order of removals in all groups; here, what a group alone does.
TEST(FeatureGroupTest, RemoveFillsTheGapWithTheLastItem) {
  CFeatureGroup g = builtIn(kSat);
  for (uint32_t id : {1, 2, 3}) {
    const std::vector<float> tiles = constantTiles(g, static_cast<float>(id));
    g.add(tiles.data(), id, 0, id * 10);
  }
  // A group after the first trusts the position it is given, whatever the id.
  bool found = true;
  uint32_t position = 0;
  g.remove(99, 0, found, position);
  ASSERT_EQ(g.items.size(), 2u);
  EXPECT_EQ(g.items[0].index, 0u);
  EXPECT_EQ(g.items[0].idLow, 3u);
  EXPECT_EQ(g.items[0].tag, 30u);
  EXPECT_EQ(g.items[0].vector.m_data[0], 3.0f);
  found = false;
  g.remove(2, 0, found, position);  // the last item: just dropped
  EXPECT_EQ(position, 1u);
  EXPECT_EQ(g.items.size(), 1u);
}

}  // namespace
