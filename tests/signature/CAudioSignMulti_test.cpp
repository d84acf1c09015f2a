#include "signature/CAudioSignMulti.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tests/signature/PhotoSignatureGolden.h"
#include "tests/signature/ToyHook.h"
#include "tests/support/HexBytes.h"
#include "tests/support/ThrownText.h"

namespace {

std::string written(const CAudioSignMulti& sign) {
  std::ostringstream out;
  EXPECT_EQ(sign.write(out), 0);
  return out.str();
}

CAudioSignMulti readFrom(const std::string& bytes, CSignatureHook* hook = nullptr) {
  CAudioSignMulti sign;
  std::istringstream in(bytes);
  sign.read(in, hook);
  return sign;
}

TEST(AudioSignMulti, WritesTheGoldenStreamsAndRoundTrips) {
  CAudioSignMulti built;
  built.adopt(builtSignature());
  EXPECT_EQ(hexText(written(built)), hexText(builtStream()));
  // Reading fills in 30 ms per row, which the writer states from then on.
  EXPECT_EQ(hexText(written(readFrom(builtStream()))), hexText(rewrittenStream()));
  EXPECT_EQ(hexText(written(readFrom(rewrittenStream()))), hexText(rewrittenStream()));

  // A signed stream reads through the hook and is written back unsigned.
  ToyHook hook;
  CWholeStream stream;
  built.getData()->toWholeStream(stream, &hook);
  std::ostringstream out;
  stream.writeStream(out);
  EXPECT_EQ(written(readFrom(out.str(), &hook)), rewrittenStream());
}

TEST(AudioSignMulti, CopiesAreDeepAndAdoptOwns) {
  CAudioSignMulti original;
  EXPECT_FALSE(CAudioSignMulti(original).hasData());
  std::ostringstream nothing;
  EXPECT_EQ(original.write(nothing), -1);
  EXPECT_EQ(nothing.str(), "");

  CSignDataMulti* data = builtSignature();
  original.adopt(data);
  original.adopt(data);  // the present pointer: nothing happens
  CAudioSignMulti copy(original);
  CAudioSignMulti assigned;
  assigned = original;
  const CAudioSignMulti& same = assigned;
  assigned = same;
  EXPECT_NE(copy.getData()->getFeature("EDG"), data->getFeature("EDG"));
  data->setCuid(7);
  EXPECT_EQ(written(copy), builtStream());
  EXPECT_EQ(written(assigned), builtStream());
  copy.clearData();
  EXPECT_FALSE(copy.hasData());
}

TEST(AudioSignMulti, ReadFailures) {
  struct Case {
    const char* name;
    std::string bytes;
    std::ios::iostate state;
    std::string expected;
    bool dataLeft;  // the old data survives failures before the stream is read
  };
  const Case cases[] = {
      {"at end", builtStream(), std::ios::eofbit, "no audio signature found in istream (EOF)",
       true},
      {"failed", builtStream(), std::ios::failbit, "could not open audio signature istream", true},
      {"cut", builtStream().substr(0, 60), {}, "stream mismatch!", true},
      {"no feature",
       hexString("4F525646 00000005 10 00 4D455441 0A 04 43756964 04 00000015"),
       {},
       "CFeatureObject: feature map is empty",
       false},
      // Signed and read without a hook: the header is read, no frame is.
      {"signed, no hook",
       hexString("4F525646 00000005 1B 0B 31 04 6B657931 04 E356EE14 4D455441 0A 04 43756964 04 "
                 "00000015"),
       {},
       "CFeatureObject: feature map is empty",
       false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    CAudioSignMulti sign;
    sign.adopt(builtSignature());
    std::istringstream in(c.bytes);
    in.setstate(c.state);
    EXPECT_EQ(thrownText([&] { sign.read(in, nullptr); }), c.expected);
    EXPECT_EQ(sign.hasData(), c.dataLeft);
  }
}

TEST(AudioSignMulti, CompareGivesItsFixedAnswer) {
  CAudioSignMulti empty;
  CAudioSignMulti plain;
  plain.adopt(builtSignature());
  CAudioSignMulti active;
  active.adopt(new CSignDataMulti(*plain.getData(), 0, 0, "HUE"));
  EXPECT_EQ(thrownText([&] { empty.compare(plain); }), "Uninitialized CAudioSignMulti object");
  for (const CAudioSignMulti* other : {&plain, &empty}) {
    EXPECT_EQ(thrownText([&] { active.compare(*other); }),
              "Active feature not set or type mismatch");
  }
  EXPECT_EQ(thrownText([&] { plain.compare(active); }), "Active feature not set or type mismatch");
  const SCompareResult result = active.compare(active);
  EXPECT_EQ(floatBits(result.score), 0x437F0000u);
  EXPECT_EQ(result.reserved[0] | result.reserved[1] | result.reserved[2], 0u);
}

}  // namespace
