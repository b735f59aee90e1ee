// zoriPackToCplxExtend_{32f32fc,32s32sc}_C1R, zoriCplxExtendToPack_{32fc32f,16sc16s,32sc32s}_{C1,C3}R: between the
// packed spectrum of a real image and the whole complex one.
#include "frame/checks.h"
#include "packed.h"
#include "zori/spectral.h"

namespace zori {
namespace {

template <class T, class C> ZorStatus extend(const T* pSrc, ZorImgSize roiSize, int srcStep, C* pDst, int dstStep)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk) return s;
  const Packed<T, 1> spectrum{{pSrc, srcStep}, roiSize};
  for (int y = 0; y < roiSize.height; ++y) spectrum.unfoldRow(y, rowAt(pDst, dstStep, y));
  return ZorOk;
}

// Column u of the whole spectrum, which is that of real values, to the real column it has in the packed one.
template <int n, class T, class C>
void packRealColumn(Rows<const C> src, Rows<T> dst, std::ptrdiff_t u, std::ptrdiff_t column, std::ptrdiff_t height)
{
  for (int c = 0; c < n; ++c) {
    const auto from = [&](std::ptrdiff_t v) { return get<C>(src[v] + u * n + c); };
    const auto to = [&](std::ptrdiff_t y, T x) { put(dst[y] + column * n + c, x); };
    to(0, from(0).re);
    for (std::ptrdiff_t v = 1; 2 * v < height; ++v) {
      to(2 * v - 1, from(v).re);
      to(2 * v, from(v).im);
    }
    if (height % 2 == 0) to(height - 1, from(height / 2).re);
  }
}

template <Layout L, class C, class T>
ZorStatus pack(const C* pSrc, int srcStep, ZorImgSize roiSize, T* pDst, int dstStep)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk) return s;
  constexpr int n = channels<L>;
  const std::ptrdiff_t width = roiSize.width, height = roiSize.height;
  const Rows src{pSrc, srcStep};
  const Rows dst{pDst, dstStep};
  packRealColumn<n>(src, dst, 0, 0, height);
  if (width % 2 == 0) packRealColumn<n>(src, dst, width / 2, width - 1, height);
  for (std::ptrdiff_t y = 0; y < height; ++y)
    for (std::ptrdiff_t k = 1; 2 * k < width; ++k)
      for (int c = 0; c < n; ++c) {
        const C x = get<C>(src[y] + k * n + c);
        T* const p = dst[y] + (2 * k - 1) * n + c;
        put(p, x.re);
        put(p + n, x.im);
      }
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(from, to)                                                                                             \
  ZorStatus zoriPackToCplxExtend_##from##to##_C1R(const Zor##from* pSrc, ZorImgSize roiSize, int srcStep,            \
                                                  Zor##to* pDst, int dstStep)                                       \
  { return extend(pSrc, roiSize, srcStep, pDst, dstStep); }
STAMP(32f, 32fc) STAMP(32s, 32sc)
#undef STAMP

#define STAMP(from, to, layout)                                                                                     \
  ZorStatus zoriCplxExtendToPack_##from##to##_##layout##R(const Zor##from* pSrc, int srcStep, ZorImgSize roiSize,    \
                                                          Zor##to* pDst, int dstStep)                               \
  { return pack<layout>(pSrc, srcStep, roiSize, pDst, dstStep); }
STAMP(32fc, 32f, C1) STAMP(32fc, 32f, C3) STAMP(16sc, 16s, C1) STAMP(16sc, 16s, C3)
STAMP(32sc, 32s, C1) STAMP(32sc, 32s, C3)
#undef STAMP
