// Photo decoding with libvips: a photo file becomes 8-bit blue, green, red pixels, turned
// upright by its EXIF orientation, as the orvane library takes them.
//
// Whatever the file holds (grey, 16-bit, CMYK, an alpha channel over white) ends as three
// 8-bit channels. A damaged or truncated file is refused rather than decoded in part.
// decodePhoto may run on several threads at once.
#ifndef ORVANE_TOOLS_PHOTODECODER_H_
#define ORVANE_TOOLS_PHOTODECODER_H_

#include <stdexcept>
#include <string>
#include <vector>

struct SBgrPhoto {
  int width = 0;
  int height = 0;
  std::vector<unsigned char> pixels;  // lines of width * 3 bytes, no padding
};

// Thrown with the reason a file could not be decoded.
class CDecodeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Starts libvips for the life of the object; decodePhoto needs one to exist.
class CDecoderSession {
 public:
  explicit CDecoderSession(const char* programName);
  ~CDecoderSession();
  CDecoderSession(const CDecoderSession&) = delete;
  CDecoderSession& operator=(const CDecoderSession&) = delete;
};

SBgrPhoto decodePhoto(const std::string& path);

// Frees the per-thread state of libvips; a worker thread that decoded calls it before it ends.
void endDecoderThread();

#endif  // ORVANE_TOOLS_PHOTODECODER_H_
