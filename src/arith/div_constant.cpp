// zoriDivC_{8u,16u,16s}_{C1,C3,C4,AC4}{R,IR}Sfs, zoriDivC_{16sc,32sc}_{C1,C3,AC4}{R,IR}Sfs,
// zoriDivC_32f_{C1,C3,C4,AC4}{R,IR}, zoriDivC_32fc_{C1,C3,AC4}{R,IR}: quotient of an image and a constant.
//
// dst = src / value * 2^-scaleFactor. A constant that is zero in any channel is an error. 16u and 32f multiply by the
// reciprocal in single precision: dst = src * (2^-scaleFactor / value); 16sc and 32sc by the reciprocal conj(value) /
// |value|^2 in double, which 16sc scales too. All else is divided.
#include "frame/checks.h"
#include "rowkernels/division.h"
#include "walk/map.h"
#include "zori/arith.h"

namespace zori {
namespace {

template <class T> bool isZeroDivisor(T x)
{
  if constexpr (std::is_arithmetic_v<T>) return x == 0;
  else if constexpr (std::is_same_v<T, Zor32fc>) return x.re * x.re + x.im * x.im == 0; // in float: small ones vanish
  else return x.re == 0 && x.im == 0;
}

// What a row is divided by: the divisor itself, or the reciprocal that it is multiplied by.
template <class T> inline constexpr bool isComplexInt = std::is_same_v<T, Zor16sc> || std::is_same_v<T, Zor32sc>;
template <class T> inline constexpr bool byReciprocal = std::is_same_v<T, Zor16u> || std::is_same_v<T, Zor32f>;
template <class T>
using Factor = std::conditional_t<isComplexInt<T>, Zor64fc, std::conditional_t<byReciprocal<T>, Zor32f, T>>;

template <class T> struct ReciprocalProduct {
  template <int Bytes>
  ZORI_INLINE Group<T, Bytes> operator()(const Group<T, Bytes>& n, const Group<Zor32f, Bytes>& reciprocals) const
  {
    Group<Zor32f, Bytes> x;
    if constexpr (std::is_same_v<T, Zor32f>) x = n;
    else x = Converted<Zor32f>{}(n);
    for (int k = 0; k < x.parts; ++k) x.part[k] = x.part[k] * reciprocals.part[k];
    if constexpr (std::is_same_v<T, Zor32f>) return x;
    else return Rounded<T>{}(x);
  }
};

// A part of a product rounded to nearest, ties to even, and saturated. 16sc parts are moved above zero first, which
// takes what lies within 4e-12 of a tie for one.
inline Zor16s rounded(double x, Zor16s)
{
  const double above = std::clamp(x + 32768.0, 0.0, 65535.0) + 0.5;
  const int whole = static_cast<int>(above);
  return static_cast<Zor16s>(whole - (whole == above ? whole & 1 : 0) - 32768);
}
inline Zor32s rounded(double x, Zor32s) { return toInt(std::clamp(x, -2147483648.0, 2147483647.0)); }

// 2^-scaleFactor; beyond the bounds every part but 0 saturates, or rounds to 0.
inline double complexScale(int scaleFactor) { return powerOfTwo(-std::clamp(scaleFactor, -128, 64)); }

template <class T, bool keepsFourth>
void divideByFactors(T* dst, std::ptrdiff_t length, int scaleFactor, const T* src, const Factor<T>* factors)
{
  using Op = ReciprocalProduct<T>;
  if constexpr (isComplexInt<T>) {
    const double scale = std::is_same_v<T, Zor16sc> ? 1.0 : complexScale(scaleFactor);
    for (std::ptrdiff_t i = 0; i < length; ++i) {
      if (keepsFourth && i % 4 == 3) continue;
      const T x = get<T>(src + i);
      const double re = x.re * factors[i].re - x.im * factors[i].im, im = x.re * factors[i].im + x.im * factors[i].re;
      put(dst + i, T{rounded(re * scale, x.re), rounded(im * scale, x.im)});
    }
  } else if constexpr (!byReciprocal<T>) divideRow<T, keepsFourth>(dst, length, scaleFactor, src, factors);
  else if constexpr (keepsFourth) mapGroups(dst, length, KeepFourth<Op>{}, static_cast<const T*>(dst), src, factors);
  else mapGroups(dst, length, Op{}, src, factors);
}
template <class T>
using FactorKernel = void (*)(T* dst, std::ptrdiff_t length, int scaleFactor, const T* src, const Factor<T>* factors);

// Not inlined, so that the reciprocals are formed under the rounding field that is set by then.
template <class T>
ZORI_ONE_COPY void fillFactors(Factor<T>* row, std::ptrdiff_t length, const T* divisors, int count, int scaleFactor)
{
  for (std::ptrdiff_t i = 0; i < length; ++i) {
    if (i >= count) row[i] = row[i - count];
    else if constexpr (std::is_same_v<T, Zor16u>)
      row[i] = static_cast<float>(powerOfTwo(-boundedScale(scaleFactor))) / divisors[i];
    else if constexpr (std::is_same_v<T, Zor32f>) row[i] = 1.0f / divisors[i];
    else if constexpr (isComplexInt<T>) {
      const double re = divisors[i].re, im = divisors[i].im, square = re * re + im * im;
      const double scale = std::is_same_v<T, Zor16sc> ? complexScale(scaleFactor) : 1.0;
      row[i] = {scale * re / square, scale * -im / square};
    } else row[i] = divisors[i];
  }
}

// The region in pieces of rows, each met by a row of factors.
template <class T>
ZORI_ONE_COPY ZorStatus divideRegion(FactorKernel<T> divide, int processedCount, int channelCount, Rows<const T> src,
                                     const T* value, Rows<T> dst, ZorImgSize roiSize, int scaleFactor)
{
  if (auto s = firstFailure(nonNull(src.first, value, dst.first), nonEmpty(roiSize), positive(src.step, dst.step));
      s != ZorOk)
    return s;
  T divisors[4];
  for (int k = 0; k < channelCount; ++k) { // in AC4 the first stands for the fourth, which is never used
    divisors[k] = get<T>(value + (k < processedCount ? k : 0));
    if (isZeroDivisor(divisors[k])) return ZorErrDivByZero;
  }

  constexpr std::ptrdiff_t piece = 768; // whole pixels of any layout and whole groups
  Factor<T> factors[piece];
  const int pixelBytes = channelCount * static_cast<int>(sizeof(T));
  roiSize = joinedRows(roiSize, Pitch{pixelBytes, src.step}, Pitch{pixelBytes, dst.step});
  const std::ptrdiff_t length = elementsOf(roiSize.width, channelCount);
  return underRounding(divisionRounding<T>, [&] {
    fillFactors(factors, length < piece ? length : piece, divisors, channelCount, scaleFactor);
    for (int y = 0; y < roiSize.height; ++y)
      for (std::ptrdiff_t i = 0; i < length; i += piece)
        divide(dst[y] + i, length - i < piece ? length - i : piece, scaleFactor, src[y] + i, factors);
    return ZorOk;
  });
}

template <Layout L, class T>
ZorStatus divConstant(Rows<const T> src, const T* value, Rows<T> dst, ZorImgSize roiSize, int scaleFactor = 0)
{
  return divideRegion<T>(divideByFactors<T, L == AC4>, processed<L>, channels<L>, src, value, dst, roiSize,
                         scaleFactor);
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout, parameter, address)                                                                       \
  ZorStatus zoriDivC_##type##_##layout##RSfs(const Zor##type* pSrc, int srcStep, parameter, Zor##type* pDst,          \
                                             int dstStep, ZorImgSize roiSize, int scaleFactor)                        \
  { return divConstant<layout>(Rows{pSrc, srcStep}, address, Rows{pDst, dstStep}, roiSize, scaleFactor); }             \
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
  { return divConstant<layout>(Rows{pSrc, srcStep}, address, Rows{pDst, dstStep}, roiSize); }                     \
  ZorStatus zoriDivC_##type##_##layout##IR(parameter, Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize)         \
  { return zoriDivC_##type##_##layout##R(pSrcDst, srcDstStep, value, pSrcDst, srcDstStep, roiSize); }
STAMPS(32f) STAMPS(32fc)
STAMP(32f, C4, const Zor32f value[4], value)
#undef STAMPS
#undef STAMP
