// zori{MulPack,MulPackConj}_32f_{C1,C3,C4,AC4}{R,IR}: products of packed spectra, in single precision.
#include "image_rows.h"
#include "packed_product.h"
#include "rowkernels/drivers.h"
#include "zori/spectral.h"

namespace zori {
namespace {

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

  template <Layout L> void pairs(const ProductRows<Zor32f>& x, int rows, std::ptrdiff_t width) const
  {
    const std::ptrdiff_t both = (width - 1) / 2 * 2;
    if (both == 0) return;
    if constexpr (L == C1) {
      const auto behindFirst = [](auto image) { return Rows{image.first + 1, image.step}; };
      mapRows(behindFirst(x.dst), both, rows, OnPairs{}, behindFirst(x.a), behindFirst(x.b));
    } else {
      for (int y = 0; y < rows; ++y) pixelPairs<L>(x.a[y], x.b[y], x.dst[y], both, width);
    }
  }

private:
  template <Layout L>
  [[gnu::noinline]] static void pixelPairs(const Zor32f* a, const Zor32f* b, Zor32f* dst, std::ptrdiff_t both,
                                           std::ptrdiff_t width)
  {
    for (std::ptrdiff_t x = 1; x <= both; x += 2) {
      const Complex<F32x4> p = {loadPixel<L>(a, x, width), loadPixel<L>(a, x + 1, width)};
      const Complex<F32x4> q = {loadPixel<L>(b, x, width), loadPixel<L>(b, x + 1, width)};
      const Complex<F32x4> r = product(p, q);
      storePixel<L>(dst, x, r.re);
      storePixel<L>(dst, x + 1, r.im);
    }
  }
};

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
