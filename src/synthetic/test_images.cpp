// zoriImageJaehne_{8u,8s,16u,16s,32s,32f}_{C1,C3,C4,AC4}R, zoriImageRamp_{8u,8s,16u,16s,32s,32f}_{C1,C3,C4,AC4}R:
// the radial test pattern and linear ramps.
#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/numeric_mode.h"
#include "rowkernels/simd.h"
#include "zori/synthetic.h"

#include <cmath>
#include <limits>

namespace zori {
namespace {

// The sample in every processed channel of pixel x.
template <Layout L, class T> inline void putPixel(T* row, int x, T sample)
{
  for (int k = 0; k < processed<L>; ++k) put(row + static_cast<std::ptrdiff_t>(x) * channels<L> + k, sample);
}

template <Layout L, class T> void copyPixels(const T* from, T* to, int width)
{
  for (int x = 0; x < width; ++x)
    for (int k = 0; k < processed<L>; ++k) {
      const std::ptrdiff_t i = static_cast<std::ptrdiff_t>(x) * channels<L> + k;
      put(to + i, get<T>(from + i));
    }
}

// ---- The radial pattern: sin(t), t = 2 pi r^2 / (4 height) ----

template <class T> T jaehneSample(double v)
{
  if constexpr (std::is_same_v<T, Zor32f>) return static_cast<Zor32f>((v + 1.0) * 0.49999);
  else if constexpr (std::is_unsigned_v<T>)
    return static_cast<T>((v + 1.0) * (sizeof(T) == 1 ? 127.99999 : 32767.99999));
  else return static_cast<T>(v * (static_cast<double>(std::numeric_limits<T>::max()) + 0.99999));
}

template <class T, Layout L> void drawJaehne(T* pDst, int dstStep, ZorImgSize roiSize)
{
  const int width = roiSize.width, height = roiSize.height;
  const double x0 = (width - 1) * 0.5, y0 = (height - 1) * 0.5, divisor = 4.0 * height;
  // distances are exact and the pattern symmetric: a quarter is computed, the rest mirrored
  for (int y = 0; y <= (height - 1) / 2; ++y) {
    T* row = rowAt(pDst, dstStep, y);
    const double dy = y - y0;
    for (int x = 0; x <= (width - 1) / 2; ++x) {
      const double dx = x - x0;
      const T sample = jaehneSample<T>(std::sin(6.283185307179586 * (dx * dx + dy * dy) / divisor));
      putPixel<L>(row, x, sample);
      putPixel<L>(row, width - 1 - x, sample);
    }
    if (y != height - 1 - y) copyPixels<L>(row, rowAt(pDst, dstStep, height - 1 - y), width);
  }
}

template <class T, Layout L> ZorStatus imageJaehne(T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pDst), positive(dstStep), nonEmpty(roiSize)); s != ZorOk) return s;
  underRounding(Rounding::Nearest, [=] { drawJaehne<T, L>(pDst, dstStep, roiSize); });
  return ZorOk;
}

// ---- Ramps ----

// To the nearest integer, halves away from zero, within the bounds of the type. 32s is computed in double, which holds
// it.
template <class T> T rampSample(Zor32f v)
{
  if constexpr (std::is_same_v<T, Zor32f>) return v;
  else {
    using F = std::conditional_t<sizeof(T) == 4, double, float>;
    constexpr F greatest = static_cast<F>(std::numeric_limits<T>::max()),
                least = static_cast<F>(std::numeric_limits<T>::min());
    const F x = v, half = F(0.5);
    if (x >= greatest - half) return std::numeric_limits<T>::max();
    if (!(x > least)) return std::numeric_limits<T>::min(); // a NaN too
    return static_cast<T>(x < 0 ? x - half : x + half);
  }
}

template <class T, Layout L>
void drawRamp(T* pDst, int dstStep, ZorImgSize roiSize, Zor32f offset, Zor32f slope, ZorRampAxis axis)
{
  for (int y = 0; y < roiSize.height; ++y) {
    T* row = rowAt(pDst, dstStep, y);
    if (static_cast<int>(axis) == ZorRampAlongX && y > 0) {
      copyPixels<L>(static_cast<const T*>(pDst), row, roiSize.width);
      continue;
    }
    for (int x = 0; x < roiSize.width; ++x) {
      const Zor32f position = static_cast<int>(axis) == ZorRampAlongX ? static_cast<Zor32f>(x)
                              : static_cast<int>(axis) == ZorRampAlongY
                                ? static_cast<Zor32f>(y)
                                : static_cast<Zor32f>(static_cast<double>(x) * y);
      putPixel<L>(row, x, rampSample<T>(position * slope + offset));
    }
  }
}

template <class T, Layout L>
ZorStatus imageRamp(T* pDst, int dstStep, ZorImgSize roiSize, Zor32f offset, Zor32f slope, ZorRampAxis axis)
{
  if (auto s = firstFailure(nonNull(pDst), positive(dstStep), nonEmpty(roiSize)); s != ZorOk) return s;
  underRounding(Rounding::Nearest, [=] { drawRamp<T, L>(pDst, dstStep, roiSize, offset, slope, axis); });
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout)                                                                                     \
  ZorStatus zoriImageJaehne_##type##_##layout##R(Zor##type* pDst, int dstStep, ZorImgSize roiSize)              \
  { return imageJaehne<Zor##type, layout>(pDst, dstStep, roiSize); }                                            \
  ZorStatus zoriImageRamp_##type##_##layout##R(Zor##type* pDst, int dstStep, ZorImgSize roiSize, Zor32f offset, \
                                               Zor32f slope, ZorRampAxis axis)                                  \
  { return imageRamp<Zor##type, layout>(pDst, dstStep, roiSize, offset, slope, axis); }
#define STAMPS(type) STAMP(type, C1) STAMP(type, C3) STAMP(type, C4) STAMP(type, AC4)
STAMPS(8u) STAMPS(8s) STAMPS(16u) STAMPS(16s) STAMPS(32s) STAMPS(32f)
#undef STAMPS
#undef STAMP
