#include "message/CReceiveMsg.h"

#include <gtest/gtest.h>

#include "message/CSendMsg.h"
#include "tests/support/HexBytes.h"
#include "tests/support/ThrownText.h"

namespace {

const unsigned char kHeader[5] = {'O', 'R', 'V', '1', 0};

// The receiver over the bytes, moved to its first item; the answer of checkHeader.
int load(CReceiveMsg& message, const std::string& hex) {
  const std::vector<unsigned char> bytes = hexBytes(hex);
  message.setBuffer(bytes.data(), static_cast<unsigned>(bytes.size()));
  return message.checkHeader(kHeader);
}

TEST(CReceiveMsgTest, GivesBackWhatWasSentInOrder) {
  CSendMsg sent;
  sent.put(MsgInt32(-4));
  sent.put(true);
  std::string text = "V6";
  sent.putString(text);
  unsigned char bytes[] = {1, 2, 3}, *data = bytes;
  unsigned length = 3;
  sent.putBlob(data, length);
  sent.terminate();
  sent.finish(kHeader);

  CReceiveMsg received;
  received.setBuffer(sent.getBuffer(), sent.size());
  EXPECT_EQ(received.checkHeader(kHeader), 1);
  EXPECT_EQ(received.get(MsgUInt32{}), 0xFFFFFFFCu);  // any 32-bit slot reads any 32-bit item
  EXPECT_EQ(received.get(int{}), 1);                  // true through an integer reader
  text = "old";
  EXPECT_EQ(received.getString(text), "V6");
  data = new unsigned char[1];  // replaced by a new block the caller owns
  EXPECT_EQ(received.getBlob(data, length), data);
  EXPECT_EQ(hexText(data, length), "01 02 03");
  delete[] data;
}

TEST(CReceiveMsgTest, EndOfMessageAnswersZerosForEver) {
  CReceiveMsg message;
  EXPECT_EQ(load(message, "4F 52 56 31 00 00 00 00 01 58"), 1);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(message.get(double{}), 0.0);
    std::string text = "kept?";
    EXPECT_EQ(message.getString(text), "");
    unsigned char* data = new unsigned char[4];  // released by getBlob
    unsigned length = 4;
    EXPECT_EQ(message.getBlob(data, length), nullptr);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(length, 0u);
  }
  EXPECT_EQ(CReceiveMsg().get(float{}), 0.0f);

  // An item that ends exactly at the buffer's end counts as the end, and is not delivered.
  load(message, "4F52563100000000 12 330000000400000005 330000000400000006");
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

TEST(CReceiveMsgTest, DamagedItemThrowsAndStaysPut) {
  CReceiveMsg message;
  std::string text;
  load(message, "4F 52 56 31 00 00 00 00 08 35 00 00 00 02 61 62 58");
  EXPECT_EQ(thrownText([&] { message.get(int{}); }), "Error in Protocol !");
  EXPECT_EQ(message.getString(text), "ab");

  // Items whose L or head reaches past the buffer.
  for (const char* hex : {"4F 52 56 31 00 00 00 00 08 35 00 00 00 09 61 62 58",
                          "4F 52 56 31 00 00 00 00 08 35 FF FF FF FF 61 62 58",
                          "4F 52 56 31 00 00 00 00 03 33 00 00"}) {
    SCOPED_TRACE(hex);
    load(message, hex);
    EXPECT_EQ(thrownText([&] { message.get(int{}); }), "Error in Protocol");
    EXPECT_EQ(thrownText([&] { message.getString(text); }), "Error in Protocol");
  }

  // An element item is stepped over by L + 5 bytes, which lands inside it.
  load(message, "4F 52 56 31 00 00 00 00 0A 36 00 00 00 02 00 61 00 62 58");
  std::vector<unsigned char> bytes;
  EXPECT_EQ(hexText(message.getBytes(bytes)), "61 00");
  EXPECT_EQ(thrownText([&] { message.get(int{}); }), "Error in Protocol");
}

}  // namespace
