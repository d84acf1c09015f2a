#include "imaging/CImageBuffer.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <tuple>

#include "imaging/ImagingErrors.h"

namespace {

// (bytes + 3) rounded down to a multiple of 4, in 64 bits so that no size can overflow.
int64_t roundUpTo4(int64_t bytes) { return (bytes + 3) / 4 * 4; }

}  // namespace

CImageBuffer::CImageBuffer()
    : kind(0),
      width(0),
      height(0),
      lineStep(0),
      byteSize(0),
      channels(0),
      planar(0),
      roiWidth(0),
      roiHeight(0),
      rectX(0),
      rectY(0),
      rectWidth(0),
      rectHeight(0),
      data(nullptr),
      depth(0),
      borrowed(0) {}

CImageBuffer::~CImageBuffer() { release(); }

void CImageBuffer::create(int height_, int width_, int channels_, int depth_, unsigned char planar_,
                          int kind_) {
  if (!borrowed) delete[] data;
  data = nullptr;
  borrowed = 0;
  width = rectWidth = roiWidth = width_;
  height = rectHeight = roiHeight = height_;
  rectX = rectY = 0;
  std::tie(channels, depth, planar, kind) = std::tie(channels_, depth_, planar_, kind_);

  const int64_t bytes = (depth_ & 255) >> 3;
  int64_t step;
  int64_t size;
  if (planar_) {
    step = roundUpTo4(bytes * width_);
    size = int64_t{height_} * step * channels_;
  } else {
    const int64_t sampleBytes = (depth_ & kDoubleSampleBit) ? 2 * bytes : bytes;
    step = roundUpTo4(sampleBytes * channels_ * width_);
    size = step * height_;
  }
  // A size that does not fit the int fields cannot be had either.
  if (step < 0 || size < 0 || size > std::numeric_limits<int>::max()) throw kOutOfMemory;
  lineStep = static_cast<int>(step);
  byteSize = static_cast<int>(size);
  data = new (std::nothrow) unsigned char[static_cast<size_t>(size)]();
  if (data == nullptr) throw kOutOfMemory;
}

void CImageBuffer::attach(int height_, int width_, int channels_, int depth_, unsigned char planar_,
                          int lineStep_, unsigned char* data_, int roiWidth_, int roiHeight_,
                          int rectX_, int rectY_, int rectWidth_, int rectHeight_, int kind_) {
  release();
  std::tie(height, width, channels, depth, planar, kind, lineStep) =
      std::tie(height_, width_, channels_, depth_, planar_, kind_, lineStep_);
  std::tie(roiWidth, roiHeight, rectX, rectY, rectWidth, rectHeight) =
      std::tie(roiWidth_, roiHeight_, rectX_, rectY_, rectWidth_, rectHeight_);
  // Nothing reads the size of a borrowed image; wrap instead of overflowing on odd callers.
  byteSize = static_cast<int>(static_cast<uint32_t>(height_) * static_cast<uint32_t>(lineStep_));
  data = data_;
  borrowed = 1;
}

void CImageBuffer::resizeIfNeeded(int height_, int width_) {
  if (height_ == height && width_ == width) return;
  const int keptChannels = channels;
  const int keptDepth = depth;
  const unsigned char keptPlanar = planar;
  release();
  create(height_, width_, keptChannels, keptDepth, keptPlanar, 2);
}

void CImageBuffer::release() {
  if (data != nullptr && !borrowed) delete[] data;
  // Forgetting a borrowed pointer too leaves a truly empty record behind.
  data = nullptr;
  borrowed = 0;
  byteSize = 0;
  width = height = lineStep = channels = 0;
  planar = 0;
  depth = 0;
  roiWidth = roiHeight = 0;
  rectX = rectY = rectWidth = rectHeight = 0;
  kind = 2;
}
