// SFeatureBuffers: the float vectors of one extraction run.
//
// Each array holds the tile values of its feature first, then room for the grid means that the
// extractor adds when means are enabled. Cleared once when the engine is created and not
// between runs: a run overwrites what it computes.
#ifndef ORVANE_IMAGING_SFEATUREBUFFERS_H_
#define ORVANE_IMAGING_SFEATUREBUFFERS_H_

struct SFeatureBuffers {
  static const int kEdgValues = 96;   // 4 x 4 cells, 6 bins
  static const int kHueValues = 144;  // 3 x 3 tiles, 16 bins
  static const int kSatValues = 36;   // 3 x 3 tiles, 4 bins
  static const int kValValues = 36;   // 3 x 3 tiles, 4 bins

  float edg[192];  // 96 values, then 96 means
  float hue[256];  // 144 values, then 112 means
  float sat[64];   // 36 values, then 28 means
  float val[64];   // 36 values, then 28 means
};

#endif  // ORVANE_IMAGING_SFEATUREBUFFERS_H_
