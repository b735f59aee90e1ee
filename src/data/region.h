// What the copies and fills share: elements by width alone, and regions without gaps as one row.
#pragma once

#include "frame/layout.h"

namespace zori {

// Nothing here looks at values: every type is handled as the unsigned one of its width.
template <class T>
using Raw =
  std::conditional_t<sizeof(T) == 1, std::uint8_t, std::conditional_t<sizeof(T) == 2, std::uint16_t, std::uint32_t>>;

template <class T> inline const Raw<T>* raw(const T* p) { return reinterpret_cast<const Raw<T>*>(p); }
template <class T> inline Raw<T>* raw(T* p) { return reinterpret_cast<Raw<T>*>(p); }

// An operand: bytes of a pixel, and the step.
struct Operand {
  int pixelBytes, step;
};

// The region as one long row when the rows of all operands adjoin, else as it is.
template <class... O> inline ZorImgSize mergedRows(ZorImgSize roi, O... operands)
{
  const bool merged =
    (isContiguous(static_cast<long long>(roi.width) * operands.pixelBytes, roi.height, operands.step) && ...);
  return merged ? ZorImgSize{roi.width * roi.height, 1} : roi;
}

template <class T> inline constexpr int bytesOf = static_cast<int>(sizeof(T));

} // namespace zori
