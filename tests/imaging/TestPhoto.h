// Test helper: photos of `channels` bytes per pixel in lines of width * channels + padding
// bytes, in a buffer of exactly their size, so that a read outside shows up under the address
// sanitizer; padding holds garbage.
#ifndef ORVANE_TESTS_IMAGING_TESTPHOTO_H_
#define ORVANE_TESTS_IMAGING_TESTPHOTO_H_

#include <cstdint>
#include <vector>

struct TestPhoto {
  int width, height, channels, step;
  std::vector<unsigned char> bytes;
  int at(int x, int y, int c) const { return bytes[y * step + x * channels + c]; }
};

// Kinds: 0 random bytes, 1 ramps (land on exact values in the resize), 2 a 3 by 3 checker of
// two colours with flat areas, 3 one flat colour.
inline TestPhoto makeTestPhoto(int width, int height, int channels, int padding, int kind,
                               uint32_t seed) {
  TestPhoto p{width, height, channels, width * channels + padding, {}};
  p.bytes.resize(static_cast<size_t>(p.step) * height);
  for (size_t i = 0; i < p.bytes.size(); ++i) {
    seed = seed * 1664525u + 1013904223u;
    const int x = static_cast<int>(i % p.step) / channels, y = static_cast<int>(i / p.step);
    const int c = static_cast<int>(i % p.step) % channels;
    const int values[4] = {static_cast<int>(seed >> 24), (x * 7 + y * 3 + c * 50) & 255,
                           ((x / 3 + y / 3) & 1) ? 250 - c * 40 : 5 + c * 60, 90 + c * 70};
    p.bytes[i] = static_cast<unsigned char>(values[kind]);
  }
  return p;
}

#endif  // ORVANE_TESTS_IMAGING_TESTPHOTO_H_
