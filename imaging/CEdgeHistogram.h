// CEdgeHistogram: the edge feature, six shares per cell of a 4 by 4 grid (96 floats).
//
// The gray image is cut into square blocks; each block is classified by the strongest of five
// 2 by 2 filter responses on its quadrant means (vertical, horizontal, 45 and 135 degree
// diagonal, non-directional edge), or as "no edge" when the strongest stays below the
// threshold, and the types are counted per cell. Bins of a cell, in order: vertical,
// horizontal, 45 degrees, 135 degrees, non-directional, no edge; each is a share of the
// cell's blocks.
//
// Kept: the scan is called with stride = region height and height = line step. On a square or
// upright region both equal the line step; on a landscape region the scan walks the buffer
// sheared. Stored signatures rest on it. Photos whose shorter side is below 70 are first
// enlarged from the whole stored gray buffer (see IppiUtils.h); on a new engine that fails,
// because the edge image is still empty, so the first such photo returns -1.
#ifndef ORVANE_IMAGING_CEDGEHISTOGRAM_H_
#define ORVANE_IMAGING_CEDGEHISTOGRAM_H_

#include "imaging/CImageBuffer.h"

class CEdgeHistogram {
 public:
  static const int kCells = 16;
  static const int kBins = 6;
  static const int kMinShorterSide = 70;
  static const int kDesiredBlocks = 1100;
  static const int kEdgeThreshold = 11;

  // Both sizes are ignored: the edge image takes its size from each gray image.
  CEdgeHistogram(int imageHeight, int imageWidth);
  CEdgeHistogram(const CEdgeHistogram&) = delete;
  CEdgeHistogram& operator=(const CEdgeHistogram&) = delete;

  // Analyses the region of `gray` and writes 96 values to `out`. Returns 96, or -1 when the
  // enlargement of a flat photo fails (nothing is written then).
  int compute(const CImageBuffer& gray, float* out);

  // Block side for a scanned area whose larger side is `largerSide`: area = (3 m m) >> 2 as
  // unsigned, x = sqrt(area / 1100.0), side = 2 trunc(0.5 x), at least 2. Assumes a 4:3
  // picture whatever the real aspect ratio.
  static int blockSize(int largerSide);

  // Block type 1..5 of the n by n block at `block` (lines `stride` bytes apart), or 0 when
  // the strongest response is below `threshold`; ties go to the lower type.
  static int classifyBlock(const unsigned char* block, int stride, int n, int threshold);

  // Scans blocks of side `block` from y = 0 while y <= height - block and from x = 0 while
  // x <= width - block (unsigned, each at least once); block lines start y * stride bytes
  // into `data`. A block belongs to cell 4 * (4 y / height) + 4 x / width. Writes the 96
  // shares, float(type count / block count), to `bins`.
  // REQUIRES: block <= width and block <= height.
  static void scan(const unsigned char* data, int width, int stride, int height, int block,
                   int threshold, float* bins);

  int runCount;
  int cells;
  float bins[kCells * kBins];
  CImageBuffer edgeImage;
};

#endif  // ORVANE_IMAGING_CEDGEHISTOGRAM_H_
