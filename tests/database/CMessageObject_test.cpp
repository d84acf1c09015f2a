#include "database/CMessageObject.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/ThrownText.h"
#include "tests/support/HexBytes.h"

namespace {

// Persists one number and one text; counts which direction ran.
class CPair : public CMessageObject {
 public:
  CPair() : CMessageObject("TST1") {}
  void prepare() override { ++prepared; }
  void pack() override {
    ++packed;
    message->put(number);
    message->putString(text);
  }
  void unpack() override {
    ++unpacked;
    number = message->get(int{});
    message->getString(text);
  }

  int number = 0;
  std::string text;
  int prepared = 0;
  int packed = 0;
  int unpacked = 0;
};

const char kPairMessage[] =
    "54 53 54 31 00 00 00 00 11 "
    "33 00 00 00 04 00 00 00 2A "
    "35 00 00 00 02 68 69 "
    "58";

TEST(CMessageObjectTest, SendPacksIntoAFinishedMessageWithTheTag) {
  CPair pair;
  EXPECT_EQ(thrownText([&] { pair.messageSize(); }), "socket not initialized");
  pair.number = 42;
  pair.text = "hi";
  const unsigned char* bytes = pair.sendToBuffer();
  EXPECT_EQ(hexText(bytes, pair.messageSize()), hexText(hexBytes(kPairMessage)));
  EXPECT_EQ((std::vector<int>{pair.prepared, pair.packed, pair.unpacked}),
            (std::vector<int>{1, 1, 0}));
}

TEST(CMessageObjectTest, ReceiveUnpacksOnlyAMessageWithItsTag) {
  std::vector<unsigned char> bytes = hexBytes(kPairMessage);
  CPair pair;
  EXPECT_EQ(pair.receiveFromBuffer(bytes.data(), static_cast<unsigned>(bytes.size())), 0);
  EXPECT_EQ(pair.number, 42);
  EXPECT_EQ(pair.text, "hi");
  EXPECT_EQ(pair.messageSize(), bytes.size());

  // Another tag: nothing is read, and the message stays.
  bytes[3] = '2';
  CPair other;
  EXPECT_EQ(other.receiveFromBuffer(bytes.data(), static_cast<unsigned>(bytes.size())), 1);
  EXPECT_EQ(other.prepared + other.unpacked, 0);
  EXPECT_EQ(other.messageSize(), bytes.size());

  // A damaged item: unpack stops there, and the message is dropped.
  bytes[3] = '1';
  bytes[9] = '5';  // the number's item now claims to be text
  CPair damaged;
  EXPECT_EQ(damaged.receiveFromBuffer(bytes.data(), static_cast<unsigned>(bytes.size())), 1);
  EXPECT_EQ(damaged.unpacked, 1);
  EXPECT_EQ(thrownText([&] { damaged.messageSize(); }), "socket not initialized");
}

}  // namespace
