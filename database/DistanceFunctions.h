// The distance functions of the feature groups' tables: the six kinds of DistanceKernels.h
// taken over row views, as a table row calls them, each paired with its many-vector form.
#ifndef ORVANE_DATABASE_DISTANCEFUNCTIONS_H_
#define ORVANE_DATABASE_DISTANCEFUNCTIONS_H_

#include <cstdint>

#include "database/DistanceKernels.h"
#include "vexl/base_vector.h"

// A stored vector `a` and a query `b` as views of their one row (no copies), the range
// first <= i < last and the block length `period`; -1.0 means refused.
using DistanceFunction = double (*)(const BaseVector<float>& a, const BaseVector<float>& b,
                                    uint32_t first, uint32_t last, uint32_t period);

// The distance kinds, by number.
enum : uint32_t {
  kWindowedCumulativeDifference = 0,
  kLogarithmRatio = 1,
  kMeanAbsoluteDifference = 2,
  kBlockSquare = 3,
  kRootMeanSquareDifference = 4,
  kWeightedDifference = 5,
};

// The function of a kind, or null for a kind above 5. Kind 5 has a shape of its own that a
// row cannot call, so its row function refuses every pair (-1.0).
DistanceFunction distanceFunctionOfKind(uint32_t kind);

// The many-vector form that gives exactly the bits of `function` for each vector, or null
// when `function` is not one of distanceFunctionOfKind's.
DistanceKernelMany distanceManyOf(DistanceFunction function);

#endif  // ORVANE_DATABASE_DISTANCEFUNCTIONS_H_
