#include "tools/orvane/PhotoDecoder.h"

#include <sys/stat.h>
#include <vips/vips8>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace {

// JPEG's DCT scaling decodes at 1/2, 1/4 or 1/8.
constexpr int kMaxLoadShrink = 8;

enum class Format { kJpeg, kWebp, kPng, kOther };

// From the loader's name that libvips leaves on the photo, "jpegload" and the like.
Format formatOf(const vips::VImage& image) {
  const std::string loader =
      image.get_typeof("vips-loader") != 0 ? image.get_string("vips-loader") : "";
  if (loader.rfind("jpeg", 0) == 0) return Format::kJpeg;
  if (loader.rfind("webp", 0) == 0) return Format::kWebp;
  if (loader.rfind("png", 0) == 0) return Format::kPng;
  return Format::kOther;
}

// The first line of a libvips error text, which can hold several lines.
std::string firstLine(const char* text) {
  std::string line(text);
  line = line.substr(0, line.find('\n'));
  return line.empty() ? "cannot be decoded" : line;
}

// What libvips said last, which it then forgets.
std::string vipsFailure() {
  std::unique_ptr<char, decltype(&g_free)> text(vips_error_buffer_copy(), &g_free);
  return firstLine(text ? text.get() : "");
}

// Why libvips found no loader for the file: the system's reason, or the file's content.
std::string notAPhotoReason(const std::string& path) {
  vips_error_clear();
  struct stat status;
  if (stat(path.c_str(), &status) != 0) return std::strerror(errno);
  if (status.st_size == 0) return "empty file";
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return std::strerror(errno);
  std::fclose(file);
  return "not a photo (no known image format)";
}

// Opened for one pass from top to bottom; a truncated or damaged photo is an error, not a
// grey bottom half.
vips::VImage open(const std::string& path, vips::VOption* options) {
  return vips::VImage::new_from_file(
      path.c_str(),
      options->set("access", VIPS_ACCESS_SEQUENTIAL)->set("fail_on", VIPS_FAIL_ON_ERROR));
}

// Pixels of a width by height photo decoded at 1/shrink, sides rounded up (never fewer than
// a decoder gives).
std::int64_t shrunkPixels(int width, int height, int shrink) {
  return static_cast<std::int64_t>((width + shrink - 1) / shrink) *
         ((height + shrink - 1) / shrink);
}

// The load-time shrink, a power of two up to kMaxLoadShrink: in fast mode the largest that
// keeps the longer side, longer / shrink rounded down as libvips gives it, at kFastLongerSide
// or more; and at least enough to fit the bound.
int loadShrink(int width, int height, DecodeMode mode) {
  const int longer = std::max(width, height);
  int shrink = 1;
  if (mode == DecodeMode::kFast) {
    while (shrink < kMaxLoadShrink && longer / (2 * shrink) >= kFastLongerSide) shrink *= 2;
  }
  while (shrink < kMaxLoadShrink && shrunkPixels(width, height, shrink) > kMaxDecodedPixels) {
    shrink *= 2;
  }
  return shrink;
}

// The smallest whole factor that brings the photo within the bound.
int boundShrink(int width, int height) {
  int shrink = 1;
  while (shrunkPixels(width, height, shrink) > kMaxDecodedPixels) ++shrink;
  return shrink;
}

// Red, green, blue to blue, green, red, count pixels.
void swapScalar(const unsigned char* rgb, unsigned char* bgr, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i, rgb += 3, bgr += 3) {
    const unsigned char red = rgb[0];
    bgr[1] = rgb[1];
    bgr[0] = rgb[2];
    bgr[2] = red;
  }
}

#if defined(__x86_64__) || defined(__i386__)
// The same, five pixels per 16-byte shuffle. Each step loads and stores 16 bytes, one more
// than its five pixels: the extra byte is rewritten by the next step, and the steps stop
// while 16 bytes are still there to read and write (6 pixels or more left).
__attribute__((target("ssse3"))) void swapSsse3(const unsigned char* rgb, unsigned char* bgr,
                                                std::size_t count) {
  const __m128i order = _mm_setr_epi8(2, 1, 0, 5, 4, 3, 8, 7, 6, 11, 10, 9, 14, 13, 12, 15);
  std::size_t i = 0;
  for (; i + 6 <= count; i += 5) {
    const __m128i pixels = _mm_loadu_si128(reinterpret_cast<const __m128i*>(rgb + 3 * i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(bgr + 3 * i), _mm_shuffle_epi8(pixels, order));
  }
  swapScalar(rgb + 3 * i, bgr + 3 * i, count - i);
}
#endif

void swapToBgr(const unsigned char* rgb, unsigned char* bgr, std::size_t count) {
#if defined(__x86_64__) || defined(__i386__)
  static const bool ssse3 = __builtin_cpu_supports("ssse3");
  if (ssse3) return swapSsse3(rgb, bgr, count);
#endif
  swapScalar(rgb, bgr, count);
}

// Called by libvips with each band of lines as it is decoded, top to bottom: the lines go
// into the photo's buffer with their channels swapped, the only copy.
int storeLines(VipsRegion* region, VipsRect* area, void* target) {
  SBgrPhoto& photo = *static_cast<SBgrPhoto*>(target);
  const std::size_t line = static_cast<std::size_t>(photo.width) * 3;
  for (int y = area->top; y < VIPS_RECT_BOTTOM(area); ++y) {
    swapToBgr(VIPS_REGION_ADDR(region, area->left, y), photo.pixels.data() + y * line,
              photo.width);
  }
  return 0;
}

// The loaded photo, at most kMaxDecodedPixels, not yet turned.
vips::VImage openWithinBounds(const std::string& path, DecodeMode mode, SBgrPhoto& photo) {
  vips::VImage image;
  try {
    image = open(path, vips::VImage::option());
  } catch (const vips::VError&) {
    if (vips_foreign_find_load(path.c_str()) == nullptr) throw CDecodeError(notAPhotoReason(path));
    throw;
  }
  photo.fileWidth = image.width();
  photo.fileHeight = image.height();
  const std::int64_t filePixels = static_cast<std::int64_t>(photo.fileWidth) * photo.fileHeight;
  const Format format = formatOf(image);
  const bool interlaced =
      image.get_typeof("interlaced") != 0 && image.get_int("interlaced") != 0;
  if (filePixels > kMaxDecodedPixels &&
      (interlaced || (format != Format::kJpeg && format != Format::kPng &&
                      format != Format::kWebp))) {
    // Such decoders hold the whole photo whatever the scale asked for.
    throw CDecodeError(std::to_string(photo.fileWidth) + " x " + std::to_string(photo.fileHeight) +
                       " pixels, more than " + std::to_string(kMaxDecodedPixels / 1'000'000) +
                       " megapixels, in a " + (interlaced ? "progressive or interlaced " : "") +
                       "format that cannot be decoded at a reduced scale");
  }
  int shrink = 1;
  if (format == Format::kJpeg || format == Format::kWebp) {
    shrink = loadShrink(photo.fileWidth, photo.fileHeight, mode);
    if (shrink > 1) {
      image = format == Format::kJpeg
                  ? open(path, vips::VImage::option()->set("shrink", shrink))
                  : open(path, vips::VImage::option()->set("scale", 1.0 / shrink));
    }
  }
  const int rest = boundShrink(image.width(), image.height());
  // Whole factors, line by line: memory holds a few lines of the file, not the photo.
  if (rest > 1) image = image.shrink(rest, rest);
  photo.bounded = rest > 1 || (shrink > 1 && shrunkPixels(photo.fileWidth, photo.fileHeight,
                                                          shrink / 2) > kMaxDecodedPixels);
  return image;
}

}  // namespace

const char* decodeModeName(DecodeMode mode) { return mode == DecodeMode::kFast ? "fast" : "full"; }

bool decodeModeFromName(const std::string& name, DecodeMode* mode) {
  for (DecodeMode known : {DecodeMode::kFull, DecodeMode::kFast}) {
    if (name == decodeModeName(known)) {
      *mode = known;
      return true;
    }
  }
  return false;
}

CDecoderSession::CDecoderSession(const char* programName) {
  if (VIPS_INIT(programName) != 0) throw CDecodeError(vipsFailure());
  // Parallelism comes from the tool's own workers, one photo each; libvips's own threads
  // would only compete with them. Decoded photos are not looked at twice: no cache.
  vips_concurrency_set(1);
  vips_cache_set_max(0);
}

CDecoderSession::~CDecoderSession() { vips_shutdown(); }

void decodePhoto(const std::string& path, DecodeMode mode, SBgrPhoto& photo) {
  try {
    vips::VImage image = openWithinBounds(path, mode, photo);
    const int orientation =
        image.get_typeof("orientation") != 0 ? image.get_int("orientation") : 1;
    image = image.colourspace(VIPS_INTERPRETATION_sRGB);
    if (image.has_alpha()) {
      image = image.flatten(
          vips::VImage::option()->set("background", std::vector<double>{255.0, 255.0, 255.0}));
    }
    if (image.bands() > 3) image = image.extract_band(0, vips::VImage::option()->set("n", 3));
    if (image.format() != VIPS_FORMAT_UCHAR) image = image.cast(VIPS_FORMAT_UCHAR);
    // Turning needs the lines out of order, which a single pass cannot give: the photo is
    // held once in memory and turned from there.
    if (orientation >= 2 && orientation <= 8) image = image.copy_memory().autorot();

    photo.width = image.width();
    photo.height = image.height();
    photo.pixels.resize(static_cast<std::size_t>(photo.width) * photo.height * 3);
    if (vips_sink_disc(image.get_image(), storeLines, &photo) != 0) {
      throw CDecodeError(vipsFailure());
    }
  } catch (const vips::VError& e) {
    vips_error_clear();
    throw CDecodeError(firstLine(e.what()));
  }
}

void endDecoderThread() { vips_thread_shutdown(); }
