// Images that are generated: noise, test images, ramps.
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
    .highlight()
    .time("ImageJaehne_8u_C1R", [&] { return zoriImageJaehne_8u_C1R(rings.data(), rings.step(), tour.size()); })
    .show(rings);

  // to the right, downwards, and both at once
  Grey right(tour.size()), down(tour.size()), both(tour.size());
  const Zor8u* const planes[3] = {right.data(), down.data(), both.data()};
  const ZorImgSize size = tour.size();
  tour.stage("A ramp for each channel")
    .time(
      "ImageRamp_8u_C1R",
      [&] {
        ZorStatus status =
          zoriImageRamp_8u_C1R(right.data(), right.step(), size, 0, 256.0f / size.width, ZorRampAlongX);
        if (status == ZorOk)
          status = zoriImageRamp_8u_C1R(down.data(), down.step(), size, 255, -256.0f / size.height, ZorRampAlongY);
        if (status == ZorOk)
          status = zoriImageRamp_8u_C1R(both.data(), both.step(), size, 0, 256.0f / size.width / size.height,
                                        ZorRampAlongBoth);
        return status;
      },
      3 * tour.pixels())
    .time("Copy_8u_P3C3R", [&] { return zoriCopy_8u_P3C3R(planes, right.step(), out.data(), out.step(), size); })
    .show(out);
}

} // namespace tour
