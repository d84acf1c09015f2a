#include "tools/orvane/PhotoDecoder.h"

#include <vips/vips8>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>

namespace {

// The first line of a libvips error text, which can hold several lines.
std::string firstLine(const char* text) {
  std::string line(text);
  line = line.substr(0, line.find('\n'));
  return line.empty() ? "cannot be decoded" : line;
}

std::vector<char> readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw CDecodeError(std::strerror(errno));
  std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) throw CDecodeError(std::strerror(errno));
  if (bytes.empty()) throw CDecodeError("empty file");
  return bytes;
}

SBgrPhoto toBgr(vips::VImage image) {
  image = image.autorot();
  image = image.colourspace(VIPS_INTERPRETATION_sRGB);
  if (image.has_alpha()) {
    image = image.flatten(vips::VImage::option()->set("background", std::vector<double>{255.0, 255.0, 255.0}));
  }
  if (image.bands() > 3) image = image.extract_band(0, vips::VImage::option()->set("n", 3));
  if (image.format() != VIPS_FORMAT_UCHAR) image = image.cast(VIPS_FORMAT_UCHAR);

  size_t size = 0;
  std::unique_ptr<unsigned char, decltype(&g_free)> rgb(
      static_cast<unsigned char*>(image.write_to_memory(&size)), &g_free);
  SBgrPhoto photo;
  photo.width = image.width();
  photo.height = image.height();
  photo.pixels.resize(size);
  for (size_t i = 0; i + 2 < size; i += 3) {
    photo.pixels[i] = rgb.get()[i + 2];
    photo.pixels[i + 1] = rgb.get()[i + 1];
    photo.pixels[i + 2] = rgb.get()[i];
  }
  return photo;
}

}  // namespace

CDecoderSession::CDecoderSession(const char* programName) {
  if (VIPS_INIT(programName) != 0) throw CDecodeError(firstLine(vips_error_buffer()));
  // Parallelism comes from the tool's own workers, one photo each; libvips's own threads
  // would only compete with them. Decoded photos are not looked at twice: no cache.
  vips_concurrency_set(1);
  vips_cache_set_max(0);
}

CDecoderSession::~CDecoderSession() { vips_shutdown(); }

SBgrPhoto decodePhoto(const std::string& path) {
  const std::vector<char> bytes = readFile(path);
  if (vips_foreign_find_load_buffer(bytes.data(), bytes.size()) == nullptr) {
    vips_error_clear();
    throw CDecodeError("not a photo (no known image format)");
  }
  try {
    // fail_on=error: a truncated or damaged photo is an error, not a grey bottom half.
    return toBgr(vips::VImage::new_from_buffer(bytes.data(), bytes.size(), "[fail_on=error]"));
  } catch (const vips::VError& e) {
    throw CDecodeError(firstLine(e.what()));
  }
}

void endDecoderThread() { vips_thread_shutdown(); }
