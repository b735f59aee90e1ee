// Fixed smoothing filters: Gauss and Lowpass, 3x3 and 5x5.
//
// T or S is the exact (weighted) sum over the window. How it is divided:
//
//               8u                             16u                          16s (S' = S of samples + 32768)   32f
//   Gauss 3x3   T / 16, ties to even           the same                     the same                          T *
//   0.0625f Gauss 5x5   nearest(float(T) * (1f/571))   ((T+286) * 0x72C62A) >> 32   nearest(T * (1.0/571))            T
//   * (1f/571) Lowp. 3x3   ((S+5) * 7281) >> 16           ((S+5) * 0x1C71C71C) >> 32   as 16u on S', less 32768 S *
//   0.11111111f Lowp. 5x5   ((S+13) * 10485) >> 18         nearest(float(S) * 0.04f)    ((S'+13) * 0x0A3D70A3) >> 32
//   less 32768   S * 0.04f
#include "fixed.h"

#include "zori/filter.h"

namespace zori {
namespace {

using namespace fixed;

// ---- Gauss ----

struct Sixteenth {
  template <class D, class A, int V, class S> static Block<D, A, V> apply(Pair<A, V> sum, Halves<const S, V>)
  {
    if constexpr (isInt<A>) return narrowed<D>(halfEven<4>(sum));
    else return narrowed<D>(sum * 0.0625f);
  }
};
template <class T> using Gauss3x3 = Separable<T, T, Weights<1, 2, 1>, Weights<1, 2, 1>, Sixteenth>;

// No whole sum lies halfway between two multiples of 571: nearest is floor((T + 285) / 571), and for 8u and 16-bit sums
// every way in the table gives just that.
struct By571 {
  // 8u: the three sums fit 16 unsigned bits, their total n = T + 285 does not. floor(n / 571) is estimated from n / 4,
  // at most 1 too low, and put right by the remainder, of which 16 bits are enough.
  template <int V>
  static Vec<std::int16_t, V> nearest(Vec<std::int16_t, V> outer, Vec<std::int16_t, V> inner, Vec<std::int16_t, V> own)
  {
    using U = Vec<std::uint16_t, V>;
    const auto all = [](std::uint16_t x) { return splat<std::uint16_t, V>(x); };
    const U a = as<std::uint16_t>(outer) + all(285), b = as<std::uint16_t>(inner), c = as<std::uint16_t>(own);
    const U quarter = shiftRight<1>(average(b, c)) + shiftRight<2>(a);
    const U estimate = mulHigh(quarter, all(459));
    const auto rest = as<std::int16_t>(a + b + c - mulLow(estimate, all(571)));
    return as<std::int16_t>(estimate) - greater(rest, splat<std::int16_t, V>(570));
  }

  template <class D, class A, int V> static Block<D, A, V> apply(Pair<A, V> outer, Pair<A, V> inner, Pair<A, V> own)
  {
    if constexpr (sizeof(D) == 1) {
      return {{narrowSat<D>(nearest(outer.low, inner.low, own.low), nearest(outer.high, inner.high, own.high))}};
    } else if constexpr (isInt<A>) {
      constexpr int bias = isSigned<D> ? 32768 : 0; // makes the sums of signed samples positive
      return narrowed<D>(mulShift32(outer + inner + own + (571 * bias + 286), 0x72C62A) - bias);
    } else return narrowed<D>((outer + inner + own) * (1.0f / 571));
  }
};
template <class T>
using Gauss5x5 =
  MirroredKernel5x5<T, T, Weights<2, 7, 12, 7, 2>, Weights<7, 31, 52, 31, 7>, Weights<12, 52, 127, 52, 12>, By571>;

// ---- Lowpass ----

template <int Area> struct Mean;

template <> struct Mean<9> {
  template <class D, class A, int V, class S> static Block<D, A, V> apply(Pair<A, V> sum, Halves<const S, V>)
  {
    if constexpr (sizeof(D) == 1) {
      const auto scaled = [](Vec<A, V> s) {
        return as<A>(mulHigh(as<std::uint16_t>(s + splat<A, V>(5)), splat<std::uint16_t, V>(7281)));
      };
      return narrowed<D>(Pair<A, V>{scaled(sum.low), scaled(sum.high)});
    } else if constexpr (isInt<A>) {
      constexpr int bias = isSigned<D> ? 32768 : 0;
      return narrowed<D>(mulShift32(sum + (9 * bias + 5), 0x1C71C71C) - bias);
    } else {
      return narrowed<D>(sum * 0.11111111f);
    }
  }
};

template <> struct Mean<25> {
  template <class D, class A, int V, class S> static Block<D, A, V> apply(Pair<A, V> sum, Halves<const S, V>)
  {
    if constexpr (sizeof(D) == 1) {
      const auto scaled = [](Vec<A, V> s) {
        return as<A>(shiftRight<2>(mulHigh(as<std::uint16_t>(s + splat<A, V>(13)), splat<std::uint16_t, V>(10485))));
      };
      return narrowed<D>(Pair<A, V>{scaled(sum.low), scaled(sum.high)});
    } else if constexpr (std::is_same_v<D, Zor16u>) {
      const auto scaled = [](Vec<A, V> s) { return toInt(toFloat(s) * splat<float, V>(0.04f)); };
      return narrowed<D>(Pair<A, V>{scaled(sum.low), scaled(sum.high)});
    } else if constexpr (isInt<A>) {
      return narrowed<D>(mulShift32(sum + (25 * 32768 + 13), 0x0A3D70A3) - 32768);
    } else {
      return narrowed<D>(sum * 0.04f);
    }
  }
};
template <class T> using Lowpass3x3 = Separable<T, T, Weights<1, 1, 1>, Weights<1, 1, 1>, Mean<9>>;
template <class T> using Lowpass5x5 = Separable<T, T, Weights<1, 1, 1, 1, 1>, Weights<1, 1, 1, 1, 1>, Mean<25>>;

// ---- Teams: the heights from which they pay ----

template <class T> constexpr ForkHeights serial = {never, never, never, never};

template <class T> constexpr ForkHeights gauss3x3Heights = serial<T>;
template <> constexpr ForkHeights gauss3x3Heights<Zor8u> = {256, always, 400, always};
template <> constexpr ForkHeights gauss3x3Heights<Zor16s> = {400, 400, 256, always};
template <> constexpr ForkHeights gauss3x3Heights<Zor32f> = {never, never, never, always};

template <class T> constexpr ForkHeights gauss5x5Heights = serial<T>;
template <> constexpr ForkHeights gauss5x5Heights<Zor8u> = {always, always, always, always};
template <> constexpr ForkHeights gauss5x5Heights<Zor16s> = {always, always, always, always};

template <class T> constexpr ForkHeights lowpass5x5Heights = serial<T>;
template <> constexpr ForkHeights lowpass5x5Heights<Zor8u> = {never, always, never, always};
template <> constexpr ForkHeights lowpass5x5Heights<Zor16s> = {400, 400, never, always};

// ---- Forms ----

template <class T, Layout L>
ZorStatus filterGauss(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roi, ZorMaskSize mask)
{
  return filterSelected<Gauss3x3<T>, Gauss5x5<T>, L>(pSrc, srcStep, pDst, dstStep, roi, mask, gauss3x3Heights<T>,
                                                     gauss5x5Heights<T>);
}

template <class T, Layout L>
ZorStatus filterLowpass(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roi, ZorMaskSize mask)
{
  return filterSelected<Lowpass3x3<T>, Lowpass5x5<T>, L>(pSrc, srcStep, pDst, dstStep, roi, mask, serial<T>,
                                                         lowpass5x5Heights<T>);
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(name, type, layout)                                                                                      \
  ZorStatus zoriFilter##name##_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,  \
                                                    ZorImgSize roiSize, ZorMaskSize mask)                              \
  {                                                                                                                    \
    return filter##name<Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize, mask);                        \
  }
#define TYPES(name, layout) STAMP(name, 8u, layout) STAMP(name, 16u, layout) STAMP(name, 16s, layout) STAMP(name, 32f, layout)
TYPES(Gauss, C1) TYPES(Gauss, C3) TYPES(Gauss, C4) TYPES(Gauss, AC4)
TYPES(Lowpass, C1) TYPES(Lowpass, C3) TYPES(Lowpass, AC4)
#undef TYPES
#undef STAMP
