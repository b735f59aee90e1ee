// zoriSqrDistance{Full,Same,Valid}_Norm_{32f,8u32f,8s32f,16u32f}_{C1,C3,C4,AC4}R and ..._8u_{C1,C3,C4,AC4}RSfs: the sum
// of squared differences of a template and every window, ((-2 C + Q) + |t|^2) / (sqrt(max(Q, eps)) * max(|t|, eps)),
// with the correlation C in tiles (tile_engine.h).
#include "extents.h"
#include "zori/correlation.h"

namespace zori {
namespace {

template <Layout L, class T, class D> ZorStatus squareDistance(CorrelationExtent extent, const MatchArguments<T, D>& a)
{
  if (auto s = a.check(); s != ZorOk) return s;
  return matchInTiles<L>(a, extent, LastStep::Distance);
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(extent, name, src, dst, layout, suffix, last, scale)                                                   \
  ZorStatus zoriSqrDistance##extent##_Norm_##name##_##layout##suffix(                                                \
    const Zor##src* pSrc, int srcStep, ZorImgSize srcRoiSize, const Zor##src* pTpl, int tplStep,                     \
    ZorImgSize tplRoiSize, Zor##dst* pDst, int dstStep last)                                                         \
  { return squareDistance<layout, Zor##src, Zor##dst>(CorrelationExtent::extent, {pSrc, srcStep, srcRoiSize, pTpl,   \
                                                      tplStep, tplRoiSize, pDst, dstStep, scale}); }
#define COMMA ,
#define TYPES(extent, layout)                                                                                        \
  STAMP(extent, 32f, 32f, 32f, layout, R, , 0) STAMP(extent, 8u32f, 8u, 32f, layout, R, , 0)                          \
  STAMP(extent, 8s32f, 8s, 32f, layout, R, , 0) STAMP(extent, 16u32f, 16u, 32f, layout, R, , 0)                       \
  STAMP(extent, 8u, 8u, 8u, layout, RSfs, COMMA int scaleFactor, scaleFactor)
#define LAYOUTS(extent) TYPES(extent, C1) TYPES(extent, C3) TYPES(extent, C4) TYPES(extent, AC4)
LAYOUTS(Full) LAYOUTS(Same) LAYOUTS(Valid)
#undef LAYOUTS
#undef TYPES
#undef COMMA
#undef STAMP
