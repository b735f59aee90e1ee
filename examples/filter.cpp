// filter: autofocus. Of a series of pictures the sharpest is the one with the most energy in its second derivative.
// Filters read a margin around their region, so each picture lies in a frame that repeats its edges.
#include "support/image.h"

#include <cstdio>

using example::Grey;

namespace {

// The picture inside a frame of `margin` pixels on every side.
Grey framed(const Grey& picture, int margin)
{
  Grey frame(picture.width() + 2 * margin, picture.height() + 2 * margin);
  ZORI_CHECK(zoriCopyReplicateBorder_8u_C1R(picture.data(), picture.step(), picture.size(), frame.data(), frame.step(),
                                            frame.size(), margin, margin));
  return frame;
}

Grey blurred(const Grey& picture, int side)
{
  const Grey source = framed(picture, side / 2);
  Grey result(picture.size());
  ZORI_CHECK(zoriFilterBox_8u_C1R(source.at(side / 2, side / 2), source.step(), result.data(), result.step(),
                                  picture.size(), {side, side}, {side / 2, side / 2}));
  return result;
}

double sharpness(const Grey& picture)
{
  const Grey source = framed(picture, 1);
  example::Image<Zor16s, 1> curvature(picture.size());
  Zor64f norm;
  ZORI_CHECK(zoriFilterLaplace_8u16s_C1R(source.at(1, 1), source.step(), curvature.data(), curvature.step(),
                                         picture.size(), ZorMask3x3));
  ZORI_CHECK(zoriNorm_L2_16s_C1R(curvature.data(), curvature.step(), picture.size(), &norm));
  return norm;
}

} // namespace

int main()
{
  Grey scene(400, 300);
  ZORI_CHECK(zoriImageJaehne_8u_C1R(scene.data(), scene.step(), scene.size()));

  const int blurs[] = {9, 5, 3, 1, 3, 7}; // what the lens does as it is moved through the focus
  int best = -1, step = 0;
  double most = -1;
  for (int side : blurs) {
    const double s = sharpness(blurred(scene, side));
    std::printf("step %d: sharpness %.0f\n", step, s);
    if (s > most) most = s, best = step;
    ++step;
  }
  std::printf("in focus at step %d\n", best);
  return best == 3 ? 0 : 1;
}
