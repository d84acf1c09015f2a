#include "signature/CWholeStream.h"

#include <tuple>
#include <vector>

#include "tests/signature/SignatureStreams.h"
#include "tests/support/ThrownText.h"

namespace {

const char kCuidBlock[] = "4D455441 0A 04 43756964 04 00000015";
// The smallest stream: "Cuid" = 21 alone, unsigned; and the same signed by ToyHook, key "key1".
const char kCuidStream[] = "4F525646 00000005 10 00 4D4554410A044375696404 00000015";
const char kSignedStream[] =
    "4F525646 00000005 1B 0B 31 04 6B657931 04 E356EE14 4D4554410A044375696404 00000015";

// What reading the bytes throws; the chunk reader's messages are not looked at here.
std::string readFailure(const std::string& bytes, CSignatureHook* hook = nullptr) {
  std::istringstream in(bytes);
  testing::internal::CaptureStderr();
  const std::string failure = thrownText([&] { CWholeStream stream(in, hook); });
  testing::internal::GetCapturedStderr();
  return failure;
}

TEST(WholeStream, WritesTheGoldenAndReadsTheVersionsItKnows) {
  CWholeStream stream;
  storeBigEndian32(stream.addNewFrame(4, "Cuid", 4), 21);
  EXPECT_EQ(hexText(written(stream)), hexText(hexBytes(kCuidStream)));
  // 5 and 64 read alike and the word is kept; the writer always writes 5. 6 to 63 are refused;
  // other words start the older chunk form, of which these 8 bytes are no readable stream.
  std::string bytes = hexString(kCuidStream);
  for (uint32_t version : {5u, 64u, 6u, 63u, 0u, 4u, 65u, 0x80000000u}) {
    storeBigEndian32(reinterpret_cast<unsigned char*>(&bytes[4]), version);
    const bool refused = version > 5 && version < 64;
    if (version == 5 || version == 64) {
      std::istringstream in(bytes);
      CWholeStream read(in, nullptr);
      EXPECT_EQ(read.getStreamVersion(), static_cast<int>(version));
      EXPECT_EQ(written(read), hexString(kCuidStream));
    } else {
      EXPECT_EQ(readFailure(refused ? bytes : bytes.substr(0, 8)),
                refused ? "incompatible file version!" : "cannot parse wholestream!")
          << version;
    }
  }
}

TEST(WholeStream, RefusesBrokenStreams) {
  const std::string golden = hexString(kCuidStream), block = hexString(kCuidBlock);
  const std::string signedGolden = hexString(kSignedStream);
  // The hook's verification key, then the streams that fail with the text.
  const std::tuple<const char*, const char*, std::vector<std::string>> cases[] = {
      {"stream mismatch!", "key1",
       {"ORVG" + golden.substr(4),
        hexString("4F525646 00000005 11 00") + block + "x",  // totalSize one too large
        hexString("4F525646 00000005 0F 00") + block,        // one too small
        hexString("4F525646 00000005 01 00"),                // no block
        hexString("4F525646 00000005 10 00") + "ATEM" + golden.substr(14),
        hexString("4F525646 00000005 8FFFFFFF7F 00") + block,  // 4 GB announced
        hexString("4F525646 00000005 1B 0C") + signedGolden.substr(10),
        signedGolden.substr(0, 14)}},
      {"veryfication key dosn't fit to encryption key!", "key12", {signedGolden}},
      // Only the hook's 3 bytes are compared; the digest then covers "key", not "key1".
      {"signature failed security verification", "key", {signedGolden}},
      {"file parsing error!", "key1", {signedGolden.substr(0, signedGolden.size() - 1)}},
  };
  for (const auto& [expected, key, streams] : cases) {
    for (const std::string& bytes : streams) {
      ToyHook hook;
      hook.verificationKey = key;
      EXPECT_EQ(readFailure(bytes, &hook), expected) << hexText(bytes) << " / " << key;
    }
  }
  for (size_t cut = 0; cut < golden.size(); ++cut) {
    EXPECT_EQ(readFailure(golden.substr(0, cut)), "stream mismatch!") << cut;
  }
}

TEST(WholeStream, SignsAndVerifiesThroughTheHook) {
  ToyHook hook;
  CWholeStream stream;
  storeBigEndian32(stream.addNewFrame(4, "Cuid", 4), 21);
  stream.setHook(&hook);
  const std::string bytes = written(stream);
  EXPECT_EQ(hexText(bytes), hexText(hexBytes(kSignedStream)));
  // Without a hook the header is read and nothing more: no frames, no error.
  std::istringstream unhooked(bytes);
  EXPECT_EQ(CWholeStream(unhooked, nullptr).frameCount(), 0u);
  EXPECT_EQ(unhooked.get(), 'M');
  // A hook without signing key warns and writes the stream unsigned.
  hook.signingKeyLoaded = 0;
  testing::internal::CaptureStdout();
  EXPECT_EQ(written(stream), hexString(kCuidStream));
  EXPECT_EQ(
      testing::internal::GetCapturedStdout(),
      "Warning: RSA object loaded but without key for signing.Fingerprints won't be signed!\n");
}

// Streams of the older chunk form are read and written back in the current form.

// The "FeatObj" frame the float chunk becomes: feature stream version 2, id 1, "SFM", "flt",
// the map lf 1000, sr 3, uf 4000, vad 1, then the matrix.
const std::string kFeatObj =
    "07466561744F626A56000200010353464D03666C7405506172616D0103696E7404026C6604000003E8"
    "0273720400000003027566 0400000FA0037661640400000001 03" +
    kOlderMat;

TEST(WholeStreamOlderForm, ReadsEveryVersionAndWritesTheCurrentForm) {
  // With "META" read: "TIT2" = "abc" first.
  const std::string withMeta =
      "4F52564600000005 8107 00 4D455441 8100 0454495432 03616263" + kFeatObj;
  const std::string tuid7 = "0454756964 08 0000000000000007 04 43756964 04 00000015";
  const std::string tuidFE = "0454756964 08 FFFFFFFFFFFFFFFE 04 43756964 04 00000015";
  const std::tuple<std::string, int, std::string> cases[] = {
      {"4F52564600000003 53" + kOlderBodyVarint + kOlderTail, 3, withMeta + tuid7},
      {"4F52564600000002 5A" + kOlderBodyWords + kOlderTail, 2, withMeta + tuidFE},
      {"4F5256460000005A" + kOlderBodyWords + kOlderTail, 2, withMeta + tuidFE},  // no version
      // Version 4 ends with the declared body: its "META" chunk is not read.
      {"4F52564600000004 53" + kOlderBodyVarint + kOlderTail, 4,
       "4F52564600000005 7D 00 4D455441 77" + kFeatObj + tuid7},
      // "F3C77", no "INFO", "TUID" or "FPAR"; a byte matrix gets the default settings.
      {"4F52564600000003 2A 5645525305463343373746454154 1B 44415441"
       "4D41540A7563687262696E0A0000000100000003010203",
       3,
       "4F52564600000005 70 00 4D455441 6A 07466561744F626A49 0002000303 53464D0475636872"
       "05506172616D0103696E7403026C6604000000FA0273720400000020027566 0400000FA0"
       "034D41540A7563687262696E0A0000000100000003010203"
       "0454756964080000000000000000 04437569640400 00004D"},
      // Other element types give no "FeatObj" frame.
      {"4F52564600000003 21 46454154 1C 44415441 4D41540A75696E7462696E0A000000010000000100000009",
       3,
       "4F52564600000005 1E 00 4D455441 18 0454756964 08 0000000000000000 0443756964 04 00000000"},
  };
  for (const auto& [older, version, current] : cases) {
    std::istringstream in(hexString(older));
    CWholeStream stream(in, nullptr);
    EXPECT_EQ(stream.getStreamVersion(), version) << older;
    EXPECT_EQ(hexText(written(stream)), hexText(hexBytes(current))) << older;
  }
}

// The chunk reader checks a "dsig" frame through the hook; a foreign key is no failure.
TEST(WholeStreamOlderForm, SignatureFrameIsCheckedAndDroppedAndBadStreamsFailWithOneText) {
  const std::string good = olderSignedStream(olderGoodSignature());
  const std::string wrong = olderSignedStream(hexString("31 03 4B4559 02 5358"));
  const char* failed = "cannot parse wholestream!";
  // The hook's key; null: it holds "KEY" but reports no key.
  const std::tuple<std::string, const char*, const char*> cases[] = {
      {good, "KEY", ""},
      {wrong, "KEY", failed},
      {good, "KEX", ""},
      {good, "KE", ""},  // the frame's key is longer than the hook's
      {wrong, nullptr, ""},
      {olderSignedStream(hexString("31 00 00")), "KEY", failed},
      {olderSignedStream(hexString("31 09 4B4559")), "KEY", failed},  // key runs past the frame
      {olderSignedStream(hexString("31 03 4B4559 05 5347")), "KEY", failed},  // signature too
      {hexString("4F52564600000003 00"), "KEY", failed},
      {hexString("4F52564600000003 09 46454154 04 44415441"), "KEY", failed},
      {hexString("4F52564600000003 00 4D455441 0C 04 64736967 06 31 03 4B4559 00"), "KEY", failed},
  };
  ToyHook hook;
  for (const auto& [bytes, key, expected] : cases) {
    hook.verificationKey = key ? key : "KEY";
    hook.verificationKeyLoaded = key != nullptr;
    EXPECT_EQ(readFailure(bytes, &hook), expected) << hexText(bytes) << hook.verificationKey;
  }
  std::istringstream in(good);
  EXPECT_EQ(frameIds(CWholeStream(in, nullptr)),
            (std::vector<std::string>{"FeatObj", "Tuid", "Cuid"}));
}

}  // namespace
