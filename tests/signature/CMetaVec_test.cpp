#include "signature/CMetaVec.h"

#include <gmock/gmock.h>

#include "tests/signature/OlderStreams.h"
#include "tests/support/ThrownText.h"

namespace {

using ::testing::ElementsAre;

// "Cuid" = 21, "VER" = "V6", "TIME" = 42, "X" with an empty value.
const std::string kFourFrames = hexString(
    "4D455441 1E 04 43756964 04 00000015 03 564552 02 5636 04 54494D45 04 0000002A 01 58 00");
const char kMetaIdLength[] = "ERROR Meta-ID length must be between 1 and 255";

void add(CMetaVec& v, const std::string& id, const std::string& value) {
  unsigned char* data = v.addNewFrame(static_cast<unsigned>(id.size()), id.data(),
                                      static_cast<unsigned>(value.size()));
  std::copy(value.begin(), value.end(), data);
}

unsigned parseString(CMetaVec& v, const std::string& bytes) {
  return v.parse(reinterpret_cast<const unsigned char*>(bytes.data()),
                 static_cast<unsigned>(bytes.size()));
}

TEST(MetaVec, TagTableSearchAndBadIndices) {
  EXPECT_STREQ(CMetaVec::tagName(0), "TPE1");
  EXPECT_STREQ(CMetaVec::tagName(16), "IPINF");
  EXPECT_STREQ(CMetaVec::tagName(17), "_inv_tag_");
  EXPECT_STREQ(CMetaVec::tagName(-1), "_inv_tag_");
  CMetaVec v;
  parseString(v, kFourFrames);
  add(v, "TIME", hexString("00000001"));
  EXPECT_EQ(v.findFrame("TIM", 3), -1);  // a prefix is not the id
  EXPECT_EQ(v.findTaggedFrame(kTagTime, 3), 4);
  unsigned length = 4;
  int start = 3;
  EXPECT_EQ(v.findFrameFrom("TIME", length, start)[3], 1);
  EXPECT_EQ(start, 4);
  EXPECT_EQ(v.findFrameFrom("TIME", length = 4, start = 5), nullptr);
  EXPECT_EQ(start, -1);
  // The comparison stops at a zero byte, like strncmp.
  v.addNewFrame(3, std::string("A\0B", 3).data(), 0);
  EXPECT_EQ(v.findFrame(std::string("A\0C", 3).data(), 3), 5);

  testing::internal::CaptureStderr();
  const void* data = nullptr;
  EXPECT_FALSE(v.checkIndex(6));
  EXPECT_EQ(v.getFrameData(-1, data), 0u);
  EXPECT_EQ(v.removeFrame(9), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR: CMetaVec index out of range (must be < 6)\n"
            "ERROR: CMetaVec frame not found\n"
            "ERROR: CMetaVec index out of range (must be < 6)\n");
}

TEST(MetaVec, EditingKeepsOrder) {
  CMetaVec v;
  parseString(v, kFourFrames);
  EXPECT_EQ(thrownText([&] { v.addNewFrame(0, "", 1); }), kMetaIdLength);
  EXPECT_EQ(thrownText([&] { v.addNewFrame(256, std::string(256, 'a').data(), 1); }),
            kMetaIdLength);
  add(v, "FeatObj", "f");
  add(v, "Cuid", "");
  EXPECT_EQ(v.removeFrame(1), 1);
  EXPECT_THAT(frameIds(v), ElementsAre("Cuid", "TIME", "X", "FeatObj", "Cuid"));
  EXPECT_THAT(frameIds(CMetaVec(v, kTagFeatObj)), ElementsAre("Cuid", "TIME", "X", "Cuid"));
  EXPECT_EQ(v.assignExcept(v, kTagCuid), 3u);  // on itself: in place
  EXPECT_THAT(frameIds(v), ElementsAre("TIME", "X", "FeatObj"));
  EXPECT_EQ(v.removeAllWithId("FeatObj", 7), 2u);

  std::ostringstream none;
  testing::internal::CaptureStderr();
  EXPECT_EQ(CMetaVec().writeTo(none), 1);  // an empty vector writes nothing
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR no meta data to write!\n");
  EXPECT_EQ(none.str(), "");
}

// The block's bytes are pinned by the stream goldens of CWholeStream_test.
TEST(MetaVec, ParseReplacesTheFramesTakesTheLengthOverSAndNeverRunsPastIt) {
  CMetaVec v;
  add(v, "old", "");
  std::string wrongS = kFourFrames;
  wrongS[4] = 0x05;
  EXPECT_EQ(parseString(v, wrongS), kFourFrames.size());
  EXPECT_THAT(frameIds(v), ElementsAre("Cuid", "VER", "TIME", "X"));
  EXPECT_EQ(v.parse(reinterpret_cast<const unsigned char*>(kFourFrames.data()), 0), 35u);
  EXPECT_EQ(parseString(v, hexString("4D455441 00")), 5u);
  EXPECT_EQ(v.frameCount(), 0u);

  // A cut between frames is a shorter block; any other cut consumes a count other than its
  // length.
  for (size_t cut = 4; cut < kFourFrames.size(); ++cut) {
    EXPECT_EQ(parseString(v, kFourFrames.substr(0, cut)) == cut,
              cut == 5 || cut == 15 || cut == 22 || cut == 32)
        << cut;
  }
  // A value running past the end answers where it was to end.
  EXPECT_EQ(parseString(v, hexString("4D455441 07 01 41 FFFFFF7F 00")), 11u + 0x0FFFFFFF);
  EXPECT_EQ(thrownText([&] { parseString(v, hexString("4D455441 02 00 00")); }), kMetaIdLength);
  testing::internal::CaptureStderr();
  EXPECT_EQ(parseString(v, "MEXA\x01"), 0u);
  EXPECT_EQ(parseString(v, "ME"), 0u);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR: not an Meta Tag\nERROR: not an Meta Tag\n");
}

TEST(MetaVec, ReadFromAddsFramesUntilTheSizeAndStopsAtAFailedOne) {
  CMetaVec v;
  std::istringstream in(kFourFrames.substr(5) + "rest");
  EXPECT_EQ(v.readFrom(in, 0), 0u);
  EXPECT_EQ(v.readFrom(in, 11), 17u);  // two frames reach 11 bytes
  EXPECT_THAT(frameIds(v), ElementsAre("Cuid", "VER"));

  // A cut value, a cut value length, an id of 128 bytes, a zero id length, the end.
  for (const std::string& bytes :
       {hexString("04 43756964 04 0000"), hexString("04 43756964 84"),
        hexString("80") + std::string(140, 'a'), hexString("00 00"), std::string()}) {
    CMetaVec failed;
    std::istringstream bad(bytes);
    testing::internal::CaptureStderr();
    EXPECT_EQ(failed.readFrom(bad, 100), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR parsing Meta Tags\n");
    ASSERT_EQ(failed.frameCount(), 1u) << hexText(bytes);  // the failed frame stays, id length 0
    EXPECT_EQ(failed.frameAt(0).idLength, 0u);
  }
}

}  // namespace
