// Convolution by summing products: every result is a sum over the taps of the smaller image, which stand turned by half
// a turn.
//
// Three output rows are worked at a time, in blocks of three vectors: each vector of samples serves three rows, each
// tap three vectors. Source rows come as floats, channel by channel, with zeros on both sides; rows beyond the image
// are left out.
#pragma once

#include "frame/layout.h"
#include "result_row.h"
#include "walk/pipeline.h"

namespace zori {
namespace {

struct TapRows {
  const float* taps; // h rows of w, channel by channel
  int w, h;
  int spread; // floats that a tap takes: 1, or all lanes of a vector
};
// Few taps stand once for each lane, which saves the spreading at every use.
inline int spreadOf(std::int64_t taps) { return taps <= 1024 ? Vec<float>::size : 1; }

constexpr int rowsAtOnce = 3, vectorsAtOnce = 3;
constexpr int blockColumns = vectorsAtOnce * Vec<float>::size;
constexpr int wideRow = 32; // taps from which on the rows of taps are summed apart

// Sums of a block for `Rows` output rows, the first of which begins at source row `first` of the window, a row of the
// image for 0 <= k < rows. to: Rows rows, `pitch` apart.
template <int Rows, bool isSpread>
[[gnu::noinline]] void sumBlock(const RowWindow<float>& window, std::ptrdiff_t x, int first, int rows,
                                const TapRows& kernel, float* to, std::ptrdiff_t pitch)
{
  constexpr int size = Vec<float>::size;
  const int w = kernel.w, h = kernel.h;
  const bool isWide = w >= wideRow;
  Vec<float> sum[Rows][vectorsAtOnce], total[Rows][vectorsAtOnce];
  for (int q = 0; q < Rows; ++q)
    for (int v = 0; v < vectorsAtOnce; ++v) sum[q][v] = total[q][v] = zero<float>();

  // row k of the source for output rows From .. To
  const auto addRow = [&](int k, auto from, auto end) {
    constexpr int From = decltype(from)::value, To = decltype(end)::value;
    if (k < 0 || k >= rows) return;
    const float* p = window[k] + x;
    const float* t[Rows];
    for (int q = From; q <= To; ++q)
      t[q] = kernel.taps + static_cast<std::ptrdiff_t>(k - first - q) * w * (isSpread ? size : 1);
    for (int i = 0; i < w; ++i, ++p) {
      const Vec<float> a = load<float>(p), b = load<float>(p + size), c = load<float>(p + 2 * size);
#pragma GCC unroll 3
      for (int q = From; q <= To; ++q) {
        const Vec<float> tap = isSpread ? load<float>(t[q] + i * size) : splat(t[q][i]);
        sum[q][0] += tap * a;
        sum[q][1] += tap * b;
        sum[q][2] += tap * c;
      }
    }
    if (isWide)
      for (int q = From; q <= To; ++q)
        for (int v = 0; v < vectorsAtOnce; ++v) {
          total[q][v] += sum[q][v];
          sum[q][v] = zero<float>();
        }
  };
  constexpr std::integral_constant<int, 0> r0;
  if constexpr (Rows == 1) {
    for (int k = first; k < first + h; ++k) addRow(k, r0, r0);
  } else { // h is at least 3
    constexpr std::integral_constant<int, 1> r1;
    constexpr std::integral_constant<int, 2> r2;
    addRow(first, r0, r0);
    addRow(first + 1, r0, r1);
    for (int k = first + 2; k < first + h; ++k) addRow(k, r0, r2);
    addRow(first + h, r1, r2);
    addRow(first + h + 1, r2, r2);
  }
  for (int q = 0; q < Rows; ++q)
    for (int v = 0; v < vectorsAtOnce; ++v) store(to + q * pitch + v * size, isWide ? total[q][v] : sum[q][v]);
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
    const std::int64_t columns = (std::int64_t{resultWidth} + blockColumns - 1) / blockColumns * blockColumns;
    const std::int64_t pitch = columns + kernel.w - 1; // of a channel
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

  void makeRow(int y, float* to, std::ptrdiff_t pitch) const
  {
    const T* const from = source[y];
    const int before = -originX;
    for (int c = 0; c < processed<L>; ++c, to += pitch) {
      std::fill(to, to + before, 0.0f);
      float* const samples = to + before;
      for (std::ptrdiff_t x = 0; x < width; ++x) samples[x] = static_cast<float>(get<T>(from + x * channels<L> + c));
      std::fill(samples + width, to + pitch, 0.0f);
    }
  }

  void finishUnit(int unit, const RowWindow<float>& window, RowRange range, const TapRows& kernel,
                  std::ptrdiff_t pitch) const
  {
    constexpr int chunk = 8 * blockColumns;
    float sums[rowsAtOnce][chunk];
    T spare[chunk];
    const std::ptrdiff_t y = static_cast<std::ptrdiff_t>(unit) * rowsAtOnce;
    const int count = static_cast<int>(std::min<std::ptrdiff_t>(rowsAtOnce, resultHeight - y));
    const int first = static_cast<int>(y + originY - range.first), rows = range.end - range.first;
    TapRows taps = kernel;
    for (int c = 0; c < processed<L>;
         ++c, taps.taps += static_cast<std::ptrdiff_t>(kernel.w) * kernel.h * kernel.spread)
      for (std::ptrdiff_t x = 0; x < resultWidth; x += chunk) {
        const int n = static_cast<int>(std::min<std::ptrdiff_t>(chunk, resultWidth - x));
        for (int b = 0; b < n; b += blockColumns) {
          const std::ptrdiff_t at = c * pitch + x + b;
          const auto sum = [&](auto atOnce, int q) {
            constexpr int n = decltype(atOnce)::value;
            const auto f = kernel.spread == 1 ? sumBlock<n, false> : sumBlock<n, true>;
            f(window, at, first + q, rows, taps, sums[q] + b, chunk);
          };
          if (count == rowsAtOnce && kernel.h >= rowsAtOnce) sum(std::integral_constant<int, rowsAtOnce>{}, 0);
          else
            for (int q = 0; q < count; ++q) sum(std::integral_constant<int, 1>{}, q);
        }
        for (int q = 0; q < count; ++q) {
          if (factor != 1)
            for (int i = 0; i < n; ++i) sums[q][i] *= factor;
          storeRow(sums[q], result[y + q] + x * channels<L> + c, channels<L>, n, 0, spare);
        }
      }
  }
};

} // namespace
} // namespace zori
