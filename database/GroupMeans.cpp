#include "database/GroupMeans.h"

#include <string>

#include "database/DatabaseErrors.h"
#include "imaging/GridMeans.h"

namespace {

// Every row that a writer fills must fit. The threefold global mean, the four quadrants and
// the centre make 8 rows besides the x and y means, so that is what MakeMeans16 demands,
// rather than a looser bound that would let it write past the vector.
void requireRows(uint32_t spaceRows, uint32_t needed) {
  if (spaceRows < needed) throw std::string(kMakeMeansNoSpace);
}

}  // namespace

uint32_t MakeMeans3(const float* tiles, uint32_t tilesX, uint32_t tilesY, uint32_t binsPerTile,
                    float* out, uint32_t spaceRows) {
  requireRows(spaceRows, tilesX + tilesY + 1);
  const int x = static_cast<int>(tilesX), y = static_cast<int>(tilesY);
  const int bins = static_cast<int>(binsPerTile);
  int written = gridGlobalMean(tiles, x, y, bins, out, 1);
  written += gridColumnMeans(tiles, x, y, bins, out + written, 1);
  written += gridRowMeans(tiles, x, y, bins, out + written, 1);
  return static_cast<uint32_t>(written);
}

uint32_t MakeMeans16(const float* tiles, uint32_t tilesX, uint32_t tilesY, uint32_t binsPerTile,
                     float* out, uint32_t spaceRows) {
  requireRows(spaceRows, tilesX + tilesY + 8);
  const int x = static_cast<int>(tilesX), y = static_cast<int>(tilesY);
  const int bins = static_cast<int>(binsPerTile);
  int written = gridGlobalMean(tiles, x, y, bins, out, 3);
  written += gridColumnMeans(tiles, x, y, bins, out + written, 1);
  written += gridRowMeans(tiles, x, y, bins, out + written, 1);
  written += gridQuadrantMeans(tiles, x, y, bins, out + written, 1);
  written += gridCentreMean(tiles, x, y, bins, out + written, 1);
  return static_cast<uint32_t>(written);
}
