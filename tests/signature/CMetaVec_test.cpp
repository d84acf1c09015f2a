#include "signature/CMetaVec.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/signature/OlderStreams.h"
#include "tests/support/ThrownText.h"

namespace {

using ::testing::ElementsAre;

// "Cuid" = 21, "VER" = "V6", "TIME" = 42, "X" with an empty value.
const char kFourFramesHex[] =
    "4D455441 1E 04 43756964 04 00000015 03 564552 02 5636 04 54494D45 04 0000002A 01 58 00";

void add(CMetaVec& v, const std::string& id, const std::string& value) {
  unsigned char* data = v.addNewFrame(static_cast<unsigned>(id.size()), id.data(),
                                      static_cast<unsigned>(value.size()));
  std::copy(value.begin(), value.end(), data);
}

CMetaVec fourFrames() {
  CMetaVec v;
  v.parse(reinterpret_cast<const unsigned char*>(hexString(kFourFramesHex).data()), 0);
  return v;
}

unsigned parseString(CMetaVec& v, const std::string& bytes) {
  return v.parse(reinterpret_cast<const unsigned char*>(bytes.data()),
                 static_cast<unsigned>(bytes.size()));
}

TEST(MetaVec, TagTableSearchAndBadIndices) {
  EXPECT_STREQ(CMetaVec::tagName(0), "TPE1");
  EXPECT_STREQ(CMetaVec::tagName(kTagFeatObj), "FeatObj");
  EXPECT_STREQ(CMetaVec::tagName(16), "IPINF");
  EXPECT_STREQ(CMetaVec::tagName(17), "_inv_tag_");
  EXPECT_STREQ(CMetaVec::tagName(-1), "_inv_tag_");

  CMetaVec v = fourFrames();
  add(v, "TIME", hexString("00000001"));
  EXPECT_EQ(v.findFrame("TIME", 4), 2);
  EXPECT_EQ(v.findFrame("TIM", 3), -1);  // a prefix is not the id
  EXPECT_EQ(v.findTaggedFrame(kTagTime, 3), 4);
  EXPECT_EQ(v.findTaggedFrame(kTagDsig), -1);
  unsigned length = 4;
  int start = 3;
  EXPECT_EQ(v.findFrameFrom("TIME", length, start)[3], 1);
  EXPECT_EQ(start, 4);
  EXPECT_EQ(length, 4u);
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
  CMetaVec v = fourFrames();
  EXPECT_EQ(thrownText([&] { v.addNewFrame(0, "", 1); }),
            "ERROR Meta-ID length must be between 1 and 255");
  EXPECT_EQ(thrownText([&] { v.addNewFrame(256, std::string(256, 'a').data(), 1); }),
            "ERROR Meta-ID length must be between 1 and 255");
  add(v, "FeatObj", "f");
  add(v, "Cuid", "");
  EXPECT_EQ(v.removeFrame(1), 1);
  EXPECT_THAT(frameIds(v), ElementsAre("Cuid", "TIME", "X", "FeatObj", "Cuid"));

  CMetaVec copy(v, kTagFeatObj);
  EXPECT_THAT(frameIds(copy), ElementsAre("Cuid", "TIME", "X", "Cuid"));
  EXPECT_EQ(copy.assignExcept(v, 17), 5u);     // excludes "_inv_tag_", that is nothing
  EXPECT_EQ(v.assignExcept(v, kTagCuid), 3u);  // on itself: in place
  EXPECT_THAT(frameIds(v), ElementsAre("TIME", "X", "FeatObj"));
  EXPECT_EQ(v.removeAllWithId("FeatObj", 7), 2u);
  EXPECT_THAT(frameIds(CMetaVec(CMetaVec(copy, kTagCuid), kTagTime)), ElementsAre("X", "FeatObj"));
}

TEST(MetaVec, BlockEncodesAndParsesBack) {
  CMetaVec v;
  add(v, "Cuid", hexString("00000015"));
  add(v, "VER", "V6");
  add(v, "TIME", hexString("0000002A"));
  add(v, "X", "");
  const std::string golden = hexString(kFourFramesHex);
  std::ostringstream out;
  EXPECT_EQ(v.writeTo(out), 0);
  EXPECT_EQ(hexText(out.str()), hexText(golden));
  std::string stored(v.encodedSize(), '\0');
  EXPECT_EQ(v.storeTo(reinterpret_cast<unsigned char*>(&stored[0])), 35u);
  EXPECT_EQ(stored, golden);

  CMetaVec read;
  add(read, "old", "");
  EXPECT_EQ(parseString(read, golden), golden.size());
  EXPECT_THAT(frameIds(read), ElementsAre("Cuid", "VER", "TIME", "X"));

  // Two-byte varints for S and for a 200-byte value.
  CMetaVec big;
  add(big, "B", std::string(200, 'v'));
  std::ostringstream bigOut;
  big.writeTo(bigOut);
  EXPECT_EQ(hexText(bigOut.str().substr(0, 10)), "4D 45 54 41 81 4C 01 42 81 48");

  // An empty vector writes nothing, never a block with S of 0.
  const CMetaVec empty;
  std::ostringstream none;
  testing::internal::CaptureStderr();
  EXPECT_EQ(empty.writeTo(none), 1);
  EXPECT_EQ(empty.storeTo(nullptr), 0u);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR no meta data to write!\nERROR no meta data to write!\n");
  EXPECT_EQ(none.str(), "");
}

TEST(MetaVec, ParseTakesTheLengthOverSAndNeverRunsPastIt) {
  const std::string golden = hexString(kFourFramesHex);
  CMetaVec v;
  std::string wrongS = golden;
  wrongS[4] = 0x05;
  EXPECT_EQ(parseString(v, wrongS), golden.size());
  EXPECT_EQ(v.frameCount(), 4u);
  EXPECT_EQ(parseString(v, hexString("4D455441 00")), 5u);
  EXPECT_EQ(v.frameCount(), 0u);

  // A cut between frames is a shorter block; any other cut consumes a count other than its
  // length.
  for (size_t cut = 4; cut < golden.size(); ++cut) {
    SCOPED_TRACE(cut);
    EXPECT_EQ(parseString(v, golden.substr(0, cut)) == cut,
              cut == 5 || cut == 15 || cut == 22 || cut == 32);
  }
  // A value running past the end answers where it was to end.
  EXPECT_EQ(parseString(v, hexString("4D455441 07 01 41 FFFFFF7F 00")), 11u + 0x0FFFFFFF);
  EXPECT_EQ(thrownText([&] { parseString(v, hexString("4D455441 02 00 00")); }),
            "ERROR Meta-ID length must be between 1 and 255");
  testing::internal::CaptureStderr();
  EXPECT_EQ(parseString(v, "MEXA\x01"), 0u);
  EXPECT_EQ(parseString(v, "ME"), 0u);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR: not an Meta Tag\nERROR: not an Meta Tag\n");
}

TEST(MetaVec, ReadFromAddsFramesUntilTheSizeAndStopsAtAFailedOne) {
  const std::string frames = hexString(kFourFramesHex).substr(5);
  CMetaVec v;
  std::istringstream in(frames + "rest");
  EXPECT_EQ(v.readFrom(in, 0), 0u);
  EXPECT_EQ(v.readFrom(in, 11), 17u);  // two frames reach 11 bytes
  EXPECT_THAT(frameIds(v), ElementsAre("Cuid", "VER"));

  const std::pair<const char*, std::string> failures[] = {
      {"cut value", hexString("04 43756964 04 0000")},
      {"cut value length", hexString("04 43756964 84")},
      {"id of 128 bytes", hexString("80") + std::string(140, 'a')},
      {"zero id length", hexString("00 00")},
      {"end of stream", ""},
  };
  for (const auto& [name, bytes] : failures) {
    SCOPED_TRACE(name);
    CMetaVec failed;
    std::istringstream bad(bytes);
    testing::internal::CaptureStderr();
    EXPECT_EQ(failed.readFrom(bad, 100), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR parsing Meta Tags\n");
    ASSERT_EQ(failed.frameCount(), 1u);  // the failed frame stays, with id length 0
    EXPECT_EQ(failed.frameAt(0).idLength, 0u);
  }
}

}  // namespace
