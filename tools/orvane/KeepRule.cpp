#include "tools/orvane/KeepRule.h"

#include <tuple>

namespace {

// Orders by the rule's measures, larger first; negating a measure turns "larger" into
// "smaller" for the rules that prefer less.
std::tuple<std::int64_t, std::int64_t> measures(const SKeepCandidate& candidate, EKeepRule rule) {
  switch (rule) {
    case EKeepRule::kPixels:
      return {candidate.pixels, candidate.size};
    case EKeepRule::kLargest:
      return {candidate.size, 0};
    case EKeepRule::kNewest:
      return {candidate.mtime, 0};
    case EKeepRule::kOldest:
      return {-candidate.mtime, 0};
  }
  return {0, 0};
}

bool better(const SKeepCandidate& a, const SKeepCandidate& b, EKeepRule rule) {
  const auto measuresA = measures(a, rule);
  const auto measuresB = measures(b, rule);
  if (measuresA != measuresB) return measuresA > measuresB;
  if (a.path.size() != b.path.size()) return a.path.size() < b.path.size();
  return a.path < b.path;
}

}  // namespace

std::size_t chooseKeeper(const std::vector<SKeepCandidate>& candidates, EKeepRule rule) {
  std::size_t keeper = 0;
  for (std::size_t i = 1; i < candidates.size(); ++i) {
    if (better(candidates[i], candidates[keeper], rule)) keeper = i;
  }
  return keeper;
}
