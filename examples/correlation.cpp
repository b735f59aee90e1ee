// correlation: how far one picture is shifted against another. A square from the middle of the first is looked for in
// the second, to a fraction of a pixel: a parabola through the best place and its neighbours.
#include "support/image.h"

#include <cmath>
#include <cstdio>

using example::Grey;
using Plane = example::Image<Zor32f, 1>;

namespace {

// Smooth texture, moved by (dx, dy), with noise of its own.
Grey scene(ZorImgSize size, double dx, double dy, Zor32u seed)
{
  Grey picture(size);
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x) {
      const double u = x - dx, v = y - dy;
      const double value = 128 + 40 * std::sin(0.21 * u + 0.05 * v) * std::cos(0.17 * v) +
                           35 * std::sin(0.11 * u - 0.23 * v) +
                           25 * std::cos(0.013 * (u * 1.3 + v) * (0.3 * u - v) * 0.05);
      *picture.at(x, y) = static_cast<Zor8u>(std::lround(value));
    }
  ZORI_CHECK(zoriAddRandGauss_Direct_8u_C1IR(picture.data(), picture.step(), size, 0, 6, &seed));
  return picture;
}

// Where between -1/2 and 1/2 the parabola through three neighbours has its top.
double top(float before, float at, float after)
{
  const double bend = 2.0 * at - before - after;
  return bend > 0 ? 0.5 * (after - before) / bend : 0;
}

} // namespace

int main()
{
  const ZorImgSize size = {320, 240}, square = {64, 64};
  const double dx = 13.4, dy = -7.7;
  const Grey first = scene(size, 0, 0, 1), second = scene(size, dx, dy, 2);
  const ZorImgPoint from = {128, 88};

  Plane likeness(size.width - square.width + 1, size.height - square.height + 1);
  ZORI_CHECK(zoriCrossCorrValid_NormLevel_8u32f_C1R(second.data(), second.step(), size, first.at(from.x, from.y),
                                                    first.step(), square, likeness.data(), likeness.step()));
  Zor32f best;
  int x, y;
  ZORI_CHECK(zoriMaxIndx_32f_C1R(likeness.data(), likeness.step(), likeness.size(), &best, &x, &y));
  if (x < 1 || y < 1 || x + 1 >= likeness.width() || y + 1 >= likeness.height()) return 1;
  const double foundX = x - from.x + top(*likeness.at(x - 1, y), best, *likeness.at(x + 1, y));
  const double foundY = y - from.y + top(*likeness.at(x, y - 1), best, *likeness.at(x, y + 1));
  std::printf("shifted by (%.2f, %.2f), found (%.2f, %.2f), correlation %.3f\n", dx, dy, foundX, foundY, best);
  return std::fabs(foundX - dx) < 0.2 && std::fabs(foundY - dy) < 0.2 ? 0 : 1;
}
