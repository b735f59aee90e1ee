// Sums of products of nearly flat windows, exactly, for samples that are integers.
//
// What comes out of a transform is off by a share of everything its tile holds, and a window with hardly any contrast
// shows that. Its sum of products is formed from the samples that are not m, the value that nearly all of it has.
// Windows side by side are summed at once: each sample that is not m serves all of them that hold it.
//
// Of 8 bits, m is the rounded mean. With V the squares of what differs from the mean, at most 2 V samples are not m, so
// that all windows of a small V are worth it. Of 16 bits, m is what most of nine samples are, and windows in which many
// samples are not m stay as they are.
#pragma once

#include "tile_view.h"

namespace zori {
namespace {

// Windows with a V below this share of the squares in the tiles of a pair are formed exactly. Errors of transforms,
// up to 6e-8 * |tiles| * |t'| in what was measured, then are up to 1.3e-4 of sqrt(V) * |t'|.
constexpr double nearlyFlatShare = 1.0 / (1 << 22);

// A template for sums from the right to the left: each row turned round, with zeros behind it.
struct TurnedTaps {
  const std::int32_t* taps;
  int w, h;
  double sum; // of all taps

  static constexpr int zeros = 8;
  static_assert(Vec<std::int32_t>::size <= zeros);
  static long long memoryFor(std::int64_t w, std::int64_t h) { return (w + zeros) * h; }
  const std::int32_t* row(int y) const { return taps + static_cast<std::ptrdiff_t>(y) * (w + zeros); }
};

// Working memory: as many as windows in a row, and 8 more.
struct NearlyFlatMemory {
  double* totals;
  std::int32_t* sums;
};

template <class T> class NearlyFlatWindows {
public:
  // Those of a tile with 0 < V < bound.
  NearlyFlatWindows(const TileView<T>& view, const TurnedTaps& taps, NearlyFlatMemory memory, T* spare, float bound)
    : view_(view), taps_(taps), area_(static_cast<double>(taps.w) * taps.h), memory_(memory), spare_(spare),
      bound_(bound)
  {}

  float bound() const { return bound_; }

  // Row y of windows: results[x] becomes the sum of products with the template without its mean wherever a window is
  // nearly flat. samples: the sums of the windows' samples.
  [[gnu::noinline]] void mend(std::int64_t y, const float* deviations, const double* samples, int windows,
                              float* results) const
  {
    const UpperHalvesCleared atTheEnd;
    for (int x = next(deviations, 0, windows); x < windows;) {
      const auto belongs = [&, first = valueOf(samples[x])](int k) {
        return isNearlyFlat(deviations[k]) && (isWide ? k - x < taps_.w : valueOf(samples[k]) == first);
      };
      int end = x + 1;
      while (end < windows && belongs(end)) ++end;
      int m = valueOf(samples[x]);
      if ((!isWide || findMost(x, y, end - x, m)) && sumProducts(x, y, end - x, m))
        for (int i = x; i < end; ++i)
          results[i] =
            static_cast<float>((area_ * memory_.totals[i - x] - taps_.sum * (samples[i] - area_ * m)) / area_);
      x = next(deviations, end, windows);
    }
  }

private:
  static constexpr bool isWide = sizeof(T) > 1; // samples of 16 bits

  int valueOf(double sum) const { return static_cast<int>(sum / area_ + 256.5) - 256; } // the mean, rounded

  bool isNearlyFlat(float deviation) const { return deviation > 0 && deviation < bound_; }
  // The next window from x on that is nearly flat; rows are filled up to whole vectors.
  int next(const float* deviations, int x, int windows) const
  {
    constexpr int size = Vec<float>::size;
    for (; x < windows && x % size != 0; ++x)
      if (isNearlyFlat(deviations[x])) return x;
    const Vec<float> most = splat(bound_);
    for (; x < windows; x += size) {
      const Vec<float> v = loadAligned<float>(deviations + x);
      const int found = moveMask(less(v, most) & less(zero<float>(), v));
      if (found) return std::min(windows, x + __builtin_ctz(static_cast<unsigned>(found)));
    }
    return windows;
  }

  // The most frequent of nine samples of the windows from (x, y) on. False: it is not that frequent.
  bool findMost(std::int64_t x, std::int64_t y, int windows, int& m) const
  {
    constexpr int across = 3, least = 6;
    const int columns = windows + taps_.w - 1;
    T sample[across * across];
    for (int j = 0; j < across; ++j) {
      const T* const p = view_.run(x, y + (2 * j + 1) * std::int64_t{taps_.h} / (2 * across), columns, spare_);
      for (int i = 0; i < across; ++i)
        sample[across * j + i] = get<T>(p + (2 * i + 1) * std::int64_t{columns} / (2 * across));
    }
    for (const T a : sample)
      if (std::count(sample, sample + across * across, a) >= least) {
        m = a;
        return true;
      }
    return false;
  }

  // totals[i] = the sum of (sample - m) * tap over window (x + i, y). False: too many samples are not m.
  [[gnu::noinline]] bool sumProducts(std::int64_t x, std::int64_t y, int windows, int m) const
  {
    const UpperHalvesCleared atTheEnd;
    std::fill(memory_.sums, memory_.sums + windows, 0);
    std::fill(memory_.totals, memory_.totals + windows, 0.0);
    const int columns = windows + taps_.w - 1;
    const std::int64_t mostUnlike = isWide ? std::int64_t{columns} * taps_.h / 16 : INT64_MAX;
    const Vec<T> flat = splat(static_cast<T>(m));
    std::int64_t unlike = 0;
    std::int32_t held = 0;
    for (int j = 0; j < taps_.h; ++j) {
      const T* const p = view_.run(x, y + j, columns, spare_);
      const std::int32_t* const taps = taps_.row(j);
      const auto add = [&](int i) {
        const int difference = static_cast<int>(get<T>(p + i)) - m;
        ++unlike;
        if constexpr (isWide) {
          addWideProducts(i, difference, taps, windows);
        } else {
          constexpr std::int32_t most = INT32_MAX / 255 - 255; // that differences may add up to
          if (held > most) putAway(windows), held = 0;
          held += difference < 0 ? -difference : difference;
          addProducts(i, difference, taps, windows);
        }
      };
      int i = 0;
      for (; i + Vec<T>::size <= columns; i += Vec<T>::size) {
        const auto alike = as<std::uint8_t>(equal(load<T>(p + i), flat));
        std::uint32_t others = static_cast<std::uint32_t>(moveMask(alike) ^ fullMask<std::uint8_t>);
        while (others != 0) {
          const int lane = __builtin_ctz(others) / static_cast<int>(sizeof(T));
          add(i + lane);
          others &= ~(((1u << sizeof(T)) - 1) << lane * sizeof(T));
        }
      }
      for (; i < columns; ++i)
        if (get<T>(p + i) != static_cast<T>(m)) add(i);
      if (unlike > mostUnlike) return false;
    }
    if (!isWide) putAway(windows);
    return true;
  }

  // The sample in column i meets tap w - 1 - (i - x) of a turned row in window x.
  struct Meeting {
    int first, end, tap;
    Meeting(int i, int w, int windows)
      : first(std::max(0, i - w + 1)), end(std::min(windows, i + 1)), tap(w - 1 - i + first)
    {}
  };
  void addProducts(int i, int difference, const std::int32_t* taps, int windows) const
  {
    using Lanes = Vec<std::int32_t>;
    const Meeting at(i, taps_.w, windows);
    const auto factor = as<std::int16_t>(splat<std::int32_t>(difference & 0xffff));
    const std::int32_t* tap = taps + at.tap;
    for (int k = at.first; k < at.end; k += Lanes::size, tap += Lanes::size)
      store(memory_.sums + k,
            load<std::int32_t>(memory_.sums + k) + mulAddPairs(as<std::int16_t>(load<std::int32_t>(tap)), factor));
  }
  void addWideProducts(int i, double difference, const std::int32_t* taps, int windows) const
  {
    const Meeting at(i, taps_.w, windows);
    const std::int32_t* tap = taps + at.tap;
    double* __restrict const to = memory_.totals;
    for (int k = at.first; k < at.end; ++k) to[k] += difference * *tap++;
  }
  void putAway(int windows) const
  {
    for (int i = 0; i < windows; ++i) {
      memory_.totals[i] += memory_.sums[i];
      memory_.sums[i] = 0;
    }
  }

  const TileView<T>& view_;
  const TurnedTaps& taps_;
  double area_;
  NearlyFlatMemory memory_;
  T* spare_;
  float bound_;
};

} // namespace
} // namespace zori
