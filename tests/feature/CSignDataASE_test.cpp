#include "feature/CSignDataASE.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>

#include "tests/support/ThrownText.h"

namespace {

TEST(CSignDataASETest, TakesItsSettingsWithoutRangeCheck) {
  CSignDataASE ase;
  EXPECT_EQ(ase.m_featureId, 3);
  const char* names[] = {"lf", "uf", "re"};
  const uint32_t values[] = {9000, 100, 4};  // upper edge below the lower one: accepted
  for (int given = 0; given <= 3; ++given) {  // a failed decoding has taken what it found
    for (int i = 0; i < given; ++i) ase.SetParameter(names[i], values[i]);
    EXPECT_EQ(thrownText([&] { ase.DecodeParameters(); }),
              given < 3 ? std::string("CFeatureObject: missing parameter: ") + names[given] : "");
  }
  EXPECT_EQ(std::make_tuple(ase.m_lowerFreq, ase.m_upperFreq, ase.m_resolution, ase.m_msPerRow),
            std::make_tuple(9000u, 100u, 4u, 30.0f));
  ase.EncodeParameters();
  EXPECT_EQ(ase.m_uintParams.at("re"), 4u);
  EXPECT_EQ(ase.m_stringParams.Find("msPerRow")->second, "30");

  float row[1] = {1.0f};
  for (int i = 0; i < 3; ++i) ase.AppendVector(BaseVector<float>(row, 1));
  std::unique_ptr<CFeatureObjectBase> copy(ase.CreateExcerpt(0, 0)), tail(ase.CreateExcerpt(30, 0));
  SMatrixInfo info;
  EXPECT_EQ(copy->GetMatrixInfo(info).m_rows, 3u);
  EXPECT_EQ(tail->GetMatrixInfo(info).m_rows, 2u) << "30 ms is one row";
  EXPECT_TRUE(ase.HasSameSettings(tail.get()));
  ase.m_name = "SFM";
  EXPECT_EQ(thrownText([&] { ase.DecodeParameters(); }), "CFeatureObject: feature name mismatch");
}

}  // namespace
