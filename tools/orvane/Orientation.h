// The eight orientations of a photo: as it is or mirrored left to right, then turned
// clockwise by 0, 90, 180 or 270 degrees. The library's signature changes with them, so a
// search that should find mirrored and turned copies extracts the photo in all eight.
#ifndef ORVANE_TOOLS_ORIENTATION_H_
#define ORVANE_TOOLS_ORIENTATION_H_

#include <string>

#include "tools/orvane/PhotoDecoder.h"

struct SOrientation {
  bool mirrored = false;  // left and right swapped, before the turn
  int quarterTurns = 0;   // clockwise, 0 to 3

  bool operator==(const SOrientation& other) const {
    return mirrored == other.mirrored && quarterTurns == other.quarterTurns;
  }
  // The orientation that turns a photo in this one back.
  SOrientation inverse() const;
  // "as is", "mirrored", "turned 90", "mirrored, turned 270", ...
  std::string name() const;
};

constexpr int kOrientations = 8;
// Orientation i for i in 0 to 7; 0 is the photo as it is.
SOrientation orientationNumber(int i);

// The photo in the orientation; into out, whose memory is reused.
void orientPhoto(const SBgrPhoto& photo, const SOrientation& orientation, SBgrPhoto* out);

#endif  // ORVANE_TOOLS_ORIENTATION_H_
