#include "database/CSignatureDatabase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "database/DistanceKernels.h"
#include "feature/CFeatureObject.h"
#include "signature/CAudioSignMulti.h"
#include "signature/CSignDataMulti.h"
#include "signature/SMetaFrame.h"
#include "tests/support/HexBytes.h"
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

const std::pair<const char*, uint32_t> kShapes[] = {
    {"EDG", 96}, {"HUE", 144}, {"SAT", 36}, {"VAL", 36}};

// Histogram-like tiles, a different photo per seed; a small `nudge` moves every value a
// little, so that a nudged photo scores near its original without tying with it.
SFakeSignature photo(uint32_t seed, float nudge = 0.0f) {
  SFakeSignature s;
  uint32_t state = seed * 2654435761u + 7;
  for (const auto& shape : kShapes) {
    for (uint32_t i = 0; i < shape.second; ++i) {
      state = state * 1664525u + 1013904223u;
      const float v = static_cast<float>(state >> 8) / static_cast<float>(1 << 24);
      s.features[shape.first].push_back(v * v / 4.0f + nudge * static_cast<float>(i % 5));
    }
  }
  return s;
}

// No edges and one level per colour feature: every group vector is its level throughout.
SFakeSignature flat(float hue, float sat, float val) {
  SFakeSignature s;
  const float levels[] = {0.0f, hue, sat, val};
  for (int f = 0; f < 4; ++f) s.features[kShapes[f].first].assign(kShapes[f].second, levels[f]);
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
    build(db);
    build(loaded);
  }
  static void build(CSignatureDatabase& store) {
    std::vector<SFeatureGroupDef> defs;
    buildFeatureGroupDefs(defs);
    store.init(defs, 0);
  }

  void add(const SFakeSignature& s, uint32_t id, uint32_t tag = 0) {
    db.addFeatures(s.version, s.tiles(), id, 0, tag);
  }
  const std::vector<SClassifyResult>& classify(const SFakeSignature& s, int mode) {
    return db.classifyFeatures(s.version, s.tiles(), mode, nullptr);
  }
  static std::string save(CSignatureDatabase& from) {
    std::ostringstream out;
    const uint32_t written = from.saveToStream(out);
    EXPECT_EQ(written, out.str().size());
    return out.str();
  }
  static uint32_t load(CSignatureDatabase& into, const std::string& stream) {
    std::istringstream in(stream);
    return into.loadFromStream(in);
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
  CSignatureDatabase loaded;
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
  // A key without a weight is reported, and its groups are left alone.
  db.setWeight(1, 50.0f);
  db.weights.erase(1);
  testing::internal::CaptureStderr();
  db.setWeight(0, 100.0f);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Feature Group not exist\n");
  EXPECT_EQ(db.groups[0].scale, 0.1f);
  EXPECT_EQ(db.groups[1].scale, 0.4f);
}

TEST_F(SignatureDatabaseTest, RemovalMovesTheLastSignatureIntoTheGapAndClearAllEmpties) {
  for (uint32_t id : {1, 2, 3, 4}) add(photo(id), id);
  db.removeSignature(2, 0);
  EXPECT_EQ(storedIds(), (std::vector<uint32_t>{1, 4, 3}));
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
  // Clearing drops items and results, and keeps groups and weights.
  add(photo(1), 1);
  classify(photo(1), 1);
  db.setWeight(0, 20.0f);
  db.clearAll();
  EXPECT_EQ(db.itemCount(), 0u);
  EXPECT_TRUE(db.finalResults.empty());
  EXPECT_EQ(db.groups[1].scale, 0.2f * 0.4f);
  EXPECT_EQ(thrownText([&] { classify(photo(1), 1); }), "classifyFloat with 0 items in databases");
}

TEST_F(SignatureDatabaseTest, FailuresLeaveItemsAndResultsAsTheyWere) {
  add(photo(1), 1);
  add(photo(2), 2);
  const std::vector<SClassifyResult> before = classify(photo(2), 1);
  SFakeSignature noSat = photo(3), shortSat = photo(3), v5 = photo(3), none = photo(3);
  noSat.features.erase("SAT");
  shortSat.features["SAT"].pop_back();
  v5.version = "V5";
  none.version = "";
  const char* const kAdd = "addSignature Unknown Error";
  const char* const kClassify = "classifyFloat Error Unknown Error";
  const char* const kVersion = "Wrong Feature Version";
  const struct {
    const char* name;
    const SFakeSignature s;
    uint32_t id;
    const char* addText;
    const char* classifyText;
  } cases[] = {
      {"missing feature", noSat, 3, kAdd, kClassify},
      {"short feature", shortSat, 3, kAdd, kClassify},
      {"other version", v5, 3, kVersion, kVersion},
      {"no version", none, 3, kVersion, kVersion},
      {"id 0", photo(3), 0, kAdd, nullptr},
      {"id 0, missing feature", noSat, 0, kAdd, nullptr},
      {"id 0, other version", v5, 0, kVersion, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(thrownText([&] { add(c.s, c.id); }), c.addText);
    if (c.classifyText) {
      EXPECT_EQ(thrownText([&] { classify(c.s, 1); }), c.classifyText);
    }
    EXPECT_EQ(storedIds(), (std::vector<uint32_t>{1, 2}));
    expectSameResults(db.finalResults, before);
  }
  db.groups[2].items.clear();  // a later group emptied behind the first one's back
  EXPECT_EQ(thrownText([&] { classify(photo(2), 1); }), "classify called to empty database");
  expectSameResults(db.finalResults, before);
}

// Modes 0 to 4 pick their rows (checked against the reference scan); mode 5, one past the
// rows, is refused; mode 7 and negative modes use row 1; the distance handed in changes nothing.
TEST_F(SignatureDatabaseTest, ModesOutsideTheRows) {
  for (uint32_t id = 1; id <= 6; ++id) add(photo(id * 3), id);
  EXPECT_EQ(thrownText([&] { classify(photo(4), 5); }), "Error classifing");
  const std::vector<SClassifyResult> one = classify(photo(4), 1);
  for (int mode : {7, -1, -2}) expectSameResults(classify(photo(4), mode), one);
  expectSameResults(db.classifyFeatures("V6", photo(4).tiles(), 1, distanceFunctionOfKind(4)), one);
}

// A few thousand photos, some stored twice (ties), scored as an independent reference does
// it (the one-vector kernels, shares summed in float, a stable sort), in every mode and both
// scan forms, through every kind of cut, and again after removals and additions.
TEST_F(SignatureDatabaseTest, ScanMatchesTheKernelsInBothFormsAndEveryCut) {
  std::vector<SFakeSignature> photos;
  for (uint32_t seed = 0; seed < 2990; ++seed) photos.push_back(photo(seed));
  for (uint32_t seed = 0; seed < 10; ++seed) photos.push_back(photo(seed * 7, 0.0002f));
  std::vector<std::pair<uint32_t, size_t>> stored;  // id and photo, by position
  const auto store = [&](uint32_t id, size_t p) {
    stored.emplace_back(id, p);
    add(photos[p], id);
  };
  for (size_t p = 0; p < photos.size() + 40; ++p) store(p + 1, p % photos.size());
  const auto reference = [&](const SFakeSignature& query, int mode) {
    std::vector<std::pair<float, uint32_t>> ranked;
    for (const auto& [id, p] : stored) {
      float score = 0.0f;
      for (const CFeatureGroup& group : db.groups) {
        HeapMatrix<float> v, q;
        group.makeVector(v, photos[p].features.at(group.featureName).data());
        group.makeVector(q, query.features.at(group.featureName).data());
        const SDistanceRow& row = group.distanceRows[mode];
        const DistanceKernel kernel =
            row.kind == 0 ? windowedCumulativeDifference : meanAbsoluteDifference;
        const double d =
            kernel(v.m_data, v.m_cols, q.m_data, v.m_cols, row.start, row.end, group.binsPerTile);
        score += static_cast<float>(d * static_cast<double>(group.scale));
      }
      ranked.emplace_back(score, id);
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    return ranked;
  };
  const auto checkAll = [&] {
    for (size_t q : {size_t{14}, size_t{2990}, size_t{500}}) {
      for (int mode = 0; mode < 5; ++mode) {
        const auto ranked = reference(photos[q], mode);
        for (ScanForm form : {ScanForm::kPortable, ScanForm::kAvx2}) {
          db.scanForm = form;
          const size_t same = CSignatureDatabase::countBelowThreshold(classify(photos[q], mode));
          EXPECT_GE(same, q == 500 ? 0u : 2u);  // the photo stored twice, or its nudged twin
          // Every cut leaves a prefix of the reference.
          for (const SRankCut cut : {SRankCut{0, false}, {1, false}, {7, false}, {46, false},
                                     {47, false}, {2999, false}, {5000, false}, {1, true}}) {
            SCOPED_TRACE(testing::Message()
                         << "query " << q << " mode " << mode << " cut " << cut.maxResults
                         << (cut.samePhotoOnly ? " same" : ""));
            const std::vector<SClassifyResult> results =
                db.classifyFeatures("V6", photos[q].tiles(), mode, nullptr, cut);
            ASSERT_EQ(results.size(),
                      cut.samePhotoOnly
                          ? same
                          : std::min<size_t>(cut.maxResults ? cut.maxResults : ~0u, ranked.size()));
            for (size_t i = 0; i < results.size(); ++i) {
              ASSERT_EQ(results[i].idLow, ranked[i].second) << i;
              ASSERT_EQ(results[i].score, ranked[i].first) << i;
            }
          }
        }
      }
    }
  };
  checkAll();
  for (uint32_t id : {1u, 3030u, 2000u, 17u, 3011u}) {
    db.removeSignature(id, 0);
    *std::find_if(stored.begin(), stored.end(), [id](const auto& e) { return e.first == id; }) =
        stored.back();
    stored.pop_back();
  }
  for (uint32_t id : {1u, 9001u}) store(id, id % photos.size());
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

// Versions and weights as a store has them after creation (percent 50 for both keys).
const char kVersionsAndWeights[] =
    "33 00 00 00 04 00 00 00 01  35 00 00 00 02 56 36 "
    "33 00 00 00 04 00 00 00 02 "
    "33 00 00 00 04 00 00 00 00  33 00 00 00 04 42 48 00 00  33 00 00 00 04 3F 00 00 00 "
    "33 00 00 00 04 00 00 00 01  33 00 00 00 04 42 48 00 00  33 00 00 00 04 3D CC CC CD "
    "33 00 00 00 04 00 00 00 04 ";
// Scale and reserved word of the four groups, in order.
const char* const kGroupHeads[] = {
    "33 00 00 00 04 3D CC CC CD  33 00 00 00 04 00 00 00 00 ",
    "33 00 00 00 04 3E 4C CC CD  33 00 00 00 04 00 00 00 00 ",
    "33 00 00 00 04 3E 19 99 9A  33 00 00 00 04 00 00 00 00 ",
    "33 00 00 00 04 3E 19 99 9A  33 00 00 00 04 00 00 00 00 ",
};
// Stream length, message header and body length in front of the values.
std::string streamHex(const std::string& length, const std::string& body,
                      const std::string& values) {
  return hexText(hexBytes(length + " 4F 52 56 31 00 " + body + " " + values + "58"));
}

TEST_F(SignatureDatabaseTest, EmptyStoreStreamIsGolden) {
  std::string values = kVersionsAndWeights;
  for (const char* group : kGroupHeads)
    values += group + std::string("33 00 00 00 04 00 00 00 00 ");
  const std::string stream = save(db);
  EXPECT_EQ(hexText(stream), streamHex("00 00 00 CE", "00 00 00 C5", values));
  EXPECT_EQ(load(loaded, stream), stream.size());
  EXPECT_EQ(loaded.itemCount(), 0u);
  EXPECT_EQ(loaded.versions, std::vector<std::string>{"V6"});
}

// Ids 7, 8, 9 added, then 7 removed: 9 moves into the gap, so the stream holds 9, then 8.
TEST_F(SignatureDatabaseTest, TwoPhotosAfterRemovalStreamIsGolden) {
  add(flat(3.0f, 3.0f, 3.0f), 7, 107);
  add(flat(1.0f, 0.5f, 2.0f), 8, 108);
  add(flat(0.25f, 0.0f, 1.0f), 9, 109);
  db.removeSignature(7, 0);
  // Per group: vector length, and each photo's level (hex of the float), id and tag.
  const char* const columns[] = {"00 00 00 C0", "00 00 01 00", "00 00 00 40", "00 00 00 40"};
  const char* const levels[2][4] = {{"00 00 00 00", "3E 80 00 00", "00 00 00 00", "3F 80 00 00"},
                                    {"00 00 00 00", "3F 80 00 00", "3F 00 00 00", "40 00 00 00"}};
  const char* const ids[2] = {"00 00 00 09  33 00 00 00 04 00 00 00 6D",
                              "00 00 00 08  33 00 00 00 04 00 00 00 6C"};
  std::string values = kVersionsAndWeights;
  for (int g = 0; g < 4; ++g) {
    values += kGroupHeads[g] + std::string("33 00 00 00 04 00 00 00 02 ");
    for (int item = 0; item < 2; ++item) {
      values += "33 00 00 00 04 00 00 00 0" + std::to_string(item) +
                "  34 00 00 00 08 00 00 00 00 " + ids[item] + "  33 00 00 00 04 " + columns[g] +
                "  33 00 00 00 04 00 00 00 01 ";
      for (uint32_t i = 0; i < db.groups[g].vectorLength; ++i)
        values += "33 00 00 00 04 " + std::string(levels[item][g]) + " ";
    }
  }
  const std::string stream = save(db);
  // 5,380 bytes per photo on top of the empty store's 210.
  ASSERT_EQ(stream.size(), 210u + 2 * 5380u);
  EXPECT_EQ(hexText(stream), streamHex("00 00 2A D6", "00 00 2A CD", values));
  // Loading keeps the order, and with the weights set again, saves the same bytes.
  EXPECT_EQ(load(loaded, stream), stream.size());
  loaded.setWeight(0, 50.0f);
  loaded.setWeight(1, 50.0f);
  EXPECT_EQ(hexText(save(loaded)), hexText(stream));
}

// Enough photos to fill several blocks and more than one read of a stream, with gaps filled
// by removals, read from a stream that can tell its size (decoded while read) and from one
// that cannot (read whole first): the load stops after the message and leaves weights of 0.5,
// not 50, so that scores are a hundredth until the weights are set again; then the store
// saves the same bytes and ranks alike.
TEST_F(SignatureDatabaseTest, ManyPhotosRoundTripByteForByte) {
  for (uint32_t id = 1; id <= 250; ++id) add(photo(id), id, id);
  for (uint32_t id : {1u, 50u, 99u}) db.removeSignature(id, 0);
  const std::string stream = save(db);
  ASSERT_EQ(stream.size(), 210u + 247 * 5380u);
  struct SForwardBuf : std::streambuf {
    explicit SForwardBuf(std::string& s) { setg(s.data(), s.data(), s.data() + s.size()); }
  };
  for (const bool seekable : {true, false}) {
    SCOPED_TRACE(seekable ? "seekable" : "forward only");
    std::string bytes = stream + "tail";
    std::istringstream file(bytes);
    SForwardBuf forward(bytes);
    std::istream in(seekable ? static_cast<std::streambuf*>(file.rdbuf()) : &forward);
    CSignatureDatabase into;
    build(into);
    EXPECT_EQ(into.loadFromStream(in), stream.size());
    std::string rest;
    in >> rest;
    EXPECT_EQ(rest, "tail");
    const std::vector<SClassifyResult> before = classify(photo(7), 1);
    const std::vector<SClassifyResult> small =
        into.classifyFeatures("V6", photo(7).tiles(), 1, nullptr);
    into.setWeight(0, 50.0f);
    into.setWeight(1, 50.0f);
    expectSameResults(into.classifyFeatures("V6", photo(7).tiles(), 1, nullptr), before);
    for (size_t i = 0; i < 5; ++i) {
      EXPECT_EQ(small[i].idLow, before[i].idLow);
      EXPECT_NEAR(small[i].score * 100.0f, before[i].score, before[i].score * 1e-5f);
    }
    EXPECT_EQ(save(into), stream);
  }
}

TEST_F(SignatureDatabaseTest, HighIdWordSurvivesTheStream) {
  db.addFeatures("V6", photo(1).tiles(), 5, 3, 0);
  load(loaded, save(db));
  ASSERT_EQ(loaded.itemCount(), 1u);
  EXPECT_EQ(loaded.groups[0].items[0].idHigh, 3u);
}

TEST_F(SignatureDatabaseTest, HeaderAndVersionsComeFromTheStream) {
  std::string stream = save(db);
  stream[7] = '2';  // "ORV2": nothing is read, but the weights are reset all the same
  loaded.addFeatures("V6", photo(1).tiles(), 1, 0, 0);
  EXPECT_EQ(load(loaded, stream), stream.size());
  EXPECT_EQ(loaded.itemCount(), 1u);
  float percent = 0.0f;
  ASSERT_TRUE(loaded.getWeight(0, &percent));
  EXPECT_EQ(percent, 0.5f);

  stream[7] = '1';
  stream[stream.find("V6") + 1] = '7';
  load(loaded, stream);
  EXPECT_EQ(loaded.itemCount(), 0u);
  EXPECT_EQ(thrownText([&] { loaded.addFeatures("V6", photo(1).tiles(), 1, 0, 0); }),
            "Wrong Feature Version");
}

// Whatever the damage, a load ends quietly, keeps the items read before it (a stream
// without a whole header changes nothing), and leaves a store that classifies without fault.
TEST_F(SignatureDatabaseTest, DamagedStreamsKeepTheStoreUsable) {
  for (uint32_t id = 1; id <= 2; ++id) add(photo(id), id);
  const std::string good = save(db);
  // Offset of the first item of group 0, behind the values of the empty store's stream
  // (210 bytes with its end mark) and group 0's scale, reserved word and count.
  const size_t item = 210 - 1 - 4 * 27 + 27;
  const struct {
    const char* name;
    size_t offset;
    std::string bytes;
    size_t keep;      // bytes of the stream kept, the rest cut off
    uint32_t photos;  // stored after the load
  } cases[] = {
      {"index not its position", item + 5, std::string("\0\0\0\1", 4), good.size(), 0},
      {"columns not the group's", item + 36, std::string("\0\0\0\xBF", 4), good.size(), 0},
      {"two rows", item + 45, std::string("\0\0\0\2", 4), good.size(), 0},
      {"group count 5", item - 31, std::string("\0\0\0\5", 4), good.size(), 0},
      {"huge item count", item - 4, std::string("\x7F\xFF\xFF\xFF", 4), good.size(), 0},
      {"huge version count", 18, std::string("\xFF\xFF\xFF\xFF", 4), good.size(), 0},
      {"huge weight count", 34, std::string("\xFF\xFF\xFF\xFF", 4), good.size(), 0},
      {"item length past the end", item + 1, std::string("\x7F", 1), good.size(), 0},
      {"float item with a text tag", item + 49, "5", good.size(), 0},
      {"cut in the second item", 0, "", good.size() - 3000, 2},
      {"cut in the head", 0, "", 7, 1},
      {"4 GiB announced, 20 bytes there", 0, std::string("\xFF\xFF\xFF\xFF", 4), 20, 0},
      {"nothing", 0, "", 0, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::string stream = good;
    stream.replace(c.offset, c.bytes.size(), c.bytes);
    stream.resize(c.keep);
    CSignatureDatabase store;
    build(store);
    store.addFeatures("V6", photo(9).tiles(), 9, 0, 0);
    ASSERT_NO_THROW(load(store, stream));
    EXPECT_EQ(store.itemCount(), c.photos);
    for (const CFeatureGroup& group : store.groups) {
      for (size_t i = 0; i < group.items.size(); ++i) EXPECT_EQ(group.items[i].index, i);
    }
    if (store.itemCount() == 0) continue;
    try {
      store.classifyFeatures("V6", photo(1).tiles(), 1, nullptr);
    } catch (const std::string&) {
      // Groups left out of step by the damage are refused; what matters is no fault.
    }
  }
}

TEST_F(SignatureDatabaseTest, FailingStreamsReportTheirTexts) {
  struct FailingBuf : std::streambuf {
    int_type overflow(int_type) override { return traits_type::eof(); }
    int_type underflow() override { throw std::ios_base::failure("gone"); }
  } failing;
  std::ostream out(&failing);
  out.exceptions(std::ios::badbit);
  std::istream in(&failing);
  in.exceptions(std::ios::badbit);
  add(photo(1), 1);
  EXPECT_EQ(thrownText([&] { db.saveToStream(out); }), "Error OStreaming Database");
  EXPECT_EQ(thrownText([&] { db.loadFromStream(in); }), "Error IStreaming Database");
  EXPECT_EQ(db.itemCount(), 1u);
}

}  // namespace
