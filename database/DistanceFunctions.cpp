#include "database/DistanceFunctions.h"

namespace {

template <DistanceKernel kernel>
double onViews(const BaseVector<float>& a, const BaseVector<float>& b, uint32_t first,
               uint32_t last, uint32_t period) {
  return kernel(a.m_data, a.m_size, b.m_data, b.m_size, first, last, period);
}

double refused(const float*, uint32_t, const float*, uint32_t, uint32_t, uint32_t, uint32_t) {
  return -1.0;
}

struct SKind {
  DistanceFunction single;
  DistanceKernelMany many;
};

const SKind kKinds[] = {
    {onViews<windowedCumulativeDifference>, windowedCumulativeDifferenceMany},
    {onViews<logarithmRatio>, distanceOneByOne<logarithmRatio>},
    {onViews<meanAbsoluteDifference>, meanAbsoluteDifferenceMany},
    {onViews<blockSquare>, distanceOneByOne<blockSquare>},
    {onViews<rootMeanSquareDifference>, distanceOneByOne<rootMeanSquareDifference>},
    {onViews<refused>, distanceOneByOne<refused>},
};

}  // namespace

DistanceFunction distanceFunctionOfKind(uint32_t kind) {
  return kind < sizeof kKinds / sizeof kKinds[0] ? kKinds[kind].single : nullptr;
}

DistanceKernelMany distanceManyOf(DistanceFunction function) {
  for (const SKind& kind : kKinds) {
    if (kind.single == function) return kind.many;
  }
  return nullptr;
}
