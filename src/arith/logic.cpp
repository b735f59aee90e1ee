// zori{And,Or,Xor}_{8u,16u,32s}_{C1,C3,C4,AC4}{R,IR}, zori{AndC,OrC,XorC}_{8u,16u,32s}_{C1,C3,C4,AC4}{R,IR},
// zoriNot_8u_{C1,C3,C4,AC4}{R,IR}: bitwise operations.
//
// C3 and C4 are one-channel runs: their two-image forms, and all forms of Not, test the region before the pointers.
// Without a fourth channel to keep, elements of every width go through one kernel for bytes.
#include "frame/checks.h"
#include "walk/map.h"
#include "zori/arith.h"

namespace zori {
namespace {

struct BitAnd {
  template <class T> Vec<T> operator()(Vec<T> a, Vec<T> b) const { return a & b; }
};
struct BitOr {
  template <class T> Vec<T> operator()(Vec<T> a, Vec<T> b) const { return a | b; }
};
struct BitXor {
  template <class T> Vec<T> operator()(Vec<T> a, Vec<T> b) const { return a ^ b; }
};

inline const Zor8u* asBytes(const void* p) { return static_cast<const Zor8u*>(p); }
inline Zor8u* asBytes(void* p) { return static_cast<Zor8u*>(p); }

template <class Op, class T, Layout L>
ZorStatus bitwise(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if constexpr (L == C3 || L == C4)
    if (auto s = nonEmpty(roiSize); s != ZorOk) return s;
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pDst), positive(src1Step, src2Step, dstStep), nonEmpty(roiSize));
      s != ZorOk)
    return s;
  if constexpr (L == AC4) {
    mapRegion<AC4>(roiSize, Op{}, Rows{pDst, dstStep}, Rows{pSrc1, src1Step}, Rows{pSrc2, src2Step});
  } else {
    constexpr int pixelBytes = channels<L> * static_cast<int>(sizeof(T));
    roiSize = joinedRows(roiSize, Pitch{pixelBytes, dstStep}, Pitch{pixelBytes, src1Step}, Pitch{pixelBytes, src2Step});
    mapRows(Rows{asBytes(pDst), dstStep}, elementsOf(roiSize.width, pixelBytes), roiSize.height, Op{},
            Rows{asBytes(pSrc1), src1Step}, Rows{asBytes(pSrc2), src2Step});
  }
  return ZorOk;
}

template <class Op, class T, Layout L>
ZorStatus bitwiseC(const T* pSrc, int srcStep, const T* value, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, value, pDst), positive(srcStep, dstStep), nonEmpty(roiSize)); s != ZorOk)
    return s;
  // The processed channels repeat; in AC4 the fourth is never used.
  T constant[4];
  for (int k = 0; k < channels<L>; ++k) constant[k] = get<T>(value + (k < processed<L> ? k : 0));
  mapRegionWith<L>(Pattern<T>(constant, channels<L>), roiSize, Op{}, Rows{pDst, dstStep}, Rows{pSrc, srcStep});
  return ZorOk;
}

template <Layout L> ZorStatus notRegion(const Zor8u* pSrc, int srcStep, Zor8u* pDst, int dstStep, ZorImgSize roiSize)
{
  if constexpr (L != AC4)
    if (auto s = nonEmpty(roiSize); s != ZorOk) return s;
  static constexpr Zor8u allBits[4] = {255, 255, 255, 255};
  return bitwiseC<BitXor, Zor8u, L>(pSrc, srcStep, allBits, pDst, dstStep, roiSize);
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(name, op, type, layout)                                                                                 \
  ZorStatus zori##name##_##type##_##layout##R(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2,           \
                                              int src2Step, Zor##type* pDst, int dstStep, ZorImgSize roiSize)         \
  { return bitwise<op, Zor##type, layout>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize); }                \
  ZorStatus zori##name##_##type##_##layout##IR(const Zor##type* pSrc, int srcStep, Zor##type* pSrcDst,                \
                                               int srcDstStep, ZorImgSize roiSize)                                    \
  { return bitwise<op, Zor##type, layout>(pSrc, srcStep, pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }
#define STAMP_C(name, op, type, layout, parameter, address)                                                           \
  ZorStatus zori##name##_##type##_##layout##R(const Zor##type* pSrc, int srcStep, parameter, Zor##type* pDst,         \
                                              int dstStep, ZorImgSize roiSize)                                        \
  { return bitwiseC<op, Zor##type, layout>(pSrc, srcStep, address, pDst, dstStep, roiSize); }                         \
  ZorStatus zori##name##_##type##_##layout##IR(parameter, Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize)     \
  { return bitwiseC<op, Zor##type, layout>(pSrcDst, srcDstStep, address, pSrcDst, srcDstStep, roiSize); }
#define STAMP_TYPE(name, op, type)                                                                                    \
  STAMP(name, op, type, C1) STAMP(name, op, type, C3) STAMP(name, op, type, C4) STAMP(name, op, type, AC4)            \
  STAMP_C(name##C, op, type, C1, Zor##type value, &value)                                                             \
  STAMP_C(name##C, op, type, C3, const Zor##type value[3], value)                                                     \
  STAMP_C(name##C, op, type, C4, const Zor##type value[4], value)                                                     \
  STAMP_C(name##C, op, type, AC4, const Zor##type value[3], value)
#define STAMP_OPERATION(name, op) STAMP_TYPE(name, op, 8u) STAMP_TYPE(name, op, 16u) STAMP_TYPE(name, op, 32s)
STAMP_OPERATION(And, BitAnd) STAMP_OPERATION(Or, BitOr) STAMP_OPERATION(Xor, BitXor)
#undef STAMP_OPERATION
#undef STAMP_TYPE
#undef STAMP_C
#undef STAMP

#define STAMP(layout)                                                                                                 \
  ZorStatus zoriNot_8u_##layout##R(const Zor8u* pSrc, int srcStep, Zor8u* pDst, int dstStep, ZorImgSize roiSize)      \
  { return notRegion<layout>(pSrc, srcStep, pDst, dstStep, roiSize); }                                                \
  ZorStatus zoriNot_8u_##layout##IR(Zor8u* pSrcDst, int srcDstStep, ZorImgSize roiSize)                               \
  { return notRegion<layout>(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize); }
STAMP(C1) STAMP(C3) STAMP(C4) STAMP(AC4)
#undef STAMP
