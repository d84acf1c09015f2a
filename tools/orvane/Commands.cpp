#include "tools/orvane/Commands.h"

#include <orvane.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "tools/orvane/CIndexer.h"
#include "tools/orvane/CPhotoLibrary.h"
#include "tools/orvane/CStdoutToStderr.h"
#include "tools/orvane/DuplicateGroups.h"
#include "tools/orvane/PhotoDecoder.h"

namespace {

using Json = nlohmann::json;

std::unordered_map<int, std::string> pathsById(CPhotoLibrary& library) {
  std::unordered_map<int, std::string> paths;
  for (SStoredPhoto& photo : library.photos()) paths.emplace(photo.id, std::move(photo.path));
  return paths;
}

Json matchJson(int id, const std::string& path, float score) {
  return Json{{"id", id}, {"path", path}, {"score", score}};
}

void printMatch(const std::string& path, float score) {
  std::printf("  %.4f  %s\n", score, path.c_str());
}

void printJson(const Json& json) {
  // Paths need not be UTF-8; such bytes are replaced rather than refused.
  std::printf("%s\n", json.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

}  // namespace

int runIndex(const SIndexOptions& options) {
  CPhotoLibrary library(options.library, CPhotoLibrary::Access::kCreate);
  SIndexSummary summary;
  {
    CStdoutToStderr libraryOutput;
    summary = CIndexer(library, options.jobs).run(options.paths, options.prune);
  }
  const unsigned extracted = summary.added + summary.updated;
  std::printf("%u added, %u updated, %u skipped, %u failed", summary.added, summary.updated,
              summary.skipped, summary.failed);
  if (options.prune) std::printf(", %u pruned", summary.pruned);
  std::printf(" in %.2f s (%.1f photos/s)\n", summary.seconds,
              summary.seconds > 0 ? extracted / summary.seconds : 0.0);
  if (options.timings) {
    std::printf("decoding %.2f s, extraction %.2f s, summed over %u worker%s\n",
                summary.decodeSeconds, summary.extractSeconds, options.jobs,
                options.jobs == 1 ? "" : "s");
  }
  return kExitSuccess;
}

int runFind(const std::string& libraryFile, const std::vector<std::string>& photos,
            unsigned near, bool json) {
  CPhotoLibrary library(libraryFile, CPhotoLibrary::Access::kExisting);
  const std::unique_ptr<CFIDDatabase> database = library.loadDatabase();
  const std::unordered_map<int, std::string> paths = pathsById(library);

  struct SAnswer {
    std::string failure;
    std::vector<CFIDMatch> matches;
  };
  std::vector<SAnswer> answers(photos.size());
  {
    CStdoutToStderr libraryOutput;
    CFIDExtractor extractor(1);
    for (std::size_t i = 0; i < photos.size(); ++i) {
      try {
        const SBgrPhoto photo = decodePhoto(photos[i]);
        const CFIDContainer& signature = extractor.extract(photo.pixels.data(), photo.width,
                                                          photo.height, photo.width * 3, 0, 0);
        if (database->size() > 0) {
          answers[i].matches = near > 0 ? database->classify(signature, near, 1)
                                        : database->classify(signature, 0, 0);
        }
      } catch (const std::exception& e) {
        answers[i].failure = e.what();
        std::fprintf(stderr, "orvane: %s: %s\n", photos[i].c_str(), e.what());
      }
    }
  }

  bool found = false;
  bool failed = false;
  Json results = Json::array();
  for (std::size_t i = 0; i < photos.size(); ++i) {
    Json result{{"photo", photos[i]}, {"matches", Json::array()}};
    if (!answers[i].failure.empty()) {
      result["error"] = answers[i].failure;
      failed = true;
    } else if (!json) {
      std::printf("%s\n", photos[i].c_str());
      if (answers[i].matches.empty()) std::printf("  no %s photo\n", near > 0 ? "stored" : "same");
    }
    for (const CFIDMatch& match : answers[i].matches) {
      const std::string& path = paths.at(match.id);
      result["matches"].push_back(matchJson(match.id, path, match.score));
      if (!json) printMatch(path, match.score);
    }
    found = found || !answers[i].matches.empty();
    results.push_back(result);
  }
  if (json) printJson(results);
  return failed ? kExitFailure : found ? kExitSuccess : kExitNothingFound;
}

int runDups(const std::string& libraryFile, bool json) {
  CPhotoLibrary library(libraryFile, CPhotoLibrary::Access::kExisting);
  const std::unique_ptr<CFIDDatabase> database = library.loadDatabase();
  const std::unordered_map<int, std::string> paths = pathsById(library);

  std::vector<SPhotoLink> links;
  library.forEachSignature([&database, &links](int id, const CFIDContainer& signature) {
    for (const CFIDMatch& match : database->classify(signature, 0, 0)) {
      if (match.id != id) links.push_back({id, match.id, match.score});
    }
  });
  const std::vector<std::vector<SGroupMember>> groups = groupDuplicates(links);

  Json all = Json::array();
  for (const std::vector<SGroupMember>& group : groups) {
    Json members = Json::array();
    if (!json) std::printf("%zu photos:\n", group.size());
    for (const SGroupMember& member : group) {
      const std::string& path = paths.at(member.id);
      members.push_back(matchJson(member.id, path, member.score));
      if (!json) printMatch(path, member.score);
    }
    all.push_back(members);
  }
  if (json) {
    printJson(all);
  } else if (groups.empty()) {
    std::printf("no duplicates among %zu photos\n", paths.size());
  }
  return groups.empty() ? kExitNothingFound : kExitSuccess;
}

int runInfo(const std::string& libraryFile) {
  CPhotoLibrary library(libraryFile, CPhotoLibrary::Access::kExisting);
  std::printf("library   %s\n", libraryFile.c_str());
  std::printf("photos    %lld\n", static_cast<long long>(library.photoCount()));
  std::printf("size      %ju bytes\n",
              static_cast<std::uintmax_t>(std::filesystem::file_size(libraryFile)));
  std::printf("version   %s\n", CFIDContainer::getLibraryVersion().c_str());
  return kExitSuccess;
}
