// zoriLn_{8u,16u,16s}_{C1,C3}{R,IR}Sfs, zoriLn_32f_{C1,C3}{R,IR}: natural logarithm.
//
// Integers: ln(x) * 2^-scaleFactor to the nearest integer, saturated. Ties, which would go upward, do not occur: the
// logarithm of an integer above 1 is irrational, and none comes as near to a tie as the error of double precision.
// Zero gives 0 in 8u and 16u; zero and negative samples give -32768 in 16s.
#include "arith/warnings.h"
#include "frame/checks.h"
#include "rowkernels/convert.h"
#include "rowkernels/exp_log.h"
#include "rowkernels/lookup.h"
#include "zori/arith.h"

#include <cmath>
#include <limits>

namespace zori {

template <class T> struct IntegerLn {
  Zor64f factor;
  Group<T> operator()(const Group<T>& x) const
  {
    Group<T> result = Converted<T>{}(integerLogarithm(Converted<Zor32f>{}(x), factor));
    for (int k = 0; k < x.parts; ++k) {
      const Vec<T> positive = greater(x.part[k], zero<T>()), least = splat(std::numeric_limits<T>::min());
      result.part[k] = select(positive, result.part[k], least);
    }
    return result;
  }
};

struct NormalLn {
  F32x4 operator()(F32x4 x) const { return logarithmOfNormal(x); }
};
struct AnyLn {
  Group<Zor32f> operator()(const Group<Zor32f>& x) const { return logarithm(x); }
};

template <class T> struct NoLogarithm {
  ZorStatus operator()(T x) const { return x == 0 ? ZorWarnLnZeroArg : x < 0 ? ZorWarnLnNegArg : ZorOk; }
  auto operator()(Vec<T> x) const
  {
    if constexpr (!isInt<T>) return isNotNormalPositive(x);
    else if constexpr (isSigned<T>) return greater(splat(T(1)), x);
    else return equal(x, zero<T>());
  }
};

// Beyond these scales every result is 0, or a bound for whatever is above 1.
inline constexpr int greatestScale = 8, leastScale = -20;

template <class T, Layout L> ZorStatus integerLns(ZorImgSize roi, Rows<T> dst, Rows<const T> src, int scaleFactor)
{
  const int scale = scaleFactor > greatestScale ? greatestScale : scaleFactor < leastScale ? leastScale : scaleFactor;
  const IntegerLn<T> op{std::ldexp(1.0, -scale)};
  if constexpr (sizeof(T) == 1)
    if (static_cast<long long>(roi.width) * roi.height >= 1024) { // the logarithms of all samples pay
      Zor8u samples[256], table[256];
      for (int x = 0; x < 256; ++x) samples[x] = static_cast<Zor8u>(x);
      mapGroups(table, 256, op, static_cast<const Zor8u*>(samples));
      const auto lookUp = [&](Zor8u* to, std::ptrdiff_t length, const Zor8u* from, bool) {
        const Zor8u* tables[1] = {table};
        lookUpRow<AlikePixels<C1>>(from, to, length, tables, WholeSample{});
      };
      return mapRegionWarning<L>(roi, dst, src, NoLogarithm<T>{}, lookUp);
    }
  return mapGroupsWarning<L>(roi, dst, src, NoLogarithm<T>{}, op);
}

template <Layout L> ZorStatus floatLns(ZorImgSize roi, Rows<Zor32f> dst, Rows<const Zor32f> src)
{
  const auto kernel = [](Zor32f* to, std::ptrdiff_t length, const Zor32f* from, bool marked) {
    if (marked) mapGroups(to, length, AnyLn{}, from);
    else mapRow(to, length, NormalLn{}, from);
  };
  return mapRegionWarning<L>(roi, dst, src, NoLogarithm<Zor32f>{}, kernel);
}

template <class T, Layout L>
ZorStatus lnRegion(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, int scaleFactor = 0)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk) return s;
  const Rows<T> dst{pDst, dstStep};
  const Rows<const T> src{pSrc, srcStep};
  const RoundingScope scope(roundNearest);
  if constexpr (isInt<T>) return integerLns<T, L>(roiSize, dst, src, scaleFactor);
  else return floatLns<L>(roiSize, dst, src);
}

} // namespace zori

using namespace zori;

#define STAMP(type, layout)                                                                                         \
  ZorStatus zoriLn_##type##_##layout##RSfs(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,        \
                                           ZorImgSize roiSize, int scaleFactor)                                     \
  { return lnRegion<Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize, scaleFactor); }                       \
  ZorStatus zoriLn_##type##_##layout##IRSfs(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize, int scaleFactor) \
  { return lnRegion<Zor##type, layout>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, scaleFactor); }
STAMP(8u, C1) STAMP(8u, C3) STAMP(16u, C1) STAMP(16u, C3) STAMP(16s, C1) STAMP(16s, C3)
#undef STAMP

#define STAMP(layout)                                                                                               \
  ZorStatus zoriLn_32f_##layout##R(const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep, ZorImgSize roiSize)  \
  { return lnRegion<Zor32f, layout>(pSrc, srcStep, pDst, dstStep, roiSize); }                                       \
  ZorStatus zoriLn_32f_##layout##IR(Zor32f* pSrcDst, int srcDstStep, ZorImgSize roiSize)                            \
  { return lnRegion<Zor32f, layout>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }
STAMP(C1) STAMP(C3)
#undef STAMP
