// Images and layouts for the tests of statistics.
#pragma once

#include "support/numbers.h"
#include "zori/types.h"

#include <cmath>
#include <type_traits>
#include <vector>

namespace reference {

struct Shape {
  int channels, processed;
};
constexpr Shape c1{1, 1}, c3{3, 3}, c4{4, 4}, ac4{4, 3};

template <class T> struct Image {
  int width, height, channels, pitch;
  std::vector<T> data;

  // Noise over the whole range with runs of the extreme values; floats are small numbers of both signs.
  Image(int w, int h, int c, unsigned seed, int padding = 1)
    : width(w), height(h), channels(c), pitch(w * c + padding), data(static_cast<size_t>(pitch * h + 1))
  {
    for (auto& v : data) {
      zoritest::nextNoise(seed);
      if constexpr (std::is_floating_point_v<T>) v = static_cast<T>(static_cast<int>(seed >> 12) - (1 << 19)) / 1024;
      else
        v = seed >> 29 == 0   ? static_cast<T>(~T(0))
            : seed >> 29 == 1 ? static_cast<T>(T(1) << (8 * sizeof(T) - 1))
                              : static_cast<T>(seed >> 7);
    }
  }
  int step() const { return pitch * static_cast<int>(sizeof(T)); }
  ZorImgSize size() const { return {width, height}; }
  const T* begin() const { return data.data() + (padding() & 1); } // off its alignment when the rows are padded
  int padding() const { return pitch - width * channels; }
  T at(int x, int y, int k) const { return begin()[y * pitch + x * channels + k]; }
  T& at(int x, int y, int k) { return data[static_cast<size_t>(begin() - data.data() + y * pitch + x * channels + k)]; }
};

constexpr ZorImgSize sizes[] = {{1, 1}, {2, 3}, {5, 2}, {15, 3}, {16, 2}, {17, 4}, {33, 3}, {100, 2}, {131, 5}};

} // namespace reference
