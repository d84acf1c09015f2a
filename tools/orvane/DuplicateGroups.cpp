#include "tools/orvane/DuplicateGroups.h"

#include <algorithm>
#include <map>

namespace {

int findRoot(std::map<int, int>& parent, int id) {
  while (parent[id] != id) {
    parent[id] = parent[parent[id]];
    id = parent[id];
  }
  return id;
}

}  // namespace

std::vector<std::vector<SGroupMember>> groupDuplicates(const std::vector<SPhotoLink>& links) {
  std::map<int, int> parent;
  std::map<int, float> closest;
  for (const SPhotoLink& link : links) {
    for (int id : {link.a, link.b}) {
      parent.emplace(id, id);
      const auto [it, fresh] = closest.emplace(id, link.score);
      if (!fresh) it->second = std::min(it->second, link.score);
    }
  }
  for (const SPhotoLink& link : links) {
    const int rootA = findRoot(parent, link.a);
    const int rootB = findRoot(parent, link.b);
    // The smaller id becomes the root, so that a group is known by its first photo.
    parent[std::max(rootA, rootB)] = std::min(rootA, rootB);
  }
  std::map<int, std::vector<SGroupMember>> groups;
  for (const auto& [id, score] : closest) groups[findRoot(parent, id)].push_back({id, score});
  std::vector<std::vector<SGroupMember>> result;
  for (auto& [root, members] : groups) result.push_back(std::move(members));
  return result;
}
