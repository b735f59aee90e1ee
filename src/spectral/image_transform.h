// Fourier transforms of images of any size: what stands behind the records of the image FFT and the image DFT.
//
// Rows and columns are complex transforms in lanes (lane_plan.h). Two real vectors go through one complex transform as
// its real and imaginary parts and come apart by symmetry: rows in pairs, and of the columns of a packed spectrum the
// first and the last, which are real. All other columns are complex, their parts side by side.
//
// - Rows: as many pairs of rows as a vector has lanes; in images of several channels one pair, its channels in lanes.
// - Columns: blocks of 16 or 32 complex columns are gathered row by row into the buffer, transformed and scattered.
// - Real images of one channel whose sides are powers of two from 64 on, not in place: rows and one level of the
// columns
//   go together (image_joined.h). Results are the same to the bit.
//
// A record is one block: its head, a plan for each direction with its tables, and for one row or one column of 2^k
// values the record of the vector FFT.
#pragma once

#include "frame/layout.h"
#include "lane_plan.h"
#include "vector_fft.h"

namespace zori {

enum class Direction { Forward = 0, Inverse = 1 };

// How the transforms of the two families differ.
enum class TransformFamily { Fft, Dft };

struct ImageTransform {
  Zor32u tag;
  Zor32s width, height;
  ZorHint hint;
  Zor32s bytesPerThread;                // of the work buffer that GetBufSize tells
  Zor32s threads;                       // that it is made for
  Zor32f rowFactor[2], columnFactor[2]; // of each direction
  LanePlan rows, columns;
  BlockPart<char> vector; // memory of a vector record, if there is one
  Zor32s vectorAt;        // where in it the record begins

  const FftVectorRecord* vectorRecord() const
  {
    return vector.count ? reinterpret_cast<const FftVectorRecord*>(vector.in(this) + vectorAt) : nullptr;
  }
};

// Makes the record of a transform of width by height values in a block of which the first headBytes are the caller's
// own; *made is the start of the block, at headBytes (a multiple of 32) stands the record.
ZorStatus makeImageTransform(TransformFamily family, bool isReal, Zor32u tag, ZorImgSize size, int flag, ZorHint hint,
                             long long headBytes, void** made);

// What GetBufSize tells; 0 where it does not fit an int.
int bufferBytes(const ImageTransform& plan);

// The transforms. Arguments are checked. With a buffer, one of bufferBytes(plan) at any address, they still take memory
// of their own if it can be had, since wider blocks of columns are faster; without one they cannot do without.
ZorStatus transformComplex(const ImageTransform& plan, Direction direction, const Zor32fc* pSrc, int srcStep,
                           Zor32fc* pDst, int dstStep, Zor8u* pBuffer);
template <Layout L>
ZorStatus transformReal(const ImageTransform& plan, Direction direction, const Zor32f* pSrc, int srcStep, Zor32f* pDst,
                        int dstStep, Zor8u* pBuffer);

} // namespace zori
