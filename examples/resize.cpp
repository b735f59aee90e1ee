// geometry: a picture at the sizes that a page needs. Smaller ones are means of areas, so that no pixel is lost; larger
// ones are interpolated; a map that shows a part of a large picture tile by tile keeps one grid across the tiles.
#include "support/image.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

using example::Grey;

namespace {

ZorImgRect whole(const Grey& picture) { return {0, 0, picture.width(), picture.height()}; }

Grey resized(const Grey& picture, double factor)
{
  Grey result(std::max(1, static_cast<int>(picture.width() * factor + 1e-7)),
              std::max(1, static_cast<int>(picture.height() * factor + 1e-7)));
  const int interpolation = factor <= 1 ? ZORI_INTER_SUPER : ZORI_INTER_CUBIC;
  ZORI_CHECK(zoriResize_8u_C1R(picture.data(), picture.size(), picture.step(), whole(picture), result.data(),
                               result.step(), result.size(), factor, factor, interpolation));
  return result;
}

// The same as one call of zoriResize, made in tiles of `side` pixels.
Grey tiled(const Grey& picture, double factor, int side)
{
  double xStep, yStep;
  ZORI_CHECK(zoriGetResizeFract(picture.size(), whole(picture), factor, factor, &xStep, &yStep, ZORI_INTER_LINEAR));
  Grey result(static_cast<int>(picture.width() * factor + 1e-7), static_cast<int>(picture.height() * factor + 1e-7));
  for (int y = 0; y < result.height(); y += side)
    for (int x = 0; x < result.width(); x += side) {
      const ZorImgSize tile = {std::min(side, result.width() - x), std::min(side, result.height() - y)};
      ZORI_CHECK(zoriResizeShift_8u_C1R(picture.data(), picture.size(), picture.step(), whole(picture), result.at(x, y),
                                        result.step(), tile, xStep, yStep, x * xStep, y * yStep, ZORI_INTER_LINEAR));
    }
  return result;
}

double mean(const Grey& picture)
{
  Zor64f value;
  ZORI_CHECK(zoriMean_8u_C1R(picture.data(), picture.step(), picture.size(), &value));
  return value;
}

} // namespace

int main()
{
  Grey scene(400, 300);
  ZORI_CHECK(zoriImageJaehne_8u_C1R(scene.data(), scene.step(), scene.size()));
  std::printf("the picture: %d x %d, mean %.1f\n", scene.width(), scene.height(), mean(scene));
  for (double factor : {0.1, 0.5, 1.5, 3.0}) {
    const Grey other = resized(scene, factor);
    std::printf("times %.1f: %d x %d, mean %.1f\n", factor, other.width(), other.height(), mean(other));
  }

  const Grey map = tiled(scene, 2.5, 128);
  Grey once(map.size());
  ZORI_CHECK(zoriResize_8u_C1R(scene.data(), scene.size(), scene.step(), whole(scene), once.data(), once.step(),
                               once.size(), 2.5, 2.5, ZORI_INTER_LINEAR));
  Zor64f difference;
  ZORI_CHECK(zoriNormDiff_Inf_8u_C1R(map.data(), map.step(), once.data(), once.step(), once.size(), &difference));
  std::printf("tiles differ from the whole by %.0f at most\n", difference);
  return difference <= 1 ? 0 : 1;
}
