// The review page of duplicate groups: one self-contained HTML file (its own CSS and script,
// thumbnails embedded as JPEG data URIs of at most kThumbnailSide pixels, made with libvips'
// thumbnail path), so that it opens from disk, offline, without a server, and can be moved or
// mailed. Only the large views link to the photo files themselves (file: URLs).
//
// Groups are listed surest first (by the score of their loosest member, lowest first). Each
// photo shows its path, pixel size, file size, modification time, score to its closest
// member and the keep rule's mark; reference photos are marked and cannot be unticked;
// photos gone since indexing are shown as missing. The reviewer filters by score, walks the
// groups with the keyboard, compares two photos side by side and exports the ticks as a
// choices file (see ReviewChoices.h). The page itself writes nothing.
//
// Every path reaches the page as data: the facts sit in a non-executed JSON script block with
// '<', '>' and '&' escaped, and the page's script shows them as text only, so that no file
// name can end the block or inject markup.
#ifndef ORVANE_TOOLS_REVIEWPAGE_H_
#define ORVANE_TOOLS_REVIEWPAGE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tools/orvane/DuplicatePlan.h"

constexpr int kThumbnailSide = 256;

struct SReviewSummary {
  std::size_t groups = 0;
  std::size_t photos = 0;
  std::int64_t reclaimable = 0;  // bytes of the photos marked move that are still there
  std::size_t missing = 0;
};

// Writes the page of the plan to file, making thumbnails on `jobs` threads; throws
// CToolError when the file cannot be written.
SReviewSummary writeReviewPage(const std::string& file, const std::string& library,
                               const std::vector<std::vector<SPlannedMember>>& plan,
                               unsigned jobs);

#endif  // ORVANE_TOOLS_REVIEWPAGE_H_
