// zoriResize, zoriResizeCenter, zoriResizeShift (_{8u,16u,32f}_{C1,C3,C4,AC4,P3,P4}R) and zoriGetResizeFract.
//
// Checks and mapping; the work is the driver's. Supersampling, which both factors must allow, goes its own way in
// zoriResize and zoriResizeCenter; zoriResizeShift does not know it.
#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "resize_driver.h"
#include "resize_super.h"
#include "zori/geometry.h"

#include <algorithm>
#include <cmath>

namespace zori {
namespace {

using namespace resize;

struct Regions {
  ZorImgSize srcSize;
  ZorImgRect srcRoi;
  ZorImgSize dstSize;
};

bool isAbove0(double x) { return x > 0; }

ZorStatus sourceStatus(ZorImgSize srcSize, ZorImgRect roi)
{
  return firstFailure(nonEmpty(srcSize),
                      require(roi.width >= 1 && roi.height >= 1 && roi.x >= 0 && roi.y >= 0, ZorErrSize),
                      require(roi.x < srcSize.width && roi.y < srcSize.height, ZorWarnNoRoiIntersect));
}
ZorStatus factorStatus(double x, double y) { return require(isAbove0(x) && isAbove0(y), ZorErrResizeFactor); }
bool isInterpolation(int i)
{
  return i == ZORI_INTER_NN || i == ZORI_INTER_LINEAR || i == ZORI_INTER_CUBIC || i == ZORI_INTER_LANCZOS;
}

Axis axisOf(int image, int first, int length, int limit)
{
  Axis axis = {image, first, length, limit};
  axis.cut();
  return axis;
}
Axis columnsOf(const Regions& r) { return axisOf(r.srcSize.width, r.srcRoi.x, r.srcRoi.width, r.dstSize.width); }
Axis rowsOf(const Regions& r) { return axisOf(r.srcSize.height, r.srcRoi.y, r.srcRoi.height, r.dstSize.height); }

ZorStatus regionStatus(const Images& images, const Regions& r, double x, double y)
{
  return firstFailure(require(!images.hasNull(), ZorErrNullPtr), sourceStatus(r.srcSize, r.srcRoi), nonEmpty(r.dstSize),
                      factorStatus(x, y));
}

// By factors. The shifts are added to all positions.
ZorStatus resizeByFactors(const Images& images, const Regions& r, double xFactor, double yFactor, double xShift,
                          double yShift, int interpolation)
{
  if (auto s = regionStatus(images, r, xFactor, yFactor); s != ZorOk) return s;
  const bool isSuper = interpolation == ZORI_INTER_SUPER && xFactor <= 1.0 && yFactor <= 1.0;
  if (!isSuper && !isInterpolation(interpolation)) return ZorErrInterpolation;
  Axis x = columnsOf(r), y = rowsOf(r);
  if (auto s = firstFailure(countByFactor(x, xFactor), countByFactor(y, yFactor)); s != ZorOk) return s;
  if (isSuper)
    return supersample(images, CoverSweep(x.first, x.length, 1 / xFactor), x.count,
                       CoverSweep(y.first, y.length, 1 / yFactor), y.count, xFactor * yFactor);
  const int used = interpolationFor(interpolation, r.srcSize.width, r.srcSize.height);
  const bool isNearest = used == ZORI_INTER_NN;
  place(x, isNearest, stepOfFactor(x, xFactor, isNearest), xShift);
  place(y, isNearest, stepOfFactor(y, yFactor, isNearest), yShift);
  return interpolate(images, x, y, used);
}

ZorStatus resizeBySteps(const Images& images, const Regions& r, double xFr, double yFr, double xShift, double yShift,
                        int interpolation)
{
  if (auto s =
        firstFailure(regionStatus(images, r, xFr, yFr), require(isInterpolation(interpolation), ZorErrInterpolation));
      s != ZorOk)
    return s;
  const int used = interpolationFor(interpolation, r.srcSize.width, r.srcSize.height);
  const bool isNearest = used == ZORI_INTER_NN;
  Axis x = columnsOf(r), y = rowsOf(r);
  place(x, isNearest, xFr, xShift);
  place(y, isNearest, yFr, yShift);
  countByStep(x, isNearest);
  countByStep(y, isNearest);
  return interpolate(images, x, y, used);
}

// One axis of a resize about a point: where the result begins and how much of the source it takes.
struct Centred {
  double dstStart, dstLength, srcStart, srcLength;

  Centred(int first, int length, int dstExtent, double factor, double centre)
  {
    const double start = (first - centre) * factor + 0.5 * dstExtent;
    const double end = (static_cast<double>(first) + length) * factor + start; // from the origin, not the centre
    dstStart = std::fmax(std::ceil(start), 0);
    dstLength = std::trunc(std::fmin(dstExtent, end)) - dstStart;
    srcLength = std::ceil(std::fmin((dstExtent - start) / factor, length));
    srcStart = (dstStart - 0.5 * dstExtent) / factor + centre;
  }
  // What does not fit an int (or is no number) leaves nothing of the region.
  bool isWithin() const
  {
    const auto fits = [](double x) { return std::fabs(x) < 2147483647.0; };
    return fits(dstStart) && fits(dstLength) && fits(srcStart) && fits(srcLength);
  }
};

ZorStatus resizeAboutCentre(Images images, Regions r, double xFactor, double yFactor, double xCenter, double yCenter,
                            int interpolation)
{
  if (auto s = firstFailure(sourceStatus(r.srcSize, r.srcRoi), nonEmpty(r.dstSize), factorStatus(xFactor, yFactor));
      s != ZorOk)
    return s;
  const Axis wholeX = columnsOf(r), wholeY = rowsOf(r);
  const Centred x(wholeX.first, wholeX.length, r.dstSize.width, xFactor, xCenter),
    y(wholeY.first, wholeY.length, r.dstSize.height, yFactor, yCenter);
  if (!x.isWithin() || !y.isWithin()) return images.hasNull() ? ZorErrNullPtr : ZorErrSize;
  const int left = static_cast<int>(x.srcStart), top = static_cast<int>(y.srcStart);
  r.srcRoi = {left, top, static_cast<int>(x.srcLength), static_cast<int>(y.srcLength)};
  r.dstSize = {static_cast<int>(x.dstLength), static_cast<int>(y.dstLength)};
  if (!images.hasNull() && r.dstSize.width > 0 && r.dstSize.height > 0)
    for (int p = 0; p < images.planes; ++p)
      images.dst[p] =
        images.dstRow(p, static_cast<int>(y.dstStart)) + static_cast<std::ptrdiff_t>(x.dstStart) * images.pixelBytes();
  return resizeByFactors(images, r, xFactor, yFactor, x.srcStart - left, y.srcStart - top, interpolation);
}

// ---- Entries: the rounding that all planning runs under ----

struct Mapping { // what the three forms take
  double x, y, xMore, yMore;
  int interpolation;
};
using Form = ZorStatus (*)(const Images&, const Regions&, const Mapping&);

[[gnu::noinline]] ZorStatus byFactors(const Images& images, const Regions& r, const Mapping& m)
{
  return resizeByFactors(images, r, m.x, m.y, 0, 0, m.interpolation);
}
[[gnu::noinline]] ZorStatus bySteps(const Images& images, const Regions& r, const Mapping& m)
{
  return resizeBySteps(images, r, m.x, m.y, m.xMore, m.yMore, m.interpolation);
}
[[gnu::noinline]] ZorStatus aboutCentre(const Images& images, const Regions& r, const Mapping& m)
{
  return resizeAboutCentre(images, r, m.x, m.y, m.xMore, m.yMore, m.interpolation);
}

[[gnu::noinline]] ZorStatus underNearest(Form form, const Images& images, const Regions& r, const Mapping& m)
{
  const RoundingScope nearest(Rounding::Nearest);
  return form(images, r, m);
}

template <Layout L, class S, class D>
ZorStatus resizeImage(Form form, S pSrc, int srcStep, D pDst, int dstStep, const Regions& r, const Mapping& m)
{
  if constexpr (planes < L >> 1)
    if (auto s = firstFailure(nonNullPlanes<planes<L>>(pSrc), nonNullPlanes<planes<L>>(pDst)); s != ZorOk) return s;
  if (form == aboutCentre && !pDst) return ZorErrNullPtr;
  using T = std::remove_const_t<std::remove_pointer_t<std::remove_const_t<std::remove_pointer_t<D>>>>;
  return underNearest(form, imagesOf<T, L>(pSrc, srcStep, pDst, dstStep), r, m);
}

[[gnu::noinline]] void storeSteps(const Axis& x, const Axis& y, double xFactor, double yFactor, bool isNearest,
                                  double* pxFr, double* pyFr)
{
  const double steps[2] = {stepOfFactor(x, xFactor, isNearest), stepOfFactor(y, yFactor, isNearest)};
  *pxFr = steps[0];
  *pyFr = steps[1];
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriGetResizeFract(ZorImgSize srcSize, ZorImgRect srcRoi, double xFactor, double yFactor, double* pxFr,
                             double* pyFr, int interpolation)
{
  if (auto s = firstFailure(sourceStatus(srcSize, srcRoi), factorStatus(xFactor, yFactor), nonNull(pxFr, pyFr),
                            require(isInterpolation(interpolation), ZorErrInterpolation));
      s != ZorOk)
    return s;
  const RoundingScope nearest(Rounding::Nearest);
  const Regions r = {srcSize, srcRoi, {1, 1}};
  storeSteps(columnsOf(r), rowsOf(r), xFactor, yFactor, interpolation == ZORI_INTER_NN, pxFr, pyFr);
  return ZorOk;
}

// clang-format off
#define STAMP(type, layout, Src, Dst)                                                                                  \
  ZorStatus zoriResize_##type##_##layout##R(Src, ZorImgSize srcSize, int srcStep, ZorImgRect srcRoi, Dst, int dstStep, \
                                            ZorImgSize dstRoiSize, double xFactor, double yFactor, int interpolation)  \
  {                                                                                                                    \
    return resizeImage<layout>(byFactors, pSrc, srcStep, pDst, dstStep, {srcSize, srcRoi, dstRoiSize},                 \
                               {xFactor, yFactor, 0, 0, interpolation});                                               \
  }                                                                                                                    \
  ZorStatus zoriResizeCenter_##type##_##layout##R(Src, ZorImgSize srcSize, int srcStep, ZorImgRect srcRoi, Dst,        \
                                                  int dstStep, ZorImgSize dstRoiSize, double xFactor, double yFactor,  \
                                                  double xCenter, double yCenter, int interpolation)                   \
  {                                                                                                                    \
    return resizeImage<layout>(aboutCentre, pSrc, srcStep, pDst, dstStep, {srcSize, srcRoi, dstRoiSize},               \
                               {xFactor, yFactor, xCenter, yCenter, interpolation});                                   \
  }                                                                                                                    \
  ZorStatus zoriResizeShift_##type##_##layout##R(Src, ZorImgSize srcSize, int srcStep, ZorImgRect srcRoi, Dst,         \
                                                 int dstStep, ZorImgSize dstRoiSize, double xFr, double yFr,           \
                                                 double xShift, double yShift, int interpolation)                      \
  {                                                                                                                    \
    return resizeImage<layout>(bySteps, pSrc, srcStep, pDst, dstStep, {srcSize, srcRoi, dstRoiSize},                   \
                               {xFr, yFr, xShift, yShift, interpolation});                                             \
  }
#define PIXELS(type, layout) STAMP(type, layout, const Zor##type* pSrc, Zor##type* pDst)
#define PLANES(type, layout, n) STAMP(type, layout, const Zor##type* const pSrc[n], Zor##type* const pDst[n])
#define TYPE(type) PIXELS(type, C1) PIXELS(type, C3) PIXELS(type, C4) PIXELS(type, AC4) PLANES(type, P3, 3) PLANES(type, P4, 4)
TYPE(8u) TYPE(16u) TYPE(32f)
#undef TYPE
#undef PLANES
#undef PIXELS
#undef STAMP
