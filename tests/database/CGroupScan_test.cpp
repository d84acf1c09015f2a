#include "database/CGroupScan.h"

#include <gtest/gtest.h>

#include <vector>

#include "database/CFeatureGroup.h"
#include "database/DistanceKernels.h"
#include "database/SFeatureGroupDef.h"
#include "tests/support/NextUnit.h"
#include "vexl/ByteOrder.h"

namespace {

const DistanceKernel kKernels[] = {windowedCumulativeDifference, logarithmRatio,
                                   meanAbsoluteDifference, blockSquare, rootMeanSquareDifference};

// A colour-like group of any grid, with the smallest means space its writer takes.
CFeatureGroup groupOf(uint32_t tilesX, uint32_t tilesY, uint32_t bins, uint32_t meansKind) {
  std::vector<SFeatureGroupDef> defs;
  buildFeatureGroupDefs(defs);
  SFeatureGroupDef def = defs[meansKind == 1 ? 0 : 1];
  def.tilesX = tilesX;
  def.tilesY = tilesY;
  def.binsPerTile = bins;
  def.meanRows = tilesX + tilesY + (meansKind == 1 ? 8 : 1);
  def.vectorLength = (tilesX * tilesY + def.meanRows) * bins;
  def.normTable = HeapVector<float>(def.vectorLength);
  for (uint32_t i = 0; i < def.vectorLength; ++i) def.normTable.m_data[i] = 0.1f + 0.01f * i;
  CFeatureGroup group;
  group.init(def, 0);
  group.scale = 0.15f;
  return group;
}

// Both forms give, lane by lane, the one-vector kernel's distance times the scale, for every
// kind: on grids whose tiles, means and ranges end at every awkward place, for item counts
// around a block.
TEST(GroupScanTest, BothFormsGiveTheKernelsBitsOnAwkwardShapes) {
  const uint32_t grids[][4] = {{1, 1, 1, 0}, {2, 1, 3, 0}, {1, 2, 7, 0}, {3, 3, 5, 0},
                               {3, 3, 16, 0}, {4, 4, 6, 1}, {5, 3, 17, 0}};
  uint32_t seed = 99;
  for (const auto& grid : grids) {
    CFeatureGroup group = groupOf(grid[0], grid[1], grid[2], grid[3]);
    const uint32_t length = group.vectors.length(), split = group.tileValues();
    const uint32_t ranges[][2] = {{0, split}, {0, length}, {1, length}, {split - 1, length - 1},
                                  {split, length}, {2, 2}, {3, 2}};
    std::vector<std::vector<float>> vectors;
    for (uint32_t items : {1u, 17u, 33u}) {
      while (vectors.size() < items) {
        std::vector<float> tiles(split);
        for (float& t : tiles) t = nextUnit(seed) * 3.0f;
        group.add(tiles.data(), static_cast<uint32_t>(vectors.size() + 1), 0, 0);
        HeapMatrix<float> vector;
        group.makeVector(vector, tiles.data());
        vectors.emplace_back(vector.m_data, vector.m_data + length);
      }
      std::vector<float> queryTiles(split);
      for (float& t : queryTiles) t = nextUnit(seed) * 3.0f;
      HeapMatrix<float> query;
      group.makeVector(query, queryTiles.data());
      for (uint32_t kind = 0; kind < 5; ++kind) {
        for (const auto& range : ranges) {
          group.distanceRows[0] = {range[0], range[1], kind};
          group.distanceFunctions[0] = distanceFunctionOfKind(kind);
          for (ScanForm form : {ScanForm::kPortable, ScanForm::kAvx2}) {
            CGroupScan scan(group, queryTiles.data(), 0, form);
            for (size_t start = 0; start < items; start += kBlockLanes) {
              float shares[kBlockLanes];
              const size_t count = std::min<size_t>(kBlockLanes, items - start);
              scan.scoreBlock(start / kBlockLanes, count, shares);
              for (size_t j = 0; j < count; ++j) {
                const double d = kKernels[kind](vectors[start + j].data(), length, query.m_data,
                                               length, range[0], range[1], grid[2]);
                const float expected = static_cast<float>(d * static_cast<double>(group.scale));
                ASSERT_EQ(floatBits(shares[j]), floatBits(expected))
                    << grid[0] << grid[1] << grid[2] << " " << items << " " << kind << " "
                    << range[0] << " " << range[1] << " " << int(form) << " " << start + j;
              }
            }
          }
        }
      }
    }
  }
}

}  // namespace
