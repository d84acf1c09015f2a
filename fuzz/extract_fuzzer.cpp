// Feeds arbitrary photos to the extraction run: the first four bytes give width (1..400),
// height (1..400) and extra line padding (0..15), the rest are the pixels, repeated into a
// buffer of exactly height lines so that any read past the photo is caught (a bare header
// gives a black photo). Small and flat shapes reach the nearest and linear fallbacks of the
// resize and the enlargement of the edge image. A run must end with the four vectors or with
// one of the run's failure texts. Every vectorised column that the processor can run has an
// engine of its own, which runs every photo too and must give the same bits as the portable
// column.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "imaging/CExtractorEngine.h"
#include "imaging/ImagingOperations.h"

namespace {

// Runs the photo through `engine` with the slots filled from `column`; returns the failure
// text, empty on success.
std::string runWith(const SImagingColumn& column, CExtractorEngine& engine,
                    const std::vector<unsigned char>& pixels, int width, int height, int lineStep) {
  useColumn(column);
  try {
    engine.run(pixels.data(), width, height, lineStep);
  } catch (const std::string& text) {
    if (text != "Error preprocessing" && text != "Error extracting") std::abort();
    return text;
  }
  return std::string();
}

}  // namespace

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

  // One engine per column for all inputs, as a host keeps it: stale buffers carry over
  // between photos, alike in all.
  static CExtractorEngine portable(256, 256);
  static const std::vector<const SImagingColumn*> columns = vectorColumns();
  static std::vector<std::unique_ptr<CExtractorEngine>> vectorised(columns.size());
  const std::string failure = runWith(kGenericColumn, portable, pixels, width, height, lineStep);
  for (size_t c = 0; c < columns.size(); ++c) {
    if (!vectorised[c]) vectorised[c].reset(new CExtractorEngine(256, 256));
    CExtractorEngine& engine = *vectorised[c];
    if (runWith(*columns[c], engine, pixels, width, height, lineStep) != failure) std::abort();
    if (failure.empty() &&
        std::memcmp(&portable.buffers, &engine.buffers, sizeof portable.buffers) != 0) {
      std::abort();
    }
  }
  return 0;
}
