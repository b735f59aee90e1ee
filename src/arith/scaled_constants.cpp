// zori{AddC,SubC,MulC}_{8u,16u,16s}_{C1,C3,C4,AC4}{R,IR}Sfs, _{16sc,32sc}_{C1,C3,AC4}{R,IR}Sfs,
// _32f_{C1,C3,C4,AC4}{R,IR}, _32fc_{C1,C3,AC4}{R,IR}: sum, difference and product of an image and a constant.
//
// dst = saturate(round(v * 2^-scaleFactor)) of the exact v = src + value, src - value, src * value; floats unscaled.
// The constant stands by itself in C1, else there is one a channel. The paths by scale stand in arith/scaled.h.
#include "scaled_regions.h"
#include "zori/arith.h"

using namespace zori;

// clang-format off
// value and pValue: the constant as a parameter, and where it lies
#define SCALED(name, operation, type, layout, value, pValue)                                                           \
  ZorStatus zori##name##_##type##_##layout##RSfs(const Zor##type* pSrc, int srcStep, const Zor##type value,            \
                                                 Zor##type* pDst, int dstStep, ZorImgSize roiSize, int scaleFactor)    \
  { return scaledConstant<operation, Zor##type, layout>(pSrc, srcStep, pValue, pDst, dstStep, roiSize, scaleFactor); } \
  ZorStatus zori##name##_##type##_##layout##IRSfs(const Zor##type value, Zor##type* pSrcDst, int srcDstStep,           \
                                                  ZorImgSize roiSize, int scaleFactor)                                 \
  { return scaledConstant<operation, Zor##type, layout>(pSrcDst, srcDstStep, pValue, pSrcDst, srcDstStep, roiSize,     \
                                                        scaleFactor); }
#define FLOATS(name, operation, type, layout, value, pValue)                                                 \
  ZorStatus zori##name##_##type##_##layout##R(const Zor##type* pSrc, int srcStep, const Zor##type value,     \
                                              Zor##type* pDst, int dstStep, ZorImgSize roiSize)              \
  { return scaledConstant<operation, Zor##type, layout>(pSrc, srcStep, pValue, pDst, dstStep, roiSize, 0); } \
  ZorStatus zori##name##_##type##_##layout##IR(const Zor##type value, Zor##type* pSrcDst, int srcDstStep,    \
                                               ZorImgSize roiSize)                                           \
  { return scaledConstant<operation, Zor##type, layout>(pSrcDst, srcDstStep, pValue, pSrcDst, srcDstStep, roiSize, 0); }
#define COMPLEX(stamp, name, operation, type)                                                       \
  stamp(name, operation, type, C1, value, &value) stamp(name, operation, type, C3, value[3], value) \
  stamp(name, operation, type, AC4, value[3], value)
#define REAL(stamp, name, operation, type) \
  COMPLEX(stamp, name, operation, type) stamp(name, operation, type, C4, value[4], value)
#define STAMP(name, operation)                                                  \
  REAL(SCALED, name, operation, 8u) REAL(SCALED, name, operation, 16u)          \
  REAL(SCALED, name, operation, 16s) REAL(FLOATS, name, operation, 32f)         \
  COMPLEX(SCALED, name, operation, 16sc) COMPLEX(SCALED, name, operation, 32sc) \
  COMPLEX(FLOATS, name, operation, 32fc)
STAMP(AddC, Sum) STAMP(SubC, Difference) STAMP(MulC, Product)
#undef STAMP
#undef REAL
#undef COMPLEX
#undef FLOATS
#undef SCALED
