// The two means writers of the feature groups: they append, behind the tiles of a group
// vector, the rows of coarser means that make a comparison tolerant of small shifts.
//
// Both take the tile data (tilesX * tilesY tiles of binsPerTile floats, tile (x, y) at row
// y * tilesX + x), write whole rows of binsPerTile floats to `out` and return the number of
// floats written. The means are the grid means of the extractor, so a database recomputes
// them from stored tiles with the same bits: the same additions in the same order for every
// value, only a few bins at a time in registers instead of tile by tile through memory. A writer given fewer rows than it writes
// throws "MakeMeans not enough space" as a plain string, before writing anything.
#ifndef ORVANE_DATABASE_GROUPMEANS_H_
#define ORVANE_DATABASE_GROUPMEANS_H_

#include <cstdint>

// Rows: the global mean, one mean over y per x, one mean over x per y (tilesX + tilesY + 1).
// REQUIRES: tiles holds tilesX * tilesY * binsPerTile floats; out holds spaceRows rows.
uint32_t MakeMeans3(const float* tiles, uint32_t tilesX, uint32_t tilesY, uint32_t binsPerTile,
                    float* out, uint32_t spaceRows);

// Rows: the global mean three times (it weighs three rows in a distance over the whole
// vector), the x means, the y means, the four quadrants, the centre (tilesX + tilesY + 8).
// REQUIRES: as MakeMeans3; the centre is meant for grids of at least 4 by 4.
uint32_t MakeMeans16(const float* tiles, uint32_t tilesX, uint32_t tilesY, uint32_t binsPerTile,
                     float* out, uint32_t spaceRows);

// The shape of both writers, as a feature group holds it.
using MakeMeansFunction = uint32_t (*)(const float* tiles, uint32_t tilesX, uint32_t tilesY,
                                       uint32_t binsPerTile, float* out, uint32_t spaceRows);

#endif  // ORVANE_DATABASE_GROUPMEANS_H_
