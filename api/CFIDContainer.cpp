// The exported container: a thin owner of one signature. Every failure below is turned
// into an FID_Exception with a fixed text at this boundary.
#include "orvane.h"

#include <istream>
#include <ostream>

#include "api/ExportedFailures.h"
#include "signature/CAudioSignMulti.h"
#include "signature/CSignDataMulti.h"

namespace {
constexpr char kLibraryVersion[] = "Orvane.dll 0.2 000";
constexpr int kVersionBufferSize = 256;
}  // namespace

CFIDContainer::CFIDContainer() : sign(new CAudioSignMulti()) {}

// The version text is scratch space of the object it belongs to: never copied.
CFIDContainer::CFIDContainer(const CFIDContainer& other)
    : sign(new CAudioSignMulti(*other.sign)) {}

CFIDContainer& CFIDContainer::operator=(const CFIDContainer& other) {
  if (this != &other) {
    delete sign;
    sign = new CAudioSignMulti(*other.sign);
  }
  return *this;
}

CFIDContainer::~CFIDContainer() { delete sign; }

int CFIDContainer::write(std::ostream& out) const {
  if (!sign->hasData()) throw FID_Exception("FID Container not init");
  try {
    sign->write(out);
  } catch (...) {
    rethrowSignatureFailureAsFIDException();
  }
  return 0;
}

std::istream& CFIDContainer::read(std::istream& in) {
  // A failed read leaves the container without data.
  sign->clearData();
  try {
    sign->read(in, nullptr);
  } catch (...) {
    rethrowSignatureFailureAsFIDException();
  }
  return in;
}

const std::string& CFIDContainer::getFeatureVersion() {
  if (!sign->hasData()) throw FID_Exception("FID Container is empty");
  try {
    char version[kVersionBufferSize];
    sign->getData()->getMeta("VER", version, kVersionBufferSize);
    versionText = version;
  } catch (...) {
    throw FID_Exception(kUnknownError);
  }
  return versionText;
}

const std::string& CFIDContainer::getLibraryVersion() {
  static const std::string version(kLibraryVersion);
  return version;
}
