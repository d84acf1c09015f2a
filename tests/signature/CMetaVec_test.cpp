#include "signature/CMetaVec.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "signature/SignatureMessages.h"
#include "tests/ThrownText.h"
#include "tests/signature/HexBytes.h"

namespace {

using ::testing::ElementsAre;

// "Cuid" = 21, "VER" = "V6", "TIME" = 42, "X" with an empty value.
const char kFourFramesHex[] =
    "4D455441 1E"
    "04 43756964 04 00000015"
    "03 564552 02 5636"
    "04 54494D45 04 0000002A"
    "01 58 00";

std::vector<std::string> ids(const CMetaVec& v) {
  std::vector<std::string> out;
  for (unsigned i = 0; i < v.frameCount(); ++i) {
    out.emplace_back(v.frameAt(static_cast<int>(i)).id.data(), v.frameAt(static_cast<int>(i)).idLength);
  }
  return out;
}

void add(CMetaVec& v, const std::string& id, const std::string& value) {
  unsigned char* data = v.addNewFrame(static_cast<unsigned>(id.size()), id.data(),
                                      static_cast<unsigned>(value.size()));
  std::copy(value.begin(), value.end(), data);
}

CMetaVec fourFrames() {
  CMetaVec v;
  add(v, "Cuid", fromHex("00000015"));
  add(v, "VER", "V6");
  add(v, "TIME", fromHex("0000002A"));
  add(v, "X", "");
  return v;
}

std::string stored(const CMetaVec& v) {
  std::string bytes(v.encodedSize(), '\0');
  EXPECT_EQ(v.storeTo(reinterpret_cast<unsigned char*>(&bytes[0])), bytes.size());
  return bytes;
}

unsigned parseString(CMetaVec& v, const std::string& bytes) {
  return v.parse(reinterpret_cast<const unsigned char*>(bytes.data()),
                 static_cast<unsigned>(bytes.size()));
}

TEST(MetaFrame, KeepsTerminatedDeepCopies) {
  SMetaFrame frame(3, 2, "VER", "V6");
  SMetaFrame copy = frame;
  frame.set(4, 0, "TIME", nullptr);
  EXPECT_STREQ(copy.id.data(), "VER");
  EXPECT_STREQ(reinterpret_cast<const char*>(copy.data.data()), "V6");
  EXPECT_EQ(frame.dataLength, 0u);
  EXPECT_EQ(frame.data.size(), 1u);  // an empty value is still a terminated block
  EXPECT_EQ(frame.encodedSize(), 6u);
  const SMetaFrame& same = copy;
  copy = same;  // self-assignment keeps the frame
  EXPECT_STREQ(copy.id.data(), "VER");
}

TEST(MetaVec, TagTableAndInvalidIndices) {
  const char* expected[] = {"TPE1", "TIT2", "TALB", "Tuid",    "Cuid",  "dsig",
                            "TDOR", "TSRC", "TDTG", "TLEN",    "TSCR",  "TIME",
                            "FeatObj", "ATPE1", "ATIT2", "ATUID", "IPINF"};
  for (int i = 0; i < 17; ++i) EXPECT_STREQ(CMetaVec::tagName(i), expected[i]) << i;
  EXPECT_STREQ(CMetaVec::tagName(17), "_inv_tag_");
  EXPECT_STREQ(CMetaVec::tagName(-1), "_inv_tag_");
}

TEST(MetaVec, SearchNeedsEqualLengthsAndStopsAtZeroBytes) {
  CMetaVec v = fourFrames();
  add(v, "TIME", fromHex("00000001"));
  EXPECT_EQ(v.findFrame("TIME", 4), 2);
  EXPECT_EQ(v.findFrame("TIM", 3), -1);    // a prefix is not the id
  EXPECT_EQ(v.findFrame("TIMES", 5), -1);

  unsigned length = 4;
  int start = 3;
  const unsigned char* data = v.findFrameFrom("TIME", length, start);
  EXPECT_EQ(start, 4);
  EXPECT_EQ(length, 4u);
  ASSERT_NE(data, nullptr);
  EXPECT_EQ(data[3], 1);
  length = 4;
  start = 5;
  EXPECT_EQ(v.findFrameFrom("TIME", length, start), nullptr);
  EXPECT_EQ(start, -1);

  // Ids with the same bytes up to a zero byte agree in the length-limited comparison.
  CMetaVec z;
  z.addNewFrame(3, std::string("A\0B", 3).data(), 0);
  EXPECT_EQ(z.findFrame(std::string("A\0C", 3).data(), 3), 0);
}

TEST(MetaVec, BadIndicesPrintAndAnswerFalse) {
  CMetaVec v = fourFrames();
  const void* data = nullptr;
  EXPECT_EQ(v.getFrameData(1, data), 2u);
  EXPECT_STREQ(static_cast<const char*>(data), "V6");

  testing::internal::CaptureStderr();
  EXPECT_FALSE(v.checkIndex(4));
  EXPECT_EQ(v.getFrameData(-1, data), 0u);
  EXPECT_EQ(v.removeFrame(7), 0);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR: CMetaVec index out of range (must be < 4)\n"
            "ERROR: CMetaVec frame not found\n"
            "ERROR: CMetaVec index out of range (must be < 4)\n");
  EXPECT_EQ(v.frameCount(), 4u);
}

TEST(MetaVec, EditingKeepsOrder) {
  CMetaVec v = fourFrames();
  EXPECT_EQ(thrownText([&] { v.addNewFrame(0, "", 1); }),
            "ERROR Meta-ID length must be between 1 and 255");
  EXPECT_THROW(v.addNewFrame(256, std::string(256, 'a').data(), 1), std::string);
  v.addNewFrame(255, std::string(255, 'a').data(), 0);
  EXPECT_EQ(v.frameCount(), 5u);

  EXPECT_EQ(v.removeFrame(1), 1);
  EXPECT_THAT(ids(v), ElementsAre("Cuid", "TIME", "X", std::string(255, 'a')));
  add(v, "Cuid", "");
  EXPECT_EQ(v.removeAllWithId("Cuid", 4), 3u);
  EXPECT_THAT(ids(v), ElementsAre("TIME", "X", std::string(255, 'a')));
  v.clearFrames();
  EXPECT_EQ(v.frameCount(), 0u);
}

TEST(MetaVec, AssignExceptDropsOneTag) {
  CMetaVec features;
  add(features, "FeatObj", "a");
  add(features, "FeatObj", "b");
  CMetaVec none(features, kTagFeatObj);
  EXPECT_EQ(none.frameCount(), 0u);

  CMetaVec mixed = fourFrames();
  add(mixed, "FeatObj", "c");
  add(mixed, "Cuid", "");
  CMetaVec copy;
  EXPECT_EQ(copy.assignExcept(mixed, kTagCuid), 4u);
  EXPECT_THAT(ids(copy), ElementsAre("VER", "TIME", "X", "FeatObj"));
  // An index outside the table excludes "_inv_tag_", that is nothing.
  EXPECT_EQ(copy.assignExcept(mixed, 17), 6u);
  // On itself it removes in place.
  EXPECT_EQ(mixed.assignExcept(mixed, kTagFeatObj), 5u);
  EXPECT_THAT(ids(mixed), ElementsAre("Cuid", "VER", "TIME", "X", "Cuid"));
}

TEST(MetaVec, EncodesTheGoldenBlock) {
  const CMetaVec v = fourFrames();
  unsigned varintBytes = 0;
  EXPECT_EQ(v.encodedSize(&varintBytes), 35u);
  EXPECT_EQ(varintBytes, 1u);
  EXPECT_EQ(toHex(stored(v)), toHex(fromHex(kFourFramesHex)));
  std::ostringstream out;
  EXPECT_EQ(v.writeTo(out), 0);
  EXPECT_EQ(out.str(), fromHex(kFourFramesHex));

  // A 200-byte value needs a two-byte varint, and S itself grows to two bytes.
  CMetaVec big;
  add(big, "B", std::string(200, 'v'));
  const std::string bytes = stored(big);
  EXPECT_EQ(toHex(bytes.substr(0, 10)), toHex(fromHex("4D455441 814C 01 42 8148")));
}

TEST(MetaVec, EmptyVectorWritesNothing) {
  const CMetaVec v;
  EXPECT_EQ(v.encodedSize(), 0u);
  std::ostringstream out;
  unsigned char buffer[1] = {0xEE};
  testing::internal::CaptureStderr();
  EXPECT_EQ(v.writeTo(out), 1);
  EXPECT_EQ(v.storeTo(buffer), 0u);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR no meta data to write!\nERROR no meta data to write!\n");
  EXPECT_EQ(out.str(), "");
  EXPECT_EQ(buffer[0], 0xEE);
}

TEST(MetaVec, ParseRoundTripsAndLengthWinsOverS) {
  const std::string golden = fromHex(kFourFramesHex);
  CMetaVec v;
  add(v, "old", "gone");
  EXPECT_EQ(parseString(v, golden), golden.size());
  EXPECT_THAT(ids(v), ElementsAre("Cuid", "VER", "TIME", "X"));
  EXPECT_EQ(stored(v), golden);

  // Length 0: S alone says where the frames end.
  const auto* bytes = reinterpret_cast<const unsigned char*>(golden.data());
  EXPECT_EQ(v.parse(bytes, 0), golden.size());

  // A given length wins over a wrong S.
  std::string wrongS = golden;
  wrongS[4] = 0x05;
  EXPECT_EQ(parseString(v, wrongS), golden.size());
  EXPECT_EQ(v.frameCount(), 4u);

  // S of 0 with length 5: no frames.
  EXPECT_EQ(parseString(v, fromHex("4D455441 00")), 5u);
  EXPECT_EQ(v.frameCount(), 0u);
}

TEST(MetaVec, ParseOfBadBlocksNeverMatchesTheLength) {
  const std::string golden = fromHex(kFourFramesHex);
  CMetaVec v;
  testing::internal::CaptureStderr();
  EXPECT_EQ(parseString(v, "MEXA\x01"), 0u);
  EXPECT_EQ(parseString(v, "ME"), 0u);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR: not an Meta Tag\nERROR: not an Meta Tag\n");

  // A cut between frames is a shorter block (the length wins over S); any other cut consumes a
  // count other than its length.
  for (size_t cut = 4; cut < golden.size(); ++cut) {
    SCOPED_TRACE(cut);
    const bool between = cut == 5 || cut == 15 || cut == 22 || cut == 32;
    EXPECT_EQ(parseString(v, golden.substr(0, cut)) == cut, between);
  }
  // A value length running past the end answers where the frame was to end.
  EXPECT_EQ(parseString(v, fromHex("4D455441 07 01 41 FF FF FF 7F 00")), 11u + 0x0FFFFFFF);

  // A zero id length is refused by addNewFrame.
  EXPECT_THROW(parseString(v, fromHex("4D455441 02 00 00")), std::string);
}

TEST(MetaVec, ReadFromAddsFramesFromAStream) {
  const std::string golden = fromHex(kFourFramesHex);
  const std::string frames = golden.substr(5);
  CMetaVec v;
  add(v, "kept", "");
  std::istringstream in(frames + "rest");
  EXPECT_EQ(v.readFrom(in, 0), 0u);
  EXPECT_EQ(v.readFrom(in, static_cast<unsigned>(frames.size())), frames.size());
  EXPECT_THAT(ids(v), ElementsAre("kept", "Cuid", "VER", "TIME", "X"));
  std::string rest(4, '\0');
  in.read(&rest[0], 4);
  EXPECT_EQ(rest, "rest");

  // One frame covers a size smaller than itself.
  std::istringstream one(frames);
  EXPECT_EQ(v.readOneFrame(one), 10u);
  EXPECT_EQ(v.readFrom(one, 1), 7u);
}

TEST(MetaVec, ReadFromStopsAtAFailedFrame) {
  struct Case {
    const char* name;
    std::string bytes;
  };
  const Case cases[] = {
      {"cut value", fromHex("04 43756964 04 0000")},
      {"cut id", fromHex("04 4375")},
      {"cut value length", fromHex("04 43756964 84")},
      {"id of 128 bytes", fromHex("80") + std::string(140, 'a')},
      {"zero id length", fromHex("00 00")},
      {"end of stream", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    CMetaVec v;
    std::istringstream in(c.bytes);
    testing::internal::CaptureStderr();
    EXPECT_EQ(v.readFrom(in, 100), 0u);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR parsing Meta Tags\n");
    // The failed frame stays, marked by its zero id length.
    ASSERT_EQ(v.frameCount(), 1u);
    EXPECT_EQ(v.frameAt(0).idLength, 0u);
  }
}

}  // namespace
