// Correlation: a piece of the picture found again under noise, and marked.
#include "tour/tour.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

namespace tour {

namespace {

using Plane = example::Image<Zor32f, 1>;

// The square of this side that differs most from its own mean, among some of the picture.
ZorImgPoint mostDistinct(const Grey& grey, int side)
{
  constexpr int across = 7;
  ZorImgPoint best = {0, 0};
  double most = -1;
  for (int j = 0; j < across; ++j)
    for (int i = 0; i < across; ++i) {
      const ZorImgPoint at = {(grey.width() - side) * i / (across - 1), (grey.height() - side) * j / (across - 1)};
      Zor64f mean, norm;
      ZORI_CHECK(zoriMean_8u_C1R(grey.at(at.x, at.y), grey.step(), {side, side}, &mean));
      ZORI_CHECK(zoriNorm_L2_8u_C1R(grey.at(at.x, at.y), grey.step(), {side, side}, &norm));
      const double deviation = norm * norm - mean * mean * side * side;
      if (deviation > most) most = deviation, best = at;
    }
  return best;
}

void frame(Picture& picture, ZorImgPoint at, int side, int thickness, const Zor8u (&colour)[3])
{
  const auto bar = [&](int x, int y, int width, int height) {
    const int right = std::min(x + width, picture.width()), bottom = std::min(y + height, picture.height());
    x = std::max(x, 0), y = std::max(y, 0);
    if (right > x && bottom > y)
      ZORI_CHECK(zoriSet_8u_C3R(colour, picture.at(x, y), picture.step(), {right - x, bottom - y}));
  };
  const int t = thickness, whole = side + 2 * t;
  bar(at.x - t, at.y - t, whole, t);
  bar(at.x - t, at.y + side, whole, t);
  bar(at.x - t, at.y - t, t, whole);
  bar(at.x + side, at.y - t, t, whole);
}

void foundAgain(Tour& tour)
{
  const ZorImgSize size = tour.size();
  const int side = std::min({48, size.width / 4, size.height / 4});
  if (side < 4) return;
  const ZorImgPoint from = mostDistinct(tour.grey(), side);
  Grey piece(side, side), noisy(size);
  ZORI_CHECK(
    zoriCopy_8u_C1R(tour.grey().at(from.x, from.y), tour.grey().step(), piece.data(), piece.step(), piece.size()));
  // the picture is darkened, flattened and full of noise
  ZORI_CHECK(zoriMulC_8u_C1RSfs(tour.grey().data(), tour.grey().step(), 5, noisy.data(), noisy.step(), size, 3));
  Zor32u seed = 3;
  ZORI_CHECK(zoriAddRandGauss_Direct_8u_C1IR(noisy.data(), noisy.step(), size, 0, 20, &seed));

  Plane likeness(size.width - side + 1, size.height - side + 1);
  Stage& stage = tour.stage("A piece found again").highlight();
  stage.time("CrossCorrValid_NormLevel_8u32f", [&] {
    return zoriCrossCorrValid_NormLevel_8u32f_C1R(noisy.data(), noisy.step(), size, piece.data(), piece.step(),
                                                  piece.size(), likeness.data(), likeness.step());
  });
  Zor32f best;
  int x, y;
  ZORI_CHECK(zoriMaxIndx_32f_C1R(likeness.data(), likeness.step(), likeness.size(), &best, &x, &y));
  Picture marked(size);
  ZORI_CHECK(zoriDup_8u_C1C3R(noisy.data(), noisy.step(), marked.data(), marked.step(), size));
  const Zor8u colour[3] = {255, 64, 32};
  frame(marked, {x, y}, side, std::max(2, size.width / 200), colour);
  char text[96];
  std::snprintf(text, sizeof text, "cut from %d, %d; found at %d, %d: %.2f", from.x, from.y, x, y, best);
  stage.note(text).show(marked);

  Grey map(likeness.size());
  ZORI_CHECK(zoriScale_32f8u_C1R(likeness.data(), likeness.step(), map.data(), map.step(), map.size(), -0.2f,
                                 std::max(best, 0.1f)));
  tour.stage("How alike each place is").note("correlation coefficient, from -0.2 on").show(map);
}

} // namespace

void correlationStages(Tour& tour) { foundAgain(tour); }

} // namespace tour
