// Keep rules: which photo of a duplicate group stays where it is.
//
// pixels keeps the photo with the most pixels, then the largest file; largest the largest
// file; newest and oldest go by modification time. Whatever the rule, a tie goes to the
// shorter path, then to the alphabetically first, so that the choice never depends on the
// order of the group.
#ifndef ORVANE_TOOLS_KEEPRULE_H_
#define ORVANE_TOOLS_KEEPRULE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

enum class EKeepRule { kPixels, kLargest, kNewest, kOldest };

struct SKeepCandidate {
  std::string path;
  std::int64_t pixels = 0;  // 0 when the photo cannot be read
  std::int64_t size = 0;
  std::int64_t mtime = 0;
};

// The index of the photo to keep.
// REQUIRES: !candidates.empty().
std::size_t chooseKeeper(const std::vector<SKeepCandidate>& candidates, EKeepRule rule);

#endif  // ORVANE_TOOLS_KEEPRULE_H_
