// The rectangle of pixels that a filter's windows cover, in memory that ends with it.
#pragma once

#include "support/image.h"
#include "support/numbers.h"
#include "zori/types.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <type_traits>
#include <vector>

namespace filtertest {

// Rows without a gap: the rectangle ends at a page without access or starts at one. The region lies `anchor` inside.
template <class T> class CoveredImage : public zoritest::GuardedRows<T> {
public:
  CoveredImage(ZorImgSize size, ZorImgPoint anchor, int channels, bool atEnd, unsigned seed)
    : zoritest::GuardedRows<T>(size.width * channels, size.height, 0, atEnd), anchor_(anchor), channels_(channels)
  {
    std::size_t i = 0;
    const auto value = [&] {
      zoritest::nextNoise(seed);
      // noise among runs of the largest and the smallest value; floats of many magnitudes
      const unsigned kind = (seed >> 28) + static_cast<unsigned>(i++ / 50 % 3) * 8;
      if constexpr (std::is_same_v<T, float>)
        return static_cast<float>(static_cast<int>(seed >> 8) - (1 << 23)) / static_cast<float>(1 << (seed & 15));
      else
        return static_cast<T>(kind > 16   ? std::numeric_limits<T>::max()
                              : kind > 14 ? std::numeric_limits<T>::min()
                                          : static_cast<T>(seed >> 9));
    };
    zoritest::GuardedRows<T>::fill([] { return 0; }, value);
  }

  void fill(T value) { std::fill_n(this->rows(), samples(), value); }
  T* region() const { return this->rows() + index(anchor_.x, anchor_.y, 0); }
  std::size_t samples() const
  {
    return static_cast<std::size_t>(this->width()) * static_cast<std::size_t>(this->height());
  }
  // x and y from the corner of the rectangle
  std::size_t index(int x, int y, int k) const
  {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(this->width()) +
           static_cast<std::size_t>(x * channels_ + k);
  }
  T at(int x, int y, int k) const { return this->rows()[index(x, y, k)]; }
  std::vector<T> copy() const { return std::vector<T>(this->rows(), this->rows() + samples()); }

private:
  ZorImgPoint anchor_;
  int channels_;
};

} // namespace filtertest
