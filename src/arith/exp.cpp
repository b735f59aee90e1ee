// zoriExp_{8u,16u,16s}_{C1,C3}{R,IR}Sfs, zoriExp_32f_{C1,C3}{R,IR}: exponential.
//
// Integers: e^x * 2^-scaleFactor + 1/2, cut and saturated. That is a staircase with few steps: within the logarithm of
// twice the upper bound the result goes from 0 to the bound, at every scale. A call forms the steps; no exponential is
// computed for a sample.
#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "rowkernels/exp_log.h"
#include "walk/map.h"
#include "zori/arith.h"

#include <cmath>
#include <limits>

namespace zori {
namespace {

// e^x * 2^-scale, for a result of moderate size, whatever the size of x and scale. The exponent of two x * log2(e) -
// scale is formed with log2(e) in two parts, so that products with the first are exact.
Zor64f scaledExp(int x, int scale)
{
  constexpr Zor64f log2eHigh = 0x1.71547652p0, log2eLow = 0x1.705fc2eefa2p-33;
  return std::exp2(x * log2eHigh - scale + x * log2eLow);
}

template <class T> struct ExpStaircase {
  static constexpr bool isLong = true;
  using Lane = std::make_signed_t<T>;
  static constexpr int least = std::numeric_limits<T>::min(), greatest = std::numeric_limits<T>::max();
  static constexpr int steps = sizeof(T) == 1 ? 8 : 13;

  struct Step {
    Vec<Lane> from, rise; // the result rises for samples above `from`
  };
  Step step[steps];
  Vec<Lane> bottom; // the result for the least sample

  explicit ExpStaircase(int scaleFactor)
  {
    // all samples are below or above the whole staircase at the scales beyond
    const int scale = scaleFactor < -100000 ? -100000 : scaleFactor > 100000 ? 100000 : scaleFactor;
    const int first = static_cast<int>(std::ceil((scale - 1) * 0.6931471805599453)); // the result rises from 0
    int level = 0, atBottom = 0;
    for (int i = 0; i < steps; ++i) {
      const int x = first + i, above = result(x, scale), rise = above - level;
      level = above;
      if (x <= least) atBottom = level;
      const bool reached = x > least && x <= greatest;
      step[i] = {lanes(reached ? x - 1 : greatest), splat(static_cast<Lane>(reached ? rise : 0))};
    }
    bottom = splat(static_cast<Lane>(atBottom));
  }

  Vec<T> operator()(Vec<T> v) const
  {
    const Vec<Lane> x = as<Lane>(isSigned<T> ? v : v ^ topBits<T>());
    Vec<Lane> y = bottom;
    for (const Step& s : step) y += greater(x, s.from) & s.rise;
    return as<T>(y);
  }

private:
  static int result(int x, int scale)
  {
    const Zor64f y = scaledExp(x, scale) + 0.5;
    return y >= greatest ? greatest : static_cast<int>(y);
  }
  // Samples in the order of signed lanes.
  static Vec<Lane> lanes(int x) { return splat(static_cast<Lane>(isSigned<T> ? x : x - greatest / 2 - 1)); }
};

struct FloatExp {
  Group<Zor32f> operator()(const Group<Zor32f>& x) const { return exponential(x); }
};

template <class T, Layout L>
ZorStatus expRegion(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, int scaleFactor = 0)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk) return s;
  const Rows<T> dst{pDst, dstStep};
  const Rows<const T> src{pSrc, srcStep};
  return underRounding(Rounding::Nearest, [&] {
    if constexpr (isInt<T>) mapRegion<L>(roiSize, ExpStaircase<T>(scaleFactor), dst, src);
    else mapRegionOfGroups<L>(roiSize, FloatExp{}, dst, src);
    return ZorOk;
  });
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout)                                                                                          \
  ZorStatus zoriExp_##type##_##layout##RSfs(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,        \
                                            ZorImgSize roiSize, int scaleFactor)                                     \
  { return expRegion<Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize, scaleFactor); }                       \
  ZorStatus zoriExp_##type##_##layout##IRSfs(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize, int scaleFactor) \
  { return expRegion<Zor##type, layout>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, scaleFactor); }
STAMP(8u, C1) STAMP(8u, C3) STAMP(16u, C1) STAMP(16u, C3) STAMP(16s, C1) STAMP(16s, C3)
#undef STAMP

#define STAMP(layout)                                                                                                \
  ZorStatus zoriExp_32f_##layout##R(const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep, ZorImgSize roiSize)  \
  { return expRegion<Zor32f, layout>(pSrc, srcStep, pDst, dstStep, roiSize); }                                       \
  ZorStatus zoriExp_32f_##layout##IR(Zor32f* pSrcDst, int srcDstStep, ZorImgSize roiSize)                            \
  { return expRegion<Zor32f, layout>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }
STAMP(C1) STAMP(C3)
#undef STAMP
