// FeatureObjException: the failure of the feature layer. Its message is always the prefix
// "CFeatureObject: " followed by one of the fixed detail texts below, which are the layer's
// only failure texts (the quantiser constructors' texts are thrown as plain strings).
#ifndef ORVANE_FEATURE_FEATUREOBJEXCEPTION_H_
#define ORVANE_FEATURE_FEATUREOBJEXCEPTION_H_

#include <exception>
#include <string>

class FeatureObjException : public std::exception {
 public:
  explicit FeatureObjException(const std::string& detail);
  ~FeatureObjException() override;

  const char* what() const noexcept override;

  std::string m_message;
};

inline constexpr char kUnsupportedStreamVersion[] = "unsupported stream version";
inline constexpr char kUnsupportedParameterMap[] = "unsupported type of parameter map";
inline constexpr char kUnsupportedSubTag[] = "unsupported sub tag in stream";
inline constexpr char kFormatError[] = "format error in input stream";
inline constexpr char kFeatureTypeMismatch[] = "feature type mismatch";
inline constexpr char kConversionNeedsQuantizer[] =
    "feature type conversion requieres a quantizer";
inline constexpr char kUnknownQuantizer[] = "unknown type of quantizer found";
inline constexpr char kStreamBufferOverflow[] = "stream buffer overflow";
inline constexpr char kExcerptSkip[] = "not enough data to create excerpt (skip)";
inline constexpr char kExcerptDuration[] = "not enough data to create excerpt (duration)";
inline constexpr char kDifferentSettings[] = "different settings, cannot append feature object";
// Of the feature map, and of a signature that has no feature to stream.
inline constexpr char kUnsupportedFeatureType[] = "unsupported feature object type";
inline constexpr char kInvalidFeatureObject[] = "feature object is invalid";
inline constexpr char kFeatureMapEmpty[] = "feature map is empty";
inline constexpr char kNoFeatureToStream[] = "no feature object to stream";

// Settings of the SFM and ASE features.
inline constexpr char kFeatureNameMismatch[] = "feature name mismatch";
inline constexpr char kMissingParameter[] = "missing parameter: ";
inline constexpr char kSfmInvalidRange[] = "invalid frequency range for MP7-SFM";
inline constexpr char kSfmOverlap[] = "attempt to write signature with overlap";
inline constexpr char kSfmInconsistentSetting[] = "inconsistent setting (m_msPerRow<->m_tempRes)";

// Thrown by the polynomial quantiser's constructor as plain std::string values.
inline constexpr char kRisingNegative[] = "rising must be greater or equal zero";
inline constexpr char kPolynomialNotRising[] =
    "polynomial doesn't rise in all points between 0 and 1";

#endif  // ORVANE_FEATURE_FEATUREOBJEXCEPTION_H_
