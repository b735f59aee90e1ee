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
    if constexpr (PixelBytes == 3 || PixelBytes == 6) { // three words hold whole pixels; made often, for single rows
      constexpr int bits = 8 * PixelBytes;
      std::uint64_t x = 0;
      std::memcpy(&x, one, PixelBytes);
      if constexpr (PixelBytes == 3) x |= x << bits;
      const std::uint64_t word[3] = {x | x << 48, x >> 16 | x << 32, x >> 32 | x << 16};
      const auto a = ofHalves(word[0], word[1]), b = ofHalves(word[2], word[0]), c = ofHalves(word[1], word[2]);
      store(pattern.bytes_, a);
      store(pattern.bytes_ + 16, b);
      store(pattern.bytes_ + 32, c);
      store(pattern.bytes_ + 48, a);
    } else {
      for (int i = 0; i < period; i += PixelBytes) std::memcpy(pattern.bytes_ + i, one, PixelBytes);
      std::memcpy(pattern.bytes_ + period, pattern.bytes_, 16);
    }
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

// Rows of 16 to 64 bytes, from the start of a pixel on: four vectors at most, which overlap.
class ShortFill {
public:
  static bool holds(std::ptrdiff_t bytes) { return bytes >= 16 && bytes <= 64; }
  ShortFill(const PixelPattern& pattern, std::ptrdiff_t bytes)
    : third_(bytes > 48 ? 32 : 16), last_(bytes - 16), a_(pattern.at(0)), b_(pattern.at(16)), c_(pattern.at(third_)),
      d_(pattern.at(last_ % PixelPattern::period))
  {}
  void operator()(Zor8u* to) const
  {
    store(to, a_);
    if (last_ > 0) store(to + last_, d_);
    if (last_ > 16) {
      store(to + 16, b_);
      store(to + third_, c_);
    }
  }

private:
  std::ptrdiff_t third_, last_;
  Vec<Zor8u, 16> a_, b_, c_, d_;
};

// A row of a region of regionBytes in all, from the start of a pixel on: picks what is fastest at that size.
void fillRow(const PixelPattern& pattern, Zor8u* pDst, std::ptrdiff_t bytes, long long regionBytes);

// All rows of a region.
void fillRows(const PixelPattern& pattern, Rows<Zor8u> dst, std::ptrdiff_t bytes, int rows);

} // namespace zori
