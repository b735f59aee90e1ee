// stats: where a round mark lies, to a fraction of a pixel, in a noisy picture: the centre of gravity of its
// brightness.
#include "support/image.h"

#include <cmath>
#include <cstdio>
#include <memory>

int main()
{
  const ZorImgSize size = {128, 96};
  const double x0 = 71.3, y0 = 40.8;
  example::Grey picture(size);
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x) {
      const double distance = std::hypot(x - x0, y - y0);
      *picture.at(x, y) = static_cast<Zor8u>(std::lround(200 / (1 + std::exp(distance - 12))));
    }
  Zor32u seed = 1;
  ZORI_CHECK(zoriAddRandUniform_Direct_8u_C1IR(picture.data(), picture.step(), size, 0, 20, &seed));
  // noise does not weigh: what is below 40 becomes 0
  ZORI_CHECK(zoriThreshold_LTVal_8u_C1IR(picture.data(), picture.step(), size, 40, 0));

  ZorMomentState* made = nullptr;
  ZORI_CHECK(zoriMomentInitAlloc_64f(&made, ZorHintNone));
  const std::unique_ptr<ZorMomentState, ZorStatus (*)(ZorMomentState*)> state(made, zoriMomentFree_64f);
  ZORI_CHECK(zoriMoments64f_8u_C1R(picture.data(), picture.step(), size, state.get()));
  Zor64f mass, sumX, sumY;
  const ZorImgPoint origin = {0, 0};
  ZORI_CHECK(zoriGetSpatialMoment_64f(state.get(), 0, 0, 0, origin, &mass));
  ZORI_CHECK(zoriGetSpatialMoment_64f(state.get(), 1, 0, 0, origin, &sumX));
  ZORI_CHECK(zoriGetSpatialMoment_64f(state.get(), 0, 1, 0, origin, &sumY));

  std::printf("mark at (%.2f, %.2f), found at (%.2f, %.2f)\n", x0, y0, sumX / mass, sumY / mass);
  return std::fabs(sumX / mass - x0) < 0.2 && std::fabs(sumY / mass - y0) < 0.2 ? 0 : 1;
}
