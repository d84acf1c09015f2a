#include "tools/orvane/ReviewChoices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tools/orvane/CToolError.h"

namespace {

using ::testing::HasSubstr;

TEST(ReviewChoicesTest, OnlyUntickedPhotosThatMaySafelyMoveAreMoved) {
  const std::vector<SStoredPhoto> photos{
      {1, "/p/a.jpg", {}}, {2, "/p/b.jpg", {}}, {3, "/p/ref/c.jpg", {}},
      {4, "/p/d.jpg", {}}, {5, "/p/e.jpg", {}}, {6, "/out/f.jpg", {}}};
  const std::string text = R"({"orvane": "dups choices", "groups": [
      [{"path": "/p/a.jpg", "keep": true}, {"path": "/p/b.jpg", "keep": false},
       {"path": "/p/ref/c.jpg", "keep": false}, {"path": "/p/gone.jpg", "keep": false}],
      [{"path": "/p/d.jpg", "keep": false}, {"path": "/p/e.jpg", "keep": false}],
      [{"path": "/p/a.jpg", "keep": false}, {"path": "/out/f.jpg", "keep": false},
       {"path": "/p/e.jpg", "keep": true}]]})";
  std::vector<SChoiceRefusal> refused;
  const std::vector<SPhotoMove> moves =
      choiceMoves("c.json", text, photos, {"/p"}, {EKeepRule::kPixels, {"/p/ref"}, "/out"},
                  &refused);
  ASSERT_EQ(moves.size(), 1u);
  EXPECT_EQ(moves[0].id, 2);
  EXPECT_EQ(moves[0].to, "/out/b.jpg");
  std::vector<std::string> refusedPaths;
  for (const SChoiceRefusal& refusal : refused) refusedPaths.push_back(refusal.path);
  EXPECT_THAT(refusedPaths, ::testing::ElementsAre("/p/ref/c.jpg", "/p/gone.jpg", "/p/d.jpg",
                                                   "/p/e.jpg", "/p/a.jpg", "/out/f.jpg",
                                                   "/p/e.jpg"));
}

TEST(ReviewChoicesTest, OtherFilesAreRefused) {
  for (const char* text :
       {"", "[]", R"({"groups": []})", R"({"orvane": 1.5, "groups": []})",
        R"({"orvane": "dups choices", "groups": {}})",
        R"({"orvane": "dups choices", "groups": [{}]})",
        R"({"orvane": "dups choices", "groups": [[{"path": "/a"}]]})",
        R"({"orvane": "dups choices", "groups": [[{"path": 1, "keep": true}]]})"}) {
    SCOPED_TRACE(text);
    std::vector<SChoiceRefusal> refused;
    EXPECT_THAT([&] { choiceMoves("c.json", text, {}, {}, {EKeepRule::kPixels, {}, "/o"}, &refused); },
                ::testing::ThrowsMessage<CToolError>(HasSubstr("c.json: not a choices file")));
  }
}

}  // namespace
