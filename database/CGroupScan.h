// CGroupScan: one feature group's part of a classification, prepared once per query: the
// query's group vector, the distance of the mode's row and, for the two kinds that the
// built-in tables use, the runs and the query's running sums or entries for the block
// kernels (BlockKernels.h). scoreBlock() then gives the group's share of the score of every
// stored vector of one block, without any per-vector record in between.
//
// The shares have exactly the bits of the group's one-vector distance function times its
// scale: the block kernels match the kernels lane by lane, and any other kind is computed
// by the group's own function on a copy of the stored vector.
#ifndef ORVANE_DATABASE_CGROUPSCAN_H_
#define ORVANE_DATABASE_CGROUPSCAN_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "database/BlockKernels.h"
#include "database/DistanceFunctions.h"
#include "vexl/heap_matrix.h"

class CFeatureGroup;

class CGroupScan {
 public:
  // Builds the query vector from `tiles` and takes the row of `mode` (a mode above the
  // number of rows, a negative one included, takes row 1). Fails with "Error classifing"
  // when the row leaves no distance to call (a mode equal to the number of rows, a function
  // list shorter than the rows) or when every stored vector would be refused (a range past
  // the end of the vectors).
  // REQUIRES: tiles holds group.tileValues() floats; the group outlives the scan.
  CGroupScan(const CFeatureGroup& group, const float* tiles, int mode, ScanForm form);

  // shares[j] = (float)(d * (double)scale) for the stored vectors j < count of `block`,
  // d = the row's distance of vector block * kBlockLanes + j to the query. Fails with
  // "Error classifing" for a distance of exactly -1.0.
  void scoreBlock(size_t block, size_t count, float* shares);

 private:
  const CFeatureGroup& group;
  HeapMatrix<float> query;
  DistanceFunction function = nullptr;
  uint32_t first = 0;
  uint32_t last = 0;
  double scale = 0.0;
  // The block kernel's side; kernel is null for a kind that has none.
  BlockKernel kernel = nullptr;
  std::vector<SBlockRun> runs;
  std::vector<double> queryValues;
  double steps = 0.0;
  // One stored vector, copied out for a kind without a block kernel.
  std::vector<float> stored;
};

#endif  // ORVANE_DATABASE_CGROUPSCAN_H_
