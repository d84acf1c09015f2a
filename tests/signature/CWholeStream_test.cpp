#include "signature/CWholeStream.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tests/support/ThrownText.h"
#include "tests/support/HexBytes.h"
#include "tests/signature/ToyHook.h"

namespace {

const char kCuidBlockHex[] = "4D455441 0A 04 43756964 04 00000015";
// The smallest stream: the frame "Cuid" = 21 alone, unsigned.
const char kCuidStreamHex[] = "4F525646 00000005 10 00 4D455441 0A 04 43756964 04 00000015";
// The same frame signed by ToyHook with the key "key1".
const char kSignedStreamHex[] =
    "4F525646 00000005 1B 0B 31 04 6B657931 04 E356EE14 4D455441 0A 04 43756964 04 00000015";

// "Cuid", "VER", "TIME" and two "FeatObj" frames, the second with a 130-byte value.
std::string severalFramesStream() {
  return hexString(
             "4F525646 00000005 813A 00 4D455441 8133 04 43756964 04 00000015 03 564552 02 5636"
             "04 54494D45 04 0000002A 07 466561744F626A 03 616263 07 466561744F626A 8102") +
         std::string(130, 'Z');
}

void addCuid(CWholeStream& stream) { storeBigEndian32(stream.addNewFrame(4, "Cuid", 4), 21); }

std::string written(CWholeStream& stream) {
  std::ostringstream out;
  EXPECT_EQ(stream.writeStream(out), 0);
  return out.str();
}

std::string readFailure(const std::string& bytes, CSignatureHook* hook = nullptr) {
  std::istringstream in(bytes);
  return thrownText([&] { CWholeStream stream(in, hook); });
}

std::string withVersion(std::string bytes, uint32_t version) {
  storeBigEndian32(reinterpret_cast<unsigned char*>(&bytes[4]), version);
  return bytes;
}

TEST(WholeStream, WritesTheSmallestStreamAndRoundTripsByteIdentical) {
  CWholeStream stream;
  addCuid(stream);
  EXPECT_EQ(hexText(written(stream)), hexText(hexString(kCuidStreamHex)));
  for (const std::string& bytes : {hexString(kCuidStreamHex), severalFramesStream()}) {
    SCOPED_TRACE(bytes.size());
    std::istringstream in(bytes);
    CWholeStream read(in, nullptr);
    EXPECT_EQ(read.getStreamVersion(), 5);
    EXPECT_TRUE(read.getKey().empty());
    EXPECT_EQ(hexText(written(read)), hexText(bytes));
  }
}

TEST(WholeStream, VersionWords) {
  const std::string golden = hexString(kCuidStreamHex);
  // 5 and 64 read alike and the word is kept; the writer always writes 5.
  for (uint32_t version : {5u, 64u}) {
    std::istringstream in(withVersion(golden, version));
    CWholeStream read(in, nullptr);
    EXPECT_EQ(read.getStreamVersion(), static_cast<int>(version));
    EXPECT_EQ(written(read), golden);
  }
  for (uint32_t version : {6u, 63u}) {
    EXPECT_EQ(readFailure(withVersion(golden, version)), "incompatible file version!");
  }
  // Below 5, above 64 and negative words start the older chunk form; none of these is a readable
  // stream of it.
  for (uint32_t version : {0u, 4u, 65u, 0x80000000u}) {
    SCOPED_TRACE(version);
    EXPECT_EQ(readFailure(withVersion(golden, version).substr(0, 8)), "cannot parse wholestream!");
  }
}

TEST(WholeStream, RefusesBrokenUnsignedStreams) {
  const std::string golden = hexString(kCuidStreamHex);
  const std::string block = hexString(kCuidBlockHex);
  const std::string cases[] = {
      "ORVG" + golden.substr(4),
      hexString("4F525646 00000005 11 00") + block + "x",  // totalSize one too large
      hexString("4F525646 00000005 0F 00") + block,        // one too small
      hexString("4F525646 00000005 01 00"),                // no block at all
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
  addCuid(stream);
  stream.setHook(&hook);
  const std::string bytes = written(stream);
  EXPECT_EQ(hexText(bytes), hexText(hexString(kSignedStreamHex)));
  EXPECT_EQ(bytes.substr(17, 4), ToyHook::sign(hexString(kCuidBlockHex), "key1"));

  std::istringstream in(bytes);
  CWholeStream read(in, &hook);
  EXPECT_EQ(read.frameCount(), 1u);
  EXPECT_EQ(read.getKeyKind(), '1');
  EXPECT_EQ(std::string(read.getKey().begin(), read.getKey().end()), "key1");
  read.setHook(&hook);
  EXPECT_EQ(written(read), bytes);

  // Without a hook the header is read and nothing more: no frames, no error.
  std::istringstream unhooked(bytes);
  CWholeStream header(unhooked, nullptr);
  EXPECT_EQ(header.frameCount(), 0u);
  EXPECT_EQ(header.getSignature().size(), 4u);
  EXPECT_EQ(unhooked.get(), 'M');
}

TEST(WholeStream, VerificationFailures) {
  struct Case {
    const char* name;
    std::string bytes;
    ToyHook hook;
    std::string expected;
  };
  const std::string golden = hexString(kSignedStreamHex);
  std::string tampered = golden;
  tampered[35] = 0x16;
  const std::string longPayload = hexString(kCuidBlockHex) + "\x05";  // one byte behind the block
  Case cases[] = {
      {"other key", golden, {}, "veryfication key dosn't fit to encryption key!"},
      {"longer hook key", golden, {}, "veryfication key dosn't fit to encryption key!"},
      // Only the hook's 3 bytes are compared; the digest then covers "key", not "key1".
      {"hook key a prefix", golden, {}, "signature failed security verification"},
      {"second answer 0", golden, {}, ""},
      {"verifyInit fails", golden, {},
       "cannot initialise rsa checking! Make sure you have the full lib!"},
      {"tampered payload", tampered, {}, "signature failed security verification"},
      {"payload cut", golden.substr(0, golden.size() - 1), {}, "file parsing error!"},
      {"payload not one block",
       hexString("4F525646 00000005 1C 0B 31 04 6B657931 04") + ToyHook::sign(longPayload, "key1") +
           longPayload,
       {}, "file parsing error!"},
      {"header sizes disagree", hexString("4F525646 00000005 1B 0C") + golden.substr(10), {},
       "stream mismatch!"},
      {"key cut", golden.substr(0, 14), {}, "stream mismatch!"},
  };
  cases[0].hook.verificationKey = "kez1";
  cases[1].hook.verificationKey = "key12";
  cases[2].hook.verificationKey = "key";
  cases[3].hook.verificationKeyAnswers = {5, 0};  // lengths differ, and the second answer is 0
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
}

TEST(WholeStream, WriterFailuresAndAHookWithoutSigningKey) {
  CWholeStream stream;
  std::ostringstream out;
  EXPECT_EQ(thrownText([&] { stream.writeStream(out); }), "no data to write!");
  addCuid(stream);

  ToyHook hook;
  stream.setHook(&hook);
  hook.signInitResult = -1;
  EXPECT_EQ(thrownText([&] { stream.writeStream(out); }),
            "cannot initialise rsa signing! Make sure you have the full lib!");
  hook.signInitResult = 0;
  hook.signFinalResult = 1;
  EXPECT_EQ(thrownText([&] { stream.writeStream(out); }), "encryption failed!");

  hook.signingKeyLoaded = 0;
  testing::internal::CaptureStdout();
  const std::string bytes = written(stream);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Warning: RSA object loaded but without key for signing.Fingerprints won't be signed!\n");
  EXPECT_EQ(bytes, hexString(kCuidStreamHex));

  // The key a reading object takes from its hook is dropped by the reader.
  std::istringstream in(bytes);
  CWholeStream read(in, &hook);
  EXPECT_TRUE(read.getKey().empty());
}

}  // namespace
