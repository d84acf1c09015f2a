// CExtractorEngine: the road from a caller's blue, green, red pixels to the signature of a
// photo.
//
// The engine owns every working image, allocated once at creation; a run allocates no image
// memory except the resize's small working memory and, for photos whose shorter side comes
// out below 70 after fitting, the enlarged edge image (kept for the next such photo). Runs
// are deterministic: all working images start zero-filled. A run's result can depend on the
// photos before it only through the enlargement path of flat photos, which reads the whole
// gray buffer, and that path fails on the first photo of a new engine.
//
// One run at a time per engine.
#ifndef ORVANE_IMAGING_CEXTRACTORENGINE_H_
#define ORVANE_IMAGING_CEXTRACTORENGINE_H_

#include <memory>

#include "imaging/SFeatureBuffers.h"

class CAudioSignMulti;
class CDescriptorExtractor;
class CImageBuffer;
class CPreprocessor;
class CSignatureBuilder;

class CExtractorEngine {
 public:
  // Fills the imaging call slots and creates the working images of height by width.
  // Throws the C string "Out of Memory" when an image cannot be allocated.
  CExtractorEngine(int height, int width);
  ~CExtractorEngine();
  CExtractorEngine(const CExtractorEngine&) = delete;
  CExtractorEngine& operator=(const CExtractorEngine&) = delete;

  // Computes the four vectors of the photo into `buffers` and returns the builder's
  // signature holding them; the engine owns it and the next run overwrites it. `pixels` are
  // read in place and never written. Throws std::string: "Error preprocessing" when fitting
  // fails (null pixels, a size or line step below 1, or a side that shrinks to 0), "Error
  // extracting" when the analysis fails, a text of the builder, or "Unknown Error" for any
  // other failure of the builder.
  CAudioSignMulti& run(const unsigned char* pixels, int width, int height, int lineStep);

  std::unique_ptr<CImageBuffer> input;
  std::unique_ptr<CImageBuffer> working;
  std::unique_ptr<CDescriptorExtractor> descriptors;
  std::unique_ptr<CPreprocessor> preprocessor;
  std::unique_ptr<CSignatureBuilder> builder;
  SFeatureBuffers buffers;
};

#endif  // ORVANE_IMAGING_CEXTRACTORENGINE_H_
