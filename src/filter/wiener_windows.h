// Means and variances of windows: sums of the samples and of their squares down the columns, which follow the window
// from row to row, and then over neighbouring columns.
//
//   samples, their windows     sums of samples   of squares
//   8u, up to 64               16 bits           32 bits, times the window's area
//   8u, up to 33025            32 bits           32 bits
//   16s, up to 65535           32 bits           double precision
//   all others                 double precision  double precision
//
// Sums of integers are exact, in double precision below 2^53. Sums of floats are formed anew for each row, or in tall
// windows after as many rows as these have; and wherever what has left them was so much greater than what is left, or
// no number, that it would stay in the results.
#pragma once

#include "frame/layout.h"
#include "rowkernels/convert.h"
#include "rowkernels/simd_32_only.h"

#include <algorithm>
#include <cfloat>
#include <climits>

namespace zori {
namespace wiener {
namespace {

template <class T> struct Windows {
  Rows<const T> src; // from the first sample that the first window covers on
  ZorImgSize roi, mask;
  int channels;

  long long area() const { return 1LL * mask.width * mask.height; }
};

constexpr int stripSamples = 480; // along a row; whole pixels of every layout
// Wider windows slide along each row before their rows are added up.
constexpr int mostColumnsOfWindow = 24;

// ---- Kinds of sums: what samples add to them, and what they say of the windows ----

template <class SampleSum, class SquareSum> struct GroupSums {
  Group<SampleSum> samples;
  Group<SquareSum> squares;
};

// Windows that are finished together, and the vectors that hold their sums.
constexpr int block = Vec<Zor16s>::size;
template <class N> using Block = Vec<N>[block / Vec<N>::size];
// A block of floats: the mean, and the mean of the squares less the square of the mean, times the window's area.
struct Results {
  Block<float> mean, variance;
};

// Words in the order in which interleaving within each 16 bytes puts them in their own; and back from it.
inline Vec<Zor16s> apart(Vec<Zor16s> x)
{
#if ZORI_VECTOR_BYTES == 32
  return shuffleQuarters<3, 1, 2, 0>(x);
#else
  return x;
#endif
}
// Bytes as words in that order.
inline Vec<Zor16s> loadApart(const Zor8u* p)
{
#if ZORI_VECTOR_BYTES == 32
  alignas(32) static constexpr std::uint8_t places[32] = {0,   128, 1,   128, 2,   128, 3,   128, 8,   128, 9,
                                                          128, 10,  128, 11,  128, 4,   128, 5,   128, 6,   128,
                                                          7,   128, 12,  128, 13,  128, 14,  128, 15,  128};
  return as<Zor16s>(shuffleBytesLocal(loadInBothHalves<Zor8u>(p), loadAligned<Zor8u>(places)));
#else
  return as<Zor16s>(widenLow(loadLow8<Zor8u>(p)));
#endif
}

struct SumsOfFewBytes {
  using Sample = Zor8u;
  using SampleSum = Zor16s;
  using SquareSum = Zor32s;
  using Sums = GroupSums<SampleSum, SquareSum>;
  static constexpr bool isForAny = false; // windows, of any width
  static constexpr long long most = 64;   // (255 + 255) * 64 is a word

  Vec<Zor16s> area;
  Vec<float> inverseArea;
  explicit SumsOfFewBytes(double windowArea)
    : area(splat(static_cast<Zor16s>(windowArea))), inverseArea(splat(static_cast<float>(1 / windowArea)))
  {}

  static Group<Zor16s> load(const Zor8u* p)
  {
    Group<Zor16s> x;
    for (int k = 0; k < x.parts; ++k) x.part[k] = loadApart(p + k * Vec<Zor16s>::size);
    return x;
  }
  void add(Sums& sums, const Group<Zor16s>& x) const { exchange(sums, x, {}); }
  void exchange(Sums& sums, const Group<Zor16s>& in, const Group<Zor16s>& out) const
  {
    for (int k = 0; k < in.parts; ++k) { // in^2 - out^2 = (in - out) * (in + out)
      const Vec<Zor16s> difference = in.part[k] - out.part[k], sum = mulLow(in.part[k] + out.part[k], area);
      const Vec<Zor16s> low = mulLow(difference, sum), high = mulHigh(difference, sum);
      sums.samples.part[k] += apart(difference);
      sums.squares.part[2 * k] += as<Zor32s>(interleaveLowLocal(low, high));
      sums.squares.part[2 * k + 1] += as<Zor32s>(interleaveHighLocal(low, high));
    }
  }
  // area * squares - samples^2 is an exact whole number.
  ZORI_INLINE void finish(const Block<SampleSum>& samples, const Block<SquareSum>& squares, Results& to) const
  {
    const Vec<Zor16s> none = zero<Zor16s>(), words = apart(samples[0]);
    const Vec<Zor16s> s[] = {interleaveLowLocal(words, none), interleaveHighLocal(words, none)};
    for (int k = 0; k < 2; ++k) {
      to.mean[k] = toFloat(as<Zor32s>(s[k])) * inverseArea;
      to.variance[k] = toFloat(squares[k] - mulAddPairs(s[k], s[k])) * inverseArea;
    }
  }
};

// Of sums as double precision numbers.
template <class SampleSum, class SquareSum> struct DoubleResults {
  Vec<double> inverseArea;
  explicit DoubleResults(double windowArea) : inverseArea(splat(1 / windowArea)) {}

  static void toDoubles(const Block<Zor32s>& x, Block<double>& y)
  {
    for (int k = 0; k < 2; ++k) {
      y[2 * k] = toDoubleLow(x[k]);
      y[2 * k + 1] = toDoubleHigh(x[k]);
    }
  }
  static void toDoubles(const Block<double>& x, Block<double>& y) { std::copy(x, x + 4, y); }

  ZORI_INLINE void finish(const Block<SampleSum>& samples, const Block<SquareSum>& squares, Results& to) const
  {
    Block<double> mean, variance, sums;
    toDoubles(samples, sums);
    toDoubles(squares, variance);
    for (int k = 0; k < 4; ++k) {
      mean[k] = sums[k] * inverseArea;
      variance[k] = variance[k] - sums[k] * mean[k];
    }
    for (int k = 0; k < 2; ++k) {
      to.mean[k] = toFloat(mean[2 * k], mean[2 * k + 1]);
      to.variance[k] = toFloat(variance[2 * k], variance[2 * k + 1]);
    }
  }
};

struct SumsOfBytes : DoubleResults<Zor32s, Zor32s> {
  using Sample = Zor8u;
  using SampleSum = Zor32s;
  using SquareSum = Zor32s;
  using Sums = GroupSums<SampleSum, SquareSum>;
  using DoubleResults::DoubleResults;
  static constexpr bool isForAny = false;
  static constexpr long long most = INT_MAX / (255 * 255);

  static Group<Sample> load(const Sample* p) { return loadGroup<Sample>(p); }
  void add(Sums& sums, const Group<Zor8u>& x) const { exchange(sums, x, {}); }
  void exchange(Sums& sums, const Group<Zor8u>& entering, const Group<Zor8u>& leaving) const
  {
    // pairs (in, out) times (1, -1) and times (in, -out)
    const Group<Zor16s> in = Converted<Zor16s>{}(entering), out = Converted<Zor16s>{}(leaving);
    const Vec<Zor16s> signs = as<Zor16s>(splat<std::uint32_t>(0xffff0001u));
    for (int k = 0; k < in.parts; ++k) {
      const Vec<Zor16s> minus = zero<Zor16s>() - out.part[k];
      const Vec<Zor16s> low = interleaveLow(in.part[k], out.part[k]), high = interleaveHigh(in.part[k], out.part[k]);
      sums.samples.part[2 * k] += mulAddPairs(low, signs);
      sums.samples.part[2 * k + 1] += mulAddPairs(high, signs);
      sums.squares.part[2 * k] += mulAddPairs(low, interleaveLow(in.part[k], minus));
      sums.squares.part[2 * k + 1] += mulAddPairs(high, interleaveHigh(in.part[k], minus));
    }
  }
};

struct SumsOfWords : DoubleResults<Zor32s, double> {
  using Sample = Zor16s;
  using SampleSum = Zor32s;
  using SquareSum = double;
  using Sums = GroupSums<SampleSum, SquareSum>;
  using DoubleResults::DoubleResults;
  static constexpr bool isForAny = false;
  static constexpr long long most = INT_MAX / 32768;

  static Group<Sample> load(const Sample* p) { return loadGroup<Sample>(p); }
  void add(Sums& sums, const Group<Zor16s>& x) const { exchange(sums, x, {}); }
  void exchange(Sums& sums, const Group<Zor16s>& in, const Group<Zor16s>& out) const
  {
    const Vec<Zor16s> none = zero<Zor16s>();
    const Vec<Zor16s> signs = as<Zor16s>(splat<std::uint32_t>(0xffff0001u));
    for (int k = 0; k < in.parts; ++k) {
      const Vec<Zor16s> entering[] = {interleaveLow(in.part[k], none), interleaveHigh(in.part[k], none)};
      const Vec<Zor16s> leaving[] = {interleaveLow(out.part[k], none), interleaveHigh(out.part[k], none)};
      const Vec<Zor16s> both[] = {interleaveLow(in.part[k], out.part[k]), interleaveHigh(in.part[k], out.part[k])};
      for (int j = 0; j < 2; ++j) {
        sums.samples.part[2 * k + j] += mulAddPairs(both[j], signs);
        const Vec<Zor32s> gain = mulAddPairs(entering[j], entering[j]) - mulAddPairs(leaving[j], leaving[j]);
        sums.squares.part[4 * k + 2 * j] += toDoubleLow(gain);
        sums.squares.part[4 * k + 2 * j + 1] += toDoubleHigh(gain);
      }
    }
  }
};

// The numbers of a group in double precision.
template <class T> inline Group<double> doubles(const Group<T>& x)
{
  if constexpr (sizeof(T) < 4) return doubles(Converted<Zor32s>{}(x));
  else {
    Group<double> y;
    for (int k = 0; k < x.parts; ++k) {
      y.part[2 * k] = toDoubleLow(x.part[k]);
      y.part[2 * k + 1] = toDoubleHigh(x.part[k]);
    }
    return y;
  }
}

template <class T> struct SumsOfAny : DoubleResults<double, double> {
  using Sample = T;
  using SampleSum = double;
  using SquareSum = double;
  using Sums = GroupSums<SampleSum, SquareSum>;
  using DoubleResults::DoubleResults;
  static constexpr bool isForAny = true;

  static Group<Sample> load(const Sample* p) { return loadGroup<Sample>(p); }
  void add(Sums& sums, const Group<T>& x) const
  {
    const Group<double> in = doubles(x);
    for (int k = 0; k < in.parts; ++k) {
      sums.samples.part[k] += in.part[k];
      sums.squares.part[k] += in.part[k] * in.part[k];
    }
  }
  void exchange(Sums& sums, const Group<T>& entering, const Group<T>& leaving) const
  {
    const Group<double> in = doubles(entering), out = doubles(leaving);
    for (int k = 0; k < in.parts; ++k) {
      sums.samples.part[k] += in.part[k] - out.part[k];
      sums.squares.part[k] += in.part[k] * in.part[k] - out.part[k] * out.part[k];
    }
  }
};

// ---- A strip of the region ----

// The samples first .. first + length - 1 of each row.
template <class Kind> class Strip {
  using T = typename Kind::Sample;
  using SampleSum = typename Kind::SampleSum;
  using SquareSum = typename Kind::SquareSum;
  using Sums = typename Kind::Sums;

public:
  Strip(const Windows<T>& windows, std::ptrdiff_t first, std::ptrdiff_t length)
    : windows_(windows), kind_(static_cast<double>(windows.area())), first_(first), length_(length),
      isSliding_(Kind::isForAny && windows.mask.width > mostColumnsOfWindow),
      columns_(isSliding_ ? length : length + std::ptrdiff_t{windows.mask.width - 1} * windows.channels),
      rowsUntilAnew_(isInt<T>                  ? windows.roi.height
                     : windows.mask.height < 8 ? 1
                                               : windows.mask.height)
  {
    // Whole groups of windows are finished, which reach beyond the last column.
    std::fill(samples_ + columns_, samples_ + columns_ + group, SampleSum{});
    std::fill(squares_ + columns_, squares_ + columns_ + group, SquareSum{});
  }

  // row(y) for the rows first .. end - 1, each when the sums are its own.
  template <class Row> void walk(int first, int end, const Row& row)
  {
    for (int y = first; y < end; ++y) {
      const bool isAnew = (y - first) % rowsUntilAnew_ == 0;
      if (isSliding_) {
        if constexpr (Kind::isForAny) slide(y, isAnew);
      } else if (isAnew) sumColumns(y);
      else moveColumns(y);
      row(y);
    }
  }

  // take(i, results) for so many groups of windows from the first on, where results(k) is block k of the group that
  // lies i behind the first. The usual widths have loops of their own.
  template <class Take> void finish(std::ptrdiff_t from, std::ptrdiff_t groups, const Take& take) const
  {
    if (windows_.channels == 1) finishWith(std::integral_constant<int, 1>{}, from, groups, take);
    else finishWith(windows_.channels, from, groups, take);
  }

private:
  static constexpr int group = Group<T>::size;

  const T* row(std::ptrdiff_t y) const { return windows_.src[y] + first_; }

  // keep(i, form(i, load)) for each group of columns; load(p) is the group of the row p. The last group overlaps the
  // one before it and is formed first: what is formed may be the old sums and a change.
  template <class Form, class Keep> ZORI_INLINE void overColumns(const Form& form, const Keep& keep) const
  {
    const std::ptrdiff_t columns = columns_;
    if (columns < group) {
      const auto padded = [=](const T* p) { return Kind::load(PaddedBlock<T, group>(p, columns).values); };
      return keep(0, form(0, padded));
    }
    const auto formed = [&](std::ptrdiff_t i)
                          ZORI_INLINE { return form(i, [=](const T* p) ZORI_INLINE { return Kind::load(p + i); }); };
    const Sums last = formed(columns - group);
    for (std::ptrdiff_t i = 0; i + group < columns; i += group) keep(i, formed(i));
    keep(columns - group, last);
  }
  void storeSums(std::ptrdiff_t i, const Sums& sums)
  {
    storeGroup(samples_ + i, sums.samples);
    storeGroup(squares_ + i, sums.squares);
  }

  ZORI_ONE_COPY void sumColumns(std::ptrdiff_t y)
  {
    const UpperHalvesCleared atTheEnd;
    overColumns(
      [&](std::ptrdiff_t, const auto& load) {
        Sums sums{};
        for (std::ptrdiff_t k = y; k < y + windows_.mask.height; ++k) kind_.add(sums, load(row(k)));
        return sums;
      },
      [&](std::ptrdiff_t i, const Sums& sums) {
        storeSums(i, sums);
        if constexpr (canShrink)
          if (rowsUntilAnew_ > 1)
            for (int k = 0; k < sums.squares.parts; ++k)
              store(floors_ + i + k * Vec<double>::size, floorOf(sums.squares.part[k]));
      });
  }
  ZORI_ONE_COPY void moveColumns(std::ptrdiff_t y)
  {
    const UpperHalvesCleared atTheEnd;
    const Kind kind = kind_;
    const T *const entering = row(y - 1 + windows_.mask.height), *const leaving = row(y - 1);
    // the columns of the last group are its own, since it replaces what the one before it has put there
    const std::ptrdiff_t last = std::max<std::ptrdiff_t>(columns_ - group, 0);
    overColumns(
      [&](std::ptrdiff_t i, const auto& load) ZORI_INLINE {
        Sums sums{loadGroup<SampleSum>(samples_ + i), loadGroup<SquareSum>(squares_ + i)};
        kind.exchange(sums, load(entering), load(leaving));
        return sums;
      },
      [&](std::ptrdiff_t i, const Sums& sums) ZORI_INLINE {
        storeSums(i, sums);
        if constexpr (canShrink) {
          bool areAbove = true;
          for (int k = 0; k < sums.squares.parts; ++k)
            areAbove &= isAll(greater(sums.squares.part[k], zori::load<double>(floors_ + i + k * Vec<double>::size)));
          if (!areAbove) renewColumns(i, i < last ? std::min<std::ptrdiff_t>(i + group, last) : columns_, y);
        }
      });
  }

  // ---- Sums of floats that shrink ----
  //
  // A sum of squares holds rounding errors of all it ever held, and of what is no number it keeps that for good. Once
  // it is down to a small part of what it began with, it is formed anew. What comes into a window later than that
  // leaves it later than the next time all sums are formed anew.
  static constexpr bool canShrink = !isInt<T>;

  // The sum itself is above it, unless it is no number; sums of nothing but zeros are, too.
  static double floorOf(double squares) { return squares * 0x1p-16 - DBL_MIN; }
  static Vec<double> floorOf(Vec<double> squares) { return squares * splat(0x1p-16) - splat(DBL_MIN); }

  // Those of the columns that have shrunk, one by one: which these are depends on no width of vectors.
  [[gnu::noinline]] void renewColumns(std::ptrdiff_t first, std::ptrdiff_t end, std::ptrdiff_t y)
  {
    for (std::ptrdiff_t i = first; i < end; ++i) {
      if (squares_[i] > floors_[i]) continue;
      samples_[i] = squares_[i] = 0;
      for (std::ptrdiff_t k = y; k < y + windows_.mask.height; ++k) {
        const auto x = static_cast<double>(get<T>(row(k) + i));
        samples_[i] += x;
        squares_[i] += x * x;
      }
      floors_[i] = floorOf(squares_[i]);
    }
  }
  bool hasShrunk() const
  {
    bool has = false;
    for (std::ptrdiff_t i = 0; i < length_; ++i) has |= !(squares_[i] > floors_[i]);
    return has;
  }

  // The sums over the whole width of the window, in place of columns.
  void slide(std::ptrdiff_t y, bool isAnew)
  {
    if (isAnew) {
      std::fill(samples_, samples_ + length_, 0.0);
      std::fill(squares_, squares_ + length_, 0.0);
      for (std::ptrdiff_t k = y; k < y + windows_.mask.height; ++k) slideAlong(row(k), 1);
      if constexpr (canShrink)
        for (std::ptrdiff_t i = 0; i < length_; ++i) floors_[i] = floorOf(squares_[i]);
    } else {
      slideAlong(row(y - 1), -1);
      slideAlong(row(y - 1 + windows_.mask.height), 1);
      if constexpr (canShrink)
        if (hasShrunk()) slide(y, true);
    }
  }
  void slideAlong(const T* row, int sign)
  {
    const int step = windows_.channels;
    const std::ptrdiff_t span = std::ptrdiff_t{windows_.mask.width} * step;
    for (int c = 0; c < step; ++c) {
      const auto at = [=](std::ptrdiff_t i) { return static_cast<double>(get<T>(row + i)); };
      double sum = 0, square = 0, greatest = 0;
      const auto sumUp = [&](std::ptrdiff_t first) { // all of the window but its last sample
        sum = square = 0;
        for (std::ptrdiff_t i = first; i < first + span - step; i += step) {
          sum += at(i);
          square += at(i) * at(i);
        }
      };
      sumUp(c);
      for (std::ptrdiff_t i = c; i < length_; i += step) {
        const double in = at(i + span - step), out = at(i);
        sum += in;
        square += in * in;
        samples_[i] += sign * sum;
        squares_[i] += sign * square;
        if constexpr (canShrink) greatest = std::max(greatest, square);
        sum -= out;
        square -= out * out;
        if constexpr (canShrink)
          if (!(square > floorOf(greatest))) {
            sumUp(i + step);
            greatest = square;
          }
      }
    }
  }

  // Sums over so many columns, a step apart, beginning at p.
  template <class N> static void overWidth(const N* p, int width, std::ptrdiff_t step, Block<N>& sums)
  {
    constexpr int vectors = block / Vec<N>::size;
    for (int k = 0; k < vectors; ++k) sums[k] = load<N>(p + k * Vec<N>::size);
    for (int column = 1; column < width; ++column) {
      p += step;
      for (int k = 0; k < vectors; ++k) sums[k] += load<N>(p + k * Vec<N>::size);
    }
  }
  template <class Step, class Take>
  void finishWith(Step step, std::ptrdiff_t from, std::ptrdiff_t groups, const Take& take) const
  {
    const int width = Kind::isForAny && isSliding_ ? 1 : windows_.mask.width;
    if constexpr (!Kind::isForAny || !isInt<T>) switch (width) {
      case 3: return finishWith(std::integral_constant<int, 3>{}, step, from, groups, take);
      case 5: return finishWith(std::integral_constant<int, 5>{}, step, from, groups, take);
      case 7: return finishWith(std::integral_constant<int, 7>{}, step, from, groups, take);
      default: break;
      }
    finishWith(width, windows_.channels, from, groups, take);
  }
  template <class Width, class Step, class Take>
  ZORI_ONE_COPY void finishWith(Width width, Step step, std::ptrdiff_t from, std::ptrdiff_t groups,
                                const Take& given) const
  {
    const UpperHalvesCleared atTheEnd;
    const Kind kind = kind_;
    const Take take = given;
    const SampleSum* const samples = samples_ + from;
    const SquareSum* const squares = squares_ + from;
    for (std::ptrdiff_t i = 0; i < groups * group; i += group)
      take(i, [&](int k) ZORI_INLINE {
        Block<SampleSum> ofSamples;
        Block<SquareSum> ofSquares;
        Results results;
        overWidth(samples + i + k * block, width, step, ofSamples);
        overWidth(squares + i + k * block, width, step, ofSquares);
        kind.finish(ofSamples, ofSquares, results);
        return results;
      });
  }

  static constexpr int mostColumns = stripSamples + 4 * mostColumnsOfWindow + 2 * group;

  const Windows<T>& windows_;
  const Kind kind_;
  const std::ptrdiff_t first_, length_;
  const bool isSliding_;
  const std::ptrdiff_t columns_;
  const int rowsUntilAnew_;
  alignas(32) SampleSum samples_[mostColumns];
  alignas(32) SquareSum squares_[mostColumns];
  alignas(32) SquareSum floors_[canShrink ? mostColumns : 1]; // sums that are not above them are formed anew
};

} // namespace
} // namespace wiener
} // namespace zori
