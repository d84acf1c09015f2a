#include "signature/CAudioSignMulti.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tests/ThrownText.h"
#include "tests/signature/HexBytes.h"
#include "tests/signature/PhotoSignatureGolden.h"
#include "tests/signature/ToyHook.h"

namespace {

std::string written(const CAudioSignMulti& sign) {
  std::ostringstream out;
  EXPECT_EQ(sign.write(out), 0);
  return out.str();
}

CAudioSignMulti readFrom(const std::string& bytes) {
  CAudioSignMulti sign;
  std::istringstream in(bytes);
  sign.read(in, nullptr);
  return sign;
}

TEST(AudioSignMulti, WritesTheGoldenStreamsAndRoundTrips) {
  CAudioSignMulti built;
  built.adopt(builtSignature());
  EXPECT_EQ(toHex(written(built)), toHex(builtStream()));

  // Reading fills in 30 ms per row, which the writer states from then on.
  const CAudioSignMulti once = readFrom(builtStream());
  EXPECT_EQ(toHex(written(once)), toHex(rewrittenStream()));
  const CAudioSignMulti twice = readFrom(rewrittenStream());
  EXPECT_EQ(toHex(written(twice)), toHex(rewrittenStream()));

  ASSERT_NE(twice.getData()->getFeature("EDG"), nullptr);
  EXPECT_EQ(twice.getData()->getFeature("HUE")->GetMsPerRow(), 30.0f);
}

TEST(AudioSignMulti, CopiesAreDeepAndAdoptOwns) {
  CAudioSignMulti original;
  EXPECT_FALSE(original.hasData());
  CAudioSignMulti emptyCopy(original);
  EXPECT_FALSE(emptyCopy.hasData());
  std::ostringstream nothing;
  EXPECT_EQ(original.write(nothing), -1);
  EXPECT_EQ(nothing.str(), "");

  CSignDataMulti* data = builtSignature();
  original.adopt(data);
  original.adopt(data);  // the present pointer: nothing happens
  EXPECT_EQ(original.getData(), data);

  CAudioSignMulti copy(original);
  CAudioSignMulti assigned;
  assigned = original;
  const CAudioSignMulti& same = assigned;
  assigned = same;
  ASSERT_TRUE(copy.hasData());
  EXPECT_NE(copy.getData(), data);
  EXPECT_NE(copy.getData()->getFeature("EDG"), data->getFeature("EDG"));
  data->setCuid(7);
  EXPECT_EQ(written(copy), builtStream());
  EXPECT_EQ(written(assigned), builtStream());

  copy.clearData();
  EXPECT_FALSE(copy.hasData());
  copy.clearData();
}

TEST(AudioSignMulti, ReadChecksTheStreamFirst) {
  CAudioSignMulti sign;
  sign.adopt(builtSignature());
  std::istringstream atEnd("");
  atEnd.get();
  EXPECT_EQ(thrownText([&] { sign.read(atEnd, nullptr); }),
            "no audio signature found in istream (EOF)");
  std::istringstream failed(builtStream());
  failed.setstate(std::ios::failbit);
  EXPECT_EQ(thrownText([&] { sign.read(failed, nullptr); }),
            "could not open audio signature istream");
  // Nothing was read: the old data stays.
  EXPECT_TRUE(sign.hasData());
}

TEST(AudioSignMulti, ReadFailuresLeaveNoData) {
  struct Case {
    const char* name;
    std::string bytes;
    std::string expected;
  };
  const std::string signedCuid = fromHex(
      "4F525646 00000005 1B 0B 31 04 6B657931 04 E356EE14 4D455441 0A 04 43756964 04 00000015");
  const Case cases[] = {
      {"no feature", fromHex("4F525646 00000005 10 00 4D455441 0A 04 43756964 04 00000015"),
       "CFeatureObject: feature map is empty"},
      // Signed and read without a hook: the header is read, no frame is.
      {"signed, no hook", signedCuid, "CFeatureObject: feature map is empty"},
      {"cut", builtStream().substr(0, 60), "stream mismatch!"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    CAudioSignMulti sign;
    sign.adopt(builtSignature());
    std::istringstream in(c.bytes);
    EXPECT_EQ(thrownText([&] { sign.read(in, nullptr); }), c.expected);
    // A stream that does not read leaves the old data; one that reads but builds no signature
    // leaves none.
    EXPECT_EQ(sign.hasData(), c.expected == "stream mismatch!");
  }
}

TEST(AudioSignMulti, ReadsSignedStreamsThroughAHook) {
  ToyHook hook;
  CAudioSignMulti built;
  built.adopt(builtSignature());
  CWholeStream stream;
  built.getData()->toWholeStream(stream, &hook);
  std::ostringstream out;
  stream.writeStream(out);

  CAudioSignMulti sign;
  std::istringstream in(out.str());
  sign.read(in, &hook);
  EXPECT_EQ(written(sign), rewrittenStream());
}

TEST(AudioSignMulti, CompareGivesItsFixedAnswer) {
  const CAudioSignMulti empty;
  CAudioSignMulti plain;
  plain.adopt(builtSignature());
  EXPECT_EQ(thrownText([&] { empty.compare(plain); }),
            "Uninitialized CAudioSignMulti object");
  EXPECT_EQ(thrownText([&] { plain.compare(plain); }),
            "Active feature not set or type mismatch");

  CAudioSignMulti active;
  active.adopt(new CSignDataMulti(*plain.getData(), 0, 0, "HUE"));
  EXPECT_EQ(thrownText([&] { active.compare(plain); }),
            "Active feature not set or type mismatch");
  EXPECT_EQ(thrownText([&] { active.compare(empty); }),
            "Active feature not set or type mismatch");
  const SCompareResult result = active.compare(active);
  EXPECT_EQ(floatBits(result.score), 0x437F0000u);
  EXPECT_EQ(result.reserved[0] | result.reserved[1] | result.reserved[2], 0u);
}

}  // namespace
