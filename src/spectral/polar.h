// Row kernels between complex values and magnitude and phase.
//
// 32fc: magnitude sqrt(re^2 + im^2) and phase by a polynomial, in single precision; the phase is within 3e-7 of the
// true one. Integers: in double precision, times 2^-scaleFactor, to nearest with ties to even, saturated.
// A negative real has the phase pi or -pi by the sign of its zero; zero has phase 0.
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

struct MagnitudeOf {
  Vec<float> operator()(Vec<float> re, Vec<float> im) const { return sqrt(re * re + im * im); }
};

struct PhaseOf {
  Vec<float> operator()(Vec<float> re, Vec<float> im) const
  {
    const Vec<float> none = zero<float>(), x = abs(re), y = abs(im);
    const Vec<float> low = min(x, y), high = max(x, y);
    // low / high in 0..1; 1 of equal ones, infinite ones too; 0 of zero
    Vec<float> t = select(equal(low, high), splat(1.0f), low / high);
    t = without(t, equal(high, none));
    // atan(t) = t + t^3 p(t^2), p fitted over 0..1 for the least relative error, 1.7e-8
    const Vec<float> z = t * t;
    Vec<float> p = splat(0.00292069285f);
    for (const float c :
         {-0.0163679304f, 0.0432118646f, -0.075522146f, 0.106660048f, -0.142110553f, 0.199937728f, -0.333331527f})
      p = p * z + splat(c);
    Vec<float> a = t + t * z * p;
    a = select(greater(y, x), splat(1.57079632679489662f) - a, a);
    a = select(less(re, none), splat(3.14159265358979324f) - a, a);
    const Vec<float> signs = im & splat(-0.0f);
    // a NaN stays one
    return (a | signs) + select(unordered(re, im), re + im, none);
  }
};

// dst[i] = op(re, im) of complex value i.
template <class Op> [[gnu::noinline]] void polarRow(const Zor32fc* src, Zor32f* dst, std::ptrdiff_t length, Op op)
{
  const UpperHalvesCleared atTheEnd;
  constexpr int lanes = Vec<float>::size;
  const auto values = [op](const void* p) {
    const float* q = static_cast<const float*>(p);
    const Vec<float> a = load<float>(q), b = load<float>(q + lanes);
    return inOrder(op(evenLanes(a, b), oddLanes(a, b)));
  };
  std::ptrdiff_t i = 0;
  for (; i + lanes <= length; i += lanes) store(dst + i, values(src + i));
  if (i == length) return;
  const std::size_t left = static_cast<std::size_t>(length - i);
  alignas(vectorBytes) float last[2 * lanes] = {};
  std::memcpy(last, src + i, left * sizeof(Zor32fc));
  storePart(dst + i, values(last), left * sizeof(Zor32f));
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

struct IntegerMagnitude {
  double operator()(double re, double im) const { return std::sqrt(re * re + im * im); }
};
struct IntegerPhase {
  double operator()(double re, double im) const { return std::atan2(im, re); }
};

template <class Op, class C, class T>
[[gnu::noinline]] void polarRowOfIntegers(const C* src, T* dst, std::ptrdiff_t length, Op op, double scale)
{
  for (std::ptrdiff_t i = 0; i < length; ++i) {
    const C x = get<C>(src + i);
    put(dst + i, rounded<T>(op(static_cast<double>(x.re), static_cast<double>(x.im)) * scale));
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
