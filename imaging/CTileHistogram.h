// CTileHistogram: the colour feature of one HSV channel, a histogram per tile of a grid.
//
// The region is cut into tilesX by tilesY tiles of (roiWidth / tilesX) by
// (roiHeight / tilesY) pixels; pixels beyond them at the right and bottom belong to no tile.
// Each tile gives `bins` shares of its pixel count, tile by tile, row by row. Bin edges are
// spread evenly over 0..255 and each bin excludes its upper edge, so the value 255 falls into
// no bin while the divisor still counts it. Kept: stored signatures depend on that loss.
// Only the channel asked for is counted; the arrays of the other two keep what they held.
#ifndef ORVANE_IMAGING_CTILEHISTOGRAM_H_
#define ORVANE_IMAGING_CTILEHISTOGRAM_H_

class CImageBuffer;

class CTileHistogram {
 public:
  // The image size is recorded only; the tiles follow each image's region.
  CTileHistogram(int imageHeight, int imageWidth, int tilesX, int tilesY, int bins);
  ~CTileHistogram();
  CTileHistogram(const CTileHistogram&) = delete;
  CTileHistogram& operator=(const CTileHistogram&) = delete;

  // Writes tilesX * tilesY * bins floats of channel `channel` (0..2) of the 3-channel `image`
  // to `out`: out[(ty * tilesX + tx) * bins + b] = float(count of bin b / tile pixels).
  // Returns 0, or -1 when the histogram fails (a region with fewer pixels than tiles across
  // or down gives empty tiles and fails).
  int compute(const CImageBuffer& image, float* out, int channel);

  int imageWidth, imageHeight;
  int tilesX, tilesY;
  int bins;
  int* hist[3];
  int* levels[3];
  int levelCount[3];
  int lower[3];
  int upper[3];
};

#endif  // ORVANE_IMAGING_CTILEHISTOGRAM_H_
