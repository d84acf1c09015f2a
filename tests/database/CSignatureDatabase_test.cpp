#include "database/CSignatureDatabase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "database/DistanceKernels.h"
#include "feature/CFeatureObject.h"
#include "signature/CAudioSignMulti.h"
#include "signature/CSignDataMulti.h"
#include "signature/SMetaFrame.h"
#include "tests/support/ThrownText.h"

namespace {

// A signature as the store reads it: its version and the tiles of its features.
struct SFakeSignature {
  std::string version = "V6";
  std::map<std::string, std::vector<float>> features;

  CSignatureDatabase::FeatureTiles tiles() const {
    return [this](const std::string& name, uint32_t count) -> const float* {
      const auto it = features.find(name);
      return it == features.end() || it->second.size() < count ? nullptr : it->second.data();
    };
  }
};

// Different seeds give different photos.
SFakeSignature photo(uint32_t seed, const std::string& version = "V6") {
  SFakeSignature s;
  s.version = version;
  const std::pair<const char*, uint32_t> shapes[] = {
      {"EDG", 96}, {"HUE", 144}, {"SAT", 36}, {"VAL", 36}};
  for (const auto& shape : shapes) {
    for (uint32_t i = 0; i < shape.second; ++i) {
      s.features[shape.first].push_back(static_cast<float>((seed * 7919u + i * 104729u) % 1000u) /
                                        4000.0f);
    }
  }
  return s;
}

void expectSameResults(const std::vector<SClassifyResult>& a,
                       const std::vector<SClassifyResult>& b) {
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i) {
    EXPECT_EQ(a[i].idLow, b[i].idLow) << i;
    EXPECT_EQ(a[i].score, b[i].score) << i;
  }
}

class SignatureDatabaseTest : public testing::Test {
 protected:
  SignatureDatabaseTest() {
    std::vector<SFeatureGroupDef> defs;
    buildFeatureGroupDefs(defs);
    db.init(defs, 0);
  }

  void add(const SFakeSignature& s, uint32_t id) { db.addFeatures(s.version, s.tiles(), id, 0, 0); }

  const std::vector<SClassifyResult>& classify(const SFakeSignature& s, int mode) {
    return db.classifyFeatures(s.version, s.tiles(), mode, nullptr);
  }

  // The ids of every group's items, checking that the groups agree and indexes are positions.
  std::vector<uint32_t> storedIds() {
    std::vector<std::vector<uint32_t>> ids(db.groups.size());
    for (size_t g = 0; g < ids.size(); ++g) {
      for (size_t i = 0; i < db.groups[g].items.size(); ++i) {
        const SGroupItem& item = db.groups[g].items[i];
        EXPECT_EQ(item.index, i) << db.groups[g].name;
        ids[g].push_back(item.idLow);
      }
      EXPECT_EQ(ids[g], ids[0]) << db.groups[g].name;
    }
    return ids[0];
  }

  CSignatureDatabase db;
};

TEST(SignatureDatabaseCreationTest, StartsWithVersionAndHalfPercentWeights) {
  CSignatureDatabase db;
  EXPECT_EQ(db.versions, std::vector<std::string>{"V6"});
  float percent = 0.0f;
  ASSERT_TRUE(db.getWeight(0, &percent));
  EXPECT_EQ(percent, 0.5f);
  EXPECT_EQ(db.weights.at(0).weight, 0.005f);
  EXPECT_EQ(db.weights.at(1).weight, static_cast<float>(0.005f * 0.2));
  EXPECT_EQ(thrownText([&] { db.itemCount(); }), "No database initialized");
  const SFakeSignature s = photo(1);
  EXPECT_EQ(thrownText([&] { db.addFeatures("V6", s.tiles(), 1, 0, 0); }),
            "addSignature without database initialized");
  EXPECT_EQ(thrownText([&] { db.classifyFeatures("V6", s.tiles(), 1, nullptr); }),
            "classifyFloat without database initialized");
  db.removeSignature(1, 0);  // nothing to remove from, nothing to report
}

TEST_F(SignatureDatabaseTest, SetWeightClampsButRemembersThePercent) {
  EXPECT_EQ(db.weights.at(0).weight, 0.5f);
  EXPECT_EQ(db.weights.at(1).weight, 0.1f);
  const float scales[] = {0.1f, 0.2f, 0.15f, 0.15f};
  for (size_t g = 0; g < 4; ++g) EXPECT_EQ(db.groups[g].scale, scales[g]) << db.groups[g].name;
  // The scale is checked on the first group of the key; key 5 moves no group.
  const struct {
    int32_t key;
    float percent, weight;
    size_t group;
    float scale;
  } cases[] = {{0, 150.0f, 1.0f, 1, 0.4f},
               {1, 100.0f, 0.2f, 0, 0.2f},
               {0, -3.0f, 0.0f, 1, 0.0f},
               {1, 0.0f, 0.0f, 0, 0.0f},
               {5, 80.0f, 0.8f, 0, 0.0f}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "key " << c.key << " percent " << c.percent);
    db.setWeight(c.key, c.percent);
    EXPECT_EQ(db.weights.at(c.key).weight, c.weight);
    float percent = 0.0f;
    ASSERT_TRUE(db.getWeight(c.key, &percent));
    EXPECT_EQ(percent, c.percent);
    EXPECT_EQ(db.groups[c.group].scale, c.scale);
  }
  float percent = 42.0f;
  EXPECT_FALSE(db.getWeight(6, &percent));
  EXPECT_EQ(percent, 42.0f);
}

TEST_F(SignatureDatabaseTest, GroupWithoutWeightIsReportedAndLeftAlone) {
  db.weights.erase(1);
  testing::internal::CaptureStderr();
  db.setWeight(0, 100.0f);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Feature Group not exist\n");
  EXPECT_EQ(db.groups[0].scale, 0.1f);
  EXPECT_EQ(db.groups[1].scale, 0.4f);
}

TEST_F(SignatureDatabaseTest, RemovalMovesTheLastSignatureIntoTheGap) {
  for (uint32_t id : {1, 2, 3, 4}) add(photo(id), id);
  db.removeSignature(2, 0);
  EXPECT_EQ(storedIds(), (std::vector<uint32_t>{1, 4, 3}));
  EXPECT_EQ(classify(photo(4), 1)[0].idLow, 4u);
  EXPECT_EQ(classify(photo(4), 1)[0].score, 0.0f);
  EXPECT_EQ(thrownText([&] { db.removeSignature(2, 0); }), "Index not found");
  EXPECT_EQ(thrownText([&] { db.removeSignature(1, 7); }), "Index not found");
  // The same id twice gives two items, removed front first.
  add(photo(5), 3);
  db.removeSignature(3, 0);
  EXPECT_EQ(storedIds(), (std::vector<uint32_t>{1, 4, 3}));
  EXPECT_EQ(classify(photo(5), 1)[0].score, 0.0f);
  for (uint32_t id : {1, 4, 3}) db.removeSignature(id, 0);
  EXPECT_EQ(db.itemCount(), 0u);
  EXPECT_EQ(thrownText([&] { db.removeSignature(1, 0); }),
            "Database is emty, item can not be removed");
}

TEST_F(SignatureDatabaseTest, FailuresLeaveItemsAndResultsAsTheyWere) {
  add(photo(1), 1);
  add(photo(2), 2);
  const std::vector<SClassifyResult> before = classify(photo(2), 1);
  SFakeSignature noSat = photo(3), shortSat = photo(3);
  noSat.features.erase("SAT");
  shortSat.features["SAT"].pop_back();
  const SFakeSignature complete = photo(3), v5 = photo(3, "V5"), none = photo(3, "");
  const char* const kAdd = "addSignature Unknown Error";
  const char* const kClassify = "classifyFloat Error Unknown Error";
  const char* const kVersion = "Wrong Feature Version";
  const struct {
    const char* name;
    const SFakeSignature* s;
    uint32_t id;
    const char* addText;
    const char* classifyText;
  } cases[] = {
      {"missing feature", &noSat, 3, kAdd, kClassify},
      {"short feature", &shortSat, 3, kAdd, kClassify},
      {"other version", &v5, 3, kVersion, kVersion},
      {"no version", &none, 3, kVersion, kVersion},
      {"id 0", &complete, 0, kAdd, nullptr},
      {"id 0, missing feature", &noSat, 0, kAdd, nullptr},
      {"id 0, other version", &v5, 0, kVersion, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(thrownText([&] { add(*c.s, c.id); }), c.addText);
    if (c.classifyText) {
      EXPECT_EQ(thrownText([&] { classify(*c.s, 1); }), c.classifyText);
    }
    EXPECT_EQ(storedIds(), (std::vector<uint32_t>{1, 2}));
    expectSameResults(db.finalResults, before);
  }
  db.groups[2].items.clear();  // a later group emptied behind the first one's back
  EXPECT_EQ(thrownText([&] { classify(photo(2), 1); }), "classify called to empty database");
  expectSameResults(db.finalResults, before);
}

TEST_F(SignatureDatabaseTest, ClearAllKeepsGroupsAndWeights) {
  add(photo(1), 1);
  classify(photo(1), 1);
  db.setWeight(0, 20.0f);
  db.clearAll();
  EXPECT_EQ(db.itemCount(), 0u);
  EXPECT_TRUE(db.finalResults.empty());
  EXPECT_EQ(db.groups[1].scale, 0.2f * 0.4f);
  EXPECT_EQ(thrownText([&] { classify(photo(1), 1); }),
            "classifyFloat with 0 items in databases");
}

TEST_F(SignatureDatabaseTest, ModeRules) {
  for (uint32_t id = 1; id <= 6; ++id) add(photo(id * 3), id);
  for (int mode : {0, 1, 2, 3, 4}) {
    SCOPED_TRACE(testing::Message() << "mode " << mode);
    const std::vector<SClassifyResult>& ranked = classify(photo(9), mode);
    ASSERT_EQ(ranked.size(), 6u);
    EXPECT_EQ(ranked[0].idLow, 3u);
    EXPECT_EQ(ranked[0].score, 0.0f);
    EXPECT_GT(ranked[1].score, 0.0f);
  }
  // Mode 7 and negative modes use row 1; the distance handed in changes nothing.
  const std::vector<SClassifyResult> one = classify(photo(4), 1);
  for (int mode : {7, -1, -2}) {
    SCOPED_TRACE(testing::Message() << "mode " << mode);
    expectSameResults(classify(photo(4), mode), one);
  }
  expectSameResults(db.classifyFeatures("V6", photo(4).tiles(), 1, distanceFunctionOfKind(4)), one);
}

TEST_F(SignatureDatabaseTest, ScoreSumsTheGroupsWithTheirScales) {
  SFakeSignature stored = photo(1);
  for (auto& feature : stored.features)
    std::fill(feature.second.begin(), feature.second.end(), 0.0f);
  add(stored, 1);
  // Edge entries of 1.0 after normalisation: a mean absolute edge distance of 1 adds 0.1.
  SFakeSignature query = stored;
  for (size_t i = 0; i < 96; ++i) query.features["EDG"][i] = db.groups[0].normTable.m_data[i];
  EXPECT_EQ(classify(query, 0)[0].score, 0.1f);
  // One unit in bin 0 of every hue tile: the cumulative hue distance is 1, adding 0.2.
  for (size_t tile = 0; tile < 9; ++tile) query.features["HUE"][tile * 16] = 1.0f;
  EXPECT_EQ(classify(query, 0)[0].score, 0.1f + 0.2f);
  db.setWeight(0, -3.0f);  // the colour groups stop counting
  EXPECT_EQ(classify(query, 0)[0].score, 0.1f);
}

TEST_F(SignatureDatabaseTest, RankingIsAscendingAndStableOnTies) {
  const uint32_t seeds[] = {9, 1, 9, 1, 5};  // ids 10..50: 30 ties with 10, 40 with 20
  for (uint32_t i = 0; i < 5; ++i) add(photo(seeds[i]), 10 * (i + 1));
  const auto firstTwo = [&] {
    const std::vector<SClassifyResult>& r = classify(photo(1), 1);
    for (size_t i = 1; i < r.size(); ++i) EXPECT_LE(r[i - 1].score, r[i].score);
    return std::vector<uint32_t>{r.at(0).idLow, r.at(1).idLow};
  };
  EXPECT_EQ(firstTwo(), (std::vector<uint32_t>{20, 40}));
  // Removals move 50, then 40 to the front of the items: 40 now goes first among the ties.
  db.removeSignature(10, 0);
  db.removeSignature(50, 0);
  EXPECT_EQ(storedIds(), (std::vector<uint32_t>{40, 20, 30}));
  EXPECT_EQ(firstTwo(), (std::vector<uint32_t>{40, 20}));
}

// Histogram-like tiles from a seed; a small `nudge` moves every value a little, so that a
// nudged photo scores near its original without tying with it.
SFakeSignature variedPhoto(uint32_t seed, float nudge = 0.0f) {
  SFakeSignature s;
  uint32_t state = seed * 2654435761u + 7;
  const std::pair<const char*, uint32_t> shapes[] = {
      {"EDG", 96}, {"HUE", 144}, {"SAT", 36}, {"VAL", 36}};
  for (const auto& shape : shapes) {
    for (uint32_t i = 0; i < shape.second; ++i) {
      state = state * 1664525u + 1013904223u;
      const float v = static_cast<float>(state >> 8) / static_cast<float>(1 << 24);
      s.features[shape.first].push_back(v * v / 4.0f + nudge * static_cast<float>(i % 5));
    }
  }
  return s;
}

// A few thousand photos, some stored twice (ties), scored as an independent reference does
// it (the one-vector kernels, shares summed in float, a stable sort), in both scan forms,
// through every kind of cut, and again after removals and additions.
TEST_F(SignatureDatabaseTest, ScanMatchesTheKernelsInBothFormsAndEveryCut) {
  std::vector<SFakeSignature> photos;
  for (uint32_t seed = 0; seed < 2990; ++seed) photos.push_back(variedPhoto(seed));
  for (uint32_t seed = 0; seed < 10; ++seed) photos.push_back(variedPhoto(seed * 7, 0.0002f));
  std::vector<std::pair<uint32_t, size_t>> stored;  // id and photo, by position
  for (size_t p = 0; p < photos.size() + 40; ++p) {
    stored.emplace_back(static_cast<uint32_t>(p + 1), p % photos.size());
    add(photos[stored.back().second], stored.back().first);
  }
  const auto reference = [&](const SFakeSignature& query, int mode) {
    std::vector<std::pair<float, uint32_t>> ranked;
    std::vector<HeapMatrix<float>> queries(4);
    for (size_t g = 0; g < 4; ++g) {
      db.groups[g].makeVector(queries[g], query.features.at(db.groups[g].featureName).data());
    }
    for (const auto& [id, p] : stored) {
      float score = 0.0f;
      for (size_t g = 0; g < 4; ++g) {
        const CFeatureGroup& group = db.groups[g];
        HeapMatrix<float> v;
        group.makeVector(v, photos[p].features.at(group.featureName).data());
        const SDistanceRow& row = group.distanceRows[mode];
        const DistanceKernel kernel =
            row.kind == 0 ? windowedCumulativeDifference : meanAbsoluteDifference;
        const double d = kernel(v.m_data, v.m_cols, queries[g].m_data, v.m_cols, row.start,
                                row.end, group.binsPerTile);
        score += static_cast<float>(d * static_cast<double>(group.scale));
      }
      ranked.emplace_back(score, id);
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    return ranked;
  };
  const auto expectPrefix = [](const std::vector<SClassifyResult>& results,
                               const std::vector<std::pair<float, uint32_t>>& ranked,
                               size_t count) {
    ASSERT_EQ(results.size(), count);
    for (size_t i = 0; i < count; ++i) {
      ASSERT_EQ(results[i].idLow, ranked[i].second) << i;
      ASSERT_EQ(results[i].score, ranked[i].first) << i;
    }
  };
  const auto checkAll = [&] {
    for (size_t q : {size_t{14}, size_t{2990}, size_t{500}}) {
      for (int mode : {0, 1}) {
        SCOPED_TRACE(testing::Message() << "query " << q << " mode " << mode);
        const auto ranked = reference(photos[q], mode);
        for (ScanForm form : {ScanForm::kPortable, ScanForm::kAvx2}) {
          db.scanForm = form;
          const auto cut = [&](uint32_t maxResults, bool samePhotoOnly) {
            return db.classifyFeatures("V6", photos[q].tiles(), mode, nullptr,
                                       SRankCut{maxResults, samePhotoOnly});
          };
          expectPrefix(classify(photos[q], mode), ranked, ranked.size());
          for (uint32_t n : {1u, 7u, 46u, 47u, 2999u}) expectPrefix(cut(n, false), ranked, n);
          expectPrefix(cut(5000, false), ranked, ranked.size());
          const std::vector<SClassifyResult> same = cut(1, true);
          expectPrefix(same, ranked,
                       CSignatureDatabase::countBelowThreshold(classify(photos[q], mode)));
          if (q != 500) {
            EXPECT_GE(same.size(), 2u);  // the photo stored twice, or with its nudged twin
          }
        }
      }
    }
  };
  checkAll();
  for (uint32_t id : {1u, 3030u, 2000u, 17u, 3011u}) {
    db.removeSignature(id, 0);
    const auto at = std::find_if(stored.begin(), stored.end(),
                                 [id](const auto& entry) { return entry.first == id; });
    *at = stored.back();
    stored.pop_back();
  }
  for (uint32_t id : {1u, 9001u}) {
    stored.emplace_back(id, id % photos.size());
    add(photos[stored.back().second], id);
  }
  EXPECT_EQ(storedIds().size(), stored.size());
  checkAll();
}

TEST(SignatureDatabaseThresholdTest, CountsLeadingScoresUpToTheDoubleThreshold) {
  const auto count = [](std::vector<float> scores) {
    std::vector<SClassifyResult> results(scores.size());
    for (size_t i = 0; i < scores.size(); ++i) results[i].score = scores[i];
    return CSignatureDatabase::countBelowThreshold(results);
  };
  EXPECT_EQ(count({}), 0u);
  EXPECT_EQ(count({0.0f, 0.069999993f, 0.08f}), 2u);
  // The float nearest 0.07 lies above the double 0.07, so it is cut.
  EXPECT_EQ(count({0.0f, 0.07f, 0.01f}), 1u);
}

// The same store through real signature objects, as the exported layer hands them over.
CAudioSignMulti signatureOf(const SFakeSignature& s, bool withVersion = true) {
  auto* data = new CSignDataMulti();
  for (const auto& feature : s.features) {
    auto* object = new CFeatureObject<float>(feature.first.c_str(), 2027);
    object->AppendVector(BaseVector<float>(const_cast<float*>(feature.second.data()),
                                           static_cast<uint32_t>(feature.second.size())));
    data->AddFeatureObject(object);
  }
  if (withVersion) data->addFrame(SMetaFrame(3, 2, "VER", s.version.c_str()));
  CAudioSignMulti signature;
  signature.adopt(data);
  return signature;
}

TEST_F(SignatureDatabaseTest, SignatureObjectsScoreLikeTheirFeatures) {
  for (uint32_t id = 1; id <= 3; ++id) db.addSignature(signatureOf(photo(id)), id, 0, id);
  const std::vector<SClassifyResult> viaObjects =
      db.classifyFloat(signatureOf(photo(2)), 0, nullptr);
  expectSameResults(viaObjects, classify(photo(2), 0));
  const CAudioSignMulti noVersion = signatureOf(photo(1), false), empty;
  for (const CAudioSignMulti* s : {&noVersion, &empty}) {
    EXPECT_EQ(thrownText([&] { db.addSignature(*s, 1, 0, 0); }), "Wrong Feature Version");
    EXPECT_EQ(thrownText([&] { db.classifyFloat(*s, 1, nullptr); }), "Wrong Feature Version");
  }
  EXPECT_EQ(db.itemCount(), 3u);
}

}  // namespace
