// The last few rows of something, each kept until the row `rows` behind it takes its place.
#pragma once

#include "frame/arena.h"

#include <cstddef>

namespace zori {

// Rows of `pitch` elements in a buffer of rows * pitch. Row y is at [y], for any y >= 0.
template <class T> class RowRing {
public:
  RowRing(T* buffer, int rows, std::ptrdiff_t pitch) : buffer_(buffer), rows_(rows), pitch_(pitch) {}

  T* operator[](std::ptrdiff_t y) const { return buffer_ + y % rows_ * pitch_; }
  int rows() const { return rows_; }
  std::ptrdiff_t pitch() const { return pitch_; }

private:
  T* buffer_;
  int rows_;
  std::ptrdiff_t pitch_;
};

} // namespace zori
