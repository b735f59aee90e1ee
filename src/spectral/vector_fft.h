// The transform of one vector of n = 2^order values in single precision, complex (n complex values) or real (n reals
// and half of their spectrum, which is symmetric). Forward e^(-2 pi i j k / n), inverse e^(+2 pi i j k / n).
//
//   FftVectorRecord* record;
//   if (auto s = makeVectorFft(FftKind::Real, order, ZorFftDivInvByN, ZorHintNone, &record); s != ZorOk) return s;
//   long long bytes;
//   vectorFftBufferBytes(FftKind::Real, record, &bytes);
//   ...
//   forwardToPack(row, spectrum, record, buffer);   // in place too; a null buffer is taken for the call
//   ...
//   freeVectorFft(FftKind::Real, record);
//
// Whoever keeps several things in one block makes the record there with vectorFftSizes and initVectorFft. Transforms
// only read a record; each thread that uses one needs a buffer of its own. Vectors may stand at any address. The
// arithmetic follows the rounding of the control register: callers see to it that it is to nearest.
//
// Spectra of real vectors hold n floats, R(k) and I(k) the parts of frequency k:
//
//   Pack   R0, R1, I1, R2, I2, ..., R(n/2)
//   Perm   R0, R(n/2), R1, I1, R2, I2, ...
#pragma once

#include "zori/types.h"

#include <cstdint>

namespace zori {

enum class FftKind : std::int32_t { Complex = 4, Real = 6 }; // tags of the records

struct FftVectorRecord;

// Bytes of a record with room to align it to 32, of the memory that initVectorFft needs while it runs, and of the work
// buffer (with room to align it too; 0 where none is needed). The order is looked at first, then the pointers, then the
// flag.
ZorStatus vectorFftSizes(FftKind kind, int order, int flag, ZorHint hint, long long* recordBytes, long long* initBytes,
                         long long* bufferBytes);

// Makes a record in the caller's memory, at its first address that is a multiple of 32.
ZorStatus initVectorFft(FftKind kind, int order, int flag, ZorHint hint, void* memory, void* initMemory,
                        FftVectorRecord** record);

// Makes a record in memory of its own.
ZorStatus makeVectorFft(FftKind kind, int order, int flag, ZorHint hint, FftVectorRecord** record);

// Wipes the record's tag; releases its memory if makeVectorFft took it.
ZorStatus freeVectorFft(FftKind kind, FftVectorRecord* record);

ZorStatus vectorFftBufferBytes(FftKind kind, const FftVectorRecord* record, long long* bytes);

// Source and destination may be the same. A null buffer is taken and released by the call.
ZorStatus forwardComplex(const Zor32fc* src, Zor32fc* dst, const FftVectorRecord* record, void* buffer);
ZorStatus inverseComplex(const Zor32fc* src, Zor32fc* dst, const FftVectorRecord* record, void* buffer);
ZorStatus forwardToPack(const Zor32f* src, Zor32f* dst, const FftVectorRecord* record, void* buffer);
ZorStatus inverseFromPack(const Zor32f* src, Zor32f* dst, const FftVectorRecord* record, void* buffer);
ZorStatus forwardToPerm(const Zor32f* src, Zor32f* dst, const FftVectorRecord* record, void* buffer);
ZorStatus inverseFromPerm(const Zor32f* src, Zor32f* dst, const FftVectorRecord* record, void* buffer);

} // namespace zori
