// Duplicate groups: from the pairs of photos that count as the same photo to groups in which
// every photo is linked to another by such a pair (connected components, so a photo joins
// one group only and each group is listed once).
#ifndef ORVANE_TOOLS_DUPLICATEGROUPS_H_
#define ORVANE_TOOLS_DUPLICATEGROUPS_H_

#include <vector>

struct SPhotoLink {
  int a;
  int b;
  float score;
};

struct SGroupMember {
  int id;
  float score;  // to its closest photo in the group
};

// Groups of two photos or more; members by id, groups by their first id.
std::vector<std::vector<SGroupMember>> groupDuplicates(const std::vector<SPhotoLink>& links);

#endif  // ORVANE_TOOLS_DUPLICATEGROUPS_H_
