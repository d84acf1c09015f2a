// Grid means: coarser views of a tiled feature, derived by averaging tiles.
//
// A tiled feature is a grid of tilesX by tilesY tiles, each holding `bins` floats; the bins of
// tile (x, y) start at index (y * tilesX + x) * bins. Each function clears its whole output,
// adds tiles into its result rows in a fixed order, then scales every value. Every addition
// is computed in double and stored back as a 32-bit float, and every scaled value is the
// float of a double product, so the order of addition is part of the result: the database
// recomputes these means from stored tiles and must get the same bits as the extractor.
//
// `out` receives `repeats` copies of the block of result rows, one behind the other. Each
// function returns the number of floats written.
#ifndef ORVANE_IMAGING_GRIDMEANS_H_
#define ORVANE_IMAGING_GRIDMEANS_H_

// REQUIRES (all five): tiles holds tilesX * tilesY * bins floats; out has room for the
// returned count; bins, tilesX, tilesY >= 1 and repeats >= 0.

// One row: the mean of all tiles, added y outer, x inner; scale 1 / (tilesX * tilesY).
// Returns bins * repeats.
int gridGlobalMean(const float* tiles, int tilesX, int tilesY, int bins, float* out, int repeats);

// tilesX rows: row x is the mean of grid column x, added y in order; scale 1 / tilesY.
// Returns tilesX * bins * repeats.
int gridColumnMeans(const float* tiles, int tilesX, int tilesY, int bins, float* out, int repeats);

// tilesY rows: row y is the mean of grid row y, added x in order; scale 1 / tilesX.
// Returns tilesY * bins * repeats.
int gridRowMeans(const float* tiles, int tilesX, int tilesY, int bins, float* out, int repeats);

// Four rows: top-left, top-right, bottom-left, bottom-right, split at tilesX / 2 and
// tilesY / 2 (an odd middle column or row falls right and bottom); each quadrant added
// x outer, y inner and scaled by 1 / its own tile count. Returns 4 * bins * repeats.
int gridQuadrantMeans(const float* tiles, int tilesX, int tilesY, int bins, float* out,
                      int repeats);

// One row: the mean of the middle part, x in [tilesX/4, 3*(tilesX/4)) and y in
// [tilesY/4, 3*(tilesY/4)), added x outer, y inner, scaled by
// 1 / ((tilesY/4) * ((tilesX/4) * 4)). On a grid narrower than 4 the range is empty and the
// scale is infinite, so every value is NaN (0 * inf).
// Returns bins * repeats.
int gridCentreMean(const float* tiles, int tilesX, int tilesY, int bins, float* out, int repeats);

#endif  // ORVANE_IMAGING_GRIDMEANS_H_
