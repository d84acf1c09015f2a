// The exported database as a host sees it: through orvane.h only, on generated photos.
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "tests/api/GeneratedPhoto.h"
#include "tests/support/ThrownText.h"

namespace {

std::vector<std::pair<int, float>> ranked(const std::vector<CFIDMatch>& matches) {
  std::vector<std::pair<int, float>> ranking;
  for (const CFIDMatch& m : matches) ranking.emplace_back(m.id, m.score);
  return ranking;
}

// A database holding the signatures of photos with seeds 1 to `count` under ids 1 to count.
class CFIDDatabaseTest : public ::testing::Test {
 protected:
  CFIDContainer signatureOf(int seed) {
    return GeneratedPhoto(320, 240, seed).extractWith(extractor);
  }
  void store(int count) {
    for (int id = 1; id <= count; ++id) database.addSignature(signatureOf(id), id, 100 + id);
  }
  CFIDExtractor extractor{1};
  CFIDDatabase database{1, 8};
};

}  // namespace

TEST_F(CFIDDatabaseTest, FailuresReachTheHostAsTheirTexts) {
  EXPECT_EQ(thrownText([] { CFIDDatabase d(3, 4); }), "database type not supported");
  EXPECT_EQ(database.getVersions(), std::vector<std::string>{"V6"});
  // The store's own texts pass through unchanged.
  EXPECT_EQ(thrownText([&] { database.removeSignature(1); }),
            "Database is emty, item can not be removed");
  EXPECT_EQ(thrownText([&] { database.addSignature(CFIDContainer(), 5, 0); }),
            "Wrong Feature Version");
}

TEST_F(CFIDDatabaseTest, ModesDecideHowTheRankedListIsCut) {
  store(4);
  const CFIDContainer query = signatureOf(3);
  const std::vector<CFIDMatch> all = database.classify(query, 0, 1);
  ASSERT_EQ(all.size(), 4u);
  EXPECT_EQ(std::make_pair(all[0].id, all[0].score), std::make_pair(3, 0.0f));
  // The photo itself comes first with 0. 7 is mode 1; a negative mode ranks by row 1 too, with
  // the same scores; mode 0 keeps the scores up to 0.07: here the photo itself only.
  for (int mode : {0, 1, 7, -5}) {
    EXPECT_EQ(ranked(database.classify(query, 0, mode)),
              ranked(mode == 0 ? std::vector<CFIDMatch>{all[0]} : all))
        << mode;
  }
  // maxResults cuts the list in mode 1 and is ignored in mode 0.
  for (const auto& [maxResults, mode, size] :
       {std::tuple<unsigned, int, size_t>{2, 1, 2}, {99, 1, 4}, {1, 0, 1}, {4, 0, 1}}) {
    EXPECT_EQ(database.classify(query, maxResults, mode).size(), size) << maxResults << mode;
  }
}

// What the store does with weights, removals and saved streams is pinned by the database tests;
// here they pass through the exported layer.
TEST_F(CFIDDatabaseTest, WeightsRemovalAndSaveAndLoadPassThrough) {
  float before = -1.0f, after = -1.0f;
  EXPECT_TRUE(database.getWeight(1, &before) && !database.getWeight(2, &after));
  database.setWeight(0, 150.0f);
  EXPECT_TRUE(database.getWeight(0, &after));
  EXPECT_EQ(std::make_pair(before, after), std::make_pair(50.0f, 150.0f));

  store(3);
  database.removeSignature(1);
  std::stringstream stream;
  database.save(stream);
  CFIDDatabase loaded(1, 0);
  loaded.load(stream);
  EXPECT_EQ(loaded.size(), 2u);
  std::istringstream failing;  // a stream that throws when it cannot deliver
  failing.exceptions(std::ios::failbit);
  EXPECT_EQ(thrownText([&] { loaded.load(failing); }), "Cant Load Database");
}

TEST_F(CFIDDatabaseTest, CopiesHoldNothingAndFailCleanly) {
  store(1);
  CFIDDatabase copy(database);
  std::stringstream stream;
  float percent;
  EXPECT_TRUE(copy.getVersions().empty());
  EXPECT_EQ(thrownText([&] { copy.size(); }), "No database initialized");
  EXPECT_EQ(thrownText([&] { copy.clear(); }), "Error clearing database");
  EXPECT_EQ(thrownText([&] { copy.classify(signatureOf(1), 0, 0); }), "Not yet implemented");
  EXPECT_EQ(thrownText([&] { copy.save(stream); }), "Cant Save Database");
  EXPECT_FALSE(copy.getWeight(0, &percent));
  copy.addSignature(signatureOf(1), 1, 0);  // does nothing
  EXPECT_EQ(database.size(), 1u);
}
