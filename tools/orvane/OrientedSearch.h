// Oriented search: the same photo found also when it was mirrored or turned.
//
// The query is extracted in each of the eight orientations and searched eight times; a
// stored photo counts with its best score over them, together with the orientation that gave
// it: the stored photo is the query in that orientation. Eight searches give a stranger eight
// chances to come close, so this finds more wrong photos than a search as is.
#ifndef ORVANE_TOOLS_ORIENTEDSEARCH_H_
#define ORVANE_TOOLS_ORIENTEDSEARCH_H_

#include <orvane.h>

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "tools/orvane/CPhotoLibrary.h"
#include "tools/orvane/Orientation.h"

struct SOrientedMatch {
  int id = 0;
  float score = 0;
  SOrientation orientation;
};

// A search of the stored photos with one signature.
using Search = std::function<std::vector<CFIDMatch>(const CFIDContainer& signature)>;

// Best per stored photo over the orientations of the query (all eight, or only as is),
// closest first, ties by id; at most maxResults of them when it is above 0.
std::vector<SOrientedMatch> searchOriented(CFIDExtractor& extractor, const SBgrPhoto& query,
                                           bool allOrientations, const Search& search,
                                           unsigned maxResults);

struct SOrientedLink {
  int a = 0;
  int b = 0;
  float score = 0;
  SOrientation orientation;  // b is a in this orientation
};

// Links from each stored photo, decoded again in mode, in its seven other orientations to the
// stored photos that count as the same photo, on jobs threads; search is called by one
// thread at a time. A photo whose longer side is above twice kFastLongerSide is made smaller
// by a whole factor before it is turned; like a fast decode, this moves scores a little. A photo
// that cannot be decoded is reported as "orvane: <path>: <reason>" on standard error and counted in
// failed.
std::vector<SOrientedLink> turnedCopyLinks(const std::vector<SStoredPhoto>& photos, DecodeMode mode,
                                           const Search& search, unsigned jobs, unsigned* failed);

// For each linked photo, its orientation against the photo it is closest to: that of the
// link with its lowest score, the first of equals in the order given.
std::unordered_map<int, SOrientation> closestOrientations(const std::vector<SOrientedLink>& links);

#endif  // ORVANE_TOOLS_ORIENTEDSEARCH_H_
