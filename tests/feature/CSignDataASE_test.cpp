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
  ase.SetParameter("lf", uint32_t{9000});
  expectDecodeFailure(ase, "CFeatureObject: missing parameter: uf");
  ase.SetParameter("lf", uint32_t{9000});
  ase.SetParameter("uf", uint32_t{100});  // below the lower edge: accepted
  expectDecodeFailure(ase, "CFeatureObject: missing parameter: re");
  ase.SetParameter("lf", uint32_t{9000});
  ase.SetParameter("uf", uint32_t{100});
  ase.SetParameter("re", uint32_t{4});
  ase.DecodeParameters();
  EXPECT_EQ(ase.m_lowerFreq, 9000u);
  EXPECT_EQ(ase.m_upperFreq, 100u);
  EXPECT_EQ(ase.m_resolution, 4u);
  EXPECT_EQ(ase.m_msPerRow, 30.0f);

  ase.EncodeParameters();
  uint32_t re = 0;
  EXPECT_TRUE(ase.GetParameter(&re, "re", false));
  EXPECT_EQ(re, 4u);
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
