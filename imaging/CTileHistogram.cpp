#include "imaging/CTileHistogram.h"

#include <cstddef>

#include "imaging/CImageBuffer.h"
#include "imaging/ImagingOperations.h"

CTileHistogram::CTileHistogram(int imageHeight_, int imageWidth_, int tilesX_, int tilesY_,
                               int bins_)
    : imageWidth(imageWidth_),
      imageHeight(imageHeight_),
      tilesX(tilesX_),
      tilesY(tilesY_),
      bins(bins_) {
  for (int c = 0; c < 3; ++c) {
    hist[c] = new int[bins + 1]();
    levels[c] = new int[bins + 1]();
    levelCount[c] = bins + 1;
    lower[c] = 0;
    upper[c] = 255;
  }
}

CTileHistogram::~CTileHistogram() {
  for (int c = 0; c < 3; ++c) {
    delete[] hist[c];
    delete[] levels[c];
  }
}

int CTileHistogram::compute(const CImageBuffer& image, float* out, int channel) {
  const int tileWidth = image.roiWidth / tilesX;
  const int tileHeight = image.roiHeight / tilesY;
  const int pixels = tileWidth * tileHeight;
  for (int ty = 0; ty < tilesY; ++ty) {
    for (int tx = 0; tx < tilesX; ++tx) {
      const unsigned char* tile = image.data +
                                  static_cast<ptrdiff_t>(ty) * tileHeight * image.lineStep +
                                  static_cast<ptrdiff_t>(tx) * tileWidth * image.channels;
      if (channelHistogram(tile, image.lineStep, tileWidth, tileHeight, channel, hist[channel],
                           levels[channel], levelCount[channel], lower[channel],
                           upper[channel]) != kStsNoErr) {
        return -1;
      }
      float* row = out + (ty * tilesX + tx) * bins;
      for (int b = 0; b < bins; ++b) {
        row[b] = static_cast<float>(static_cast<double>(hist[channel][b]) / pixels);
      }
    }
  }
  return 0;
}
