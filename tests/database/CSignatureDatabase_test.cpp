#include "database/CSignatureDatabase.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>
#include "feature/CFeatureObject.h"
#include "signature/CAudioSignMulti.h"
#include "signature/CSignDataMulti.h"
#include "signature/SMetaFrame.h"
#include "tests/database/StringThrown.h"

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

// Tiles of every feature follow from `seed`, so different seeds give different photos.
SFakeSignature photo(uint32_t seed) {
  SFakeSignature s;
  const std::pair<const char*, size_t> shapes[] = {{"EDG", 96}, {"HUE", 144}, {"SAT", 36},
                                                   {"VAL", 36}};
  for (const auto& shape : shapes) {
    std::vector<float>& v = s.features[shape.first];
    for (size_t i = 0; i < shape.second; ++i) {
      v.push_back(static_cast<float>((seed * 7919u + i * 104729u) % 1000u) / 4000.0f);
    }
  }
  return s;
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

  std::vector<uint32_t> rankedIds(const SFakeSignature& s, int mode) {
    std::vector<uint32_t> ids;
    for (const SClassifyResult& r : classify(s, mode)) ids.push_back(r.idLow);
    return ids;
  }

  // The ids of every group's items, checking that the groups agree and indexes are positions.
  std::vector<uint32_t> storedIds() {
    std::vector<uint32_t> ids;
    for (const SGroupItem& item : db.groups[0].items) ids.push_back(item.idLow);
    for (const CFeatureGroup& group : db.groups) {
      EXPECT_EQ(group.items.size(), ids.size()) << group.name;
      for (size_t i = 0; i < group.items.size() && i < ids.size(); ++i) {
        EXPECT_EQ(group.items[i].idLow, ids[i]) << group.name;
        EXPECT_EQ(group.items[i].index, i) << group.name;
      }
    }
    return ids;
  }

  CSignatureDatabase db;
};

TEST(SignatureDatabaseCreationTest, StartsWithVersionAndHalfPercentWeights) {
  CSignatureDatabase db;
  EXPECT_EQ(db.versions, std::vector<std::string>{"V6"});
  EXPECT_TRUE(db.groups.empty());
  float percent = 0.0f;
  ASSERT_TRUE(db.getWeight(0, &percent));
  EXPECT_EQ(percent, 0.5f);
  EXPECT_EQ(db.weights.at(0).weight, 0.005f);
  EXPECT_EQ(db.weights.at(1).weight, static_cast<float>(0.005f * 0.2));
  EXPECT_EQ(stringThrown([&] { db.itemCount(); }), "No database initialized");
  const SFakeSignature s = photo(1);
  EXPECT_EQ(stringThrown([&] { db.addFeatures("V6", s.tiles(), 1, 0, 0); }),
            "addSignature without database initialized");
  EXPECT_EQ(stringThrown([&] { db.classifyFeatures("V6", s.tiles(), 1, nullptr); }),
            "classifyFloat without database initialized");
  db.removeSignature(1, 0);  // nothing to remove from, nothing to report
}

TEST_F(SignatureDatabaseTest, WeightsAndScalesAfterInit) {
  EXPECT_EQ(db.weights.at(0).weight, 0.5f);
  EXPECT_EQ(db.weights.at(1).weight, 0.1f);
  const float scales[] = {0.1f, 0.2f, 0.15f, 0.15f};
  for (size_t g = 0; g < 4; ++g) EXPECT_EQ(db.groups[g].scale, scales[g]) << db.groups[g].name;
  EXPECT_EQ(db.itemCount(), 0u);
}

TEST_F(SignatureDatabaseTest, SetWeightClampsButRemembersThePercent) {
  struct SCase {
    int32_t key;
    float percent;
    float weight;
  };
  const SCase cases[] = {{0, 150.0f, 1.0f}, {1, 100.0f, 0.2f}, {0, -3.0f, 0.0f}, {1, 0.0f, 0.0f}};
  for (const SCase& c : cases) {
    SCOPED_TRACE(testing::Message() << "key " << c.key << " percent " << c.percent);
    db.setWeight(c.key, c.percent);
    EXPECT_EQ(db.weights.at(c.key).weight, c.weight);
    float percent = 0.0f;
    ASSERT_TRUE(db.getWeight(c.key, &percent));
    EXPECT_EQ(percent, c.percent);
    for (const CFeatureGroup& group : db.groups) {
      if (group.weightKey == c.key) {
        EXPECT_EQ(group.scale, c.weight * group.groupWeight);
      }
    }
  }
  // Another key is unknown until set, and setting it moves no group.
  float percent = 42.0f;
  EXPECT_FALSE(db.getWeight(5, &percent));
  EXPECT_EQ(percent, 42.0f);
  db.setWeight(5, 80.0f);
  EXPECT_TRUE(db.getWeight(5, &percent));
  EXPECT_EQ(db.weights.at(5).weight, 0.8f);
  const float scales[] = {0.0f, 0.0f, 0.0f, 0.0f};
  for (size_t g = 0; g < 4; ++g) EXPECT_EQ(db.groups[g].scale, scales[g]);
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
  // The moved vector scores as its own photo.
  EXPECT_EQ(classify(photo(4), 1)[0].idLow, 4u);
  EXPECT_EQ(classify(photo(4), 1)[0].score, 0.0f);
  EXPECT_EQ(stringThrown([&] { db.removeSignature(2, 0); }), "Index not found");
  EXPECT_EQ(stringThrown([&] { db.removeSignature(1, 7); }), "Index not found");
  for (uint32_t id : {1, 4, 3}) db.removeSignature(id, 0);
  EXPECT_EQ(db.itemCount(), 0u);
  EXPECT_EQ(stringThrown([&] { db.removeSignature(1, 0); }),
            "Database is emty, item can not be removed");
}

TEST_F(SignatureDatabaseTest, SameIdTwiceGivesTwoItemsRemovedFrontFirst) {
  add(photo(1), 5);
  add(photo(2), 6);
  add(photo(3), 5);
  db.removeSignature(5, 0);
  EXPECT_EQ(storedIds(), (std::vector<uint32_t>{5, 6}));
  EXPECT_EQ(classify(photo(3), 1)[0].score, 0.0f);  // the second 5 stayed
  db.removeSignature(5, 0);
  EXPECT_EQ(storedIds(), std::vector<uint32_t>{6});
}

TEST_F(SignatureDatabaseTest, FailedAddsLeaveTheStoreAsItWas) {
  add(photo(1), 1);
  SFakeSignature noSat = photo(2);
  noSat.features.erase("SAT");
  SFakeSignature shortSat = photo(2);
  shortSat.features["SAT"].pop_back();
  SFakeSignature oldVersion = photo(3);
  oldVersion.version = "V5";
  SFakeSignature noVersion = photo(4);
  noVersion.version = "";
  struct SCase {
    const char* name;
    const SFakeSignature* signature;
    uint32_t idLow;
    const char* text;
  };
  const SCase cases[] = {
      {"id 0", &noSat, 0, "addSignature Unknown Error"},
      {"id 0 of a complete signature", &oldVersion, 0, "Wrong Feature Version"},
      {"missing feature", &noSat, 2, "addSignature Unknown Error"},
      {"short feature", &shortSat, 2, "addSignature Unknown Error"},
      {"other version", &oldVersion, 3, "Wrong Feature Version"},
      {"no version", &noVersion, 4, "Wrong Feature Version"},
  };
  for (const SCase& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(stringThrown([&] { add(*c.signature, c.idLow); }), c.text);
    EXPECT_EQ(storedIds(), std::vector<uint32_t>{1});
  }
  const SFakeSignature complete = photo(5);
  EXPECT_EQ(stringThrown([&] { add(complete, 0); }), "addSignature Unknown Error");
  EXPECT_EQ(storedIds(), std::vector<uint32_t>{1});
}

TEST_F(SignatureDatabaseTest, ClearAllKeepsGroupsAndWeights) {
  add(photo(1), 1);
  classify(photo(1), 1);
  db.setWeight(0, 20.0f);
  db.clearAll();
  EXPECT_EQ(db.itemCount(), 0u);
  EXPECT_TRUE(db.finalResults.empty());
  EXPECT_EQ(db.groups.size(), 4u);
  EXPECT_EQ(db.groups[1].scale, 0.2f * 0.4f);
  EXPECT_EQ(stringThrown([&] { classify(photo(1), 1); }),
            "classifyFloat with 0 items in databases");
}

TEST_F(SignatureDatabaseTest, IdenticalSignatureScoresZeroInEveryMode) {
  for (uint32_t id = 1; id <= 5; ++id) add(photo(id), id);
  for (int mode : {0, 1, 7, -1, 2, 3, 4}) {
    SCOPED_TRACE(testing::Message() << "mode " << mode);
    const std::vector<SClassifyResult>& ranked = classify(photo(3), mode);
    ASSERT_EQ(ranked.size(), 5u);
    EXPECT_EQ(ranked[0].idLow, 3u);
    EXPECT_EQ(ranked[0].score, 0.0f);
    EXPECT_GT(ranked[1].score, 0.0f);
  }
}

TEST_F(SignatureDatabaseTest, ModeSevenAndNegativeModesUseRowOne) {
  for (uint32_t id = 1; id <= 6; ++id) add(photo(id * 3), id);
  const std::vector<SClassifyResult> one = classify(photo(4), 1);
  for (int mode : {7, -1, -2}) {
    SCOPED_TRACE(testing::Message() << "mode " << mode);
    const std::vector<SClassifyResult>& other = classify(photo(4), mode);
    ASSERT_EQ(other.size(), one.size());
    for (size_t i = 0; i < one.size(); ++i) {
      EXPECT_EQ(other[i].idLow, one[i].idLow);
      EXPECT_EQ(other[i].score, one[i].score);
    }
  }
  // The distance handed in by the exported layer changes nothing.
  const std::vector<SClassifyResult>& chosen =
      db.classifyFeatures("V6", photo(4).tiles(), 1, distanceFunctionOfKind(4));
  for (size_t i = 0; i < one.size(); ++i) EXPECT_EQ(chosen[i].score, one[i].score);
}

TEST_F(SignatureDatabaseTest, ScoreSumsTheGroupsWithTheirScales) {
  SFakeSignature stored = photo(1);
  for (auto& feature : stored.features) std::fill(feature.second.begin(), feature.second.end(), 0.0f);
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
  add(photo(9), 10);
  add(photo(1), 20);  // the query itself
  add(photo(9), 30);  // ties with 10
  add(photo(1), 40);  // ties with 20
  add(photo(5), 50);
  std::vector<uint32_t> ids = rankedIds(photo(1), 1);
  ASSERT_EQ(ids.size(), 5u);
  EXPECT_EQ(std::vector<uint32_t>(ids.begin(), ids.begin() + 2), (std::vector<uint32_t>{20, 40}));
  const std::vector<SClassifyResult>& ranked = db.finalResults;
  for (size_t i = 1; i < ranked.size(); ++i) EXPECT_LE(ranked[i - 1].score, ranked[i].score);
  const auto at = [&](uint32_t id) { return std::find(ids.begin(), ids.end(), id) - ids.begin(); };
  EXPECT_LT(at(10), at(30));
  // Removals move 50, then 40 to the front of the items: 40 now goes first among the ties.
  db.removeSignature(10, 0);
  db.removeSignature(50, 0);
  EXPECT_EQ(storedIds(), (std::vector<uint32_t>{40, 20, 30}));
  ids = rankedIds(photo(1), 1);
  EXPECT_EQ(std::vector<uint32_t>(ids.begin(), ids.begin() + 2), (std::vector<uint32_t>{40, 20}));
}

TEST_F(SignatureDatabaseTest, FailedClassificationKeepsThePreviousResults) {
  add(photo(1), 1);
  add(photo(2), 2);
  classify(photo(2), 1);
  const std::vector<SClassifyResult> before = db.finalResults;
  SFakeSignature noHue = photo(2);
  noHue.features.erase("HUE");
  SFakeSignature oldVersion = photo(2);
  oldVersion.version = "V7";
  EXPECT_EQ(stringThrown([&] { classify(noHue, 1); }), "classifyFloat Error Unknown Error");
  SFakeSignature shortHue = photo(2);
  shortHue.features["HUE"].resize(143);
  EXPECT_EQ(stringThrown([&] { classify(shortHue, 1); }), "classifyFloat Error Unknown Error");
  EXPECT_EQ(stringThrown([&] { classify(oldVersion, 1); }), "Wrong Feature Version");
  // A later group emptied behind the first one's back.
  db.groups[2].items.clear();
  EXPECT_EQ(stringThrown([&] { classify(photo(2), 1); }), "classify called to empty database");
  ASSERT_EQ(db.finalResults.size(), before.size());
  for (size_t i = 0; i < before.size(); ++i) {
    EXPECT_EQ(db.finalResults[i].idLow, before[i].idLow);
    EXPECT_EQ(db.finalResults[i].score, before[i].score);
  }
}

TEST(SignatureDatabaseThresholdTest, CountsLeadingScoresUpToTheDoubleThreshold) {
  const auto ranked = [](std::vector<float> scores) {
    std::vector<SClassifyResult> results(scores.size());
    for (size_t i = 0; i < scores.size(); ++i) results[i].score = scores[i];
    return results;
  };
  EXPECT_EQ(CSignatureDatabase::countBelowThreshold(ranked({})), 0u);
  EXPECT_EQ(CSignatureDatabase::countBelowThreshold(ranked({0.0f, 0.069999993f, 0.08f})), 2u);
  // The float nearest 0.07 lies above the double 0.07, so it is cut.
  EXPECT_EQ(CSignatureDatabase::countBelowThreshold(ranked({0.0f, 0.07f, 0.01f})), 1u);
}

// The same store through real signature objects, as the exported layer hands them over.
class SignatureObjectTest : public SignatureDatabaseTest {
 protected:
  static CAudioSignMulti signatureOf(const SFakeSignature& s, bool withVersion = true) {
    auto* data = new CSignDataMulti();
    for (const auto& feature : s.features) {
      auto* object = new CFeatureObject<float>(feature.first.c_str(), 2027);
      object->AppendVector(BaseVector<float>(const_cast<float*>(feature.second.data()),
                                             static_cast<uint32_t>(feature.second.size())));
      data->AddFeatureObject(object);
    }
    data->setCuid(21);
    if (withVersion) data->addFrame(SMetaFrame(3, 2, "VER", s.version.c_str()));
    CAudioSignMulti signature;
    signature.adopt(data);
    return signature;
  }
};

TEST_F(SignatureObjectTest, AddsAndClassifiesSignatures) {
  for (uint32_t id = 1; id <= 3; ++id) db.addSignature(signatureOf(photo(id)), id, 0, id);
  const std::vector<SClassifyResult>& ranked = db.classifyFloat(signatureOf(photo(2)), 0, nullptr);
  ASSERT_EQ(ranked.size(), 3u);
  EXPECT_EQ(ranked[0].idLow, 2u);
  EXPECT_EQ(ranked[0].score, 0.0f);
  // The same scores as through the features themselves.
  const std::vector<SClassifyResult> viaObjects = ranked;
  const std::vector<SClassifyResult>& viaFeatures = classify(photo(2), 0);
  for (size_t i = 0; i < viaObjects.size(); ++i) EXPECT_EQ(viaObjects[i].score, viaFeatures[i].score);
}

TEST_F(SignatureObjectTest, SignatureWithoutVersionOrDataIsRefused) {
  const CAudioSignMulti noVersion = signatureOf(photo(1), false);
  const CAudioSignMulti empty;
  for (const CAudioSignMulti* s : {&noVersion, &empty}) {
    EXPECT_EQ(stringThrown([&] { db.addSignature(*s, 1, 0, 0); }), "Wrong Feature Version");
    EXPECT_EQ(stringThrown([&] { db.classifyFloat(*s, 1, nullptr); }), "Wrong Feature Version");
  }
  EXPECT_EQ(db.itemCount(), 0u);
}

}  // namespace
