// Row kernels between complex values and magnitude and phase.
//
// 32fc: magnitude sqrt(re^2 + im^2) and phase by a fraction of polynomials, in single precision; the phase is within
// 3e-7 of the true one, and within 2e-7 of its size. Integers: in double precision, times 2^-scaleFactor, to nearest
// with ties to even, saturated. A negative real has the phase pi or -pi by the sign of its zero; zero has phase 0.
#pragma once

#include "rowkernels/drivers.h"
#include "zori/types.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <limits>

namespace zori {
namespace {

// ---- Single precision ----

// Kernels form the results of so many vectors of complex values together.
constexpr int polarVectors = 2;

template <int Bytes> struct MagnitudeOf {
  using V = Vec<float, Bytes>;
  void operator()(const V (&re)[polarVectors], const V (&im)[polarVectors], V (&result)[polarVectors]) const
  {
    for (int i = 0; i < polarVectors; ++i) result[i] = sqrt(re[i] * re[i] + im[i] * im[i]);
  }
};

// atan(t) = t + t^3 N(t^2) / D(t^2) for t = min / max of the absolute parts, fitted over 0..1 within 2.1e-8 * (0.2 +
// atan(t)) and then for what is lost by rounding; from there to the whole circle by signs, and a right angle where the
// imaginary part is the greater one. A second division costs less than the four terms more that a polynomial has.
template <int Bytes> class PhaseOf {
  using V = Vec<float, Bytes>;
  // in registers, for gcc would spread a literal anew in every round
  static V number(float x) { return loadedOnce(splat<float, Bytes>(x)); }
  V sign = number(-0.0f), rightAngle = number(1.57079632679489662f);
  V n1 = number(64.3703156f), n0 = number(115.68679f);
  V d2 = number(-95.3213272f), d1 = number(-401.30423f), d0 = number(-347.062866f);

  struct Slope {
    V re, im, t, steep;
  };
  Slope slope(V re, V im) const
  {
    const V x = without(re, sign), y = without(im, sign);
    return {re, im, min(x, y) / max(y, x), greater(y, x)}; // NaN of either
  }
  // Infinite parts are equal, zero has the phase 0, a NaN stays one.
  void mend(Slope& s) const
  {
    const V x = without(s.re, sign), y = without(s.im, sign), nothing = equal(max(y, x), zero<float, Bytes>());
    s.t = without(select(equal(x, y), splat<float, Bytes>(1.0f), s.t), nothing);
    s.re = without(s.re, nothing);
  }
  V angle(const Slope& s) const
  {
    const V t = s.t, z = t * t, reSign = s.re & sign;
    const V a = t + t * z * ((z + n1) * z + n0) / ((z * d2 + d1) * z + d0);
    const V base = rightAngle - without(rightAngle | reSign, s.steep); // 0, pi/2 or pi
    return (base + (a ^ reSign ^ (s.steep & sign))) | (s.im & sign);
  }

public:
  void operator()(const V (&re)[polarVectors], const V (&im)[polarVectors], V (&result)[polarVectors]) const
  {
    Slope a = slope(re[0], im[0]), b = slope(re[1], im[1]);
    if (__builtin_expect(moveMask(unordered(a.t, b.t)), 0)) mend(a), mend(b);
    result[0] = angle(a);
    result[1] = angle(b);
  }
};

// The results of one vector of complex values a, b.
template <template <int> class What, int Bytes>
ZORI_INLINE inline Vec<float, Bytes> polarOf(Vec<float, Bytes> a, Vec<float, Bytes> b)
{
  const Vec<float, Bytes> x = evenLanes(a, b), y = oddLanes(a, b), re[] = {x, x}, im[] = {y, y};
  Vec<float, Bytes> result[polarVectors]; // alike, and formed once
  What<Bytes>{}(re, im, result);
  return inOrder(result[0]);
}

// dst[i] = What of complex value i. The last vectors end with the row. Of rows below a vector of 32 bytes, and where
// so little is left, vectors have 16: divisions and roots take as long for half a wider one as for all of it.
template <template <int> class What, int Bytes>
[[gnu::noinline]] void polarKernel(const Zor32fc* src, Zor32f* dst, std::ptrdiff_t length)
{
  const UpperHalvesCleared atTheEnd;
  constexpr std::ptrdiff_t lanes = Vec<float, Bytes>::size, together = polarVectors * lanes, lanes16 = F32x4::size;
  if (Bytes == 16 && length < lanes) {
    const std::size_t bytes = static_cast<std::size_t>(length) * sizeof(Zor32fc);
    const auto a = bytes < 16 ? loadPart16<float>(src, bytes) : load<float, 16>(src);
    const auto b = bytes > 16 ? loadPart16<float>(src + 2, bytes - 16) : zero<float, 16>();
    return storePart(dst, polarOf<What, 16>(a, b), static_cast<std::size_t>(length) * sizeof(Zor32f));
  }
  const What<Bytes> what;
  const auto two = [&](std::ptrdiff_t first, std::ptrdiff_t second) ZORI_INLINE {
    const std::ptrdiff_t at[] = {first, second};
    Vec<float, Bytes> re[polarVectors], im[polarVectors], result[polarVectors];
    for (int v = 0; v < polarVectors; ++v) {
      const auto a = load<float, Bytes>(src + at[v]), b = load<float, Bytes>(src + at[v] + lanes / 2);
      re[v] = evenLanes(a, b), im[v] = oddLanes(a, b);
    }
    what(re, im, result);
    for (int v = 0; v < polarVectors; ++v) store(dst + at[v], inOrder(result[v]));
  };
  const auto one = [=](auto bytes, std::ptrdiff_t i) ZORI_INLINE {
    constexpr int half = Vec<float, bytes>::size / 2;
    store(dst + i, polarOf<What, bytes>(load<float, bytes>(src + i), load<float, bytes>(src + i + half)));
  };
  std::ptrdiff_t i = 0;
  for (; i + together <= length; i += together) two(i, i + lanes);
  if (length - i > lanes) two(i, length - lanes);
  else if (Bytes > 16 && length - i > lanes16) one(std::integral_constant<int, Bytes>{}, length - lanes);
  else if (length > i) one(std::integral_constant<int, 16>{}, length - lanes16);
}
template <template <int> class What> void polarRow(const Zor32fc* src, Zor32f* dst, std::ptrdiff_t length)
{
  if (length < Vec<float>::size) polarKernel<What, 16>(src, dst, length);
  else polarKernel<What, vectorBytes>(src, dst, length);
}

// ---- Integers ----

// 2^-scaleFactor, as far as it matters to numbers of 32 bits.
inline double scaleOf(int scaleFactor) { return std::ldexp(1.0, -std::clamp(scaleFactor, -200, 200)); }

// Under the rounding to nearest.
template <class T> inline T rounded(double x)
{
  constexpr double least = std::numeric_limits<T>::min(), most = std::numeric_limits<T>::max();
  if (x >= most) return std::numeric_limits<T>::max();
  if (x <= least) return std::numeric_limits<T>::min();
  return static_cast<T>(toInt(x));
}

// Four magnitudes of complex values whose parts are T: an operation of mapBlocks, which knows a complex value as one
// word. The unit for square roots takes as long for vectors of 32 bytes as for two of 16.
template <class T> struct FourMagnitudes {
  using Word = std::conditional_t<sizeof(T) == 2, std::uint32_t, std::uint64_t>;
  static constexpr std::ptrdiff_t blockLength = 4;
  double scale;

  F64x2 magnitude(F64x2 re, F64x2 im) const
  {
    return min(sqrt(re * re + im * im) * splat<double, 16>(scale), splat<double, 16>(std::numeric_limits<T>::max()));
  }
  void block(const Word* src, T* dst) const
  {
    F32x4 a, b; // the bits of whole numbers, real and imaginary parts in turns
    if constexpr (sizeof(T) == 2) {
      const auto x = load<T, 16>(src);
      a = as<float>(widenLow(x)), b = as<float>(widenHigh(x));
    } else {
      a = load<float, 16>(src), b = load<float, 16>(src + blockLength / 2);
    }
    const auto re = as<std::int32_t>(evenLanes(a, b)), im = as<std::int32_t>(oddLanes(a, b));
    const auto x = toInt(magnitude(toDoubleLow(re), toDoubleLow(im)), magnitude(toDoubleHigh(re), toDoubleHigh(im)));
    if constexpr (sizeof(T) == 2) storeLow8(dst, narrowSat<T>(x, x));
    else store(dst, x);
  }
};
template <class C, class T> void magnitudeRowOfIntegers(const C* src, T* dst, std::ptrdiff_t length, double scale)
{
  using Op = FourMagnitudes<T>;
  if (length >= Op::blockLength) {
    mapBlocks(dst, length, Op{scale}, reinterpret_cast<const typename Op::Word*>(src));
    return;
  }
  for (std::ptrdiff_t i = 0; i < length; ++i) {
    const C x = get<C>(src + i);
    const double re = x.re, im = x.im;
    put(dst + i, rounded<T>(std::sqrt(re * re + im * im) * scale));
  }
}

template <class C, class T>
[[gnu::noinline]] void phaseRowOfIntegers(const C* src, T* dst, std::ptrdiff_t length, double scale)
{
  for (std::ptrdiff_t i = 0; i < length; ++i) {
    const C x = get<C>(src + i);
    put(dst + i, rounded<T>(std::atan2(static_cast<double>(x.im), static_cast<double>(x.re)) * scale));
  }
}

// ---- Back ----

// dst[i] from the magnitude magnitude[i * apart] and the phase phase[i * apart].
template <class T, class C>
[[gnu::noinline]] void cartesianRow(const T* magnitude, const T* phase, int apart, C* dst, std::ptrdiff_t length)
{
  const auto part = [](double x) {
    if constexpr (std::is_floating_point_v<T>) return static_cast<T>(x);
    else return rounded<T>(x);
  };
  for (std::ptrdiff_t i = 0; i < length; ++i) {
    const double m = get<T>(magnitude + i * apart), angle = get<T>(phase + i * apart);
    put(dst + i, C{part(m * std::cos(angle)), part(m * std::sin(angle))});
  }
}

} // namespace
} // namespace zori
