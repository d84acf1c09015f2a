// CIndexer: brings a library up to date with photo files and folders.
//
// New and changed files are decoded and their signatures extracted on worker threads, one
// CFIDExtractor each; the calling thread alone writes to the library, committing at least
// twice a second, so that an interrupted run keeps what it had done. Unchanged files (same
// size and modification time) are skipped. A file that cannot be used is reported with its
// reason and counted as failed; the run goes on.
#ifndef ORVANE_TOOLS_CINDEXER_H_
#define ORVANE_TOOLS_CINDEXER_H_

#include <string>
#include <vector>

#include "tools/orvane/CPhotoLibrary.h"

struct SIndexSummary {
  unsigned added = 0;    // new paths
  unsigned updated = 0;  // known paths whose file changed
  unsigned skipped = 0;  // unchanged
  unsigned failed = 0;
  unsigned pruned = 0;  // dropped because their file is gone
  double seconds = 0;
  double decodeSeconds = 0;   // summed over the workers
  double extractSeconds = 0;  // summed over the workers
};

class CIndexer {
 public:
  // REQUIRES: jobs > 0.
  CIndexer(CPhotoLibrary& library, unsigned jobs);

  // Indexes the files named and those in the folders named; with prune, also drops the
  // photos whose files are gone. Failures go to standard error as "orvane: <path>: <reason>".
  SIndexSummary run(const std::vector<std::string>& paths, bool prune);

 private:
  struct SJob {
    SPhotoFile file;
    bool known;  // the path is in the library already
  };
  void extractAndStore(const std::vector<SJob>& jobs, SIndexSummary& summary);
  void pruneGone(SIndexSummary& summary);

  CPhotoLibrary& library;
  unsigned jobs;
};

#endif  // ORVANE_TOOLS_CINDEXER_H_
