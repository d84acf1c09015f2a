// Photo decoding with libvips: a photo file becomes 8-bit blue, green, red pixels, turned
// upright by its EXIF orientation, as the orvane library takes them.
//
// Whatever the file holds (grey, 16-bit, CMYK, an alpha channel over white) ends as three
// 8-bit channels. A damaged or truncated file is refused rather than decoded in part.
// The file is read once, in order, and its pixels go from the decoder into the photo's buffer
// in one pass; only a photo that its orientation turns is held once more, to be turned.
//
// Memory is bounded whatever the file says: a photo of more than kMaxDecodedPixels pixels is
// decoded at a reduced scale, line by line, so that what is kept stays within the bound; one
// whose format cannot be decoded line by line (interlaced PNG, progressive JPEG, others) is
// refused at that size. decodePhoto may run on several threads at once.
#ifndef ORVANE_TOOLS_PHOTODECODER_H_
#define ORVANE_TOOLS_PHOTODECODER_H_

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

// kFull decodes every pixel; kFast lets the decoder skip detail (the DCT scaling of JPEG, the
// scaled decoding of WebP) while the longer side stays at least kFastLongerSide.
enum class DecodeMode { kFull, kFast };

constexpr std::int64_t kMaxDecodedPixels = 100'000'000;
constexpr int kFastLongerSide = 1024;

// How a library names the mode, "full" or "fast"; false for another text.
const char* decodeModeName(DecodeMode mode);
bool decodeModeFromName(const std::string& name, DecodeMode* mode);

struct SBgrPhoto {
  int width = 0;
  int height = 0;
  // Lines of width * 3 bytes, no padding. The vector keeps its room from one photo to the
  // next, so that a worker does not fault in fresh pages for every photo.
  std::vector<unsigned char> pixels;
  // Size in the file, and whether the pixel bound made the decoded photo smaller.
  int fileWidth = 0;
  int fileHeight = 0;
  bool bounded = false;
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

// Decodes the file into photo, reusing its buffer.
void decodePhoto(const std::string& path, DecodeMode mode, SBgrPhoto& photo);

// Frees the per-thread state of libvips; a worker thread that decoded calls it before it ends.
void endDecoderThread();

#endif  // ORVANE_TOOLS_PHOTODECODER_H_
