#include "signature/CChunkContainer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>

#include "tests/signature/HexBytes.h"
#include "tests/signature/ToyHook.h"
#include "vexl/heap_matrix.h"

namespace {

// A matrix stream of one row of two floats, 1.0 and 0.5.
const char kMat[] =
    "4D41540A 666C7400 62696E0A 00000001 00000002 3F800000 3F000000";

// Outer bodies holding "F1C21", "VAD", a tuid, band edges 1000/4000 Hz with sr 3 and one
// "FEAT" chunk with the matrix above: in the varint form (83 bytes) ...
const std::string kBodyVarint = std::string(
    "56455253 05 4631433231"
    "494E464F 03 564144"
    "54554944 0000000000000007"
    "46504152 447A0000 457A0000 00000003"
    "46454154 20 44415441") + kMat;
// ... and in the u32 form with pad bytes (90 bytes), its tuid FFFFFFFE sign-extended.
const std::string kBodyWords = std::string(
    "56455253 00000005 4631433231 00"
    "494E464F 00000003 564144 00"
    "54554944 FFFFFFFE"
    "46504152 447A0000 457A0000 00000003"
    "46454154 00000020 44415441") + kMat;

// Top-level chunks behind the outer one: a "META" chunk with the frame "TIT2" = "abc", an ID3
// tag whose size bytes 7F 7F 00 00 count as 0, ten tag bytes, then a second stream.
const char kTail[] =
    "4D455441 09 04 54495432 03 616263"
    "494433 03 00 00 7F7F0000 00010203040506070809"
    "4F525646 00000005";

std::string stream(const std::string& hex) { return fromHex(hex); }

struct OlderStream {
  const char* name;
  std::string hex;
  int bits;
  int version;
  uint64_t tuid;
  unsigned frames;
  std::string left;  // hex of what stays in the stream
};

TEST(CChunkContainerTest, ReadsEveryVersionOfTheOlderForm) {
  const OlderStream cases[] = {
      {"version 3", "4F525646 00000003 53" + kBodyVarint + kTail, 7, 3, 7, 1, "4F52564600000005"},
      {"version 2", "4F525646 00000002 5A" + kBodyWords + kTail, 7, 2, 0xFFFFFFFFFFFFFFFEull, 1,
       "4F52564600000005"},
      {"no version word", "4F525646 0000005A" + kBodyWords + kTail, 7, 2, 0xFFFFFFFFFFFFFFFEull,
       1, "4F52564600000005"},
      // At version 4 reading ends where the declared body ends: "META" is not read.
      {"version 4", "4F525646 00000004 53" + kBodyVarint + kTail, 1, 4, 7, 0,
       toHex(fromHex(kTail))},
  };
  for (const OlderStream& c : cases) {
    SCOPED_TRACE(c.name);
    std::istringstream in(stream(c.hex));
    CChunkContainer chunks(1, nullptr, nullptr);
    EXPECT_EQ(chunks.parseStream(in), c.bits);
    EXPECT_EQ(chunks.getStreamVersion(), c.version);
    EXPECT_EQ(chunks.getTuid(), c.tuid);
    EXPECT_STREQ(chunks.getVersionText(), "F1C21");
    EXPECT_EQ(chunks.featureId(), 1.0);
    EXPECT_EQ(chunks.contentId(), 21.0);
    EXPECT_STREQ(chunks.getInfoText(), "VAD");
    ASSERT_NE(chunks.getFeaturePara(), nullptr);
    EXPECT_EQ(chunks.getFeaturePara()->lf, 1000.0f);
    EXPECT_EQ(chunks.getFeaturePara()->uf, 4000.0f);
    EXPECT_EQ(chunks.getFeaturePara()->sr, 3);
    ASSERT_EQ(chunks.subChunkCount(), 1);
    EXPECT_EQ(chunks.subChunkIndex(0), 1);
    ASSERT_EQ(chunks.subChunkLength(0), 28);
    EXPECT_EQ(std::memcmp(chunks.subChunkData(0), fromHex(kMat).data(), 28), 0);
    EXPECT_EQ(chunks.bodySize(), 83u);
    ASSERT_EQ(chunks.frameCount(), c.frames);
    if (c.frames == 1) {
      EXPECT_EQ(chunks.findFrame("TIT2", 4), 0);
      // The header and the ten bytes behind it.
      EXPECT_EQ(chunks.getId3TagSize(), 10u);
      EXPECT_EQ(chunks.getId3Tag().size(), 20u);
    }
    std::string rest((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(toHex(rest), c.left);
  }
}

struct BadStream {
  const char* name;
  std::string hex;
  const char* versionText;
  int result;
  const char* message;
};

TEST(CChunkContainerTest, RefusesBadStreams) {
  const BadStream cases[] = {
      {"version 5", "4F525646 00000005 00", nullptr, 0, "ERROR stream version not compatible\n"},
      {"version 63", "4F525646 0000003F 00", nullptr, 0,
       "ERROR stream version not compatible\n"},
      {"unknown sub chunk", "4F525646 00000003 05 58585858 00", nullptr, -1,
       "ERROR no sub chunk found!\nERROR bad stream or sub chunk format)\n"},
      {"body cut short", "4F525646 00000003 10 56455253 7F 4631", nullptr, -1,
       "ERROR bad stream or sub chunk format)\n"},
      {"version word cut short", "4F525646 0000", nullptr, -1,
       "ERROR bad stream or sub chunk format)\n"},
      {"feature length below its id", "4F525646 00000003 09 46454154 03 444154", nullptr, -1,
       "ERROR bad stream or sub chunk format)\n"},
      {"two tuids", "4F525646 00000003 18 54554944 0000000000000001 54554944 0000000000000002",
       nullptr, -1, "Error: tuid mismatch\nERROR bad stream or sub chunk format)\n"},
      {"foreign version text", "4F525646 00000003 0A 56455253 05 4632433231", "F1C21", -1,
       "Error: stream version mismatch\nERROR bad stream or sub chunk format)\n"},
  };
  for (const BadStream& c : cases) {
    SCOPED_TRACE(c.name);
    std::istringstream in(stream(c.hex));
    CChunkContainer chunks(1, c.versionText, nullptr);
    testing::internal::CaptureStderr();
    const int result = chunks.parseStream(in);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.message);
    EXPECT_EQ(result, c.result);
  }
}

TEST(CChunkContainerTest, AcceptsRepeatedEqualTuidAndMatchingVersionText) {
  std::istringstream in(stream(
      "4F525646 00000003 22 56455253 05 4631433231"
      "54554944 0000000000000009 54554944 0000000000000009"));
  CChunkContainer chunks(1, "F1C21", nullptr);
  EXPECT_EQ(chunks.parseStream(in), 1);
  EXPECT_EQ(chunks.getTuid(), 9u);
}

TEST(CChunkContainerTest, ZeroTuidIsRefusedAndParsingGoesOn) {
  std::istringstream in(stream("4F525646 00000003 0C 54554944 0000000000000000"));
  CChunkContainer chunks(1, nullptr, nullptr);
  testing::internal::CaptureStderr();
  EXPECT_EQ(chunks.parseStream(in), 1);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR invalid TUID: use values > 0\n");
  EXPECT_EQ(chunks.getTuid(), 0u);
  EXPECT_EQ(chunks.setTuid(5), 1);
  testing::internal::CaptureStderr();
  EXPECT_EQ(chunks.setTuid(0), -1);
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(chunks.getTuid(), 5u);
}

TEST(CChunkContainerTest, SecondFeatParaThrowsMinusOne) {
  std::istringstream in(stream(
      "4F525646 00000003 20 46504152 447A0000 457A0000 00000003"
      "46504152 447A0000 457A0000 00000003"));
  CChunkContainer chunks(1, nullptr, nullptr);
  testing::internal::CaptureStderr();
  try {
    chunks.parseStream(in);
    ADD_FAILURE() << "no exception";
  } catch (int code) {
    EXPECT_EQ(code, -1);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "FeatPara member already instantiated\n");
}

TEST(CChunkContainerTest, SuppliesDefaultsForAMinimalStream) {
  // Only a one-byte "FEAT" chunk: no "VERS", "INFO", "TUID" or "FPAR".
  std::istringstream in(stream("4F525646 00000003 0A 46454154 05 44415441 AB"));
  CChunkContainer chunks(1, nullptr, nullptr);
  EXPECT_EQ(chunks.parseStream(in), 1);
  ASSERT_NE(chunks.getFeaturePara(), nullptr);
  EXPECT_EQ(chunks.getFeaturePara()->lf, 250.0f);
  EXPECT_EQ(chunks.getFeaturePara()->uf, 4000.0f);
  EXPECT_EQ(chunks.getFeaturePara()->sr, 32);
  EXPECT_STREQ(chunks.getInfoText(), "NO_INFO");
  EXPECT_STREQ(chunks.getVersionText(), "");
  EXPECT_EQ(chunks.featureId(), 0.0);
  EXPECT_EQ(chunks.contentId(), 0.0);
  EXPECT_EQ(chunks.getTuid(), 0u);
  // "VERS" 4 + 1, "FPAR" 16, the chunk 8 + 1 + 1.
  EXPECT_EQ(chunks.bodySize(), 31u);
}

TEST(CChunkContainerTest, OddBodiesArePaddedOnlyBelowVersionThree) {
  // "F1C2" and "F1C21": the odd one needs its pad byte in the u32 form.
  const struct {
    const char* hex;
    const char* text;
  } cases[] = {
      {"4F525646 00000002 1C 56455253 00000005 4631433231 00 46454154 00000005 44415441 AB 00",
       "F1C21"},
      {"4F525646 00000003 14 56455253 05 4631433231 46454154 05 44415441 AB", "F1C21"},
      {"4F525646 00000002 1A 56455253 00000004 46314332 46454154 00000005 44415441 AB 00",
       "F1C2"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.hex);
    std::istringstream in(stream(c.hex));
    CChunkContainer chunks(1, nullptr, nullptr);
    EXPECT_EQ(chunks.parseStream(in), 1);
    EXPECT_STREQ(chunks.getVersionText(), c.text);
    ASSERT_EQ(chunks.subChunkCount(), 1);
    EXPECT_EQ(chunks.subChunkData(0)[0], 0xAB);
    EXPECT_EQ(in.peek(), std::char_traits<char>::eof());
  }
}

TEST(CChunkContainerTest, ReadsWholeBodyWhenAskedForAll) {
  // A chunk, a "META" of three bytes and an ID3 of syncsafe size 1 are all skipped over.
  const std::string body = fromHex(
      "46454154 05 44415441 AB"
      "4D455441 03 010203"
      "49443303 0000 00000001 FF");
  std::istringstream in(body + "rest");
  CChunkContainer chunks(1, nullptr, nullptr);
  EXPECT_EQ(chunks.parseSubChunks(in, static_cast<int>(body.size()), 1), 1);
  EXPECT_EQ(chunks.subChunkCount(), 1);
  std::string rest;
  in >> rest;
  EXPECT_EQ(rest, "rest");
}

TEST(CChunkContainerTest, SubscriptsOutOfRangeAnswerMinusOne) {
  CChunkContainer chunks(1, nullptr, nullptr);
  std::istringstream in("abc");
  EXPECT_EQ(chunks.addSubChunk(3, &in, 4, 0), 1);
  EXPECT_EQ(chunks.addSubChunk(0, &in, 5, 0), 1);
  EXPECT_EQ(chunks.addSubChunk(3, nullptr, 5, 0), 1);
  ASSERT_EQ(chunks.subChunkCount(), 1);
  EXPECT_EQ(chunks.subChunkIndex(0), 4);
  for (int i : {-1, 1}) {
    SCOPED_TRACE(i);
    testing::internal::CaptureStderr();
    EXPECT_EQ(chunks.subChunkIndex(i), -1);
    EXPECT_EQ(chunks.subChunkLength(i), -1);
    EXPECT_EQ(chunks.subChunkData(i), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ERROR container subscript out of range (size=1)\n"
              "ERROR container subscript out of range (size=1)\n"
              "ERROR container subscript out of range (size=1)\n");
  }
  // A stream that ends early adds nothing; clearFirst drops what was there.
  std::istringstream shortIn("ab");
  EXPECT_EQ(chunks.addSubChunk(3, &shortIn, 5, 1), 0);
  EXPECT_EQ(chunks.subChunkCount(), 0);
}

TEST(CChunkContainerTest, MatrixFromChunksWarnsAboutAGapAndKeepsAllRows) {
  CChunkContainer chunks(1, nullptr, nullptr);
  std::istringstream in(fromHex(std::string(kMat) +
                                "4D41540A 666C7400 62696E0A 00000001 00000002 40000000 40400000"));
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

  // Numbers in sequence: no warning; byte elements.
  CChunkContainer bytes(1, nullptr, nullptr);
  std::istringstream byteIn(fromHex("4D41540A 75636872 62696E0A 00000001 00000001 07"
                                    "4D41540A 75636872 62696E0A 00000001 00000001 09"));
  ASSERT_EQ(bytes.addSubChunk(21, &byteIn, 1, 0), 1);
  ASSERT_EQ(bytes.addSubChunk(21, &byteIn, 2, 0), 1);
  HeapMatrix<unsigned char> byteMatrix;
  testing::internal::CaptureStderr();
  byteMatrix.ReadFromChunks(bytes);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  ASSERT_EQ(byteMatrix.m_rows, 2u);
  EXPECT_EQ(byteMatrix.m_data[0], 7);
  EXPECT_EQ(byteMatrix.m_data[1], 9);
}

TEST(CChunkContainerTest, Syncsafe21PacksThreeGroupsAndIgnoresTheTopByte) {
  const uint32_t cases[][2] = {
      {0x00000000, 0},     {0x0000007F, 0x7F},     {0x00000080, 0},
      {0x00000100, 0x80},  {0x00010000, 0x4000},   {0x007F7F7F, 0x1FFFFF},
      {0xFF000000, 0},     {0xFFFFFFFF, 0x1FFFFF},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c[0]);
    EXPECT_EQ(syncsafe21(c[0]), c[1]);
  }
}

struct SignedStream {
  const char* name;
  std::string body;  // hex of the outer chunk's body, version 3
  std::string dsig;  // the "dsig" frame's value
  std::string key;   // the hook's key; empty: the hook has none
  int result;
  const char* message;
};

TEST(CChunkContainerTest, VerifiesTheSignatureFrameThroughTheHook) {
  // What the check hashes, in order: tuid, info, version text, band edges and sr, the key,
  // the first chunk's data.
  const std::string hashed = fromHex("0000000000000007") + "VAD" + "F1C21" +
                             fromHex("447A0000 457A0000 00000003") + "KEY" + fromHex(kMat);
  const std::string good = fromHex("31 03 4B4559 04") + ToyHook::sign(hashed, "");
  const char* foreign =
      "Error: wrong public key - it's not the correspondent of\n"
      "the used encryption key. Cannot verify signature!\n";
  const SignedStream cases[] = {
      {"verified", kBodyVarint, good, "KEY", 3, ""},
      {"wrong signature", kBodyVarint, fromHex("31 03 4B4559 02 5358"), "KEY", -2,
       "Error: signature failed security verification\n"},
      {"foreign key", kBodyVarint, good, "KEX", 11, foreign},
      {"key longer than the hook's", kBodyVarint, good, "KE", 11, foreign},
      {"hook without key", kBodyVarint, fromHex("31 03 4B4559 02 5358"), "", 3, ""},
      {"frame of three bytes", kBodyVarint, fromHex("31 00 00"), "KEY", -3,
       "Error: bad md5 Signature\n"},
      {"key runs past the frame", kBodyVarint, fromHex("31 09 4B4559"), "KEY", -3,
       "Error: bad md5 Signature\n"},
      {"signature runs past the frame", kBodyVarint, fromHex("31 03 4B4559 05 5347"), "KEY", -3,
       "Error: bad md5 Signature\n"},
      {"nothing to hash", "", good, "KEY", -1, ""},
  };
  for (const SignedStream& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string body = fromHex(c.body);
    std::string bytes = fromHex("4F525646 00000003");
    bytes += static_cast<char>(body.size());
    bytes += body + "META";
    bytes += static_cast<char>(6 + c.dsig.size());
    bytes += fromHex("04 64736967") + static_cast<char>(c.dsig.size()) + c.dsig;
    std::istringstream in(bytes);
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
