// zori{Norm,NormDiff,NormRel}_{Inf,L1,L2}_{8u,16u,16s,32f}_{C1,C3,C4,AC4}R, zoriNorm_Inf_32s_C1R.
//
// Integers are exact up to the last conversion. Floats go one of two ways by the hint: in double (accurate), or each
// row in four lanes of single precision and the rows in double.
//
// A relative norm is formed in one of two ways, which differ in the last place and in what a vanishing denominator
// leaves:
//
//   together   numerators and denominators in one pass; L2 is the root of the quotient of the sums of squares
//   composed   the norm of the second image, then the norm of the difference, then the quotients
//
//               C1         C3                    C4, AC4
//   8u          together   composed              composed, Inf together
//   16u         together   together              together
//   16s         together   L2 composed           L2 composed
//   32f         together   composed              together, L1 and L2 composed when accurate
#include "frame/checks.h"
#include "rowkernels/reduce.h"
#include "zori/stats.h"

#include <cfloat>
#include <cmath>

namespace zori {
namespace {

enum class Norm { Inf, L1, L2 };

// ---- What is measured of a pixel, or of two ----

template <class T> using Magnitude = std::conditional_t<std::is_same_v<T, Zor16s>, Zor16u, T>;

template <class T> inline Vec<Magnitude<T>> magnitude(Vec<T> a)
{
  if constexpr (std::is_same_v<T, Zor32f>) return abs(a);
  else if constexpr (isSigned<T>) return as<Zor16u>((a ^ signs(a)) - signs(a)); // |-32768| is 32768
  else return a;
}
template <class T> inline Vec<Magnitude<T>> magnitude(Vec<T> a, Vec<T> b)
{
  if constexpr (std::is_same_v<T, Zor32f>) return abs(a - b);
  else if constexpr (isSigned<T>) return as<Zor16u>(max(a, b) - min(a, b));
  else return subSat(a, b) | subSat(b, a);
}

// ---- Reducers of magnitudes ----

template <class R> struct OfMagnitudes : R {
  template <class... V> void add(int j, V... x) { R::add(j, magnitude(x...)); }
};

template <class T> struct GreatestMagnitude : Extreme<Magnitude<T>, true> {
  GreatestMagnitude() : Extreme<Magnitude<T>, true>(Magnitude<T>(0)) {}
  double value() const { return static_cast<double>(Extreme<Magnitude<T>, true>::value()); }
};

struct FastSquareSum : FastRowSum {
  template <class... V> void add(int j, V... x)
  {
    const F32x4 m = magnitude(x...);
    FastRowSum::add(j, m * m);
  }
};

// Words keep their sign where only squares are wanted.
struct WordSquareSum : SquareSum<Zor16s> {
  void add(int j, Vec<Zor16s> a) { SquareSum<Zor16s>::add(j, a); }
};

inline F64x2 abs(F64x2 a) { return without(a, splat(-0.0)); }
inline F64x2 difference(F64x2 a) { return a; }
inline F64x2 difference(F64x2 a, F64x2 b) { return a - b; }

template <Norm N, Layout L> struct Accurate : AccurateSumOf<L> {
  template <class... V> void add(int, V... x)
  {
    const F64x2 low = difference(toDoubleLow(x)...), high = difference(toDoubleHigh(x)...);
    if constexpr (N == Norm::L1) this->add2(abs(low), abs(high));
    else this->add2(low * low, high * high);
  }
};

// The reducer of Images images; its value is the norm but for the root of L2.
template <Norm N, class T, Layout L, int Images, bool IsAccurate> auto reducerOf()
{
  if constexpr (N == Norm::Inf) return OfMagnitudes<GreatestMagnitude<T>>{};
  else if constexpr (IsAccurate) return Accurate<N, L>{};
  else if constexpr (std::is_same_v<T, Zor32f>) {
    if constexpr (N == Norm::L1) return OfMagnitudes<FastRowSum>{};
    else return FastSquareSum{};
  } else if constexpr (N == Norm::L1) return OfMagnitudes<IntegerSum<Magnitude<T>>>{};
  else if constexpr (std::is_same_v<T, Zor16s> && Images == 1) return WordSquareSum{};
  else return OfMagnitudes<SquareSum<Magnitude<T>>>{};
}
template <Norm N, class T, Layout L, int Images, bool IsAccurate>
using Reducer = decltype(reducerOf<N, T, L, Images, IsAccurate>());

// The difference of two images and the second image alone, in one pass.
template <class Numerator, class Denominator> struct Quotient : IntegerReducer {
  static constexpr bool orderFree = Numerator::orderFree, repeats = false;
  static constexpr int groups = Numerator::groups;
  static constexpr std::ptrdiff_t capacity =
    Numerator::capacity < Denominator::capacity ? Numerator::capacity : Denominator::capacity;
  Numerator numerator;
  Denominator denominator;
  template <class V> void add(int j, V a, V b)
  {
    numerator.add(j, a, b);
    denominator.add(j, b);
  }
  void flush()
  {
    numerator.flush();
    denominator.flush();
  }
  void endRow()
  {
    numerator.endRow();
    denominator.endRow();
  }
};

// ---- Norms of one image or of a difference ----

template <class R, Layout L, class... T> void measure(ZorImgSize roi, Zor64f* out, bool root, Rows<const T>... image)
{
  R reducers[processed<L>];
  reduceRegion<L>(reducers, roi, image...);
  for (int k = 0; k < processed<L>; ++k) out[k] = root ? std::sqrt(reducers[k].value()) : reducers[k].value();
}

// Wide 8u regions are cut into strips, whose norms are squared and added: the root of the sum is the result.
template <class R, Layout L, class... T> void measureStrips(ZorImgSize roi, Zor64f* out, Rows<const T>... image)
{
  constexpr int stripWidth = 32768;
  double sums[processed<L>] = {};
  for (int x = 0; x < roi.width; x += stripWidth) {
    const ZorImgSize strip{roi.width - x < stripWidth ? roi.width - x : stripWidth, roi.height};
    double norms[processed<L>];
    measure<R, L>(strip, norms, true,
                  Rows<const T>{image.first + static_cast<std::ptrdiff_t>(x) * channels<L>, image.step}...);
    for (int k = 0; k < processed<L>; ++k) sums[k] += norms[k] * norms[k];
    if (strip.width < stripWidth) break;
  }
  for (int k = 0; k < processed<L>; ++k) out[k] = std::sqrt(sums[k]);
}

template <Norm N, Layout L, class... T> void norms(ZorImgSize roi, Zor64f* out, ZorHint hint, Rows<const T>... image)
{
  using S = std::common_type_t<T...>;
  constexpr int images = sizeof...(T);
  constexpr bool root = N == Norm::L2;
  if constexpr (std::is_same_v<S, Zor32f> && N != Norm::Inf)
    if (hint == ZorHintAccurate) return measure<Reducer<N, S, L, images, true>, L>(roi, out, root, image...);
  if constexpr (std::is_same_v<S, Zor8u> && root)
    if (roi.width > 32768) return measureStrips<Reducer<N, S, L, images, false>, L>(roi, out, image...);
  measure<Reducer<N, S, L, images, false>, L>(roi, out, root, image...);
}

// ---- Relative norms ----

inline bool vanishes(double denominator) { return denominator < DBL_MIN; }

template <Norm N, class T, Layout L> constexpr bool isComposed(bool accurate)
{
  if (L == C1 || std::is_same_v<T, Zor16u>) return false;
  if (std::is_same_v<T, Zor16s>) return N == Norm::L2;
  if (L == C3) return true;
  return std::is_same_v<T, Zor8u> ? N != Norm::Inf : accurate && N != Norm::Inf;
}

template <Norm N, Layout L, class T>
ZorStatus composedQuotients(ZorImgSize roi, Zor64f* out, ZorHint hint, Rows<const T> a, Rows<const T> b)
{
  double denominators[processed<L>];
  norms<N, L>(roi, denominators, hint, b);
  norms<N, L>(roi, out, hint, a, b);
  for (double d : denominators)
    if (vanishes(d)) return ZorWarnDivByZero;
  for (int k = 0; k < processed<L>; ++k) out[k] /= denominators[k];
  return ZorOk;
}

template <Norm N, Layout L, bool IsAccurate, class T>
ZorStatus quotientsTogether(ZorImgSize roi, Zor64f* out, Rows<const T> a, Rows<const T> b)
{
  constexpr int n = processed<L>;
  constexpr bool isWord = sizeof(T) == 2, several = L != C1;
  Quotient<Reducer<N, T, L, 2, IsAccurate>, Reducer<N, T, L, 1, IsAccurate>> reducers[n];
  reduceRegion<L>(reducers, roi, a, b);
  bool anyVanishes = false;
  for (auto& r : reducers) anyVanishes = anyVanishes || vanishes(r.denominator.value());
  if (anyVanishes) {
    constexpr bool leftUnwritten = N == Norm::Inf && isWord && several, unrooted = std::is_same_v<T, Zor16u> && several;
    for (int k = 0; k < n && !leftUnwritten; ++k) {
      const double numerator = reducers[k].numerator.value();
      out[k] = N == Norm::L2 && !unrooted ? std::sqrt(numerator) : numerator;
    }
    return ZorWarnDivByZero;
  }
  for (int k = 0; k < n; ++k) {
    const double quotient = reducers[k].numerator.value() / reducers[k].denominator.value();
    out[k] = N == Norm::L2 ? std::sqrt(quotient) : quotient;
  }
  return ZorOk;
}

// ---- The functions ----

// 16u tests steps before the size, the others after it; the step stands in front of all in L1 of one 16u image.
template <class T, class... P> ZorStatus normChecks(ZorImgSize roi, ZorStatus steps, P... pointers)
{
  if constexpr (std::is_same_v<T, Zor16u>) return firstFailure(nonNull(pointers...), steps, nonEmpty(roi));
  else return firstFailure(nonNull(pointers...), nonEmpty(roi), steps);
}

template <Norm N, class T, Layout L>
ZorStatus normRegion(const T* pSrc, int srcStep, ZorImgSize roiSize, Zor64f* norm, ZorHint hint = ZorHintNone)
{
  if constexpr (N == Norm::L1 && std::is_same_v<T, Zor16u>)
    if (auto s = positive(srcStep); s != ZorOk) return s;
  if (auto s = normChecks<T>(roiSize, positive(srcStep), pSrc, norm); s != ZorOk) return s;
  norms<N, L>(roiSize, norm, hint, Rows{pSrc, srcStep});
  return ZorOk;
}

template <Norm N, class T, Layout L>
ZorStatus normDiffRegion(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, ZorImgSize roiSize, Zor64f* norm,
                         ZorHint hint = ZorHintNone)
{
  if (auto s = normChecks<T>(roiSize, positive(src1Step, src2Step), pSrc1, pSrc2, norm); s != ZorOk) return s;
  norms<N, L>(roiSize, norm, hint, Rows{pSrc1, src1Step}, Rows{pSrc2, src2Step});
  return ZorOk;
}

template <Norm N, class T, Layout L>
ZorStatus normRelRegion(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, ZorImgSize roiSize, Zor64f* norm,
                        ZorHint hint = ZorHintNone)
{
  if (auto s = normChecks<T>(roiSize, positive(src1Step, src2Step), pSrc1, pSrc2, norm); s != ZorOk) return s;
  const Rows a{pSrc1, src1Step}, b{pSrc2, src2Step};
  const bool accurate = hint == ZorHintAccurate;
  if (isComposed<N, T, L>(accurate)) return composedQuotients<N, L>(roiSize, norm, hint, a, b);
  if constexpr (std::is_same_v<T, Zor32f> && N != Norm::Inf && L == C1)
    if (accurate) return quotientsTogether<N, L, true>(roiSize, norm, a, b);
  if constexpr (!isComposed<N, T, L>(false)) return quotientsTogether<N, L, false>(roiSize, norm, a, b);
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriNorm_Inf_32s_C1R(const Zor32s* pSrc, int srcStep, ZorImgSize roiSize, Zor64f* pNorm)
{
  if (auto s = normChecks<Zor32s>(roiSize, positive(srcStep), pSrc, pNorm); s != ZorOk) return s;
  BothExtremes<Zor32s> extremes(0, 0);
  reduceRegion<C1>(&extremes, roiSize, Rows{pSrc, srcStep});
  const double least = extremes.least.value(), greatest = extremes.greatest.value();
  *pNorm = -least > greatest ? -least : greatest;
  return ZorOk;
}

// clang-format off
#define UNPACK(...) __VA_ARGS__
#define STAMP(n, type, layout, result, norm, hint, passed)                                                             \
  ZorStatus zoriNorm_##n##_##type##_##layout##R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize, result UNPACK hint)\
  { return normRegion<Norm::n, Zor##type, layout>(pSrc, srcStep, roiSize, norm UNPACK passed); }                       \
  ZorStatus zoriNormDiff_##n##_##type##_##layout##R(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2,      \
                                                    int src2Step, ZorImgSize roiSize, result UNPACK hint)              \
  { return normDiffRegion<Norm::n, Zor##type, layout>(pSrc1, src1Step, pSrc2, src2Step, roiSize, norm UNPACK passed); }\
  ZorStatus zoriNormRel_##n##_##type##_##layout##R(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2,       \
                                                   int src2Step, ZorImgSize roiSize, result UNPACK hint)               \
  { return normRelRegion<Norm::n, Zor##type, layout>(pSrc1, src1Step, pSrc2, src2Step, roiSize, norm UNPACK passed); }
#define STAMP_LAYOUTS(n, type, hint, passed)                                                                    \
  STAMP(n, type, C1, Zor64f* pNorm, pNorm, hint, passed) STAMP(n, type, C3, Zor64f norm[3], norm, hint, passed) \
  STAMP(n, type, C4, Zor64f norm[4], norm, hint, passed) STAMP(n, type, AC4, Zor64f norm[3], norm, hint, passed)
#define STAMP_INTEGERS(n) STAMP_LAYOUTS(n, 8u, (), ()) STAMP_LAYOUTS(n, 16u, (), ()) STAMP_LAYOUTS(n, 16s, (), ())
STAMP_INTEGERS(Inf) STAMP_INTEGERS(L1) STAMP_INTEGERS(L2)
STAMP_LAYOUTS(Inf, 32f, (), ())
STAMP_LAYOUTS(L1, 32f, (, ZorHint hint), (, hint))
STAMP_LAYOUTS(L2, 32f, (, ZorHint hint), (, hint))
#undef STAMP_INTEGERS
#undef STAMP_LAYOUTS
#undef STAMP
#undef UNPACK
