// The exported extractor and container as a host sees them: through orvane.h only.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "orvane.h"
#include "tests/api/GeneratedPhoto.h"
#include "tests/support/HexBytes.h"
#include "tests/support/ThrownText.h"

using ::testing::HasSubstr;

namespace {

std::string streamOf(const CFIDContainer& container) {
  std::stringstream out;
  EXPECT_EQ(container.write(out), 0);
  return out.str();
}

const CFIDContainer& extract(CFIDExtractor& extractor, const GeneratedPhoto& photo) {
  return extractor.extract(photo.bgr.data(), photo.width, photo.height, photo.lineStep, 0, 0);
}

}  // namespace

TEST(CFIDExtractorTest, RefusesEveryDatabaseTypeButOne) {
  EXPECT_EQ(thrownText([] { CFIDExtractor e(0); }), "database type not yet supported");
  EXPECT_EQ(thrownText([] { CFIDExtractor e(2); }), "database type not supported");
  EXPECT_EQ(thrownText([] { CFIDExtractor e(-1); }), "database type not supported");
  EXPECT_EQ(thrownText([] { CFIDExtractor e(1); }), "");
}

TEST(CFIDExtractorTest, ContainerFailuresBeforeAnySignature) {
  CFIDContainer empty;
  std::stringstream out;
  EXPECT_EQ(thrownText([&] { empty.getFeatureVersion(); }), "FID Container is empty");
  EXPECT_EQ(thrownText([&] { empty.write(out); }), "FID Container not init");
  EXPECT_EQ(CFIDContainer::getLibraryVersion(), "Orvane.dll 0.2 000");
}

TEST(CFIDExtractorTest, ExtractFailuresReachTheHostAsTheirTexts) {
  CFIDExtractor extractor(1);
  const GeneratedPhoto photo(64, 48, 1);
  std::istringstream encoded("not a photo");
  const unsigned char* noPixels = nullptr;
  EXPECT_EQ(thrownText([&] { extractor.extract(noPixels, 64, 48, 192, 0, 0); }),
            "Error preprocessing");
  EXPECT_EQ(thrownText([&] { extractor.extract(photo.bgr.data(), 0, 48, 192, 0, 0); }),
            "Error preprocessing");
  EXPECT_EQ(thrownText([&] { extractor.extract(encoded); }), "Not yet implemented");
  // A copied extractor holds no engine: it refuses instead of crashing.
  CFIDExtractor copy(extractor);
  EXPECT_EQ(thrownText([&] { extract(copy, photo); }), "Not yet implemented");
}

TEST(CFIDExtractorTest, ExtractGivesAVersionedSignatureWhatEverTheOverload) {
  CFIDExtractor extractor(1);
  GeneratedPhoto photo(320, 240, 2);
  const std::string viaConst = streamOf(extract(extractor, photo));
  const CFIDContainer& result =
      extractor.extract(photo.bgr.data(), photo.width, photo.height, photo.lineStep, 7, 9);
  EXPECT_EQ(streamOf(result), viaConst);
  CFIDContainer copy(result);
  EXPECT_EQ(copy.getFeatureVersion(), "V6");
}

TEST(CFIDExtractorTest, LinePaddingDoesNotChangeTheSignature) {
  CFIDExtractor extractor(1);
  const std::string tight = streamOf(extract(extractor, GeneratedPhoto(300, 200, 3)));
  const std::string padded = streamOf(extract(extractor, GeneratedPhoto(300, 200, 3, 13)));
  EXPECT_EQ(padded, tight);
}

TEST(CFIDExtractorTest, CopiesKeepTheirSignatureWhenTheExtractorRunsAgain) {
  CFIDExtractor extractor(1);
  const CFIDContainer& current = extract(extractor, GeneratedPhoto(320, 240, 1));
  const CFIDContainer copy(current);
  CFIDContainer assigned;
  assigned = current;
  const std::string first = streamOf(copy);

  extract(extractor, GeneratedPhoto(320, 240, 5));
  EXPECT_NE(streamOf(current), first);  // the reference shows the newest photo
  EXPECT_EQ(streamOf(copy), first);
  EXPECT_EQ(streamOf(assigned), first);
}

TEST(CFIDExtractorTest, SignatureStreamRoundTripsAndBadStreamsEmptyTheContainer) {
  CFIDExtractor extractor(1);
  const std::string written = streamOf(extract(extractor, GeneratedPhoto(256, 256, 4)));

  CFIDContainer restored;
  std::istringstream in(written);
  EXPECT_EQ(&restored.read(in), &in);
  EXPECT_EQ(restored.getFeatureVersion(), "V6");
  // A feature read back carries its row time of 30 ms, which a fresh one leaves unset:
  // from the first rewrite on, the stream stays the same.
  const std::string rewritten = streamOf(restored);
  EXPECT_GT(rewritten.size(), written.size());
  std::istringstream again(rewritten);
  CFIDContainer second;
  second.read(again);
  EXPECT_EQ(streamOf(second), rewritten);

  std::istringstream garbage(std::string(40, '\x07'));
  EXPECT_NE(thrownText([&] { restored.read(garbage); }), "");
  EXPECT_EQ(thrownText([&] { restored.getFeatureVersion(); }), "FID Container is empty");

  std::istringstream atEnd("");
  atEnd.get();  // sets the end-of-file bit before the read
  EXPECT_THAT(thrownText([&] { restored.read(atEnd); }),
              HasSubstr("no audio signature found in istream (EOF)"));
}

TEST(CFIDExtractorTest, AFeatureWhoseQuantBlockHasSpareBytesReadsButCannotBeWritten) {
  // One "FeatObj" frame: "ASE", id 7, a Quant block of one linear entry and two spare bytes,
  // a 2 by 2 byte matrix.
  std::istringstream in(hexString(
      "4f52564600000005 51 00 4d455441 4b 07 466561744f626a 42 0002 0007 03 415345 04 75636872"
      "05 5175616e74 00000016 0001 01 00000000 3f800000 0002 0100 00 eeee"
      "03 4d41540a 75636872 62696e0a 00000002 00000002 00 80 ff 40"));
  CFIDContainer container;
  container.read(in);
  std::ostringstream out;
  EXPECT_EQ(thrownText([&] { container.write(out); }), "Unknown Error");
}
