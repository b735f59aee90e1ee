// zoriDeinterlaceFilterCAVT_8u_C1R: rows of odd index lose what stands out from both neighbouring rows.
//
// With a above, c the sample and b below (b = a in a last row): c > max(a, b) + threshold or c < min(a, b) - threshold
// gives (a + b + 1) >> 1, anything else c.
#include "frame/checks.h"
#include "frame/layout.h"
#include "rowkernels/copy.h"
#include "rowkernels/drivers.h"
#include "zori/geometry.h"

#include <algorithm>

namespace zori {
namespace {

struct Conditional {
  Vec<Zor8u> threshold;
  Vec<Zor8u> operator()(Vec<Zor8u> a, Vec<Zor8u> c, Vec<Zor8u> b) const
  {
    const auto above = subSat(c, max(a, b)), below = subSat(min(a, b), c); // one of them is 0
    const auto isWithin = equal(subSat(above | below, threshold), zero<Zor8u>());
    return select(isWithin, c, average(a, b));
  }
};

// A negative threshold, -d: c stays where it lies between the neighbours, at least d away from both.
struct Between {
  Vec<Zor8u> d;
  Vec<Zor8u> operator()(Vec<Zor8u> a, Vec<Zor8u> c, Vec<Zor8u> b) const
  {
    const auto isAtLeast = [this](Vec<Zor8u> x) { return equal(max(x, d), x); };
    return select(isAtLeast(subSat(max(a, b), c)) & isAtLeast(subSat(c, min(a, b))), c, average(a, b));
  }
};

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriDeinterlaceFilterCAVT_8u_C1R(const Zor8u* pSrc, int srcStep, Zor8u* pDst, int dstStep, ZorImgSize roiSize,
                                           int threshold)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize)); s != ZorOk) return s;
  const Rows<const Zor8u> src{pSrc, srcStep};
  const Rows<Zor8u> dst{pDst, dstStep};
  const long long bytes = 1LL * roiSize.width * roiSize.height;
  for (int y = 0; y < roiSize.height; ++y) {
    if (y % 2 == 0 || threshold >= 255) {
      copyRow(src[y], dst[y], roiSize.width, bytes);
      continue;
    }
    const Zor8u *const above = src[y - 1], *const below = y + 1 < roiSize.height ? src[y + 1] : above;
    if (threshold >= 0)
      mapRow(dst[y], roiSize.width, Conditional{splat(static_cast<Zor8u>(threshold))}, above, src[y], below);
    else
      mapRow(dst[y], roiSize.width, Between{splat(static_cast<Zor8u>(-std::max(threshold, -255)))}, above, src[y],
             below);
  }
  return ZorOk;
}
