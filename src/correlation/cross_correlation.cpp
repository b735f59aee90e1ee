// zoriCrossCorr{Full,Same,Valid}_{Norm,NormLevel}_{32f,8u32f,8s32f,16u32f}_{C1,C3,C4,AC4}R and
// ..._8u_{C1,C3,C4,AC4}RSfs, zoriCrossCorrValid_{32f,8u32f,8s32f,16u32f}_C1R: how much every window of an image
// resembles a template, with C the sum of products, S and Q the sums of a window and of its squares, t' = t - mean(t):
//
//   plain      C
//   Norm       C / (sqrt(max(Q, eps)) * max(|t|, eps))
//   NormLevel  (C - mean(t) S) / sqrt(max(Q - S S / N, eps) * max(|t'|^2, eps))
//
// In tiles (tile_engine.h). The C1 forms of Valid_NormLevel that are not 16u sum directly (direct_match.h) where the
// results are few: up to 27 in a row, up to 64 with a template of at most 10 columns or a source of at most 44.
#include "direct_match.h"
#include "extents.h"
#include "zori/correlation.h"

namespace zori {
namespace {

bool isSummedDirectly(int srcWidth, int tplWidth)
{
  const int results = srcWidth - tplWidth + 1;
  return results <= 27 || ((tplWidth <= 10 || srcWidth <= 44) && results <= 64);
}

template <Layout L, class T, class D>
ZorStatus crossCorr(CorrelationExtent extent, LastStep last, const MatchArguments<T, D>& a)
{
  if (auto s = a.check(); s != ZorOk) return s;
  if constexpr (L == C1 && !std::is_same_v<T, Zor16u>)
    if (extent == CorrelationExtent::Valid && last == LastStep::Level &&
        isSummedDirectly(a.srcSize.width, a.tplSize.width))
      return matchDirectly(a);
  return matchInTiles<L>(a, extent, last);
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(form, extent, step, name, src, dst, layout, suffix, last, scale)                                       \
  ZorStatus zoriCrossCorr##form##_##name##_##layout##suffix(                                                         \
    const Zor##src* pSrc, int srcStep, ZorImgSize srcRoiSize, const Zor##src* pTpl, int tplStep,                     \
    ZorImgSize tplRoiSize, Zor##dst* pDst, int dstStep last)                                                         \
  { return crossCorr<layout, Zor##src, Zor##dst>(CorrelationExtent::extent, LastStep::step, {pSrc, srcStep,          \
                                                 srcRoiSize, pTpl, tplStep, tplRoiSize, pDst, dstStep, scale}); }
#define COMMA ,
#define TYPES(form, extent, step, layout)                                                                            \
  STAMP(form, extent, step, 32f, 32f, 32f, layout, R, , 0) STAMP(form, extent, step, 8u32f, 8u, 32f, layout, R, , 0)  \
  STAMP(form, extent, step, 8s32f, 8s, 32f, layout, R, , 0)                                                          \
  STAMP(form, extent, step, 16u32f, 16u, 32f, layout, R, , 0)
#define LAYOUT(extent, name, step, layout)                                                                           \
  TYPES(extent##_##name, extent, step, layout)                                                                       \
  STAMP(extent##_##name, extent, step, 8u, 8u, 8u, layout, RSfs, COMMA int scaleFactor, scaleFactor)
#define LAYOUTS(extent, name, step)                                                                                  \
  LAYOUT(extent, name, step, C1) LAYOUT(extent, name, step, C3) LAYOUT(extent, name, step, C4)                       \
  LAYOUT(extent, name, step, AC4)
LAYOUTS(Full, Norm, Norm) LAYOUTS(Same, Norm, Norm) LAYOUTS(Valid, Norm, Norm)
LAYOUTS(Full, NormLevel, Level) LAYOUTS(Same, NormLevel, Level) LAYOUTS(Valid, NormLevel, Level)
TYPES(Valid, Valid, Plain, C1)
#undef LAYOUTS
#undef LAYOUT
#undef TYPES
#undef COMMA
#undef STAMP
