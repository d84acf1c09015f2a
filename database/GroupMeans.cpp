#include "database/GroupMeans.h"

#include <algorithm>
#include <string>

#include "database/DatabaseErrors.h"

namespace {

// Every row that a writer fills must fit. The threefold global mean, the four quadrants and
// the centre make 8 rows besides the x and y means, so that is what MakeMeans16 demands,
// rather than a looser bound that would let it write past the vector.
void requireRows(uint32_t spaceRows, uint32_t needed) {
  if (spaceRows < needed) throw std::string(kMakeMeansNoSpace);
}

// One mean row: the tiles [x0, x1) x [y0, y1), y outer or x outer, and 1 / their count.
struct SMeanRow {
  uint32_t x0, x1, y0, y1;
  bool yOuter;
  double scale;
};

// 1 / count in double; a count of 0 gives infinity, so an empty row is NaN (0 * inf).
double inverse(uint32_t count) { return 1.0 / static_cast<double>(count); }

// The tiles of a row in their order of addition, as two nested steps through the tile
// data (in floats). A walk whose inner loop has one tile, or whose inner loop ends where
// the next outer step starts, is one flat loop: the same tiles in the same order.
struct STileWalk {
  const float* first;
  uint32_t outer, inner;
  size_t outerStep, innerStep;

  STileWalk(const float* tiles, uint32_t tilesX, uint32_t bins, const SMeanRow& r) {
    const size_t xStep = bins, yStep = size_t{tilesX} * bins;
    const uint32_t xs = r.x1 > r.x0 ? r.x1 - r.x0 : 0, ys = r.y1 > r.y0 ? r.y1 - r.y0 : 0;
    first = tiles + r.y0 * yStep + r.x0 * xStep;
    outer = r.yOuter ? ys : xs;
    inner = r.yOuter ? xs : ys;
    outerStep = r.yOuter ? yStep : xStep;
    innerStep = r.yOuter ? xStep : yStep;
    if (inner == 1) {
      inner = outer;
      innerStep = outerStep;
      outer = 1;
    } else if (inner * innerStep == outerStep) {
      inner *= outer;
      outer = outer == 0 ? 0 : 1;
    }
  }
};

// Bins [b0, b0 + kWidth) of a row: sum = float(double(sum) + double(tile)) from 0 over the
// row's tiles in its order, then mean = float(double(sum) * scale). The extractor's grid
// means add exactly so, value by value, only tile by tile through memory; holding a few
// bins in registers across the tiles gives the same bits in a fraction of the work.
template <uint32_t kWidth>
void writeBins(const STileWalk& walk, uint32_t b0, double scale, float* out) {
  float sum[kWidth] = {};
  const float* from = walk.first + b0;
  for (uint32_t o = 0; o < walk.outer; ++o, from += walk.outerStep) {
    const float* tile = from;
    for (uint32_t i = 0; i < walk.inner; ++i, tile += walk.innerStep) {
      for (uint32_t j = 0; j < kWidth; ++j) {
        sum[j] = static_cast<float>(static_cast<double>(sum[j]) + static_cast<double>(tile[j]));
      }
    }
  }
  for (uint32_t j = 0; j < kWidth; ++j) {
    out[b0 + j] = static_cast<float>(static_cast<double>(sum[j]) * scale);
  }
}

// Writes one row of `bins` floats; returns the floats written.
uint32_t writeRow(const float* tiles, uint32_t tilesX, uint32_t bins, const SMeanRow& r,
                  float* out) {
  const STileWalk walk(tiles, tilesX, bins, r);
  uint32_t b = 0;
  for (; b + 4 <= bins; b += 4) writeBins<4>(walk, b, r.scale, out);
  if (b + 2 <= bins) {
    writeBins<2>(walk, b, r.scale, out);
    b += 2;
  }
  if (b < bins) writeBins<1>(walk, b, r.scale, out);
  return bins;
}

// The global mean (y outer, x inner), `repeats` times; the column means (each added y in
// order); the row means (each added x in order).
uint32_t writeGlobalColumnsRows(const float* tiles, uint32_t tilesX, uint32_t tilesY,
                                uint32_t bins, uint32_t repeats, float* out) {
  uint32_t written = writeRow(tiles, tilesX, bins,
                              {0, tilesX, 0, tilesY, true, inverse(tilesX * tilesY)}, out);
  for (uint32_t c = 1; c < repeats; ++c) {
    std::copy_n(out, bins, out + written);
    written += bins;
  }
  for (uint32_t x = 0; x < tilesX; ++x) {
    written += writeRow(tiles, tilesX, bins, {x, x + 1, 0, tilesY, false, inverse(tilesY)},
                        out + written);
  }
  for (uint32_t y = 0; y < tilesY; ++y) {
    written += writeRow(tiles, tilesX, bins, {0, tilesX, y, y + 1, false, inverse(tilesX)},
                        out + written);
  }
  return written;
}

}  // namespace

uint32_t MakeMeans3(const float* tiles, uint32_t tilesX, uint32_t tilesY, uint32_t binsPerTile,
                    float* out, uint32_t spaceRows) {
  requireRows(spaceRows, tilesX + tilesY + 1);
  return writeGlobalColumnsRows(tiles, tilesX, tilesY, binsPerTile, 1, out);
}

// Quadrants split at tilesX / 2 and tilesY / 2 (an odd middle column or row falls right and
// bottom); the centre is x in [tilesX/4, 3*(tilesX/4)), y in [tilesY/4, 3*(tilesY/4)), scaled
// by 1 / ((tilesY/4) * ((tilesX/4) * 4)). Both added x outer, y inner.
uint32_t MakeMeans16(const float* tiles, uint32_t tilesX, uint32_t tilesY, uint32_t binsPerTile,
                     float* out, uint32_t spaceRows) {
  requireRows(spaceRows, tilesX + tilesY + 8);
  const uint32_t x = tilesX, y = tilesY, bins = binsPerTile;
  uint32_t written = writeGlobalColumnsRows(tiles, x, y, bins, 3, out);
  const uint32_t hx = x / 2, hy = y / 2, qx = x / 4, qy = y / 4;
  const SMeanRow rows[5] = {
      {0, hx, 0, hy, false, inverse(hx * hy)},
      {hx, x, 0, hy, false, inverse((x - hx) * hy)},
      {0, hx, hy, y, false, inverse(hx * (y - hy))},
      {hx, x, hy, y, false, inverse((x - hx) * (y - hy))},
      {qx, 3 * qx, qy, 3 * qy, false, inverse(qy * (qx * 4))},
  };
  for (const SMeanRow& row : rows) written += writeRow(tiles, x, bins, row, out + written);
  return written;
}
