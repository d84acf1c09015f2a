#include "imaging/ImagingOperations.h"

#include <cstddef>
#include <cstring>

#include "imaging/PixelConstants.h"
#include "imaging/VectorKernels.h"

SwapChannelsFn swapChannels = nullptr;
RgbToGrayFn rgbToGray = nullptr;
RgbToHsvFn rgbToHsv = nullptr;
HistogramEvenFn histogramEven = nullptr;
ChannelHistogramFn channelHistogram = nullptr;
ResizeFn resize3 = nullptr;
ResizeFn resize1 = nullptr;

namespace {

void fill(const SImagingColumn& c) {
  swapChannels = c.swapChannels;
  rgbToGray = c.rgbToGray;
  rgbToHsv = c.rgbToHsv;
  histogramEven = c.histogramEven;
  channelHistogram = c.channelHistogram;
  resize3 = c.resize3;
  resize1 = c.resize1;
}

bool complete(const SImagingColumn& c) {
  return c.swapChannels && c.rgbToGray && c.rgbToHsv && c.histogramEven && c.channelHistogram &&
         c.resize3 && c.resize1;
}

// Fills the slots from the first complete column, the vectorised ones first; 0 on success.
int fillSlots() {
  std::vector<const SImagingColumn*> order = vectorColumns();
  order.push_back(&kGenericColumn);
  for (const SImagingColumn* c : order) {
    if (!complete(*c)) continue;
    fill(*c);
    return 0;
  }
  return -1;
}

using LineKernel = int (*)(const unsigned char* src, unsigned char* dst, int width);

// Checks, then for every line of the region: `vector` (when there is one) converts the
// leading pixels, convert(srcPixel, dstPixel) the rest. The source has 3 bytes per pixel and
// the target DstChannels.
template <int DstChannels, typename Convert>
int convertPixels(const unsigned char* src, int srcStep, unsigned char* dst, int dstStep, int width,
                  int height, LineKernel vector, Convert convert) {
  if (src == nullptr || dst == nullptr) return kStsNullPtrErr;
  if (width < 1 || height < 1) return kStsSizeErr;
  if (srcStep < 1 || dstStep < 1) return kStsStepErr;
  for (int y = 0; y < height; ++y) {
    const unsigned char* s = src + static_cast<ptrdiff_t>(y) * srcStep;
    unsigned char* d = dst + static_cast<ptrdiff_t>(y) * dstStep;
    const int done = vector ? vector(s, d, width) : 0;
    s += 3 * done;
    d += DstChannels * done;
    for (int x = done; x < width; ++x, s += 3, d += DstChannels) convert(s, d);
  }
  return kStsNoErr;
}

int clampLevel(int level) { return level < 0 ? 0 : (level > 256 ? 256 : level); }

}  // namespace

int selectProcessor() {
  // The slots are filled once: engines created while another one runs must not write them
  // under its feet. The choice cannot change within a process.
  static const int status = fillSlots();
  return status;
}

namespace {

template <KernelsFn kernelsOf>
int swapChannelsWith(unsigned char* data, int step, int width, int height, const int order[3]) {
  const SVectorKernels* kernels = kernelsOf();
  if (data == nullptr || order == nullptr) return kStsNullPtrErr;
  if (width < 1 || height < 1) return kStsSizeErr;
  if (step < 1) return kStsStepErr;
  for (int k = 0; k < 3; ++k) {
    if (order[k] < 0 || order[k] > 2) return kStsChannelOrderErr;
  }
  for (int y = 0; y < height; ++y) {
    unsigned char* p = data + static_cast<ptrdiff_t>(y) * step;
    const int done = kernels ? kernels->swapLine(p, width, order) : 0;
    p += 3 * done;
    for (int x = done; x < width; ++x, p += 3) {
      const unsigned char old[3] = {p[0], p[1], p[2]};
      p[0] = old[order[0]];
      p[1] = old[order[1]];
      p[2] = old[order[2]];
    }
  }
  return kStsNoErr;
}

// gray = (1225 r + 2404 g + 467 b) >> 12 in integers, no rounding term; the weights sum to
// 4096, so white stays 255.
void grayPixel(const unsigned char* s, unsigned char* d) {
  d[0] = static_cast<unsigned char>((1225 * s[0] + 2404 * s[1] + 467 * s[2]) >> 12);
}

// V = max(r, g, b), m = min; V == 0 or V == m gives H = S = 0. Otherwise, with d = V - m, in
// double: S = trunc(255 * (d / V) + half); rc, gc, bc = (V - channel) * (1 / d);
// h = bc - gc if r == V, then 2 + rc - bc if g == V, then 4 - rc + gc if b == V (the later
// rule wins a tie); x = h * 255 * sixth, plus 255 if negative; H = trunc(x + half). The circle
// maps onto 0..255, not 0..256. half and sixth are the float constants of PixelConstants.h.
void hsvPixel(const unsigned char* s, unsigned char* d) {
  const int r = s[0], g = s[1], b = s[2];
  const int v = r > g ? (r > b ? r : b) : (g > b ? g : b);
  const int m = r < g ? (r < b ? r : b) : (g < b ? g : b);
  int hue = 0;
  int sat = 0;
  if (v != 0 && v != m) {
    const int diff = v - m;
    sat = static_cast<int>(255.0 * (static_cast<double>(diff) / v) + kHsvHalf);
    const double inv = 1.0 / diff;
    const double rc = (v - r) * inv;
    const double gc = (v - g) * inv;
    const double bc = (v - b) * inv;
    double h = 0.0;
    if (r == v) h = bc - gc;
    if (g == v) h = 2.0 + rc - bc;
    if (b == v) h = 4.0 - rc + gc;
    double angle = h * 255.0 * kHsvSixth;
    if (angle < 0.0) angle = angle + 255.0;
    hue = static_cast<int>(angle + kHsvHalf);
  }
  d[0] = static_cast<unsigned char>(hue);
  d[1] = static_cast<unsigned char>(sat);
  d[2] = static_cast<unsigned char>(v);
}

// A conversion of a column: its line kernel `line` when it has kernels, then `pixel` for the
// rest of each line.
template <KernelsFn kernels, int DstChannels, LineKernel SVectorKernels::*line,
          void (*pixel)(const unsigned char*, unsigned char*)>
int convertWith(const unsigned char* src, int srcStep, unsigned char* dst, int dstStep, int width,
                int height) {
  const SVectorKernels* k = kernels();
  return convertPixels<DstChannels>(src, srcStep, dst, dstStep, width, height,
                                    k ? k->*line : nullptr, pixel);
}

// Whether the vector kernel can count against these levels: few enough, and rising after the
// clamp, so that a bin is the difference of two counts of samples at least its edges.
bool countableLevels(const int* levels, int levelCount) {
  if (levelCount > kMaxHistogramLevels) return false;
  for (int k = 1; k < levelCount; ++k) {
    if (clampLevel(levels[k]) < clampLevel(levels[k - 1])) return false;
  }
  return true;
}

// Levels: span = upper - lower, q = span / (n - 1), r = span % (n - 1); level 0 is lower and
// each next level adds q, plus 1 for the first r steps.
void evenLevels(int lower, int upper, int n, int* levels) {
  const int steps = n - 1;
  const int span = upper - lower;
  const int quotient = span / steps;
  const int remainder = span % steps;
  levels[0] = lower;
  for (int k = 1; k <= steps; ++k) levels[k] = levels[k - 1] + quotient + (k <= remainder ? 1 : 0);
}

// The bins of channel c of a 3-channel region against its levels. Levels are clamped to
// 0..256 before counting, so with upper 255 the value 255 falls into no bin (kept: the colour
// features are defined with that loss). The last entry of hist is not written.
// Counting: the column's kernel, when there is one, counts the leading pixels of each line
// against the levels; a table of the 256 values counts the rest. Both are exact.
template <KernelsFn kernelsOf>
void countChannel(const unsigned char* src, int srcStep, int width, int height, int c, int* hist,
                  const int* levels, int levelCount) {
  const SVectorKernels* kernels = kernelsOf();
  // above[k]: samples of the kernel's pixels at least the clamped level k; its pixels are all
  // at least a level of 0 and none reaches 256.
  long long above[kMaxHistogramLevels] = {};
  int done = 0;
  if (kernels && countableLevels(levels, levelCount)) {
    int clamped[kMaxHistogramLevels] = {};
    for (int k = 0; k < levelCount; ++k) clamped[k] = clampLevel(levels[k]);
    done = kernels->countAtLeast(src, srcStep, width, height, c, clamped, levelCount, above);
    for (int k = 0; k < levelCount; ++k) {
      if (clamped[k] == 0) above[k] = static_cast<long long>(done) * height;
    }
  }

  // The table only when pixels are left: clearing and summing it costs more than the kernel's
  // counting on the colour tiles.
  const bool rest = done < width;
  int counts[256];
  if (rest) std::memset(counts, 0, sizeof counts);
  for (int y = 0; rest && y < height; ++y) {
    const unsigned char* s = src + static_cast<ptrdiff_t>(y) * srcStep + 3 * done + c;
    for (int x = done; x < width; ++x, s += 3) ++counts[*s];
  }

  for (int k = 0; k + 1 < levelCount; ++k) {
    long long sum = above[k] - above[k + 1];
    const int to = clampLevel(levels[k + 1]);
    for (int value = clampLevel(levels[k]); rest && value < to; ++value) sum += counts[value];
    hist[k] = static_cast<int>(sum);
  }
}

template <KernelsFn kernels>
int histogramEvenWith(const unsigned char* src, int srcStep, int width, int height,
                      int* const hist[3], int* const levels[3], const int levelCount[3],
                      const int lower[3], const int upper[3]) {
  if (src == nullptr || hist == nullptr || levels == nullptr || levelCount == nullptr ||
      lower == nullptr || upper == nullptr) {
    return kStsNullPtrErr;
  }
  for (int c = 0; c < 3; ++c) {
    if (hist[c] == nullptr || levels[c] == nullptr) return kStsNullPtrErr;
  }
  for (int c = 0; c < 3; ++c) {
    if (levelCount[c] < 2) return kStsHistoLevelsErr;
  }
  if (width < 1 || height < 1) return kStsSizeErr;
  if (srcStep < 1) return kStsStepErr;
  for (int c = 0; c < 3; ++c) evenLevels(lower[c], upper[c], levelCount[c], levels[c]);
  for (int c = 0; c < 3; ++c) {
    countChannel<kernels>(src, srcStep, width, height, c, hist[c], levels[c], levelCount[c]);
  }
  return kStsNoErr;
}

template <KernelsFn kernels>
int channelHistogramWith(const unsigned char* src, int srcStep, int width, int height, int channel,
                         int* hist, int* levels, int levelCount, int lower, int upper) {
  if (src == nullptr || hist == nullptr || levels == nullptr) return kStsNullPtrErr;
  if (levelCount < 2) return kStsHistoLevelsErr;
  if (width < 1 || height < 1) return kStsSizeErr;
  if (srcStep < 1) return kStsStepErr;
  if (channel < 0 || channel > 2) return kStsChannelOrderErr;
  evenLevels(lower, upper, levelCount, levels);
  countChannel<kernels>(src, srcStep, width, height, channel, hist, levels, levelCount);
  return kStsNoErr;
}

// One column: every operation with the same kernels.
template <KernelsFn kernels>
constexpr SImagingColumn columnOf(const char* name) {
  return {name,
          swapChannelsWith<kernels>,
          convertWith<kernels, 1, &SVectorKernels::grayLine, grayPixel>,
          convertWith<kernels, 3, &SVectorKernels::hsvLine, hsvPixel>,
          histogramEvenWith<kernels>,
          channelHistogramWith<kernels>,
          resizeWith<3, kernels>,
          resizeWith<1, kernels>};
}

const SImagingColumn kAvx2Column = columnOf<avx2Kernels>("avx2");
const SImagingColumn kAvx512Column = columnOf<avx512Kernels>("avx512");

}  // namespace

const SVectorKernels* noKernels() { return nullptr; }

const SImagingColumn kGenericColumn = columnOf<noKernels>("generic");

std::vector<const SImagingColumn*> vectorColumns() {
  std::vector<const SImagingColumn*> columns;
#if defined(__x86_64__) || defined(__i386__)
  // The checks cover the processor and the operating system's saving of the wide registers.
  const bool avx2 = avx2Kernels() != nullptr && __builtin_cpu_supports("avx2");
  if (avx2 && avx512Kernels() != nullptr && __builtin_cpu_supports("avx512f") &&
      __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vnni")) {
    columns.push_back(&kAvx512Column);
  }
  if (avx2) columns.push_back(&kAvx2Column);
#endif
  return columns;
}

void useColumn(const SImagingColumn& column) { fill(column); }
