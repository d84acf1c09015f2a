#include "database/CSignatureDatabase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "database/DistanceKernels.h"
#include "tests/support/HexBytes.h"
#include "tests/support/NextUnit.h"
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
      const float v = nextUnit(state);
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

// Results as (high word << 32 | low word, score), in order.
using Ranking = std::vector<std::pair<uint64_t, float>>;
Ranking ranking(const std::vector<SClassifyResult>& results) {
  Ranking out;
  for (const SClassifyResult& r : results)
    out.emplace_back(uint64_t{r.idHigh} << 32 | r.idLow, r.score);
  return out;
}

class SignatureDatabaseTest : public testing::Test {
 protected:
  SignatureDatabaseTest() { build(db); }
  static void build(CSignatureDatabase& store) {
    std::vector<SFeatureGroupDef> defs;
    buildFeatureGroupDefs(defs);
    store.init(defs, 0);
  }

  void add(const SFakeSignature& s, uint32_t id, uint32_t tag = 0) {
    db.addFeatures(s.version, s.tiles(), id, 0, tag);
  }
  Ranking classify(const SFakeSignature& s, int mode, const SRankCut& cut = SRankCut()) {
    return ranking(db.classifyFeatures(s.version, s.tiles(), mode, nullptr, cut));
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
        EXPECT_EQ(db.groups[g].items[i].index, i) << db.groups[g].name;
        ids[g].push_back(db.groups[g].items[i].idLow);
      }
      EXPECT_EQ(ids[g], ids[0]) << db.groups[g].name;
    }
    return ids[0];
  }

  CSignatureDatabase db;
};

TEST_F(SignatureDatabaseTest, SetWeightClampsButRemembersThePercent) {
  // The scale is checked on the first group of the key; key 5 moves no group.
  const struct {
    int32_t key;
    float percent, weight;
    size_t group;
    float scale;
  } cases[] = {{0, 150.0f, 1.0f, 1, 0.4f}, {1, 100.0f, 0.2f, 0, 0.2f}, {0, -3.0f, 0.0f, 1, 0.0f},
               {1, 0.0f, 0.0f, 0, 0.0f}, {5, 80.0f, 0.8f, 0, 0.0f}};
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
  EXPECT_EQ(classify(photo(5), 1)[0].second, 0.0f);
  for (uint32_t id : {1, 4, 3}) db.removeSignature(id, 0);
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
  CSignatureDatabase bare;  // no groups before init; nothing to remove, nothing to report
  bare.removeSignature(1, 0);
  EXPECT_EQ(thrownText([&] { bare.itemCount(); }), "No database initialized");
  EXPECT_EQ(thrownText([&] { bare.addFeatures("V6", photo(1).tiles(), 1, 0, 0); }),
            "addSignature without database initialized");
  EXPECT_EQ(thrownText([&] { bare.classifyFeatures("V6", photo(1).tiles(), 1, nullptr); }),
            "classifyFloat without database initialized");
  add(photo(1), 1);
  add(photo(2), 2);
  const Ranking before = classify(photo(2), 1);
  SFakeSignature noSat = photo(3), v5 = photo(3);
  noSat.features.erase("SAT");  // refused after two groups took the photo
  v5.version = "V5";
  const char* const kAdd = "addSignature Unknown Error";
  const char* const kClassify = "classifyFloat Error Unknown Error";
  const char* const kVersion = "Wrong Feature Version";
  const struct {
    const SFakeSignature s;
    uint32_t id;
    const char* addText;
    const char* classifyText;
  } cases[] = {{noSat, 3, kAdd, kClassify}, {v5, 3, kVersion, kVersion},
               {photo(3), 0, kAdd, nullptr}, {v5, 0, kVersion, nullptr}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.addText << " " << c.id);
    EXPECT_EQ(thrownText([&] { add(c.s, c.id); }), c.addText);
    if (c.classifyText) {
      EXPECT_EQ(thrownText([&] { classify(c.s, 1); }), c.classifyText);
    }
    EXPECT_EQ(storedIds(), (std::vector<uint32_t>{1, 2}));
    EXPECT_EQ(ranking(db.finalResults), before);
  }
  db.groups[2].items.clear();  // a later group emptied behind the first one's back
  EXPECT_EQ(thrownText([&] { classify(photo(2), 1); }), "classify called to empty database");
  EXPECT_EQ(ranking(db.finalResults), before);
}

// Mode 5, one past the rows, is refused; mode 7 and negative modes use row 1; the distance
// handed in changes nothing. Modes 0 to 4 are checked against the reference scan.
TEST_F(SignatureDatabaseTest, ModesOutsideTheRows) {
  for (uint32_t id = 1; id <= 6; ++id) add(photo(id * 3), id);
  EXPECT_EQ(thrownText([&] { classify(photo(4), 5); }), "Error classifing");
  const Ranking one = classify(photo(4), 1);
  for (int mode : {7, -1, -2}) EXPECT_EQ(classify(photo(4), mode), one);
  EXPECT_EQ(ranking(db.classifyFeatures("V6", photo(4).tiles(), 1, distanceFunctionOfKind(4))),
            one);
}

// A few thousand photos, some stored twice (ties), scored as an independent reference does
// it (the one-vector kernels, shares summed in float, a stable sort), in every mode and both
// scan forms, through every kind of cut.
TEST_F(SignatureDatabaseTest, ScanMatchesTheKernelsInBothFormsAndEveryCut) {
  std::vector<SFakeSignature> photos;
  for (uint32_t seed = 0; seed < 3000; ++seed)
    photos.push_back(seed < 2990 ? photo(seed) : photo((seed - 2990) * 7, 0.0002f));
  for (uint32_t id = 1; id <= photos.size() + 40; ++id) add(photos[(id - 1) % photos.size()], id);
  const auto reference = [&](const SFakeSignature& query, int mode) {
    Ranking ranked;
    for (uint32_t id = 1; id <= photos.size() + 40; ++id) {
      const SFakeSignature& p = photos[(id - 1) % photos.size()];
      float score = 0.0f;
      for (const CFeatureGroup& group : db.groups) {
        HeapMatrix<float> v, q;
        group.makeVector(v, p.features.at(group.featureName).data());
        group.makeVector(q, query.features.at(group.featureName).data());
        const SDistanceRow& row = group.distanceRows[mode];
        const DistanceKernel kernel =
            row.kind == 0 ? windowedCumulativeDifference : meanAbsoluteDifference;
        const double d =
            kernel(v.m_data, v.m_cols, q.m_data, v.m_cols, row.start, row.end, group.binsPerTile);
        score += static_cast<float>(d * static_cast<double>(group.scale));
      }
      ranked.emplace_back(id, score);
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& a, const auto& b) { return a.second < b.second; });
    return ranked;
  };
  for (size_t q : {size_t{14}, size_t{2990}, size_t{500}}) {
    for (int mode = 0; mode < 5; ++mode) {
      const Ranking ranked = reference(photos[q], mode);
      for (ScanForm form : {ScanForm::kPortable, ScanForm::kAvx2}) {
        db.scanForm = form;
        const size_t same = CSignatureDatabase::countBelowThreshold(
            db.classifyFeatures("V6", photos[q].tiles(), mode, nullptr));
        EXPECT_GE(same, q == 500 ? 0u : 2u);  // the photo stored twice, or its nudged twin
        // Every cut leaves a prefix of the reference.
        for (const SRankCut cut : {SRankCut{0, false}, {1, false}, {7, false}, {46, false},
                                   {47, false}, {2999, false}, {5000, false}, {1, true}}) {
          const size_t n = cut.samePhotoOnly ? same
                           : cut.maxResults ? std::min<size_t>(cut.maxResults, ranked.size())
                                            : ranked.size();
          ASSERT_EQ(classify(photos[q], mode, cut), Ranking(ranked.begin(), ranked.begin() + n))
              << q << " " << mode << " " << cut.maxResults << " " << cut.samePhotoOnly;
        }
      }
    }
  }
}

// Only the leading scores count; the float nearest 0.07 lies above the double 0.07.
TEST(SignatureDatabaseThresholdTest, CountsLeadingScoresUpToTheDoubleThreshold) {
  const float scores[] = {0.0f, 0.069999993f, 0.07f, 0.01f};
  std::vector<SClassifyResult> results(4);
  for (size_t i = 0; i < 4; ++i) results[i].score = scores[i];
  EXPECT_EQ(CSignatureDatabase::countBelowThreshold(results), 2u);
}

// Versions and weights as a store has them after creation (percent 50 for both keys).
const char kVersionsAndWeights[] =
    "33 00 00 00 04 00 00 00 01  35 00 00 00 02 56 36 "
    "33 00 00 00 04 00 00 00 02 "
    "33 00 00 00 04 00 00 00 00  33 00 00 00 04 42 48 00 00  33 00 00 00 04 3F 00 00 00 "
    "33 00 00 00 04 00 00 00 01  33 00 00 00 04 42 48 00 00  33 00 00 00 04 3D CC CC CD "
    "33 00 00 00 04 00 00 00 04 ";

// The empty store's stream; then ids 7, 8 (with high word 3), 9 added and 7 removed: 9 moves
// into the gap, so the stream holds 9, then 8.
TEST_F(SignatureDatabaseTest, StreamsAreGolden) {
  // Per group: scale, reserved word, item count; per item: index, id, tag, vector length, one
  // row, and the photo's level (hex of the float) throughout.
  const char* const scales[] = {"3D CC CC CD", "3E 4C CC CD", "3E 19 99 9A", "3E 19 99 9A"};
  const char* const columns[] = {"00 00 00 C0", "00 00 01 00", "00 00 00 40", "00 00 00 40"};
  const char* const levels[2][4] = {{"00 00 00 00", "3E 80 00 00", "00 00 00 00", "3F 80 00 00"},
                                    {"00 00 00 00", "3F 80 00 00", "3F 00 00 00", "40 00 00 00"}};
  const char* const ids[2] = {"00 00 00 00 00 00 00 09  33 00 00 00 04 00 00 00 6D",
                              "00 00 00 03 00 00 00 08  33 00 00 00 04 00 00 00 6C"};
  const auto expected = [&](const std::string& head, int items) {
    std::string hex = head + " " + kVersionsAndWeights;
    for (int g = 0; g < 4; ++g) {
      hex += "33 00 00 00 04 " + std::string(scales[g]) + "  33 00 00 00 04 00 00 00 00 " +
             " 33 00 00 00 04 00 00 00 0" + std::to_string(items) + " ";
      for (int item = 0; item < items; ++item) {
        hex += "33 00 00 00 04 00 00 00 0" + std::to_string(item) + "  34 00 00 00 08 " +
               ids[item] + "  33 00 00 00 04 " + columns[g] + "  33 00 00 00 04 00 00 00 01 ";
        for (uint32_t i = 0; i < db.groups[g].vectorLength; ++i)
          hex += "33 00 00 00 04 " + std::string(levels[item][g]) + " ";
      }
    }
    return hexText(hexBytes(hex + "58"));
  };
  EXPECT_EQ(hexText(save(db)), expected("00 00 00 CE  4F 52 56 31 00  00 00 00 C5", 0));
  add(flat(3.0f, 3.0f, 3.0f), 7, 107);
  db.addFeatures("V6", flat(1.0f, 0.5f, 2.0f).tiles(), 8, 3, 108);
  add(flat(0.25f, 0.0f, 1.0f), 9, 109);
  db.removeSignature(7, 0);
  EXPECT_EQ(hexText(save(db)), expected("00 00 2A D6  4F 52 56 31 00  00 00 2A CD", 2));
}

// Enough photos, some with a high id word, to fill several blocks and more than one read of a
// stream, with gaps filled by removals, read from a stream that can tell its size (decoded
// while read) and from one that cannot (read whole first): the load keeps the order and stops
// after the message; with the weights set again, the store saves the same bytes.
TEST_F(SignatureDatabaseTest, ManyPhotosRoundTripByteForByte) {
  for (uint32_t id = 1; id <= 250; ++id) db.addFeatures("V6", photo(id).tiles(), id, id % 3, id);
  for (uint32_t id : {1u, 50u, 99u}) db.removeSignature(id, id % 3);
  const std::string stream = save(db);
  ASSERT_EQ(stream.size(), 210u + 247 * 5380u);
  struct SForwardBuf : std::streambuf {
    explicit SForwardBuf(std::string& s) { setg(s.data(), s.data(), s.data() + s.size()); }
  };
  for (const bool seekable : {true, false}) {
    SCOPED_TRACE(seekable ? "seekable" : "forward only");
    std::string bytes = stream + "tail", rest;
    std::istringstream file(bytes);
    SForwardBuf forward(bytes);
    std::istream in(seekable ? static_cast<std::streambuf*>(file.rdbuf()) : &forward);
    CSignatureDatabase into;
    build(into);
    EXPECT_EQ(into.loadFromStream(in), stream.size());
    in >> rest;
    EXPECT_EQ(rest, "tail");
    into.setWeight(0, 50.0f);
    into.setWeight(1, 50.0f);
    EXPECT_EQ(save(into), stream);
  }
}

TEST_F(SignatureDatabaseTest, HeaderAndVersionsComeFromTheStream) {
  std::string stream = save(db);
  stream[7] = '2';  // "ORV2": nothing is read, but both weights are reset to 0.5 all the same
  CSignatureDatabase loaded;
  build(loaded);
  loaded.addFeatures("V6", photo(1).tiles(), 1, 0, 0);
  EXPECT_EQ(load(loaded, stream), stream.size());
  EXPECT_EQ(loaded.itemCount(), 1u);
  EXPECT_EQ(loaded.weights.at(0).percent, 0.5f);
  EXPECT_EQ(loaded.weights.at(1).percent, 0.5f);
  stream[7] = '1';
  stream[stream.find("V6") + 1] = '7';
  load(loaded, stream);
  EXPECT_EQ(loaded.itemCount(), 0u);
  EXPECT_EQ(thrownText([&] { loaded.addFeatures("V6", photo(1).tiles(), 1, 0, 0); }),
            "Wrong Feature Version");
}

// Whatever the damage, a load ends quietly, keeps the items read before it (a stream without a
// whole head changes nothing), and leaves a store that classifies and removes without fault.
TEST_F(SignatureDatabaseTest, DamagedStreamsKeepTheStoreUsable) {
  for (uint32_t id = 1; id <= 2; ++id) add(photo(id), id);
  const std::string good = save(db);
  // The first item of group 0: behind the empty store's values and group 0's head.
  const size_t item = 210 - 1 - 4 * 27 + 27;
  const struct {
    size_t offset;
    std::string bytes;
    size_t keep;      // bytes of the stream kept, the rest cut off
    uint32_t photos;  // stored after the load
  } cases[] = {
      {item + 5, std::string("\0\0\0\1", 4), good.size(), 0},          // index not its position
      {item - 4, std::string("\x7F\xFF\xFF\xFF", 4), good.size(), 0},  // huge item count
      {0, std::string("\xFF\xFF\xFF\xFF", 4), 20, 0},  // 4 GiB announced, 20 bytes there
      {0, "", good.size() - 3000, 2},                  // cut in group 1's second item
      {0, "", 7, 1},                                   // cut in the head
      {0, "", 0, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.offset << " " << c.keep);
    std::string stream = good;
    stream.replace(c.offset, c.bytes.size(), c.bytes);
    stream.resize(c.keep);
    CSignatureDatabase store;
    build(store);
    store.addFeatures("V6", photo(9).tiles(), 9, 0, 0);
    ASSERT_NO_THROW(load(store, stream));
    EXPECT_EQ(store.itemCount(), c.photos);
    if (store.itemCount() == 0) continue;
    // Groups left out of step by the damage are refused; what matters is no fault.
    thrownText([&] { store.classifyFeatures("V6", photo(1).tiles(), 1, nullptr); });
    // The second photo was cut off in group 1: groups holding fewer have no such position.
    if (c.photos == 2) {
      EXPECT_EQ(thrownText([&] { store.removeSignature(2, 0); }), "Index not found");
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
