// Images with a margin for the tests of the filters.
#pragma once

#include "support/image.h"
#include "support/numbers.h"
#include "zori/types.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

namespace filtertest {

struct Layout {
  int channels, processed;
};
constexpr Layout c1{1, 1}, c3{3, 3}, c4{4, 4}, ac4{4, 3};

// A region of pixels with `mx` columns and `my` rows around it, and nothing more: its memory ends at a page without
// access (padding 0 and 1), or starts at one. Rows lie `padding` samples apart.
template <class T> class Image : public zoritest::GuardedRows<T> {
public:
  Image(ZorImgSize size, int channels, int mx, int my, unsigned seed, int padding)
    : zoritest::GuardedRows<T>((size.width + 2 * mx) * channels, size.height + 2 * my,
                               padding * static_cast<int>(sizeof(T)), padding < 2),
      channels_(channels), left_(mx * channels), top_(my)
  {
    // Noise in runs of the extreme values; floats are whole numbers below 512.
    seed = seed * 2654435761u + 12345;
    this->fill([&] { return zoritest::nextNoise(seed) >> 24; },
               [&] {
                 const unsigned kind = zoritest::nextNoise(seed) >> 29;
                 if constexpr (std::is_floating_point_v<T>) return static_cast<T>(static_cast<int>(seed >> 22) - 512);
                 else
                   return kind < 2   ? std::numeric_limits<T>::max()
                          : kind < 3 ? std::numeric_limits<T>::min()
                                     : static_cast<T>(seed >> 9);
               });
  }

  T* pointer() const { return this->rows() + top_ * (this->step() / std::ptrdiff_t{sizeof(T)}) + left_; }
  T get(int x, int y, int k) const { return this->sample(y + top_, left_ + x * channels_ + k); }
  void put(int x, int y, int k, T v) { this->putSample(y + top_, left_ + x * channels_ + k, v); }

private:
  int channels_, left_, top_;
};

} // namespace filtertest
