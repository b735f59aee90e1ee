// zoriResizeYUV422_8u_C2R: luma and chroma as the images of one channel that they are.
#include "resize_reference.h"
#include "zori/geometry.h"

#include <gtest/gtest.h>

namespace {

using namespace resizetest;

struct Call {
  ZorImgSize size;
  ZorImgRect roi;
  ZorImgSize dstSize;
  double x, y;
  int interpolation;
};

ZorStatus expect(const Call& c, const Image<Zor8u>& src, Image<Zor8u>& dst)
{
  const int width = std::min(c.roi.width, c.size.width - c.roi.x);
  int used = c.interpolation;
  if (used == 4 && !(c.size.width >= 8 && c.size.height >= 4)) used = 2;
  if (!(c.size.width >= 4 && c.size.height >= 2)) used = 1;
  const double exact = width * c.x + e;
  if (exact < 1.5) return ZorErrSubsample;
  const int macros = (exact >= c.dstSize.width ? c.dstSize.width : std::max(2, static_cast<int>(exact))) / 2;
  Line y(c.size.height, c.roi.y, c.roi.height, c.dstSize.height);
  if (!y.byFactor(c.y, used == 1)) return ZorErrSubsample;
  if (c.interpolation == 8 && (c.x > 1 || c.y > 1)) return ZorErrResizeFactor;
  y.shifted(0, used == 1);
  for (int part = 0; part < 3; ++part) { // luma, U, V
    const int each = part == 0 ? 2 : 1, first = part == 0 ? 0 : 2 * part - 1, stride = part == 0 ? 2 : 4;
    Line x(1 << 20, c.roi.x * each, width / 2 * each, macros * each);
    x.byFactor(c.x, used == 1);
    x.image = c.size.width / 2 * each;
    x.count = macros * each;
    x.shifted(0, used == 1);
    const auto sample = [&](int column, int row) {
      return src.get(row, first + std::clamp(column, 0, x.image - 1) * stride);
    };
    const auto out =
      c.interpolation == 8 ? super<Zor8u>(x, y, c.x, c.y, sample) : interpolated<Zor8u>(used, x, y, sample);
    for (int j = 0, n = 0; j < y.count; ++j)
      for (int i = 0; i < x.count; ++i, ++n) dst.put(j, first + i * stride, out[static_cast<std::size_t>(n)]);
  }
  return ZorOk;
}

TEST(ResizeYUV422, ResizesLumaAndChromaOnTheirOwnGrids)
{
  Random r(422);
  constexpr int interpolations[] = {1, 2, 4, 8};
  for (unsigned seed = 0; seed < 4000; ++seed) {
    Call c;
    c.size = {2 * r.between(1, seed % 3 ? 40 : 5), r.between(1, seed % 3 ? 30 : 5)};
    c.roi = {2 * r.below((c.size.width + 1) / 2), r.below(c.size.height), 2 * r.between(1, 40), r.between(1, 30)};
    if (r.below(2)) c.roi = {0, 0, c.size.width, c.size.height};
    c.dstSize = {r.between(2, 70), r.between(1, 30)};
    c.interpolation = interpolations[r.below(4)];
    c.x = r.real(0.1, c.interpolation == 8 ? 1.05 : 3);
    if (r.below(4) == 0) { // one pair, or none: positions grow beyond the region
      c.size.width = 200;
      c.roi = {2 * r.below(8), c.roi.y, 2 * r.between(8, 40), c.roi.height};
      c.x = r.real(1.4, 2.6) / c.roi.width;
    }
    c.y = r.below(2) ? r.real(0.1, c.interpolation == 8 ? 1 : 3) : 0.5;
    if (seed % 1000 == 0) { // for a team
      c.size = {900, 310};
      c.roi = {10, 3, 880, 300};
      c.dstSize = {900, 280};
      c.x = c.y = 0.9;
    }
    const Image<Zor8u> src(c.size, 2, r.below(3), seed);
    Image<Zor8u> dst(c.dstSize, 2, r.below(3), seed + 1), expected = dst;
    const ZorStatus want = expect(c, src, expected);
    const auto status = [&] {
      const Surroundings some(seed / 1000 + seed);
      return zoriResizeYUV422_8u_C2R(src.data(), c.size, src.step(), c.roi, dst.data(), dst.step(), c.dstSize, c.x, c.y,
                                     c.interpolation);
    };
    ASSERT_EQ(status(), want) << seed;
    ASSERT_EQ(dst.difference(expected), "")
      << "seed " << seed << " interpolation " << c.interpolation << " x " << c.roi.x;
  }
}

} // namespace
