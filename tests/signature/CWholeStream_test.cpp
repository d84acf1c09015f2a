#include "signature/CWholeStream.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "signature/SignatureMessages.h"
#include "tests/ThrownText.h"
#include "tests/signature/HexBytes.h"
#include "tests/signature/ToyHook.h"

namespace {

const char kCuidBlockHex[] = "4D455441 0A 04 43756964 04 00000015";
// The smallest stream: the frame "Cuid" = 21 alone, unsigned.
const char kCuidStreamHex[] = "4F525646 00000005 10 00 4D455441 0A 04 43756964 04 00000015";
// The same frame signed by ToyHook with the key "key1".
const char kSignedStreamHex[] =
    "4F525646 00000005 1B 0B 31 04 6B657931 04 E356EE14"
    "4D455441 0A 04 43756964 04 00000015";

// "Cuid", "VER", "TIME" and two "FeatObj" frames, the second with a 130-byte value.
std::string severalFramesStream() {
  return fromHex(
             "4F525646 00000005 813A 00 4D455441 8133"
             "04 43756964 04 00000015"
             "03 564552 02 5636"
             "04 54494D45 04 0000002A"
             "07 466561744F626A 03 616263"
             "07 466561744F626A 8102") +
         std::string(130, 'Z');
}

void addCuid(CWholeStream& stream) {
  unsigned char* value = stream.addNewFrame(4, "Cuid", 4);
  storeBigEndian32(value, 21);
}

std::string written(CWholeStream& stream) {
  std::ostringstream out;
  EXPECT_EQ(stream.writeStream(out), 0);
  return out.str();
}

// The text a read of bytes throws, or "" when it succeeds.
std::string readFailure(const std::string& bytes) {
  std::istringstream in(bytes);
  return thrownText([&] { CWholeStream stream(in, nullptr); });
}

std::string withVersion(const std::string& stream, uint32_t version) {
  std::string bytes = stream;
  storeBigEndian32(reinterpret_cast<unsigned char*>(&bytes[4]), version);
  return bytes;
}

TEST(WholeStream, WritesAndReadsTheSmallestStream) {
  CWholeStream stream;
  addCuid(stream);
  const std::string bytes = written(stream);
  EXPECT_EQ(bytes.size(), 25u);
  EXPECT_EQ(toHex(bytes), toHex(fromHex(kCuidStreamHex)));

  std::istringstream in(bytes);
  CWholeStream read(in, nullptr);
  EXPECT_EQ(read.getStreamVersion(), 5);
  ASSERT_EQ(read.frameCount(), 1u);
  EXPECT_EQ(read.findFrame("Cuid", 4), 0);
  EXPECT_EQ(loadBigEndian32(read.frameAt(0).data.data()), 21u);
  EXPECT_TRUE(read.getKey().empty());
  EXPECT_EQ(read.getKeyKind(), 0);
}

TEST(WholeStream, RoundTripsByteIdentical) {
  const std::string streams[] = {fromHex(kCuidStreamHex), severalFramesStream()};
  for (const std::string& bytes : streams) {
    SCOPED_TRACE(bytes.size());
    std::istringstream in(bytes);
    CWholeStream read(in, nullptr);
    EXPECT_EQ(toHex(written(read)), toHex(bytes));
  }
  std::istringstream in(severalFramesStream());
  CWholeStream read(in, nullptr);
  ASSERT_EQ(read.frameCount(), 5u);
  EXPECT_EQ(read.frameAt(4).dataLength, 130u);
}

TEST(WholeStream, VersionWords) {
  const std::string golden = fromHex(kCuidStreamHex);
  // 5 and 64 read alike, the word kept; the writer always writes 5.
  for (uint32_t version : {5u, 64u}) {
    SCOPED_TRACE(version);
    std::istringstream in(withVersion(golden, version));
    CWholeStream read(in, nullptr);
    EXPECT_EQ(read.getStreamVersion(), static_cast<int>(version));
    EXPECT_EQ(written(read), golden);
  }
  for (uint32_t version : {6u, 7u, 63u}) {
    SCOPED_TRACE(version);
    EXPECT_EQ(readFailure(withVersion(golden, version)), "incompatible file version!");
  }
  // Below 5, above 64 and negative words belong to the older chunk form; none of these bytes is
  // a readable stream of it.
  for (uint32_t version : {0u, 4u, 65u, 0x80000000u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(version);
    EXPECT_EQ(readFailure(withVersion(golden, version).substr(0, 8)), "cannot parse wholestream!");
  }
}

TEST(WholeStream, RefusesBrokenUnsignedStreams) {
  struct Case {
    const char* name;
    std::string bytes;
  };
  const std::string golden = fromHex(kCuidStreamHex);
  const Case cases[] = {
      {"empty", ""},
      {"seven bytes", golden.substr(0, 7)},
      {"other id", "ORVG" + golden.substr(4)},
      {"totalSize one too large", fromHex("4F525646 00000005 11 00") + fromHex(kCuidBlockHex) + "x"},
      {"totalSize one too small", fromHex("4F525646 00000005 0F 00") + fromHex(kCuidBlockHex)},
      {"totalSize 1, no block", fromHex("4F525646 00000005 01 00")},
      {"totalSize 0", fromHex("4F525646 00000005 00 00") + fromHex(kCuidBlockHex)},
      {"not a meta block", fromHex("4F525646 00000005 10 00") + "ATEM" + golden.substr(14)},
      {"totalSize claims 4 GB", fromHex("4F525646 00000005 8FFFFFFF7F 00") + fromHex(kCuidBlockHex)},
  };
  testing::internal::CaptureStderr();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(readFailure(c.bytes), "stream mismatch!");
  }
  for (size_t cut = 0; cut < golden.size(); ++cut) {
    SCOPED_TRACE(cut);
    EXPECT_EQ(readFailure(golden.substr(0, cut)), "stream mismatch!");
  }
  testing::internal::GetCapturedStderr();
}

TEST(WholeStream, SignsThroughTheHook) {
  ToyHook hook;
  CWholeStream stream;
  addCuid(stream);
  stream.setHook(&hook);
  const std::string bytes = written(stream);
  EXPECT_EQ(toHex(bytes), toHex(fromHex(kSignedStreamHex)));
  EXPECT_EQ(toHex(bytes.substr(17, 4)), toHex(ToyHook::sign(fromHex(kCuidBlockHex), "key1")));

  std::istringstream in(bytes);
  CWholeStream read(in, &hook);
  EXPECT_EQ(read.frameCount(), 1u);
  EXPECT_EQ(read.getKeyKind(), '1');
  EXPECT_EQ(std::string(read.getKey().begin(), read.getKey().end()), "key1");
  EXPECT_EQ(read.getSignature().size(), 4u);
  // A signed stream read again through the same hook is written the same.
  read.setHook(&hook);
  EXPECT_EQ(written(read), bytes);
}

TEST(WholeStream, SignedStreamWithoutHookStopsAfterItsHeader) {
  std::istringstream in(fromHex(kSignedStreamHex) + "rest");
  CWholeStream read(in, nullptr);
  EXPECT_EQ(read.frameCount(), 0u);
  EXPECT_EQ(read.getKeyKind(), '1');
  EXPECT_EQ(read.getSignature().size(), 4u);
  EXPECT_EQ(in.get(), 'M');  // the meta block is left unread
}

TEST(WholeStream, VerificationFailures) {
  struct Case {
    const char* name;
    std::string bytes;
    ToyHook hook;
    std::string expected;  // "" for a read without error
    unsigned frames;
  };
  const std::string golden = fromHex(kSignedStreamHex);
  std::string tampered = golden;
  tampered[35] = 0x16;
  // Signed, but the payload is one byte longer than its meta block.
  const std::string longPayload = fromHex(kCuidBlockHex) + "\x05";
  const std::string badParse = fromHex("4F525646 00000005 1C 0B 31 04 6B657931 04") +
                               ToyHook::sign(longPayload, "key1") + longPayload;
  Case cases[] = {
      {"right key", golden, {}, "", 1},
      {"other key", golden, {}, "veryfication key dosn't fit to encryption key!", 0},
      {"longer hook key", golden, {}, "veryfication key dosn't fit to encryption key!", 0},
      {"hook key a prefix", golden, {}, "signature failed security verification", 0},
      {"second answer 0", golden, {}, "", 0},
      {"verifyInit fails", golden, {},
       "cannot initialise rsa checking! Make sure you have the full lib!", 0},
      {"tampered payload", tampered, {}, "signature failed security verification", 0},
      {"payload cut", golden.substr(0, golden.size() - 1), {}, "file parsing error!", 0},
      {"payload not one block", badParse, {}, "file parsing error!", 0},
      {"header sizes disagree", fromHex("4F525646 00000005 1B 0C") + golden.substr(10), {},
       "stream mismatch!", 0},
      {"key cut", golden.substr(0, 14), {}, "stream mismatch!", 0},
  };
  cases[1].hook.verificationKey = "kez1";
  cases[2].hook.verificationKey = "key12";
  // Lengths differ, the second answer is the same: only the hook's 3 bytes are compared, and
  // the digest then covers "key" instead of "key1".
  cases[3].hook.verificationKey = "key";
  cases[4].hook.verificationKeyAnswers = {5, 0};
  cases[5].hook.verifyInitResult = 1;
  for (Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::istringstream in(c.bytes);
    unsigned frames = 0;
    EXPECT_EQ(thrownText([&] { frames = CWholeStream(in, &c.hook).frameCount(); }), c.expected);
    EXPECT_EQ(frames, c.frames);
  }
}

TEST(WholeStream, WriterFailuresAndAHookWithoutSigningKey) {
  CWholeStream empty;
  std::ostringstream out;
  EXPECT_EQ(thrownText([&] { empty.writeStream(out); }), "no data to write!");

  struct Case {
    const char* name;
    ToyHook hook;
    std::string expected;
  };
  Case cases[] = {
      {"signInit fails", {}, "cannot initialise rsa signing! Make sure you have the full lib!"},
      {"signFinal fails", {}, "encryption failed!"},
  };
  cases[0].hook.signInitResult = -1;
  cases[1].hook.signFinalResult = 1;
  for (Case& c : cases) {
    SCOPED_TRACE(c.name);
    CWholeStream stream;
  addCuid(stream);
    stream.setHook(&c.hook);
    EXPECT_EQ(thrownText([&] { stream.writeStream(out); }), c.expected);
  }

  ToyHook noKey;
  noKey.signingKeyLoaded = 0;
  CWholeStream stream;
  addCuid(stream);
  stream.setHook(&noKey);
  testing::internal::CaptureStdout();
  const std::string bytes = written(stream);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Warning: RSA object loaded but without key for signing.Fingerprints won't be signed!\n");
  EXPECT_EQ(bytes, fromHex(kCuidStreamHex));
}

TEST(WholeStream, KeyTakenFromTheHookIsDroppedByTheReader) {
  ToyHook hook;
  std::istringstream in(fromHex(kCuidStreamHex));
  CWholeStream read(in, &hook);
  EXPECT_EQ(hook.encryptionKeyCalls, 1);
  EXPECT_TRUE(read.getKey().empty());
  EXPECT_EQ(read.frameCount(), 1u);
}

}  // namespace
