// zoriComplement_32s_C1IR: two's complement to sign and magnitude, |x| with the sign bit of x. -2^31 keeps its bits.
#include "frame/checks.h"
#include "walk/map.h"
#include "zori/arith.h"

namespace zori {
namespace {

struct SignAndMagnitude {
  Vec<Zor32s> operator()(Vec<Zor32s> x) const
  {
    const Vec<Zor32s> negative = signs(x);
    return ((x ^ negative) - negative) | (x & topBits<Zor32s>());
  }
};

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriComplement_32s_C1IR(Zor32s* pSrcDst, int srcDstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrcDst), positive(srcDstStep), nonEmpty(roiSize)); s != ZorOk) return s;
  const Rows<const Zor32s> src{pSrcDst, srcDstStep};
  mapRegion<C1>(roiSize, SignAndMagnitude{}, Rows{pSrcDst, srcDstStep}, src);
  return ZorOk;
}
