#include "signature/CSignDataMulti.h"

#include <gmock/gmock.h>

#include <cstring>
#include <memory>
#include <tuple>

#include "feature/CSignDataASE.h"
#include "feature/CSignDataSFM.h"
#include "tests/signature/SignatureStreams.h"

namespace {

using ::testing::ElementsAre;

std::unique_ptr<CSignDataMulti> readSignature(const std::string& bytes, const char* filter) {
  std::istringstream in(bytes);
  CWholeStream stream(in, nullptr);
  return std::make_unique<CSignDataMulti>(stream, filter);
}

TEST(SignDataMulti, FrameOrderAndTheTimeFrame) {
  std::unique_ptr<CSignDataMulti> data(builtSignature());
  data->setCuid(21);  // a second call leaves one "Cuid", now at the end
  EXPECT_EQ(data->addFrame(SMetaFrame(4, 4, "TIME", "\0\0\x0E\x10")), 3u);
  EXPECT_THAT(frameIds(data->getMetaVec()), ElementsAre("VER", "Cuid", "TIME"));

  // Writing: meta's frames in order, then one "FeatObj" per feature in name order. A "TIME"
  // frame left in meta travels as any frame while timeOrigin is 0.
  CWholeStream stream;
  stream.addNewFrame(3, "old", 0);
  data->toWholeStream(stream, nullptr);
  EXPECT_THAT(frameIds(stream), ElementsAre("VER", "Cuid", "TIME", "FeatObj", "FeatObj"));

  // Reading moves it into timeOrigin; writing puts it back behind the other frames.
  CSignDataMulti read(stream, nullptr);
  EXPECT_EQ(read.getTimeOrigin(), 3600u);
  EXPECT_EQ(CSignDataMulti(read, 0, 0, nullptr).getTimeOrigin(), 3600u);  // a copy keeps it
  EXPECT_THAT(frameIds(read.getMetaVec()), ElementsAre("VER", "Cuid"));
  read.addFrame(SMetaFrame(4, 4, "TPE1", "\0\0\0\1"));
  read.toWholeStream(stream, nullptr);
  EXPECT_THAT(frameIds(stream), ElementsAre("VER", "Cuid", "TPE1", "TIME", "FeatObj", "FeatObj"));
  EXPECT_EQ(loadBigEndian32(stream.frameAt(3).data.data()), 3600u);
  // A "TIME" frame first, shorter than 4 bytes: its missing low bytes count as 0.
  CWholeStream shortTime;
  shortTime.appendFrame(SMetaFrame(4, 2, "TIME", "\x01\x02"));
  shortTime.appendFrame(stream.frameAt(4));
  EXPECT_EQ(CSignDataMulti(shortTime, nullptr).getTimeOrigin(), 0x01020000u);

}

TEST(SignDataMulti, GetMetaAndFeatureLookups) {
  std::unique_ptr<CSignDataMulti> all = readSignature(kRewrittenStream, nullptr);
  // "Cuid" is 00 00 00 15: its text ends at once; "VE" is no id.
  const std::tuple<const char*, int, int, const char*> cases[] = {
      {"VER", 16, 0, "V6"}, {"VER", 2, 0, "V"}, {"Cuid", 16, 0, ""}, {"VE", 16, 1, ""}};
  for (const auto& [id, outSize, result, text] : cases) {
    char out[16];
    std::memset(out, 'x', sizeof out);
    EXPECT_EQ(all->getMeta(id, out, outSize), result) << id << outSize;
    EXPECT_STREQ(out, text) << id << outSize;
  }
  EXPECT_THAT(frameIds(all->getMetaVec()), ElementsAre("Cuid", "VER"));  // no "FeatObj" kept
  EXPECT_EQ(all->getFeature(nullptr), nullptr);
  // A filter makes its feature the active one.
  EXPECT_EQ(CSignDataMulti(*all, 0, 0, "HUE").getFeature(nullptr)->GetName(), "HUE");
  EXPECT_EQ(readSignature(kRewrittenStream, "EDG")->getFeature(nullptr)->GetName(), "EDG");
}

TEST(SignDataMulti, TheFactoryGoesByFeatureId) {
  // By feature id alone, whatever the stored type word says: 1 and 2 an SFM, 3 an ASE, every
  // other id a plain float feature.
  for (uint16_t id : {0, 1, 2, 3, 2027}) {
    std::unique_ptr<CFeatureObjectBase> object(CSignDataMulti().createFeature(id, "uchr"));
    EXPECT_TRUE(dynamic_cast<CFeatureObject<float>*>(object.get())) << id;
    EXPECT_EQ(dynamic_cast<CSignDataSFM*>(object.get()) != nullptr, id == 1 || id == 2) << id;
    EXPECT_EQ(dynamic_cast<CSignDataASE*>(object.get()) != nullptr, id == 3) << id;
  }
}

}  // namespace
