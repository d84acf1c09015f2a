#include "tools/orvane/DuplicateGroups.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(DuplicateGroupsTest, LinksBecomeGroupsListedOnce) {
  const struct {
    const char* name;
    std::vector<SPhotoLink> links;
    std::vector<std::string> groups;  // "id:score id:score"
  } cases[] = {
      {"no links", {}, {}},
      {"a pair seen from both sides", {{1, 2, 0.02f}, {2, 1, 0.02f}}, {"1:0.02 2:0.02"}},
      {"a chain joins through its middle",
       {{5, 3, 0.01f}, {3, 9, 0.05f}},
       {"3:0.01 5:0.01 9:0.05"}},
      {"two separate groups, ordered by their first id",
       {{8, 7, 0.03f}, {4, 2, 0.06f}},
       {"2:0.06 4:0.06", "7:0.03 8:0.03"}},
      {"a member keeps its closest score",
       {{1, 2, 0.06f}, {2, 3, 0.01f}, {1, 3, 0.04f}},
       {"1:0.04 2:0.01 3:0.01"}},
      {"two groups merged by a late link",
       {{1, 2, 0.01f}, {10, 11, 0.01f}, {11, 2, 0.02f}},
       {"1:0.01 2:0.01 10:0.01 11:0.01"}},
  };
  for (const auto& c : cases) {
    std::vector<std::string> groups;
    for (const std::vector<SGroupMember>& group : groupDuplicates(c.links)) {
      std::string text;
      for (const SGroupMember& member : group) {
        text += (text.empty() ? "" : " ") + std::to_string(member.id) + ':' +
                std::to_string(member.score).substr(0, 4);
      }
      groups.push_back(text);
    }
    EXPECT_EQ(groups, c.groups) << c.name;
  }
}

}  // namespace
