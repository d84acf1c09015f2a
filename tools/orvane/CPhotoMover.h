// CPhotoMover: moves photo files and keeps the library in step with them.
//
// A move never overwrites: a target that exists is reported and the photo stays. Within a
// file system a file is renamed; across file systems it is copied beside the target, the
// copy is checked against the original byte for byte and given its permissions and times,
// put in place, and only then is the original removed. Nothing else is ever deleted.
//
// Each move is written down in the library before the file moves and settled, with the
// photo's new path, right after: an interruption leaves every photo where it was or moved
// and recorded where it is. A move that fails is reported as "orvane: <path>: <reason>" on
// standard error and the others go on.
#ifndef ORVANE_TOOLS_CPHOTOMOVER_H_
#define ORVANE_TOOLS_CPHOTOMOVER_H_

#include <string>
#include <vector>

#include "tools/orvane/CPhotoLibrary.h"

struct SMoveSummary {
  unsigned moved = 0;
  unsigned failed = 0;
};

class CPhotoMover {
 public:
  explicit CPhotoMover(CPhotoLibrary& library) : library(library) {}

  // REQUIRES: each photo once; the targets are absolute paths.
  SMoveSummary run(const std::vector<SPhotoMove>& moves);

 private:
  CPhotoLibrary& library;
};

#endif  // ORVANE_TOOLS_CPHOTOMOVER_H_
