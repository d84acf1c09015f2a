// Fixed failure texts of the image analysis. They reach the host unchanged and are part of the
// interface, so they live here, once.
#ifndef ORVANE_IMAGING_IMAGINGERRORS_H_
#define ORVANE_IMAGING_IMAGINGERRORS_H_

// Thrown as a plain C string when an image buffer cannot be allocated.
constexpr const char* kOutOfMemory = "Out of Memory";

// Thrown as std::string by CExtractorEngine::run.
constexpr const char* kErrorPreprocessing = "Error preprocessing";
constexpr const char* kErrorExtracting = "Error extracting";
constexpr const char* kUnknownError = "Unknown Error";
constexpr const char* kAudioSignNotValid = "AudioSign not valid";

// Written to standard output, followed by the failing status, when a resize fails.
constexpr const char* kResizingFailedLine = "Error Preprocessing: 1. resizing";
constexpr const char* kShorterSideFailedLine = "IppiUtils_ResizeToFixedShorterSide(..):";

#endif  // ORVANE_IMAGING_IMAGINGERRORS_H_
