#include "feature/CSignDataASE.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "feature/FeatureObjException.h"

namespace {

// Decoding fails with a FeatureObjException of exactly this text.
void expectDecodeFailure(CSignDataASE& ase, const std::string& text) {
  EXPECT_THAT([&] { ase.DecodeParameters(); },
              testing::ThrowsMessage<FeatureObjException>(testing::StrEq(text)));
}

TEST(CSignDataASETest, TakesItsSettingsWithoutRangeCheck) {
  CSignDataASE ase;
  EXPECT_EQ(ase.m_featureId, 3);
  expectDecodeFailure(ase, "CFeatureObject: missing parameter: lf");
  const char* names[] = {"lf", "uf", "re"};
  const uint32_t values[] = {9000, 100, 4};  // upper edge below the lower one: accepted
  for (int given = 1; given <= 3; ++given) {
    for (int i = 0; i < given; ++i) ase.SetParameter(names[i], values[i]);
    if (given < 3) {
      expectDecodeFailure(ase, std::string("CFeatureObject: missing parameter: ") + names[given]);
    }
  }
  ase.DecodeParameters();
  EXPECT_EQ(ase.m_lowerFreq, 9000u);
  EXPECT_EQ(ase.m_upperFreq, 100u);
  EXPECT_EQ(ase.m_resolution, 4u);
  EXPECT_EQ(ase.m_msPerRow, 30.0f);
  ase.EncodeParameters();
  EXPECT_EQ(ase.m_uintParams.at("re"), 4u);
  EXPECT_EQ(ase.m_uintParams.size(), 3u);
  EXPECT_EQ(ase.m_stringParams.Find("msPerRow")->second, "30");

  std::unique_ptr<CFeatureObjectBase> copy(ase.CreateExcerpt(0, 0));
  EXPECT_TRUE(ase.HasSameSettings(copy.get()));
  uint32_t CSignDataASE::*fields[] = {&CSignDataASE::m_lowerFreq, &CSignDataASE::m_upperFreq,
                                      &CSignDataASE::m_resolution};
  for (auto field : fields) {
    CSignDataASE other(ase, false);
    ++(other.*field);
    EXPECT_FALSE(ase.HasSameSettings(&other));
  }

  ase.m_name = "SFM";
  expectDecodeFailure(ase, "CFeatureObject: feature name mismatch");
}

}  // namespace
