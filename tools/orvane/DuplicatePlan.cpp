#include "tools/orvane/DuplicatePlan.h"

#include <algorithm>
#include <filesystem>
#include <unordered_map>
#include <vips/vips8>

namespace fs = std::filesystem;

namespace {

// The absolute, normalised form of a folder, without a trailing separator.
fs::path folderPath(const std::string& folder) {
  fs::path path = libraryPath(folder);
  return path.has_filename() ? path : path.parent_path();
}

bool isUnder(const fs::path& path, const fs::path& folder) {
  const fs::path relative = path.lexically_relative(folder);
  return !relative.empty() && *relative.begin() != "..";
}

bool isUnderAny(const fs::path& path, const std::vector<fs::path>& folders) {
  return std::any_of(folders.begin(), folders.end(),
                     [&path](const fs::path& folder) { return isUnder(path, folder); });
}

std::vector<fs::path> folderPaths(const std::vector<std::string>& folders) {
  std::vector<fs::path> paths;
  for (const std::string& folder : folders) paths.push_back(folderPath(folder));
  return paths;
}

// Reads only the file's header; 0 when it cannot.
std::int64_t pixelCount(const std::string& path) {
  try {
    const vips::VImage image = vips::VImage::new_from_file(
        path.c_str(), vips::VImage::option()->set("access", VIPS_ACCESS_SEQUENTIAL));
    return static_cast<std::int64_t>(image.width()) * image.height();
  } catch (const vips::VError&) {
    vips_error_clear();
    return 0;
  }
}

}  // namespace

std::optional<std::string> moveToRefusal(const std::string& moveTo,
                                         const std::vector<std::string>& indexedFolders,
                                         const std::vector<std::string>& references) {
  // Links are followed so that another name of the same folder is caught too.
  std::error_code error;
  const fs::path target = fs::weakly_canonical(folderPath(moveTo), error);
  for (const auto& [folders, kind] : {std::make_pair(&indexedFolders, "an indexed folder"),
                                      std::make_pair(&references, "a reference folder")}) {
    for (const std::string& folder : *folders) {
      const fs::path canonical = fs::weakly_canonical(folderPath(folder), error);
      if (isUnder(folderPath(moveTo), folderPath(folder)) || isUnder(target, canonical)) {
        return moveTo + " is inside " + kind + " (" + folderPath(folder).string() +
               "): choose a folder outside it";
      }
    }
  }
  return std::nullopt;
}

bool isInFolders(const std::string& path, const std::vector<std::string>& folders) {
  return isUnderAny(path, folderPaths(folders));
}

std::string moveTarget(const std::string& path, const std::vector<std::string>& indexedFolders,
                       const std::string& moveTo) {
  const fs::path* outermost = nullptr;
  const std::vector<fs::path> folders = folderPaths(indexedFolders);
  for (const fs::path& folder : folders) {
    if (isUnder(path, folder) && (outermost == nullptr || isUnder(*outermost, folder))) {
      outermost = &folder;
    }
  }
  const fs::path relative = outermost != nullptr ? fs::path(path).lexically_relative(*outermost)
                                                 : fs::path(path).relative_path();
  return (folderPath(moveTo) / relative).string();
}

std::vector<std::vector<SPlannedMember>> planDuplicates(
    const std::vector<std::vector<SGroupMember>>& groups, const std::vector<SStoredPhoto>& photos,
    const std::vector<std::string>& indexedFolders, const SPlanOptions& options) {
  std::unordered_map<int, const SStoredPhoto*> byId;
  for (const SStoredPhoto& photo : photos) byId.emplace(photo.id, &photo);
  const std::vector<fs::path> references = folderPaths(options.references);
  const fs::path moveTo = options.moveTo.empty() ? fs::path() : folderPath(options.moveTo);

  std::vector<std::vector<SPlannedMember>> plan;
  for (const std::vector<SGroupMember>& group : groups) {
    std::vector<SPlannedMember> members;
    std::vector<SKeepCandidate> candidates;
    bool anyReference = false;
    bool anyOther = false;
    for (const SGroupMember& member : group) {
      const SStoredPhoto& photo = *byId.at(member.id);
      if (!moveTo.empty() && isUnder(photo.path, moveTo)) continue;
      const bool reference = isUnderAny(photo.path, references);
      anyReference = anyReference || reference;
      anyOther = anyOther || !reference;
      members.push_back({member.id, photo.path, member.score, reference, reference, ""});
      candidates.push_back({photo.path, 0, photo.stamp.size, photo.stamp.mtime});
    }
    if (members.size() < 2 || !anyOther) continue;
    if (!anyReference) {
      if (options.rule == EKeepRule::kPixels) {
        for (SKeepCandidate& candidate : candidates) candidate.pixels = pixelCount(candidate.path);
      }
      members[chooseKeeper(candidates, options.rule)].keep = true;
    }
    if (!moveTo.empty()) {
      for (SPlannedMember& member : members) {
        if (!member.keep) member.target = moveTarget(member.path, indexedFolders, options.moveTo);
      }
    }
    plan.push_back(std::move(members));
  }
  return plan;
}

std::vector<SPhotoMove> plannedMoves(const std::vector<std::vector<SPlannedMember>>& plan) {
  std::vector<SPhotoMove> moves;
  for (const std::vector<SPlannedMember>& group : plan) {
    for (const SPlannedMember& member : group) {
      if (!member.target.empty()) moves.push_back({member.id, member.path, member.target});
    }
  }
  return moves;
}
