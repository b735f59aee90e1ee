// zori{MinEvery,MaxEvery}_{8u,16u,16s,32f}_{C1,C3,C4,AC4}IR: the lesser or greater of two images, element by element.
#include "frame/checks.h"
#include "walk/map.h"
#include "zori/stats.h"

namespace zori {
namespace {

struct Lesser {
  template <class T> Vec<T> operator()(Vec<T> a, Vec<T> b) const { return min(a, b); }
};
struct Greater {
  template <class T> Vec<T> operator()(Vec<T> a, Vec<T> b) const { return max(a, b); }
};

template <class T, Layout L, class Op>
ZorStatus everyRegion(const T* pSrc, int srcStep, T* pSrcDst, int srcDstStep, ZorImgSize roiSize, Op op)
{
  if (auto s = firstFailure(nonNull(pSrc, pSrcDst), nonEmpty(roiSize), positive(srcStep, srcDstStep)); s != ZorOk)
    return s;
  mapRegion<L>(roiSize, op, Rows{pSrcDst, srcDstStep}, Rows{pSrc, srcStep},
               Rows{static_cast<const T*>(pSrcDst), srcDstStep});
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(name, op, type, layout)                                                                                  \
  ZorStatus zori##name##_##type##_##layout##IR(const Zor##type* pSrc, int srcStep, Zor##type* pSrcDst, int srcDstStep, \
                                               ZorImgSize roiSize)                                                     \
  { return everyRegion<Zor##type, layout>(pSrc, srcStep, pSrcDst, srcDstStep, roiSize, op{}); }
#define STAMPS(name, op, type) STAMP(name, op, type, C1) STAMP(name, op, type, C3) STAMP(name, op, type, C4) STAMP(name, op, type, AC4)
STAMPS(MinEvery, Lesser, 8u) STAMPS(MinEvery, Lesser, 16u) STAMPS(MinEvery, Lesser, 16s) STAMPS(MinEvery, Lesser, 32f)
STAMPS(MaxEvery, Greater, 8u) STAMPS(MaxEvery, Greater, 16u) STAMPS(MaxEvery, Greater, 16s) STAMPS(MaxEvery, Greater, 32f)
#undef STAMPS
#undef STAMP
