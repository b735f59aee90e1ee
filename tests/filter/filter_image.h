// Images with a margin for the tests of the filters.
#pragma once

#include "zori/types.h"

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

// A region of pixels with `mx` columns and `my` rows around it. padding moves rows and the first pixel off their
// alignment: the step is `padding` samples longer than the row.
template <class T> class Image {
public:
  Image(ZorImgSize size, int channels, int mx, int my, unsigned seed, int padding)
    : size_(size), channels_(channels), pitch_((size.width + 2 * mx) * channels + padding),
      first_(my * pitch_ + mx * channels + (padding & 1)), data_(static_cast<size_t>((size.height + 2 * my) * pitch_ + 1))
  {
    // Noise in runs of the extreme values; floats are whole numbers below 512.
    seed = seed * 2654435761u + 12345;
    for (T& v : data_) {
      seed = seed * 1664525u + 1013904223u;
      const unsigned kind = seed >> 29;
      if constexpr (std::is_floating_point_v<T>) v = static_cast<T>(static_cast<int>(seed >> 22) - 512);
      else v = kind < 2 ? std::numeric_limits<T>::max() : kind < 3 ? std::numeric_limits<T>::min() : static_cast<T>(seed >> 9);
    }
  }

  const T* pointer() const { return data_.data() + first_; }
  T* pointer() { return data_.data() + first_; }
  int step() const { return pitch_ * static_cast<int>(sizeof(T)); }
  T get(int x, int y, int k) const { return data_[index(x, y, k)]; }
  void put(int x, int y, int k, T v) { data_[index(x, y, k)] = v; }

  // The first sample, padding and margin included, whose bits differ, or "".
  std::string difference(const Image& expected) const
  {
    for (size_t i = 0; i < data_.size(); ++i)
      if (std::memcmp(&data_[i], &expected.data_[i], sizeof(T)) != 0) {
        const int at = static_cast<int>(i) - first_, y = at < 0 ? -1 : at / pitch_, x = at - y * pitch_;
        return "row " + std::to_string(y) + " sample " + std::to_string(x) + ": " + std::to_string(data_[i]) + " instead of " +
               std::to_string(expected.data_[i]);
      }
    return "";
  }

private:
  size_t index(int x, int y, int k) const { return static_cast<size_t>(first_ + y * pitch_ + x * channels_ + k); }

  ZorImgSize size_;
  int channels_, pitch_, first_;
  std::vector<T> data_;
};

} // namespace filtertest
