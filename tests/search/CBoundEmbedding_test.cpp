// A bound must never exceed the score it bounds, in either mode, beyond the margin that
// covers rounding; and where two photos differ the same way in every tile it must be close
// to the score, or the search would score far more photos than it needs to.
#include "search/CBoundEmbedding.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "search/CSearchEngine.h"
#include "tests/search/Scenes.h"

namespace {

// Hue mass moved from bin 0 to bin 7 of every tile: the running sums of bins 0-6 change by
// `amount` everywhere, in the means too.
Features hueMoved(Features f, float amount) {
  for (size_t tile = 0; tile < 9; ++tile) {
    f["HUE"][tile * 16] -= amount;
    f["HUE"][tile * 16 + 7] += amount;
  }
  return f;
}

TEST(BoundEmbeddingTest, BoundsStayBelowScoresAndTightWhereTilesAgree) {
  std::mt19937 random(5);
  CPhotoVectors photos;
  std::vector<bool> tight;
  for (uint32_t k = 0; k < 300; ++k) {
    const Features base = scene(random);
    const float strength = std::exp2(-10.0f * static_cast<float>(k % 10) / 9.0f);
    Features other = k % 3 == 0 ? hueMoved(base, 0.1f * strength)
                     : k % 3 == 1 ? changed(base, strength, random)
                                  : scene(random);
    // Hosts may hand over tiles that do not sum to 1: running sums must restart per window.
    if (k % 5 == 0) other["HUE"][16 * (k % 9)] += 1.0f;
    photos.addFeatures("V6", tilesOf(base), 2 * k + 1);
    photos.addFeatures("V6", tilesOf(other), 2 * k + 2);
    tight.push_back(k % 3 == 0);
  }
  const CSearchEngine engine(photos, 1);
  const CBoundEmbedding embedding;
  for (uint32_t k = 0; k < tight.size(); ++k) {
    float a[CBoundEmbedding::kRowDims], b[CBoundEmbedding::kRowDims];
    ASSERT_LE(embedding.embed(photos, 2 * k, a), CBoundEmbedding::kMaxMass);
    ASSERT_LE(embedding.embed(photos, 2 * k + 1, b), CBoundEmbedding::kMaxMass);
    for (int mode : {0, 1}) {
      const uint32_t other = 2 * k + 1;
      float score;
      engine.score(photos, 2 * k, &other, 1, mode, &score);
      double bound = 0.0;
      for (size_t d = 0; d < CBoundEmbedding::kRowDims; ++d) {
        const double factor = d < CBoundEmbedding::kDims ? embedding.modeFactors(mode)[d]
                              : mode == 1               ? 1.0
                                                        : 0.0;
        bound += factor * std::fabs(static_cast<double>(a[d]) - static_cast<double>(b[d]));
      }
      EXPECT_LE(bound, CBoundEmbedding::limit(score, mode)) << k << " mode " << mode;
      if (tight[k]) {
        EXPECT_GE(bound, 0.999 * score - 1e-6) << k << " mode " << mode;
      }
    }
  }
}

// Both forms over rows of every size of entry, with and without factors: the same bits
// without a limit, and the same rows above a limit that stops the vectorised form early.
TEST(BoundEmbeddingTest, VectorisedAndPortableDistancesAgree) {
  constexpr size_t kLanes = CBoundEmbedding::kLanes;
  std::mt19937 random(3);
  std::uniform_real_distribution<float> value(-2.0f, 2.0f);
  for (size_t dims : {CBoundEmbedding::kDims, CBoundEmbedding::kMeanDims}) {
    std::vector<float> x(dims), factors(dims), groups(3 * kLanes * dims);
    for (float& v : x) v = value(random);
    for (float& v : factors) v = std::fabs(value(random));
    for (size_t k = 0; k < groups.size(); ++k) {
      groups[k] = std::ldexp(value(random), static_cast<int>(k % 7) - 3);
    }
    for (const float* weights : {static_cast<const float*>(nullptr),
                                 static_cast<const float*>(factors.data())}) {
      for (float limit : {INFINITY, 20.0f}) {
        float fast[3 * kLanes], portable[3 * kLanes];
        CBoundEmbedding::laneDistances(x.data(), groups.data(), 3, dims, weights, limit, fast);
        CBoundEmbedding::laneDistances(x.data(), groups.data(), 3, dims, weights, limit,
                                       portable, true);
        for (size_t k = 0; k < 3 * kLanes; ++k) {
          if (portable[k] <= limit) {
            EXPECT_EQ(fast[k], portable[k]) << dims << " " << k;
          }
          EXPECT_EQ(fast[k] <= limit, portable[k] <= limit) << dims << " " << k;
        }
      }
    }
  }
}

}  // namespace
