// zoriMulPack_{16s,32s}_{C1,C3,C4,AC4}{R,IR}Sfs: products of packed spectra.
//
// 16s: exact, then shifted right arithmetically, or saturated and shifted left; saturated. 32s: exact, times
// 2^-scaleFactor to nearest with ties to even, saturated.
#include "packed_product.h"
#include "rowkernels/scaled.h"
#include "zori/spectral.h"

#include <limits>

namespace zori {
namespace {

// ---- Products of cells ----

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

// A product with the pairs within rows.
template <class Cell> struct IntegerProducts : Cell {
  template <Layout L, class T>
  [[gnu::noinline]] void pairs(const ProductRows<T>& x, int rows, std::ptrdiff_t width) const
  {
    constexpr int n = channels<L>;
    const Cell cell = *this;
    for (int y = 0; y < rows; ++y) {
      const T *const a = x.a[y], *const b = x.b[y];
      T* const dst = x.dst[y];
      for (std::ptrdiff_t column = 1; column + 1 < width; column += 2)
        for (int c = 0; c < processed<L>; ++c) {
          const std::ptrdiff_t re = column * n + c, im = re + n;
          const auto r =
            cell.complex(Complex<T>{get<T>(a + re), get<T>(a + im)}, Complex<T>{get<T>(b + re), get<T>(b + im)});
          put(dst + re, r.re);
          put(dst + im, r.im);
        }
    }
  }
};

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, product, layout)                                                                                \
  ZorStatus zoriMulPack_##type##_##layout##RSfs(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2,        \
                                                int src2Step, Zor##type* pDst, int dstStep, ZorImgSize roiSize,     \
                                                int scaleFactor)                                                    \
  { return multiplyPacked<layout>(IntegerProducts<product>{{scaleFactor}}, pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize); } \
  ZorStatus zoriMulPack_##type##_##layout##IRSfs(const Zor##type* pSrc, int srcStep, Zor##type* pSrcDst,             \
                                                 int srcDstStep, ZorImgSize roiSize, int scaleFactor)               \
  { return multiplyPacked<layout>(IntegerProducts<product>{{scaleFactor}}, pSrc, srcStep, pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }
STAMP(16s, WordProduct, C1) STAMP(16s, WordProduct, C3) STAMP(16s, WordProduct, C4) STAMP(16s, WordProduct, AC4)
STAMP(32s, IntegerProduct, C1) STAMP(32s, IntegerProduct, C3) STAMP(32s, IntegerProduct, C4) STAMP(32s, IntegerProduct, AC4)
#undef STAMP
