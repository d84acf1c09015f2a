// The decoder against a plain libvips decode of the whole file (turned, made sRGB, flattened
// over white, cut to three 8-bit bands in blue, green, red order): the same pixels, bit for
// bit, on awkward widths and kinds of file; and the sizes that fast mode decodes at.
#include "tools/orvane/PhotoDecoder.h"

#include "tests/tools/ToolTest.h"

namespace {

vips::VImage ramp(int width, int height, int bands) {
  const vips::VImage xy = vips::VImage::xyz(width, height);
  vips::VImage image = (xy[0] * 37 + xy[1] * 11) % 251;
  for (int band = 1; band < bands; ++band) {
    image = image.bandjoin((xy[0] * (5 + band) + xy[1] * (29 * band)) % 253);
  }
  return image.cast(VIPS_FORMAT_UCHAR);
}

vips::VImage srgb(const vips::VImage& image) {
  return image.copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

vips::VImage turned(const vips::VImage& image, int orientation) {
  vips::VImage copy = image.copy();
  copy.set("orientation", orientation);
  return copy;
}

SBgrPhoto referenceDecode(const std::string& path) {
  vips::VImage image = vips::VImage::new_from_file(path.c_str()).autorot();
  image = image.colourspace(VIPS_INTERPRETATION_sRGB);
  if (image.has_alpha()) {
    image = image.flatten(
        vips::VImage::option()->set("background", std::vector<double>{255.0, 255.0, 255.0}));
  }
  if (image.bands() > 3) image = image.extract_band(0, vips::VImage::option()->set("n", 3));
  return pixelsOf(vips::VImage::bandjoin({image[2], image[1], image[0]}).cast(VIPS_FORMAT_UCHAR));
}

class PhotoDecoderTest : public ToolTest {
 protected:
  // Set up as the tool sets it up.
  static void SetUpTestSuite() { static CDecoderSession session("tools_test"); }
};

TEST_F(PhotoDecoderTest, FullDecodeGivesThePixelsOfAPlainDecode) {
  const vips::VImage photo = srgb(ramp(1201, 901, 3));
  std::vector<std::pair<std::string, vips::VImage>> cases = {
      {"photo.jpg[Q=90]", photo},
      {"mirrored.jpg[Q=90]", turned(photo, 2)},
      {"upside-down.jpg[Q=90]", turned(photo, 3)},
      {"quarter.jpg[Q=90]", turned(photo, 6)},
      {"transverse.png", turned(srgb(ramp(31, 17, 3)), 7)},
      {"grey.png", ramp(301, 203, 1)},
      {"grey-alpha.png", ramp(301, 203, 2)},
      {"alpha.png", srgb(ramp(301, 203, 4))},
      {"deep.png", srgb((ramp(301, 203, 3).cast(VIPS_FORMAT_USHORT) * 257))},
      {"cmyk.jpg", photo.colourspace(VIPS_INTERPRETATION_CMYK)},
      {"photo.webp[Q=80]", photo},
      {"photo.tif", photo},
  };
  // Widths around the five pixels of a shuffle step, and their tails.
  for (int width : {1, 2, 5, 6, 7, 16, 17}) {
    cases.emplace_back("w" + std::to_string(width) + ".png", srgb(ramp(width, 3, 3)));
  }
  for (const auto& [name, image] : cases) {
    SCOPED_TRACE(name);
    const std::string path = save(image, name);
    SBgrPhoto decoded;
    decodePhoto(path, DecodeMode::kFull, decoded);
    const SBgrPhoto reference = referenceDecode(path);
    EXPECT_EQ(decoded.width, reference.width);
    EXPECT_EQ(decoded.height, reference.height);
    EXPECT_FALSE(decoded.bounded);
    EXPECT_TRUE(decoded.pixels == reference.pixels);
  }
}

TEST_F(PhotoDecoderTest, FastDecodeKeepsTheLongerSideAtTheBound) {
  const struct {
    std::string name;
    int width, height, orientation;
    int decodedWidth, decodedHeight;
  } cases[] = {
      {"camera.jpg", 4000, 3000, 1, 2000, 1500},
      {"turned.jpg", 4000, 3000, 6, 1500, 2000},
      {"at-the-bound.jpg", 2048, 1000, 1, 1024, 500},
      {"just-below.jpg", 2047, 1000, 1, 2047, 1000},  // half of it would be 1023
      {"panorama.jpg", 9000, 600, 1, 1125, 75},       // at most 1/8
      {"camera.webp", 4000, 3000, 1, 2000, 1500},
      {"camera.png", 2100, 1100, 1, 2100, 1100},  // no shortcut for PNG
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::string path = save(turned(srgb(ramp(c.width, c.height, 3)), c.orientation), c.name);
    SBgrPhoto decoded;
    decodePhoto(path, DecodeMode::kFast, decoded);
    EXPECT_EQ(decoded.width, c.decodedWidth);
    EXPECT_EQ(decoded.height, c.decodedHeight);
    EXPECT_EQ(decoded.pixels.size(), static_cast<size_t>(c.decodedWidth) * c.decodedHeight * 3);
    EXPECT_FALSE(decoded.bounded);
  }
}

}  // namespace
