// Sums over the window of a template at every place of a tile: of the samples and of their squares.
//
// 8-bit samples under up to 33025 pixels: exact integers, whose order does not matter. Column sums slide down the tile,
// a window's sum is a difference of prefix sums along the row.
//
// All others: double precision in one fixed order. The first window is summed sample by sample; to the right, a window
// gains the entering column and loses the leaving one; further down, it gains a row and loses one. Squares of 32f
// samples are single precision, and so is the difference of the two that change places; integers are exact.
#pragma once

#include "frame/arena.h"
#include "tile_view.h"

#include <cmath>

namespace zori {
namespace {

// Which number of a window is wanted: the sum of squares, or the squares of what differs from the window's mean.
enum class WindowSum { Energy, Deviation };

template <class T> class WindowSums {
public:
  // Elements of doubles that a tile of so many columns needs.
  static long long memoryFor(int tileWidth) { return doubleRows * pitch(tileWidth); }

  // Windows of w x h; `columns` of them in a row, `rows` rows of them.
  WindowSums(const TileView<T>& view, int w, int h, int columns, int rows, WindowSum wanted, double* memory,
             int tileWidth, T* entering, T* leaving)
    : view_(view), w_(w), h_(h), columns_(columns), rows_(rows), samples_(columns + w - 1), wanted_(wanted),
      area_(static_cast<double>(w) * h),
      byIntegers_(sizeof(T) == 1 && static_cast<std::int64_t>(w) * h <= mostByIntegers), entering_(entering),
      leaving_(leaving)
  {
    const std::ptrdiff_t p = static_cast<std::ptrdiff_t>(pitch(tileWidth));
    for (int k = 0; k < doubleRows; ++k) row_[k] = memory + k * p;
  }

  // The sums of row y of windows, rows in turn from 0 on. There is room up to a multiple of 16.
  void row(std::int64_t y, float* sums)
  {
    if (byIntegers_) rowByIntegers(y, sums);
    else rowByDoubles(y, sums);
  }
  // Of the row that was last asked for, if deviations are wanted: the sums of the samples themselves.
  void sumsOfSamples(double* sums) const
  {
    const std::uint32_t* const s = reinterpret_cast<const std::uint32_t*>(row_[2]);
    for (int x = 0; x < columns_; ++x) sums[x] = byIntegers_ ? static_cast<std::int32_t>(s[x + w_] - s[x]) : row_[0][x];
  }

private:
  static constexpr std::int64_t mostByIntegers = 33025; // squares of 255 then fit 31 bits
  static constexpr int rowsAhead = 4, doubleRows = 2 + 2 * rowsAhead;
  static long long pitch(int tileWidth) { return (static_cast<long long>(tileWidth) + 1 + 15) / 16 * 16; }

  // ---- Integers ----

  void rowByIntegers(std::int64_t y, float* sums)
  {
    std::int32_t* const s = reinterpret_cast<std::int32_t*>(row_[0]);
    std::int32_t* const q = reinterpret_cast<std::int32_t*>(row_[1]);
    if (y == 0) {
      std::fill(s, s + samples_, 0);
      std::fill(q, q + samples_, 0);
      for (int j = 0; j < h_; ++j) addRow(view_.run(0, j, samples_, entering_), s, q, samples_);
    } else {
      slide(view_.run(0, y + h_ - 1, samples_, entering_), view_.run(0, y - 1, samples_, leaving_), s, q, samples_);
    }
    std::uint32_t* const sTo = reinterpret_cast<std::uint32_t*>(row_[2]);
    std::uint32_t* const qTo = reinterpret_cast<std::uint32_t*>(row_[3]);
    prefix(s, sTo, q, qTo, samples_);
    if (wanted_ == WindowSum::Energy) energies(qTo, qTo + w_, sums, columns_);
    else deviations(sTo, sTo + w_, qTo, qTo + w_, sums, columns_, area_);
  }

  [[gnu::noinline]] static void addRow(const T* in, std::int32_t* __restrict s, std::int32_t* __restrict q, int n)
  {
    for (int x = 0; x < n; ++x) {
      const int a = get<T>(in + x);
      s[x] += a;
      q[x] += a * a;
    }
  }
  [[gnu::noinline]] static void slide(const T* in, const T* out, std::int32_t* __restrict s, std::int32_t* __restrict q,
                                      int n)
  {
    for (int x = 0; x < n; ++x) {
      const int a = get<T>(in + x), b = get<T>(out + x);
      s[x] += a - b;
      q[x] += a * a - b * b;
    }
  }
  // to[x] is the sum of the first x; it may wrap, differences do not.
  [[gnu::noinline]] static void prefix(const std::int32_t* __restrict s, std::uint32_t* __restrict sTo,
                                       const std::int32_t* __restrict q, std::uint32_t* __restrict qTo, int n)
  {
    std::uint32_t a = 0, b = 0;
    for (int x = 0; x < n; ++x) {
      sTo[x] = a;
      qTo[x] = b;
      a += static_cast<std::uint32_t>(s[x]);
      b += static_cast<std::uint32_t>(q[x]);
    }
    sTo[n] = a;
    qTo[n] = b;
  }
  [[gnu::noinline]] static void energies(const std::uint32_t* q0, const std::uint32_t* q1, float* __restrict to, int n)
  {
    for (int x = 0; x < n; ++x) to[x] = static_cast<float>(static_cast<std::int32_t>(q1[x] - q0[x]));
  }
  // (N Q - S S) / N, the first part exact. Rows are filled up to whole vectors.
  [[gnu::noinline]] static void deviations(const std::uint32_t* s0, const std::uint32_t* s1, const std::uint32_t* q0,
                                           const std::uint32_t* q1, float* to, int n, double area)
  {
    const Vec<double> areas = splat(area), perArea = splat(1 / area);
    const auto deviation = [=](Vec<double> s, Vec<double> q) { return (areas * q - s * s) * perArea; };
    for (int x = 0; x < n; x += Vec<float>::size) {
      const auto s = load<std::int32_t>(s1 + x) - load<std::int32_t>(s0 + x);
      const auto q = load<std::int32_t>(q1 + x) - load<std::int32_t>(q0 + x);
      store(to + x, toFloat(deviation(toDoubleLow(s), toDoubleLow(q)), deviation(toDoubleHigh(s), toDoubleHigh(q))));
    }
  }

  // ---- Doubles ----

  static double square(T a)
  {
    if constexpr (std::is_floating_point_v<T>) return a * a;
    else return static_cast<double>(a) * a;
  }
  static double squareChange(T in, T out)
  {
    if constexpr (std::is_floating_point_v<T>) return in * in - out * out;
    else return static_cast<double>(in) * in - static_cast<double>(out) * out;
  }

  // Sums stand in rows 0 and 1; behind them, what the next rows of windows gain in samples and in squares.
  double* changeOfSamples(int k) { return row_[2 + k]; }
  double* changeOfSquares(int k) { return row_[2 + rowsAhead + k]; }
  bool hasSamples() const { return wanted_ == WindowSum::Deviation; }

  void rowByDoubles(std::int64_t y, float* sums)
  {
    double *const s = row_[0], *const q = row_[1];
    if (y == 0) {
      sumFirstRow(s, q);
    } else {
      const int ahead = static_cast<int>((y - 1) % rowsAhead);
      if (ahead == 0) {
        if (rows_ - y >= rowsAhead) formChanges<rowsAhead>(y);
        else
          for (int k = 0; k < rows_ - y; ++k) formChanges<1>(y + k, k);
      }
      if (hasSamples()) add(s, changeOfSamples(ahead), columns_);
      add(q, changeOfSquares(ahead), columns_);
    }
    wantedOf(s, q, sums);
  }

  void sumFirstRow(double* s, double* q)
  {
    double s0 = 0, q0 = 0, *const sChange = changeOfSamples(0), *const qChange = changeOfSquares(0);
    std::fill(sChange, sChange + columns_, 0.0);
    std::fill(qChange, qChange + columns_, 0.0);
    for (int j = 0; j < h_; ++j) {
      const T* const p = view_.run(0, j, samples_, entering_);
      for (int i = 0; i < w_; ++i) {
        const T a = get<T>(p + i);
        s0 += a;
        q0 += square(a);
      }
      addChanges(p + w_, p, sChange, qChange, columns_ - 1);
    }
    for (int x = 0; x < columns_; ++x) {
      s[x] = s0;
      q[x] = q0;
      s0 += sChange[x];
      q0 += qChange[x];
    }
  }

  // Of N rows of windows from y on, side by side: each is a chain of sums along the row.
  template <int N> void formChanges(std::int64_t y, int first = 0)
  {
    double *s[N], *q[N];
    for (int k = 0; k < N; ++k) {
      s[k] = changeOfSamples(first + k), q[k] = changeOfSquares(first + k);
      const T* const in = view_.run(0, y + k + h_ - 1, samples_, entering_);
      const T* const out = view_.run(0, y + k - 1, samples_, leaving_);
      std::fill(s[k], s[k] + samples_, 0.0);
      std::fill(q[k], q[k] + samples_, 0.0);
      addChanges(in, out, s[k], q[k], samples_);
    }
    if (hasSamples()) slideAlong(s, w_, columns_);
    slideAlong(q, w_, columns_);
  }
  // row[k][x] becomes the sum of w from there on.
  template <int N> [[gnu::noinline]] static void slideAlong(double* const (&row)[N], int w, int columns)
  {
    double sum[N] = {};
    for (int i = 0; i < w; ++i)
      for (int k = 0; k < N; ++k) sum[k] += row[k][i];
    for (int x = 0; x + 1 < columns; ++x)
      for (int k = 0; k < N; ++k) {
        const double was = row[k][x];
        row[k][x] = sum[k];
        sum[k] += row[k][x + w] - was;
      }
    for (int k = 0; k < N; ++k) row[k][columns - 1] = sum[k];
  }
  static void add(double* __restrict to, const double* from, int n)
  {
    for (int x = 0; x < n; ++x) to[x] += from[x];
  }

  [[gnu::noinline]] static void addChanges(const T* in, const T* out, double* __restrict s, double* __restrict q, int n)
  {
    for (int x = 0; x < n; ++x) {
      const T a = get<T>(in + x), b = get<T>(out + x);
      s[x] += static_cast<double>(a) - static_cast<double>(b);
      q[x] += squareChange(a, b);
    }
  }

  [[gnu::noinline]] void wantedOf(const double* s, const double* q, float* __restrict to) const
  {
    const int n = columns_;
    if (wanted_ == WindowSum::Energy)
      for (int x = 0; x < n; ++x) to[x] = static_cast<float>(q[x]);
    else if constexpr (std::is_floating_point_v<T>)
      for (int x = 0; x < n; ++x) to[x] = static_cast<float>(q[x] - s[x] * s[x] / area_);
    else
      for (int x = 0; x < n; ++x) to[x] = static_cast<float>((area_ * q[x] - s[x] * s[x]) / area_);
  }

  TileView<T> view_;
  int w_, h_, columns_, rows_, samples_;
  WindowSum wanted_;
  double area_;
  bool byIntegers_;
  T *entering_, *leaving_;
  double* row_[doubleRows];
};

} // namespace
} // namespace zori
