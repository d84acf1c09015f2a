#include "tools/orvane/CIndexer.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <thread>
#include <unordered_map>

#include "tools/orvane/CProgressBar.h"
#include "tools/orvane/CToolError.h"

namespace {

using Clock = std::chrono::steady_clock;

// A transaction is committed once it is this old, so that an interruption loses little.
constexpr std::chrono::milliseconds kCommitEvery(500);
// How long the writer waits for a result before it looks at the clock again.
constexpr std::chrono::milliseconds kWakeEvery(100);
// The library setting that holds the decode mode.
constexpr const char* kDecodeSetting = "decode";

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string reportLine(const std::string& path, const std::string& reason) {
  return "orvane: " + path + ": " + reason;
}

struct SResult {
  std::size_t job = 0;
  std::string signature;  // the signature stream; empty when the photo failed
  std::string failure;
  std::string notice;  // said of a photo that was indexed all the same
  double decodeSeconds = 0;
  double extractSeconds = 0;
};

class ResultQueue {
 public:
  void push(SResult result) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      results.push_back(std::move(result));
    }
    ready.notify_one();
  }
  std::optional<SResult> pop(std::chrono::milliseconds wait) {
    std::unique_lock<std::mutex> lock(mutex);
    if (!ready.wait_for(lock, wait, [this] { return !results.empty(); })) return std::nullopt;
    SResult result = std::move(results.front());
    results.pop_front();
    return result;
  }

 private:
  std::mutex mutex;
  std::condition_variable ready;
  std::deque<SResult> results;
};

std::string boundNotice(const SBgrPhoto& photo) {
  return std::to_string(photo.fileWidth) + " x " + std::to_string(photo.fileHeight) +
         " pixels, more than " + std::to_string(kMaxDecodedPixels / 1'000'000) +
         " megapixels: indexed from a decode at " + std::to_string(photo.width) + " x " +
         std::to_string(photo.height);
}

// A worker: takes the next photo until there is none or the writer stops.
void extractPhotos(CFIDExtractor& extractor, DecodeMode mode,
                   const std::vector<std::string>& paths, std::atomic<std::size_t>& next,
                   const std::atomic<bool>& stop, ResultQueue& results) {
  SBgrPhoto photo;
  for (std::size_t job = next++; job < paths.size() && !stop; job = next++) {
    SResult result;
    result.job = job;
    try {
      const Clock::time_point start = Clock::now();
      decodePhoto(paths[job], mode, photo);
      result.decodeSeconds = secondsSince(start);
      if (photo.bounded) result.notice = boundNotice(photo);
      const Clock::time_point extractStart = Clock::now();
      const CFIDContainer& signature = CIndexer::signatureOf(extractor, photo);
      std::ostringstream out;
      signature.write(out);
      result.signature = out.str();
      result.extractSeconds = secondsSince(extractStart);
    } catch (const std::exception& e) {
      result.failure = e.what();
    }
    results.push(std::move(result));
  }
  endDecoderThread();
}

}  // namespace

CIndexer::CIndexer(CPhotoLibrary& library, unsigned jobs, DecodeMode mode)
    : library(library), jobs(jobs), mode(mode) {
  if (library.setting(kDecodeSetting, "").empty() && library.photoCount() == 0) {
    library.begin();
    library.putSetting(kDecodeSetting, decodeModeName(mode));
    library.commit();
  }
  const DecodeMode made = madeWith(library);
  if (made == mode) return;
  throw CToolError(library.file(),
                   made == DecodeMode::kFast
                       ? "this library was made with --fast; index into it with --fast, or "
                         "into a new library file without it"
                       : "this library was made without --fast; index into it without "
                         "--fast, or into a new library file with it");
}

const CFIDContainer& CIndexer::signatureOf(CFIDExtractor& extractor, const SBgrPhoto& photo) {
  try {
    return extractor.extract(photo.pixels.data(), photo.width, photo.height, photo.width * 3, 0, 0);
  } catch (const FID_Exception& e) {
    throw CDecodeError("no signature can be made of " + std::to_string(photo.width) + " x " +
                       std::to_string(photo.height) + " pixels (" + e.what() + ")");
  }
}

DecodeMode CIndexer::madeWith(CPhotoLibrary& library) {
  DecodeMode made = DecodeMode::kFull;
  const std::string name = library.setting(kDecodeSetting, decodeModeName(made));
  if (!decodeModeFromName(name, &made)) {
    throw CToolError(library.file(), "unknown decode mode \"" + name + "\"");
  }
  return made;
}

SIndexSummary CIndexer::run(const std::vector<std::string>& paths, bool prune) {
  const Clock::time_point start = Clock::now();
  SIndexSummary summary;
  const std::vector<SPhotoFile> files =
      collectPhotoFiles(paths, [&summary](const std::string& path, const std::string& reason) {
        std::fprintf(stderr, "%s\n", reportLine(path, reason).c_str());
        ++summary.failed;
      });

  std::unordered_map<std::string, SPhotoStamp> known;
  for (const SStoredPhoto& photo : library.photos()) known.emplace(photo.path, photo.stamp);
  std::vector<SJob> work;
  for (const SPhotoFile& file : files) {
    const auto found = known.find(file.path);
    if (found != known.end() && found->second == file.stamp) {
      ++summary.skipped;
    } else {
      work.push_back({file, found != known.end()});
    }
  }

  if (!work.empty()) extractAndStore(work, summary);
  if (prune) pruneGone(summary);
  library.refreshCache();
  summary.seconds = secondsSince(start);
  return summary;
}

void CIndexer::extractAndStore(const std::vector<SJob>& work, SIndexSummary& summary) {
  std::vector<std::string> paths;
  for (const SJob& job : work) paths.push_back(job.file.path);

  // Every extractor is made here, before any worker starts: the first one prepares state
  // that all of them share.
  const std::size_t workers = std::min<std::size_t>(jobs, work.size());
  std::vector<std::unique_ptr<CFIDExtractor>> extractors;
  for (std::size_t i = 0; i < workers; ++i) extractors.push_back(std::make_unique<CFIDExtractor>(1));

  ResultQueue results;
  std::atomic<std::size_t> next{0};
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < workers; ++i) {
    threads.emplace_back(extractPhotos, std::ref(*extractors[i]), mode, std::cref(paths),
                         std::ref(next), std::cref(stop), std::ref(results));
  }
  const auto joinAll = [&threads, &stop] {
    stop = true;
    for (std::thread& thread : threads) thread.join();
  };

  CProgressBar progress(work.size());
  try {
    bool open = false;
    Clock::time_point opened;
    // Results are stored in the order of the files, so that ids follow the paths whatever
    // the order in which the workers finish.
    std::map<std::size_t, SResult> early;
    std::size_t done = 0;
    for (std::size_t stored = 0; stored < work.size();) {
      if (std::optional<SResult> arrived = results.pop(kWakeEvery)) {
        ++done;
        early.emplace(arrived->job, std::move(*arrived));
      }
      for (auto next = early.find(stored); next != early.end(); next = early.find(++stored)) {
        const SResult& result = next->second;
        const SJob& job = work[stored];
        if (!result.failure.empty()) {
          progress.message(reportLine(job.file.path, result.failure));
          ++summary.failed;
        } else {
          if (!result.notice.empty()) progress.message(reportLine(job.file.path, result.notice));
          if (!open) {
            library.begin();
            open = true;
            opened = Clock::now();
          }
          library.putPhoto(job.file.path, job.file.stamp, result.signature);
          ++(job.known ? summary.updated : summary.added);
          summary.decodeSeconds += result.decodeSeconds;
          summary.extractSeconds += result.extractSeconds;
        }
        early.erase(next);
      }
      if (open && Clock::now() - opened >= kCommitEvery) {
        library.commit();
        open = false;
      }
      progress.update(done);
    }
    if (open) library.commit();
  } catch (...) {
    joinAll();
    throw;
  }
  joinAll();
  progress.finish();
}

void CIndexer::pruneGone(SIndexSummary& summary) {
  std::vector<int> gone;
  for (const SStoredPhoto& photo : library.photos()) {
    if (photoFileGone(photo.path)) gone.push_back(photo.id);
  }
  if (gone.empty()) return;
  library.begin();
  for (int id : gone) library.removePhoto(id);
  library.commit();
  summary.pruned = static_cast<unsigned>(gone.size());
}
