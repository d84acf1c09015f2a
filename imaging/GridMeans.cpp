#include "imaging/GridMeans.h"

namespace {

// One result row: the tiles [x0, x1) x [y0, y1), added in the given order, then scaled.
struct MeanRow {
  int x0, x1, y0, y1;
  bool yOuter;
  double scale;
};

// row[b] = float(double(row[b]) + double(tile[b])) for every bin of tile (x, y).
void addTile(const float* tiles, int tilesX, int bins, int x, int y, float* row) {
  const float* tile = tiles + (y * tilesX + x) * bins;
  for (int b = 0; b < bins; ++b) {
    row[b] = static_cast<float>(static_cast<double>(row[b]) + static_cast<double>(tile[b]));
  }
}

void addRow(const float* tiles, int tilesX, int bins, const MeanRow& r, float* row) {
  if (r.yOuter) {
    for (int y = r.y0; y < r.y1; ++y) {
      for (int x = r.x0; x < r.x1; ++x) addTile(tiles, tilesX, bins, x, y, row);
    }
  } else {
    for (int x = r.x0; x < r.x1; ++x) {
      for (int y = r.y0; y < r.y1; ++y) addTile(tiles, tilesX, bins, x, y, row);
    }
  }
}

// Clears the whole output, adds the tiles of every row of every copy, then scales each value
// as float(double(value) * scale). rowAt(r) describes result row r.
template <typename RowAt>
int writeMeans(const float* tiles, int tilesX, int bins, float* out, int repeats, int rows,
               RowAt rowAt) {
  const int perCopy = rows * bins;
  const int total = perCopy * repeats;
  for (int i = 0; i < total; ++i) out[i] = 0.0f;
  for (int c = 0; c < repeats; ++c) {
    for (int r = 0; r < rows; ++r)
      addRow(tiles, tilesX, bins, rowAt(r), out + c * perCopy + r * bins);
  }
  for (int c = 0; c < repeats; ++c) {
    for (int r = 0; r < rows; ++r) {
      const double scale = rowAt(r).scale;
      float* row = out + c * perCopy + r * bins;
      for (int b = 0; b < bins; ++b) {
        row[b] = static_cast<float>(static_cast<double>(row[b]) * scale);
      }
    }
  }
  return total;
}

// 1 / count in double; a count of 0 gives infinity, as the callers document.
double inverse(int count) { return 1.0 / static_cast<double>(count); }

}  // namespace

int gridGlobalMean(const float* tiles, int tilesX, int tilesY, int bins, float* out, int repeats) {
  const MeanRow all{0, tilesX, 0, tilesY, true, inverse(tilesX * tilesY)};
  return writeMeans(tiles, tilesX, bins, out, repeats, 1, [&](int) { return all; });
}

int gridColumnMeans(const float* tiles, int tilesX, int tilesY, int bins, float* out, int repeats) {
  const double scale = inverse(tilesY);
  return writeMeans(tiles, tilesX, bins, out, repeats, tilesX,
                    [&](int x) { return MeanRow{x, x + 1, 0, tilesY, false, scale}; });
}

int gridRowMeans(const float* tiles, int tilesX, int tilesY, int bins, float* out, int repeats) {
  const double scale = inverse(tilesX);
  return writeMeans(tiles, tilesX, bins, out, repeats, tilesY,
                    [&](int y) { return MeanRow{0, tilesX, y, y + 1, false, scale}; });
}

int gridQuadrantMeans(const float* tiles, int tilesX, int tilesY, int bins, float* out,
                      int repeats) {
  const int halfX = tilesX / 2;
  const int halfY = tilesY / 2;
  const MeanRow quadrants[4] = {
      {0, halfX, 0, halfY, false, inverse(halfX * halfY)},
      {halfX, tilesX, 0, halfY, false, inverse((tilesX - halfX) * halfY)},
      {0, halfX, halfY, tilesY, false, inverse(halfX * (tilesY - halfY))},
      {halfX, tilesX, halfY, tilesY, false, inverse((tilesX - halfX) * (tilesY - halfY))},
  };
  return writeMeans(tiles, tilesX, bins, out, repeats, 4, [&](int q) { return quadrants[q]; });
}

int gridCentreMean(const float* tiles, int tilesX, int tilesY, int bins, float* out, int repeats) {
  const int qx = tilesX / 4;
  const int qy = tilesY / 4;
  const MeanRow centre{qx, 3 * qx, qy, 3 * qy, false, inverse(qy * (qx * 4))};
  return writeMeans(tiles, tilesX, bins, out, repeats, 1, [&](int) { return centre; });
}
