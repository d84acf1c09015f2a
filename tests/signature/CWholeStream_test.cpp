#include "signature/CWholeStream.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tests/signature/OlderStreams.h"
#include "tests/support/ThrownText.h"

namespace {

const char kCuidBlock[] = "4D455441 0A 04 43756964 04 00000015";
// The smallest stream: "Cuid" = 21 alone, unsigned; and the same signed by ToyHook, key "key1".
const char kCuidStream[] = "4F525646 00000005 10 00 4D4554410A044375696404 00000015";
const char kSignedStream[] =
    "4F525646 00000005 1B 0B 31 04 6B657931 04 E356EE14 4D4554410A044375696404 00000015";

std::string readFailure(const std::string& bytes, CSignatureHook* hook = nullptr) {
  std::istringstream in(bytes);
  return thrownText([&] { CWholeStream stream(in, hook); });
}

std::string withVersion(std::string bytes, uint32_t version) {
  storeBigEndian32(reinterpret_cast<unsigned char*>(&bytes[4]), version);
  return bytes;
}

TEST(WholeStream, WritesGoldensAndRoundTripsByteIdentical) {
  CWholeStream stream;
  storeBigEndian32(stream.addNewFrame(4, "Cuid", 4), 21);
  EXPECT_EQ(hexText(written(stream)), hexText(hexBytes(kCuidStream)));
  // "Cuid", "VER", "TIME" and two "FeatObj", the second with a 130-byte value (two-byte sizes).
  const std::string several =
      hexString(
          "4F52564600000005813A004D45544181330443756964040000001503564552025636045449"
          "4D45040000002A07466561744F626A0361626307466561744F626A8102") +
      std::string(130, 'Z');
  for (const std::string& bytes : {hexString(kCuidStream), several}) {
    SCOPED_TRACE(bytes.size());
    std::istringstream in(bytes);
    CWholeStream read(in, nullptr);
    EXPECT_EQ(read.getStreamVersion(), 5);
    EXPECT_TRUE(read.getKey().empty());
    EXPECT_EQ(hexText(written(read)), hexText(bytes));
  }
  // 5 and 64 read alike and the word is kept; the writer always writes 5. 6 to 63 are refused;
  // other words start the older chunk form, of which these 8 bytes are no readable stream.
  for (uint32_t version : {5u, 64u}) {
    std::istringstream in(withVersion(hexString(kCuidStream), version));
    CWholeStream read(in, nullptr);
    EXPECT_EQ(read.getStreamVersion(), static_cast<int>(version));
    EXPECT_EQ(written(read), hexString(kCuidStream));
  }
  for (uint32_t version : {6u, 63u, 0u, 4u, 65u, 0x80000000u}) {
    SCOPED_TRACE(version);
    const std::string bytes = withVersion(hexString(kCuidStream), version);
    EXPECT_EQ(
        readFailure(version < 64 && version > 5 ? bytes : bytes.substr(0, 8)),
        version < 64 && version > 5 ? "incompatible file version!" : "cannot parse wholestream!");
  }
}

TEST(WholeStream, RefusesBrokenUnsignedStreams) {
  const std::string golden = hexString(kCuidStream), block = hexString(kCuidBlock);
  const std::string cases[] = {
      "ORVG" + golden.substr(4),
      hexString("4F525646 00000005 11 00") + block + "x",  // totalSize one too large
      hexString("4F525646 00000005 0F 00") + block,        // one too small
      hexString("4F525646 00000005 01 00"),                // no block
      hexString("4F525646 00000005 10 00") + "ATEM" + golden.substr(14),
      hexString("4F525646 00000005 8FFFFFFF7F 00") + block,  // 4 GB announced
  };
  testing::internal::CaptureStderr();
  for (const std::string& bytes : cases) EXPECT_EQ(readFailure(bytes), "stream mismatch!");
  for (size_t cut = 0; cut < golden.size(); ++cut) {
    EXPECT_EQ(readFailure(golden.substr(0, cut)), "stream mismatch!") << cut;
  }
  testing::internal::GetCapturedStderr();
}

TEST(WholeStream, SignsAndVerifiesThroughTheHook) {
  ToyHook hook;
  CWholeStream stream;
  storeBigEndian32(stream.addNewFrame(4, "Cuid", 4), 21);
  stream.setHook(&hook);
  const std::string bytes = written(stream);
  EXPECT_EQ(hexText(bytes), hexText(hexBytes(kSignedStream)));
  EXPECT_EQ(bytes.substr(17, 4), ToyHook::sign(hexString(kCuidBlock), "key1"));
  std::istringstream in(bytes);
  CWholeStream read(in, &hook);
  EXPECT_EQ(read.frameCount(), 1u);
  EXPECT_EQ(read.getKeyKind(), '1');
  EXPECT_EQ(std::string(read.getKey().begin(), read.getKey().end()), "key1");
  read.setHook(&hook);
  EXPECT_EQ(written(read), bytes);
  // Without a hook the header is read and nothing more: no frames, no error.
  std::istringstream unhooked(bytes);
  EXPECT_EQ(CWholeStream(unhooked, nullptr).frameCount(), 0u);
  EXPECT_EQ(unhooked.get(), 'M');

  // A hook without signing key warns and writes the stream unsigned; reading drops its key.
  hook.signingKeyLoaded = 0;
  testing::internal::CaptureStdout();
  EXPECT_EQ(written(stream), hexString(kCuidStream));
  EXPECT_EQ(
      testing::internal::GetCapturedStdout(),
      "Warning: RSA object loaded but without key for signing.Fingerprints won't be signed!\n");
  std::istringstream plain(hexString(kCuidStream));
  EXPECT_TRUE(CWholeStream(plain, &hook).getKey().empty());
}

TEST(WholeStream, VerificationAndWriterFailures) {
  const std::string golden = hexString(kSignedStream);
  std::string tampered = golden;
  tampered[35] = 0x16;
  const std::string longPayload = hexString(kCuidBlock) + "\x05";  // a byte behind the block
  struct Case {
    const char* name;
    std::string bytes, expected;
    ToyHook hook;
  } cases[] = {
      {"other key", golden, "veryfication key dosn't fit to encryption key!", {}},
      {"longer hook key", golden, "veryfication key dosn't fit to encryption key!", {}},
      // Only the hook's 3 bytes are compared; the digest then covers "key", not "key1".
      {"hook key a prefix", golden, "signature failed security verification", {}},
      {"second answer 0", golden, "", {}},
      {"verifyInit fails",
       golden,
       "cannot initialise rsa checking! Make sure you have the full lib!",
       {}},
      {"tampered payload", tampered, "signature failed security verification", {}},
      {"payload cut", golden.substr(0, golden.size() - 1), "file parsing error!", {}},
      {"payload not one block",
       hexString("4F525646 00000005 1C 0B 31 04 6B657931 04") + ToyHook::sign(longPayload, "key1") +
           longPayload,
       "file parsing error!",
       {}},
      {"header sizes disagree",
       hexString("4F525646 00000005 1B 0C") + golden.substr(10),
       "stream mismatch!",
       {}},
      {"key cut", golden.substr(0, 14), "stream mismatch!", {}},
  };
  cases[0].hook.verificationKey = "kez1";
  cases[1].hook.verificationKey = "key12";
  cases[2].hook.verificationKey = "key";
  cases[3].hook.verificationKeyAnswers = {5, 0};  // lengths differ, then the second answer is 0
  cases[4].hook.verifyInitResult = 1;
  for (Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::istringstream in(c.bytes);
    unsigned frames = 7;
    EXPECT_EQ(thrownText([&] { frames = CWholeStream(in, &c.hook).frameCount(); }), c.expected);
    if (c.expected.empty()) {
      EXPECT_EQ(frames, 0u);
    }
  }

  CWholeStream stream;
  std::ostringstream out;
  EXPECT_EQ(thrownText([&] { stream.writeStream(out); }), "no data to write!");
  storeBigEndian32(stream.addNewFrame(4, "Cuid", 4), 21);
  ToyHook hook;
  stream.setHook(&hook);
  hook.signInitResult = -1;
  EXPECT_EQ(thrownText([&] { stream.writeStream(out); }),
            "cannot initialise rsa signing! Make sure you have the full lib!");
  hook.signInitResult = 0;
  hook.signFinalResult = 1;
  EXPECT_EQ(thrownText([&] { stream.writeStream(out); }), "encryption failed!");
}

}  // namespace
