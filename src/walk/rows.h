// Rows that follow each other: regions without gaps are walked as one row.
#pragma once

#include "frame/layout.h"

namespace zori {

// Bytes from pixel to pixel and from row to row of an operand.
struct Pitch {
  int pixel, row;
};
template <int ElementsOfPixel, class T> inline Pitch pitchOf(Rows<T> rows)
{
  return {ElementsOfPixel * static_cast<int>(sizeof(T)), rows.step};
}

// The region as one long row, if its rows adjoin in all operands and their bytes fit an int, else as it is. A walk over
// it then calls its kernel once.
template <class... P> inline ZorImgSize joinedRows(ZorImgSize roi, P... operands)
{
  const auto adjoin = [=](Pitch p) {
    const long long rowBytes = static_cast<long long>(roi.width) * p.pixel;
    return rowBytes == p.row && rowBytes * roi.height <= INT32_MAX;
  };
  return (adjoin(operands) && ...) ? ZorImgSize{roi.width * roi.height, 1} : roi;
}

// Elements of a row of pixels of so many.
inline std::ptrdiff_t elementsOf(int pixels, int elementsOfPixel)
{
  return static_cast<std::ptrdiff_t>(pixels) * elementsOfPixel;
}

} // namespace zori
