#include "signature/CAudioSignMulti.h"

#include <tuple>

#include "tests/signature/SignatureStreams.h"
#include "tests/support/ThrownText.h"

namespace {

std::string written(const CAudioSignMulti& sign) {
  std::ostringstream out;
  EXPECT_EQ(sign.write(out), 0);
  return out.str();
}

TEST(AudioSignMulti, WritesTheGoldenStreamsAndRoundTrips) {
  CAudioSignMulti built;
  built.adopt(builtSignature());
  EXPECT_EQ(hexText(written(built)), hexText(kBuiltStream));
  // Reading fills in 30 ms per row, which the writer states from then on; a signed stream reads
  // through the hook and is written back unsigned.
  ToyHook hook;
  CWholeStream stream;
  built.getData()->toWholeStream(stream, &hook);
  for (const std::string& bytes : {kBuiltStream, kRewrittenStream, written(stream)}) {
    CAudioSignMulti read;
    std::istringstream in(bytes);
    read.read(in, &hook);
    EXPECT_EQ(hexText(written(read)), hexText(kRewrittenStream));
  }
}

TEST(AudioSignMulti, CopiesAreDeepAndAdoptOwns) {
  CAudioSignMulti original;
  std::ostringstream nothing;
  EXPECT_EQ(original.write(nothing), -1);
  CSignDataMulti* data = builtSignature();
  original.adopt(data);
  original.adopt(data);  // the present pointer: nothing happens
  CAudioSignMulti copy(original), assigned;
  assigned = original;
  assigned = static_cast<const CAudioSignMulti&>(assigned);
  data->setCuid(7);
  EXPECT_EQ(written(copy) + written(assigned), kBuiltStream + kBuiltStream);
}

TEST(AudioSignMulti, ReadFailures) {
  // The old data survives failures before the stream is read.
  const std::tuple<std::string, std::ios::iostate, const char*, bool> cases[] = {
      {kBuiltStream, std::ios::eofbit, "no audio signature found in istream (EOF)", true},
      {kBuiltStream, std::ios::failbit, "could not open audio signature istream", true},
      {kBuiltStream.substr(0, 60), {}, "stream mismatch!", true},
      {hexString("4F525646 00000005 10 00 4D455441 0A 04 43756964 04 00000015"), {},
       "CFeatureObject: feature map is empty", false},
  };
  for (const auto& [bytes, state, expected, dataLeft] : cases) {
    CAudioSignMulti sign;
    sign.adopt(builtSignature());
    std::istringstream in(bytes);
    in.setstate(state);
    EXPECT_EQ(thrownText([&] { sign.read(in, nullptr); }), expected);
    EXPECT_EQ(sign.hasData(), dataLeft) << expected;
  }
}

TEST(AudioSignMulti, CompareGivesItsFixedAnswer) {
  CAudioSignMulti empty, plain, active;
  plain.adopt(builtSignature());
  active.adopt(new CSignDataMulti(*plain.getData(), 0, 0, "HUE"));
  EXPECT_EQ(thrownText([&] { empty.compare(plain); }), "Uninitialized CAudioSignMulti object");
  for (const auto& pair : {std::pair{&active, &plain}, {&active, &empty}, {&plain, &active}}) {
    EXPECT_EQ(thrownText([&] { pair.first->compare(*pair.second); }),
              "Active feature not set or type mismatch");
  }
  const SCompareResult result = active.compare(active);
  EXPECT_EQ(floatBits(result.score), 0x437F0000u);
  EXPECT_EQ(result.reserved[0] | result.reserved[1] | result.reserved[2], 0u);
}

}  // namespace
