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
#include "signature/CWholeStream.h"
#include "tests/signature/OlderStreams.h"

namespace {

// The frame "FeatObj" that the float chunk becomes: feature stream version 2, id 1, "SFM",
// "flt", the unsigned map lf 1000, sr 3, uf 4000, vad 1, then the matrix.
const char kFeatObjFrame[] =
    "07 466561744F626A 56"
    "0002 0001 03 53464D 03 666C74"
    "05 506172616D 01 03 696E74 04"
    "02 6C66 04 000003E8 02 7372 04 00000003 02 7566 04 00000FA0 03 766164 04 00000001"
    "03 4D41540A 666C7400 62696E0A 00000001 00000002 3F800000 3F000000";
const char kTit2Frame[] = "04 54495432 03 616263";
const char kCuid21Frame[] = "04 43756964 04 00000015";

std::string tuidFrame(const char* hex) { return std::string("04 54756964 08 ") + hex; }

std::vector<std::string> frameIds(const CMetaVec& frames) {
  std::vector<std::string> ids;
  for (unsigned i = 0; i < frames.frameCount(); ++i) {
    const SMetaFrame& frame = frames.frameAt(static_cast<int>(i));
    ids.emplace_back(reinterpret_cast<const char*>(frame.id.data()), frame.idLength);
  }
  return ids;
}

std::string written(CWholeStream& stream) {
  std::ostringstream out;
  stream.writeStream(out);
  return out.str();
}

// Reading bytes fails with the one text of the older form.
void expectUnreadable(const std::string& bytes, CSignatureHook* hook) {
  std::istringstream in(bytes);
  EXPECT_THAT([&] { CWholeStream stream(in, hook); },
              testing::Throws<std::string>(testing::Eq("cannot parse wholestream!")));
}

struct OlderStream {
  const char* name;
  std::string hex;
  int version;
  std::string current;  // hex of the stream written back
};

TEST(OlderFormTest, ReadsIntoFramesAndWritesTheCurrentForm) {
  const std::string withMeta =
      std::string("4F525646 00000005 8107 00 4D455441 8100") + kTit2Frame + kFeatObjFrame;
  const OlderStream cases[] = {
      {"version 3", "4F525646 00000003 53" + kOlderBodyVarint + kOlderTail, 3,
       withMeta + tuidFrame("0000000000000007") + kCuid21Frame},
      {"version 2", "4F525646 00000002 5A" + kOlderBodyWords + kOlderTail, 2,
       withMeta + tuidFrame("FFFFFFFFFFFFFFFE") + kCuid21Frame},
      {"no version word", "4F525646 0000005A" + kOlderBodyWords + kOlderTail, 2,
       withMeta + tuidFrame("FFFFFFFFFFFFFFFE") + kCuid21Frame},
      // Version 4 ends with the declared body: its "META" chunk is not read.
      {"version 4", "4F525646 00000004 53" + kOlderBodyVarint + kOlderTail, 4,
       std::string("4F525646 00000005 7D 00 4D455441 77") + kFeatObjFrame +
           tuidFrame("0000000000000007") + kCuid21Frame},
  };
  for (const OlderStream& c : cases) {
    SCOPED_TRACE(c.name);
    std::istringstream in(hexString(c.hex));
    CWholeStream older(in, nullptr);
    EXPECT_EQ(older.getStreamVersion(), c.version);
    const std::string current = written(older);
    EXPECT_EQ(hexText(current), hexText(hexString(c.current)));

    // The current form reads into the same frames, and writes itself again byte for byte.
    std::istringstream again(current);
    CWholeStream reread(again, nullptr);
    EXPECT_EQ(reread.getStreamVersion(), 5);
    EXPECT_EQ(frameIds(reread), frameIds(older));
    EXPECT_EQ(hexText(written(reread)), hexText(current));
  }
}

TEST(OlderFormTest, ByteMatrixBecomesAByteFeatureWithDefaultSettings) {
  // "F3C77", no "INFO", "TUID" or "FPAR"; one row of three bytes.
  std::istringstream in(
      hexString("4F525646 00000003 2A 56455253 05 4633433737 46454154 1B 44415441"
              "4D41540A 75636872 62696E0A 00000001 00000003 010203"));
  CWholeStream older(in, nullptr);
  EXPECT_EQ(hexText(written(older)),
            hexText(hexString("4F525646 00000005 70 00 4D455441 6A"
                          "07 466561744F626A 49"
                          "0002 0003 03 53464D 04 75636872"
                          "05 506172616D 01 03 696E74 03"
                          "02 6C66 04 000000FA 02 7372 04 00000020 02 7566 04 00000FA0"
                          "03 4D41540A 75636872 62696E0A 00000001 00000003 010203"
                          "04 54756964 08 0000000000000000"
                          "04 43756964 04 0000004D")));
}

TEST(OlderFormTest, SignatureObjectRebuildsTheFeatureClassOfItsId) {
  const struct {
    const char* versionText;  // hex
    const char* failure;
  } cases[] = {
      {"4631433231", nullptr},  // "F1C21"
      {"4632433231", nullptr},  // "F2C21"
      {"4633433231", "CFeatureObject: feature name mismatch"},  // "F3C21": an ASE named "SFM"
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.versionText);
    std::string body = kOlderBodyVarint;
    body.replace(body.find("4631433231"), 10, c.versionText);
    std::istringstream in(hexString("4F525646 00000003 53" + body));
    CAudioSignMulti sign;
    if (c.failure != nullptr) {
      EXPECT_THAT([&] { sign.read(in, nullptr); },
                  testing::ThrowsMessage<FeatureObjException>(testing::StrEq(c.failure)));
      continue;
    }
    sign.read(in, nullptr);
    const auto* sfm = dynamic_cast<const CSignDataSFM*>(sign.getData()->getFeature("SFM"));
    ASSERT_NE(sfm, nullptr);
    EXPECT_EQ(sfm->m_sfmLowBand, 8);
    EXPECT_EQ(sfm->m_sfmHighBand, 15);
    EXPECT_EQ(sfm->m_tempRes, 3u);
    EXPECT_EQ(sfm->m_msPerRow, 90.0f);
    EXPECT_EQ(sfm->m_matrix.m_rows, 1u);
  }
}

TEST(OlderFormTest, OtherElementTypesGiveNoFeatureFrame) {
  std::istringstream in(
      hexString("4F525646 00000003 21 46454154 1C 44415441"
              "4D41540A 75696E74 62696E0A 00000001 00000001 00000009"));
  CWholeStream older(in, nullptr);
  EXPECT_EQ(frameIds(older), (std::vector<std::string>{"Tuid", "Cuid"}));
}

TEST(OlderFormTest, VerifiedSignatureFrameIsDropped) {
  ToyHook hook;
  hook.verificationKey = "KEY";
  std::istringstream in(olderSignedStream(olderGoodSignature()));
  CWholeStream older(in, &hook);
  EXPECT_EQ(frameIds(older), (std::vector<std::string>{"FeatObj", "Tuid", "Cuid"}));

  std::string bytes = olderSignedStream(olderGoodSignature());
  bytes.back() ^= 1;
  testing::internal::CaptureStderr();
  expectUnreadable(bytes, &hook);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Error: signature failed security verification\n");
}

TEST(OlderFormTest, UnreadableStreamsFailWithOneText) {
  const struct {
    const char* name;
    std::string hex;
  } cases[] = {
      {"no chunk at all", "4F525646 00000003 00"},
      {"bad sub chunk", "4F525646 00000003 05 58585858 00"},
      {"negative version word", "4F525646 FFFFFFFF 05 58585858 00"},
      {"signature frame without chunk",
       "4F525646 00000003 00 4D455441 0C 04 64736967 06 31 03 4B4559 00"},
  };
  ToyHook hook;
  hook.verificationKey = "KEY";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    testing::internal::CaptureStderr();
    expectUnreadable(hexString(c.hex), &hook);
    testing::internal::GetCapturedStderr();
  }

  // A refused version is no failure of the chunk reader, but leaves nothing to convert.
  CWholeStream stream;
  std::istringstream in(hexString("4F525646 00000005 00"));
  testing::internal::CaptureStderr();
  EXPECT_THAT([&] { stream.readOlderForm(in); },
              testing::Throws<std::string>(testing::Eq("cannot parse wholestream!")));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR stream version not compatible\n");
}

}  // namespace
