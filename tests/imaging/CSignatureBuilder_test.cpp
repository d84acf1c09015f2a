#include "imaging/CSignatureBuilder.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "imaging/CExtractorEngine.h"

namespace {

// The one row of a feature, checked for shape and id.
std::vector<float> rowOf(const CSignDataMulti& data, const char* name, uint32_t length) {
  const CFeatureObject<float>* feature = data.getFeature(name);
  EXPECT_NE(feature, nullptr) << name;
  if (feature == nullptr) return {};
  EXPECT_EQ(feature->m_featureId, 2027) << name;
  EXPECT_EQ(feature->m_matrix.m_rows, 1u) << name;
  EXPECT_EQ(feature->m_matrix.m_cols, length) << name;
  return std::vector<float>(feature->m_matrix.m_data, feature->m_matrix.m_data + length);
}

TEST(CSignatureBuilder, RunEndsInFourOneRowFeaturesAndTwoFrames) {
  CExtractorEngine engine(256, 256);
  const std::vector<unsigned char> gray(640 * 480 * 3, 77);
  CAudioSignMulti& sign = engine.run(gray.data(), 640, 480, 1920);
  ASSERT_TRUE(sign.hasData());
  const CSignDataMulti& data = *sign.getData();
  // The rows are the engine's tile values (checked there), one feature each.
  const SFeatureBuffers& b = engine.buffers;
  EXPECT_EQ(rowOf(data, "EDG", 96), std::vector<float>(b.edg, b.edg + 96));
  EXPECT_EQ(rowOf(data, "HUE", 144), std::vector<float>(b.hue, b.hue + 144));
  EXPECT_EQ(rowOf(data, "SAT", 36), std::vector<float>(b.sat, b.sat + 36));
  EXPECT_EQ(rowOf(data, "VAL", 36), std::vector<float>(b.val, b.val + 36));
  const struct {
    const char *feature, *parameter;
    uint32_t value;
  } sizes[] = {{"HUE", "H_SIZE", 256}, {"SAT", "S_SIZE", 64}, {"VAL", "V_SIZE", 64}};
  for (const auto& s : sizes) {
    uint32_t value = 0;
    EXPECT_TRUE(data.getFeature(s.feature)->GetParameter(&value, s.parameter, false));
    EXPECT_EQ(value, s.value) << s.parameter;
  }

  ASSERT_EQ(data.getMetaVec().frameCount(), 2u);
  EXPECT_TRUE(data.getMetaVec().frameAt(0).hasId("Cuid", 4));
  EXPECT_TRUE(data.getMetaVec().frameAt(1).hasId("VER", 3));
  char version[8];
  ASSERT_EQ(data.getMeta("VER", version, sizeof version), 0);
  EXPECT_STREQ(version, "V6");
}

TEST(CSignatureBuilder, NextRunReplacesTheRowsOfTheSameSignature) {
  CExtractorEngine engine(256, 256);
  const std::vector<unsigned char> gray(300 * 200 * 3, 77), white(200 * 300 * 3, 255);
  CAudioSignMulti* first = &engine.run(gray.data(), 300, 200, 900);
  CAudioSignMulti& second = engine.run(white.data(), 200, 300, 600);
  EXPECT_EQ(&second, first);
  // White loses its value: 255 falls into no bin.
  EXPECT_EQ(rowOf(*second.getData(), "VAL", 36), std::vector<float>(36, 0.0f));
  EXPECT_EQ(second.getData()->getMetaVec().frameCount(), 2u);
}

}  // namespace
