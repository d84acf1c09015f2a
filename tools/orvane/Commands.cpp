#include "tools/orvane/Commands.h"

#include <orvane.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <unordered_map>

#include "search/CSearchEngine.h"
#include "signature/CAudioSignMulti.h"
#include "tools/orvane/CIndexer.h"
#include "tools/orvane/CPhotoLibrary.h"
#include "tools/orvane/CPhotoMover.h"
#include "tools/orvane/CProgressBar.h"
#include "tools/orvane/CStdoutToStderr.h"
#include "tools/orvane/CToolError.h"
#include "tools/orvane/DuplicateGroups.h"
#include "tools/orvane/DuplicatePlan.h"
#include "tools/orvane/MemoryLimits.h"
#include "tools/orvane/OrientedSearch.h"
#include "tools/orvane/PhotoDecoder.h"
#include "tools/orvane/ReviewChoices.h"
#include "tools/orvane/ReviewPage.h"

namespace {

using Json = nlohmann::json;

// Every photo of the library in a search engine, refused before any work when it cannot fit
// in memory. Photos whose signatures cannot be read are reported and left out.
std::unique_ptr<CSearchEngine> openEngine(CPhotoLibrary& library, unsigned jobs) {
  const auto photos = static_cast<std::uint64_t>(library.photoCount());
  const std::uint64_t needed = photos * CSearchEngine::memoryPerPhoto();
  const std::optional<std::uint64_t> available = availableMemory();
  if (available && needed > *available) {
    throw CToolError(library.file(), "searching " + std::to_string(photos) + " photos needs " +
                                         std::to_string(needed >> 20) + " MB of memory, " +
                                         std::to_string(*available >> 20) + " MB are free");
  }
  std::vector<std::pair<SStoredPhoto, std::string>> unreadable;
  auto engine = std::make_unique<CSearchEngine>(library.loadVectors(&unreadable), jobs);
  for (const auto& [photo, reason] : unreadable) {
    std::fprintf(stderr, "orvane: %s: %s; skipped\n", photo.path.c_str(), reason.c_str());
  }
  if (!unreadable.empty()) {
    std::fprintf(stderr, "orvane: %zu photos skipped: their signatures cannot be read\n",
                 unreadable.size());
  }
  return engine;
}

// A search of the engine with an extracted signature: the photos that count as the same photo
// (near 0) or the near nearest, by id, closest first.
Search engineSearch(const CSearchEngine& engine, unsigned near) {
  return [&engine, near](const CFIDContainer& signature) {
    std::stringstream stream;
    signature.write(stream);
    CAudioSignMulti sign;
    sign.read(stream, nullptr);
    CPhotoVectors query;
    query.addSignature(sign, 1);
    std::vector<CFIDMatch> matches;
    for (const SPhotoMatch& match :
         near > 0 ? engine.nearest(query, 0, near) : engine.samePhoto(query, 0)) {
      matches.push_back({static_cast<int>(engine.photos().id(match.position)), 0, match.score});
    }
    return matches;
  };
}

Json matchJson(int id, const std::string& path, float score) {
  return Json{{"id", id}, {"path", path}, {"score", score}};
}

// Told only when the search looked at every orientation.
std::string orientationNote(const SOrientation* orientation) {
  if (orientation == nullptr || *orientation == SOrientation{}) return "";
  return "  (" + orientation->name() + ")";
}

void printMatch(const std::string& path, float score, const SOrientation* orientation) {
  std::printf("  %.4f  %s%s\n", score, path.c_str(), orientationNote(orientation).c_str());
}

// The folders that the paths name, and the folder of each file named.
std::vector<std::string> namedFolders(const std::vector<std::string>& paths) {
  std::vector<std::string> folders;
  for (const std::string& named : paths) {
    std::filesystem::path path = libraryPath(named);
    std::error_code error;
    if (!std::filesystem::is_directory(path, error) || !path.has_filename()) {
      path = path.parent_path();
    }
    folders.push_back(path.string());
  }
  return folders;
}

// Carries out the moves, or with dryRun only says how many there are; the exit status of
// the moves, status when they all went well.
int carryOut(CPhotoLibrary& library, const std::vector<SPhotoMove>& moves, bool dryRun,
             FILE* notes, int status) {
  if (dryRun) {
    std::fprintf(notes, "dry run: %zu photos would move, nothing was changed\n", moves.size());
    return status;
  }
  const SMoveSummary summary = CPhotoMover(library).run(moves);
  library.refreshCache();  // the next search starts from the cache again
  std::fprintf(notes, "%u moved, %u failed\n", summary.moved, summary.failed);
  return summary.failed > 0 ? kExitFailure : status;
}

int runApply(CPhotoLibrary& library, const SDupsOptions& options) {
  std::ifstream in(options.apply, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  if (!in) throw CToolError(options.apply, "cannot be read");
  std::vector<SChoiceRefusal> refused;
  const std::vector<SPhotoMove> moves =
      choiceMoves(options.apply, text.str(), library.photos(), library.indexedFolders(),
                  {options.keep, options.references, options.moveTo}, &refused);
  for (const SChoiceRefusal& refusal : refused) {
    std::fprintf(stderr, "orvane: %s: %s\n", refusal.path.c_str(), refusal.reason.c_str());
  }
  for (const SPhotoMove& move : moves) {
    std::printf("  move  %s  ->  %s\n", move.from.c_str(), move.to.c_str());
  }
  return carryOut(library, moves, options.dryRun, stdout,
                  refused.empty() ? kExitSuccess : kExitFailure);
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
    const DecodeMode mode = options.fast ? DecodeMode::kFast : DecodeMode::kFull;
    summary = CIndexer(library, options.jobs, mode).run(options.paths, options.prune);
  }
  library.addIndexedFolders(namedFolders(options.paths));
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
  return summary.failed > 0 ? kExitFailure : kExitSuccess;
}

int runFind(const SFindOptions& options) {
  CPhotoLibrary library(options.library, CPhotoLibrary::Access::kExisting);
  const std::unique_ptr<CSearchEngine> engine = openEngine(library, options.jobs);
  const std::vector<std::string>& photos = options.photos;
  const unsigned near = options.near;
  const bool json = options.json;
  const bool anyOrientation = options.anyOrientation;

  struct SAnswer {
    std::string failure;
    std::vector<SOrientedMatch> matches;
  };
  std::vector<SAnswer> answers(photos.size());
  {
    CStdoutToStderr libraryOutput;
    CFIDExtractor extractor(1);
    const DecodeMode mode = CIndexer::madeWith(library);
    SBgrPhoto photo;
    for (std::size_t i = 0; i < photos.size(); ++i) {
      try {
        decodePhoto(photos[i], mode, photo);
        answers[i].matches = searchOriented(extractor, photo, anyOrientation,
                                            engineSearch(*engine, near), near);
      } catch (const std::exception& e) {
        answers[i].failure = e.what();
      } catch (const std::string& text) {
        answers[i].failure = text;
      }
      if (!answers[i].failure.empty()) {
        std::fprintf(stderr, "orvane: %s: %s\n", photos[i].c_str(), answers[i].failure.c_str());
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
    for (const SOrientedMatch& match : answers[i].matches) {
      const std::string path = library.photoOf(match.id).path;
      Json entry = matchJson(match.id, path, match.score);
      if (anyOrientation) entry["orientation"] = match.orientation.name();
      result["matches"].push_back(entry);
      if (!json) printMatch(path, match.score, anyOrientation ? &match.orientation : nullptr);
    }
    found = found || !answers[i].matches.empty();
    results.push_back(result);
  }
  if (json) printJson(results);
  return failed ? kExitFailure : found ? kExitSuccess : kExitNothingFound;
}

int runDups(const SDupsOptions& options) {
  if (!options.html.empty() && !options.moveTo.empty() && !options.dryRun) {
    // The page is for looking before anything moves; its choices are carried out by --apply.
    std::fprintf(stderr, "orvane: --html shows what would move: with --move-to, add --dry-run, "
                         "then carry out the page's choices with --apply\n");
    return kExitUsage;
  }
  CPhotoLibrary library(options.library, CPhotoLibrary::Access::kExisting);
  const std::vector<std::string> indexedFolders = library.indexedFolders();
  if (!options.moveTo.empty()) {
    if (const auto refusal = moveToRefusal(options.moveTo, indexedFolders, options.references)) {
      std::fprintf(stderr, "orvane: --move-to %s\n", refusal->c_str());
      return kExitUsage;
    }
  }
  if (!options.apply.empty()) return runApply(library, options);
  const std::unique_ptr<CSearchEngine> engine = openEngine(library, options.jobs);

  std::vector<SOrientedLink> links;
  {
    CProgressBar bar(engine->size());
    for (const SPhotoPair& pair :
         engine->samePhotoPairs([&bar](size_t done, size_t) { bar.update(done); })) {
      links.push_back({static_cast<int>(engine->photos().id(pair.first)),
                       static_cast<int>(engine->photos().id(pair.second)), pair.score, {}});
    }
  }
  const std::vector<SStoredPhoto> photos = library.photos();
  unsigned undecoded = 0;
  if (options.anyOrientation) {
    CStdoutToStderr libraryOutput;
    // Only the turned copies are extracted here, and a fast decode serves them as well as a
    // full one: the same photographs were found either way, at a third of the time.
    const std::vector<SOrientedLink> turned = turnedCopyLinks(
        photos, DecodeMode::kFast, engineSearch(*engine, 0), options.jobs, &undecoded);
    links.insert(links.end(), turned.begin(), turned.end());
  }
  std::vector<SPhotoLink> pairs;
  for (const SOrientedLink& link : links) pairs.push_back({link.a, link.b, link.score});
  const std::unordered_map<int, SOrientation> orientations = closestOrientations(links);
  const std::vector<std::vector<SPlannedMember>> plan =
      planDuplicates(groupDuplicates(pairs), photos, indexedFolders,
                     {options.keep, options.references, options.moveTo});

  Json all = Json::array();
  for (const std::vector<SPlannedMember>& group : plan) {
    Json members = Json::array();
    if (!options.json) std::printf("%zu photos:\n", group.size());
    for (const SPlannedMember& member : group) {
      Json entry = matchJson(member.id, member.path, member.score);
      entry["action"] = member.keep ? "keep" : "move";
      if (!member.target.empty()) entry["target"] = member.target;
      const SOrientation* orientation =
          options.anyOrientation ? &orientations.at(member.id) : nullptr;
      if (orientation != nullptr) entry["orientation"] = orientation->name();
      members.push_back(entry);
      if (!options.json) {
        std::printf("  %s  %.4f  %s%s%s%s\n", member.keep ? "keep" : "move", member.score,
                    member.path.c_str(), orientationNote(orientation).c_str(),
                    member.target.empty() ? "" : "  ->  ", member.target.c_str());
      }
    }
    all.push_back(members);
  }
  if (options.json) {
    printJson(all);
  } else if (plan.empty()) {
    std::printf("no duplicates among %zu photos\n", photos.size());
  }
  if (!options.html.empty()) {
    const SReviewSummary page = writeReviewPage(options.html, libraryPath(library.file()), plan,
                                                     options.jobs);
    std::fprintf(options.json ? stderr : stdout,
                 "review page %s: %zu groups, %zu photos (%zu missing), %lld bytes reclaimable\n",
                 options.html.c_str(), page.groups, page.photos, page.missing,
                 static_cast<long long>(page.reclaimable));
  }
  // A photo that could not be looked at makes the answer incomplete.
  const int status = undecoded > 0 ? kExitFailure : plan.empty() ? kExitNothingFound : kExitSuccess;
  if (plan.empty() || options.moveTo.empty()) return status;

  const std::vector<SPhotoMove> moves = plannedMoves(plan);
  // Standard output holds nothing but the answer in JSON.
  FILE* const notes = options.json ? stderr : stdout;
  return carryOut(library, moves, options.dryRun, notes, status);
}

int runInfo(const std::string& libraryFile) {
  CPhotoLibrary library(libraryFile, CPhotoLibrary::Access::kExisting);
  std::printf("library   %s\n", libraryFile.c_str());
  std::printf("photos    %lld\n", static_cast<long long>(library.photoCount()));
  std::printf("decoding  %s\n", CIndexer::madeWith(library) == DecodeMode::kFast
                                   ? "fast (index --fast)"
                                   : "full");
  std::printf("size      %ju bytes\n",
              static_cast<std::uintmax_t>(std::filesystem::file_size(libraryFile)));
  std::printf("version   %s\n", CFIDContainer::getLibraryVersion().c_str());
  return kExitSuccess;
}
