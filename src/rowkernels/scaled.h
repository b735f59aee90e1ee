// Sums, differences and products scaled by a power of two: saturate(round(v * 2^-scale)) of the exact result v, rounded
// to nearest with ties to even. And the same operations of floats, unscaled.
//
// An operation tells its exact result in vectors, in a form that never overflows: sums as half and last bit, products
// in lanes of twice the width. The rule stands here once, for lanes of every width. AtScale puts an operation on the
// path that a scale takes.
#pragma once

#include "drivers.h"
#include "zori/types.h"

#include <limits>

namespace zori {
inline namespace ZORI_WIDTH {

// ---- The parts of an element: one number, or the two of a complex one. ----

template <class T> struct PartsOf {
  using Part = T;
  static constexpr int count = 1;
};
template <class T> struct TwoParts {
  using Part = T;
  static constexpr int count = 2;
};
template <> struct PartsOf<Zor16sc> : TwoParts<Zor16s> {};
template <> struct PartsOf<Zor32sc> : TwoParts<Zor32s> {};
template <> struct PartsOf<Zor32fc> : TwoParts<Zor32f> {};

template <class T> using Part = typename PartsOf<T>::Part;
template <class T> inline constexpr int partCount = PartsOf<T>::count;

// ---- Lane by lane: sums, and shifts that round or saturate. ----

template <class T> inline Vec<T> saturatedSum(Vec<T> a, Vec<T> b)
{
  if constexpr (sizeof(T) < 4) return addSat(a, b);
  else { // a sum of another sign than both operands has left the range on the side of a
    const Vec<T> sum = a + b;
    return select(signs((a ^ sum) & (b ^ sum)), signs(a) ^ splat(std::numeric_limits<T>::max()), sum);
  }
}
template <class T> inline Vec<T> saturatedDifference(Vec<T> a, Vec<T> b)
{
  if constexpr (sizeof(T) < 4) return subSat(a, b);
  else {
    const Vec<T> difference = a - b;
    return select(signs((a ^ b) & (a ^ difference)), signs(a) ^ splat(std::numeric_limits<T>::max()), difference);
  }
}

// Shifts that serve bytes too; n is at least 1. To the left no bit may leave its byte. To the right a product by 2^-n
// is one instruction, where a shift by a number that is not known beforehand takes two.
template <class T> inline Vec<T> lanesRight(Vec<T> v, int n)
{
  const auto power = [=] { return splat(static_cast<Zor16u>(0x10000 >> n)); };
  if constexpr (sizeof(T) == 1) return as<T>(mulHigh(as<Zor16u>(v), power())) & splat(static_cast<T>(0xff >> n));
  else if constexpr (sizeof(T) == 2 && !isSigned<T>) return mulHigh(v, power());
  else if constexpr (sizeof(T) < 8) return shiftRight(v, n);
  else { // no arithmetic shift of 64 bits: moved up by 2^63 and back
    constexpr std::uint64_t top = std::uint64_t{1} << 63;
    return as<T>(shiftRight(as<std::uint64_t>(v) ^ splat(top), n) - splat(top >> n));
  }
}
template <class T> inline Vec<T> lanesLeft(Vec<T> v, int n)
{
  if constexpr (sizeof(T) == 1) return as<T>(shiftLeft(as<Zor16u>(v), n));
  else return shiftLeft(v, n);
}

// v / 2^n to nearest, ties to even; n from 1 to the width of an unsigned lane or the width less 1 of a signed one.
// `lost` is 1 where v stands for v and a half, else 0.
template <class T> inline Vec<T> roundedShiftRight(Vec<T> v, Vec<T> lost, int n)
{
  using S = std::make_signed_t<T>;
  constexpr T flip = isSigned<T> ? 0 : static_cast<T>(T(1) << (8 * sizeof(T) - 1)); // for a signed comparison
  const std::uint64_t unit = std::uint64_t{1} << n;
  const Vec<T> quotient = lanesRight(v, n);
  const Vec<T> rest = (v & splat(static_cast<T>(unit - 1))) ^ splat(flip);
  // up when the rest exceeds a half, or is one and the quotient is odd or something was lost
  const Vec<T> greatestDown = splat(static_cast<T>(unit / 2 ^ flip)) - ((quotient & splat(T(1))) | lost);
  if constexpr (sizeof(T) < 8) return quotient - as<T>(greater(as<S>(rest), as<S>(greatestDown)));
  else return quotient + as<T>(shiftRight<63>(as<std::uint64_t>(greatestDown - rest)));
}

// v * 2^n, saturated; n up to the width of an unsigned lane or the width less 1 of a signed one.
template <class T> inline Vec<T> saturatedShiftLeft(Vec<T> v, int n)
{
  constexpr T greatest = std::numeric_limits<T>::max(), least = std::numeric_limits<T>::min();
  const Vec<T> limit = splat(static_cast<T>(greatest >> n));
  Vec<T> inside = min(v, limit);
  if constexpr (isSigned<T>) inside = max(inside, splat(static_cast<T>(least >> n)));
  return lanesLeft(inside, n) | (greater(v, limit) & splat(greatest));
}

// The count that leaves nothing but the sign: enough for all scales further down.
template <class T> inline constexpr int boundShift = 8 * sizeof(T) - isSigned<T>;

// ---- Exact results, and how each kind is scaled down by 2^scale, scale at least 1. ----

// Sums and differences: half the result, rounded down, and its last bit.
template <class T> struct Halved {
  Vec<T> half, odd;
};
template <class T> inline Vec<T> scaledDown(Halved<T> v, int scale) // by 2 or more
{
  return roundedShiftRight(v.half, v.odd, scale - 1);
}
template <class T> inline Vec<T> scaledDownOnce(Halved<T> v) // by 1
{
  return saturatedSum(v.half, v.odd & v.half);
}

// Products: two vectors of lanes of twice the width, of the low and of the high half of each 16 bytes.
template <class W> struct Wide {
  Vec<W> low, high;
};
// Saturated; the top bit of unsigned lanes must be clear.
template <class T, class W> inline Vec<T> narrow(Wide<W> v)
{
  using S = std::make_signed_t<W>;
  if constexpr (std::is_same_v<W, Zor32u>) { // to 16u by way of 16s, for there is no negative to be clamped
    const Vec<S> bias = splat<S>(32768);
    return as<T>(narrowSatLocal<Zor16s>(as<S>(v.low) - bias, as<S>(v.high) - bias)) ^ splat<T>(0x8000);
  } else if constexpr (sizeof(W) < 8) {
    return narrowSatLocal<T>(as<S>(v.low), as<S>(v.high));
  } else { // the high half of what fits repeats the sign of the low one
    const auto first = as<float>(v.low), second = as<float>(v.high);
    const Vec<T> low = as<T>(shuffleLocal<2, 0, 2, 0>(first, second)),
                 high = as<T>(shuffleLocal<3, 1, 3, 1>(first, second));
    return select(equal(high, signs(low)), low, signs(high) ^ splat(std::numeric_limits<T>::max()));
  }
}
template <class T, class W> inline Vec<T> scaledDown(Wide<W> v, int scale)
{
  const Vec<W> nothing = zero<W>();
  return narrow<T>(Wide<W>{roundedShiftRight(v.low, nothing, scale), roundedShiftRight(v.high, nothing, scale)});
}

// ---- The operations ----

template <class T> struct Sum {
  using Element = T;
  static constexpr int period = 1;
  static constexpr bool halves = true;

  static Halved<T> exact(Vec<T> a, Vec<T> b)
  {
    const Vec<T> odd = (a ^ b) & splat(T(1));
    if constexpr (isSigned<T>) return {(a & b) + shiftRight<1>(a ^ b), odd};
    else return {average(a, b) - odd, odd};
  }
  static Vec<T> saturated(Vec<T> a, Vec<T> b)
  {
    if constexpr (isInt<T>) return saturatedSum(a, b);
    else return a + b;
  }
};

template <class T> struct Difference { // a - b
  using Element = T;
  static constexpr int period = 1;
  static constexpr bool halves = true;

  static Halved<T> exact(Vec<T> a, Vec<T> b)
  {
    const Vec<T> one = splat(T(1));
    if constexpr (isSigned<T>) { // a - b = a + ~b + 1
      const Vec<T> n = b ^ splat(T(-1));
      return {(a | n) - shiftRight<1>(a ^ n), (a ^ b) & one};
    } else { // what is negative ends at 0 at every scale
      const Vec<T> difference = saturatedDifference(a, b);
      return {lanesRight(difference, 1), difference & one};
    }
  }
  static Vec<T> saturated(Vec<T> a, Vec<T> b)
  {
    if constexpr (isInt<T>) return saturatedDifference(a, b);
    else return a - b;
  }
};

template <class T> struct Product {
  using Element = T;
  static constexpr int period = 1;
  static constexpr bool halves = false;

  static auto exact(Vec<T> a, Vec<T> b)
  {
    using W = WiderT<T>;
    if constexpr (sizeof(T) == 1) {
      return Wide<W>{mulLow(widenLowLocal(a), widenLowLocal(b)), mulLow(widenHighLocal(a), widenHighLocal(b))};
    } else {
      const Vec<T> low = mulLow(a, b), high = mulHigh(a, b);
      return Wide<W>{as<W>(interleaveLowLocal(low, high)), as<W>(interleaveHighLocal(low, high))};
    }
  }
  static Vec<T> saturated(Vec<T> a, Vec<T> b)
  {
    if constexpr (!isInt<T>) return a * b;
    else if constexpr (isSigned<T>) return narrow<T>(exact(a, b));
    else if constexpr (sizeof(T) == 1) { // bytes of even and of odd place; saturated in the low byte of their lanes
      const auto x = as<Zor16u>(a), y = as<Zor16u>(b), low = splat<Zor16u>(0xff), high = splat<Zor16u>(0xff00);
      const Vec<Zor16u> even = addSat(mulLow(x & low, y & low), high), odd = addSat(mulHigh(x & high, y & high), high);
      return as<T>((even & low) | shiftLeft<8>(odd));
    } else { // all ones where the high half is not zero
      return mulLow(a, b) | (equal(mulHigh(a, b), zero<T>()) ^ splat<T>(0xffff));
    }
  }
};

// (a + ib)(c + id) = (ac - bd) + i(ad + bc) of pairs of parts, exact in lanes of twice the width but for one result:
// ad + bc is 2^31 (2^63) when all parts are at the minimum. It comes out as the minimum, which no other product gives,
// and the maximum takes its place: that gives the same at every scale.
template <class T> struct ComplexProduct {
  using Element = T;
  static constexpr int period = 2;
  static constexpr bool halves = false;

  static auto exact(Vec<T> x, Vec<T> y)
  {
    if constexpr (sizeof(T) == 2) {
      const auto pairs = as<Zor32u>(y);
      const Vec<T> swapped = as<T>(shiftLeft<16>(pairs) | shiftRight<16>(pairs));
      // -d may not fit, ~d does: ac - bd = ac + b * ~d + b
      const Vec<T> complemented = as<T>(pairs ^ splat<Zor32u>(0xffff0000u));
      const Vec<Zor32s> re = mulAddPairs(x, complemented) + shiftRight<16>(as<Zor32s>(x));
      Vec<Zor32s> im = mulAddPairs(x, swapped);
      im += equal(im, splat(std::numeric_limits<Zor32s>::min()));
      return Wide<Zor32s>{interleaveLowLocal(re, im), interleaveHighLocal(re, im)};
    } else {
      using L = std::uint64_t;
      const auto product = [](Vec<T> p, Vec<T> q) { return mulEven(as<Zor32u>(p), as<Zor32u>(q)); };
      // Signed products are unsigned ones less 2^32 times each factor where the other is negative.
      const auto excess = [](Vec<T> p, Vec<T> q) { return as<L>((q & signs(p)) + (p & signs(q))); };
      const auto fromBelow = [](Vec<L> p) { return shiftLeft<32>(p); };
      const auto inHighHalf = [](Vec<Zor32u> p) { return as<L>(p) & splat(~L{0} << 32); };
      const Vec<T> swapped = shuffleLocal<2, 3, 0, 1>(y), b = as<T>(shiftRight<32>(as<L>(x)));
      const Vec<L> ofRe = excess(x, y), ofIm = excess(x, swapped); // ac, bd in turn; ad, bc in turn
      const Vec<L> re =
        product(x, y) - product(b, swapped) + inHighHalf(as<Zor32u>(ofRe) - as<Zor32u>(fromBelow(ofRe)));
      Vec<L> im = product(x, swapped) + product(b, y) - inHighHalf(as<Zor32u>(ofIm) + as<Zor32u>(fromBelow(ofIm)));
      const Vec<T> isLeast = equal(as<T>(im), as<T>(splat(L{1} << 63)));
      im += as<L>(isLeast & shuffleLocal<2, 3, 0, 1>(isLeast));
      return Wide<Zor64s>{as<Zor64s>(interleaveLowLocal(re, im)), as<Zor64s>(interleaveHighLocal(re, im))};
    }
  }
  static Vec<T> saturated(Vec<T> x, Vec<T> y)
  {
    if constexpr (isInt<T>) return narrow<T>(exact(x, y));
    else {
      const Vec<T> re = shuffleLocal<2, 2, 0, 0>(x, x), im = shuffleLocal<3, 3, 1, 1>(x, x),
                   swapped = shuffleLocal<2, 3, 0, 1>(y, y);
      return re * y + ((im * swapped) ^ as<T>(splat<std::uint64_t>(0x80000000u)));
    }
  }
};

// ---- An operation on a path: how scales are served, from the greatest to the least. ----

enum class Path {
  Zero,     // every result rounds to 0: the image is filled, nothing is read
  Positive, // the exact result scaled down
  One,      // the same at scale 1, where sums and differences have a shorter way
  Plain,    // scale 0: the saturated result
  Negative, // the saturated result shifted left with saturation
  Bound     // the same by boundShift: of a result it counts only whether it is below, at or above zero
};

template <class Operation, Path path> struct AtScale {
  using T = typename Operation::Element;
  static constexpr int period = Operation::period;
  static constexpr bool isPlain = path == Path::Plain;
  int shift; // the scale of Positive, its opposite of Negative

  ZORI_INLINE Vec<T> operator()(Vec<T> a, Vec<T> b) const
  {
    if constexpr (path == Path::Zero) return zero<T>();
    else if constexpr (path == Path::Positive) return scaledDown<T>(Operation::exact(a, b), shift);
    else if constexpr (path == Path::One) return scaledDownOnce(Operation::exact(a, b));
    else if constexpr (path == Path::Plain) return Operation::saturated(a, b);
    else return saturatedShiftLeft(Operation::saturated(a, b), shift);
  }
};

// ---- Row kernels: an operation on a path, with two images or an image and a constant. ----

// Rows first, which then go in registers: from the stack they would be read at once, sooner than both parts are
// written.
template <class T>
using ImageKernel = void (*)(Rows<T> dst, Rows<const T> a, Rows<const T> b, std::ptrdiff_t length, int rows, int shift);
template <class T>
using ConstantKernel = void (*)(Rows<T> dst, Rows<const T> src, std::ptrdiff_t length, int rows, int shift,
                                const Pattern<T>& constant);

// What a kernel writes of a row: everything, or all but the fourth of four samples.
enum class Shape { Whole, KeepFourth, KeepFourthComplex };

// Three complex samples of each pixel of four, which has 8 parts: at(i, part) gives the vector from place i of the row
// on, which is that part of its pixel.
template <class T, class At> inline void mapThreeOfFour(T* dst, std::ptrdiff_t length, At at)
{
  for (std::ptrdiff_t i = 0; i < length; i += 8) {
    if constexpr (sizeof(T) == 2) {
      const Vec<T, 16> pixel = firstBytes<16>(at(i, 0));
      storeLow8(dst + i, pixel);
      storeLow4(dst + i + 4, bytesDown<8>(pixel));
    } else if constexpr (Vec<T>::size == 8) {
      const Vec<T> pixel = at(i, 0);
      storeLowHalf(dst + i, pixel);
      storeLow8(dst + i + 4, firstBytes<16>(bytesDown<16>(pixel)));
    } else {
      store(dst + i, at(i, 0));
      storeLow8(dst + i + 4, at(i + 4, 4));
    }
  }
}
// A pixel of such samples, or half of it where a vector has no room for more.
template <class T> inline Vec<T> loadOfFour(const T* p)
{
  if constexpr (8 * sizeof(T) < vectorBytes) return loadShort<T>(p, 8 * sizeof(T));
  else return load<T>(p);
}

template <Shape shape, class Op, class T>
void imageRows(Rows<T> dst, Rows<const T> a, Rows<const T> b, std::ptrdiff_t length, int rows, int shift)
{
  const Op op{shift};
  if constexpr (shape == Shape::Whole) mapRows(dst, length, rows, op, a, b);
  else if constexpr (shape == Shape::KeepFourth) mapRows(dst, length, rows, KeepFourth<Op>{op}, readOnly(dst), a, b);
  else
    for (int y = 0; y < rows; ++y)
      mapThreeOfFour(dst[y], length, [op, x = a[y], z = b[y]](std::ptrdiff_t i, int) {
        return op(loadOfFour(x + i), loadOfFour(z + i));
      });
}

// With one constant for all samples a row needs no pattern, and without a scale nothing but the constant: one vector,
// which is read as it is written.
template <class Op> struct WithConstant {
  Vec<typename Op::T> constant;
  ZORI_INLINE Vec<typename Op::T> operator()(Vec<typename Op::T> x) const { return Op{}(x, constant); }
};

template <Shape shape, class Op, class T>
void constantRows(Rows<T> dst, Rows<const T> src, std::ptrdiff_t length, int rows, int shift,
                  const Pattern<T>& constant)
{
  const Op op{shift};
  if constexpr (shape == Shape::Whole) {
    if (Op::isPlain && constant.period == 1)
      mapRows(dst, length, rows, WithConstant<Op>{splat(constant.values[0])}, src);
    else mapRowsWith(constant, dst, length, rows, op, src);
  } else if constexpr (shape == Shape::KeepFourth)
    mapRowsWith(constant, dst, length, rows, KeepFourth<Op>{op}, readOnly(dst), src);
  else {
    const Vec<T> first = constant.at(0), third = constant.at(4);
    for (int y = 0; y < rows; ++y)
      mapThreeOfFour(dst[y], length, [=, x = src[y]](std::ptrdiff_t i, int part) {
        return op(loadOfFour(x + i), part ? third : first);
      });
  }
}

} // namespace ZORI_WIDTH
} // namespace zori
