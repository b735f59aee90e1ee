// zori{Threshold,Threshold_GT,Threshold_LT,Threshold_Val,Threshold_GTVal,Threshold_LTVal,Threshold_LTValGTVal}_{8u,16u,16s,32f}:
// samples on one side of a threshold, or on both, are clamped to it or replaced.
//
//                greater                      less
//   clamp        min(x, t)                    max(x, t)                 a NaN gives t
//   replace      t < x ? value : x            t <= x ? x : value        a NaN stays; a NaN gives value
//   both sides   x where tLT <= x and not tGT < x, valueGT where tGT < x, else valueLT
//
// The order of the operands is what decides about a NaN. AC4 leaves the destination's fourth channel alone.
#include "frame/checks.h"
#include "walk/map.h"
#include "zori/point.h"

namespace zori {
namespace {

// Lanes a <= b; false for a NaN.
template <class T> inline Vec<T> atMost(Vec<T> a, Vec<T> b)
{
  if constexpr (std::is_same_v<T, Zor32f>) return lessEqual(a, b);
  else if constexpr (isSigned<T>) return without(splat<T>(T(-1)), greater(a, b));
  else return equal(subSat(a, b), zero<T>());
}
// a < b ? yes : no; no for a NaN.
template <class T> inline Vec<T> ifLess(Vec<T> a, Vec<T> b, Vec<T> yes, Vec<T> no)
{
  if constexpr (isInt<T> && !isSigned<T>) return select(atMost(b, a), no, yes);
  else return select(greater(b, a), yes, no);
}

enum class Side { Greater, Less };

template <Side S> struct Clamp {
  template <class T> Vec<T> operator()(Vec<T> x, Vec<T> t) const { return S == Side::Greater ? min(x, t) : max(x, t); }
};

// Types whose minimum and maximum are one instruction: a sample is clamped, which tells by comparison whether it was
// beyond the threshold, and if so the way from the threshold to the value is added, modulo the type's range.
template <class T> inline constexpr bool isClampedFirst = std::is_same_v<T, Zor8u> || std::is_same_v<T, Zor16s>;

// What an operation takes for the value.
template <class T> T replacement(T threshold, T value)
{
  if constexpr (isClampedFirst<T>) return static_cast<T>(value - threshold);
  else return value;
}

template <Side S> struct Replace {
  template <class T, class Constants> Vec<T> operator()(Vec<T> x, const Constants& c) const
  {
    const Vec<T> threshold = c[0], value = c[1];
    if constexpr (isClampedFirst<T>) {
      const Vec<T> clamped = Clamp<S>{}(x, threshold);
      return clamped + without(value, equal(clamped, x));
    } else if constexpr (S == Side::Greater) return ifLess(threshold, x, value, x);
    else return select(atMost(threshold, x), x, value);
  }
};

struct ReplaceBothSides {
  template <class T, class Constants> Vec<T> operator()(Vec<T> x, const Constants& c) const
  {
    const Vec<T> thresholdLT = c[0], valueLT = c[1], thresholdGT = c[2], valueGT = c[3];
    if constexpr (isClampedFirst<T>) {
      const Vec<T> raised = max(x, thresholdLT), clamped = min(raised, thresholdGT);
      return clamped + without(valueLT, equal(raised, x)) + without(valueGT, equal(clamped, raised));
    } else return select(atMost(thresholdLT, x), ifLess(thresholdGT, x, valueGT, x), valueLT);
  }
};

// Integers whose values are the thresholds.
struct ClampBothSides {
  template <class T, class Constants> Vec<T> operator()(Vec<T> x, const Constants& c) const
  {
    return min(max(x, c[0]), c[1]);
  }
};

// With constants that are the same for all samples the operation holds them: its rows then run from an aligned address.
template <class Op, class Constants> struct WithConstants {
  Op op;
  Constants constants;
  template <class T> Vec<T> operator()(Vec<T> x) const { return op(x, constants); }
};
template <class T> Vec<T> ofOneChannel(const Pattern<T>& constant) { return splat(constant.values[0]); }
template <class T, int N> auto ofOneChannel(const Patterns<T, N>& constants)
{
  typename Patterns<T, N>::Vectors vectors;
  for (int k = 0; k < N; ++k) vectors.v[k] = ofOneChannel(constants.patterns[k]);
  return vectors;
}
template <Layout L, class Constant, class Op, class T>
void mapWith(const Constant& constant, ZorImgSize roiSize, const Op& op, Rows<T> dst, Rows<const T> src)
{
  if constexpr (L == C1)
    mapRegion<C1>(roiSize, WithConstants<Op, decltype(constant.at(0))>{op, ofOneChannel(constant)}, dst, src);
  else mapRegionWith<L>(constant, roiSize, op, dst, src);
}

template <class... P>
ZorStatus imageChecks(const void* pSrc, int srcStep, const void* pDst, int dstStep, ZorImgSize roiSize,
                      const P*... constants)
{
  return firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep), nonNull(constants...));
}

inline ZorStatus knownSide(ZorCmpOp cmpOp)
{
  return require(cmpOp == ZorCmpLess || cmpOp == ZorCmpGreater, ZorErrMode);
}

// A constant's array of the processed channels, as it lies in memory for AC4 too: the fourth is never used.
template <Layout L, class T> Pattern<T> channelConstant(const T* constant)
{
  T all[4] = {};
  for (int k = 0; k < processed<L>; ++k) all[k] = get<T>(constant + k);
  return Pattern<T>(all, channels<L>);
}

// The same of what replaces the samples.
template <Layout L, class T> Pattern<T> channelReplacement(const T* threshold, const T* value)
{
  T all[4] = {};
  for (int k = 0; k < processed<L>; ++k) all[k] = replacement(get<T>(threshold + k), get<T>(value + k));
  return Pattern<T>(all, channels<L>);
}

template <class T, Layout L>
ZorStatus clampToThreshold(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, const T* threshold,
                           ZorCmpOp cmpOp)
{
  if (auto s = firstFailure(imageChecks(pSrc, srcStep, pDst, dstStep, roiSize, threshold), knownSide(cmpOp));
      s != ZorOk)
    return s;
  const Pattern<T> t = channelConstant<L>(threshold);
  const Rows dst{pDst, dstStep};
  const Rows src{pSrc, srcStep};
  if (cmpOp == ZorCmpGreater) mapWith<L>(t, roiSize, Clamp<Side::Greater>{}, dst, src);
  else mapWith<L>(t, roiSize, Clamp<Side::Less>{}, dst, src);
  return ZorOk;
}

template <class T, Layout L>
ZorStatus replaceBeyond(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, const T* threshold,
                        const T* value, ZorCmpOp cmpOp)
{
  if (auto s = firstFailure(knownSide(cmpOp), imageChecks(pSrc, srcStep, pDst, dstStep, roiSize, threshold, value));
      s != ZorOk)
    return s;
  const Patterns<T, 2> constants{{channelConstant<L>(threshold), channelReplacement<L>(threshold, value)}};
  const Rows dst{pDst, dstStep};
  const Rows src{pSrc, srcStep};
  if (cmpOp == ZorCmpGreater) mapWith<L>(constants, roiSize, Replace<Side::Greater>{}, dst, src);
  else mapWith<L>(constants, roiSize, Replace<Side::Less>{}, dst, src);
  return ZorOk;
}

template <class T, Layout L>
ZorStatus replaceBothSides(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, const T* thresholdLT,
                           const T* valueLT, const T* thresholdGT, const T* valueGT)
{
  if (auto s = imageChecks(pSrc, srcStep, pDst, dstStep, roiSize, thresholdLT, valueLT, thresholdGT, valueGT);
      s != ZorOk)
    return s;
  bool toThresholds = isInt<T>;
  for (int k = 0; k < processed<L>; ++k) {
    const T low = get<T>(thresholdLT + k), high = get<T>(thresholdGT + k);
    if (low > high) return ZorErrThreshold;
    toThresholds = toThresholds && get<T>(valueLT + k) == low && get<T>(valueGT + k) == high;
  }
  const Rows dst{pDst, dstStep};
  const Rows src{pSrc, srcStep};
  if constexpr (isInt<T>)
    if (toThresholds) {
      const Patterns<T, 2> constants{{channelConstant<L>(thresholdLT), channelConstant<L>(thresholdGT)}};
      mapWith<L>(constants, roiSize, ClampBothSides{}, dst, src);
      return ZorOk;
    }
  const Patterns<T, 4> constants{{channelConstant<L>(thresholdLT), channelReplacement<L>(thresholdLT, valueLT),
                                  channelConstant<L>(thresholdGT), channelReplacement<L>(thresholdGT, valueGT)}};
  mapWith<L>(constants, roiSize, ReplaceBothSides{}, dst, src);
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
// A form and its in-place twin. PARAMETER spells a constant's parameter, A its address: by value in C1, else an array.
#define STAMP(name, type, layout, function, parameters, ...)                                                           \
  ZorStatus zori##name##_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,        \
                                              ZorImgSize roiSize, UNPACK parameters)                                   \
  { return function<Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize, __VA_ARGS__); }                          \
  ZorStatus zori##name##_##type##_##layout##IR(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize, UNPACK parameters)\
  { return function<Zor##type, layout>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, __VA_ARGS__); }
#define UNPACK(...) __VA_ARGS__
#define SCALAR(type, name) Zor##type name
#define ARRAY3(type, name) const Zor##type name[3]
#define ARRAY4(type, name) const Zor##type name[4]
#define STAMP_VALUES(type, layout, P, A)                                                                               \
  STAMP(Threshold_GTVal, type, layout, replaceBeyond, (P(type, threshold), P(type, value)), A threshold, A value, ZorCmpGreater)\
  STAMP(Threshold_LTVal, type, layout, replaceBeyond, (P(type, threshold), P(type, value)), A threshold, A value, ZorCmpLess)
#define STAMP_LAYOUT(type, layout, P, A)                                                                               \
  STAMP(Threshold, type, layout, clampToThreshold, (P(type, threshold), ZorCmpOp cmpOp), A threshold, cmpOp)           \
  STAMP(Threshold_GT, type, layout, clampToThreshold, (P(type, threshold)), A threshold, ZorCmpGreater)                \
  STAMP(Threshold_LT, type, layout, clampToThreshold, (P(type, threshold)), A threshold, ZorCmpLess)                   \
  STAMP(Threshold_Val, type, layout, replaceBeyond, (P(type, threshold), P(type, value), ZorCmpOp cmpOp), A threshold, A value, cmpOp)\
  STAMP(Threshold_LTValGTVal, type, layout, replaceBothSides,                                                      \
        (P(type, thresholdLT), P(type, valueLT), P(type, thresholdGT), P(type, valueGT)),                              \
        A thresholdLT, A valueLT, A thresholdGT, A valueGT)                                                            \
  STAMP_VALUES(type, layout, P, A)
#define STAMP_TYPE(type) \
  STAMP_LAYOUT(type, C1, SCALAR, &) STAMP_LAYOUT(type, C3, ARRAY3, ) STAMP_LAYOUT(type, AC4, ARRAY3, ) STAMP_VALUES(type, C4, ARRAY4, )
STAMP_TYPE(8u) STAMP_TYPE(16u) STAMP_TYPE(16s) STAMP_TYPE(32f)
#undef STAMP_TYPE
#undef STAMP_LAYOUT
#undef STAMP_VALUES
#undef ARRAY4
#undef ARRAY3
#undef SCALAR
#undef UNPACK
#undef STAMP
