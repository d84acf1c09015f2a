#include "signature/CChunkContainer.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "tests/signature/SignatureStreams.h"

namespace {

// Reading ends with the declared body, an ID3 tag or a second stream; the frames themselves are
// checked through the conversion in CWholeStream_test. A refused version answers 0.
TEST(CChunkContainerTest, ReadsTheOlderFormUpToItsEndAndRefusesBadStreams) {
  const std::string v3 = hexString("4F52564600000003 53" + kOlderBodyVarint);
  const std::string meta = hexString("4D455441 09 04 54495432 03 616263");
  std::string metas = hexString("4F525646 00000004 6A 46454154 05 44415441 AB");
  for (int i = 0; i < 5; ++i) metas += meta;
  const std::string bad = "ERROR bad stream or sub chunk format)\n";
  const std::string refused = "ERROR stream version not compatible\n";
  // Frames, body size and what is left in the stream count only where the stream was read.
  const struct { std::string bytes; int result; std::string message;
                 unsigned frames = 0; uint32_t bodySize = 0; std::string rest = ""; } cases[] = {
      // The ID3 tag's size bytes 7F 7F 00 00 count as 0: 10 bytes follow its header.
      {v3 + hexString(kOlderTail), 7, "", 1, 83, hexString("4F52564600000005")},
      {hexString("4F52564600000004 53" + kOlderBodyVarint + kOlderTail), 1, "", 0, 83,
       hexString(kOlderTail)},
      // Size bytes 00 00 01 01 read as the word 00 01 01 00: 2^14 + 2^7, and 10 bytes more.
      {v3 + hexString("494433 030000 00000101") + std::string(16522, 'x') + "ORVF", 5, "", 0, 83,
       "ORVF"},
      // "VERS" takes 10 of the 11 declared bytes; the "FEAT" behind it holds 124 data bytes, so
      // its length with the inner id needs a two-byte varint.
      {hexString("4F525646 00000003 0B 56455253 05 4631433231 46454154 8100 44415441") +
           std::string(124, 'x'),
       1, "", 0, 160},
      // Declared body 106: after the chunk pos is 39; each "META" of 9 frame bytes adds 9 + 9 + 4
      // (kept), so the third leaves 105, the fourth reaches 127 and the fifth stays unread.
      {metas, 3, "", 4, 31, meta},
      // A frame whose id length byte counts as -128 fails and stays, with id length 0.
      {v3 + hexString("4D455441 05 80 61616161"), 3, "ERROR parsing Meta Tags\n", 1, 83},
      // A zero "TUID" is refused with a message and reading goes on.
      {hexString("4F525646 00000003 16 54554944 0000000000000000 46454154 05 44415441 AB"), 1,
       "ERROR invalid TUID: use values > 0\n", 0, 31},
      {hexString("4F525646 00000005 00"), 0, refused},
      {hexString("4F525646 0000003F 00"), 0, refused},
      {hexString("4F525646 00000003 05 58585858 00"), -1, "ERROR no sub chunk found!\n" + bad},
      {hexString("4F525646 00000003 10 56455253 7F 4631"), -1, bad},  // body cut short
      {hexString("4F525646 0000"), -1, bad},
      {hexString("4F525646 00000003 09 46454154 03 444154"), -1, bad},  // shorter than its id
      {hexString("4F525646 00000003 18 54554944 0000000000000001 54554944 0000000000000002"), -1,
       "Error: tuid mismatch\n" + bad},
      {hexString("4F525646 00000003 14 56455253 05 4631433231 56455253 05 4632433231"), -1,
       "Error: stream version mismatch\n" + bad},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(hexText(c.bytes.substr(0, 12)));
    std::istringstream in(c.bytes);
    CChunkContainer chunks(1, nullptr, nullptr);
    testing::internal::CaptureStderr();
    EXPECT_EQ(chunks.parseStream(in), c.result);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.message);
    if (c.result <= 0) continue;
    EXPECT_EQ(chunks.frameCount(), c.frames);
    EXPECT_EQ(chunks.bodySize(), c.bodySize);
    EXPECT_EQ(hexText(std::string(std::istreambuf_iterator<char>(in), {})), hexText(c.rest));
  }
  const std::string fpar = "46504152 447A0000 457A0000 00000003";
  std::istringstream twice(hexString("4F525646 00000003 20" + fpar + fpar));
  testing::internal::CaptureStderr();
  EXPECT_THROW(CChunkContainer(1, nullptr, nullptr).parseStream(twice), int);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "FeatPara member already instantiated\n");
}

// Reading every sub chunk: "META" and ID3 chunks inside the body are skipped, each "FEAT" kept.
TEST(CChunkContainerTest, SubChunksOfAWholeBodySkipMetaAndId3) {
  const std::string feat = "46454154 05 44415441 AA";
  const std::string body =
      hexString(feat + "4D455441 02 0102 494433 03 0000 00000003 010203" + feat);
  std::istringstream in(body + "tail");
  CChunkContainer chunks(1, nullptr, nullptr);
  EXPECT_EQ(chunks.parseSubChunks(in, static_cast<int>(body.size()), 1), 1);
  EXPECT_EQ(chunks.subChunkCount(), 2);
  EXPECT_EQ(in.get(), 't');
  EXPECT_EQ(chunks.subChunkLength(2), -1);  // with a message on the error stream
  // Cut in the ID3 header, in its body, and behind "INFO".
  for (const char* cut : {"494433 03 00", "494433 03 0000 00000003 01", "494E464F"}) {
    std::istringstream cutIn(hexString(cut));
    EXPECT_EQ(CChunkContainer(1, nullptr, nullptr).parseSubChunks(cutIn, 99, 1), -1) << cut;
  }
}

}  // namespace
