// Images that are generated: noise, test images.
#include "tour/tour.h"

namespace tour {

void syntheticStages(Tour& tour)
{
  const Picture& in = tour.picture();
  Picture out(tour.size());
  tour.stage("Gaussian noise")
    .time("AddRandGauss_Direct_8u_C3IR",
          [&] { // in place, so that each run needs a fresh copy
            Zor32u seed = 7;
            const ZorStatus status = zoriCopy_8u_C3R(in.data(), in.step(), out.data(), out.step(), tour.size());
            if (status != ZorOk) return status;
            return zoriAddRandGauss_Direct_8u_C3IR(out.data(), out.step(), tour.size(), 0, 28, &seed);
          })
    .note("with a copy")
    .show(out);

  Grey rings(tour.size());
  tour.stage("Test image")
    .time("ImageJaehne_8u_C1R", [&] { return zoriImageJaehne_8u_C1R(rings.data(), rings.step(), tour.size()); })
    .show(rings);
}

} // namespace tour
