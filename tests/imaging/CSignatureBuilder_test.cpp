#include "imaging/CSignatureBuilder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <tuple>
#include <vector>

#include "imaging/CExtractorEngine.h"

namespace {

// Every run refills the one row of the four features of the same signature with the engine's
// tile values; the sizes and the two meta frames stay.
TEST(CSignatureBuilder, RunsRefillFourOneRowFeaturesOfOneSignature) {
  CExtractorEngine engine(256, 256);
  const std::vector<unsigned char> gray(300 * 200 * 3, 77), white(200 * 300 * 3, 255);
  CAudioSignMulti* first = &engine.run(gray.data(), 300, 200, 900);
  CAudioSignMulti& sign = engine.run(white.data(), 200, 300, 600);
  EXPECT_EQ(&sign, first);
  ASSERT_TRUE(sign.hasData());
  const CSignDataMulti& data = *sign.getData();
  const SFeatureBuffers& b = engine.buffers;
  const struct {
    const char *name, *parameter;
    const float* values;
    uint32_t length, size;
  } features[] = {{"EDG", nullptr, b.edg, 96, 0},
                  {"HUE", "H_SIZE", b.hue, 144, 256},
                  {"SAT", "S_SIZE", b.sat, 36, 64},
                  {"VAL", "V_SIZE", b.val, 36, 64}};
  for (const auto& f : features) {
    SCOPED_TRACE(f.name);
    CFeatureObject<float>* feature = data.getFeature(f.name);
    ASSERT_NE(feature, nullptr);
    const BaseMatrix<float>& row = feature->m_matrix;
    ASSERT_EQ(std::make_tuple(feature->m_featureId, row.m_rows, row.m_cols),
              std::make_tuple(2027, 1u, f.length));
    EXPECT_EQ(std::vector<float>(row.m_data, row.m_data + f.length),
              std::vector<float>(f.values, f.values + f.length));
    uint32_t size = 0;
    EXPECT_EQ(f.parameter && feature->GetParameter(&size, f.parameter, false), f.size != 0);
    EXPECT_EQ(size, f.size);
  }
  ASSERT_EQ(data.getMetaVec().frameCount(), 2u);
  EXPECT_TRUE(data.getMetaVec().frameAt(0).hasId("Cuid", 4) &&
              data.getMetaVec().frameAt(1).hasId("VER", 3));
}

}  // namespace
