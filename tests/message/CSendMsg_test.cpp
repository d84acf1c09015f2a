#include "message/CSendMsg.h"

#include <gtest/gtest.h>

#include "tests/support/HexBytes.h"
#include "tests/support/ThrownText.h"

namespace {

const unsigned char kHeader[5] = {'O', 'R', 'V', '1', 0};

std::string finishedHex(CSendMsg& message) {
  message.terminate();
  message.finish(kHeader);
  return hexText(message.getBuffer(), message.size());
}

// Slots in order, each with its item: the four 32-bit slots travel alike.
TEST(CSendMsgTest, EachSlotAppendsItsItem) {
  CSendMsg empty;
  EXPECT_EQ(finishedHex(empty), "4F 52 56 31 00 00 00 00 01 58");  // header, length, end mark
  CSendMsg message;
  EXPECT_EQ(message.put(uint64_t{1}), 1u);
  message.put(int64_t{-1});
  message.put(0.5);
  message.put(-2.0f);
  float floats[] = {-2.0f};  // the sweep writes the item of the float slot
  message.putFloats(floats, 1);
  message.put(3u);
  message.put(MsgInt32(-4));
  message.put(5);
  message.put(MsgUInt32(6));
  message.put(static_cast<unsigned char>(7));
  message.put('8');
  message.put(true);
  std::vector<unsigned char> bytes = {9, 10};
  EXPECT_EQ(&message.putBytes(bytes), &bytes);
  std::string text = "ab";
  EXPECT_EQ(&message.putString(text), &text);
  unsigned char blob[] = {0xB1}, *blobData = blob;
  unsigned blobLength = 1;
  EXPECT_EQ(message.putBlob(blobData, blobLength), blob);
  EXPECT_EQ(finishedHex(message),
            "4F 52 56 31 00 00 00 00 84 34 00 00 00 08 00 00 00 00 00 00 00 01 34 00 00 00 08 "
            "FF FF FF FF FF FF FF FF 34 00 00 00 08 3F E0 00 00 00 00 00 00 33 00 00 00 04 C0 "
            "00 00 00 33 00 00 00 04 C0 00 00 00 33 00 00 00 04 00 00 00 03 33 00 00 00 04 FF "
            "FF FF FC 33 00 00 00 04 00 00 00 05 33 00 00 00 04 00 00 00 06 31 00 00 00 01 07 "
            "31 00 00 00 01 38 31 00 00 00 01 01 35 00 00 00 02 09 0A 35 00 00 00 02 61 62 35 "
            "00 00 00 01 B1 58");
}

TEST(CSendMsgTest, GetBufferHandsOutAFreshCopyEachTime) {
  CSendMsg message;
  message.put(5);
  const unsigned char* first = message.getBuffer();  // unfinished: the items alone
  EXPECT_EQ(hexText(first, message.size()), "33 00 00 00 04 00 00 00 05");
  EXPECT_NE(message.getBuffer(), first);
  message.reset();
  EXPECT_EQ(message.size(), 0u);
  EXPECT_EQ(thrownText([&] { message.setBuffer(kHeader, 5); }), "CSendMsg::setBuffer not allowed");
}

}  // namespace
