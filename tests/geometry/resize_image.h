// Images of the resize tests: memory that ends at a page without access, or starts at one.
#pragma once

#include "support/guarded_block.h"
#include "zori/types.h"

#include <cstddef>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
#include <vector>

namespace resizetest {

class Random {
public:
  explicit Random(unsigned seed) : state_(seed * 2654435761u + 12345) {}
  unsigned next()
  {
    state_ = state_ * 1664525u + 1013904223u;
    return state_ >> 8;
  }
  int below(int n) { return static_cast<int>(next() % static_cast<unsigned>(n)); }
  int between(int low, int high) { return low + below(high - low + 1); }
  double real(double low, double high) { return low + (high - low) * (next() / double(1 << 24)); }

private:
  unsigned state_;
};

// Rows lie `gap` bytes apart; what lies between them is filled too, and must stay.
template <class T> class Image {
public:
  Image(ZorImgSize size, int channels, int gap, unsigned seed)
    : size_(size), channels_(channels), step_(size.width * channels * static_cast<int>(sizeof(T)) + gap),
      bytes_(static_cast<std::size_t>(step_) * static_cast<std::size_t>(size.height) - static_cast<std::size_t>(gap)),
      atEnd_(seed % 3 != 0), block_(bytes_)
  {
    Random random(seed);
    for (std::size_t i = 0; i < bytes_; ++i) begin()[i] = static_cast<unsigned char>(random.next());
    for (int y = 0; y < size.height; ++y)
      for (int i = 0; i < size.width * channels; ++i) put(y, i, value(random));
  }
  Image(const Image& other)
    : size_(other.size_), channels_(other.channels_), step_(other.step_), bytes_(other.bytes_), atEnd_(other.atEnd_),
      block_(bytes_)
  {
    std::memcpy(begin(), other.begin(), bytes_);
  }
  Image& operator=(const Image&) = delete;

  T* data() { return reinterpret_cast<T*>(begin()); }
  const T* data() const { return reinterpret_cast<const T*>(begin()); }
  int step() const { return step_; }
  ZorImgSize size() const { return size_; }
  int channels() const { return channels_; }
  T get(int y, int sample) const
  {
    T x;
    std::memcpy(&x, row(y) + static_cast<std::size_t>(sample) * sizeof(T), sizeof x);
    return x;
  }
  T get(int x, int y, int c) const { return get(y, x * channels_ + c); }
  void put(int y, int sample, T x)
  {
    std::memcpy(const_cast<unsigned char*>(row(y)) + static_cast<std::size_t>(sample) * sizeof(T), &x, sizeof x);
  }
  void put(int x, int y, int c, T v) { put(y, x * channels_ + c, v); }

  // The first byte that differs, told by its sample, or "".
  std::string difference(const Image& expected) const
  {
    for (std::size_t i = 0; i < bytes_; ++i)
      if (begin()[i] != expected.begin()[i]) {
        const int y = static_cast<int>(i) / step_, sample = static_cast<int>(i) % step_ / static_cast<int>(sizeof(T));
        if (sample >= size_.width * channels_) return "behind row " + std::to_string(y);
        if (get(y, sample) != get(y, sample) && expected.get(y, sample) != expected.get(y, sample)) continue;
        return "row " + std::to_string(y) + " pixel " + std::to_string(sample / channels_) + " channel " +
               std::to_string(sample % channels_) + ": " + std::to_string(get(y, sample)) + " instead of " +
               std::to_string(expected.get(y, sample));
      }
    return "";
  }

private:
  // Noise with runs of the largest and smallest values.
  static T value(Random& random)
  {
    const int kind = random.below(8);
    if constexpr (std::is_floating_point_v<T>) return static_cast<T>(random.real(-300, 300));
    else
      return kind == 0   ? std::numeric_limits<T>::max()
             : kind == 1 ? std::numeric_limits<T>::min()
                         : static_cast<T>(random.next());
  }
  const unsigned char* begin() const { return atEnd_ ? block_.end() - bytes_ : block_.begin(); }
  unsigned char* begin() { return atEnd_ ? block_.end() - bytes_ : block_.begin(); }
  const unsigned char* row(int y) const { return begin() + static_cast<std::ptrdiff_t>(y) * step_; }

  ZorImgSize size_;
  int channels_, step_;
  std::size_t bytes_;
  bool atEnd_;
  zoritest::GuardedBlock block_;
};

// The seven shapes of an image: samples of a pixel, those that are worked on, planes.
struct Shape {
  const char* name;
  int channels, processed, planes;
};
constexpr Shape shapes[] = {{"C1", 1, 1, 1},  {"C3", 3, 3, 1}, {"C4", 4, 4, 1},
                            {"AC4", 4, 3, 1}, {"P3", 1, 1, 3}, {"P4", 1, 1, 4}};

} // namespace resizetest
