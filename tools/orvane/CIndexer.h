// CIndexer: brings a library up to date with photo files and folders.
//
// New and changed files are decoded and their signatures extracted on worker threads, one
// CFIDExtractor each; the calling thread alone writes to the library, committing at least
// twice a second, so that an interrupted run keeps what it had done. Unchanged files (same
// size and modification time) are skipped. A file that cannot be used is reported with its
// reason and counted as failed; the run goes on.
//
// A library holds photos decoded one way only (full or fast), the way it was made: its
// signatures would otherwise differ a little for the same photo. The mode is recorded when
// the first indexer meets the library empty; libraries older than the record are full.
#ifndef ORVANE_TOOLS_CINDEXER_H_
#define ORVANE_TOOLS_CINDEXER_H_

#include <string>
#include <vector>

#include "tools/orvane/CPhotoLibrary.h"
#include "tools/orvane/PhotoDecoder.h"

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
  // REQUIRES: jobs > 0. Throws CToolError, saying how to go on, when the library was made
  // in the other mode.
  CIndexer(CPhotoLibrary& library, unsigned jobs, DecodeMode mode);

  // The mode the library's photos were decoded in.
  static DecodeMode madeWith(CPhotoLibrary& library);

  // The signature of a decoded photo; a photo the library cannot take (too thin for its
  // grids) is a CDecodeError that says so, with the library's own words.
  static const CFIDContainer& signatureOf(CFIDExtractor& extractor, const SBgrPhoto& photo);

  // Indexes the files named and those in the folders named; with prune, also drops the
  // photos whose files are gone. Failures go to standard error as "orvane: <path>: <reason>",
  // and so do photos that the pixel bound made smaller.
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
  DecodeMode mode;
};

#endif  // ORVANE_TOOLS_CINDEXER_H_
