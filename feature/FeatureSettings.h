// Helpers of the feature classes that own settings: each takes its values out of the
// parameter maps after a read, failing with the layer's fixed texts.
#ifndef ORVANE_FEATURE_FEATURESETTINGS_H_
#define ORVANE_FEATURE_FEATURESETTINGS_H_

#include <cstdint>
#include <string>

#include "feature/CFeatureObject.h"
#include "feature/FeatureObjException.h"

// Fails with "feature name mismatch" unless the object is called name.
inline void RequireFeatureName(const CFeatureObject<float>& object, const char* name) {
  if (object.m_name != name) throw FeatureObjException(kFeatureNameMismatch);
}

// Takes the unsigned parameter name out of the object's maps; fails with "missing parameter: "
// and the name when it is not there.
inline uint32_t TakeUnsignedParameter(CFeatureObject<float>& object, const char* name) {
  uint32_t value = 0;
  if (!object.GetParameter(&value, name, true)) {
    throw FeatureObjException(std::string(kMissingParameter) + name);
  }
  return value;
}

#endif  // ORVANE_FEATURE_FEATURESETTINGS_H_
