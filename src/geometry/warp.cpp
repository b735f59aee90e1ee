// zoriWarp{Affine,Perspective,Bilinear}{,Back,Quad}_{8u,16u,32f}_{C1,C3,C4,AC4,P3,P4}R: warps by coefficients and by
// quadrangles. The names fix the type and the layout; the frame (warp_frame.cpp) does the rest.
#include "warp.h"

#include "zori/geometry.h"

using namespace zori;

// clang-format off
#define IMAGE(type) const Zor##type*
#define IMAGES(type) Zor##type*
#define PLANES(type) const Zor##type* const*
#define PLANES_OUT(type) Zor##type* const*

#define STAMP(Kind, columns, type, layout, In, Out)                                                                    \
  ZorStatus zoriWarp##Kind##_##type##_##layout##R(In(type) pSrc, ZorImgSize srcSize, int srcStep, ZorImgRect srcRoi,   \
                                                  Out(type) pDst, int dstStep, ZorImgRect dstRoi,                      \
                                                  const double coeffs[][columns], int interpolation)                   \
  {                                                                                                                    \
    return geometry::warp##Kind(geometry::warpCall<layout>(geometry::sampleType<Zor##type>, pSrc, srcSize, srcStep,    \
                                                           srcRoi, pDst, dstStep, dstRoi, interpolation), coeffs);     \
  }
#define QUAD_STAMP(Kind, type, layout, In, Out)                                                                        \
  ZorStatus zoriWarp##Kind##Quad_##type##_##layout##R(                                                                 \
    In(type) pSrc, ZorImgSize srcSize, int srcStep, ZorImgRect srcRoi, const double srcQuad[][2], Out(type) pDst,      \
    int dstStep, ZorImgRect dstRoi, const double dstQuad[][2], int interpolation)                                      \
  {                                                                                                                    \
    return geometry::warp##Kind##Quad(                                                                                 \
      geometry::warpCall<layout>(geometry::sampleType<Zor##type>, pSrc, srcSize, srcStep, srcRoi, pDst, dstStep,       \
                                 dstRoi, interpolation), srcQuad, dstQuad);                                            \
  }
#define KINDS(type, layout, In, Out)                                                                                   \
  STAMP(Affine, 3, type, layout, In, Out) STAMP(AffineBack, 3, type, layout, In, Out)                                  \
  STAMP(Perspective, 3, type, layout, In, Out) STAMP(PerspectiveBack, 3, type, layout, In, Out)                        \
  STAMP(Bilinear, 4, type, layout, In, Out) STAMP(BilinearBack, 4, type, layout, In, Out)                              \
  QUAD_STAMP(Affine, type, layout, In, Out) QUAD_STAMP(Perspective, type, layout, In, Out)                             \
  QUAD_STAMP(Bilinear, type, layout, In, Out)
#define STAMPS(type)                                                                                                   \
  KINDS(type, C1, IMAGE, IMAGES) KINDS(type, C3, IMAGE, IMAGES) KINDS(type, C4, IMAGE, IMAGES)                         \
  KINDS(type, AC4, IMAGE, IMAGES) KINDS(type, P3, PLANES, PLANES_OUT) KINDS(type, P4, PLANES, PLANES_OUT)
STAMPS(8u) STAMPS(16u) STAMPS(32f)
#undef STAMPS
#undef KINDS
#undef QUAD_STAMP
#undef STAMP
