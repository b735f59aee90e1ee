// The rectangle of pixels that a filter's windows cover, in memory that ends with it.
#pragma once

#include "support/guarded_block.h"
#include "zori/types.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <type_traits>
#include <vector>

namespace filtertest {

// Rows without a gap between two pages without access: the rectangle ends at the one behind it or starts at the one in
// front of it. The region lies `anchor` inside.
template <class T> class CoveredImage {
public:
  CoveredImage(ZorImgSize size, ZorImgPoint anchor, int channels, bool atEnd, unsigned seed)
    : size_(size), anchor_(anchor), channels_(channels), block_(samples() * sizeof(T)),
      data_(reinterpret_cast<T*>(atEnd ? block_.end() - samples() * sizeof(T) : block_.begin()))
  {
    for (std::size_t i = 0; i < samples(); ++i) {
      seed = seed * 1664525u + 1013904223u;
      // noise among runs of the largest and the smallest value; floats of many magnitudes
      const unsigned kind = (seed >> 28) + static_cast<unsigned>(i / 50 % 3) * 8;
      if constexpr (std::is_same_v<T, float>)
        data_[i] = static_cast<float>(static_cast<int>(seed >> 8) - (1 << 23)) / static_cast<float>(1 << (seed & 15));
      else
        data_[i] = static_cast<T>(kind > 16   ? std::numeric_limits<T>::max()
                                  : kind > 14 ? std::numeric_limits<T>::min()
                                              : static_cast<T>(seed >> 9));
    }
  }

  void fill(T value) { std::fill(data_, data_ + samples(), value); }
  int step() const { return size_.width * channels_ * static_cast<int>(sizeof(T)); }
  T* region() { return data_ + index(anchor_.x, anchor_.y, 0); }
  std::size_t samples() const
  {
    return static_cast<std::size_t>(size_.width) * static_cast<std::size_t>(size_.height) *
           static_cast<std::size_t>(channels_);
  }
  // x and y from the corner of the rectangle
  std::size_t index(int x, int y, int k) const
  {
    return (static_cast<std::size_t>(y) * static_cast<std::size_t>(size_.width) + static_cast<std::size_t>(x)) *
             static_cast<std::size_t>(channels_) +
           static_cast<std::size_t>(k);
  }
  T at(int x, int y, int k) const { return data_[index(x, y, k)]; }
  std::vector<T> copy() const { return std::vector<T>(data_, data_ + samples()); }

private:
  ZorImgSize size_;
  ZorImgPoint anchor_;
  int channels_;
  zoritest::GuardedBlock block_;
  T* data_;
};

} // namespace filtertest
