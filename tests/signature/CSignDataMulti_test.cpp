#include "signature/CSignDataMulti.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "feature/CSignDataASE.h"
#include "feature/CSignDataSFM.h"
#include "tests/ThrownText.h"
#include "tests/signature/HexBytes.h"
#include "tests/signature/PhotoSignatureGolden.h"

namespace {

using ::testing::ElementsAre;

std::vector<std::string> frameIds(const CMetaVec& frames) {
  std::vector<std::string> ids;
  for (unsigned i = 0; i < frames.frameCount(); ++i) {
    const SMetaFrame& frame = frames.frameAt(static_cast<int>(i));
    ids.emplace_back(frame.id.data(), frame.idLength);
  }
  return ids;
}

std::unique_ptr<CSignDataMulti> readSignature(const std::string& bytes, const char* filter) {
  std::istringstream in(bytes);
  CWholeStream stream(in, nullptr);
  return std::make_unique<CSignDataMulti>(stream, filter);
}

SMetaFrame wordFrame(const char* id, uint32_t value) {
  unsigned char bytes[4];
  storeBigEndian32(bytes, value);
  return SMetaFrame(static_cast<uint32_t>(std::strlen(id)), 4, id, bytes);
}

TEST(SignDataMulti, FramesOfAStreamObject) {
  std::unique_ptr<CSignDataMulti> data(builtSignature());
  data->setCuid(21);  // a second call leaves one "Cuid", now at the end
  EXPECT_EQ(data->addFrame(SMetaFrame(4, 1, "TPE1", "x")), 3u);
  EXPECT_THAT(frameIds(data->getMetaVec()), ElementsAre("VER", "Cuid", "TPE1"));

  CWholeStream stream;
  stream.addNewFrame(3, "old", 0);
  data->toWholeStream(stream, nullptr);
  // The frames of meta in order, then one "FeatObj" per feature in name order.
  EXPECT_THAT(frameIds(stream), ElementsAre("VER", "Cuid", "TPE1", "FeatObj", "FeatObj"));
  EXPECT_EQ(data->getMetaVec().frameCount(), 3u);  // writing does not change the signature
}

TEST(SignDataMulti, TimeFrameMovesOutOnReadAndBackBehindTheFramesOnWrite) {
  // A stream whose "TIME" stands first.
  std::unique_ptr<CSignDataMulti> built(builtSignature());
  CWholeStream stream;
  built->toWholeStream(stream, nullptr);
  CWholeStream timed;
  timed.appendFrame(wordFrame("TIME", 3600));
  for (unsigned i = 0; i < stream.frameCount(); ++i) timed.appendFrame(stream.frameAt(static_cast<int>(i)));

  CSignDataMulti read(timed, nullptr);
  EXPECT_EQ(read.getTimeOrigin(), 3600u);
  EXPECT_THAT(frameIds(read.getMetaVec()), ElementsAre("Cuid", "VER"));

  CWholeStream out;
  read.toWholeStream(out, nullptr);
  EXPECT_THAT(frameIds(out), ElementsAre("Cuid", "VER", "TIME", "FeatObj", "FeatObj"));
  EXPECT_EQ(loadBigEndian32(out.frameAt(2).data.data()), 3600u);

  // putTimeFrame replaces a "TIME" the target holds; without a time it does nothing.
  CMetaVec frames;
  frames.appendFrame(wordFrame("TIME", 1));
  frames.appendFrame(wordFrame("Cuid", 2));
  read.putTimeFrame(frames);
  EXPECT_THAT(frameIds(frames), ElementsAre("Cuid", "TIME"));
  EXPECT_EQ(loadBigEndian32(frames.frameAt(1).data.data()), 3600u);
  built->putTimeFrame(frames);
  EXPECT_EQ(frames.frameCount(), 2u);

  // A short "TIME" value counts its missing low bytes as 0.
  CWholeStream shortTime;
  shortTime.appendFrame(SMetaFrame(4, 2, "TIME", "\x01\x02"));
  shortTime.appendFrame(stream.frameAt(2));
  EXPECT_EQ(CSignDataMulti(shortTime, nullptr).getTimeOrigin(), 0x01020000u);
}

TEST(SignDataMulti, ReadingKeepsNoFeatObjFrame) {
  std::unique_ptr<CSignDataMulti> read = readSignature(rewrittenStream(), nullptr);
  EXPECT_THAT(frameIds(read->getMetaVec()), ElementsAre("Cuid", "VER"));
  EXPECT_EQ(read->size(), 2u);
  EXPECT_EQ(read->getFeature(nullptr), nullptr);  // no filter, no active feature
}

TEST(SignDataMulti, GetMetaCopiesText) {
  std::unique_ptr<CSignDataMulti> data(builtSignature());
  struct Case {
    const char* id;
    int outSize;
    int result;
    const char* text;
  };
  const Case cases[] = {
      {"VER", 16, 0, "V6"}, {"VER", 2, 0, "V"}, {"VER", 1, 0, ""},
      {"Cuid", 16, 0, ""},  // 00 00 00 15: the text ends at the first zero byte
      {"VE", 16, 1, ""},    {"TIME", 16, 1, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.id) + " " + std::to_string(c.outSize));
    char out[16];
    std::memset(out, 'x', sizeof out);
    EXPECT_EQ(data->getMeta(c.id, out, c.outSize), c.result);
    EXPECT_STREQ(out, c.text);
  }
}

TEST(SignDataMulti, ActiveFeatureAndLookups) {
  std::unique_ptr<CSignDataMulti> all(builtSignature());
  EXPECT_EQ(all->getFeature(nullptr), nullptr);
  EXPECT_EQ(all->getFeature("XYZ"), nullptr);
  ASSERT_NE(all->getFeature("HUE"), nullptr);
  EXPECT_EQ(all->getFeature("HUE")->GetName(), "HUE");

  const CSignDataMulti hueOnly(*all, 0, 0, "HUE");
  EXPECT_EQ(hueOnly.size(), 1u);
  ASSERT_NE(hueOnly.getFeature(nullptr), nullptr);
  EXPECT_EQ(hueOnly.getFeature(nullptr), hueOnly.getFeature("HUE"));
  EXPECT_EQ(hueOnly.getFeature("EDG"), nullptr);
  EXPECT_THAT(frameIds(hueOnly.getMetaVec()), ElementsAre("Cuid", "VER"));

  std::unique_ptr<CSignDataMulti> filtered = readSignature(rewrittenStream(), "EDG");
  EXPECT_EQ(filtered->size(), 1u);
  EXPECT_EQ(filtered->getFeature(nullptr)->GetName(), "EDG");

  EXPECT_EQ(thrownText([] { readSignature(rewrittenStream(), "VAL"); }),
            "CFeatureObject: feature VAL not found in stream");
}

TEST(SignDataMulti, ExcerptMovesTheTimeByTheRoundedSkip) {
  CSignDataMulti source;
  auto* feature = new CFeatureObject<float>("SFM", 7);
  std::vector<float> row(2, 1.0f);
  for (int i = 0; i < 100; ++i) feature->AppendVector(BaseVector<float>(row.data(), 2));
  source.AddFeatureObject(feature);
  CWholeStream stream;
  source.toWholeStream(stream, nullptr);
  const CSignDataMulti untimed(stream, nullptr);  // 30 ms per row once read back
  stream.appendFrame(wordFrame("TIME", 10));
  const CSignDataMulti timed(stream, nullptr);

  struct Case {
    uint32_t skipMs;
    uint32_t time;
  };
  for (const Case& c : {Case{0, 10}, Case{499, 10}, Case{500, 11}, Case{1500, 12}}) {
    SCOPED_TRACE(c.skipMs);
    const CSignDataMulti excerpt(timed, c.skipMs, 0, nullptr);
    EXPECT_EQ(excerpt.getTimeOrigin(), c.time);
  }
  // No time stays no time.
  EXPECT_EQ(CSignDataMulti(untimed, 1500, 0, nullptr).getTimeOrigin(), 0u);
}

TEST(SignDataMulti, NoFeatureNoStream) {
  CSignDataMulti empty;
  empty.setCuid(21);
  CWholeStream stream;
  EXPECT_EQ(thrownText([&] { empty.toWholeStream(stream, nullptr); }),
            "CFeatureObject: no feature object to stream");

  std::unique_ptr<CSignDataMulti> data(builtSignature());
  data->clearAll();
  EXPECT_EQ(data->size(), 0u);
  EXPECT_EQ(data->getMetaVec().frameCount(), 0u);
}

TEST(SignDataMulti, FactoryGoesByIdAlone) {
  // Every id gives a float object, whatever the stored type word says; 1 and 2 an SFM, 3 an
  // ASE feature.
  for (uint16_t id : {0, 1, 2, 3, 2027}) {
    SCOPED_TRACE(id);
    std::unique_ptr<CFeatureObjectBase> object(CSignDataMulti::CreateFeatureObject(id));
    EXPECT_NE(dynamic_cast<CFeatureObject<float>*>(object.get()), nullptr);
    EXPECT_EQ(dynamic_cast<CSignDataSFM*>(object.get()) != nullptr, id == 1 || id == 2);
    EXPECT_EQ(dynamic_cast<CSignDataASE*>(object.get()) != nullptr, id == 3);
  }
  CSignDataMulti data;
  std::unique_ptr<CFeatureObjectBase> object(data.createFeature(0, "uchr"));
  EXPECT_EQ(object->GetTypeName(), "flt");
}

}  // namespace
