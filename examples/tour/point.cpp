// Point decisions: thresholds and comparisons.
#include "tour/tour.h"

namespace tour {

void pointStages(Tour& tour)
{
  const Grey& grey = tour.grey();
  Grey mask(tour.size());
  Zor8u threshold = 0;
  tour.stage("Black and white")
    .time("ComputeThreshold_Otsu_8u_C1R",
          [&] { return zoriComputeThreshold_Otsu_8u_C1R(grey.data(), grey.step(), tour.size(), &threshold); })
    .time("CompareC_8u_C1R",
          [&] {
            return zoriCompareC_8u_C1R(grey.data(), grey.step(), threshold, mask.data(), mask.step(), tour.size(),
                                       ZorCmpGreater);
          })
    .note("at " + std::to_string(threshold))
    .show(mask);
}

} // namespace tour
