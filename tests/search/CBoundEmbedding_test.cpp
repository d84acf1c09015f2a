// A bound must never exceed the score it bounds, in either mode, beyond the margin that
// covers rounding; and where two photos differ the same way in every tile it must be close
// to the score, or the search would score far more photos than it needs to.
#include "search/CBoundEmbedding.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

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
    const Features other = k % 3 == 0 ? hueMoved(base, 0.1f * strength)
                           : k % 3 == 1 ? changed(base, strength, random)
                                        : scene(random);
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

}  // namespace
