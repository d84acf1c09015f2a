// Streams of the older chunk form read through CWholeStream and written back in the current
// form.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "feature/CSignDataSFM.h"
#include "feature/FeatureObjException.h"
#include "signature/CAudioSignMulti.h"
#include "tests/signature/OlderStreams.h"
#include "tests/support/ThrownText.h"

namespace {

// The "FeatObj" frame the float chunk becomes: feature stream version 2, id 1, "SFM", "flt",
// the map lf 1000, sr 3, uf 4000, vad 1, then the matrix.
const std::string kFeatObj =
    "07466561744F626A56000200010353464D03666C7405506172616D0103696E7404026C6604000003E8"
    "0273720400000003027566 0400000FA0037661640400000001 03" +
    kOlderMat;
const char kCuid21[] = "04 43756964 04 00000015";

TEST(OlderFormTest, ReadsEveryVersionAndWritesTheCurrentForm) {
  // With "META" read: "TIT2" = "abc" first.
  const std::string withMeta =
      "4F52564600000005 8107 00 4D455441 8100 0454495432 03616263" + kFeatObj;
  const std::string tuid7 = "0454756964 08 0000000000000007" + std::string(kCuid21);
  const std::string tuidFE = "0454756964 08 FFFFFFFFFFFFFFFE" + std::string(kCuid21);
  const struct {
    const char* name;
    std::string older;
    int version;
    std::string current;
  } cases[] = {
      {"version 3", "4F52564600000003 53" + kOlderBodyVarint + kOlderTail, 3, withMeta + tuid7},
      {"version 2", "4F52564600000002 5A" + kOlderBodyWords + kOlderTail, 2, withMeta + tuidFE},
      {"no version word", "4F5256460000005A" + kOlderBodyWords + kOlderTail, 2, withMeta + tuidFE},
      // Version 4 ends with the declared body: its "META" chunk is not read.
      {"version 4", "4F52564600000004 53" + kOlderBodyVarint + kOlderTail, 4,
       "4F52564600000005 7D 00 4D455441 77" + kFeatObj + tuid7},
      // "F3C77", no "INFO", "TUID" or "FPAR"; a byte matrix gets the default settings.
      {"byte matrix",
       "4F52564600000003 2A 5645525305463343373746454154 1B 44415441"
       "4D41540A7563687262696E0A0000000100000003010203",
       3,
       "4F52564600000005 70 00 4D455441 6A 07466561744F626A49 0002000303 53464D0475636872"
       "05506172616D0103696E7403026C6604000000FA0273720400000020027566 0400000FA0"
       "034D41540A7563687262696E0A0000000100000003010203"
       "0454756964080000000000000000 04437569640400 00004D"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::istringstream in(hexString(c.older));
    CWholeStream older(in, nullptr);
    EXPECT_EQ(older.getStreamVersion(), c.version);
    const std::string current = written(older);
    EXPECT_EQ(hexText(current), hexText(hexBytes(c.current)));
    // The current form reads into the same frames and writes itself again byte for byte.
    std::istringstream again(current);
    CWholeStream reread(again, nullptr);
    EXPECT_EQ(frameIds(reread), frameIds(older));
    EXPECT_EQ(hexText(written(reread)), hexText(current));
  }
}

TEST(OlderFormTest, OtherElementTypesGiveNoFeatureFrame) {
  std::istringstream in(
      hexString("4F52564600000003 21 46454154 1C 44415441"
                "4D41540A75696E7462696E0A000000010000000100000009"));
  EXPECT_EQ(frameIds(CWholeStream(in, nullptr)), (std::vector<std::string>{"Tuid", "Cuid"}));
}

TEST(OlderFormTest, SignatureObjectRebuildsTheFeatureClassOfItsId) {
  // "F1C21" and "F2C21" give an SFM; "F3C21" an ASE, which refuses the name "SFM".
  for (const char* versionText : {"4631433231", "4632433231", "4633433231"}) {
    SCOPED_TRACE(versionText);
    std::string body = kOlderBodyVarint;
    body.replace(body.find("4631433231"), 10, versionText);
    std::istringstream in(hexString("4F52564600000003 53" + body));
    CAudioSignMulti sign;
    const std::string failure = thrownText([&] { sign.read(in, nullptr); });
    if (versionText[3] == '3') {
      EXPECT_EQ(failure, "CFeatureObject: feature name mismatch");
      continue;
    }
    EXPECT_EQ(failure, "");
    const auto* sfm = dynamic_cast<const CSignDataSFM*>(sign.getData()->getFeature("SFM"));
    ASSERT_NE(sfm, nullptr);
    EXPECT_EQ(sfm->m_sfmLowBand, 8);
    EXPECT_EQ(sfm->m_sfmHighBand, 15);
    EXPECT_EQ(sfm->m_tempRes, 3u);
    EXPECT_EQ(sfm->m_msPerRow, 90.0f);
    EXPECT_EQ(sfm->m_matrix.m_rows, 1u);
  }
}

TEST(OlderFormTest, SignatureFrameIsVerifiedAndDroppedAndBadStreamsFailWithOneText) {
  ToyHook hook;
  hook.verificationKey = "KEY";
  std::istringstream in(olderSignedStream(olderGoodSignature()));
  EXPECT_EQ(frameIds(CWholeStream(in, &hook)),
            (std::vector<std::string>{"FeatObj", "Tuid", "Cuid"}));

  std::string tampered = olderSignedStream(olderGoodSignature());
  tampered.back() ^= 1;
  const std::pair<std::string, const char*> cases[] = {
      {tampered, "Error: signature failed security verification\n"},
      {hexString("4F52564600000003 00"), nullptr},
      {hexString("4F52564600000003 05 58585858 00"), nullptr},
      {hexString("4F525646FFFFFFFF 05 58585858 00"), nullptr},
      {hexString("4F52564600000003 00 4D455441 0C 04 64736967 06 31 03 4B4559 00"), nullptr},
  };
  for (const auto& [bytes, message] : cases) {
    SCOPED_TRACE(hexText(bytes.substr(0, 9)));
    std::istringstream bad(bytes);
    testing::internal::CaptureStderr();
    EXPECT_EQ(thrownText([&] { CWholeStream stream(bad, &hook); }), "cannot parse wholestream!");
    const std::string err = testing::internal::GetCapturedStderr();
    if (message != nullptr) {
      EXPECT_EQ(err, message);
    }
  }
  // A refused version is no failure of the chunk reader, but leaves nothing to convert.
  CWholeStream stream;
  std::istringstream current(hexString("4F52564600000005 00"));
  testing::internal::CaptureStderr();
  EXPECT_EQ(thrownText([&] { stream.readOlderForm(current); }), "cannot parse wholestream!");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR stream version not compatible\n");
}

}  // namespace
