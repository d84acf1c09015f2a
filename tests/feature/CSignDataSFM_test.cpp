#include "feature/CSignDataSFM.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "feature/CSignDataASE.h"
#include "feature/FeatureObjException.h"

namespace {

// An "SFM" object with these settings in its unsigned map, as a read leaves it.
void putSettings(CSignDataSFM& sfm, std::optional<uint32_t> lf, std::optional<uint32_t> uf,
                 std::optional<uint32_t> sr) {
  if (lf) sfm.SetParameter("lf", *lf);
  if (uf) sfm.SetParameter("uf", *uf);
  if (sr) sfm.SetParameter("sr", *sr);
}

// Matches a FeatureObjException with exactly this text.
auto failsWith(const std::string& text) {
  return testing::ThrowsMessage<FeatureObjException>(testing::StrEq(text));
}

TEST(CSignDataSFMTest, DecodesBandsAndEncodesTheirEdges) {
  const struct { uint32_t lf, uf; int32_t low, high; uint32_t lfBack, ufBack; } cases[] = {
      {1000, 16000, 8, 23, 1000, 16000},  // 1 kHz starts band 8; 16 kHz ends band 23
      {250, 4000, 0, 15, 250, 4000},
      {200, 4000, 0, 15, 250, 4000},       // -0.79 truncates toward zero, to band 0
      {1100, 2000, 9, 11, 1189, 2000},     // edges come back as their band's edges
      {7000, 16000, 19, 23, 6727, 16000},  // the highest lower band
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.lf);
    CSignDataSFM sfm;
    putSettings(sfm, c.lf, c.uf, 3);
    sfm.DecodeParameters();
    EXPECT_EQ(sfm.m_sfmLowBand, c.low);
    EXPECT_EQ(sfm.m_sfmHighBand, c.high);
    EXPECT_EQ(sfm.m_tempRes, 3u);
    EXPECT_EQ(sfm.m_rowStride, 3u);
    EXPECT_EQ(sfm.m_msPerRow, 90.0f);  // no "msPerRow": 3 units of 30 ms
    EXPECT_TRUE(sfm.m_uintParams.empty());
    sfm.EncodeParameters();
    EXPECT_EQ(sfm.m_uintParams.at("lf"), c.lfBack);
    EXPECT_EQ(sfm.m_uintParams.at("uf"), c.ufBack);
    EXPECT_EQ(sfm.m_uintParams.at("sr"), 3u);
    EXPECT_EQ(sfm.m_stringParams.Find("msPerRow")->second, "90");
  }
}

TEST(CSignDataSFMTest, RefusesBadSettings) {
  const char* range = "CFeatureObject: invalid frequency range for MP7-SFM";
  using Setting = std::optional<uint32_t>;
  const struct { const char* name; Setting lf, uf, sr; const char* text; } cases[] = {
      {"lower band -4", 100, 4000, 3, range},
      {"lower band 20", 8000, 16000, 3, range},
      {"upper band 27", 1000, 32000, 3, range},
      {"upper band below lower", 1000, 1000, 3, range},
      {"lower edge 0", 0, 4000, 3, range},
      {"upper edge 0", 1000, 0, 3, range},
      {"negative lower edge", 0x80000000u, 4000, 3, range},
      {"no lf", std::nullopt, 4000, 3, "CFeatureObject: missing parameter: lf"},
      {"no uf", 1000, std::nullopt, 3, "CFeatureObject: missing parameter: uf"},
      {"no sr", 1000, 4000, std::nullopt, "CFeatureObject: missing parameter: sr"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CSignDataSFM sfm;
    putSettings(sfm, c.lf, c.uf, c.sr);
    EXPECT_THAT([&] { sfm.DecodeParameters(); }, failsWith(c.text));
  }
  CSignDataSFM named;
  named.m_name = "ASE";
  EXPECT_THAT([&] { named.DecodeParameters(); },
              failsWith("CFeatureObject: feature name mismatch"));
}

TEST(CSignDataSFMTest, EncodingChecksRowLengthAndOverlap) {
  CSignDataSFM sfm;
  putSettings(sfm, 1000, 16000, 3);
  sfm.SetParameter("msPerRow", std::string("60"));
  sfm.DecodeParameters();
  EXPECT_EQ(sfm.m_msPerRow, 60.0f);
  EXPECT_THAT([&] { sfm.EncodeParameters(); },
              failsWith("CFeatureObject: inconsistent setting (m_msPerRow<->m_tempRes)"));

  sfm.m_msPerRow = 90.0f;
  sfm.m_rowStride = 2;
  EXPECT_THAT([&] { sfm.EncodeParameters(); },
              failsWith("CFeatureObject: attempt to write signature with overlap"));
}

TEST(CSignDataSFMTest, StreamAndCopiesKeepTheSettings) {
  CSignDataSFM sfm;
  EXPECT_EQ(sfm.m_featureId, 2);
  putSettings(sfm, 1100, 16000, 2);
  sfm.DecodeParameters();
  float row[] = {0.25f, 0.75f};
  for (int i = 0; i < 2; ++i) sfm.AppendVector(BaseVector<float>(row, 2));
  sfm.EncodeParameters();
  std::vector<unsigned char> stream(sfm.GetStreamSize());
  sfm.WriteToStream(stream.data(), static_cast<uint32_t>(stream.size()));

  CSignDataSFM read;
  read.ReadFromStream(stream.data(), static_cast<uint32_t>(stream.size()));
  EXPECT_EQ(read.m_sfmLowBand, 9);
  EXPECT_EQ(read.m_msPerRow, 60.0f);
  EXPECT_TRUE(read.HasSameSettings(&sfm));
  CSignDataASE ase;
  EXPECT_THAT([&] { ase.ReadFromStream(stream.data(), static_cast<uint32_t>(stream.size())); },
              failsWith("CFeatureObject: feature name mismatch"));

  std::unique_ptr<CFeatureObjectBase> excerpt(sfm.CreateExcerpt(60, 0));
  EXPECT_TRUE(sfm.HasSameSettings(excerpt.get()));
  EXPECT_EQ(dynamic_cast<CSignDataSFM&>(*excerpt).m_matrix.m_rows, 1u);

  const std::vector<void (*)(CSignDataSFM&)> changes = {
      [](CSignDataSFM& s) { s.m_msPerRow = 30.0f; }, [](CSignDataSFM& s) { s.m_tempRes = 3; },
      [](CSignDataSFM& s) { s.m_rowStride = 3; },    [](CSignDataSFM& s) { s.m_sfmLowBand = 8; },
      [](CSignDataSFM& s) { s.m_sfmHighBand = 22; },
  };
  for (size_t i = 0; i < changes.size(); ++i) {
    CSignDataSFM other(sfm, false);
    changes[i](other);
    EXPECT_FALSE(sfm.HasSameSettings(&other)) << i;
  }
  CFeatureObject<float> plain("SFM", 2);
  plain.m_msPerRow = 60.0f;
  EXPECT_FALSE(sfm.HasSameSettings(&plain));
  EXPECT_THAT([&] { ase.Append(&sfm); },
              failsWith("CFeatureObject: different settings, cannot append feature object"));
}

}  // namespace
