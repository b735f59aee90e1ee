// zori{Norm,NormDiff,NormRel}_{Inf,L1,L2}_{8u,16u,16s,32f}_{C1,C3,C4,AC4}R, zoriNorm_Inf_32s_C1R.
//
// Integers are exact up to the last conversion. Floats go one of two ways by the hint: in double (accurate), or each
// row in four lanes of single precision and the rows in double.
//
// A relative norm is formed in one of two ways, which differ in the last place and in what a vanishing denominator
// leaves; wayOf says which.
#include "norms.h"

#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "rowkernels/reduce.h"
#include "zori/stats.h"

#include <cfloat>
#include <cmath>

namespace zori {
namespace {

enum class Norm { Inf, L1, L2 };

// ---- What is measured of a pixel, or of two ----

template <class T> using Magnitude = std::conditional_t<std::is_same_v<T, Zor16s>, Zor16u, T>;

template <class T, int B> inline Vec<Magnitude<T>, B> magnitude(Vec<T, B> a)
{
  if constexpr (std::is_same_v<T, Zor32f>) return abs(a);
  else if constexpr (isSigned<T>) return as<Zor16u>((a ^ signs(a)) - signs(a)); // |-32768| is 32768
  else return a;
}
template <class T, int B> inline Vec<Magnitude<T>, B> magnitude(Vec<T, B> a, Vec<T, B> b)
{
  if constexpr (std::is_same_v<T, Zor32f>) return abs(a - b);
  else if constexpr (isSigned<T>) return as<Zor16u>(max(a, b) - min(a, b));
  else return subSat(a, b) | subSat(b, a);
}

// ---- Reducers of magnitudes ----

template <class R> struct OfMagnitudes : R {
  template <class... V> void add(int j, V... x) { R::add(j, magnitude(x...)); }
};

template <class T, int Bytes> struct GreatestMagnitude : Extreme<Magnitude<T>, true, Bytes> {
  using Greatest = Extreme<Magnitude<T>, true, Bytes>;
  GreatestMagnitude() : Greatest(Magnitude<T>(0)) {}
  double value() const { return static_cast<double>(Greatest::value()); }
};

template <int Bytes> struct FastSquareSum : FastRowSum<Bytes> {
  template <class... V> void add(int j, V... x)
  {
    const auto m = magnitude(x...);
    FastRowSum<Bytes>::add(j, m * m);
  }
};

// Words keep their sign where only squares are wanted.
template <int Bytes> struct WordSquareSum : SquareSum<Zor16s, Bytes> {};

inline F64x2 abs(F64x2 a) { return without(a, splat<double, 16>(-0.0)); }
inline F64x2 difference(F64x2 a) { return a; }
inline F64x2 difference(F64x2 a, F64x2 b) { return a - b; }

template <Norm N, Layout L, int Bytes> struct Accurate : AccurateSumOf<L, Bytes> {
  template <class... V> void add(int, V... x)
  {
    eachFour([this](auto... four) { this->addFour(four...); }, x...);
  }
  template <class... V> void addFour(V... x)
  {
    const F64x2 low = difference(toDoubleLow(x)...), high = difference(toDoubleHigh(x)...);
    if constexpr (N == Norm::L1) this->add2(abs(low), abs(high));
    else this->add2(low * low, high * high);
  }
};

// The reducer of Images images; its value is the norm but for the root of L2.
template <Norm N, class T, Layout L, int Images, bool IsAccurate, int Bytes> auto reducerOf()
{
  if constexpr (N == Norm::Inf) return OfMagnitudes<GreatestMagnitude<T, Bytes>>{};
  else if constexpr (IsAccurate) return Accurate<N, L, Bytes>{};
  else if constexpr (std::is_same_v<T, Zor32f>) {
    if constexpr (N == Norm::L1) return OfMagnitudes<FastRowSum<Bytes>>{};
    else return FastSquareSum<Bytes>{};
  } else if constexpr (N == Norm::L1) return OfMagnitudes<IntegerSum<Magnitude<T>, Bytes>>{};
  else if constexpr (std::is_same_v<T, Zor16s> && Images == 1) return WordSquareSum<Bytes>{};
  else return OfMagnitudes<SquareSum<Magnitude<T>, Bytes>>{};
}
template <Norm N, class T, Layout L, int Images, bool IsAccurate, int Bytes>
using Reducer = decltype(reducerOf<N, T, L, Images, IsAccurate, Bytes>());

// The difference of two images and the second image alone, in one pass.
template <class Numerator, class Denominator> struct NumeratorAndDenominator : IntegerReducer<Numerator::bytes> {
  static constexpr bool orderFree = Numerator::orderFree, placeFree = Numerator::placeFree, repeats = false;
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

template <Norm N, Layout L, bool IsAccurate, class... T>
void measure(ZorImgSize roi, Zor64f* out, Rows<const T>... image)
{
  using S = std::common_type_t<T...>;
  const auto make = [](auto bytes, int) { return Reducer<N, S, L, sizeof...(T), IsAccurate, bytes>{}; };
  const auto use = [=](const auto& reducers) {
    for (int k = 0; k < processed<L>; ++k)
      out[k] = N == Norm::L2 ? std::sqrt(reducers[k].value()) : reducers[k].value();
  };
  reduceRegion<L>(roi, make, use, image...);
}

// Wide 8u regions are cut into strips, whose norms are squared and added: the root of the sum is the result.
template <Layout L, class... T> void measureStrips(ZorImgSize roi, Zor64f* out, Rows<const T>... image)
{
  constexpr int stripWidth = normStripWidth;
  double sums[processed<L>] = {};
  for (int x = 0; x < roi.width; x += stripWidth) {
    const ZorImgSize strip{roi.width - x < stripWidth ? roi.width - x : stripWidth, roi.height};
    double norms[processed<L>];
    measure<Norm::L2, L, false>(
      strip, norms, Rows<const T>{image.first + static_cast<std::ptrdiff_t>(x) * channels<L>, image.step}...);
    for (int k = 0; k < processed<L>; ++k) sums[k] += norms[k] * norms[k];
    if (strip.width < stripWidth) break;
  }
  for (int k = 0; k < processed<L>; ++k) out[k] = std::sqrt(sums[k]);
}

template <Norm N, Layout L, class... T> void norms(ZorImgSize roi, Zor64f* out, ZorHint hint, Rows<const T>... image)
{
  using S = std::common_type_t<T...>;
  if constexpr (std::is_same_v<S, Zor32f> && N != Norm::Inf)
    if (hint == ZorHintAccurate) return measure<N, L, true>(roi, out, image...);
  if constexpr (std::is_same_v<S, Zor8u> && N == Norm::L2)
    if (roi.width > normStripWidth) return measureStrips<L>(roi, out, image...);
  measure<N, L, false>(roi, out, image...);
}

// ---- Relative norms ----

inline bool vanishes(double denominator) { return denominator < DBL_MIN; }

enum class Way {
  Together, // numerators and denominators in one pass; L2 is the root of the quotient of the sums of squares
  Composed, // the norm of the second image, then the norm of the difference, then the quotients
};

// What a vanishing denominator leaves in the results when they are formed together.
enum class Left { Numerators, NotRooted, Nothing };

// The ways of Inf, L1 and L2, of L1 and L2 in double, and what is left of Inf and of L2.
struct RelativeRule {
  Way inf, l1, l2, accurate;
  Left leftOfInf, leftOfL2;
};

constexpr Way together = Way::Together, composed = Way::Composed;
constexpr Left numerators = Left::Numerators, notRooted = Left::NotRooted, nothing = Left::Nothing;

// clang-format off
//                                                 Inf       L1        L2        accurate  left of Inf, of L2
template <class T> constexpr RelativeRule relativeRules[] = {};
template <> constexpr RelativeRule relativeRules<Zor8u>[] = {
  /* C1      */                                  {together, together, together, together, numerators, numerators},
  /* C3      */                                  {composed, composed, composed, composed, numerators, numerators},
  /* C4, AC4 */                                  {together, composed, composed, composed, numerators, numerators}};
template <> constexpr RelativeRule relativeRules<Zor16u>[] = {
  /* C1      */                                  {together, together, together, together, numerators, numerators},
  /* C3      */                                  {together, together, together, together, nothing,    notRooted},
  /* C4, AC4 */                                  {together, together, together, together, nothing,    notRooted}};
template <> constexpr RelativeRule relativeRules<Zor16s>[] = {
  /* C1      */                                  {together, together, together, together, numerators, numerators},
  /* C3      */                                  {together, together, composed, together, nothing,    numerators},
  /* C4, AC4 */                                  {together, together, composed, together, nothing,    numerators}};
template <> constexpr RelativeRule relativeRules<Zor32f>[] = {
  /* C1      */                                  {together, together, together, together, numerators, numerators},
  /* C3      */                                  {composed, composed, composed, composed, numerators, numerators},
  /* C4, AC4 */                                  {together, together, together, composed, numerators, numerators}};
// clang-format on

template <class T, Layout L> constexpr RelativeRule relativeRule = relativeRules<T>[L == C1 ? 0 : L == C3 ? 1 : 2];

// Only floats have a choice of sums, and only L1 and L2.
template <Norm N, class T> constexpr bool hasAccurate = std::is_same_v<T, Zor32f>&& N != Norm::Inf;

template <Norm N, class T, Layout L, bool IsAccurate> constexpr Way wayOf()
{
  constexpr RelativeRule rule = relativeRule<T, L>;
  if (IsAccurate) return rule.accurate;
  return N == Norm::Inf ? rule.inf : N == Norm::L1 ? rule.l1 : rule.l2;
}

template <Norm N, Layout L, class T>
ZorStatus quotientsComposed(ZorImgSize roi, Zor64f* out, ZorHint hint, Rows<const T> a, Rows<const T> b)
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
  const auto make = [](auto bytes, int) {
    return NumeratorAndDenominator<Reducer<N, T, L, 2, IsAccurate, bytes>, Reducer<N, T, L, 1, IsAccurate, bytes>>{};
  };
  const auto use = [=](const auto& reducers) {
    constexpr int n = processed<L>;
    bool anyVanishes = false;
    for (auto& r : reducers) anyVanishes = anyVanishes || vanishes(r.denominator.value());
    if (anyVanishes) {
      constexpr RelativeRule rule = relativeRule<T, L>;
      constexpr Left left = N == Norm::Inf ? rule.leftOfInf : N == Norm::L2 ? rule.leftOfL2 : Left::Numerators;
      for (int k = 0; k < n && left != Left::Nothing; ++k) {
        const double numerator = reducers[k].numerator.value();
        out[k] = N == Norm::L2 && left != Left::NotRooted ? std::sqrt(numerator) : numerator;
      }
      return ZorWarnDivByZero;
    }
    for (int k = 0; k < n; ++k) {
      const double quotient = reducers[k].numerator.value() / reducers[k].denominator.value();
      out[k] = N == Norm::L2 ? std::sqrt(quotient) : quotient;
    }
    return ZorOk;
  };
  return reduceRegion<L>(roi, make, use, a, b);
}

template <Norm N, Layout L, bool IsAccurate, class T>
ZorStatus quotients(ZorImgSize roi, Zor64f* out, ZorHint hint, Rows<const T> a, Rows<const T> b)
{
  if constexpr (wayOf<N, T, L, IsAccurate>() == Way::Composed) return quotientsComposed<N, L>(roi, out, hint, a, b);
  else return quotientsTogether<N, L, IsAccurate>(roi, out, a, b);
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
  underRounding(Rounding::Nearest, [&] { norms<N, L>(roiSize, norm, hint, Rows{pSrc, srcStep}); });
  return ZorOk;
}

template <Norm N, class T, Layout L>
ZorStatus normDiffRegion(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, ZorImgSize roiSize, Zor64f* norm,
                         ZorHint hint = ZorHintNone)
{
  if (auto s = normChecks<T>(roiSize, positive(src1Step, src2Step), pSrc1, pSrc2, norm); s != ZorOk) return s;
  underRounding(Rounding::Nearest, [&] {
    norms<N, L>(roiSize, norm, hint, Rows{pSrc1, src1Step}, Rows{pSrc2, src2Step});
  });
  return ZorOk;
}

template <Norm N, class T, Layout L>
ZorStatus normRelRegion(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, ZorImgSize roiSize, Zor64f* norm,
                        ZorHint hint = ZorHintNone)
{
  if (auto s = normChecks<T>(roiSize, positive(src1Step, src2Step), pSrc1, pSrc2, norm); s != ZorOk) return s;
  const Rows a{pSrc1, src1Step}, b{pSrc2, src2Step};
  return underRounding(Rounding::Nearest, [&] {
    if constexpr (hasAccurate<N, T>)
      if (hint == ZorHintAccurate) return quotients<N, L, true>(roiSize, norm, hint, a, b);
    return quotients<N, L, false>(roiSize, norm, hint, a, b);
  });
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriNorm_Inf_32s_C1R(const Zor32s* pSrc, int srcStep, ZorImgSize roiSize, Zor64f* pNorm)
{
  if (auto s = normChecks<Zor32s>(roiSize, positive(srcStep), pSrc, pNorm); s != ZorOk) return s;
  const auto make = [](auto bytes, int) { return BothExtremes<Zor32s, bytes>(0, 0); };
  const auto use = [=](const auto& extremes) {
    const double least = extremes[0].least.value(), greatest = extremes[0].greatest.value();
    *pNorm = -least > greatest ? -least : greatest;
  };
  reduceRegion<C1>(roiSize, make, use, Rows{pSrc, srcStep});
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
