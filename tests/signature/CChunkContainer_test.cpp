#include "signature/CChunkContainer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>

#include "tests/signature/OlderStreams.h"
#include "vexl/heap_matrix.h"

namespace {

struct Parsed {
  const char* name;
  std::string hex;
  int bits;
  int version;
  uint64_t tuid;
  unsigned frames;
  std::string left;  // hex of what stays in the stream
};

TEST(CChunkContainerTest, ReadsEveryVersionOfTheOlderForm) {
  const Parsed cases[] = {
      {"version 3", "4F525646 00000003 53" + kOlderBodyVarint + kOlderTail, 7, 3, 7, 1,
       "4F52564600000005"},
      {"version 2", "4F525646 00000002 5A" + kOlderBodyWords + kOlderTail, 7, 2,
       0xFFFFFFFFFFFFFFFEull, 1, "4F52564600000005"},
      {"no version word", "4F525646 0000005A" + kOlderBodyWords + kOlderTail, 7, 2,
       0xFFFFFFFFFFFFFFFEull, 1, "4F52564600000005"},
      // At version 4 reading ends where the declared body ends: "META" is not read.
      {"version 4", "4F525646 00000004 53" + kOlderBodyVarint + kOlderTail, 1, 4, 7, 0,
       hexText(hexString(kOlderTail))},
  };
  for (const Parsed& c : cases) {
    SCOPED_TRACE(c.name);
    std::istringstream in(hexString(c.hex));
    CChunkContainer chunks(1, nullptr, nullptr);
    EXPECT_EQ(chunks.parseStream(in), c.bits);
    EXPECT_EQ(chunks.getStreamVersion(), c.version);
    // The values themselves are checked through the conversion to frames.
    EXPECT_EQ(chunks.getTuid(), c.tuid);
    EXPECT_STREQ(chunks.getVersionText(), "F1C21");
    ASSERT_EQ(chunks.subChunkCount(), 1);
    EXPECT_EQ(chunks.subChunkLength(0), 28);
    EXPECT_EQ(chunks.bodySize(), 83u);
    ASSERT_EQ(chunks.frameCount(), c.frames);
    if (c.frames == 1) {
      EXPECT_EQ(chunks.findFrame("TIT2", 4), 0);
      // kept: the header and 10 bytes more than the tag's size of 0.
      EXPECT_EQ(chunks.getId3TagSize(), 10u);
      EXPECT_EQ(chunks.getId3Tag().size(), 20u);
    }
    std::string rest((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(hexText(rest), hexText(hexString(c.left)));
  }
}

TEST(CChunkContainerTest, MinimalStreamGetsDefaults) {
  // One one-byte "FEAT" chunk; a zero "TUID" is refused with a message and reading goes on.
  std::istringstream in(
      hexString("4F525646 00000003 16 54554944 0000000000000000"
              "46454154 05 44415441 AB"));
  CChunkContainer chunks(1, nullptr, nullptr);
  testing::internal::CaptureStderr();
  EXPECT_EQ(chunks.parseStream(in), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR invalid TUID: use values > 0\n");
  EXPECT_EQ(chunks.getTuid(), 0u);
  ASSERT_NE(chunks.getFeaturePara(), nullptr);
  EXPECT_EQ(chunks.getFeaturePara()->lf, 250.0f);
  EXPECT_EQ(chunks.getFeaturePara()->uf, 4000.0f);
  EXPECT_EQ(chunks.getFeaturePara()->sr, 32);
  EXPECT_STREQ(chunks.getInfoText(), "NO_INFO");
  EXPECT_EQ(chunks.featureId(), 0.0);
  EXPECT_EQ(chunks.contentId(), 0.0);
  // "VERS" 4 + 1, "FPAR" 16, the chunk 8 + 1 + 1.
  EXPECT_EQ(chunks.bodySize(), 31u);
}

TEST(CChunkContainerTest, MetaChunksCountTwiceTowardTheDeclaredSize) {
  // Version 4 with a declared body of 127 bytes: after the chunk, pos is 39; each "META" of 9
  // frame bytes adds 9 consumed + 9 declared + 4 (kept), so the fourth reaches 127 and the
  // fifth is left in the stream.
  const std::string meta = "4D455441 09 04 54495432 03 616263";
  std::string hex = "4F525646 00000004 7F 46454154 05 44415441 AB";
  for (int i = 0; i < 5; ++i) hex += meta;
  std::istringstream in(hexString(hex));
  CChunkContainer chunks(1, nullptr, nullptr);
  EXPECT_EQ(chunks.parseStream(in), 3);
  EXPECT_EQ(chunks.frameCount(), 4u);
  std::string rest((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(hexText(rest), hexText(hexString(meta)));
}

struct Refused {
  const char* name;
  std::string hex;
  const char* versionText;
  int result;
  const char* message;
};

TEST(CChunkContainerTest, RefusesBadStreams) {
  const char* bad = "ERROR bad stream or sub chunk format)\n";
  const Refused cases[] = {
      {"version 5", "4F525646 00000005 00", nullptr, 0, "ERROR stream version not compatible\n"},
      {"version 63", "4F525646 0000003F 00", nullptr, 0, "ERROR stream version not compatible\n"},
      {"unknown sub chunk", "4F525646 00000003 05 58585858 00", nullptr, -1,
       "ERROR no sub chunk found!\nERROR bad stream or sub chunk format)\n"},
      {"body cut short", "4F525646 00000003 10 56455253 7F 4631", nullptr, -1, bad},
      {"version word cut short", "4F525646 0000", nullptr, -1, bad},
      {"chunk shorter than its id", "4F525646 00000003 09 46454154 03 444154", nullptr, -1, bad},
      {"two tuids", "4F525646 00000003 18 54554944 0000000000000001 54554944 0000000000000002",
       nullptr, -1, "Error: tuid mismatch\nERROR bad stream or sub chunk format)\n"},
      {"foreign version text", "4F525646 00000003 0A 56455253 05 4632433231", "F1C21", -1,
       "Error: stream version mismatch\nERROR bad stream or sub chunk format)\n"},
  };
  for (const Refused& c : cases) {
    SCOPED_TRACE(c.name);
    std::istringstream in(hexString(c.hex));
    CChunkContainer chunks(1, c.versionText, nullptr);
    testing::internal::CaptureStderr();
    const int result = chunks.parseStream(in);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.message);
    EXPECT_EQ(result, c.result);
  }

  std::istringstream twice(
      hexString("4F525646 00000003 20 46504152 447A0000 457A0000 00000003"
              "46504152 447A0000 457A0000 00000003"));
  CChunkContainer chunks(1, nullptr, nullptr);
  testing::internal::CaptureStderr();
  EXPECT_THROW(chunks.parseStream(twice), int);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "FeatPara member already instantiated\n");
}

TEST(CChunkContainerTest, SubscriptsOutOfRangeAnswerMinusOne) {
  CChunkContainer chunks(1, nullptr, nullptr);
  std::istringstream in("abc");
  EXPECT_EQ(chunks.addSubChunk(3, &in, 4, 0), 1);
  EXPECT_EQ(chunks.addSubChunk(0, &in, 5, 0), 1);
  ASSERT_EQ(chunks.subChunkCount(), 1);
  for (int i : {-1, 1}) {
    SCOPED_TRACE(i);
    testing::internal::CaptureStderr();
    EXPECT_EQ(chunks.subChunkIndex(i), -1);
    EXPECT_EQ(chunks.subChunkLength(i), -1);
    EXPECT_EQ(chunks.subChunkData(i), nullptr);
    const std::string line = "ERROR container subscript out of range (size=1)\n";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), line + line + line);
  }
}

TEST(CChunkContainerTest, MatrixFromChunksWarnsAboutAGapAndKeepsAllRows) {
  CChunkContainer chunks(1, nullptr, nullptr);
  std::istringstream in(
      hexString(kOlderMat + "4D41540A 666C7400 62696E0A 00000001 00000002 40000000 40400000"));
  ASSERT_EQ(chunks.addSubChunk(28, &in, 4, 0), 1);
  ASSERT_EQ(chunks.addSubChunk(28, &in, 6, 0), 1);
  HeapMatrix<float> matrix;
  testing::internal::CaptureStderr();
  matrix.ReadFromChunks(chunks);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "warning: expected data chunk id=5, but got a6\n");
  ASSERT_EQ(matrix.m_rows, 2u);
  ASSERT_EQ(matrix.m_cols, 2u);
  const float expected[] = {1.0f, 0.5f, 2.0f, 3.0f};
  for (int i = 0; i < 4; ++i) EXPECT_EQ(matrix.m_data[i], expected[i]) << i;
  // kept: 56 bytes of chunks size the storage as 56 elements.
  EXPECT_EQ(matrix.m_capacity, 56u);
}

TEST(CChunkContainerTest, Syncsafe21PacksThreeGroupsAndIgnoresTheTopByte) {
  const uint32_t cases[][2] = {{0x0000007F, 0x7F},   {0x00000080, 0},        {0x00000100, 0x80},
                               {0x00010000, 0x4000}, {0x007F7F7F, 0x1FFFFF}, {0xFF000000, 0}};
  for (const auto& c : cases) EXPECT_EQ(syncsafe21(c[0]), c[1]) << c[0];
}

struct Signed {
  const char* name;
  std::string dsig;
  std::string key;  // the hook's key; empty: the hook has none
  int result;
  const char* message;
};

TEST(CChunkContainerTest, VerifiesTheSignatureFrameThroughTheHook) {
  const std::string good = olderGoodSignature();
  const char* foreign =
      "Error: wrong public key - it's not the correspondent of\n"
      "the used encryption key. Cannot verify signature!\n";
  const char* badFrame = "Error: bad md5 Signature\n";
  const Signed cases[] = {
      {"verified", good, "KEY", 3, ""},
      {"wrong signature", hexString("31 03 4B4559 02 5358"), "KEY", -2,
       "Error: signature failed security verification\n"},
      {"foreign key", good, "KEX", 11, foreign},
      {"key longer than the hook's", good, "KE", 11, foreign},
      {"hook without key", hexString("31 03 4B4559 02 5358"), "", 3, ""},
      {"frame of three bytes", hexString("31 00 00"), "KEY", -3, badFrame},
      {"key runs past the frame", hexString("31 09 4B4559"), "KEY", -3, badFrame},
      {"signature runs past the frame", hexString("31 03 4B4559 05 5347"), "KEY", -3, badFrame},
  };
  for (const Signed& c : cases) {
    SCOPED_TRACE(c.name);
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
