#include "signature/CChunkContainer.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>

#include "tests/signature/OlderStreams.h"
#include "tests/support/ExpectVEXL.h"
#include "vexl/heap_matrix.h"

namespace {

// Reading ends with the declared body, an ID3 tag or a second stream; the frames themselves are
// checked through the conversion in CWholeStream_test.
TEST(CChunkContainerTest, ReadsTheOlderFormUpToItsEnd) {
  const std::string v3 = hexString("4F52564600000003 53" + kOlderBodyVarint);
  const std::string meta = hexString("4D455441 09 04 54495432 03 616263");
  std::string metas = hexString("4F525646 00000004 6A 46454154 05 44415441 AB");
  for (int i = 0; i < 5; ++i) metas += meta;
  const std::tuple<std::string, int, unsigned, uint32_t, std::string, const char*> cases[] = {
      // The ID3 tag's size bytes 7F 7F 00 00 count as 0: 10 bytes follow its header.
      {v3 + hexString(kOlderTail), 7, 1, 83, hexString("4F52564600000005"), ""},
      {hexString("4F52564600000004 53" + kOlderBodyVarint + kOlderTail), 1, 0, 83,
       hexString(kOlderTail), ""},
      // Size bytes 00 00 01 01 read as the word 00 01 01 00: 2^14 + 2^7, and 10 bytes more.
      {v3 + hexString("494433 030000 00000101") + std::string(16522, 'x') + "ORVF", 5, 0, 83,
       "ORVF", ""},
      // "VERS" takes 10 of the 11 declared bytes; the "FEAT" behind it holds 124 data bytes, so
      // its length with the inner id needs a two-byte varint.
      {hexString("4F525646 00000003 0B 56455253 05 4631433231 46454154 8100 44415441") +
           std::string(124, 'x'),
       1, 0, 160, "", ""},
      // Declared body 106: after the chunk pos is 39; each "META" of 9 frame bytes adds 9 + 9 + 4
      // (kept), so the third leaves 105, the fourth reaches 127 and the fifth stays unread.
      {metas, 3, 4, 31, meta, ""},
      // A zero "TUID" is refused with a message and reading goes on.
      {hexString("4F525646 00000003 16 54554944 0000000000000000 46454154 05 44415441 AB"), 1, 0,
       31, "", "ERROR invalid TUID: use values > 0\n"},
  };
  for (const auto& [bytes, result, frames, bodySize, rest, message] : cases) {
    SCOPED_TRACE(hexText(bytes.substr(0, 12)));
    std::istringstream in(bytes);
    CChunkContainer chunks(1, nullptr, nullptr);
    testing::internal::CaptureStderr();
    EXPECT_EQ(chunks.parseStream(in), result);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), message);
    EXPECT_EQ(chunks.frameCount(), frames);
    EXPECT_EQ(chunks.bodySize(), bodySize);
    EXPECT_EQ(hexText(std::string(std::istreambuf_iterator<char>(in), {})), hexText(rest));
  }
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
  // The hook's key; empty: the hook has none.
  const std::tuple<std::string, const char*, int, const char*> cases[] = {
      {good, "KEY", 3, ""},
      {wrong, "KEY", -2, "Error: signature failed security verification\n"},
      {good, "KEX", 11, foreign},
      {good, "KE", 11, foreign},  // the frame's key is longer than the hook's
      {wrong, "", 3, ""},
      {hexString("31 00 00"), "KEY", -3, badFrame},
      {hexString("31 09 4B4559"), "KEY", -3, badFrame},          // key runs past the frame
      {hexString("31 03 4B4559 05 5347"), "KEY", -3, badFrame},  // signature runs past it
  };
  for (const auto& [dsig, key, result, message] : cases) {
    SCOPED_TRACE(hexText(dsig) + " / " + key);
    std::istringstream in(olderSignedStream(dsig));
    ToyHook hook;
    hook.verificationKey = key;
    hook.verificationKeyLoaded = *key ? 1 : 0;
    CChunkContainer chunks(1, nullptr, &hook);
    testing::internal::CaptureStderr();
    EXPECT_EQ(chunks.parseStream(in), result);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), message);
  }
}

}  // namespace
