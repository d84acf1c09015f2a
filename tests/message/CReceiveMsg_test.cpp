#include "message/CReceiveMsg.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "message/CSendMsg.h"
#include "vexl/ByteOrder.h"
#include "tests/support/HexBytes.h"
#include "tests/support/ThrownText.h"

namespace {

const unsigned char kHeader[5] = {'O', 'R', 'V', '1', 0};
const std::string kHead = "4F 52 56 31 00 00 00 00 00 ";

// The receiver over the bytes, moved to its first item; the answer of checkHeader.
int load(CReceiveMsg& message, const std::string& hex) {
  const Bytes bytes = hexBytes(hex);
  message.setBuffer(bytes.data(), static_cast<unsigned>(bytes.size()));
  return message.checkHeader(kHeader);
}

// A message of every kind of item, in the order in which transcript() reads them.
Bytes sentMessage() {
  CSendMsg sent;
  sent.put(7);
  float floats[3] = {1.5f, -2.0f, 3.0e38f};
  sent.putFloats(floats, 3);
  std::string text = "V6";
  sent.putString(text);
  sent.put(2.5);
  unsigned char blob[] = {1, 2, 3}, *data = blob;
  unsigned length = 3;
  sent.putBlob(data, length);
  sent.put(-0.0f);
  sent.put(8);
  sent.terminate();
  sent.finish(kHeader);
  const unsigned char* bytes = sent.getBuffer();
  return Bytes(bytes, bytes + sent.size());
}

// What a fixed run of reads gives: the values and failure texts, in order.
std::string transcript(CReceiveMsg& message) {
  std::ostringstream out;
  out << message.checkHeader(kHeader) << ' ' << message.size() << ';';
  for (int round = 0; round < 3; ++round) {
    float floats[3] = {};
    std::string text;
    std::vector<unsigned char> bytes;
    out << thrownText([&] { out << message.get(int{}); }) << ';'
        << thrownText([&] { message.getFloats(floats, 3); }) << floats[0] << ' ' << floats[1]
        << ' ' << floats[2] << ';' << thrownText([&] { out << message.getString(text); }) << ';'
        << thrownText([&] { out << message.get(double{}); }) << ';'
        << thrownText([&] { out << hexText(message.getBytes(bytes)); }) << ';'
        << thrownText([&] { out << message.get(float{}); }) << ';';
  }
  return out.str();
}

// Every value in order; past the end every read answers zero, for ever.
TEST(CReceiveMsgTest, GivesBackWhatWasSentInOrder) {
  const Bytes bytes = sentMessage();
  CReceiveMsg received;
  received.setBuffer(bytes.data(), static_cast<unsigned>(bytes.size()));
  EXPECT_EQ(transcript(received), "1 92;7;1.5 -2 3e+38;V6;2.5;01 02 03;-0;"
                                  "8;0 0 0;;0;;0;0;0 0 0;;0;;0;");
  EXPECT_EQ(CReceiveMsg().get(float{}), 0.0f);
}

TEST(CReceiveMsgTest, BlobsComeInNewBlocksAndTheEndReleasesThem) {
  CReceiveMsg message;
  load(message, kHead + "35 00 00 00 01 AB 58");
  unsigned char* data = new unsigned char[4];
  unsigned length = 4;
  EXPECT_EQ(message.getBlob(data, length), data);  // a new block the caller owns
  EXPECT_EQ(hexText(data, length), "AB");
  EXPECT_EQ(message.getBlob(data, length), nullptr);  // the end releases it
  EXPECT_TRUE(data == nullptr && length == 0);
  // An item that ends exactly at the buffer's end counts as the end, and is not delivered.
  load(message, kHead + "330000000400000005 330000000400000006");
  EXPECT_EQ(message.get(int{}), 5);
  EXPECT_EQ(message.get(int{}), 0);
}

TEST(CReceiveMsgTest, CheckHeaderComparesButMovesToTheFirstItemAnyway) {
  CReceiveMsg message;
  EXPECT_EQ(load(message, "4F 52 56 32 00 00 00 00 0A 31 00 00 00 01 2A 58"), 0);
  EXPECT_EQ(message.get(char{}), '*');
  // Under five bytes reading starts at 0 (no whole item head fits); five to nine: no items.
  message.setBuffer(kHeader, 4);
  EXPECT_EQ(message.checkHeader(kHeader), 0);
  EXPECT_EQ(thrownText([&] { message.get(int{}); }), "Error in Protocol");
  message.setBuffer(kHeader, 5);
  EXPECT_EQ(message.checkHeader(kHeader), 1);
  EXPECT_EQ(message.get(int{}), 0);
  EXPECT_EQ(thrownText([&] { message.getBuffer(); }), "CReceiveMsg::getBuffer not allowed");
}

// Damaged messages; the streamed reading below must answer them alike.
const char* const kDamaged[] = {
    "4F 52 56 31 00 00 00 00 08 35 00 00 00 09 61 62 58",  // L past the buffer
    "4F 52 56 31 00 00 00 00 08 35 FF FF FF FF 61 62 58",
    "4F 52 56 31 00 00 00 00 03 33 00 00",  // head past the buffer
    "4F 52 56 31 00 00 00 00 0A 36 00 00 00 02 00 61 00 62 58",
    "4F 52 56 31 00 00 00 00 00 33 00 00 00 05 00 00 00 00 00 58",
};

TEST(CReceiveMsgTest, DamagedItemThrowsAndStaysPut) {
  CReceiveMsg message;
  std::string text;
  load(message, "4F 52 56 31 00 00 00 00 08 35 00 00 00 02 61 62 58");
  EXPECT_EQ(thrownText([&] { message.get(int{}); }), "Error in Protocol !");
  EXPECT_EQ(message.getString(text), "ab");
  for (int i = 0; i < 3; ++i) {
    SCOPED_TRACE(kDamaged[i]);
    load(message, kDamaged[i]);
    EXPECT_EQ(thrownText([&] { message.get(int{}); }), "Error in Protocol");
    EXPECT_EQ(thrownText([&] { message.getString(text); }), "Error in Protocol");
  }
  // An element item is stepped over by L + 5 bytes, which lands inside it.
  load(message, kDamaged[3]);
  std::vector<unsigned char> bytes;
  EXPECT_EQ(hexText(message.getBytes(bytes)), "61 00");
  EXPECT_EQ(thrownText([&] { message.get(int{}); }), "Error in Protocol");
}

// A sweep over floats reads exactly what as many float reads do, wherever the run of
// well-formed float items breaks off: the values, the failure and the position after it.
TEST(CReceiveMsgTest, FloatSweepReadsLikeOneReadPerFloat) {
  const std::string run = kHead + "33 00 00 00 04 3F 80 00 00 33 00 00 00 04 40 00 00 00 ";
  const char* const tails[] = {
      "58",                                         // the end mark after the run
      "",                                           // the last item ends at the buffer's end
      "34 00 00 00 08 00 00 00 00 40 40 00 00 58",  // a 64-bit item: its low word's bits
      "31 00 00 00 01 07 58",                       // a byte item: converted as a number
      "33 00 00 00 05 00 00 00 00 00 58",           // a float item of the wrong width
      "33 00 00 00 04 40",                          // cut inside the item
      "35 00 00 00 01 61 58",                       // a text item
  };
  for (const char* tail : tails) {
    for (size_t count : {size_t{1}, size_t{3}, size_t{5}}) {
      SCOPED_TRACE(testing::Message() << tail << " / " << count);
      CReceiveMsg swept, oneByOne;
      load(swept, run + tail);
      load(oneByOne, run + tail);
      std::vector<float> sweep(count, -1.0f), single(count, -1.0f);
      const std::string sweepFailure = thrownText([&] { swept.getFloats(sweep.data(), count); });
      std::string singleFailure;
      for (size_t i = 0; i < count && singleFailure.empty(); ++i) {
        singleFailure = thrownText([&] { single[i] = oneByOne.get(float{}); });
      }
      EXPECT_EQ(sweepFailure, singleFailure);
      EXPECT_EQ(sweep, single);
      int sweptNext = -1, singleNext = -1;
      EXPECT_EQ(thrownText([&] { sweptNext = swept.get(int{}); }),
                thrownText([&] { singleNext = oneByOne.get(int{}); }));
      EXPECT_EQ(sweptNext, singleNext);
    }
  }
}

// Read from a source a window at a time, any message, whole, cut anywhere or damaged, answers
// as the same bytes in one buffer; a source that falls short is a damaged message.
TEST(CReceiveMsgTest, SourceReadsAsTheWholeBuffer) {
  const Bytes whole = sentMessage();
  std::vector<Bytes> messages;
  for (size_t cut = 0; cut <= whole.size(); ++cut) {
    messages.emplace_back(whole.begin(), whole.begin() + cut);
  }
  for (const char* hex : kDamaged) messages.push_back(hexBytes(hex));
  for (const Bytes& bytes : messages) {
    CReceiveMsg buffered;
    buffered.setBuffer(bytes.data(), static_cast<unsigned>(bytes.size()));
    const std::string expected = transcript(buffered);
    for (size_t window : {1, 2, 5, 9, 64}) {
      SCOPED_TRACE(testing::Message() << hexText(bytes) << " / window " << window);
      size_t at = 0;
      CReceiveMsg streamed;
      streamed.setSource(
          bytes.size(),
          [&](unsigned char* into, size_t count) {
            EXPECT_LE(at + count, bytes.size());
            std::copy_n(bytes.begin() + at, count, into);
            at += count;
            return count;
          },
          window);
      EXPECT_EQ(transcript(streamed), expected);
    }
  }
  size_t given = 0;
  CReceiveMsg shortSource;  // gives 12 bytes of the message and then nothing
  shortSource.setSource(
      whole.size(),
      [&](unsigned char* into, size_t count) {
        const size_t n = std::min(count, 12 - given);
        std::copy_n(whole.begin() + given, n, into);
        given += n;
        return n;
      },
      4);
  EXPECT_EQ(shortSource.checkHeader(kHeader), 1);
  EXPECT_EQ(thrownText([&] { shortSource.get(int{}); }), "Error in Protocol");
}

}  // namespace
