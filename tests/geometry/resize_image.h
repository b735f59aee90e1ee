// Images of the resize tests: memory that ends at a page without access, or starts at one.
#pragma once

#include "support/image.h"
#include "support/numbers.h"
#include "zori/types.h"

#include <gtest/gtest.h>
#include <omp.h>
#include <xmmintrin.h>

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
    zoritest::nextNoise(state_);
    return state_ >> 8;
  }
  int below(int n) { return static_cast<int>(next() % static_cast<unsigned>(n)); }
  int between(int low, int high) { return low + below(high - low + 1); }
  double real(double low, double high) { return low + (high - low) * (next() / double(1 << 24)); }

private:
  unsigned state_;
};

// What a call finds: some team and some rounding field, which must be as before when it returns.
class Surroundings {
public:
  explicit Surroundings(unsigned seed) : threads_(omp_get_max_threads()), word_(_mm_getcsr()), field_(seed % 4 << 13)
  {
    constexpr int teams[] = {1, 2, 7};
    omp_set_num_threads(teams[seed / 4 % 3]);
    _mm_setcsr((word_ & ~0x6000u) | field_);
  }
  ~Surroundings()
  {
    const unsigned after = _mm_getcsr() & 0x6000u;
    _mm_setcsr(word_);
    omp_set_num_threads(threads_);
    EXPECT_EQ(after, field_);
  }
  Surroundings(const Surroundings&) = delete;
  Surroundings& operator=(const Surroundings&) = delete;

private:
  int threads_;
  unsigned word_, field_;
};

// Rows lie `gap` bytes apart; what lies between them is filled too, and must stay.
template <class T> class Image : public zoritest::GuardedRows<T> {
public:
  Image(ZorImgSize size, int channels, int gap, unsigned seed)
    : zoritest::GuardedRows<T>(size.width * channels, size.height, gap, seed % 3 != 0), size_(size), channels_(channels)
  {
    Random random(seed);
    this->fill([&] { return random.next(); }, [&] { return value(random); });
  }

  T* data() { return this->rows(); }
  const T* data() const { return this->rows(); }
  ZorImgSize size() const { return size_; }
  int channels() const { return channels_; }
  T get(int y, int sample) const { return this->sample(y, sample); }
  T get(int x, int y, int c) const { return this->sample(y, x * channels_ + c); }
  void put(int y, int sample, T x) { this->putSample(y, sample, x); }
  void put(int x, int y, int c, T v) { this->putSample(y, x * channels_ + c, v); }

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

  ZorImgSize size_;
  int channels_;
};

// The seven shapes of an image: samples of a pixel, those that are worked on, planes.
struct Shape {
  const char* name;
  int channels, processed, planes;
};
constexpr Shape shapes[] = {{"C1", 1, 1, 1},  {"C3", 3, 3, 1}, {"C4", 4, 4, 1},
                            {"AC4", 4, 3, 1}, {"P3", 1, 1, 3}, {"P4", 1, 1, 4}};

} // namespace resizetest
