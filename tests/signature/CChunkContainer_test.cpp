#include "signature/CChunkContainer.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tests/signature/OlderStreams.h"
#include "tests/support/ExpectVEXL.h"
#include "vexl/heap_matrix.h"

namespace {

std::string rest(std::istream& in) {
  return hexText(
      std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>()));
}

// The frames themselves are checked through the conversion in CWholeStream_test.
TEST(CChunkContainerTest, ReadsTheOlderFormUpToItsEnd) {
  for (int version : {3, 4}) {
    SCOPED_TRACE(version);
    std::istringstream in(hexString("4F525646 0000000" + std::to_string(version) + " 53" +
                                    kOlderBodyVarint + kOlderTail));
    CChunkContainer chunks(1, nullptr, nullptr);
    EXPECT_EQ(chunks.parseStream(in), version == 3 ? 7 : 1);
    EXPECT_EQ(chunks.bodySize(), 83u);
    if (version == 3) {
      EXPECT_EQ(chunks.findFrame("TIT2", 4), 0);
      // kept: the header and 10 bytes more than the tag's size of 0.
      EXPECT_EQ(chunks.getId3TagSize(), 10u);
      EXPECT_EQ(chunks.getId3Tag().size(), 20u);
    }
    // Version 4 ends with the declared body: "META" stays in the stream.
    EXPECT_EQ(rest(in), hexText(hexString(version == 3 ? "4F52564600000005" : kOlderTail)));
  }
}

TEST(CChunkContainerTest, AChunkStartingOnTheLastDeclaredByteIsReadAndSized) {
  // "VERS" takes 10 of the 11 declared bytes; the "FEAT" behind it holds 124 data bytes, so
  // its length with the inner id needs a two-byte varint.
  std::istringstream in(
      hexString("4F525646 00000003 0B 56455253 05 4631433231 46454154 8100 44415441") +
      std::string(124, 'x'));
  CChunkContainer chunks(1, nullptr, nullptr);
  EXPECT_EQ(chunks.parseStream(in), 1);
  EXPECT_EQ(chunks.subChunkCount(), 1);
  EXPECT_EQ(chunks.bodySize(), 160u);
}

TEST(CChunkContainerTest, Id3SizeIsTakenFromBytesSevenToNine) {
  // Size bytes 00 00 01 01 read as the word 00 01 01 00: 2^14 + 2^7, and 10 bytes more.
  std::istringstream in(
      hexString("4F52564600000003 53" + kOlderBodyVarint + "494433 030000 00000101") +
      std::string(16522, 'x') + "ORVF");
  CChunkContainer chunks(1, nullptr, nullptr);
  EXPECT_EQ(chunks.parseStream(in), 5);
  EXPECT_EQ(chunks.getId3TagSize(), 16522u);
  EXPECT_EQ(rest(in), "4F 52 56 46");
}

TEST(CChunkContainerTest, MetaChunksCountTwiceTowardTheDeclaredSize) {
  // Declared body 106: after the chunk pos is 39; each "META" of 9 frame bytes adds 9 + 9 + 4
  // (kept), so the third leaves 105, the fourth reaches 127 and the fifth stays in the stream.
  const std::string meta = "4D455441 09 04 54495432 03 616263";
  std::string hex = "4F525646 00000004 6A 46454154 05 44415441 AB";
  for (int i = 0; i < 5; ++i) hex += meta;
  std::istringstream in(hexString(hex));
  CChunkContainer chunks(1, nullptr, nullptr);
  EXPECT_EQ(chunks.parseStream(in), 3);
  EXPECT_EQ(chunks.frameCount(), 4u);
  EXPECT_EQ(rest(in), hexText(hexString(meta)));

  // A zero "TUID" is refused with a message and reading goes on.
  std::istringstream zero(
      hexString("4F525646 00000003 16 54554944 0000000000000000 46454154 05 "
                "44415441 AB"));
  CChunkContainer fresh(1, nullptr, nullptr);
  testing::internal::CaptureStderr();
  EXPECT_EQ(fresh.parseStream(zero), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR invalid TUID: use values > 0\n");
}

TEST(CChunkContainerTest, RefusesBadStreams) {
  const std::string bad = "ERROR bad stream or sub chunk format)\n";
  const std::pair<const char*, std::string> cases[] = {
      {"4F525646 00000005 00", "ERROR stream version not compatible\n"},
      {"4F525646 0000003F 00", "ERROR stream version not compatible\n"},
      {"4F525646 00000003 05 58585858 00", "ERROR no sub chunk found!\n" + bad},
      {"4F525646 00000003 10 56455253 7F 4631", bad},  // body cut short
      {"4F525646 0000", bad},
      {"4F525646 00000003 09 46454154 03 444154", bad},  // shorter than its id
      {"4F525646 00000003 18 54554944 0000000000000001 54554944 0000000000000002",
       "Error: tuid mismatch\n" + bad},
      {"4F525646 00000003 0A 56455253 05 4632433231", "Error: stream version mismatch\n" + bad}};
  for (const auto& [hex, message] : cases) {
    SCOPED_TRACE(hex);
    std::istringstream in(hexString(hex));
    CChunkContainer chunks(1, "F1C21", nullptr);
    testing::internal::CaptureStderr();
    // A refused version answers 0, every other failure -1.
    EXPECT_EQ(chunks.parseStream(in), message.find("compatible") == std::string::npos ? -1 : 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), message);
  }
  const std::string fpar = "46504152 447A0000 457A0000 00000003";
  std::istringstream twice(hexString("4F525646 00000003 20" + fpar + fpar));
  CChunkContainer chunks(1, nullptr, nullptr);
  testing::internal::CaptureStderr();
  EXPECT_THROW(chunks.parseStream(twice), int);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "FeatPara member already instantiated\n");
}

TEST(CChunkContainerTest, MatrixFromChunksWarnsAboutAGapAndKeepsAllRows) {
  CChunkContainer chunks(1, nullptr, nullptr);
  std::istringstream in(hexString(kOlderMat + "4D41540A666C740062696E0A000000010000000240000000"
                                              "40400000"));
  ASSERT_EQ(chunks.addSubChunk(28, &in, 4, 0), 1);
  ASSERT_EQ(chunks.addSubChunk(28, &in, 6, 0), 1);
  testing::internal::CaptureStderr();
  EXPECT_EQ(chunks.subChunkLength(2), -1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "ERROR container subscript out of range (size=2)\n");
  HeapMatrix<float> matrix;
  testing::internal::CaptureStderr();
  matrix.ReadFromChunks(chunks);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "warning: expected data chunk id=5, but got a6\n");
  ASSERT_EQ(matrix.m_rows * matrix.m_cols, 4u);
  const float expected[] = {1.0f, 0.5f, 2.0f, 3.0f};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(matrix.m_data[i], expected[i]) << i;
  EXPECT_EQ(matrix.m_capacity, 56u);  // kept: 56 bytes of chunks size the storage as 56 elements

  // 2^30 rows without columns, then a chunk with two: elements no chunk holds are refused.
  std::istringstream phantom(hexString("4D41540A666C740062696E0A4000000000000000" + kOlderMat));
  ASSERT_EQ(chunks.addSubChunk(20, &phantom, 1, 1), 1);
  ASSERT_EQ(chunks.addSubChunk(28, &phantom, 2, 0), 1);
  ExpectVEXL([&] { matrix.ReadFromChunks(chunks); }, "too few elements in buffer",
             "vexl/heap_matrix", 561);
}

TEST(CChunkContainerTest, Syncsafe21PacksThreeGroupsAndIgnoresTheTopByte) {
  const uint32_t cases[][2] = {{0x7F, 0x7F},         {0x80, 0},
                               {0x100, 0x80},        {0x10000, 0x4000},
                               {0x7F7F7F, 0x1FFFFF}, {0xFF000000, 0}};
  for (const auto& c : cases) EXPECT_EQ(syncsafe21(c[0]), c[1]) << c[0];
}

TEST(CChunkContainerTest, VerifiesTheSignatureFrameThroughTheHook) {
  const std::string good = olderGoodSignature(), wrong = hexString("31 03 4B4559 02 5358");
  const char* foreign =
      "Error: wrong public key - it's not the correspondent of\n"
      "the used encryption key. Cannot verify signature!\n";
  const char* badFrame = "Error: bad md5 Signature\n";
  const struct {
    std::string dsig, key;  // the hook's key; empty: the hook has none
    int result;
    const char* message;
  } cases[] = {
      {good, "KEY", 3, ""},
      {wrong, "KEY", -2, "Error: signature failed security verification\n"},
      {good, "KEX", 11, foreign},
      {good, "KE", 11, foreign},  // the frame's key is longer than the hook's
      {wrong, "", 3, ""},
      {hexString("31 00 00"), "KEY", -3, badFrame},
      {hexString("31 09 4B4559"), "KEY", -3, badFrame},          // key runs past the frame
      {hexString("31 03 4B4559 05 5347"), "KEY", -3, badFrame},  // signature runs past it
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(hexText(c.dsig) + " / " + c.key);
    std::istringstream in(olderSignedStream(c.dsig));
    ToyHook hook;
    hook.verificationKey = c.key;
    hook.verificationKeyLoaded = c.key.empty() ? 0 : 1;
    CChunkContainer chunks(1, nullptr, &hook);
    testing::internal::CaptureStderr();
    EXPECT_EQ(chunks.parseStream(in), c.result);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.message);
  }
}

}  // namespace
