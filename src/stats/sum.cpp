// zoriSum_{8u,16u,16s,32f}_{C1,C3,C4,AC4}R, zoriMean_{8u,16u,16s,32f}_{C1,C3,C4,AC4}R.
//
// Integers are summed exactly. Floats go one of two ways by the hint: in double (accurate), or rows in single precision
// and their totals in double. The mean divides in C1 and multiplies by the reciprocal elsewhere.
#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "rowkernels/reduce.h"
#include "zori/stats.h"

namespace zori {
namespace {

template <class T, Layout L> void sumImage(Rows<const T> src, ZorImgSize roi, Zor64f* sum, ZorHint hint)
{
  const auto sumWith = [=](auto make) {
    const auto use = [=](const auto& reducers) {
      for (int k = 0; k < processed<L>; ++k) sum[k] = reducers[k].value();
    };
    reduceRegion<L>(roi, make, use, src);
  };
  if constexpr (!std::is_same_v<T, Zor32f>) sumWith([](auto bytes, int) { return IntegerSum<T, bytes>{}; });
  else if (hint == ZorHintAccurate) sumWith([](auto bytes, int) { return AccurateSumOf<L, bytes>{}; });
  else sumWith([](auto bytes, int) { return FastSum<bytes>{}; });
}

template <class T, Layout L>
ZorStatus sumRegion(const T* pSrc, int srcStep, ZorImgSize roiSize, Zor64f* sum, ZorHint hint = ZorHintNone)
{
  if (auto s = firstFailure(nonNull(pSrc, sum), nonEmpty(roiSize)); s != ZorOk) return s;
  underRounding(Rounding::Nearest, [&] { sumImage<T, L>({pSrc, srcStep}, roiSize, sum, hint); });
  return ZorOk;
}

template <class T, Layout L>
ZorStatus meanRegion(const T* pSrc, int srcStep, ZorImgSize roiSize, Zor64f* mean, ZorHint hint = ZorHintNone)
{
  if (auto s = firstFailure(nonNull(pSrc, mean), nonEmpty(roiSize)); s != ZorOk) return s;
  underRounding(Rounding::Nearest, [&] {
    sumImage<T, L>({pSrc, srcStep}, roiSize, mean, hint);
    const double pixels = static_cast<double>(static_cast<long long>(roiSize.width) * roiSize.height);
    if constexpr (L == C1) *mean /= pixels;
    else {
      const double reciprocal = 1.0 / pixels;
      for (int k = 0; k < processed<L>; ++k) mean[k] *= reciprocal;
    }
  });
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout, result, sum, mean)                                                                  \
  ZorStatus zoriSum_##type##_##layout##R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize, result(sum))   \
  { return sumRegion<Zor##type, layout>(pSrc, srcStep, roiSize, sum); }                                         \
  ZorStatus zoriMean_##type##_##layout##R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize, result(mean)) \
  { return meanRegion<Zor##type, layout>(pSrc, srcStep, roiSize, mean); }
#define STAMP_HINT(layout, result, sum, mean)                                                                         \
  ZorStatus zoriSum_32f_##layout##R(const Zor32f* pSrc, int srcStep, ZorImgSize roiSize, result(sum), ZorHint hint)   \
  { return sumRegion<Zor32f, layout>(pSrc, srcStep, roiSize, sum, hint); }                                            \
  ZorStatus zoriMean_32f_##layout##R(const Zor32f* pSrc, int srcStep, ZorImgSize roiSize, result(mean), ZorHint hint) \
  { return meanRegion<Zor32f, layout>(pSrc, srcStep, roiSize, mean, hint); }
#define ONE(name) Zor64f* name
#define THREE(name) Zor64f name[3]
#define FOUR(name) Zor64f name[4]
#define STAMPS(type)                                                                                   \
  STAMP(type, C1, ONE, pSum, pMean) STAMP(type, C3, THREE, sum, mean) STAMP(type, C4, FOUR, sum, mean) \
  STAMP(type, AC4, THREE, sum, mean)
STAMPS(8u) STAMPS(16u) STAMPS(16s)
STAMP_HINT(C1, ONE, pSum, pMean) STAMP_HINT(C3, THREE, sum, mean) STAMP_HINT(C4, FOUR, sum, mean) STAMP_HINT(AC4, THREE, sum, mean)
#undef STAMPS
#undef FOUR
#undef THREE
#undef ONE
#undef STAMP_HINT
#undef STAMP
