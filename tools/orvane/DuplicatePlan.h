// Duplicate plans: in each duplicate group, which photos stay and where the others would go.
//
// Photos under a reference folder always stay, and a group is planned only when it holds a
// photo outside them; in a group without one, the keep rule chooses the one photo that
// stays. Photos already under the move-to folder are set aside by an earlier run and take
// no part. A photo that goes is planned at its moveTarget.
#ifndef ORVANE_TOOLS_DUPLICATEPLAN_H_
#define ORVANE_TOOLS_DUPLICATEPLAN_H_

#include <optional>
#include <string>
#include <vector>

#include "tools/orvane/CPhotoLibrary.h"
#include "tools/orvane/DuplicateGroups.h"
#include "tools/orvane/KeepRule.h"

struct SPlanOptions {
  EKeepRule rule = EKeepRule::kPixels;
  std::vector<std::string> references;  // folders
  std::string moveTo;                   // empty: no targets are planned
};

struct SPlannedMember {
  int id = 0;
  std::string path;
  float score = 0;  // to its closest photo in the group
  bool keep = false;
  bool reference = false;  // under a reference folder, so it stays whatever the rule says
  std::string target;  // where it goes; empty when it stays or no folder was named
};

// Why the photos cannot be moved into moveTo (it lies inside an indexed or a reference
// folder, where moved photos would be found again); nothing when they can.
std::optional<std::string> moveToRefusal(const std::string& moveTo,
                                         const std::vector<std::string>& indexedFolders,
                                         const std::vector<std::string>& references);

// Whether the path lies under one of the folders.
bool isInFolders(const std::string& path, const std::vector<std::string>& folders);

// Where a photo goes under moveTo: at its path relative to the outermost indexed folder that
// holds it, or at its whole absolute path when none does.
std::string moveTarget(const std::string& path, const std::vector<std::string>& indexedFolders,
                       const std::string& moveTo);

// REQUIRES: every member of groups is in photos.
std::vector<std::vector<SPlannedMember>> planDuplicates(
    const std::vector<std::vector<SGroupMember>>& groups, const std::vector<SStoredPhoto>& photos,
    const std::vector<std::string>& indexedFolders, const SPlanOptions& options);

// The moves of a plan, group by group.
std::vector<SPhotoMove> plannedMoves(const std::vector<std::vector<SPlannedMember>>& plan);

#endif  // ORVANE_TOOLS_DUPLICATEPLAN_H_
