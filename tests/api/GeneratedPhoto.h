// Photos drawn in the tests of the exported layer: BGR triples, optionally with padding
// bytes at the end of every line.
#ifndef ORVANE_TESTS_API_GENERATEDPHOTO_H_
#define ORVANE_TESTS_API_GENERATEDPHOTO_H_

#include <cstddef>
#include <vector>

#include "orvane.h"

struct GeneratedPhoto {
  // Colour ramps and a bright square whose place depends on the seed.
  GeneratedPhoto(int w, int h, int seed, int padding = 0)
      : width(w), height(h), lineStep(w * 3 + padding), bgr(size_t(lineStep) * h, 0xEE) {
    for (int y = 0; y < h; ++y) {
      for (int x = 0; x < w; ++x) {
        unsigned char* p = &bgr[size_t(y) * lineStep + x * 3];
        const bool square = x / (w / 4) == seed % 4 && y / (h / 3) == seed % 3;
        p[0] = static_cast<unsigned char>(x * 255 / w);
        p[1] = static_cast<unsigned char>((y * 180 / h + seed * 37) % 256);
        p[2] = square ? 245 : static_cast<unsigned char>((x + 2 * y + seed * 50) % 200);
      }
    }
  }
  const CFIDContainer& extractWith(CFIDExtractor& extractor) const {
    return extractor.extract(bgr.data(), width, height, lineStep, 0, 0);
  }
  int width, height, lineStep;
  std::vector<unsigned char> bgr;
};

#endif  // ORVANE_TESTS_API_GENERATEDPHOTO_H_
