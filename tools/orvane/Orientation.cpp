#include "tools/orvane/Orientation.h"

#include <algorithm>
#include <cstring>

SOrientation SOrientation::inverse() const {
  // A mirror turned either way is its own inverse; a plain turn goes back the other way.
  return mirrored ? *this : SOrientation{false, (4 - quarterTurns) % 4};
}

std::string SOrientation::name() const {
  if (!mirrored && quarterTurns == 0) return "as is";
  std::string text = mirrored ? "mirrored" : "";
  if (quarterTurns != 0) {
    text += (mirrored ? ", turned " : "turned ") + std::to_string(90 * quarterTurns);
  }
  return text;
}

SOrientation orientationNumber(int i) { return {i >= 4, i % 4}; }

void orientPhoto(const SBgrPhoto& photo, const SOrientation& orientation, SBgrPhoto* out) {
  const int w = photo.width;
  const int h = photo.height;
  const bool across = orientation.quarterTurns % 2 == 1;
  out->width = across ? h : w;
  out->height = across ? w : h;
  out->pixels.resize(3 * static_cast<std::size_t>(w) * h);
  // Output pixel (X, Y) comes from source pixel (sx, sy), for turns k of 0 to 3:
  //   k 0: (X, Y)   k 1: (Y, h-1-X)   k 2: (w-1-X, h-1-Y)   k 3: (w-1-Y, X)
  // and a mirror then replaces sx by w-1-sx. Along an output line the source moves by a
  // fixed step: a pixel for even k, a line for odd k.
  const long pixel = 3;
  const long line = 3L * w;
  // Per k: the step along an output line, the step from line to line, and the source offset
  // of output pixel (0, 0).
  const long layouts[4][3] = {{pixel, line, 0},
                              {-line, pixel, (h - 1) * line},
                              {-pixel, -line, (h - 1) * line + (w - 1) * pixel},
                              {line, -pixel, (w - 1) * pixel}};
  long stepX = layouts[orientation.quarterTurns][0];
  long stepY = layouts[orientation.quarterTurns][1];
  long origin = layouts[orientation.quarterTurns][2];
  if (orientation.mirrored) {
    // sx becomes w-1-sx: the x part of the origin flips, and so does the pixel step.
    const long sx = (origin % line) / pixel;
    origin += (w - 1 - 2 * sx) * pixel;
    (across ? stepY : stepX) *= -1;
  }
  // Bands of output lines, so that a turn reads neighbouring source pixels together.
  constexpr int kBand = 16;
  const unsigned char* source = photo.pixels.data();
  unsigned char* target = out->pixels.data();
  const int outW = out->width;
  const int outH = out->height;
  for (int top = 0; top < outH; top += kBand) {
    const int bottom = std::min(outH, top + kBand);
    for (int x = 0; x < outW; ++x) {
      for (int y = top; y < bottom; ++y) {
        std::memcpy(target + (static_cast<long>(y) * outW + x) * 3,
                    source + origin + y * stepY + x * stepX, 3);
      }
    }
  }
}
