// Convolution by summing products: every result is a sum over the taps of the smaller image, which stand turned by half
// a turn.
//
// Two output rows are worked at a time, in blocks of five vectors: each vector of samples serves two rows, each tap
// five vectors. Source rows come as floats, channel by channel, with zeros on both sides; rows beyond the image are
// left out.
#pragma once

#include "frame/layout.h"
#include "result_row.h"
#include "walk/pipeline.h"

#include <utility>

namespace zori {
namespace {

constexpr int lanes = Vec<float>::size;
constexpr int rowsAtOnce = 2, vectorsAtOnce = 5;
constexpr int lastVectors = 3; // of a block where so many are left
constexpr int wideRow = 32;    // taps from which on the rows of taps are summed apart
constexpr int mostSpread = 1024;

struct TapRows {
  const float* taps; // h rows of w, channel by channel
  int w, h;
  bool areSpread; // few taps stand once for each lane, which saves the spreading at every use

  static bool canBeSpread(int w, std::int64_t taps) { return w < wideRow && taps <= mostSpread; }
  int step() const { return areSpread ? lanes : 1; } // floats from one to the next
};

// f(0), ... f(N - 1) of numbers that are constants, so that arrays they choose from stay in registers.
template <class F, std::size_t... N> [[gnu::always_inline]] inline void callEach(F f, std::index_sequence<N...>)
{
  (f(std::integral_constant<int, N>{}), ...);
}
template <int N, class F> [[gnu::always_inline]] inline void forEachOf(F f)
{
  callEach(f, std::make_index_sequence<N>{});
}

// Of taps that are spread: where the samples lie that a block of results meets, as many for each source row as there
// are taps in a row, and the taps that the first of them meet.
struct MetSamples {
  static constexpr int most = mostSpread + wideRow;

  const float* first; // what places count from
  const std::ptrdiff_t* place;
  std::ptrdiff_t upper, both, lower; // so many of them belong to the first output row alone, to both, to the second
  const float* taps;                 // of the first output row; those of the second stand a row of `w` before
  std::ptrdiff_t w;
};

// Sums of a block of V vectors for R output rows, which go to R rows `step` bytes apart. All taps in one loop: rows of
// few would each end by a jump that is not foreseen.
template <int R, int V> [[gnu::noinline]] void sumSpread(const MetSamples& met, std::ptrdiff_t x, float* to, int step)
{
  static_assert(R <= 2);
  Vec<float> sum[R][V];
  forEachOf<R * V>([&](auto i) { sum[i / V][i % V] = zero<float>(); });
  const float *const samples = met.first + x, *tap = met.taps;
  const std::ptrdiff_t *place = met.place, above = met.w * lanes;
  const auto addTaps = [&](std::ptrdiff_t count, auto from, auto end) { // for output rows From .. To
    constexpr int From = decltype(from)::value, To = decltype(end)::value;
    for (const std::ptrdiff_t* const last = place + count; place < last; ++place, tap += lanes) {
      const float* const p = samples + *place;
      Vec<float> taps[R];
      forEachOf<To - From + 1>([&](auto q) { taps[From + q] = load<float>(tap - (From + q) * above); });
      forEachOf<V>([&](auto v) {
        const Vec<float> some = loadedOnce(load<float>(p + v * lanes));
        forEachOf<To - From + 1>([&](auto q) { sum[From + q][v] += taps[From + q] * some; });
      });
    }
  };
  constexpr std::integral_constant<int, 0> upper;
  constexpr std::integral_constant<int, R - 1> lower;
  if constexpr (R == 2) addTaps(met.upper, upper, upper);
  addTaps(met.both, upper, lower);
  if constexpr (R == 2) addTaps(met.lower, lower, lower);
  forEachOf<R * V>([&](auto i) { store(rowAt(to, step, i / V) + i % V * lanes, sum[i / V][i % V]); });
}

// The same of taps that stand once, row by row. The first output row begins at source row `first` of the window, a row
// of the image for 0 <= k < rows.
template <int R, int V, bool isWide>
[[gnu::noinline]] void sumBlock(const RowWindow<float>& window, std::ptrdiff_t x, int first, int rows,
                                const TapRows& kernel, float* to, int step)
{
  static_assert(R <= 2);
  const std::ptrdiff_t w = kernel.w;
  Vec<float> sum[R][V];
  for (int q = 0; q < R; ++q)
    for (int v = 0; v < V; ++v) {
      sum[q][v] = zero<float>();
      if (isWide) store(rowAt(to, step, q) + v * lanes, sum[q][v]);
    }

  // row k of the source for output rows From .. To
  const auto addRow = [&](int k, auto from, auto end) {
    constexpr int From = decltype(from)::value, To = decltype(end)::value;
    const float* p = window[k] + x;
    const float* const t = kernel.taps + (k - first - To) * w; // of To; those of From are a row further
    for (std::ptrdiff_t i = 0; i < w; ++i, ++p) {
      Vec<float> tap[R];
#pragma GCC unroll 2
      for (int q = From; q <= To; ++q) tap[q] = splat(t[(To - q) * w + i]);
#pragma GCC unroll 8
      for (int v = 0; v < V; ++v) {
        const Vec<float> samples = loadedOnce(load<float>(p + v * lanes));
#pragma GCC unroll 2
        for (int q = From; q <= To; ++q) sum[q][v] += tap[q] * samples;
      }
    }
    if constexpr (isWide)
      for (int q = From; q <= To; ++q)
        for (int v = 0; v < V; ++v) {
          float* const total = rowAt(to, step, q) + v * lanes;
          store(total, load<float>(total) + sum[q][v]);
          sum[q][v] = zero<float>();
        }
  };
  constexpr std::integral_constant<int, 0> upper;
  constexpr std::integral_constant<int, R - 1> lower;
  const int h = kernel.h, end = std::min(first + h + R - 1, rows);
  int k = std::max(first, 0);
  if (R == 2 && k == first) addRow(k++, upper, upper);
  for (const int both = std::min(first + h, end); k < both; ++k) addRow(k, upper, lower);
  if (R == 2 && k < end) addRow(k, lower, lower);
  if constexpr (!isWide)
    for (int q = 0; q < R; ++q)
      for (int v = 0; v < V; ++v) store(rowAt(to, step, q) + v * lanes, sum[q][v]);
}

// Result (0, 0) is the sum over the taps from source sample (originX, originY) on.
template <class T, Layout L> struct DirectConvolution {
  Rows<const T> source;
  int width, height;
  Rows<T> result;
  int resultWidth, resultHeight;
  int originX, originY;
  float factor;

  ZorStatus run(const TapRows& kernel) const
  {
    const std::int64_t vectors = (std::int64_t{resultWidth} + lanes - 1) / lanes + lastVectors - 1;
    const std::int64_t pitch = vectors * lanes + kernel.w - 1; // of a channel; the last block may hold one of results
    if (pitch > PTRDIFF_MAX / 16) return ZorErrAlloc;
    const DirectConvolution job = *this;
    const auto needed = [=](int unit) {
      const std::int64_t first = static_cast<std::int64_t>(unit) * rowsAtOnce + job.originY;
      const std::int64_t end = first + std::min(rowsAtOnce, job.resultHeight - unit * rowsAtOnce) + kernel.h - 1;
      return RowRange{static_cast<int>(std::max<std::int64_t>(first, 0)),
                      static_cast<int>(std::min<std::int64_t>(end, job.height))};
    };
    const long long taps = std::min(static_cast<long long>(kernel.w) * kernel.h, 1LL << 20);
    const TeamRule team =
      TeamRule::forWork(static_cast<long long>(resultWidth) * resultHeight * taps, processed<L> * picosecondsPerTap);
    return pipeRows<float>(
      team, Rounding::Nearest, (resultHeight - 1) / rowsAtOnce + 1,
      RowsBetween{pitch * processed<L>,
                  static_cast<int>(std::min<std::int64_t>(std::int64_t{kernel.h} + rowsAtOnce - 1, height)), 0},
      needed, [=](int y, float* to) { job.makeRow(y, to, static_cast<std::ptrdiff_t>(pitch)); },
      [=](int unit, const RowWindow<float>& window) {
        job.finishUnit(unit, window, needed(unit), kernel, static_cast<std::ptrdiff_t>(pitch));
      });
  }

private:
  static constexpr int picosecondsPerTap = 60;
  static constexpr bool isPlain = std::is_same_v<T, float> && channels<L> == 1;

  void makeRow(int y, float* to, std::ptrdiff_t pitch) const
  {
    const T* const from = source[y];
    const int before = -originX;
    for (int c = 0; c < processed<L>; ++c, to += pitch) {
      std::fill(to, to + before, 0.0f);
      float* const samples = to + before;
      if constexpr (isPlain) std::memcpy(samples, from, static_cast<std::size_t>(width) * sizeof(float));
      else
        for (std::ptrdiff_t x = 0; x < width; ++x) samples[x] = static_cast<float>(get<T>(from + x * channels<L> + c));
      std::fill(samples + width, to + pitch, 0.0f);
    }
  }

  // For `count` output rows, the first of which begins at row `first` of the window, of `rows` rows.
  static MetSamples metOf(const RowWindow<float>& window, int first, int count, int rows, const TapRows& kernel,
                          std::ptrdiff_t* places)
  {
    const int begin = std::max(first, 0), end = std::min(first + kernel.h + count - 1, rows);
    const float* const origin = window[0];
    std::ptrdiff_t* to = places;
    for (int k = begin; k < end; ++k)
      for (int i = 0; i < kernel.w; ++i) *to++ = window[k] - origin + i;
    const std::ptrdiff_t w = kernel.w;
    const int upper = count > 1 && first >= 0 && begin < end ? 1 : 0;
    const int both = std::max(std::min(first + kernel.h, end) - begin - upper, 0);
    return {
      origin, places, upper * w, both * w, (end - begin - upper - both) * w, kernel.taps + (begin - first) * w * lanes,
      w};
  }

  void finishUnit(int unit, const RowWindow<float>& window, RowRange range, TapRows kernel, std::ptrdiff_t pitch) const
  {
    constexpr int chunk = 8 * vectorsAtOnce * lanes;
    float sums[rowsAtOnce][chunk];
    T spare[chunk];
    const std::ptrdiff_t y = static_cast<std::ptrdiff_t>(unit) * rowsAtOnce;
    const int count = static_cast<int>(std::min<std::ptrdiff_t>(rowsAtOnce, resultHeight - y));
    const int first = static_cast<int>(y + originY - range.first), rows = range.end - range.first;
    std::ptrdiff_t places[MetSamples::most];
    MetSamples met = {};
    if (kernel.areSpread) met = metOf(window, first, count, rows, kernel, places);
    for (int c = 0; c < processed<L>; ++c) {
      for (std::ptrdiff_t x = 0; x < resultWidth; x += chunk) {
        const int n = static_cast<int>(std::min<std::ptrdiff_t>(chunk, resultWidth - x));
        int put = 0; // so many are where they belong
        for (int b = 0; b < n; b += vectorsAtOnce * lanes) {
          const bool isLast = n - b <= lastVectors * lanes;
          const int end = b + (isLast ? lastVectors : vectorsAtOnce) * lanes;
          float* to = sums[0] + b;
          int step = sizeof sums[0];
          if constexpr (isPlain)
            if (end <= n) {
              to = result[y] + x + b, step = result.step;
              put = end;
            }
          const auto sum = [&](auto atOnce, auto vectors) {
            constexpr int R = decltype(atOnce)::value, V = decltype(vectors)::value;
            const std::ptrdiff_t at = c * pitch + x + b;
            if (kernel.areSpread) return sumSpread<R, V>(met, at, to, step);
            if (kernel.w < wideRow) return sumBlock<R, V, false>(window, at, first, rows, kernel, to, step);
            sumBlock<R, V, true>(window, at, first, rows, kernel, to, step);
          };
          const auto sumRows = [&](auto vectors) {
            if (count == rowsAtOnce) sum(std::integral_constant<int, rowsAtOnce>{}, vectors);
            else sum(std::integral_constant<int, 1>{}, vectors);
          };
          if (isLast) sumRows(std::integral_constant<int, lastVectors>{});
          else sumRows(std::integral_constant<int, vectorsAtOnce>{});
        }
        for (int q = 0; q < count && put < n; ++q) {
          if (factor != 1)
            for (int i = 0; i < n; ++i) sums[q][i] *= factor;
          storeRow(sums[q] + put, result[y + q] + (x + put) * channels<L> + c, channels<L>, n - put, 0, spare);
        }
      }
      const std::ptrdiff_t floats = static_cast<std::ptrdiff_t>(kernel.w) * kernel.h * kernel.step();
      kernel.taps += floats;
      met.taps += floats;
    }
  }
};

} // namespace
} // namespace zori
