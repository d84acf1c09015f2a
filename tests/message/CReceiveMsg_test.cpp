#include "message/CReceiveMsg.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "vexl/ByteOrder.h"
#include "tests/support/HexBytes.h"
#include "tests/support/ThrownText.h"

namespace {

const unsigned char kHeader[5] = {'O', 'R', 'V', '1', 0};
const std::string kTag = "4F 52 56 31 00 ", kHead = kTag + "00 00 00 00 ";

// A message of every kind of item, in the order in which transcript() reads them: 7, the
// floats 1.5, -2 and 3e38, "V6", 2.5, the bytes 1 2 3, -0.0f and 8.
const Bytes kSent = hexBytes(
    "4F 52 56 31 00 00 00 00 53  33 00 00 00 04 00 00 00 07  33 00 00 00 04 3F C0 00 00 "
    "33 00 00 00 04 C0 00 00 00  33 00 00 00 04 7F 61 B1 E6  35 00 00 00 02 56 36 "
    "34 00 00 00 08 40 04 00 00 00 00 00 00  35 00 00 00 03 01 02 03 "
    "33 00 00 00 04 80 00 00 00  33 00 00 00 04 00 00 00 08  58");

// A source over `bytes` that gives the first `given` of them and then nothing.
CReceiveMsg::Source sourceOf(const Bytes& bytes, size_t given) {
  return [&bytes, given, at = size_t{0}](unsigned char* into, size_t count) mutable {
    EXPECT_LE(at + count, bytes.size());
    const size_t n = std::min(count, given - at);
    std::copy_n(bytes.begin() + at, n, into);
    at += n;
    return n;
  };
}

// What a read throws, "E" for "Error in Protocol" and "E!" for "Error in Protocol !".
template <typename Call>
std::string failure(Call call) {
  const std::string text = thrownText(call);
  return text == "Error in Protocol" ? "E" : text == "Error in Protocol !" ? "E!" : text;
}

// What a fixed run of reads gives: the values and failures, in order. A blob comes in a new
// block for the caller, and the end of the message releases it.
std::string transcript(CReceiveMsg& message, int rounds = 3) {
  std::ostringstream out;
  out << message.checkHeader(kHeader) << ' ' << message.size() << ';';
  unsigned char* blob = new unsigned char[1];
  unsigned length = 1;
  for (int round = 0; round < rounds; ++round) {
    float floats[3] = {};
    std::string text;
    out << failure([&] { out << message.get(int{}); }) << ';'
        << failure([&] { message.getFloats(floats, 3); }) << floats[0] << ' ' << floats[1] << ' '
        << floats[2] << ';' << failure([&] { out << hexText(message.getString(text)); }) << ';'
        << failure([&] { out << message.get(double{}); }) << ';'
        << failure([&] { message.getBlob(blob, length); out << hexText(blob, length); }) << ';'
        << failure([&] { out << message.get(float{}); }) << ';';
  }
  delete[] blob;
  return out.str();
}

// Every value in order; past the end every read answers zero, for ever.
TEST(CReceiveMsgTest, GivesBackWhatWasSentInOrder) {
  CReceiveMsg received;
  received.setBuffer(kSent.data(), static_cast<unsigned>(kSent.size()));
  EXPECT_EQ(transcript(received), "1 92;7;1.5 -2 3e+38;56 36;2.5;01 02 03;-0;"
                                  "8;0 0 0;;0;;0;0;0 0 0;;0;;0;");
  EXPECT_EQ(thrownText([&] { received.getBuffer(); }), "CReceiveMsg::getBuffer not allowed");
}

// Odd and damaged messages, and one round of reads. Another header is read all the same;
// under five bytes reading starts at 0; an item ending at the buffer's end is the end; a float
// slot takes a 64-bit item's low word; a damaged item throws and stays put; an element item
// is stepped over by L + 5 bytes.
const struct {
  std::string hex;
  const char* reads;
} kOdd[] = {
    {"4F 52 56 32 00 00 00 00 0A 31 00 00 00 01 2A 58", "0 16;42;0 0 0;;0;;0;"},
    {"4F 52 56 31", "0 4;E;E0 0 0;E;E;E;E;"},
    {kTag, "1 5;0;0 0 0;;0;;0;"},
    {kHead + "33 00 00 00 04 00 00 00 05 33 00 00 00 04 00 00 00 06", "1 27;5;0 0 0;;0;;0;"},
    {kHead + "33 00 00 00 04 3F 80 00 00 34 00 00 00 08 00 00 00 00 40 40 00 00 58",
     "1 32;1065353216;3 0 0;;0;;0;"},
    {kTag + "00 00 00 08 35 00 00 00 02 61 62 58", "1 17;E!;E!0 0 0;61 62;0;;0;"},
    {kTag + "00 00 00 08 35 00 00 00 09 61 62 58", "1 17;E;E0 0 0;E;E;E;E;"},
    {kTag + "00 00 00 08 35 FF FF FF FF 61 62 58", "1 17;E;E0 0 0;E;E;E;E;"},
    {kTag + "00 00 00 03 33 00 00", "1 12;E;E0 0 0;E;E;E;E;"},
    {kTag + "00 00 00 0A 36 00 00 00 02 00 61 00 62 58", "1 19;E!;E!0 0 0;61 00;E;E;E;"},
    {kTag + "00 00 00 00 33 00 00 00 05 00 00 00 00 00 58", "1 20;E!;E!0 0 0;E!;E!;E!;E!;"},
};

TEST(CReceiveMsgTest, OddMessagesReadAsTheyAre) {
  for (const auto& odd : kOdd) {
    const Bytes bytes = hexBytes(odd.hex);
    CReceiveMsg message;
    message.setBuffer(bytes.data(), static_cast<unsigned>(bytes.size()));
    EXPECT_EQ(transcript(message, 1), odd.reads) << odd.hex;
  }
}

// The message whole and cut at every byte, and the odd ones.
std::vector<Bytes> everyMessage() {
  std::vector<Bytes> messages;
  for (size_t cut = 0; cut <= kSent.size(); ++cut)
    messages.emplace_back(kSent.begin(), kSent.begin() + cut);
  for (const auto& odd : kOdd) messages.push_back(hexBytes(odd.hex));
  return messages;
}

// The bits of `count` floats read by one sweep or one by one, the failure, the next number.
std::string floatReads(const Bytes& bytes, size_t count, bool sweep) {
  CReceiveMsg message;
  message.setBuffer(bytes.data(), static_cast<unsigned>(bytes.size()));
  message.checkHeader(kHeader);
  std::vector<float> values(count, -1.0f);
  std::ostringstream out;
  out << std::hex << failure([&] {
    if (sweep) message.getFloats(values.data(), count);
    for (size_t i = 0; !sweep && i < count; ++i) values[i] = message.get(float{});
  });
  for (float v : values) out << ' ' << floatBits(v);
  out << ';' << failure([&] { out << message.get(int{}); });
  return out.str();
}

// Wherever a run of well-formed float items breaks off, a sweep reads what one read per float
// does.
TEST(CReceiveMsgTest, FloatSweepReadsLikeOneReadPerFloat) {
  for (const Bytes& bytes : everyMessage()) {
    for (size_t count : {size_t{1}, size_t{3}, size_t{5}}) {
      EXPECT_EQ(floatReads(bytes, count, true), floatReads(bytes, count, false))
          << hexText(bytes) << " / " << count;
    }
  }
}

// Read from a source a window at a time, any message answers as the same bytes in one
// buffer; a source that falls short is a damaged message.
TEST(CReceiveMsgTest, SourceReadsAsTheWholeBuffer) {
  for (const Bytes& bytes : everyMessage()) {
    CReceiveMsg buffered;
    buffered.setBuffer(bytes.data(), static_cast<unsigned>(bytes.size()));
    const std::string expected = transcript(buffered);
    for (size_t window : {1, 2, 5, 9, 64}) {
      CReceiveMsg streamed;
      streamed.setSource(bytes.size(), sourceOf(bytes, bytes.size()), window);
      EXPECT_EQ(transcript(streamed), expected) << hexText(bytes) << " / window " << window;
    }
  }
  CReceiveMsg shortSource;
  shortSource.setSource(kSent.size(), sourceOf(kSent, 12), 4);
  EXPECT_EQ(shortSource.checkHeader(kHeader), 1);
  EXPECT_EQ(thrownText([&] { shortSource.get(int{}); }), "Error in Protocol");
}

}  // namespace
