// CSearchEngine: exact search over the group vectors of a whole photo library. It answers
// what a new database holding the same photos in the same order would answer through
// classify, with the same scores bit for bit, without scoring every photo:
// - all pairs of photos that count as the same photo (mode-0 score at most 0.07);
// - for one query, the photos that count as the same photo, and the n nearest (mode 1).
//
// Nothing is approximate. Lower bounds (CBoundEmbedding) rule out pairs whose score cannot
// reach the limit, with a margin that covers rounding; every other pair is scored with the
// database's own distance kernels and roundings. Photos sort by one linear key that bounds
// the distance too, so a photo meets only those within the threshold along the key.
//
// The engine is immutable once built; its queries may run from several threads at once.
// samePhotoPairs, and nearest when it scores many photos, run on `threads` threads of their
// own.
#ifndef ORVANE_SEARCH_CSEARCHENGINE_H_
#define ORVANE_SEARCH_CSEARCHENGINE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "search/CBoundEmbedding.h"
#include "search/CPhotoVectors.h"

// Two photos by position, first < second within one set, and their score.
struct SPhotoPair {
  uint32_t first;
  uint32_t second;
  float score;
};

// A photo by position and its score against a query.
struct SPhotoMatch {
  uint32_t position;
  float score;
};

class CSearchEngine {
 public:
  // Scores at or below this count as the same photo (compared as doubles).
  static constexpr double kSamePhotoThreshold = 0.07;

  // Called now and then from the calling thread with the photos done and their total.
  using Progress = std::function<void(size_t done, size_t total)>;

  // Bytes per photo that building an engine needs at its peak.
  static size_t memoryPerPhoto();

  // REQUIRES: threads > 0.
  CSearchEngine(CPhotoVectors photos, unsigned threads);

  const CPhotoVectors& photos() const { return vectors; }
  size_t size() const { return vectors.size(); }
  // Bytes held per photo, on average, once built.
  size_t bytesPerPhoto() const;

  // Every pair of photos with a mode-0 score at most 0.07, by first, then second position.
  // scoredPairs, when given, receives the number of pairs that the bounds left to be scored.
  std::vector<SPhotoPair> samePhotoPairs(const Progress& progress = nullptr,
                                         uint64_t* scoredPairs = nullptr) const;

  // Every pair of a photo of `queries` (first: its position there) and a photo of the engine
  // (second) with a mode-0 score at most 0.07, the query scored as classify's query, by
  // first, then second position. On `threads` threads of its own.
  std::vector<SPhotoPair> samePhotoPairs(const CPhotoVectors& queries) const;

  // The photos with a mode-0 score at most 0.07 against photo `query` of `queries`, lowest
  // score first, equal scores by position: classify's mode-0 answer.
  std::vector<SPhotoMatch> samePhoto(const CPhotoVectors& queries, size_t query) const;

  // The n photos of lowest mode-1 score against photo `query` of `queries` (all, when there
  // are fewer), lowest first, equal scores by position: the first n of classify in mode 1.
  std::vector<SPhotoMatch> nearest(const CPhotoVectors& queries, size_t query, size_t n) const;

  // Scores of photo `query` of `queries` against the photos at `positions`, in `mode` (0 or
  // 1), exactly as a new database's classify computes them.
  void score(const CPhotoVectors& queries, size_t query, const uint32_t* positions, size_t count,
             int mode, float* scores) const;

 private:
  struct SWindow {
    size_t begin;
    size_t end;
  };
  // The rows whose key lies within limit of `key`.
  SWindow window(double key, double limit) const;
  double keyOf(const float* row) const;
  void chooseKeyAndEntries(const std::vector<float>& allRows,
                           const std::vector<uint32_t>& bounded);
  // The kDims entries of an embedding row in the order the rows keep them.
  void inEntryOrder(const float* row, float* out) const;
  // Pairs of the rows of block [begin, end) with the rows after each; returns the pairs
  // scored.
  size_t pairsOfRows(size_t begin, size_t end, std::vector<SPhotoPair>& out) const;
  // Pairs of an unbounded photo with every bounded photo and the unbounded ones after it.
  size_t pairsOfUnbounded(size_t k, std::vector<SPhotoPair>& out) const;
  size_t keepSame(uint32_t query, const std::vector<uint32_t>& candidates,
                  std::vector<SPhotoPair>& out) const;

  CPhotoVectors vectors;
  unsigned threads;
  CBoundEmbedding embedding;
  std::vector<double> keyFactors;   // kDims, each in [-1, 1]: the key bounds the distance
  std::vector<uint32_t> entries;    // kDims: the embedding's entries in the order rows keep them
  float modeOneFactors[CBoundEmbedding::kDims];  // modeFactors(1) in entry order
  // The first parts of the bounded photos' rows in key order, and the second parts of all
  // photos' rows in position order, in groups of kLanes rows (laneDistances).
  std::vector<float> lanes;
  std::vector<float> meanLanes;
  std::vector<double> keys;         // ascending
  std::vector<uint32_t> order;      // the position of each row
  std::vector<uint32_t> unbounded;  // positions that bounds must not rule out, ascending
};

#endif  // ORVANE_SEARCH_CSEARCHENGINE_H_
