// The exported extractor: one engine with its working images, and the container that
// every extract overwrites.
#include "orvane.h"

#include <istream>

#include "api/ExportedFailures.h"
#include "imaging/CExtractorEngine.h"
#include "signature/CAudioSignMulti.h"

namespace {
constexpr int kWorkingSize = 256;
}  // namespace

CFIDExtractor::CFIDExtractor(int databaseType)
    : type(0), container(nullptr), unused(0), engine(nullptr) {
  checkDatabaseType(databaseType);
  type = 1;
  container = new CFIDContainer();
  try {
    engine = new CExtractorEngine(kWorkingSize, kWorkingSize);
  } catch (...) {
    delete container;
    rethrowAsFIDException();
  }
}

// An extractor cannot be copied. The copy is left without container or engine, so that
// destroying it is harmless and extract answers "Not yet implemented".
CFIDExtractor::CFIDExtractor(const CFIDExtractor&)
    : type(0), container(nullptr), unused(0), engine(nullptr) {}

CFIDExtractor& CFIDExtractor::operator=(const CFIDExtractor&) { return *this; }

CFIDExtractor::~CFIDExtractor() {
  delete container;
  if (type == 1) delete engine;
}

const CFIDContainer& CFIDExtractor::extract(const unsigned char* pixels, int width, int height,
                                            int lineStep, int, int) {
  if (type != 1) throw FID_Exception(kNotYetImplemented);
  try {
    // The engine's signature is refilled by every run: the container takes a deep copy.
    *container->sign = engine->run(pixels, width, height, lineStep);
  } catch (...) {
    rethrowSignatureFailureAsFIDException();
  }
  return *container;
}

const CFIDContainer& CFIDExtractor::extract(unsigned char* pixels, int width, int height,
                                            int lineStep, int reserved1, int reserved2) {
  return extract(static_cast<const unsigned char*>(pixels), width, height, lineStep, reserved1,
                 reserved2);
}

const CFIDContainer& CFIDExtractor::extract(std::istream&) {
  throw FID_Exception(kNotYetImplemented);
}
