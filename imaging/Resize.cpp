// The portable resize: separable interpolation through neighbouring samples, with source
// coordinates that make the first and last pixels of source and target coincide.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "imaging/ImagingOperations.h"
#include "imaging/PixelConstants.h"
#include "imaging/VectorKernels.h"
#include "vexl/Truncate.h"

namespace {

enum class Method { kNearest, kLinear, kCubic };

// Source pixels per target pixel along one axis. With scaled = size * factor: 0 when scaled
// is at most 1, else (size - 1) * (1 / (scaled - 1)), which aligns the corners. Nearest
// neighbour alone uses 1 / factor when the factor or its inverse is a whole number.
double axisStep(int size, double factor, Method method) {
  if (method == Method::kNearest) {
    const double inverse = 1.0 / factor;
    if (factor == std::floor(factor) || inverse == std::floor(inverse)) return 1.0 / factor;
  }
  const double scaled = size * factor;
  if (scaled <= 1.0) return 0.0;
  return (size - 1) * (1.0 / (scaled - 1.0));
}

// Fills the coordinate table of one axis: index[j] is the absolute source sample the
// interpolation is centred on, frac[j] the position relative to it. The position s is a
// running double sum of the step (summed, not multiplied); i = trunc(s + 1e-7) in region
// coordinates. Cubic: the last sample becomes i - 2 with t = 2, the first i + 1 and the one
// before last i - 1, so that samples i - 1 .. i + 2 stay inside; linear: the last sample
// becomes i - 1 with t = 1. Otherwise t = float(s - i).
void buildAxis(int origin, int size, int sourceSize, double factor, int outSize, Method method,
               int* index, float* frac) {
  const double step = axisStep(size, factor, method);
  const int last = sourceSize - 1;
  double s = 0.0;
  for (int j = 0; j < outSize; ++j, s += step) {
    // Guard only: the corner-aligned step cannot carry s past the last sample.
    int i = static_cast<int>(std::min<int64_t>(TruncateToInt64(s + kGuard) + origin, last));
    float t;
    if (method == Method::kCubic && i == last) {
      i -= 2;
      t = 2.0f;
    } else if (method == Method::kLinear && i == last) {
      i -= 1;
      t = 1.0f;
    } else {
      if (method == Method::kCubic) {
        if (i == 0) {
          i += 1;
        } else if (i == last - 1) {
          i -= 1;
        }
      }
      t = static_cast<float>(s - (i - origin));
    }
    index[j] = i;
    frac[j] = t;
  }
}

// Newton form of the cubic through samples at -1, 0, 1, 2, all in double:
//   a = 1 + t, b = a * t * 0.5, c = (t - 1) * b * 0.33333334
//   d1 = p1 - p0, d2 = (p2 - p1) - d1, d3 = p1 - 2 p2 + p3 - d2
//   result = p0 + d3 c + d2 b + d1 a   (added left to right)
// The horizontal pass keeps c in double; the vertical pass rounds it to a float.
struct CubicWeights {
  double a, b, c;
};

CubicWeights cubicWeights(float t) {
  const double a = 1.0 + t;
  const double b = a * t * 0.5;
  return {a, b, (t - 1.0) * b * kThird};
}

// Horizontal cubic pass of output pixels [from, outWidth); xFirst[x] is the byte offset of
// the first of the four samples of pixel x, and the weights are per sample.
template <int C>
void cubicRow(const unsigned char* row, const int* xFirst, const double* wa, const double* wb,
              const double* wc, int from, int outWidth, float* out) {
  for (int x = from; x < outWidth; ++x) {
    const unsigned char* p = row + xFirst[x];
    for (int k = 0; k < C; ++k) {
      const int e = x * C + k;
      const int p0 = p[k], p1 = p[k + C], p2 = p[k + 2 * C], p3 = p[k + 3 * C];
      const int d1 = p1 - p0;
      const int d2 = (p2 - p1) - d1;
      const int d3 = p1 - 2 * p2 + p3 - d2;
      out[e] = static_cast<float>(p0 + d3 * wc[e] + d2 * wb[e] + d1 * wa[e]);
    }
  }
}

// Linear horizontal pass: float(p0 + t (p1 - p0)) in double.
template <int C>
void linearRow(const unsigned char* row, const int* xIndex, const float* xFrac, int outWidth,
               float* out) {
  for (int x = 0; x < outWidth; ++x) {
    const unsigned char* p = row + static_cast<ptrdiff_t>(xIndex[x]) * C;
    const double t = xFrac[x];
    for (int k = 0; k < C; ++k) {
      out[x * C + k] = static_cast<float>(p[k] + t * (p[k + C] - p[k]));
    }
  }
}

// trunc(v + 1e-7) clamped to 0..255: no rounding to nearest.
unsigned char toByte(double v) {
  const int i = static_cast<int>(v + kGuard);
  return static_cast<unsigned char>(i < 0 ? 0 : (i > 255 ? 255 : i));
}

// Vertical cubic pass over the floats [from, n) of four stored lines.
void cubicColumns(const float* const* lines, int from, int n, double a, double b, double c,
                  unsigned char* dst) {
  const float *l0 = lines[0], *l1 = lines[1], *l2 = lines[2], *l3 = lines[3];
  for (int j = from; j < n; ++j) {
    const double p0 = l0[j], p1 = l1[j], p2 = l2[j], p3 = l3[j];
    const double d1 = p1 - p0;
    const double d2 = (p2 - p1) - d1;
    const double d3 = p1 - 2.0 * p2 + p3 - d2;
    dst[j] = toByte(p0 + d3 * c + d2 * b + d1 * a);
  }
}

void linearColumns(const float* const* lines, int n, float t, unsigned char* dst) {
  const double tt = t;
  const float *l0 = lines[0], *l1 = lines[1];
  for (int j = 0; j < n; ++j) {
    const double p0 = l0[j];
    dst[j] = toByte(p0 + tt * (l1[j] - p0));
  }
}

template <int C>
void nearestResize(const unsigned char* src, int srcStep, const int* xIndex, const int* yIndex,
                   int outWidth, int outHeight, unsigned char* dst, int dstStep) {
  for (int y = 0; y < outHeight; ++y) {
    const unsigned char* row = src + static_cast<ptrdiff_t>(yIndex[y]) * srcStep;
    unsigned char* out = dst + static_cast<ptrdiff_t>(y) * dstStep;
    for (int x = 0; x < outWidth; ++x) {
      for (int k = 0; k < C; ++k) out[x * C + k] = row[xIndex[x] * C + k];
    }
  }
}

// Entries behind each line buffer and weight table that a kernel may touch without using.
constexpr int kLinePadding = 8;

// Working memory of one resize, in one block: a coordinate table per axis, the horizontal
// cubic's first sample offsets and weights per output sample, and four rotating line buffers
// of outWidth * C floats, weights and lines each with padding behind.
struct Workspace {
  std::unique_ptr<double[]> block;
  double *wa, *wb, *wc;
  float *xFrac, *yFrac, *lines;
  int *xIndex, *yIndex, *xFirst;
  int32_t* packed;

  bool allocate(int outWidth, int outHeight, int channels) {
    const size_t samples = static_cast<size_t>(outWidth) * channels + kLinePadding;
    // Doubles first, then floats and ints, each part a whole number of doubles.
    const size_t floats = 4 * samples + outWidth + outHeight;
    const size_t ints = 2 * static_cast<size_t>(outWidth) + outHeight + samples;
    block.reset(new (std::nothrow) double[3 * samples + (floats + 1) / 2 + (ints + 1) / 2]);
    if (!block) return false;
    wa = block.get();
    wb = wa + samples;
    wc = wb + samples;
    lines = reinterpret_cast<float*>(wc + samples);
    xFrac = lines + 4 * samples;
    yFrac = xFrac + outWidth;
    xIndex = reinterpret_cast<int*>(reinterpret_cast<double*>(lines) + (floats + 1) / 2);
    yIndex = xIndex + outWidth;
    xFirst = yIndex + outHeight;
    packed = reinterpret_cast<int32_t*>(xFirst + outWidth);
    return true;
  }
};

// The horizontal cubic pass of one source line: the column's kernels take the leading pixels
// when there are any, the scalar code the rest.
template <int C>
void horizontalCubic(const unsigned char* row, const unsigned char* next, int srcWidth,
                     const Workspace& ws, int outWidth, const SVectorKernels* kernels, float* out) {
  int done = 0;
  if (kernels && C == 3) {
    done = kernels->cubicLine3(row, next, srcWidth * C, ws.xFirst, outWidth, ws.wa, ws.wb, ws.wc,
                               out);
  } else if (kernels) {
    done = kernels->packRow1(row, ws.xFirst, outWidth, ws.packed);
    kernels->cubicSamples(ws.packed, done, ws.wa, ws.wb, ws.wc, out);
  }
  cubicRow<C>(row, ws.xFirst, ws.wa, ws.wb, ws.wc, done, outWidth, out);
}

// The source line interpolated after `line`, or -1: lines are computed in rising order as the
// y table reaches them, each window of `count` lines starting at yIndex[y] + first.
int lineAfter(const int* yIndex, int outHeight, int y, int line, int first, int count) {
  for (; y < outHeight; ++y) {
    const int low = yIndex[y] + first;
    if (low + count - 1 > line) return low > line ? low : line + 1;
  }
  return -1;
}

template <int C>
int resizeC(const unsigned char* src, int srcWidth, int srcHeight, int srcStep, int rx, int ry,
            int rw, int rh, unsigned char* dst, int dstStep, int dstWidth, int dstHeight,
            double xFactor, double yFactor, int interpolation, const SVectorKernels* kernels) {
  if (src == nullptr || dst == nullptr) return kStsNullPtrErr;
  if (srcWidth < 1 || srcHeight < 1) return kStsSizeErr;
  if (srcStep < 1 || dstStep < 1) return kStsStepErr;
  if (rx < 0 || ry < 0 || rw < 1 || rh < 1 || dstWidth < 1 || dstHeight < 1) return kStsSizeErr;
  if (rx >= srcWidth || ry >= srcHeight) return kStsOutsideSource;
  if (!(xFactor > 0.0) || !(yFactor > 0.0)) return kStsResizeFactorErr;
  if (interpolation != kInterNearest && interpolation != kInterLinear &&
      interpolation != kInterCubic) {
    return kStsInterpolationErr;
  }

  Method method = interpolation == kInterCubic    ? Method::kCubic
                  : interpolation == kInterLinear ? Method::kLinear
                                                  : Method::kNearest;
  if (srcWidth < 2 || srcHeight < 2) {
    method = Method::kNearest;
  } else if ((srcWidth < 4 || srcHeight < 4) && method == Method::kCubic) {
    method = Method::kLinear;
  }

  if (rw > srcWidth - rx) rw = srcWidth - rx;
  if (rh > srcHeight - ry) rh = srcHeight - ry;

  // outWidth = trunc(rw * xFactor + 1e-7) limited to 1..dstWidth; likewise the height.
  int outWidth = static_cast<int>(TruncateToInt64(rw * xFactor + kGuard));
  int outHeight = static_cast<int>(TruncateToInt64(rh * yFactor + kGuard));
  outWidth = outWidth < 1 ? 1 : (outWidth > dstWidth ? dstWidth : outWidth);
  outHeight = outHeight < 1 ? 1 : (outHeight > dstHeight ? dstHeight : outHeight);

  Workspace ws;
  if (!ws.allocate(outWidth, outHeight, C)) return kStsMemAllocErr;
  buildAxis(rx, rw, srcWidth, xFactor, outWidth, method, ws.xIndex, ws.xFrac);
  buildAxis(ry, rh, srcHeight, yFactor, outHeight, method, ws.yIndex, ws.yFrac);

  if (method == Method::kNearest) {
    nearestResize<C>(src, srcStep, ws.xIndex, ws.yIndex, outWidth, outHeight, dst, dstStep);
    return kStsNoErr;
  }

  const bool cubic = method == Method::kCubic;
  if (cubic) {
    for (int x = 0; x < outWidth; ++x) {
      ws.xFirst[x] = (ws.xIndex[x] - 1) * C;
      const CubicWeights w = cubicWeights(ws.xFrac[x]);
      for (int k = 0; k < C; ++k) {
        ws.wa[x * C + k] = w.a;
        ws.wb[x * C + k] = w.b;
        ws.wc[x * C + k] = w.c;
      }
    }
  }
  // Source line l lives in buffer l % 4 and is interpolated when the y table first reaches
  // it; the table never goes back, so each line is computed at most once.
  const int lineFloats = outWidth * C;
  const int lineStride = lineFloats + kLinePadding;
  int held[4] = {-1, -1, -1, -1};
  const float* lines[4];
  const int first = cubic ? -1 : 0;
  const int count = cubic ? 4 : 2;
  // Samples more than 32 bytes apart come from a new cache line nearly every time: the kernel
  // then fetches the next line's samples ahead. Closer ones stream without help.
  const bool fetchAhead = kernels && srcWidth * C >= 32 * outWidth;
  for (int y = 0; y < outHeight; ++y) {
    for (int n = 0; n < count; ++n) {
      const int line = ws.yIndex[y] + first + n;
      float* buffer = ws.lines + static_cast<ptrdiff_t>(line & 3) * lineStride;
      if (held[line & 3] != line) {
        const unsigned char* row = src + static_cast<ptrdiff_t>(line) * srcStep;
        if (cubic) {
          const int next = fetchAhead ? lineAfter(ws.yIndex, outHeight, y, line, first, count) : -1;
          horizontalCubic<C>(row, next < 0 ? nullptr : src + static_cast<ptrdiff_t>(next) * srcStep,
                             srcWidth, ws, outWidth, kernels, buffer);
        } else {
          linearRow<C>(row, ws.xIndex, ws.xFrac, outWidth, buffer);
        }
        held[line & 3] = line;
      }
      lines[n] = buffer;
    }
    unsigned char* out = dst + static_cast<ptrdiff_t>(y) * dstStep;
    if (cubic) {
      // The vertical pass rounds c to a float.
      const CubicWeights w = cubicWeights(ws.yFrac[y]);
      const double c = static_cast<float>(w.c);
      const int done = kernels ? kernels->cubicColumns(lines, lineFloats, w.a, w.b, c, out) : 0;
      cubicColumns(lines, done, lineFloats, w.a, w.b, c, out);
    } else {
      linearColumns(lines, lineFloats, ws.yFrac[y], out);
    }
  }
  return kStsNoErr;
}

}  // namespace

template <int C, KernelsFn kernels>
int resizeWith(const unsigned char* src, int srcWidth, int srcHeight, int srcStep, int x, int y,
               int width, int height, unsigned char* dst, int dstStep, int dstWidth, int dstHeight,
               double xFactor, double yFactor, int interpolation) {
  return resizeC<C>(src, srcWidth, srcHeight, srcStep, x, y, width, height, dst, dstStep, dstWidth,
                    dstHeight, xFactor, yFactor, interpolation, kernels());
}

// Every column's resizes.
template ResizeSignature resizeWith<3, noKernels>;
template ResizeSignature resizeWith<1, noKernels>;
template ResizeSignature resizeWith<3, avx2Kernels>;
template ResizeSignature resizeWith<1, avx2Kernels>;
template ResizeSignature resizeWith<3, avx512Kernels>;
template ResizeSignature resizeWith<1, avx512Kernels>;
