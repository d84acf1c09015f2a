#include "tools/orvane/OrientedSearch.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>
#include <tuple>
#include <unordered_map>

namespace {

// Calls visit with the signature of the photo in each orientation from first on.
void forEachOrientation(
    CFIDExtractor& extractor, const SBgrPhoto& photo, int first, int end,
    const std::function<void(const SOrientation&, const CFIDContainer&)>& visit) {
  SBgrPhoto turned;
  for (int i = first; i < end; ++i) {
    const SOrientation orientation = orientationNumber(i);
    const SBgrPhoto* pixels = &photo;
    if (i != 0) {
      orientPhoto(photo, orientation, &turned);
      pixels = &turned;
    }
    visit(orientation, extractor.extract(pixels->pixels.data(), pixels->width, pixels->height,
                                         pixels->width * 3, 0, 0));
  }
}

// Turning a photo costs far more than extracting it, which only samples a grid of it: a large
// photo is first made smaller by a whole factor, so that its longer side stays at least
// kFastLongerSide, by averaging each f by f block of pixels per channel:
//   out = (sum of the block + f*f/2) / (f*f), in integers; the last w % f columns and
//   h % f lines are left out.
void shrinkForTurning(SBgrPhoto* photo) {
  const int f = std::max(photo->width, photo->height) / kFastLongerSide;
  if (f < 2) return;
  const int w = photo->width / f;
  const int h = photo->height / f;
  const std::size_t line = 3 * static_cast<std::size_t>(photo->width);
  const unsigned area = static_cast<unsigned>(f) * f;
  std::vector<unsigned> sums(3 * static_cast<std::size_t>(w));
  unsigned char* out = photo->pixels.data();  // each output line lies before its input lines
  for (int y = 0; y < h; ++y) {
    std::fill(sums.begin(), sums.end(), 0u);
    for (int dy = 0; dy < f; ++dy) {
      const unsigned char* in =
          photo->pixels.data() + (static_cast<std::size_t>(y) * f + dy) * line;
      for (int x = 0; x < w; ++x) {
        for (int dx = 0; dx < f; ++dx) {
          for (int c = 0; c < 3; ++c) sums[3 * x + c] += in[3 * (x * f + dx) + c];
        }
      }
    }
    for (std::size_t i = 0; i < sums.size(); ++i) {
      *out++ = static_cast<unsigned char>((sums[i] + area / 2) / area);
    }
  }
  photo->width = w;
  photo->height = h;
  photo->pixels.resize(3 * static_cast<std::size_t>(w) * h);
}

}  // namespace

std::vector<SOrientedMatch> searchOriented(CFIDExtractor& extractor, const SBgrPhoto& query,
                                           bool allOrientations, const Search& search,
                                           unsigned maxResults) {
  std::vector<SOrientedMatch> matches;
  std::unordered_map<int, std::size_t> seen;  // id to its place in matches
  forEachOrientation(extractor, query, 0, allOrientations ? kOrientations : 1,
                     [&](const SOrientation& orientation, const CFIDContainer& signature) {
                       for (const CFIDMatch& match : search(signature)) {
                         const auto [it, fresh] = seen.emplace(match.id, matches.size());
                         if (fresh) {
                           matches.push_back({match.id, match.score, orientation});
                         } else if (match.score < matches[it->second].score) {
                           matches[it->second] = {match.id, match.score, orientation};
                         }
                       }
                     });
  // Stable: as is, the search's own order stays.
  std::stable_sort(
      matches.begin(), matches.end(),
      [](const SOrientedMatch& x, const SOrientedMatch& y) { return x.score < y.score; });
  if (maxResults > 0 && matches.size() > maxResults) matches.resize(maxResults);
  return matches;
}

std::vector<SOrientedLink> turnedCopyLinks(const std::vector<SStoredPhoto>& photos, DecodeMode mode,
                                           const Search& search, unsigned jobs, unsigned* failed) {
  // Every extractor is made before any worker starts: the first prepares shared state.
  const std::size_t workers = std::max<std::size_t>(1, std::min<std::size_t>(jobs, photos.size()));
  std::vector<std::unique_ptr<CFIDExtractor>> extractors;
  for (std::size_t i = 0; i < workers; ++i)
    extractors.push_back(std::make_unique<CFIDExtractor>(1));

  std::mutex mutex;  // guards search, links, failed and standard error
  std::vector<SOrientedLink> links;
  *failed = 0;
  std::atomic<std::size_t> next{0};
  const auto work = [&](CFIDExtractor& extractor) {
    SBgrPhoto pixels;
    for (std::size_t i = next++; i < photos.size(); i = next++) {
      const SStoredPhoto& photo = photos[i];
      try {
        decodePhoto(photo.path, mode, pixels);
        shrinkForTurning(&pixels);
        forEachOrientation(extractor, pixels, 1, kOrientations,
                           [&](const SOrientation& orientation, const CFIDContainer& signature) {
                             const std::lock_guard<std::mutex> lock(mutex);
                             for (const CFIDMatch& match : search(signature)) {
                               if (match.id != photo.id) {
                                 links.push_back({photo.id, match.id, match.score, orientation});
                               }
                             }
                           });
      } catch (const std::exception& e) {
        const std::lock_guard<std::mutex> lock(mutex);
        std::fprintf(stderr, "orvane: %s: %s\n", photo.path.c_str(), e.what());
        ++*failed;
      }
    }
    endDecoderThread();
  };
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < workers; ++i) threads.emplace_back(work, std::ref(*extractors[i]));
  for (std::thread& thread : threads) thread.join();
  // The workers' order varies from run to run; the answer must not.
  std::sort(links.begin(), links.end(), [](const SOrientedLink& x, const SOrientedLink& y) {
    return std::make_tuple(x.a, x.b, x.orientation.mirrored, x.orientation.quarterTurns) <
           std::make_tuple(y.a, y.b, y.orientation.mirrored, y.orientation.quarterTurns);
  });
  return links;
}

std::unordered_map<int, SOrientation> closestOrientations(const std::vector<SOrientedLink>& links) {
  std::unordered_map<int, std::pair<float, SOrientation>> closest;
  for (const SOrientedLink& link : links) {
    // b is a in the link's orientation, so a is b in the inverse one.
    for (const auto& [id, orientation] : {std::make_pair(link.a, link.orientation.inverse()),
                                          std::make_pair(link.b, link.orientation)}) {
      const auto [it, fresh] = closest.emplace(id, std::make_pair(link.score, orientation));
      if (!fresh && link.score < it->second.first) it->second = {link.score, orientation};
    }
  }
  std::unordered_map<int, SOrientation> orientations;
  for (const auto& [id, best] : closest) orientations.emplace(id, best.second);
  return orientations;
}
