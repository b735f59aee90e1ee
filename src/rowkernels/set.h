// Fills of rows with a repeated pixel. As with copies, what is written is bytes, and one kernel serves every type.
#pragma once

#include "frame/layout.h"
#include "simd.h"
#include "zori/types.h"

#include <cstddef>
#include <cstring>

namespace zori {

// A pixel of 1, 2, 3, 4, 6, 8, 12 or 16 bytes repeated: 48 bytes hold whole pixels of every such size.
class PixelPattern {
public:
  static constexpr std::ptrdiff_t period = 48;

  template <int PixelBytes> static PixelPattern of(const void* pixel)
  {
    static_assert(period % PixelBytes == 0);
    PixelPattern pattern;
    Zor8u one[PixelBytes];
    std::memcpy(one, pixel, PixelBytes);
    pattern.uniform_ = true;
    for (int i = 1; i < PixelBytes; ++i) pattern.uniform_ &= one[i] == one[0];
    for (int i = 0; i < period; i += PixelBytes) std::memcpy(pattern.bytes_ + i, one, PixelBytes);
    std::memcpy(pattern.bytes_ + period, pattern.bytes_, 16);
    return pattern;
  }
  template <class T> static PixelPattern of(const T& pixel) { return of<sizeof(T)>(&pixel); }

  // The 16 bytes that stand `phase` bytes behind the start of a pixel; phase is below the period.
  Vec<Zor8u, 16> at(std::ptrdiff_t phase) const { return load<Zor8u, 16>(bytes_ + phase); }
  const Zor8u* pixel() const { return bytes_; }
  // All bytes are the same.
  bool isUniform() const { return uniform_; }

private:
  alignas(16) Zor8u bytes_[period + 16];
  bool uniform_;
};

// A row of a region of regionBytes in all, from the start of a pixel on: picks what is fastest at that size.
void fillRow(const PixelPattern& pattern, Zor8u* pDst, std::ptrdiff_t bytes, long long regionBytes);

// All rows of a region.
void fillRows(const PixelPattern& pattern, Rows<Zor8u> dst, std::ptrdiff_t bytes, int rows);

} // namespace zori
