// Sums over the window of a template at every place of a tile: of the samples and of their squares.
//
// 8-bit samples under up to 33025 pixels: exact integers, whose order does not matter. What a window gains on the way
// down is a difference of what the columns gain, summed along the row.
//
// All others: chains of sums in one fixed order. The first window is summed sample by sample; to the right, a window
// gains the entering column and loses the leaving one; further down, it gains a row and loses one. Sums of integers are
// 64-bit integers, and exact; those of 32f doubles, where squares are single precision, and so is the difference of the
// two that change places.
#pragma once

#include "frame/arena.h"
#include "tile_view.h"

#include <cmath>

namespace zori {
namespace {

// Which number of a window is wanted: the sum of squares, or the squares of what differs from the window's mean.
enum class WindowSum { Energy, Deviation };

// All lanes of 16 bytes, widened, in one vector or in two: f(number of the first lane, vector).
template <class T, class F> inline void forEachWidened(Vec<T, 16> a, F f)
{
#if ZORI_VECTOR_BYTES == 32
  f(0, widened(a));
#else
  f(0, widenLow(a));
  f(Vec<WiderT<T>>::size, widenHigh(a));
#endif
}

// Sums of windows of w columns, of integers, from a row of them. They gain on the way what leads to them from the row
// above: `gains` are the changes of the first columns, up to and with each.
struct IntegersThatGain {
  std::int32_t* sums;
  const std::int32_t* gains;
  int w;
  [[gnu::always_inline]] Vec<std::int32_t> operator()(std::ptrdiff_t x) const
  {
    const auto sum =
      loadAligned<std::int32_t>(sums + x) + (load<std::int32_t>(gains + x + w - 1) - load<std::int32_t>(gains + x - 1));
    storeAligned(sums + x, sum);
    return sum;
  }
};
// The same, of sums that stand already.
struct ReadyIntegers {
  const std::int32_t* sums;
  Vec<std::int32_t> operator()(std::ptrdiff_t x) const { return loadAligned<std::int32_t>(sums + x); }
};
template <class Sums> struct EnergiesOfWindows {
  Sums q;
  [[gnu::always_inline]] Vec<float> operator()(std::ptrdiff_t x) const { return toFloat(q(x)); }
};
// (N Q - S S) / N, the first part exact.
template <class Sums> struct DeviationsOfWindows {
  Sums s, q;
  double area;
  [[gnu::always_inline]] Vec<float> operator()(std::ptrdiff_t x) const
  {
    const Vec<double> areas = splat(area), perArea = splat(1 / area);
    const auto deviation = [=](Vec<double> s, Vec<double> q) { return (areas * q - s * s) * perArea; };
    const auto sum = s(x), squares = q(x);
    return toFloat(deviation(toDoubleLow(sum), toDoubleLow(squares)),
                   deviation(toDoubleHigh(sum), toDoubleHigh(squares)));
  }
};

// The numbers of windows of floats, whose sums gain on the way what leads to them from the row above; asked for in
// turn.
struct SumsThatGain {
  double* sums;
  const double* gains;
  template <class F> [[gnu::always_inline]] Vec<float> operator()(std::ptrdiff_t x, F number) const
  {
    constexpr int size = Vec<double>::size;
    const auto low = loadAligned<double>(sums + x) + loadAligned<double>(gains + x);
    const auto high = loadAligned<double>(sums + x + size) + loadAligned<double>(gains + x + size);
    storeAligned(sums + x, low);
    storeAligned(sums + x + size, high);
    return number(low, high);
  }
};
struct GainingEnergies {
  SumsThatGain q;
  [[gnu::always_inline]] Vec<float> operator()(std::ptrdiff_t x) const
  {
    return q(x, [](Vec<double> low, Vec<double> high) { return toFloat(low, high); });
  }
};
struct GainingDeviations {
  SumsThatGain s, q;
  double area;
  [[gnu::always_inline]] Vec<float> operator()(std::ptrdiff_t x) const
  {
    const Vec<double> areas = splat(area);
    return s(x, [&](Vec<double> sLow, Vec<double> sHigh) {
      return q(x, [&](Vec<double> qLow, Vec<double> qHigh) {
        return toFloat(qLow - sLow * sLow / areas, qHigh - sHigh * sHigh / areas);
      });
    });
  }
};

template <class T> class WindowSums {
public:
  // Elements of doubles that a tile of so many columns needs.
  static long long memoryFor(int tileWidth) { return doubleRows * pitch(tileWidth); }

  // Windows of w x h; `columns` of them in a row, `rows` rows of them. Two spare rows of samples each, so far apart.
  WindowSums(const TileView<T>& view, int w, int h, int columns, int rows, WindowSum wanted, double* memory,
             int tileWidth, T* entering, T* leaving, std::ptrdiff_t spareApart)
    : view_(view), w_(w), h_(h), columns_(columns), rows_(rows), samples_(columns + w - 1), wanted_(wanted),
      area_(static_cast<double>(w) * h),
      byIntegers_(sizeof(T) == 1 && static_cast<std::int64_t>(w) * h <= mostByIntegers), entering_(entering),
      leaving_(leaving), spareApart_(spareApart)
  {
    const std::ptrdiff_t p = static_cast<std::ptrdiff_t>(pitch(tileWidth));
    for (int k = 0; k < doubleRows; ++k) row_[k] = memory + k * p;
  }

  // Goes to row y of windows, rows in turn from 0 on.
  void goTo(std::int64_t y)
  {
    if constexpr (sizeof(T) == 1)
      if (byIntegers_) return goToByIntegers(y);
    goToByChains(y);
  }
  // What is wanted of this row. There is room up to a multiple of 16.
  void numbers(float* to) const
  {
    const auto put = [=](const auto& windows) {
      for (int x = 0; x < columns_; x += Vec<float>::size) storeAligned(to + x, windows(x));
    };
    if (!byIntegers_) wantedOf(chain(0), chain(1), to);
    else withWanted(ReadyIntegers{integers(0)}, ReadyIntegers{integers(1)}, put);
  }
  bool byIntegers() const { return byIntegers_; }
  // Instead of goTo(y) and numbers(), behind the first row, of integers if byIntegers() and of floats: f of what gives
  // them vector by vector, asked for in turn.
  template <class F> bool goToWith(std::int64_t y, F f)
  {
    if constexpr (sizeof(T) == 1) {
      const int k = bringIntegerGains(y);
      return withWanted(gaining(0, k), gaining(1, k), f);
    } else {
      const int ahead = bringGains(y);
      const SumsThatGain q = {chain(1), changeOfSquares(ahead)};
      if (wanted_ == WindowSum::Energy) return f(GainingEnergies{q});
      return f(GainingDeviations{{chain(0), changeOfSamples(ahead)}, q, area_});
    }
  }
  // Of this row, if deviations are wanted: the sums of the samples themselves.
  void sumsOfSamples(double* sums) const
  {
    if (byIntegers_)
      for (int x = 0; x < columns_; ++x) sums[x] = integers(0)[x];
    else
      for (int x = 0; x < columns_; ++x) sums[x] = static_cast<double>(chain(0)[x]);
  }

private:
  static constexpr std::int64_t mostByIntegers = 33025; // squares of 255 then fit 31 bits
  static constexpr int rowsAhead = 4, doubleRows = 2 + 2 * rowsAhead;
  // whole vectors may be read behind the last sample
  static long long pitch(int tileWidth) { return (static_cast<long long>(tileWidth) + 17 + 15) / 16 * 16; }

  // ---- Integers ----

  // Sums of windows stand in rows 0 and 1. The changes that lead to the next rows are summed along the row, as many
  // rows at a time as a vector has 16 bytes, and so many rows ahead: what has just been stored is slow to load at other
  // places.
  static constexpr int gainsAtOnce = vectorBytes / 16, gainsAhead = 2 * gainsAtOnce;
  static_assert(2 + 2 * gainsAhead <= doubleRows);
  static constexpr int inFront = 16; // of a row of changes, the last of them 0

  template <class P> struct SideBySide {
    P row[gainsAtOnce];
    P operator[](int i) const { return row[i]; }
    P& operator[](int i) { return row[i]; }
  };
  using RowsOfSamples = SideBySide<const T*>;
  using RowsOfGains = SideBySide<std::int32_t*>;

  std::int32_t* integers(int k) const { return reinterpret_cast<std::int32_t*>(row_[k]); }
  std::int32_t* gains(int k, int ahead) const { return integers(2 + 2 * ahead + k) + inFront; }
  IntegersThatGain gaining(int k, int ahead) const { return {integers(k), gains(k, ahead), w_}; }
  template <class Sums, class F> auto withWanted(const Sums& s, const Sums& q, F f) const
  {
    if (wanted_ == WindowSum::Energy) return f(EnergiesOfWindows<Sums>{q});
    return f(DeviationsOfWindows<Sums>{s, q, area_});
  }

  void goToByIntegers(std::int64_t y)
  {
    if (y == 0) return sumFirstWindows();
    const int ahead = bringIntegerGains(y);
    for (int x = 0; x < columns_; x += Vec<std::int32_t>::size) gaining(0, ahead)(x), gaining(1, ahead)(x);
  }
  void sumFirstWindows()
  {
    std::int32_t *const s = integers(2), *const q = integers(3); // of columns
    const int n = (samples_ + 15) / 16 * 16;
    std::fill(s, s + n, 0);
    std::fill(q, q + n, 0);
    for (int j = 0; j < h_; j += 2) {
      const T* const first = view_.run(0, j, samples_, entering_);
      if (j + 1 < h_) addRows(first, view_.run(0, j + 1, samples_, leaving_), s, q, samples_);
      else addRow(first, s, q, 0, samples_);
    }
    const auto sumAlong = [=](const std::int32_t* columns, std::int32_t* to) {
      std::int32_t sum = 0;
      for (int i = 0; i < w_; ++i) sum += columns[i];
      for (int x = 0; x < columns_; ++x) {
        to[x] = sum;
        if (x + 1 < columns_) sum += columns[x + w_] - columns[x];
      }
    };
    sumAlong(s, integers(0));
    sumAlong(q, integers(1));
    formIntegerGains(1);
  }
  // Where among those ahead the changes stand that lead to row y of windows.
  int bringIntegerGains(std::int64_t y)
  {
    const int k = static_cast<int>((y - 1) % gainsAhead);
    if (k % gainsAtOnce == 0) formIntegerGains(y + gainsAtOnce);
    return k;
  }
  void formIntegerGains(std::int64_t y)
  {
    if (y >= rows_) return;
    const int k = static_cast<int>((y - 1) % gainsAhead);
    RowsOfGains s, q;
    RowsOfSamples in, out;
    for (int i = 0; i < gainsAtOnce; ++i) {
      const std::int64_t row = std::min<std::int64_t>(y + i, rows_ - 1);
      in[i] = view_.run(0, row + h_ - 1, samples_, entering_ + i * spareApart_);
      out[i] = view_.run(0, row - 1, samples_, leaving_ + i * spareApart_);
      s[i] = gains(0, k + i), q[i] = gains(1, k + i);
      s[i][-1] = q[i][-1] = 0;
    }
    sumChanges(in, out, s, q, samples_);
  }

  [[gnu::noinline]] static void addRow(const T* in, std::int32_t* s, std::int32_t* q, int x, int n)
  {
    for (; x < n; ++x) {
      const int a = get<T>(in + x);
      s[x] += a;
      q[x] += a * a;
    }
  }
  [[gnu::noinline]] static void addRows(const T* first, const T* second, std::int32_t* s, std::int32_t* q, int n)
  {
    const auto ones = splat<std::int16_t>(1);
    int x = 0;
    for (; x + 8 <= n; x += 8)
      forEachWidened(interleaveLow(loadLow8<T>(first + x), loadLow8<T>(second + x)), [&](int lane, auto widened) {
        const auto pairs = as<std::int16_t>(widened);
        const int at = x + lane / 2;
        storeAligned(s + at, loadAligned<std::int32_t>(s + at) + mulAddPairs(pairs, ones));
        storeAligned(q + at, loadAligned<std::int32_t>(q + at) + mulAddPairs(pairs, pairs));
      });
    addRow(first, s, q, x, n);
    addRow(second, s, q, x, n);
  }
  // What columns gain where one sample enters and another leaves, in samples and in squares, summed along the row up to
  // and with each; of so many rows side by side, one each 16 bytes of a vector.
  [[gnu::noinline]] static void sumChanges(const RowsOfSamples inRows, const RowsOfSamples outRows,
                                           const RowsOfGains sRows, const RowsOfGains qRows, int n)
  {
    const auto in = inRows, out = outRows; // copies that nobody else can see, so that they stay in registers
    const auto s = sRows, q = qRows;
    using Sums = Vec<std::int32_t>;
    const auto second = as<std::int16_t>(splat<std::int32_t>(-0x10000)), gain = as<std::int16_t>(splat(-0xffff));
    const auto samples = [](const RowsOfSamples& row, int x) { return as<std::int16_t>(eightOfEach(row, x)); };
    const auto store = [](const RowsOfGains& to, int x, Sums sums) {
      storeAligned(to[0] + x, sixteenBytes<0>(sums));
      if constexpr (gainsAtOnce == 2) storeAligned(to[1] + x, sixteenBytes<gainsAtOnce - 1>(sums));
    };
    const auto along = [](Sums a, Sums& before) {
      a += bytesUpLocal<4>(a);
      a += bytesUpLocal<8>(a);
      a += before;
      before = shuffleLocal<3, 3, 3, 3>(a);
      return a;
    };
    Sums sBefore = zero<std::int32_t>(), qBefore = sBefore;
    int x = 0;
    for (; x + 8 <= n; x += 8) {
      const auto entering = samples(in, x), leaving = samples(out, x);
      const auto put = [&](Vec<std::int16_t> pairs, int at) {
        store(s, at, along(mulAddPairs(pairs, gain), sBefore));
        store(q, at, along(mulAddPairs(pairs, (pairs ^ second) - second), qBefore));
      };
      put(interleaveLowLocal(entering, leaving), x);
      put(interleaveHighLocal(entering, leaving), x + 4);
    }
    for (int i = 0; i < gainsAtOnce; ++i)
      for (int k = x; k < n; ++k) {
        const int a = get<T>(in[i] + k), b = get<T>(out[i] + k);
        s[i][k] = s[i][k - 1] + (a - b);
        q[i][k] = static_cast<std::int32_t>(static_cast<std::uint32_t>(q[i][k - 1]) +
                                            static_cast<std::uint32_t>(a * a - b * b)); // differences do not wrap
      }
  }
  // Eight samples of each row, widened.
  static auto eightOfEach(const RowsOfSamples& row, int x)
  {
    const auto first = loadLow8<T>(row[0] + x);
#if ZORI_VECTOR_BYTES == 32
    return widened(as<T>(interleaveLow(as<std::uint64_t>(first), as<std::uint64_t>(loadLow8<T>(row[1] + x)))));
#else
    return widenLow(first);
#endif
  }

  // ---- Chains ----

  using Sum = std::conditional_t<std::is_integral_v<T>, std::int64_t, double>;
  static_assert(sizeof(Sum) == sizeof(double));

  Sum* chain(int k) const { return reinterpret_cast<Sum*>(row_[k]); }
  // Squares of integers fit 32 bits without a sign.
  static auto square(T a)
  {
    if constexpr (std::is_floating_point_v<T>) return a * a;
    else return static_cast<std::uint32_t>(std::int32_t{a}) * static_cast<std::uint32_t>(std::int32_t{a});
  }
  static Sum squareChange(T in, T out)
  {
    if constexpr (std::is_floating_point_v<T>) return in * in - out * out;
    else return static_cast<Sum>(square(in)) - static_cast<Sum>(square(out));
  }

  // Sums stand in rows 0 and 1; behind them, what the next rows of windows gain in samples and in squares.
  Sum* changeOfSamples(int k) const { return chain(2 + k); }
  Sum* changeOfSquares(int k) const { return chain(2 + rowsAhead + k); }
  bool hasSamples() const { return wanted_ == WindowSum::Deviation; }

  void goToByChains(std::int64_t y)
  {
    if (y == 0) return sumFirstRow(chain(0), chain(1));
    const int ahead = bringGains(y);
    if (hasSamples()) add(chain(0), changeOfSamples(ahead), columns_);
    add(chain(1), changeOfSquares(ahead), columns_);
  }
  // Where among those ahead the changes stand that lead to row y of windows.
  int bringGains(std::int64_t y)
  {
    const int ahead = static_cast<int>((y - 1) % rowsAhead);
    if (ahead == 0) {
      if (rows_ - y >= rowsAhead) formChangesOfRows<rowsAhead>(y);
      else
        for (int k = 0; k < rows_ - y; ++k) formChangesOfRows<1>(y + k, k);
    }
    return ahead;
  }

  void sumFirstRow(Sum* s, Sum* q)
  {
    Sum s0 = 0, q0 = 0, *const sChange = changeOfSamples(0), *const qChange = changeOfSquares(0);
    std::fill(sChange, sChange + columns_, Sum(0));
    std::fill(qChange, qChange + columns_, Sum(0));
    for (int j = 0; j < h_; ++j) {
      const T* const p = view_.run(0, j, samples_, entering_);
      for (int i = 0; i < w_; ++i) {
        const T a = get<T>(p + i);
        s0 += a;
        q0 += square(a);
      }
      formChanges<true>(p + w_, p, sChange, qChange, columns_ - 1);
    }
    for (int x = 0; x < columns_; ++x) {
      s[x] = s0;
      q[x] = q0;
      s0 += sChange[x];
      q0 += qChange[x];
    }
  }

  // Of N rows of windows from y on, side by side: each is a chain of sums along the row.
  template <int N> void formChangesOfRows(std::int64_t y, int first = 0)
  {
    Sum *s[N], *q[N];
    for (int k = 0; k < N; ++k) {
      s[k] = changeOfSamples(first + k), q[k] = changeOfSquares(first + k);
      const T* const in = view_.run(0, y + k + h_ - 1, samples_, entering_);
      const T* const out = view_.run(0, y + k - 1, samples_, leaving_);
      formChanges<false>(in, out, s[k], q[k], samples_);
    }
    if (hasSamples()) slideAlong(s, w_, columns_);
    slideAlong(q, w_, columns_);
  }
  // row[k][x] becomes the sum of w from there on.
  template <int N> [[gnu::noinline]] static void slideAlong(Sum* const (&row)[N], int w, int columns)
  {
    Sum sum[N] = {};
    for (int i = 0; i < w; ++i)
      for (int k = 0; k < N; ++k) sum[k] += row[k][i];
    for (int x = 0; x + 1 < columns; ++x)
      for (int k = 0; k < N; ++k) {
        const Sum was = row[k][x];
        row[k][x] = sum[k];
        sum[k] += row[k][x + w] - was;
      }
    for (int k = 0; k < N; ++k) row[k][columns - 1] = sum[k];
  }
  static void add(Sum* __restrict to, const Sum* from, int n)
  {
    for (int x = 0; x < n; ++x) to[x] += from[x];
  }

  // What columns gain in samples, if they are wanted, and in squares where one sample enters and another leaves; added
  // to what stands there, or put there.
  template <bool adds> void formChanges(const T* in, const T* out, Sum* s, Sum* q, int n) const
  {
    if (hasSamples()) changes<adds, true>(in, out, s, q, n);
    else changes<adds, false>(in, out, s, q, n);
  }
  template <bool adds, bool hasSamples>
  [[gnu::noinline]] static void changes(const T* in, const T* out, Sum* __restrict s, Sum* __restrict q, int n)
  {
    const UpperHalvesCleared atTheEnd;
    int x = 0;
    if constexpr (std::is_floating_point_v<T>)
      for (; x + Vec<float>::size <= n; x += Vec<float>::size) {
        const auto put = [x](double* to, Vec<double> low, Vec<double> high) {
          constexpr int size = Vec<double>::size;
          storeAligned(to + x, adds ? loadAligned<double>(to + x) + low : low);
          storeAligned(to + x + size, adds ? loadAligned<double>(to + x + size) + high : high);
        };
        const Vec<float> a = load<float>(in + x), b = load<float>(out + x), squares = a * a - b * b;
        if constexpr (hasSamples) put(s, toDoubleLow(a) - toDoubleLow(b), toDoubleHigh(a) - toDoubleHigh(b));
        put(q, toDoubleLow(squares), toDoubleHigh(squares));
      }
    for (; x < n; ++x) {
      const T a = get<T>(in + x), b = get<T>(out + x);
      if constexpr (hasSamples) s[x] = (adds ? s[x] : Sum(0)) + (static_cast<Sum>(a) - static_cast<Sum>(b));
      q[x] = (adds ? q[x] : Sum(0)) + squareChange(a, b);
    }
  }

  [[gnu::noinline]] void wantedOf(const Sum* s, const Sum* q, float* __restrict to) const
  {
    const int n = columns_;
    if (wanted_ == WindowSum::Energy)
      for (int x = 0; x < n; ++x) to[x] = static_cast<float>(q[x]);
    else if constexpr (std::is_floating_point_v<T>)
      for (int x = 0; x < n; ++x) to[x] = static_cast<float>(q[x] - s[x] * s[x] / area_);
    else if (sizeof(T) == 1 && area_ * area_ * 255 * 255 <= 0x1p53)
      for (int x = 0; x < n; ++x) {
        const double sum = static_cast<double>(s[x]);
        to[x] = static_cast<float>((area_ * static_cast<double>(q[x]) - sum * sum) / area_);
      }
    else if (std::is_same_v<T, std::uint16_t> && area_ <= 0x1p20) deviationsOfWords(s, q, to, n, area_);
    else
      for (int x = 0; x < n; ++x) to[x] = deviationOf(s[x], q[x]);
  }
  // The squares of what differs from a whole number m close to the mean, less what they owe to its not being the mean.
  float deviationOf(std::int64_t s, std::int64_t q) const
  {
    const double perArea = 1 / area_;
    const std::int64_t m = static_cast<std::int64_t>(static_cast<double>(s) * perArea);
    const std::int64_t left = s - m * (static_cast<std::int64_t>(w_) * h_);
    const std::uint64_t squares =
      static_cast<std::uint64_t>(q) - static_cast<std::uint64_t>(m) * static_cast<std::uint64_t>(s + left);
    return static_cast<float>(static_cast<double>(static_cast<std::int64_t>(squares)) -
                              static_cast<double>(left) * static_cast<double>(left) * perArea);
  }
  // The same, of sums below 2^52 without a sign, which doubles hold. Rows are filled up to whole vectors.
  static void deviationsOfWords(const std::int64_t* s, const std::int64_t* q, float* to, int n, double area)
  {
    const Vec<double> areas = splat(area), perArea = splat(1 / area), whole = splat(0x1p52); // added, it rounds
    const auto toDouble = [=](const std::int64_t* p) {
      return as<double>(load<std::uint64_t>(p) | as<std::uint64_t>(whole)) - whole;
    };
    const auto deviation = [=](int x) {
      const Vec<double> sum = toDouble(s + x), m = (sum * perArea + whole) - whole, left = sum - m * areas;
      return (toDouble(q + x) - m * (sum + left)) - left * left * perArea;
    };
    for (int x = 0; x < n; x += Vec<float>::size)
      store(to + x, toFloat(deviation(x), deviation(x + Vec<double>::size)));
  }

  TileView<T> view_;
  int w_, h_, columns_, rows_, samples_;
  WindowSum wanted_;
  double area_;
  bool byIntegers_;
  T *entering_, *leaving_; // spares for runs of samples
  std::ptrdiff_t spareApart_;
  double* row_[doubleRows];
};

} // namespace
} // namespace zori
