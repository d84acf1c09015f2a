#include "signature/CMetaVec.h"

#include <gmock/gmock.h>

#include "tests/signature/SignatureStreams.h"
#include "tests/support/ThrownText.h"

namespace {

using ::testing::ElementsAre;

// "Cuid" = 21, "VER" = "V6", "TIME" = 42, "X" with an empty value.
const std::string kFourFrames = hexString(
    "4D455441 1E 04 43756964 04 00000015 03 564552 02 5636 04 54494D45 04 0000002A 01 58 00");
const char kMetaIdLength[] = "ERROR Meta-ID length must be between 1 and 255";

unsigned parseString(CMetaVec& v, const std::string& bytes) {
  return v.parse(reinterpret_cast<const unsigned char*>(bytes.data()),
                 static_cast<unsigned>(bytes.size()));
}

TEST(MetaVec, SearchEditingAndBadIndices) {
  CMetaVec v;
  parseString(v, kFourFrames);
  storeBigEndian32(v.addNewFrame(4, "TIME", 4), 1);
  EXPECT_EQ(v.findFrame("TIM", 3), -1);  // a prefix is not the id
  unsigned length = 4;
  int start = 3;
  EXPECT_EQ(v.findFrameFrom("TIME", length, start)[3], 1);
  EXPECT_EQ(start, 4);
  EXPECT_EQ(thrownText([&] { v.addNewFrame(256, std::string(256, 'a').data(), 1); }),
            kMetaIdLength);
  EXPECT_EQ(v.removeFrame(1), 1);
  EXPECT_EQ(v.assignExcept(v, kTagTime), 2u);  // on itself: in place
  EXPECT_THAT(frameIds(v), ElementsAre("Cuid", "X"));
  testing::internal::CaptureStderr();
  const void* data = nullptr;
  EXPECT_FALSE(v.checkIndex(2));
  EXPECT_EQ(v.getFrameData(-1, data), 0u);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR: CMetaVec index out of range (must be < 2)\n"
            "ERROR: CMetaVec frame not found\n");
}

// The block's bytes are pinned by the stream goldens of CWholeStream_test.
TEST(MetaVec, ParseReplacesTheFramesTakesTheLengthOverSAndNeverRunsPastIt) {
  CMetaVec v;
  v.addNewFrame(3, "old", 0);
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
  EXPECT_EQ(parseString(v, "MEXA\x01") + parseString(v, "ME"), 0u);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR: not an Meta Tag\nERROR: not an Meta Tag\n");
}

}  // namespace
