// Rows of samples that end at a page without access, or start at one. The images of the test programs are made of them:
// each adds what its pixels are and with what noise they are filled.
#pragma once

#include "guarded_block.h"

#include <cstddef>
#include <cstring>
#include <string>

namespace zoritest {

// `width` samples a row, `gap` bytes between the rows, none behind the last.
template <class T> class GuardedRows {
public:
  GuardedRows(int width, int height, int gap, bool atEnd)
    : width_(width), height_(height), step_(width * static_cast<int>(sizeof(T)) + gap),
      bytes_(static_cast<std::size_t>(step_) * static_cast<std::size_t>(height) - static_cast<std::size_t>(gap)),
      atEnd_(atEnd), block_(bytes_), first_(atEnd ? block_.end() - bytes_ : block_.begin())
  {}
  GuardedRows(const GuardedRows& other)
    : GuardedRows(other.width_, other.height_, other.step_ - other.width_ * static_cast<int>(sizeof(T)), other.atEnd_)
  {
    std::memcpy(first_, other.first_, bytes_);
  }
  GuardedRows& operator=(const GuardedRows&) = delete;

  // next() for each byte between the rows, value() for each sample.
  template <class Next, class Value> void fill(Next next, Value value)
  {
    for (std::size_t i = 0; i < bytes_; ++i) first_[i] = static_cast<unsigned char>(next());
    for (int y = 0; y < height_; ++y)
      for (int i = 0; i < width_; ++i) putSample(y, i, value());
  }

  int width() const { return width_; } // in samples
  int height() const { return height_; }
  int step() const { return step_; }
  T* rows() const { return reinterpret_cast<T*>(first_); }
  T sample(int y, int i) const
  {
    T x;
    std::memcpy(&x, at(y, i), sizeof x);
    return x;
  }
  void putSample(int y, int i, T x) { std::memcpy(at(y, i), &x, sizeof x); }

  // The first sample whose bits differ, or a byte between rows, told in words; "" without one. A NaN equals any other.
  std::string difference(const GuardedRows& expected) const
  {
    for (std::size_t k = 0; k < bytes_; ++k) {
      if (first_[k] == expected.first_[k]) continue;
      const int y = static_cast<int>(k) / step_, i = static_cast<int>(k) % step_ / static_cast<int>(sizeof(T));
      if (i >= width_) return "behind row " + std::to_string(y);
      const T a = sample(y, i), b = expected.sample(y, i);
      if (a != a && b != b) continue;
      return "row " + std::to_string(y) + " sample " + std::to_string(i) + ": " + std::to_string(a) + " instead of " +
             std::to_string(b);
    }
    return "";
  }

private:
  unsigned char* at(int y, int i) const
  {
    return first_ + static_cast<std::ptrdiff_t>(y) * step_ + static_cast<std::ptrdiff_t>(i) * std::ptrdiff_t{sizeof(T)};
  }

  int width_, height_, step_;
  std::size_t bytes_;
  bool atEnd_;
  GuardedBlock block_;
  unsigned char* first_;
};

} // namespace zoritest
