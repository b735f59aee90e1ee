// Row kernels of type conversion: the operations on groups, and the kernel of one row that other families call.
//
// Integers widen exactly and narrow with saturation; to 32f they are exact up to 24 bits, 32s beyond that is rounded by
// the control register. 32f to integers clamps to the bounds of the destination type, a NaN to the upper one, and
// rounds by one of two rules.
#pragma once

#include "drivers.h"
#include "zori/types.h"

#include <limits>

namespace zori {
inline namespace ZORI_WIDTH {

// ---- Operations on groups ----

template <class D> struct Converted {
  static constexpr int widensTo = sizeof(D);
  template <class S, int Bytes> ZORI_INLINE Group<D, Bytes> operator()(const Group<S, Bytes>& x) const
  {
    Group<D, Bytes> y;
    if constexpr (std::is_same_v<D, Zor32f>) {
      const Group<Zor32s, Bytes> n = Converted<Zor32s>{}(x);
      for (int k = 0; k < y.parts; ++k) y.part[k] = toFloat(n.part[k]);
    } else if constexpr (sizeof(S) == sizeof(D)) {
      for (int k = 0; k < y.parts; ++k) y.part[k] = as<D>(x.part[k]);
    } else if constexpr (sizeof(S) < sizeof(D)) {
      Group<WiderT<S>, Bytes> wider;
      for (int k = 0; k < x.parts; ++k) {
        wider.part[2 * k] = widenLow(x.part[k]);
        wider.part[2 * k + 1] = widenHigh(x.part[k]);
      }
      y = (*this)(wider);
    } else if constexpr (sizeof(S) == 4 && sizeof(D) == 1) { // saturation to 16 bits changes nothing about the result
      const Group<Zor32s, Bytes> n = Converted<Zor32s>{}(x);
      for (int k = 0; k < y.parts; ++k)
        y.part[k] = narrowSatFour<D>(n.part[4 * k], n.part[4 * k + 1], n.part[4 * k + 2], n.part[4 * k + 3]);
    } else if constexpr (std::is_same_v<S, Zor16u>) { // the pack takes its lanes as signed, so first at most 0x7fff
      const auto top = topBits<Zor16u, Bytes>();
      const auto atMost = [top](Vec<Zor16u, Bytes> v) { return as<Zor16s>(addSat(v, top) ^ top); };
      for (int k = 0; k < y.parts; ++k) y.part[k] = narrowSat<D>(atMost(x.part[2 * k]), atMost(x.part[2 * k + 1]));
    } else {
      for (int k = 0; k < y.parts; ++k) y.part[k] = narrowSat<D>(x.part[2 * k], x.part[2 * k + 1]);
    }
    return y;
  }
};

// The upper bound of D as it is, or next above it, in 32f: of 32s it is 2^31.
template <class D> inline constexpr Zor32f upperBound = static_cast<Zor32f>(std::numeric_limits<D>::max());

// A NaN takes the bound, because that is the second operand.
template <class D, int Bytes> inline Vec<Zor32f, Bytes> clampedAbove(Vec<Zor32f, Bytes> x)
{
  return min(x, splat<Zor32f, Bytes>(upperBound<D>));
}
template <int Bytes> inline Vec<Zor32f, Bytes> clampedAtZero(Vec<Zor32f, Bytes> x)
{
  return max(x, zero<Zor32f, Bytes>());
}

// Saturated below, and above as well. Of 16u, which has no pack of its own, n lies in 0..65535.
template <class D, int Bytes> inline Group<D, Bytes> packed(Group<Zor32s, Bytes> n)
{
  if constexpr (std::is_same_v<D, Zor16u>) { // by the signed pack
    for (int k = 0; k < n.parts; ++k) n.part[k] -= splat<Zor32s, Bytes>(32768);
    Group<Zor16u, Bytes> y = Converted<Zor16u>{}(Converted<Zor16s>{}(n));
    for (int k = 0; k < y.parts; ++k) y.part[k] = y.part[k] ^ topBits<Zor16u, Bytes>();
    return y;
  } else {
    return Converted<D>{}(n);
  }
}

// n is the conversion of x to an integer; 2^31 has become the least one and must become the greatest.
template <class D, int Bytes> inline Vec<Zor32s, Bytes> belowTop(Vec<Zor32s, Bytes> n, Vec<Zor32f, Bytes> x)
{
  if constexpr (std::is_same_v<D, Zor32s>) return n ^ as<Zor32s>(greaterEqual(x, splat<Zor32f, Bytes>(upperBound<D>)));
  else return n;
}

// Rounded by the control register. What lies too far below to fit becomes the least integer and is saturated.
template <class D> struct Rounded {
  template <int Bytes> ZORI_INLINE Group<D, Bytes> operator()(const Group<Zor32f, Bytes>& x) const
  {
    Group<Zor32s, Bytes> n;
    for (int k = 0; k < x.parts; ++k) {
      Vec<Zor32f, Bytes> v = clampedAbove<D>(x.part[k]);
      if constexpr (std::is_same_v<D, Zor16u>) v = clampedAtZero(v);
      n.part[k] = belowTop<D>(toInt(v), v);
    }
    return packed<D>(n);
  }
};

// Ties away from zero: |x| + 0.5 in 32f, the sign restored, the fraction cut off.
template <class D> struct RoundedAway {
  template <int Bytes> ZORI_INLINE Group<D, Bytes> operator()(const Group<Zor32f, Bytes>& x) const
  {
    Group<Zor32s, Bytes> n;
    for (int k = 0; k < x.parts; ++k) {
      const Vec<Zor32f, Bytes> v = clampedAbove<D>(x.part[k]);
      Vec<Zor32f, Bytes> sum;
      if constexpr (isSigned<D>) sum = (abs(v) + splat<Zor32f, Bytes>(0.5f)) | (v & splat<Zor32f, Bytes>(-0.0f));
      else sum = clampedAtZero(v) + splat<Zor32f, Bytes>(0.5f);
      n.part[k] = belowTop<D>(toIntTruncated(sum), sum);
    }
    return packed<D>(n);
  }
};

// The samples times 2^-scaleFactor, then op. In two factors, which covers every scale that matters: beyond, each result
// is a bound or zero.
template <class Op> struct Scaled {
  Vec<Zor32f> factor1, factor2;
  Op op;

  explicit Scaled(int scaleFactor)
  {
    const int exponent = scaleFactor < -252 ? 252 : scaleFactor > 252 ? -252 : -scaleFactor;
    factor1 = powerOfTwo(exponent / 2);
    factor2 = powerOfTwo(exponent - exponent / 2);
  }
  auto operator()(Group<Zor32f> x) const
  {
    for (int k = 0; k < x.parts; ++k) x.part[k] = x.part[k] * factor1 * factor2;
    return op(x);
  }

private:
  static Vec<Zor32f> powerOfTwo(int exponent) { return as<Zor32f>(splat<Zor32s>((127 + exponent) << 23)); }
};

// ---- The kernel of one row that other families call ----

// 32f to an integer is rounded by the control register.
template <class S, class D> inline void convertRow(const S* pSrc, D* pDst, std::ptrdiff_t length)
{
  if constexpr (std::is_same_v<S, Zor32f>) mapGroups(pDst, length, Rounded<D>{}, pSrc);
  else mapGroups(pDst, length, Converted<D>{}, pSrc);
}

} // namespace ZORI_WIDTH
} // namespace zori
