// The engine against the database it stands for: a few thousand varied photos (scenes and
// changed copies of them at every distance, exact copies that tie, photos too large or not a
// number for bounds), pairs planted at exactly the float below 0.07, at 0.07 and above it.
// Every answer must equal classify's, bit for bit and in classify's order.
#include "search/CSearchEngine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "database/CSignatureDatabase.h"
#include "tests/search/Scenes.h"
#include "tests/support/ThrownText.h"

namespace {

uint32_t bitsOf(float x) {
  uint32_t bits;
  std::memcpy(&bits, &x, sizeof bits);
  return bits;
}

float floatOf(uint32_t bits) {
  float x;
  std::memcpy(&x, &bits, sizeof x);
  return x;
}

// A copy of `base` whose mode-0 score against it is exactly `target`: hue mass moved from the
// first to the last bin of every tile brings it just below, then the last hue bin alone,
// bisected over its float bit patterns, lands on it.
Features atScore(const Features& base, float target) {
  CSignatureDatabase db;
  std::vector<SFeatureGroupDef> defs;
  buildFeatureGroupDefs(defs);
  db.init(defs, 0);
  db.addFeatures("V6", tilesOf(base), 1, 0, 0);
  const auto scoreOf = [&db](const Features& f) {
    return db.classifyFeatures("V6", tilesOf(f), 0, nullptr)[0].score;
  };
  const auto moved = [&base](double t) {
    Features f = base;
    for (int tile = 0; tile < 9; ++tile) {
      f["HUE"][tile * 16] = static_cast<float>(base.at("HUE")[tile * 16] - t);
      f["HUE"][tile * 16 + 15] = static_cast<float>(base.at("HUE")[tile * 16 + 15] + t);
    }
    return f;
  };
  double low = 0.0, high = 1.0;
  for (int step = 0; step < 60; ++step) {
    const double middle = (low + high) / 2;
    (scoreOf(moved(middle)) < target ? low : high) = middle;
  }
  Features f = moved(low);
  float& last = f["HUE"][143];
  uint32_t below = bitsOf(last), above = bitsOf(last + 0.01f);
  while (above - below > 1) {
    const uint32_t middle = below + (above - below) / 2;
    last = floatOf(middle);
    (scoreOf(f) < target ? below : above) = middle;
  }
  last = floatOf(above);
  EXPECT_EQ(scoreOf(f), target);
  return f;
}

class SearchEngineTest : public testing::Test {
 protected:
  static constexpr uint32_t kPlantedBelow = 900001;  // its pair scores the float below 0.07
  static constexpr uint32_t kPlantedAt = 900003;     // 0.07 as a float, above the double 0.07
  static constexpr uint32_t kPlantedAbove = 900005;  // the float after that

  static void SetUpTestSuite() {
    std::mt19937 random(2027);
    std::uniform_real_distribution<float> exponent(-7.0f, -0.5f);
    for (uint32_t s = 0; s < 250; ++s) {
      const Features base = scene(random);
      add(s * 100 + 1, base);
      for (uint32_t v = 2; v <= 12; ++v) {
        add(s * 100 + v, changed(base, std::exp2(exponent(random)), random));
      }
      if (s % 50 == 0) add(s * 100 + 99, base);  // ties with the scene
    }
    const float below = std::nextafter(0.07f, 0.0f);
    const float above = std::nextafter(0.07f, 1.0f);
    uint32_t id = kPlantedBelow - 1;
    for (float target : {below, 0.07f, above}) {
      const Features planted = scene(random);
      add(id++, planted);
      add(id++, atScore(planted, target));
    }
    Features huge = scene(random), notANumber = scene(random);
    for (float& x : huge["EDG"]) x *= 4000.0f;
    notANumber["HUE"][7] = NAN;
    add(990001, huge);
    add(990002, notANumber);
  }
  static void TearDownTestSuite() { all.clear(); }

  static void add(uint32_t id, const Features& f) { all.emplace_back(id, f); }

  void SetUp() override {
    std::vector<SFeatureGroupDef> defs;
    buildFeatureGroupDefs(defs);
    db.init(defs, 0);
    for (const auto& [id, f] : all) {
      db.addFeatures("V6", tilesOf(f), id, 0, 0);
      photos.addFeatures("V6", tilesOf(f), id);
    }
  }

  void remove(uint32_t id) {
    db.removeSignature(id, 0);
    ASSERT_TRUE(photos.removeId(id));
  }

  // Classify's mode-0 answer for every stored photo against the engine's pairs and per-query
  // answers; its mode-1 answer against nearest, for stored photos and new ones.
  void expectClassifyAnswers(const CSearchEngine& engine) {
    std::set<std::tuple<uint32_t, uint32_t, uint32_t>> expected, found;
    // The stored photos as queries of another set: each one's mode-0 answer, by position.
    std::set<std::tuple<uint32_t, uint32_t, uint32_t>> expectedAcross, foundAcross;
    std::vector<uint32_t> firstAcross;
    for (const SPhotoPair& p : engine.samePhotoPairs(photos)) {
      firstAcross.push_back(p.first);
      foundAcross.emplace(p.first, p.second, bitsOf(p.score));
    }
    EXPECT_TRUE(std::is_sorted(firstAcross.begin(), firstAcross.end()));
    for (const SPhotoPair& p : engine.samePhotoPairs()) {
      ASSERT_LT(p.first, p.second);
      found.emplace(photos.id(p.first), photos.id(p.second), bitsOf(p.score));
      found.emplace(photos.id(p.second), photos.id(p.first), bitsOf(p.score));
    }
    for (size_t q = 0; q < photos.size(); ++q) {
      const uint32_t id = photos.id(q);
      const std::vector<SClassifyResult>& ranked =
          db.classifyFeatures("V6", tilesOf(featuresOf(id)), 0, nullptr);
      const uint32_t same = CSignatureDatabase::countBelowThreshold(ranked);
      const std::vector<SPhotoMatch> answer = engine.samePhoto(photos, q);
      ASSERT_EQ(answer.size(), same) << id;
      for (uint32_t k = 0; k < same; ++k) {
        EXPECT_EQ(photos.id(answer[k].position), ranked[k].idLow) << id << " " << k;
        EXPECT_EQ(bitsOf(answer[k].score), bitsOf(ranked[k].score)) << id << " " << k;
        if (ranked[k].idLow != id) expected.emplace(id, ranked[k].idLow, bitsOf(ranked[k].score));
        expectedAcross.emplace(q, answer[k].position, bitsOf(answer[k].score));
      }
    }
    EXPECT_EQ(found, expected);
    EXPECT_EQ(foundAcross, expectedAcross);
    const bool belowFound = found.count({kPlantedBelow - 1, kPlantedBelow,
                                         bitsOf(std::nextafter(0.07f, 0.0f))}) > 0;
    EXPECT_TRUE(belowFound);
    for (uint32_t id : {kPlantedAt, kPlantedAbove}) {
      for (const auto& pair : found) EXPECT_NE(std::get<1>(pair), id);
    }

    std::mt19937 random(7);
    CPhotoVectors queries;
    for (uint32_t q = 0; q < 40; ++q) {
      // The first two have no bound (too large, not a number).
      const Features f = q < 2   ? featuresOf(990001 + q)
                         : q % 2 ? scene(random)
                                 : changed(all[q * 37].second, 0.05f, random);
      queries.addFeatures("V6", tilesOf(f), q + 1);
      for (size_t n : {1, 7, 60, 5000}) {
        const std::vector<SClassifyResult>& ranked =
            db.classifyFeatures("V6", tilesOf(f), 1, nullptr);
        const std::vector<SPhotoMatch> near = engine.nearest(queries, q, n);
        ASSERT_EQ(near.size(), std::min(n, ranked.size()));
        for (size_t k = 0; k < near.size(); ++k) {
          EXPECT_EQ(photos.id(near[k].position), ranked[k].idLow) << q << " " << n << " " << k;
          EXPECT_EQ(bitsOf(near[k].score), bitsOf(ranked[k].score)) << q << " " << n;
        }
      }
    }
    // A stored photo that has exact copies ties with them: by position, itself included.
    const std::vector<SClassifyResult>& tied = db.classifyFeatures("V6", tilesOf(all[0].second),
                                                                  1, nullptr);
    const std::vector<SPhotoMatch> near = engine.nearest(photos, 0, 3);
    for (size_t k = 0; k < 3; ++k) EXPECT_EQ(photos.id(near[k].position), tied[k].idLow);
  }

  static const Features& featuresOf(uint32_t id) {
    for (const auto& entry : all) {
      if (entry.first == id) return entry.second;
    }
    throw std::out_of_range("no such photo");
  }

  static std::vector<std::pair<uint32_t, Features>> all;
  CSignatureDatabase db;
  CPhotoVectors photos;
};

std::vector<std::pair<uint32_t, Features>> SearchEngineTest::all;

TEST_F(SearchEngineTest, AnswersAsClassify) {
  expectClassifyAnswers(CSearchEngine(photos, 3));
}

TEST_F(SearchEngineTest, AnswersAsClassifyAfterRemovalsAndNewPhotos) {
  for (uint32_t id : {101u, 24912u, 990002u, 5003u, 201u, 990001u}) remove(id);
  std::mt19937 random(11);
  for (uint32_t id = 777001; id < 777020; ++id) {
    add(id, changed(featuresOf(301), 0.02f, random));
    db.addFeatures("V6", tilesOf(all.back().second), id, 0, 0);
    photos.addFeatures("V6", tilesOf(all.back().second), id);
  }
  expectClassifyAnswers(CSearchEngine(photos, 1));
}

TEST(PhotoVectorsTest, RefusesWhatTheStoreRefuses) {
  CPhotoVectors photos;
  Features f;
  f["EDG"].assign(96, 0.1f);
  f["HUE"].assign(144, 0.1f);
  f["SAT"].assign(36, 0.1f);
  const auto text = [&](const std::string& version, uint32_t id) {
    return thrownText([&] {
      photos.addFeatures(version, [&f](const std::string& name, uint32_t) -> const float* {
        return f.count(name) ? f[name].data() : nullptr;
      }, id);
    });
  };
  EXPECT_EQ(text("V5", 1), "Wrong Feature Version");
  EXPECT_EQ(text("V6", 1), "addSignature Unknown Error");  // no "VAL"
  f["VAL"].assign(36, 0.1f);
  EXPECT_EQ(text("V6", 0), "addSignature Unknown Error");
  EXPECT_EQ(text("V6", 1), "");
  EXPECT_EQ(photos.size(), 1u);
  EXPECT_FALSE(photos.removeId(2));
}

}  // namespace
