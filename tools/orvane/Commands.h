// The commands of the orvane tool. Each prints its answer on standard output, its failures
// on standard error, and returns the exit status; a failure that stops it is thrown as
// CToolError or FID_Exception and means exit status 3.
#ifndef ORVANE_TOOLS_COMMANDS_H_
#define ORVANE_TOOLS_COMMANDS_H_

#include <string>
#include <vector>

#include "tools/orvane/KeepRule.h"

enum ExitStatus : int {
  kExitSuccess = 0,
  kExitNothingFound = 1,  // a search found nothing
  kExitUsage = 2,
  kExitFailure = 3,  // I/O or library error
};

struct SIndexOptions {
  std::string library;
  std::vector<std::string> paths;
  unsigned jobs = 1;
  bool prune = false;
  bool fast = false;     // decode at a reduced scale where the format allows it
  bool timings = false;  // also print how the time split between decoding and extraction
};

// Exit status 3 when any photo failed, after indexing all the others.
int runIndex(const SIndexOptions& options);
struct SFindOptions {
  std::string library;
  std::vector<std::string> photos;
  unsigned near = 0;  // 0: the photos that count as the same photo; otherwise the near nearest
  bool json = false;
  bool anyOrientation = false;  // also the mirrored and turned copies of the photos
  unsigned jobs = 1;            // threads of the search
};

int runFind(const SFindOptions& options);
struct SDupsOptions {
  std::string library;
  bool json = false;
  EKeepRule keep = EKeepRule::kPixels;
  std::vector<std::string> references;  // folders whose photos always stay
  std::string moveTo;                   // empty: nothing moves
  bool dryRun = false;
  std::string html;   // the review page to write; empty: none
  std::string apply;  // a choices file of the review page to carry out instead of the plan
  bool anyOrientation = false;  // also mirrored and turned copies, decoding every photo again
  unsigned jobs = 1;            // threads of the search, and that decode
};

// With apply set, moves the photos that the choices untick into moveTo; nothing is searched.
int runDups(const SDupsOptions& options);
int runInfo(const std::string& library);

#endif  // ORVANE_TOOLS_COMMANDS_H_
