// zori{MulPack,MulPackConj}_32f_{C1,C3,C4,AC4}{R,IR}, zoriMulPack_{16s,32s}_{C1,C3,C4,AC4}{R,IR}Sfs: products of packed
// spectra.
//
// Rows 0 and, for even H, H-1 hold a real number in column 0 and, for even W, in column W-1. In between rows go in
// pairs whose cells of these columns are the two parts of one number. All other cells are pairs within a row.
//
// 32f: in single precision. 16s: exact, then shifted right arithmetically, or saturated and shifted left; saturated.
// 32s: exact, times 2^-scaleFactor to nearest with ties to even, saturated.
#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "image_rows.h"
#include "packed.h"
#include "rowkernels/scaled.h"
#include "zori/spectral.h"

#include <algorithm>
#include <limits>

namespace zori {
namespace {

// ---- Products of cells ----

template <bool conjugates> struct FloatProduct {
  using Element = Zor32f;

  Zor32f real(Zor32f a, Zor32f b) const { return a * b; }
  Complex<Zor32f> complex(Complex<Zor32f> a, Complex<Zor32f> b) const { return product(a, b); }
  template <class V> static Complex<V> product(Complex<V> a, Complex<V> b)
  {
    if constexpr (conjugates) return {a.re * b.re + a.im * b.im, a.im * b.re - a.re * b.im};
    else return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
  }
  // Neighbouring values as pairs.
  struct OnPairs {
    static constexpr int period = 2;
    Vec<Zor32f> operator()(Vec<Zor32f> a, Vec<Zor32f> b) const
    {
      constexpr std::uint64_t sign = 0x80000000u;
      const Vec<Zor32f> re = shuffleLocal<2, 2, 0, 0>(b, b), im = shuffleLocal<3, 3, 1, 1>(b, b),
                        swapped = shuffleLocal<2, 3, 0, 1>(a, a);
      return a * re + ((swapped * im) ^ as<float>(splat(conjugates ? sign << 32 : sign)));
    }
  };
};

template <class T> inline T saturated(std::int64_t x)
{
  return static_cast<T>(std::clamp<std::int64_t>(x, std::numeric_limits<T>::min(), std::numeric_limits<T>::max()));
}

// The exact parts of an integer product. One sum does not fit: that of four least factors, which becomes the greatest
// number and so ends at the same bound at every scale.
template <class T> inline Complex<std::int64_t> exactProduct(Complex<T> a, Complex<T> b)
{
  const auto product = [](std::int64_t x, std::int64_t y) { return x * y; };
  const std::int64_t first = product(a.re, b.im), second = product(a.im, b.re);
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
  return {product(a.re, b.re) - product(a.im, b.im), first > 0 && second > most - first ? most : first + second};
}

struct WordProduct {
  using Element = Zor16s;
  int scaleFactor;

  Zor16s scaled(std::int64_t x) const
  {
    if (scaleFactor >= 0) return saturated<Zor16s>(x >> std::min(scaleFactor, 31));
    return saturated<Zor16s>(std::int64_t{saturated<Zor16s>(x)} *
                             (std::int64_t{1} << std::min(-(scaleFactor + 1), 30) << 1));
  }
  Zor16s real(Zor16s a, Zor16s b) const { return scaled(std::int64_t{a} * b); }
  Complex<Zor16s> complex(Complex<Zor16s> a, Complex<Zor16s> b) const
  {
    const auto x = exactProduct(a, b);
    return {scaled(x.re), scaled(x.im)};
  }
};

struct IntegerProduct {
  using Element = Zor32s;
  int scaleFactor;

  Zor32s scaled(std::int64_t x) const
  {
    if (scaleFactor <= 0)
      return saturated<Zor32s>(std::int64_t{saturated<Zor32s>(x)} *
                               (std::int64_t{1} << std::min(-std::max(scaleFactor, -31), 31)));
    if (scaleFactor > 63) return 0; // at most a half
    const std::uint64_t unit = std::uint64_t{1} << scaleFactor, half = unit / 2;
    const std::int64_t quotient = scaleFactor == 63 ? (x < 0 ? -1 : 0) : x >> scaleFactor;
    const std::uint64_t rest = static_cast<std::uint64_t>(x) & (unit - 1);
    return saturated<Zor32s>(quotient + (rest > half || (rest == half && quotient % 2 != 0)));
  }
  Zor32s real(Zor32s a, Zor32s b) const { return scaled(std::int64_t{a} * b); }
  Complex<Zor32s> complex(Complex<Zor32s> a, Complex<Zor32s> b) const
  {
    const auto x = exactProduct(a, b);
    return {scaled(x.re), scaled(x.im)};
  }
};

// ---- Rows ----

template <class T> struct Operands {
  Rows<const T> a, b;
  Rows<T> dst;
};

// The pairs of one row: columns 2k - 1 and 2k.
template <Layout L, class Op, class T>
[[gnu::noinline]] void multiplyPairs(Op op, const T* a, const T* b, T* dst, std::ptrdiff_t width)
{
  constexpr int n = channels<L>;
  const std::ptrdiff_t pairs = (width - 1) / 2;
  if constexpr (std::is_same_v<T, Zor32f> && L == C1) {
    if (pairs) mapRow(dst + 1, 2 * pairs, typename Op::OnPairs{}, a + 1, b + 1);
  } else if constexpr (std::is_same_v<T, Zor32f>) {
    for (std::ptrdiff_t x = 1; x <= 2 * pairs; x += 2) {
      const Complex<F32x4> p = {loadPixel<L>(a, x, width), loadPixel<L>(a, x + 1, width)};
      const Complex<F32x4> q = {loadPixel<L>(b, x, width), loadPixel<L>(b, x + 1, width)};
      const Complex<F32x4> r = Op::product(p, q);
      storePixel<L>(dst, x, r.re);
      storePixel<L>(dst, x + 1, r.im);
    }
  } else {
    for (std::ptrdiff_t x = 1; x <= 2 * pairs; x += 2)
      for (int c = 0; c < processed<L>; ++c) {
        const std::ptrdiff_t re = x * n + c, im = re + n;
        const auto r =
          op.complex(Complex<T>{get<T>(a + re), get<T>(a + im)}, Complex<T>{get<T>(b + re), get<T>(b + im)});
        put(dst + re, r.re);
        put(dst + im, r.im);
      }
  }
}

// Column `column` of row y as a real number, or of rows y and y + 1 as a complex one.
template <Layout L, class Op, class T>
[[gnu::noinline]] void multiplyEdge(Op op, const Operands<T>& x, std::ptrdiff_t column, std::ptrdiff_t y, bool isReal)
{
  for (int c = 0; c < processed<L>; ++c) {
    const std::ptrdiff_t at = column * channels<L> + c;
    const auto both = [&](auto rows) {
      return Complex<T>{get<T>(rows[y] + at), isReal ? T(0) : get<T>(rows[y + 1] + at)};
    };
    const Complex<T> a = both(x.a), b = both(x.b);
    if (isReal) {
      put(x.dst[y] + at, op.real(a.re, b.re));
    } else {
      const auto r = op.complex(a, b);
      put(x.dst[y] + at, r.re);
      put(x.dst[y + 1] + at, r.im);
    }
  }
}

template <Layout L, class Op, class T = typename Op::Element>
ZorStatus multiplyPacked(Op op, const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                         ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pDst), positive(src1Step, src2Step, dstStep), nonEmpty(roiSize));
      s != ZorOk)
    return s;
  const RoundingScope rounding(Rounding::Nearest);
  const Operands<T> x{{pSrc1, src1Step}, {pSrc2, src2Step}, {pDst, dstStep}};
  const std::ptrdiff_t width = roiSize.width, height = roiSize.height;
  for (std::ptrdiff_t y = 0; y < height;) {
    const bool isReal = y == 0 || (height % 2 == 0 && y == height - 1);
    multiplyEdge<L>(op, x, 0, y, isReal);
    if (width % 2 == 0) multiplyEdge<L>(op, x, width - 1, y, isReal);
    for (const std::ptrdiff_t end = y + (isReal ? 1 : 2); y < end; ++y)
      multiplyPairs<L>(op, x.a[y], x.b[y], x.dst[y], width);
  }
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(name, conjugates, layout)                                                                             \
  ZorStatus zori##name##_32f_##layout##R(const Zor32f* pSrc1, int src1Step, const Zor32f* pSrc2, int src2Step,       \
                                         Zor32f* pDst, int dstStep, ZorImgSize roiSize)                             \
  { return multiplyPacked<layout>(FloatProduct<conjugates>{}, pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize); } \
  ZorStatus zori##name##_32f_##layout##IR(const Zor32f* pSrc, int srcStep, Zor32f* pSrcDst, int srcDstStep,          \
                                          ZorImgSize roiSize)                                                       \
  { return multiplyPacked<layout>(FloatProduct<conjugates>{}, pSrc, srcStep, pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }
STAMP(MulPack, false, C1) STAMP(MulPack, false, C3) STAMP(MulPack, false, C4) STAMP(MulPack, false, AC4)
STAMP(MulPackConj, true, C1) STAMP(MulPackConj, true, C3) STAMP(MulPackConj, true, C4) STAMP(MulPackConj, true, AC4)
#undef STAMP

#define STAMP(type, product, layout)                                                                                \
  ZorStatus zoriMulPack_##type##_##layout##RSfs(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2,        \
                                                int src2Step, Zor##type* pDst, int dstStep, ZorImgSize roiSize,     \
                                                int scaleFactor)                                                    \
  { return multiplyPacked<layout>(product{scaleFactor}, pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize); } \
  ZorStatus zoriMulPack_##type##_##layout##IRSfs(const Zor##type* pSrc, int srcStep, Zor##type* pSrcDst,             \
                                                 int srcDstStep, ZorImgSize roiSize, int scaleFactor)               \
  { return multiplyPacked<layout>(product{scaleFactor}, pSrc, srcStep, pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }
STAMP(16s, WordProduct, C1) STAMP(16s, WordProduct, C3) STAMP(16s, WordProduct, C4) STAMP(16s, WordProduct, AC4)
STAMP(32s, IntegerProduct, C1) STAMP(32s, IntegerProduct, C3) STAMP(32s, IntegerProduct, C4) STAMP(32s, IntegerProduct, AC4)
#undef STAMP
