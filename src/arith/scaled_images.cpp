// zori{Add,Sub,Mul}_{8u,16u,16s}_{C1,C3,C4,AC4}{R,IR}Sfs, _{16sc,32sc}_{C1,C3,AC4}{R,IR}Sfs,
// _32f_{C1,C3,C4,AC4}{R,IR}, _32fc_{C1,C3,AC4}{R,IR}: sum, difference and product of two images.
//
// dst = saturate(round(v * 2^-scaleFactor)) of the exact v = src1 + src2, src2 - src1, src1 * src2; floats unscaled.
// In place the destination is the second image. The paths by scale stand in arith/scaled.h.
#include "scaled_regions.h"
#include "zori/arith.h"

using namespace zori;

// clang-format off
#define SCALED(name, operation, type, layout)                                                                    \
  ZorStatus zori##name##_##type##_##layout##RSfs(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2,   \
                                                 int src2Step, Zor##type* pDst, int dstStep, ZorImgSize roiSize, \
                                                 int scaleFactor)                                                \
  { return scaledImages<operation, Zor##type, layout>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize,  \
                                                      scaleFactor); }                                            \
  ZorStatus zori##name##_##type##_##layout##IRSfs(const Zor##type* pSrc, int srcStep, Zor##type* pSrcDst,        \
                                                  int srcDstStep, ZorImgSize roiSize, int scaleFactor)           \
  { return scaledImages<operation, Zor##type, layout>(pSrc, srcStep, pSrcDst, srcDstStep, pSrcDst, srcDstStep,   \
                                                      roiSize, scaleFactor); }
#define FLOATS(name, operation, type, layout)                                                                         \
  ZorStatus zori##name##_##type##_##layout##R(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2,           \
                                              int src2Step, Zor##type* pDst, int dstStep, ZorImgSize roiSize)         \
  { return scaledImages<operation, Zor##type, layout>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, 0); } \
  ZorStatus zori##name##_##type##_##layout##IR(const Zor##type* pSrc, int srcStep, Zor##type* pSrcDst,                \
                                               int srcDstStep, ZorImgSize roiSize)                                    \
  { return scaledImages<operation, Zor##type, layout>(pSrc, srcStep, pSrcDst, srcDstStep, pSrcDst, srcDstStep,        \
                                                      roiSize, 0); }
#define REAL(stamp, name, operation, type)                          \
  stamp(name, operation, type, C1) stamp(name, operation, type, C3) \
  stamp(name, operation, type, C4) stamp(name, operation, type, AC4)
#define COMPLEX(stamp, name, operation, type) \
  stamp(name, operation, type, C1) stamp(name, operation, type, C3) stamp(name, operation, type, AC4)
#define STAMP(name, operation)                                                  \
  REAL(SCALED, name, operation, 8u) REAL(SCALED, name, operation, 16u)          \
  REAL(SCALED, name, operation, 16s) REAL(FLOATS, name, operation, 32f)         \
  COMPLEX(SCALED, name, operation, 16sc) COMPLEX(SCALED, name, operation, 32sc) \
  COMPLEX(FLOATS, name, operation, 32fc)
STAMP(Add, Sum) STAMP(Sub, Difference) STAMP(Mul, Product)
#undef STAMP
#undef COMPLEX
#undef REAL
#undef FLOATS
#undef SCALED
