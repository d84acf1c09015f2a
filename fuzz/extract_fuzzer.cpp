// Feeds arbitrary photos to the extraction run: the first four bytes give width (1..400),
// height (1..400) and extra line padding (0..15), the rest are the pixels, repeated into a
// buffer of exactly height lines so that any read past the photo is caught (a bare header
// gives a black photo). Small and flat shapes reach the nearest and linear fallbacks of the
// resize and the enlargement of the edge image. A run must end with the four vectors or with
// one of the run's failure texts.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "imaging/CExtractorEngine.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 4 || size > (1 << 20)) return 0;
  const int width = 1 + (data[0] | (data[1] & 1) << 8) % 400;
  const int height = 1 + (data[2] | (data[1] & 2) << 7) % 400;
  const int lineStep = width * 3 + (data[3] & 15);
  // Pixel bytes repeat the rest of the input; a bare header gives a black photo.
  const uint8_t* rest = data + 4;
  const size_t restSize = size - 4;
  std::vector<unsigned char> pixels(static_cast<size_t>(lineStep) * height, 0);
  if (restSize != 0)
    for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = rest[i % restSize];

  // One engine for all inputs, as a host keeps it: stale buffers carry over between photos.
  static CExtractorEngine engine(256, 256);
  try {
    engine.run(pixels.data(), width, height, lineStep);
  } catch (const std::string& text) {
    if (text != "Error preprocessing" && text != "Error extracting") std::abort();
    return 0;
  }
  float sum = 0;
  const SFeatureBuffers& b = engine.buffers;
  for (float v : b.edg) sum += v;
  for (float v : b.hue) sum += v;
  for (float v : b.sat) sum += v;
  for (float v : b.val) sum += v;
  volatile float sink = sum;
  (void)sink;
  return 0;
}
