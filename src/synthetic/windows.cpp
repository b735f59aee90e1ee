// zoriWin{Bartlett,Hamming}_{8u,16u,32f}_{C1R,C1IR}, zoriWin{Bartlett,Hamming}Sep_{8u,16u,32f}_{C1R,C1IR}: an image
// times a taper, radial or separable. Both are symmetric: half a window is computed and mirrored.
//
//   Bartlett   w(i) = 1 - |2 i / (n - 1) - 1|             radial: 1 - (2 / W) r inside the ellipse, 0 outside
//   Hamming    w(i) = 0.54 - 0.46 cos(2 pi i / (n - 1))   radial: 0.54 - 0.46 cos((W / 2 - r) 2 pi / W), 0.08 outside
#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/memory.h"
#include "frame/numeric_mode.h"
#include "rowkernels/convert.h"
#include "zori/synthetic.h"

#include <cmath>

namespace zori {
namespace {

enum class Window { Bartlett, Hamming };

constexpr double twoPi = 6.283185307179586;

template <Window W> void fillWindow(Zor32f* w, int n)
{
  for (int i = 0; i <= (n - 1) / 2; ++i) {
    const double value = W == Window::Bartlett ? 2.0 * i / (n - 1) : 0.54 - 0.46 * std::cos(twoPi * i / (n - 1));
    w[i] = w[n - 1 - i] = static_cast<Zor32f>(value);
  }
}

// Row y of the radial window; y lies in the upper half.
template <Window W> void fillRadialRow(Zor32f* w, int y, ZorImgSize roi)
{
  const Zor32f halfWidth = static_cast<Zor32f>(roi.width) / 2, halfHeight = static_cast<Zor32f>(roi.height) / 2;
  const Zor32f aspect = static_cast<Zor32f>(roi.width) / static_cast<Zor32f>(roi.height);
  const Zor32f factor = static_cast<Zor32f>((W == Window::Bartlett ? 2.0 : twoPi) / roi.width);
  const Zor32f dy = halfHeight - static_cast<Zor32f>(y);
  const Zor32f yPart = dy * dy / (halfHeight * halfHeight), yDistance = aspect * aspect * (dy * dy);
  for (int x = 0; x <= (roi.width - 1) / 2; ++x) {
    const Zor32f dx = halfWidth - static_cast<Zor32f>(x);
    const bool inside = dx * dx / (halfWidth * halfWidth) + yPart < 1.0f;
    Zor32f value;
    if constexpr (W == Window::Bartlett) {
      value = inside ? 1.0f - factor * std::sqrt(dx * dx + yDistance) : 0.0f;
    } else {
      const Zor32f t = inside ? (halfWidth - std::sqrt(dx * dx + yDistance)) * factor : 0.0f;
      value = 0.54f - 0.46f * std::cos(t);
    }
    w[x] = w[roi.width - 1 - x] = value;
  }
}

// (src * row) * column; integers are rounded to nearest.
template <class T> struct Taper {
  Zor32f column;
  Group<T> operator()(const Group<T>& src, const Group<Zor32f>& row) const
  {
    Group<Zor32f> x;
    if constexpr (std::is_same_v<T, Zor32f>) x = src;
    else x = Converted<Zor32f>{}(src);
    for (int k = 0; k < x.parts; ++k) x.part[k] = x.part[k] * row.part[k] * splat(column);
    if constexpr (std::is_same_v<T, Zor32f>) return x;
    else return Rounded<T>{}(x);
  }
};

template <class T> ZorStatus windowChecks(const T* pSrc, int srcStep, const T* pDst, int dstStep, ZorImgSize roi)
{
  return firstFailure(nonNull(pSrc, pDst), require(roi.width >= 3 && roi.height >= 3, ZorErrSize),
                      positive(srcStep, dstStep));
}

template <Window W, class T> ZorStatus separable(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = windowChecks(pSrc, srcStep, pDst, dstStep, roiSize); s != ZorOk) return s;
  Scratch<Zor32f> windows(static_cast<long long>(roiSize.width) + roiSize.height);
  if (!windows) return ZorErrAlloc;
  Zor32f *const row = windows.get(), *const column = row + roiSize.width;
  underRounding(Rounding::Nearest, [=] {
    fillWindow<W>(row, roiSize.width);
    fillWindow<W>(column, roiSize.height);
    for (int y = 0; y < roiSize.height; ++y)
      mapGroups(rowAt(pDst, dstStep, y), roiSize.width, Taper<T>{column[y]}, rowAt(pSrc, srcStep, y),
                static_cast<const Zor32f*>(row));
  });
  return ZorOk;
}

template <Window W, class T> ZorStatus radial(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = windowChecks(pSrc, srcStep, pDst, dstStep, roiSize); s != ZorOk) return s;
  Scratch<Zor32f> row(roiSize.width);
  if (!row) return ZorErrAlloc;
  underRounding(Rounding::Nearest, [&] {
    for (int y = 0; y <= (roiSize.height - 1) / 2; ++y) {
      fillRadialRow<W>(row.get(), y, roiSize);
      const int mirrored = roiSize.height - 1 - y;
      for (int line = y;; line = mirrored) {
        mapGroups(rowAt(pDst, dstStep, line), roiSize.width, Taper<T>{1.0f}, rowAt(pSrc, srcStep, line),
                  static_cast<const Zor32f*>(row.get()));
        if (line == mirrored) break;
      }
    }
  });
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(name, function, window, type)                                                                            \
  ZorStatus zoriWin##name##_##type##_C1R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep, ZorImgSize roiSize)\
  { return function<Window::window>(pSrc, srcStep, pDst, dstStep, roiSize); }                                          \
  ZorStatus zoriWin##name##_##type##_C1IR(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize)                      \
  { return function<Window::window, Zor##type>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }
#define STAMPS(name, function, window) STAMP(name, function, window, 8u) STAMP(name, function, window, 16u) STAMP(name, function, window, 32f)
STAMPS(Bartlett, radial, Bartlett) STAMPS(Hamming, radial, Hamming)
STAMPS(BartlettSep, separable, Bartlett) STAMPS(HammingSep, separable, Hamming)
#undef STAMPS
#undef STAMP
