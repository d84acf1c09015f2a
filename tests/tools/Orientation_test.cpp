#include "tools/orvane/Orientation.h"

#include "tests/tools/ToolTest.h"

namespace {

// Against libvips' own mirror and turns, on photos of awkward sizes where every pixel differs.
TEST(OrientationTest, EachOrientationAsLibvipsMakesItAndBackAgain) {
  ASSERT_EQ(VIPS_INIT("orientation_test"), 0);
  const VipsAngle turns[] = {VIPS_ANGLE_D0, VIPS_ANGLE_D90, VIPS_ANGLE_D180, VIPS_ANGLE_D270};
  for (const auto& [width, height] : {std::pair{5, 3}, {1, 4}, {4, 1}, {1, 1}, {17, 33}}) {
    const vips::VImage xy = vips::VImage::xyz(width, height);
    const vips::VImage image =
        (xy[0] * 13 + xy[1] * 7).bandjoin(xy[1] * 5).bandjoin(xy[0] * 3).cast(VIPS_FORMAT_UCHAR);
    const SBgrPhoto photo = pixelsOf(image);
    SBgrPhoto turned;
    SBgrPhoto back;
    for (int i = 0; i < kOrientations; ++i) {
      const SOrientation orientation = orientationNumber(i);
      SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height) + " " + orientation.name());
      const vips::VImage mirrored = orientation.mirrored ? image.fliphor() : image;
      const SBgrPhoto expected = pixelsOf(mirrored.rot(turns[orientation.quarterTurns]));
      orientPhoto(photo, orientation, &turned);
      EXPECT_EQ(std::pair(turned.width, turned.height), std::pair(expected.width, expected.height));
      EXPECT_EQ(turned.pixels, expected.pixels);
      orientPhoto(turned, orientation.inverse(), &back);
      EXPECT_EQ(back.pixels, photo.pixels);
    }
  }
  EXPECT_EQ(orientationNumber(7).name(), "mirrored, turned 270");
}

}  // namespace
