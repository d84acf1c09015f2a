// The inner loops of the vectorised imaging columns, for processors with AVX2 and, wider, with
// AVX-512F, AVX-512BW and AVX-512 VNNI.
//
// Each kernel does the part of one line that whole vectors cover and says where it stopped;
// the scalar code of the portable column finishes the line. Lanes are independent pixels (or
// samples), each computed with the scalar code's operations in the scalar code's order:
// integer steps are exact, and every double step rounds exactly as the scalar one (no fused
// multiply-add, no reassociation), so every column gives the same bits.
//
// Only these kernels use instructions beyond baseline x86-64; they carry their target on each
// function, so the rest of the library runs on any x86-64 processor.
// REQUIRES: the processor supports the kernels' instructions (ImagingOperations checks before
// it uses them).
#ifndef ORVANE_IMAGING_VECTORKERNELS_H_
#define ORVANE_IMAGING_VECTORKERNELS_H_

#include <cstdint>

// Most levels per channel that the histogram kernel counts against.
constexpr int kMaxHistogramLevels = 32;

struct SVectorKernels {
  // Pixels [0, returned) of one 3-channel line: new[k] = old[order[k]].
  int (*swapLine)(unsigned char* line, int width, const int order[3]);
  // Pixels [0, returned) of one line: r, g, b bytes to gray, or to h, s, v bytes.
  int (*grayLine)(const unsigned char* src, unsigned char* dst, int width);
  int (*hsvLine)(const unsigned char* src, unsigned char* dst, int width);
  // For the pixels [0, returned) of every line of a 3-channel region: above[k] = the number of
  // samples of channel `channel` that are at least levels[k], for k < count. A level outside
  // 1..255 is not counted (above stays 0); the caller knows those answers.
  int (*countAtLeast)(const unsigned char* src, int srcStep, int width, int height, int channel,
                      const int levels[kMaxHistogramLevels], int count,
                      long long above[kMaxHistogramLevels]);
  // Horizontal cubic pass of one source line with 3 channels: out[e] = float(p0 + d3 c + d2 b +
  // d1 a) in double, left to right, for the samples of output pixels [0, returned), with the
  // weights wa, wb, wc of each sample. The neighbours of pixel x start xFirst[x] bytes into the
  // line; `srcBytes` bytes of it may be read. `next`, when not null, is the source line that
  // comes next: its samples are fetched into the cache meanwhile. The weights and out reach up
  // to 7 entries beyond the samples done, which nobody uses.
  int (*cubicLine3)(const unsigned char* row, const unsigned char* next, int srcBytes,
                    const int* xFirst, int outWidth, const double* wa, const double* wb,
                    const double* wc, float* out);
  // The same for one channel in two halves: first the four neighbours of each output pixel
  // packed into one 32-bit lane, lowest first; then `count` floats of out from the packed
  // samples. The second works in groups of 8: packed, the weights and out reach up to 7
  // entries beyond `count`.
  int (*packRow1)(const unsigned char* row, const int* xFirst, int outWidth, int32_t* packed);
  void (*cubicSamples)(const int32_t* packed, int count, const double* wa, const double* wb,
                       const double* wc, float* out);
  // Vertical cubic pass: samples [0, returned) of dst from four stored lines, with the
  // weights a, b and c (c already rounded to a float).
  int (*cubicColumns)(const float* const* lines, int n, double a, double b, double c,
                      unsigned char* dst);
};

// The AVX2 kernels, or nullptr in a build for another processor family.
const SVectorKernels* avx2Kernels();
// The same with the cubic passes and HSV eight doubles wide, for processors that also have
// AVX-512F, AVX-512BW and AVX-512 VNNI, or nullptr.
const SVectorKernels* avx512Kernels();

#endif  // ORVANE_IMAGING_VECTORKERNELS_H_
