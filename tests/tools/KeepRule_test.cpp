#include "tools/orvane/KeepRule.h"

#include <gtest/gtest.h>

namespace {

TEST(KeepRuleTest, EachRuleAndItsTies) {
  // path, pixels, size, mtime
  const std::vector<SKeepCandidate> distinct = {
      {"/p/a.jpg", 100, 50, 3}, {"/p/b.jpg", 200, 10, 1}, {"/p/c.jpg", 50, 90, 2}};
  // Ties everywhere but in a's size: the shorter path wins, then the alphabetically first.
  const std::vector<SKeepCandidate> tied = {{"/p/long-name.jpg", 200, 10, 5},
                                            {"/p/b.jpg", 200, 10, 5},
                                            {"/p/a.jpg", 200, 9, 5},
                                            {"/p/c.jpg", 200, 10, 5}};
  const struct {
    EKeepRule rule;
    std::size_t distinctKeeper;
    std::size_t tiedKeeper;
  } cases[] = {
      {EKeepRule::kPixels, 1, 1},  // equal pixels: a loses on size
      {EKeepRule::kLargest, 2, 1},
      {EKeepRule::kNewest, 0, 2},
      {EKeepRule::kOldest, 1, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.rule));
    EXPECT_EQ(chooseKeeper(distinct, c.rule), c.distinctKeeper);
    EXPECT_EQ(chooseKeeper(tied, c.rule), c.tiedKeeper);
  }
}

}  // namespace
