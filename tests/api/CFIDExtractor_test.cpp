// The exported extractor and container as a host sees them: through orvane.h only.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>
#include <string>

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

}  // namespace

TEST(CFIDExtractorTest, FailuresReachTheHostAsTheirTexts) {
  EXPECT_EQ(thrownText([] { CFIDExtractor e(0); }), "database type not yet supported");
  EXPECT_EQ(thrownText([] { CFIDExtractor e(2); }), "database type not supported");
  CFIDContainer empty;
  std::stringstream out;
  EXPECT_EQ(thrownText([&] { empty.getFeatureVersion(); }), "FID Container is empty");
  EXPECT_EQ(thrownText([&] { empty.write(out); }), "FID Container not init");
  EXPECT_EQ(CFIDContainer::getLibraryVersion(), "Orvane.dll 0.2 000");

  CFIDExtractor extractor(1);
  const GeneratedPhoto photo(64, 48, 1);
  EXPECT_EQ(thrownText([&] { extractor.extract(photo.bgr.data(), 0, 48, 192, 0, 0); }),
            "Error preprocessing");
  std::istringstream encoded("not a photo");
  EXPECT_EQ(thrownText([&] { extractor.extract(encoded); }), "Not yet implemented");
  // A copied extractor holds no engine: it refuses instead of crashing.
  CFIDExtractor copy(extractor);
  EXPECT_EQ(thrownText([&] { photo.extractWith(copy); }), "Not yet implemented");
}

TEST(CFIDExtractorTest, SignatureIgnoresOverloadAndLinePaddingAndCopiesKeepIt) {
  CFIDExtractor extractor(1);
  GeneratedPhoto photo(300, 200, 3);
  const CFIDContainer copy(photo.extractWith(extractor));
  CFIDContainer assigned;
  assigned = copy;
  const std::string first = streamOf(copy);
  // The first edge values pin the engine's working size.
  EXPECT_EQ(hexText(first.substr(first.find("bin\n") + 12, 16)),
            "3D 4B 1B 81 3C 07 67 AB 3C 87 67 AB 3C 87 67 AB");
  EXPECT_EQ(streamOf(GeneratedPhoto(300, 200, 3, 13).extractWith(extractor)), first);
  const CFIDContainer& current =
      extractor.extract(photo.bgr.data(), photo.width, photo.height, photo.lineStep, 7, 9);
  EXPECT_EQ(streamOf(current), first);

  GeneratedPhoto(300, 200, 5).extractWith(extractor);
  EXPECT_NE(streamOf(current), first);  // the reference shows the newest photo
  EXPECT_EQ(streamOf(copy) + streamOf(assigned), first + first);
}

TEST(CFIDExtractorTest, ReadsSignatureStreamsAndBadStreamsEmptyTheContainer) {
  CFIDExtractor extractor(1);
  std::istringstream in(streamOf(GeneratedPhoto(256, 256, 4).extractWith(extractor)));
  CFIDContainer restored;
  EXPECT_EQ(&restored.read(in), &in);
  EXPECT_EQ(restored.getFeatureVersion(), "V6");
  in.get();  // sets the end-of-file bit before the next read
  EXPECT_THAT(thrownText([&] { restored.read(in); }),
              HasSubstr("no audio signature found in istream (EOF)"));
  EXPECT_EQ(thrownText([&] { restored.getFeatureVersion(); }), "FID Container is empty");
}

TEST(CFIDExtractorTest, AFeatureWhoseQuantBlockHasSpareBytesReadsButCannotBeWritten) {
  // "ASE", id 7: a Quant block of one linear entry and two spare bytes, a 2 by 2 byte matrix.
  std::istringstream in(hexString(
      "4f52564600000005 51 00 4d455441 4b 07 466561744f626a 42 0002 0007 03 415345 04 75636872"
      "05 5175616e74 00000016 0001 01 00000000 3f800000 0002 0100 00 eeee"
      "03 4d41540a 75636872 62696e0a 00000002 00000002 00 80 ff 40"));
  CFIDContainer container;
  container.read(in);
  EXPECT_EQ(thrownText([&] { streamOf(container); }), "Unknown Error");
}
