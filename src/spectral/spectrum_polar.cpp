// zori{Magnitude,Phase}_32fc32f_{C1,C3}R, zori{Magnitude,Phase}_{16sc16s,16uc16u,32sc32s}_{C1,C3}RSfs,
// zori{MagnitudePack,PhasePack}_32f_{C1,C3}R, zori{MagnitudePack,PhasePack}_{16s,32s}_{C1,C3}RSfs,
// zoriPolarToCart_{16sc,32sc,32fc}_{C1,C3}R, zoriPolarToCart_32f32fc_P2C1R: magnitude and phase, pixel by pixel, and of
// the whole spectrum that a packed one stands for, row by row.
#include "frame/checks.h"
#include "frame/memory.h"
#include "frame/numeric_mode.h"
#include "packed.h"
#include "polar.h"
#include "zori/spectral.h"

namespace zori {
namespace {

// The float and the integer kernel of one quantity.
struct Magnitude {
  template <int Bytes> using OfFloats = MagnitudeOf<Bytes>;
  template <class C, class T> static void ofIntegers(const C* src, T* dst, std::ptrdiff_t length, double scale)
  {
    magnitudeRowOfIntegers(src, dst, length, scale);
  }
};
struct Phase {
  template <int Bytes> using OfFloats = PhaseOf<Bytes>;
  template <class C, class T> static void ofIntegers(const C* src, T* dst, std::ptrdiff_t length, double scale)
  {
    phaseRowOfIntegers(src, dst, length, scale);
  }
};

template <class What, class C, class T>
void quantityRow(const C* src, T* dst, std::ptrdiff_t length, [[maybe_unused]] double scale)
{
  if constexpr (std::is_same_v<T, Zor32f>) polarRow<What::template OfFloats>(src, dst, length);
  else What::ofIntegers(src, dst, length, scale);
}

template <class What, Layout L, class C, class T>
ZorStatus quantity(const C* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, int scaleFactor)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk) return s;
  const RoundingScope rounding(Rounding::Nearest);
  const double scale = scaleOf(scaleFactor);
  for (int y = 0; y < roiSize.height; ++y)
    quantityRow<What>(rowAt(pSrc, srcStep, y), rowAt(pDst, dstStep, y),
                      static_cast<std::ptrdiff_t>(roiSize.width) * channels<L>, scale);
  return ZorOk;
}

template <class What, Layout L, class T>
ZorStatus quantityOfPacked(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, int scaleFactor)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk) return s;
  const std::ptrdiff_t length = static_cast<std::ptrdiff_t>(roiSize.width) * channels<L>;
  Scratch<ComplexT<T>> rows(2 * length); // the next row is unfolded first, since what was just written is slow to read
  if (!rows) return ZorErrNullPtr;       // the status of these functions
  const RoundingScope rounding(Rounding::Nearest);
  const double scale = scaleOf(scaleFactor);
  const Packed<T, channels<L>> spectrum{{pSrc, srcStep}, roiSize};
  ComplexT<T>*row = rows.get(), *next = row + length;
  spectrum.unfoldRow(0, row);
  for (int y = 0; y < roiSize.height; ++y, std::swap(row, next)) {
    if (y + 1 < roiSize.height) spectrum.unfoldRow(y + 1, next);
    quantityRow<What>(static_cast<const ComplexT<T>*>(row), rowAt(pDst, dstStep, y), length, scale);
  }
  return ZorOk;
}

// Magnitude and phase `apart` elements from one to the next: planes, or parts of one pixel.
template <class T, class C>
void polarRows(Rows<const T> magnitude, Rows<const T> phase, int apart, Rows<C> dst, std::ptrdiff_t length, int height)
{
  const RoundingScope rounding(Rounding::Nearest);
  for (int y = 0; y < height; ++y) cartesianRow(magnitude[y], phase[y], apart, dst[y], length);
}

template <Layout L, class C> ZorStatus polarToCart(const C* pSrc, int srcStep, C* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk) return s;
  using T = decltype(C::re);
  const T* const parts = reinterpret_cast<const T*>(pSrc);
  polarRows(Rows{parts, srcStep}, Rows{parts + 1, srcStep}, 2, Rows{pDst, dstStep},
            static_cast<std::ptrdiff_t>(roiSize.width) * channels<L>, roiSize.height);
  return ZorOk;
}

ZorStatus polarPlanesToCart(const Zor32f* const pSrc[2], int srcStep, Zor32fc* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNullPlanes<2>(pSrc), nonNull(pDst), nonEmpty(roiSize), positive(srcStep, dstStep));
      s != ZorOk)
    return s;
  polarRows(Rows{pSrc[0], srcStep}, Rows{pSrc[1], srcStep}, 1, Rows{pDst, dstStep}, roiSize.width, roiSize.height);
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(what, layout)                                                                                         \
  ZorStatus zori##what##_32fc32f_##layout##R(const Zor32fc* pSrc, int srcStep, Zor32f* pDst, int dstStep,            \
                                             ZorImgSize roiSize)                                                    \
  { return quantity<what, layout>(pSrc, srcStep, pDst, dstStep, roiSize, 0); }                                      \
  ZorStatus zori##what##Pack_32f_##layout##R(const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep,             \
                                             ZorImgSize roiSize)                                                    \
  { return quantityOfPacked<what, layout>(pSrc, srcStep, pDst, dstStep, roiSize, 0); }
STAMP(Magnitude, C1) STAMP(Magnitude, C3) STAMP(Phase, C1) STAMP(Phase, C3)
#undef STAMP

#define STAMP(what, from, to, layout)                                                                               \
  ZorStatus zori##what##_##from##to##_##layout##RSfs(const Zor##from* pSrc, int srcStep, Zor##to* pDst, int dstStep, \
                                                     ZorImgSize roiSize, int scaleFactor)                           \
  { return quantity<what, layout>(pSrc, srcStep, pDst, dstStep, roiSize, scaleFactor); }
#define STAMPS(what)                                                                                                \
  STAMP(what, 16sc, 16s, C1) STAMP(what, 16sc, 16s, C3) STAMP(what, 16uc, 16u, C1) STAMP(what, 16uc, 16u, C3)       \
  STAMP(what, 32sc, 32s, C1) STAMP(what, 32sc, 32s, C3)
STAMPS(Magnitude) STAMPS(Phase)
#undef STAMPS
#undef STAMP

#define STAMP(what, type, layout)                                                                                   \
  ZorStatus zori##what##Pack_##type##_##layout##RSfs(const Zor##type* pSrc, int srcStep, Zor##type* pDst,            \
                                                     int dstStep, ZorImgSize roiSize, int scaleFactor)              \
  { return quantityOfPacked<what, layout>(pSrc, srcStep, pDst, dstStep, roiSize, scaleFactor); }
STAMP(Magnitude, 16s, C1) STAMP(Magnitude, 16s, C3) STAMP(Magnitude, 32s, C1) STAMP(Magnitude, 32s, C3)
STAMP(Phase, 16s, C1) STAMP(Phase, 16s, C3) STAMP(Phase, 32s, C1) STAMP(Phase, 32s, C3)
#undef STAMP

#define STAMP(type, layout)                                                                                         \
  ZorStatus zoriPolarToCart_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,   \
                                                 ZorImgSize roiSize)                                                \
  { return polarToCart<layout>(pSrc, srcStep, pDst, dstStep, roiSize); }
STAMP(16sc, C1) STAMP(16sc, C3) STAMP(32sc, C1) STAMP(32sc, C3) STAMP(32fc, C1) STAMP(32fc, C3)
#undef STAMP
  // clang-format on

  ZorStatus zoriPolarToCart_32f32fc_P2C1R(const Zor32f* const pSrc[2], int srcStep, Zor32fc* pDst, int dstStep,
                                          ZorImgSize roiSize)
{
  return polarPlanesToCart(pSrc, srcStep, pDst, dstStep, roiSize);
}
