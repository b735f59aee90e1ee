// Copies of one row. What moves is bytes: no value is looked at, and one kernel serves every type.
#pragma once

#include "zori/types.h"

#include <cstddef>

// Forward from the first byte to the last, each read and written once. A streaming copy writes past the cache, for data
// that is not read again soon. By itself it is slower at every size (see docs/performance.md).
void ownsCopy_8u(const Zor8u* pSrc, Zor8u* pDst, std::ptrdiff_t bytes, bool streaming);

// Source and destination may overlap.
void ownsMove_8u_W7(const Zor8u* pSrc, Zor8u* pDst, std::ptrdiff_t bytes);

// A row of a region of regionBytes in all: picks what is fastest at that size. The row may be its own source.
void ownsCopyRow_8u(const Zor8u* pSrc, Zor8u* pDst, std::ptrdiff_t bytes, long long regionBytes);

// clang-format off
// The checking forms: ZorErrNullPtr, then ZorErrSize for a length below 1.
#define ZORI_DECLARE(type)                                                       \
  ZorStatus zorsCopy_##type(const Zor##type* pSrc, Zor##type* pDst, int length); \
  ZorStatus zorsMove_##type(const Zor##type* pSrc, Zor##type* pDst, int length);
ZORI_DECLARE(8u)
ZORI_DECLARE(16s)
ZORI_DECLARE(32s)
ZORI_DECLARE(32f)
ZORI_DECLARE(64s)
ZORI_DECLARE(64f)
ZORI_DECLARE(32fc)
ZORI_DECLARE(64fc)
#undef ZORI_DECLARE
