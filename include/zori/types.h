/* Shared types of the library: pixel elements, regions, selectors, records, status codes. C99 and C++. */
#ifndef ZORI_TYPES_H
#define ZORI_TYPES_H

#include <stdint.h>

#ifdef __cplusplus
#define ZORI_BEGIN_DECLS                                                                                               \
  extern "C" {                                                                                                         \
  _Pragma("GCC visibility push(default)")
#define ZORI_END_DECLS                                                                                                 \
  _Pragma("GCC visibility pop")                                                                                        \
  }
#else
#define ZORI_BEGIN_DECLS _Pragma("GCC visibility push(default)")
#define ZORI_END_DECLS _Pragma("GCC visibility pop")
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Elements of one channel. Multi-byte elements stand in memory in the machine's (little-endian) order. ---- */

typedef uint8_t Zor8u;
typedef int8_t Zor8s;
typedef uint16_t Zor16u;
typedef int16_t Zor16s;
typedef uint32_t Zor32u;
typedef int32_t Zor32s;
typedef int64_t Zor64s;
typedef float Zor32f;
typedef double Zor64f;

/* Complex elements: real part first. */
typedef struct {
  Zor16s re, im;
} Zor16sc;
typedef struct {
  Zor16u re, im;
} Zor16uc;
typedef struct {
  Zor32s re, im;
} Zor32sc;
typedef struct {
  Zor32f re, im;
} Zor32fc;
typedef struct {
  Zor64f re, im;
} Zor64fc;

/* ---- Regions, in pixels. ---- */

typedef struct {
  int width, height;
} ZorImgSize;
typedef struct {
  int x, y;
} ZorImgPoint;
typedef struct {
  int x, y, width, height;
} ZorImgRect;

/* ---- Status: negative is an error (nothing was written), positive a warning (the output is complete), but where a
   function's documentation says otherwise. ---- */

typedef enum {
  ZorOk = 0,

  ZorWarnSqrtNegArg = 3,        /* square root of a negative value; output defined */
  ZorWarnDivByZero = 6,         /* division by zero; output defined */
  ZorWarnLnZeroArg = 7,         /* logarithm of zero; output defined */
  ZorWarnLnNegArg = 8,          /* logarithm of a negative value; output defined */
  ZorWarnNotParallelogram = 28, /* the quadrangle is not a parallelogram; coefficients are written */
  ZorWarnNoRoiIntersect = 29,   /* the region does not meet the source image; nothing is written */
  ZorWarnNoQuadIntersect = 30,  /* the quadrangle does not meet the image; nothing is written */
  ZorWarnEvenMedianWeight = 39, /* the weight was even; the weight less one is used */

  ZorErrNoMem = -4,              /* working memory of a filter or table could not be had */
  ZorErrBadArg = -5,             /* an argument without a code of its own */
  ZorErrSize = -6,               /* a width, height or length below 1 or out of its bounds */
  ZorErrRange = -7,              /* a lower bound above its upper bound */
  ZorErrNullPtr = -8,            /* a required pointer is null */
  ZorErrAlloc = -9,              /* working memory could not be had */
  ZorErrDivByZero = -10,         /* the constant divisor is zero */
  ZorErrBitSize = -11,           /* bit size of a palette, or start position, out of range */
  ZorErrScaleRange = -13,        /* upper bound of the range not above the lower */
  ZorErrStep = -14,              /* a row step below 1 or too small for the operation */
  ZorErrOrder = -15,             /* transform order out of range */
  ZorErrFlag = -16,              /* transform flag not known */
  ZorErrContext = -17,           /* a record is not of the expected kind */
  ZorErrThreshold = -18,         /* lower threshold above the upper */
  ZorErrMomentTooSmall = -20,    /* the normalising moment vanishes */
  ZorErrAxis = -21,              /* mirror axis not known */
  ZorErrInterpolation = -22,     /* interpolation not supported here */
  ZorErrResizeFactor = -23,      /* resize factor not above zero */
  ZorErrFirLen = -26,            /* filter without taps */
  ZorErrFirUpFactor = -28,       /* phase outside its factor */
  ZorErrFirDownFactor = -29,     /* up or down factor below 1 */
  ZorErrMaskSize = -33,          /* mask size not known, below 1, or even where it must be odd */
  ZorErrAnchor = -34,            /* anchor outside the mask */
  ZorErrEpsilon = -36,           /* negative tolerance */
  ZorErrStepTooSmall = -37,      /* a row step smaller than the row */
  ZorErrMomentChannel = -47,     /* channel outside the record's channels */
  ZorErrAlphaType = -50,         /* alpha operation not known */
  ZorErrKernelDivisor = -51,     /* kernel divisor is zero */
  ZorErrChannels = -53,          /* channel count not 1, 3 or 4 */
  ZorErrQuad = -56,              /* the computed quadrangle is degenerate or not convex */
  ZorErrCoeff = -57,             /* the source rectangle is less than two pixels across */
  ZorErrRect = -58,              /* the given quadrangle is degenerate or not convex */
  ZorErrZeroMask = -59,          /* a mask without a nonzero element */
  ZorErrChannelOrder = -60,      /* entry of a channel order out of range */
  ZorErrLutLevels = -106,        /* fewer than two levels in a lookup table */
  ZorErrHistLevels = -107,       /* fewer than two levels in a histogram */
  ZorErrDeconvParam = -108,      /* a step is not a multiple of four */
  ZorErrNoiseRange = -125,       /* noise level outside [0, 1) */
  ZorErrSubsample = -201,        /* the destination would be empty */
  ZorErrQualitySize = -210,      /* the denominator of the quality index vanishes */
  ZorErrMedianWeight = -211,     /* median weight below 1 */
  ZorErrDecimateFraction = -212, /* decimation fraction not known */
  ZorErrRoundMode = -213,        /* rounding mode not known */
  ZorErrMode = -9999             /* operation selector not supported here */
} ZorStatus;

/* ---- Selectors. A value outside its list gives the status that the function documents. ---- */

typedef enum { ZorRoundTowardZero = 0, ZorRoundNearestEven = 1, ZorRoundNearestAway = 2 } ZorRoundMode;

/* Accurate asks for double accumulation (or exact scaling); every other value takes the fast path. */
typedef enum { ZorHintNone = 0, ZorHintFast = 1, ZorHintAccurate = 2 } ZorHint;

typedef enum { ZorCmpLess = 0, ZorCmpLessEq = 1, ZorCmpEq = 2, ZorCmpGreaterEq = 3, ZorCmpGreater = 4 } ZorCmpOp;

typedef enum {
  ZorAxsHorizontal = 0, /* about the horizontal axis: rows change places */
  ZorAxsVertical = 1,   /* about the vertical axis: columns change places */
  ZorAxsBoth = 2
} ZorAxis;

/* Direction of a ramp; any value but 0 and 1 rises along both. */
typedef enum { ZorRampAlongX = 0, ZorRampAlongY = 1, ZorRampAlongBoth = 2 } ZorRampAxis;

/* Window of a fixed filter, width then height. */
typedef enum {
  ZorMask1x3 = 13,
  ZorMask1x5 = 15,
  ZorMask3x1 = 31,
  ZorMask3x3 = 33,
  ZorMask5x1 = 51,
  ZorMask5x5 = 55
} ZorMaskSize;

/* Porter-Duff operators, on straight or on premultiplied sources. */
typedef enum {
  ZorAlphaOver = 0,
  ZorAlphaIn = 1,
  ZorAlphaOut = 2,
  ZorAlphaAtop = 3,
  ZorAlphaXor = 4,
  ZorAlphaPlus = 5,
  ZorAlphaOverPremul = 6,
  ZorAlphaInPremul = 7,
  ZorAlphaOutPremul = 8,
  ZorAlphaAtopPremul = 9,
  ZorAlphaXorPremul = 10,
  ZorAlphaPlusPremul = 11
} ZorAlphaOp;

/* Interpolations; functions take them as an int. */
typedef enum {
  ZORI_INTER_NN = 1,
  ZORI_INTER_LINEAR = 2,
  ZORI_INTER_CUBIC = 4,
  ZORI_INTER_CUBIC2P_A = 5,
  ZORI_INTER_CUBIC2P_B = 6,
  ZORI_INTER_CUBIC2P_C = 7,
  ZORI_INTER_SUPER = 8,
  ZORI_INTER_LANCZOS = 16
} ZorInterp;
#define ZORI_SMOOTH_EDGE ((int)0x80000000u) /* or-ed to the interpolation of a warp */

/* Where a transform divides; functions take the flag as an int. */
typedef enum { ZorFftDivFwdByN = 1, ZorFftDivInvByN = 2, ZorFftDivBySqrtN = 4, ZorFftNoDiv = 8 } ZorFftFlag;

typedef enum { ZorBilateralGauss = 100, ZorBilateralGaussFast = 101 } ZorBilateralType;

/* ---- Records. Opaque ones are made by InitAlloc (or Init) functions and released by their Free. ---- */

typedef struct {
  int major, minor, majorBuild, build;
  char targetCpu[4];
  const char* name;
  const char* version;
  const char* buildDate;
} ZorVersionRecord;

typedef struct ZorMomentState ZorMomentState;
typedef struct ZorFftImgRecord ZorFftImgRecord;
typedef struct ZorFftImgRecord32s ZorFftImgRecord32s;
typedef struct ZorDftImgRecord ZorDftImgRecord;
typedef struct ZorDftImgRecord32s ZorDftImgRecord32s;
typedef struct ZorDctImgRecord ZorDctImgRecord;
typedef struct ZorWtFwdState ZorWtFwdState;
typedef struct ZorWtInvState ZorWtInvState;
typedef struct ZorDeconvFftState ZorDeconvFftState;
typedef struct ZorDeconvLrState ZorDeconvLrState;
typedef struct ZorBilateralState ZorBilateralState;
typedef struct ZorResampleRowSpec ZorResampleRowSpec;

#ifdef __cplusplus
}
#endif

#endif
