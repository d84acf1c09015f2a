// Test fixture: the orvane tool run as a program, each test in a folder of its own, on photos
// that the tests make with libvips.
#ifndef ORVANE_TESTS_TOOLS_TOOLTEST_H_
#define ORVANE_TESTS_TOOLS_TOOLTEST_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>
#include <vips/vips8>

#include "tests/support/ReadFile.h"
#include "tests/support/RunProgram.h"
#include "tools/orvane/PhotoDecoder.h"

struct SRun {
  int status;
  std::string out;
  std::string err;
};

// A scene of its own for every seed: waves of three frequencies and a bright block.
inline vips::VImage scene(int seed, int width, int height) {
  const vips::VImage xy = vips::VImage::xyz(width, height);
  const vips::VImage x = xy[0] / static_cast<double>(width);
  const vips::VImage y = xy[1] / static_cast<double>(height);
  const vips::VImage red = (x * (360.0 * (1 + seed % 4)) + 50.0 * seed).sin() * 110 + 128;
  const vips::VImage green = (y * (360.0 * (1 + seed % 3)) + 90.0 * seed).sin() * 110 + 128;
  const vips::VImage blue = ((x + y) * (180.0 * (2 + seed % 5)) + 130.0 * seed).sin() * 110 + 128;
  const double left = 0.1 * (seed % 7);
  const double top = 0.12 * (seed % 5);
  const vips::VImage block = (x > left) & (x < left + 0.3) & (y > top) & (y < top + 0.3);
  const vips::VImage waves = red.bandjoin(green).bandjoin(blue);
  return block.ifthenelse(std::vector<double>{250.0, 240.0, 60.0 * (seed % 4)}, waves)
      .cast(VIPS_FORMAT_UCHAR)
      .copy(vips::VImage::option()->set("interpretation", VIPS_INTERPRETATION_sRGB));
}

// The pixels of an 8-bit image as they lie in memory.
inline SBgrPhoto pixelsOf(const vips::VImage& image) {
  size_t size = 0;
  unsigned char* bytes = static_cast<unsigned char*>(image.write_to_memory(&size));
  SBgrPhoto photo;
  photo.width = image.width();
  photo.height = image.height();
  photo.pixels.assign(bytes, bytes + size);
  g_free(bytes);
  return photo;
}

class ToolTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_EQ(VIPS_INIT("tools_test"), 0); }

  void SetUp() override {
    char pattern[] = "/tmp/orvane-tool-test-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir = pattern;
    photos = dir / "photos";
    std::filesystem::create_directories(photos);
    library = (dir / "photos.orvane").string();
  }
  // A browser's helper processes may still be writing into their profile for a moment.
  void TearDown() override {
    std::error_code error;
    for (int i = 0; i < 50 && (std::filesystem::remove_all(dir, error), error); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_FALSE(error) << error.message();
  }

  // The tool run without a shell, so that any file name passes as it is, after checking its
  // exit status and that its output and its errors hold the texts.
  SRun run(std::vector<std::string> arguments, int status, const std::string& out = "",
           const std::string& err = "") const {
    std::string line = "orvane";
    for (const std::string& argument : arguments) line += " " + argument;
    SCOPED_TRACE(line);
    arguments.insert(arguments.begin(), ORVANE_TOOL);
    const std::string output = (dir / "stdout").string();
    SRun ran{runProgram(arguments, output), readFile(output), readFile(output + ".err")};
    EXPECT_EQ(ran.status, status) << ran.err;
    EXPECT_THAT(ran.out, ::testing::HasSubstr(out));
    EXPECT_THAT(ran.err, ::testing::HasSubstr(err));
    return ran;
  }

  // Into the photo folder; the name may end in saving options ("a.jpg[Q=90]"), which the
  // returned path leaves out.
  std::string save(const vips::VImage& image, const std::string& name) const {
    image.write_to_file(photo(name).c_str());
    return photo(name.substr(0, name.find('[')));
  }

  std::string photo(const std::string& name) const { return (photos / name).string(); }

  std::filesystem::path dir;
  std::filesystem::path photos;
  std::string library;
};

#endif  // ORVANE_TESTS_TOOLS_TOOLTEST_H_
