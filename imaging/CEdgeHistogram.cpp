#include "imaging/CEdgeHistogram.h"

#include <cmath>
#include <cstddef>
#include <cstring>
#include <vector>

#include "imaging/ImagingOperations.h"
#include "imaging/IppiUtils.h"

namespace {

// Bin of each block type: types 1..5 are bins 0..4, "no edge" (type 0) is bin 5.
const int kBinOfType[6] = {5, 0, 1, 2, 3, 4};

// Quadrant sums a (top-left), b (top-right), c (bottom-left), d (bottom-right) are exact; each
// becomes a mean as sum * scale in double, scale = blockScale(n). Responses in double:
//   1: |a - b + c - d|   2: |a + b - c - d|   3: sqrt(2) |a - d|   4: sqrt(2) |b - c|
//   5: 2 |a - b - c + d|
// A later type wins only if strictly greater; the best below the threshold means no edge.
inline int classifySums(int sumA, int sumB, int sumC, int sumD, double scale, int threshold) {
  const double a = sumA * scale, b = sumB * scale, c = sumC * scale, d = sumD * scale;
  const double root2 = std::sqrt(2.0);
  const double response[6] = {0.0,
                              std::fabs(a - b + c - d),
                              std::fabs(a + b - c - d),
                              root2 * std::fabs(a - d),
                              root2 * std::fabs(b - c),
                              2.0 * std::fabs(a - b - c + d)};
  // Selects without branches: on a textured photo the winner is hard to predict.
  int best = 1;
  double strongest = response[1];
  for (int type = 2; type <= 5; ++type) {
    const bool stronger = response[type] > strongest;
    best = stronger ? type : best;
    strongest = stronger ? response[type] : strongest;
  }
  return strongest < threshold ? 0 : best;
}

// classifySums of `count` blocks, whose quadrant sums a, b, c, d are quadrants[0..3][i].
void classifyLine(const int* const quadrants[4], int count, double scale, int threshold,
                  int* __restrict kinds) {
  const int* __restrict a = quadrants[0];
  const int* __restrict b = quadrants[1];
  const int* __restrict c = quadrants[2];
  const int* __restrict d = quadrants[3];
  for (int i = 0; i < count; ++i) {
    kinds[i] = classifySums(a[i], b[i], c[i], d[i], scale, threshold);
  }
}

// 1 / (n n 0.25), in double, for blocks of side n.
double blockScale(int n) { return 1.0 / (n * n * 0.25); }

// The sums of the columns [0, width) over `rows` lines `stride` bytes apart, 16 columns at a
// time where whole groups fit, so that the compiler adds them as vectors.
void columnSums(const unsigned char* __restrict data, unsigned stride, int rows, int width,
                unsigned* __restrict sums) {
  for (int col = 0; col < width; ++col) sums[col] = 0;
  const int whole = width - width % 16;
  for (int r = 0; r < rows; ++r) {
    const unsigned char* __restrict line = data + static_cast<size_t>(r) * stride;
    for (int col = 0; col < whole; col += 16) {
      for (int k = 0; k < 16; ++k) sums[col + k] += line[col + k];
    }
    for (int col = whole; col < width; ++col) sums[col] += line[col];
  }
}

// sums[from] + ... + sums[from + count - 1], exact for the sums of a block's quadrant.
int spanSum(const unsigned* sums, unsigned from, int count) {
  unsigned total = 0;
  for (int k = 0; k < count; ++k) total += sums[from + k];
  return static_cast<int>(total);
}

// `count` elements: the stack array when they fit, else the heap vector resized to them.
template <typename T, size_t N>
T* stackOrHeap(T (&stack)[N], std::vector<T>& heap, size_t count) {
  if (count <= N) return stack;
  heap.resize(count);
  return heap.data();
}

}  // namespace

CEdgeHistogram::CEdgeHistogram(int, int) : runCount(0), cells(kCells), bins() {}

int CEdgeHistogram::blockSize(int largerSide) {
  const unsigned m = static_cast<unsigned>(largerSide);
  const unsigned area = (3u * m * m) >> 2;
  const double x = std::sqrt(area / static_cast<double>(kDesiredBlocks));
  const int side = 2 * static_cast<int>(0.5 * x);
  return side < 2 ? 2 : side;
}

int CEdgeHistogram::classifyBlock(const unsigned char* block, int stride, int n, int threshold) {
  const int h = n / 2;
  int sum[4] = {0, 0, 0, 0};
  for (int r = 0; r < n; ++r) {
    const unsigned char* line = block + static_cast<ptrdiff_t>(r) * stride;
    const int top = r < h ? 0 : 2;
    for (int col = 0; col < n; ++col) sum[top + (col < h ? 0 : 1)] += line[col];
  }
  return classifySums(sum[0], sum[1], sum[2], sum[3], blockScale(n), threshold);
}

void CEdgeHistogram::scan(const unsigned char* data, int width, int stride, int height, int block,
                          int threshold, float* bins) {
  int blocks[kCells] = {};
  int types[kCells][kBins] = {};
  const unsigned w = static_cast<unsigned>(width);
  const unsigned hgt = static_cast<unsigned>(height);
  const unsigned step = static_cast<unsigned>(block);
  const int half = block / 2;
  const double scale = blockScale(block);
  // The blocks of a block line cover the columns [0, covered): the sums of the upper and lower
  // half of each column give each quadrant sum.
  unsigned lastX = 0;
  while (lastX + step <= w - step && lastX + step > lastX) lastX += step;
  const int covered = static_cast<int>(lastX + step);
  // On the stack for any line of the engine's images; only wider ones allocate.
  const int kStackColumns = 512;
  unsigned stackSums[2 * kStackColumns];
  std::vector<unsigned> heapSums;
  unsigned* upper = stackOrHeap(stackSums, heapSums, 2 * static_cast<size_t>(covered));
  unsigned* lower = upper + covered;
  // Quadrant sums, types and cell columns of the blocks of one line, on the stack for the
  // engine's images.
  const int lineBlocks = static_cast<int>(covered / step);
  const int kStackBlocks = 256;
  int stackBlocks[6 * kStackBlocks];
  std::vector<int> heapBlocks;
  int* blockData = stackOrHeap(stackBlocks, heapBlocks, 6 * static_cast<size_t>(lineBlocks));
  int* const quadrants[4] = {blockData, blockData + lineBlocks, blockData + 2 * lineBlocks,
                             blockData + 3 * lineBlocks};
  int* const kinds = blockData + 4 * lineBlocks;
  // The cell column of each block, the same on every block line.
  int* const cellColumn = blockData + 5 * lineBlocks;
  for (int i = 0; i < lineBlocks; ++i) cellColumn[i] = static_cast<int>((4 * (i * step)) / w);
  unsigned y = 0;
  do {
    const unsigned char* line = data + static_cast<size_t>(y) * static_cast<unsigned>(stride);
    const unsigned cellRow = (4 * y) / hgt;
    columnSums(line, static_cast<unsigned>(stride), half, covered, upper);
    columnSums(line + static_cast<size_t>(half) * static_cast<unsigned>(stride),
               static_cast<unsigned>(stride), block - half, covered, lower);
    // The quadrant sums of the line's blocks are gathered first, so that the classification
    // runs as a loop without branches over whole arrays, several blocks wide.
    for (int i = 0; i < lineBlocks; ++i) {
      const unsigned x = i * step, middle = x + half;
      quadrants[0][i] = spanSum(upper, x, half);
      quadrants[1][i] = spanSum(upper, middle, block - half);
      quadrants[2][i] = spanSum(lower, x, half);
      quadrants[3][i] = spanSum(lower, middle, block - half);
    }
    classifyLine(quadrants, lineBlocks, scale, threshold, kinds);
    for (int i = 0; i < lineBlocks; ++i) {
      const unsigned cell = 4 * cellRow + cellColumn[i];
      ++blocks[cell];
      ++types[cell][kBinOfType[kinds[i]]];
    }
    y += step;
  } while (y <= hgt - step);

  // Every cell gets at least one block for the sizes the engine scans.
  for (int cell = 0; cell < kCells; ++cell) {
    for (int bin = 0; bin < kBins; ++bin) {
      bins[cell * kBins + bin] =
          static_cast<float>(static_cast<double>(types[cell][bin]) / blocks[cell]);
    }
  }
}

int CEdgeHistogram::compute(const CImageBuffer& gray, float* out) {
  ++runCount;
  const int shorter = gray.roiWidth < gray.roiHeight ? gray.roiWidth : gray.roiHeight;
  if (shorter < kMinShorterSide) {
    if (IppiUtils_ResizeToFixedShorterSide(gray, edgeImage, kMinShorterSide, kInterCubic) == -1) {
      return -1;
    }
  } else {
    edgeImage.attach(gray.height, gray.width, gray.channels, gray.depth, gray.planar, gray.lineStep,
                     gray.data, gray.roiWidth, gray.roiHeight, gray.rectX, gray.rectY,
                     gray.rectWidth, gray.rectHeight, 2);
  }
  const int larger =
      edgeImage.roiWidth > edgeImage.roiHeight ? edgeImage.roiWidth : edgeImage.roiHeight;
  // Kept: stride = region height, height = line step (see the header).
  scan(edgeImage.data, edgeImage.roiWidth, edgeImage.roiHeight, edgeImage.lineStep,
       blockSize(larger), kEdgeThreshold, bins);
  std::memcpy(out, bins, sizeof bins);
  return kCells * kBins;
}
