// CBoundEmbedding: a short vector per photo whose L1 distances bound the photos' scores from
// below, so that a search can rule out most pairs without scoring them.
//
// A score in mode 0 is a weighted sum of L1 distances between "coordinates" of the two
// photos: the tile entries themselves for a group that compares them by mean absolute
// difference, and the running sums within each tile for a group that compares cumulative
// differences. With w the group's scale divided by its range length, the embedding holds one
// entry per block B of coordinates, E_B = sum over i in B of w * x_i; by the triangle
// inequality |E_B(x) - E_B(y)| <= sum over i in B of w * |x_i - y_i|, and summed over the
// blocks, ||E(x) - E(y)||_1 <= score(x, y) in exact arithmetic. A mode-1 score compares the
// same tiles over a longer range, so mode-1 bounds are the same entries scaled by the ratio of
// the ranges (modeFactors).
//
// The embedding is computed in double and kept in float. Its rounding, and that of a score,
// is covered by kMargin for photos whose embedding mass (sum of |E_B|) is at most kMaxMass;
// photos above it, or with a mass that is not a number, must not be ruled out by bounds.
#ifndef ORVANE_SEARCH_CBOUNDEMBEDDING_H_
#define ORVANE_SEARCH_CBOUNDEMBEDDING_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "search/CPhotoVectors.h"

class CBoundEmbedding {
 public:
  // Entries per photo; a multiple of 8, unused entries 0.
  static constexpr size_t kDims = 56;
  // A photo whose mass is above this (or NaN) is scored against everything.
  static constexpr double kMaxMass = 64.0;
  // Covers the float rounding of the embedding, of its L1 distances (at most kDims + 2 float
  // roundings of quantities below 2 * kMaxMass: 58 * 2^-24 * 128 < 4.5e-4) and of a score
  // (a few float roundings relative to the score). A bound above limit(s) proves a score above s.
  static constexpr double kMargin = 5e-4;
  static double limit(double score) { return score * (1.0 + 1e-6) + kMargin; }

  // The blocks of the groups of a new database.
  CBoundEmbedding();

  // Writes the kDims entries of `position` in `photos` to row and returns its mass.
  double embed(const CPhotoVectors& photos, size_t position, float* row) const;

  // kDims factors by which mode-`mode` bounds scale the entries (all 1 in mode 0).
  const float* modeFactors(int mode) const { return mode == 0 ? ones.data() : modeOne.data(); }

  // Rows are kept in groups of kLanes: entry d of a group's rows lie together, kDims * kLanes
  // floats per group.
  static constexpr size_t kLanes = 8;
  // out[kLanes * g + l] = ||x - row l of group g||_1, weighted entry by entry by `factors`
  // (null: all 1), for `count` groups. A group whose rows all lie above `limit` part way may stop there:
  // its out values are then above `limit` too, but not the distances. A float above the
  // float nearest a double limit L is above L too, so callers may compare outs with L.
  static void laneDistances(const float* x, const float* groups, size_t count,
                            const float* factors, float limit, float* out);

 private:
  struct SBlock {
    uint32_t group;
    uint32_t first;  // first coordinate, counted from the group's range start
    uint32_t count;
  };
  static constexpr uint32_t kMaxCoordinates = 512;

  std::vector<SBlock> blocks;
  std::vector<double> weights;            // per group: scale / mode-0 range length
  std::vector<uint32_t> firstCoordinate;  // per group, in embed's coordinate buffer
  std::vector<float> ones;
  std::vector<float> modeOne;
};

#endif  // ORVANE_SEARCH_CBOUNDEMBEDDING_H_
