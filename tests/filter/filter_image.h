// Images with a margin for the tests of the filters.
#pragma once

#include "support/guarded_block.h"
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
template <class T> class Image {
public:
  Image(ZorImgSize size, int channels, int mx, int my, unsigned seed, int padding)
    : channels_(channels), pitch_((size.width + 2 * mx) * channels + padding), first_(my * pitch_ + mx * channels),
      samples_((size.height + 2 * my) * pitch_ - padding), atEnd_(padding < 2)
  {
    // Noise in runs of the extreme values; floats are whole numbers below 512.
    seed = seed * 2654435761u + 12345;
    for (int i = 0; i < samples_; ++i) {
      seed = seed * 1664525u + 1013904223u;
      const unsigned kind = seed >> 29;
      if constexpr (std::is_floating_point_v<T>) data_[i] = static_cast<T>(static_cast<int>(seed >> 22) - 512);
      else
        data_[i] = kind < 2   ? std::numeric_limits<T>::max()
                   : kind < 3 ? std::numeric_limits<T>::min()
                              : static_cast<T>(seed >> 9);
    }
  }
  Image(const Image& other)
    : channels_(other.channels_), pitch_(other.pitch_), first_(other.first_), samples_(other.samples_),
      atEnd_(other.atEnd_)
  {
    std::copy(other.data_, other.data_ + samples_, data_);
  }
  Image& operator=(const Image&) = delete;

  const T* pointer() const { return data_ + first_; }
  T* pointer() { return data_ + first_; }
  int step() const { return pitch_ * static_cast<int>(sizeof(T)); }
  T get(int x, int y, int k) const { return data_[index(x, y, k)]; }
  void put(int x, int y, int k, T v) { data_[index(x, y, k)] = v; }

  // The first sample, padding and margin included, whose bits differ, or "".
  std::string difference(const Image& expected) const
  {
    for (int i = 0; i < samples_; ++i)
      if (std::memcmp(&data_[i], &expected.data_[i], sizeof(T)) != 0) {
        const int at = i - first_, y = at < 0 ? -1 : at / pitch_, x = at - y * pitch_;
        return "row " + std::to_string(y) + " sample " + std::to_string(x) + ": " + std::to_string(data_[i]) +
               " instead of " + std::to_string(expected.data_[i]);
      }
    return "";
  }

private:
  int index(int x, int y, int k) const { return first_ + y * pitch_ + x * channels_ + k; }

  int channels_, pitch_, first_, samples_;
  bool atEnd_;
  zoritest::GuardedBlock block_{static_cast<std::size_t>(samples_) * sizeof(T)};
  T* data_ =
    reinterpret_cast<T*>(atEnd_ ? block_.end() - static_cast<std::size_t>(samples_) * sizeof(T) : block_.begin());
};

} // namespace filtertest
