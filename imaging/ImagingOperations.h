// The pixel operations of the image analysis, called through call slots.
//
// The operations work on raw pointers, line steps in bytes and a region size; they know
// nothing of CImageBuffer. Each returns a status, 0 for success; callers treat any other
// value as failure. Checks stand at the head of each operation: null pointers, then sizes,
// then steps (swapChannels checks its order and channelHistogram its channel last;
// histogramEven and channelHistogram check level counts before sizes).
//
// Callers go through the slots only. selectProcessor fills them from the first complete
// column of implementations that the processor can run: AVX-512, then AVX2, then the portable
// scalar column. All give the same bits for every operation and every input.
//
// REQUIRES: selectProcessor has returned before the first call through a slot.
#ifndef ORVANE_IMAGING_IMAGINGOPERATIONS_H_
#define ORVANE_IMAGING_IMAGINGOPERATIONS_H_

#include <vector>

// Status values.
constexpr int kStsNoErr = 0;
constexpr int kStsOutsideSource = 1;  // resize: region origin beyond the source (a warning)
constexpr int kStsSizeErr = -6;
constexpr int kStsNullPtrErr = -8;
constexpr int kStsMemAllocErr = -9;
constexpr int kStsStepErr = -14;
constexpr int kStsInterpolationErr = -22;
constexpr int kStsResizeFactorErr = -23;
constexpr int kStsChannelOrderErr = -60;
constexpr int kStsHistoLevelsErr = -107;

// Interpolation codes of the resize.
constexpr int kInterNearest = 1;
constexpr int kInterLinear = 2;
constexpr int kInterCubic = 4;

// In place on 3-channel interleaved pixels: new[k] = old[order[k]] for k = 0, 1, 2.
using SwapChannelsFn = int (*)(unsigned char* data, int step, int width, int height,
                               const int order[3]);
// Bytes r, g, b to one gray byte.
using RgbToGrayFn = int (*)(const unsigned char* src, int srcStep, unsigned char* dst, int dstStep,
                            int width, int height);
// Bytes r, g, b to bytes h, s, v.
using RgbToHsvFn = int (*)(const unsigned char* src, int srcStep, unsigned char* dst, int dstStep,
                           int width, int height);
// Per channel c: levels[c] gets levelCount[c] evenly spread levels from lower[c] to upper[c];
// hist[c][k] counts the samples in [levels[c][k], levels[c][k+1]) for k < levelCount[c] - 1.
using HistogramEvenFn = int (*)(const unsigned char* src, int srcStep, int width, int height,
                                int* const hist[3], int* const levels[3], const int levelCount[3],
                                const int lower[3], const int upper[3]);
// histogramEven of channel `channel` of a 3-channel region alone: its levels and hist, with
// the same checks and then a channel outside 0..2 (kStsChannelOrderErr).
using ChannelHistogramFn = int (*)(const unsigned char* src, int srcStep, int width, int height,
                                   int channel, int* hist, int* levels, int levelCount, int lower,
                                   int upper);
// Resize of the region (x, y, width, height) of the source into the top-left of dst.
using ResizeSignature = int(const unsigned char* src, int srcWidth, int srcHeight, int srcStep,
                            int x, int y, int width, int height, unsigned char* dst, int dstStep,
                            int dstWidth, int dstHeight, double xFactor, double yFactor,
                            int interpolation);
using ResizeFn = ResizeSignature*;

// The call slots, empty until selectProcessor fills them.
extern SwapChannelsFn swapChannels;
extern RgbToGrayFn rgbToGray;
extern RgbToHsvFn rgbToHsv;
extern HistogramEvenFn histogramEven;
extern ChannelHistogramFn channelHistogram;
extern ResizeFn resize3;
extern ResizeFn resize1;

// Fills the call slots on its first call; later calls return the first result. Returns 0; a
// failure cannot occur while the portable column exists.
int selectProcessor();

// A column: one implementation per call slot.
struct SImagingColumn {
  const char* name;
  SwapChannelsFn swapChannels;
  RgbToGrayFn rgbToGray;
  RgbToHsvFn rgbToHsv;
  HistogramEvenFn histogramEven;
  ChannelHistogramFn channelHistogram;
  ResizeFn resize3;
  ResizeFn resize1;
};

// The portable column, complete on every processor.
extern const SImagingColumn kGenericColumn;

// The vectorised columns this processor can run, fastest first; none on other processors.
std::vector<const SImagingColumn*> vectorColumns();

// Fills the call slots from `column`, whatever selectProcessor chose: for tests that compare
// the columns. Hosts cannot reach it; only the classes of the exported header leave the
// library.
// REQUIRES: no operation runs meanwhile.
void useColumn(const SImagingColumn& column);

// The kernels of a column; noKernels gives the portable code alone.
struct SVectorKernels;
using KernelsFn = const SVectorKernels* (*)();
const SVectorKernels* noKernels();

// The resize of C channels with the kernels of a column (instantiated in Resize.cpp for each).
template <int C, KernelsFn kernels>
int resizeWith(const unsigned char* src, int srcWidth, int srcHeight, int srcStep, int x, int y,
               int width, int height, unsigned char* dst, int dstStep, int dstWidth, int dstHeight,
               double xFactor, double yFactor, int interpolation);

#endif  // ORVANE_IMAGING_IMAGINGOPERATIONS_H_
