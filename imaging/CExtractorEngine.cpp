#include "imaging/CExtractorEngine.h"

#include <string>

#include "imaging/CDescriptorExtractor.h"
#include "imaging/CImageBuffer.h"
#include "imaging/CPreprocessor.h"
#include "imaging/CSignatureBuilder.h"
#include "imaging/ImagingErrors.h"
#include "imaging/ImagingOperations.h"

CExtractorEngine::CExtractorEngine(int height, int width) : buffers() {
  // The portable column is always complete, so the selection cannot fail.
  selectProcessor();
  input.reset(new CImageBuffer);
  working.reset(new CImageBuffer);
  working->create(height, width, 3, 8, 0, 2);
  preprocessor.reset(new CPreprocessor(height, width));
  descriptors.reset(new CDescriptorExtractor(height, width, false));
  builder.reset(new CSignatureBuilder);
}

CExtractorEngine::~CExtractorEngine() = default;

CAudioSignMulti& CExtractorEngine::run(const unsigned char* pixels, int width, int height,
                                       int lineStep) {
  // The caller's pixels are only read: the preprocessor resizes out of them.
  input->attach(height, width, 3, 8, 0, lineStep, const_cast<unsigned char*>(pixels), width, height,
                -1, -1, -1, -1, 2);
  if (preprocessor->run(*input, *working) == -1) throw std::string(kErrorPreprocessing);
  if (descriptors->run(*working, buffers) == -1) throw std::string(kErrorExtracting);
  try {
    return builder->build(buffers);
  } catch (const std::string& text) {
    throw text;
  } catch (...) {
    throw std::string(kUnknownError);
  }
}
