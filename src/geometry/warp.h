// The frame of all warps: checks in their order, the covered part of the destination, the walk over its rows.
#pragma once

#include "calculus.h"
#include "frame/checks.h"
#include "frame/layout.h"
#include "sampling.h"

namespace zori {
namespace geometry {

template <class T>
inline constexpr SampleType sampleType = std::is_same_v<T, Zor8u>    ? SampleType::U8
                                         : std::is_same_v<T, Zor16u> ? SampleType::U16
                                                                     : SampleType::F32;

// The image arguments of a warp as they come, whatever the type of sample. Those of planar layouts are arrays of
// planes.
struct WarpCall {
  const void* src;
  ZorImgSize srcSize;
  int srcStep;
  ZorImgRect srcRoi;
  void* dst;
  int dstStep;
  ZorImgRect dstRoi;
  int interpolation;
  SampleType type;
  Layout layout;

  int planeCount() const { return layout == P3 ? 3 : layout == P4 ? 4 : 1; }
  int channelCount() const { return layout == C3 ? 3 : layout == C4 || layout == AC4 ? 4 : 1; }
  int sampleBytes() const { return type == SampleType::U8 ? 1 : type == SampleType::U16 ? 2 : 4; }
  int pixelBytes() const { return channelCount() * sampleBytes(); }
  const Zor8u* srcPlane(int i) const
  {
    return planeCount() == 1 ? static_cast<const Zor8u*>(src) : static_cast<const Zor8u* const*>(src)[i];
  }
  Zor8u* dstPlane(int i) const
  {
    return planeCount() == 1 ? static_cast<Zor8u*>(dst) : static_cast<Zor8u* const*>(dst)[i];
  }
  Source source() const { return {srcSize.width, srcSize.height, srcStep, pixelBytes()}; }
};

template <Layout L, class Src, class Dst>
WarpCall warpCall(SampleType type, Src* pSrc, ZorImgSize srcSize, int srcStep, ZorImgRect srcRoi, Dst* pDst,
                  int dstStep, ZorImgRect dstRoi, int interpolation = ZORI_INTER_NN)
{
  return {pSrc,    srcSize, srcStep,       srcRoi, const_cast<void*>(static_cast<const void*>(pDst)),
          dstStep, dstRoi,  interpolation, type,   L};
}

// Pointers, sizes, steps.
ZorStatus checkImages(const WarpCall& call);
ZorStatus checkPlanes(const WarpCall& call);
// ZorWarnNoRoiIntersect, or the region cut to the image.
ZorStatus clipRegion(const WarpCall& call, ZorImgRect& region);

// Coefficients from source to destination, or (Back) from destination to source, or by two quadrangles.
ZorStatus warpAffine(const WarpCall& call, const double (*coeffs)[3]);
ZorStatus warpAffineBack(const WarpCall& call, const double (*coeffs)[3]);
ZorStatus warpAffineQuad(const WarpCall& call, const double (*srcQuad)[2], const double (*dstQuad)[2]);
ZorStatus warpPerspective(const WarpCall& call, const double (*coeffs)[3]);
ZorStatus warpPerspectiveBack(const WarpCall& call, const double (*coeffs)[3]);
ZorStatus warpPerspectiveQuad(const WarpCall& call, const double (*srcQuad)[2], const double (*dstQuad)[2]);
ZorStatus warpBilinear(const WarpCall& call, const double (*coeffs)[4]);
ZorStatus warpBilinearBack(const WarpCall& call, const double (*coeffs)[4]);
ZorStatus warpBilinearQuad(const WarpCall& call, const double (*srcQuad)[2], const double (*dstQuad)[2]);

// Blends the pixels just outside the slanted edges of the written polygon with those just inside, by their distances
// from the edge.
void smoothEdges(const WarpCall& call, const Polygon& polygon, bool isPositive);

} // namespace geometry
} // namespace zori
