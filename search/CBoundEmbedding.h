// CBoundEmbedding: a short vector per photo whose L1 distances bound the photos' scores from
// below, so that a search can rule out most pairs without scoring them.
//
// A score is a weighted sum of L1 distances between "coordinates" of the two photos: the
// tile entries themselves for a group that compares them by mean absolute difference, and
// the running sums within each window for a group that compares cumulative differences. With
// w the group's scale divided by its range length, the embedding holds one entry per block B
// of coordinates, E_B = sum over i in B of w * x_i; by the triangle inequality
// |E_B(x) - E_B(y)| <= sum over i in B of w * |x_i - y_i|, and summed over the blocks,
// ||E(x) - E(y)||_1 <= score(x, y) in exact arithmetic.
//
// A row holds kDims entries over each group's mode-0 range (the tiles), then kMeanDims over
// the rest of its mode-1 range (the means). A mode-1 score compares the tiles over a longer
// range, so its bound is the first part scaled by the ratio of the ranges (modeFactors) plus
// the second part, which is weighted as mode 1 weighs it.
//
// The embedding is computed in double and kept in float. Its rounding, and that of a score,
// is covered by the margin of limit() for photos whose mass (sum of |E_B| over the row) is at
// most kMaxMass; photos above it, or with a mass that is not a number, must not be ruled out
// by bounds.
#ifndef ORVANE_SEARCH_CBOUNDEMBEDDING_H_
#define ORVANE_SEARCH_CBOUNDEMBEDDING_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "search/CPhotoVectors.h"

class CBoundEmbedding {
 public:
  // Entries of the two parts of a row; multiples of 8, unused entries 0.
  static constexpr size_t kDims = 56;
  static constexpr size_t kMeanDims = 48;
  static constexpr size_t kRowDims = kDims + kMeanDims;
  // A photo whose mass is above this (or NaN) is scored against everything.
  static constexpr double kMaxMass = 64.0;
  // A bound in `mode` above limit(s, mode) proves a score above s. The margin covers the
  // float rounding of the embedding and of its L1 distances: a mode-0 bound sums kDims
  // entries, a mode-1 bound kRowDims, each at most dims + 3 float roundings of quantities
  // below 2 * kMaxMass (59 * 2^-24 * 128 < 4.6e-4, 107 * 2^-24 * 128 < 8.2e-4); the factor,
  // the few float roundings of a score relative to the score.
  static double limit(double score, int mode) {
    return score * (1.0 + 1e-6) + (mode == 0 ? 5e-4 : 1e-3);
  }

  // The blocks of the groups of a new database.
  CBoundEmbedding();

  // Writes the kRowDims entries of `position` in `photos` to row and returns its mass.
  double embed(const CPhotoVectors& photos, size_t position, float* row) const;

  // kDims factors by which mode-`mode` bounds scale the first part (all 1 in mode 0).
  const float* modeFactors(int mode) const { return mode == 0 ? ones.data() : modeOne.data(); }

  // Rows are kept in groups of kLanes: entry d of a group's rows lie together, dims * kLanes
  // floats per group.
  static constexpr size_t kLanes = 8;
  // out[kLanes * g + l] = ||x - row l of group g||_1 over `dims` entries (a multiple of 8),
  // weighted entry by entry by `factors` (null: all 1), for `count` groups. A group whose rows
  // all lie above `limit` part way may stop there: its out values are then above `limit` too,
  // but not the distances. A float above the float nearest a double limit L is above L too,
  // so callers may compare outs with L. The vectorised form, where the processor has it, and
  // the portable one give the same bits; `portable` asks for the latter.
  static void laneDistances(const float* x, const float* groups, size_t count, size_t dims,
                            const float* factors, float limit, float* out,
                            bool portable = false);

 private:
  struct SBlock {
    uint32_t group;
    uint32_t first;  // first coordinate, counted from the group's range start
    uint32_t count;
    double weight;   // the group's scale over the length of the range the block bounds
  };
  static constexpr uint32_t kMaxCoordinates = 1024;

  // Blocks of a few coordinates over [from, to) of group g, none across a window of
  // `period`, appended to the blocks of `part` (0 or 1).
  void addBlocks(int part, uint32_t g, uint32_t from, uint32_t to, uint32_t period,
                 double weight);

  std::vector<SBlock> blocks[2];          // of the row's two parts
  std::vector<uint32_t> firstCoordinate;  // per group, in embed's coordinate buffer
  std::vector<uint32_t> coordinateCount;  // per group
  std::vector<float> ones;
  std::vector<float> modeOne;
};

#endif  // ORVANE_SEARCH_CBOUNDEMBEDDING_H_
