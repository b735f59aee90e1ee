// zoriDivC_{8u,16u,16s}_{C1,C3,C4,AC4}{R,IR}Sfs, zoriDivC_{16sc,32sc}_{C1,C3,AC4}{R,IR}Sfs,
// zoriDivC_32f_{C1,C3,C4,AC4}{R,IR}, zoriDivC_32fc_{C1,C3,AC4}{R,IR}: quotient of an image and a constant.
//
// dst = src / value * 2^-scaleFactor. A constant that is zero in any channel is an error. 16u and 32f multiply by the
// reciprocal in single precision: dst = src * (2^-scaleFactor / value). All else is divided.
#include "frame/checks.h"
#include "frame/walk.h"
#include "rowkernels/division.h"
#include "zori/arith.h"

namespace zori {

template <class T> bool isZero(T x)
{
  if constexpr (std::is_arithmetic_v<T>) return x == 0;
  else if constexpr (std::is_same_v<T, Zor32fc>) return x.re * x.re + x.im * x.im == 0; // in float: small ones vanish
  else return x.re == 0 && x.im == 0;
}

// The processed channels of a constant; in AC4 the first stands for the fourth, which is never used.
template <class T, Layout L> struct Constant {
  T values[channels<L>];

  explicit Constant(const T* value)
  {
    for (int k = 0; k < channels<L>; ++k) values[k] = get<T>(value + (k < processed<L> ? k : 0));
  }
  bool hasZero() const
  {
    for (const T& x : values)
      if (isZero(x)) return true;
    return false;
  }
};

template <Layout L, class T>
void divideComplex(const Constant<T, L>& constant, int scaleFactor, Rows<const T> src, Rows<T> dst, ZorImgSize roiSize)
{
  const RowRun run(Serial{}, roiSize, channels<L>, sizeof(T), src.step, dst.step);
  for (int y = 0; y < run.height; ++y)
    divideSamples({run.length, channels<L>, L == AC4}, dst[y], scaleFactor, src[y], constant.values);
}

struct Product {
  F32x4 operator()(F32x4 a, F32x4 b) const { return a * b; }
};

template <Layout L, class T>
ZorStatus divCRegion(Rows<const T> src, const T* value, Rows<T> dst, ZorImgSize roiSize, int scaleFactor)
{
  if (auto s = firstFailure(nonNull(src.first, value, dst.first), nonEmpty(roiSize), positive(src.step, dst.step)); s != ZorOk)
    return s;
  const Constant<T, L> constant(value);
  if (constant.hasZero()) return ZorErrDivByZero;

  const RoundingScope nearest(roundNearest);
  if constexpr (std::is_integral_v<T>) {
    using Op = std::conditional_t<std::is_same_v<T, Zor16u>, ScaledReciprocalProduct<T>, Quotient<T>>;
    mapRegionWith<L>(Pattern<T>(constant.values, channels<L>), Serial{}, roiSize, Op(scaleFactor), dst, src);
  } else {
    divideComplex<L>(constant, scaleFactor, src, dst, roiSize);
  }
  return ZorOk;
}

// Floats are divided in the caller's rounding mode.
template <Layout L, class T>
ZorStatus divCFloatRegion(Rows<const T> src, const T* value, Rows<T> dst, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(src.first, value, dst.first), nonEmpty(roiSize), positive(src.step, dst.step)); s != ZorOk)
    return s;
  Constant<T, L> constant(value);
  if (constant.hasZero()) return ZorErrDivByZero;

  if constexpr (std::is_same_v<T, Zor32f>) {
    for (T& x : constant.values) x = 1.0f / x;
    mapRegionWith<L>(Pattern<T>(constant.values, channels<L>), Serial{}, roiSize, Product{}, dst, src);
  } else {
    divideComplex<L>(constant, 0, src, dst, roiSize);
  }
  return ZorOk;
}

} // namespace zori

using namespace zori;

#define STAMP(type, layout, parameter, address)                                                                       \
  ZorStatus zoriDivC_##type##_##layout##RSfs(const Zor##type* pSrc, int srcStep, parameter, Zor##type* pDst,          \
                                             int dstStep, ZorImgSize roiSize, int scaleFactor)                        \
  { return divCRegion<layout>(Rows{pSrc, srcStep}, address, Rows{pDst, dstStep}, roiSize, scaleFactor); }             \
  ZorStatus zoriDivC_##type##_##layout##IRSfs(parameter, Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize,      \
                                              int scaleFactor)                                                        \
  { return zoriDivC_##type##_##layout##RSfs(pSrcDst, srcDstStep, value, pSrcDst, srcDstStep, roiSize, scaleFactor); }
#define STAMPS(type)                                                                                                  \
  STAMP(type, C1, Zor##type value, &value)                                                                            \
  STAMP(type, C3, const Zor##type value[3], value)                                                                    \
  STAMP(type, AC4, const Zor##type value[3], value)
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(16sc) STAMPS(32sc)
STAMP(8u, C4, const Zor8u value[4], value)
STAMP(16u, C4, const Zor16u value[4], value)
STAMP(16s, C4, const Zor16s value[4], value)
#undef STAMP

#define STAMP(type, layout, parameter, address)                                                                       \
  ZorStatus zoriDivC_##type##_##layout##R(const Zor##type* pSrc, int srcStep, parameter, Zor##type* pDst,             \
                                          int dstStep, ZorImgSize roiSize)                                            \
  { return divCFloatRegion<layout>(Rows{pSrc, srcStep}, address, Rows{pDst, dstStep}, roiSize); }                     \
  ZorStatus zoriDivC_##type##_##layout##IR(parameter, Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize)         \
  { return zoriDivC_##type##_##layout##R(pSrcDst, srcDstStep, value, pSrcDst, srcDstStep, roiSize); }
STAMPS(32f) STAMPS(32fc)
STAMP(32f, C4, const Zor32f value[4], value)
#undef STAMPS
#undef STAMP
