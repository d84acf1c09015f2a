#include "feature/CSignDataSFM.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/ThrownText.h"

namespace {

// An "SFM" object with these settings in its unsigned map, as a read leaves it.
void putSettings(CSignDataSFM& sfm, std::optional<uint32_t> lf, std::optional<uint32_t> uf,
                 std::optional<uint32_t> sr) {
  if (lf) sfm.SetParameter("lf", *lf);
  if (uf) sfm.SetParameter("uf", *uf);
  if (sr) sfm.SetParameter("sr", *sr);
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
    // no "msPerRow": 3 units of 30 ms
    EXPECT_EQ(std::make_tuple(sfm.m_sfmLowBand, sfm.m_sfmHighBand, sfm.m_tempRes,
                              sfm.m_rowStride, sfm.m_msPerRow, sfm.m_uintParams.size()),
              std::make_tuple(c.low, c.high, 3u, 3u, 90.0f, size_t{0}));
    sfm.EncodeParameters();
    EXPECT_EQ(std::make_tuple(sfm.m_uintParams.at("lf"), sfm.m_uintParams.at("uf"),
                              sfm.m_uintParams.at("sr"),
                              sfm.m_stringParams.Find("msPerRow")->second),
              std::make_tuple(c.lfBack, c.ufBack, 3u, std::string("90")));
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
      {"no lf", std::nullopt, 4000, 3, "CFeatureObject: missing parameter: lf"},
      {"no uf", 1000, std::nullopt, 3, "CFeatureObject: missing parameter: uf"},
      {"no sr", 1000, 4000, std::nullopt, "CFeatureObject: missing parameter: sr"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    CSignDataSFM sfm;
    putSettings(sfm, c.lf, c.uf, c.sr);
    EXPECT_EQ(thrownText([&] { sfm.DecodeParameters(); }), c.text);
  }
  CSignDataSFM named;
  named.m_name = "ASE";
  EXPECT_EQ(thrownText([&] { named.DecodeParameters(); }),
            "CFeatureObject: feature name mismatch");
}

TEST(CSignDataSFMTest, TheStreamKeepsTheSettings) {
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
  EXPECT_EQ(std::make_tuple(read.m_sfmLowBand, read.m_msPerRow), std::make_tuple(9, 60.0f));
  EXPECT_TRUE(read.HasSameSettings(&sfm));
}

}  // namespace
