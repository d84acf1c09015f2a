// CDescriptorExtractor: computes the four feature vectors of the photo in the working image.
//
// From the region of the red, green, blue working image it makes the gray image and runs the
// edge histogram (96 values), then makes the HSV image and runs the hue, saturation and value
// tile histograms (144, 36, 36 values). The gray and HSV images are allocated once and only
// their regions are overwritten; what lies outside stays from earlier photos, which the
// enlargement of flat photos reads (see IppiUtils.h).
#ifndef ORVANE_IMAGING_CDESCRIPTOREXTRACTOR_H_
#define ORVANE_IMAGING_CDESCRIPTOREXTRACTOR_H_

#include <memory>

class CEdgeHistogram;
class CImageBuffer;
class CTileHistogram;
struct SFeatureBuffers;

class CDescriptorExtractor {
 public:
  // Working images of height by width. With `meansEnabled`, each feature is followed in its
  // buffer by its grid means.
  CDescriptorExtractor(int height, int width, bool meansEnabled);
  ~CDescriptorExtractor();
  CDescriptorExtractor(const CDescriptorExtractor&) = delete;
  CDescriptorExtractor& operator=(const CDescriptorExtractor&) = delete;

  // Returns 0, or -1 when a conversion or histogram fails.
  int run(const CImageBuffer& working, SFeatureBuffers& buffers);

  std::unique_ptr<CImageBuffer> gray;
  std::unique_ptr<CImageBuffer> hsv;
  std::unique_ptr<CEdgeHistogram> edge;
  std::unique_ptr<CTileHistogram> hueHistogram;
  std::unique_ptr<CTileHistogram> satHistogram;
  std::unique_ptr<CTileHistogram> valHistogram;
  int imageHeight;
  int imageWidth;
  bool meansEnabled;
};

#endif  // ORVANE_IMAGING_CDESCRIPTOREXTRACTOR_H_
