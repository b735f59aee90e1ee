// Means and variances of windows: sums of the samples and of their squares down the columns, which follow the window
// from row to row, and then over neighbouring columns.
//
// Sums of 8u samples are 32-bit integers where these hold them. All others are of double precision, in which sums of
// integers are exact as well, below 2^53. Sums of floats are formed anew for each row, or in tall windows after as many
// rows as these have, so that what has left a window does not stay in its results.
#pragma once

#include "frame/layout.h"
#include "rowkernels/convert.h"

#include <algorithm>

namespace zori {
namespace wiener {

template <class T> struct Windows {
  Rows<const T> src; // from the first sample that the first window covers on
  ZorImgSize roi, mask;
  int channels;

  double area() const { return static_cast<double>(mask.width) * mask.height; }
};

constexpr int stripSamples = 480; // along a row; whole pixels of every layout
// Wider windows slide along each row before their rows are added up.
constexpr int mostColumnsOfWindow = 24;

// ---- Sums of a group of samples and their squares: added, and exchanged for others ----

template <class Sum> struct GroupSums;

template <> struct GroupSums<int32_t> {
  Group<int32_t> samples, squares;

  void add(const Group<Zor8u>& x) { exchange(x, Group<Zor8u>{}); }
  void exchange(const Group<Zor8u>& entering, const Group<Zor8u>& leaving)
  {
    // pairs (in, out) times (1, -1) and times (in, -out)
    const Group<Zor16s> in = Converted<Zor16s>{}(entering), out = Converted<Zor16s>{}(leaving);
    const Vec<Zor16s> signs = as<Zor16s>(splat<std::uint32_t>(0xffff0001u));
    for (int k = 0; k < in.parts; ++k) {
      const Vec<Zor16s> minus = zero<Zor16s>() - out.part[k];
      const Vec<Zor16s> low = interleaveLow(in.part[k], out.part[k]), high = interleaveHigh(in.part[k], out.part[k]);
      samples.part[2 * k] += mulAddPairs(low, signs);
      samples.part[2 * k + 1] += mulAddPairs(high, signs);
      squares.part[2 * k] += mulAddPairs(low, interleaveLow(in.part[k], minus));
      squares.part[2 * k + 1] += mulAddPairs(high, interleaveHigh(in.part[k], minus));
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

template <> struct GroupSums<double> {
  Group<double> samples, squares;

  template <class T> void add(const Group<T>& x)
  {
    const Group<double> in = doubles(x);
    for (int k = 0; k < in.parts; ++k) {
      samples.part[k] += in.part[k];
      squares.part[k] += in.part[k] * in.part[k];
    }
  }
  template <class T> void exchange(const Group<T>& entering, const Group<T>& leaving)
  {
    const Group<double> in = doubles(entering), out = doubles(leaving);
    for (int k = 0; k < in.parts; ++k) {
      samples.part[k] += in.part[k] - out.part[k];
      squares.part[k] += in.part[k] * in.part[k] - out.part[k] * out.part[k];
    }
  }
};

// ---- A strip of the region ----

// The samples first .. first + length - 1 of each row.
template <class T, class Sum> class Strip {
public:
  Strip(const Windows<T>& windows, std::ptrdiff_t first, std::ptrdiff_t length)
    : windows_(windows), first_(first), length_(length), isSliding_(windows.mask.width > mostColumnsOfWindow),
      columns_(isSliding_ ? length : length + std::ptrdiff_t{windows.mask.width - 1} * windows.channels),
      rowsUntilAnew_(isInt<T>                  ? windows.roi.height
                     : windows.mask.height < 8 ? 1
                                               : windows.mask.height),
      inverseArea_(1 / windows.area())
  {}

  // row(y) for the rows first .. end - 1, each when means() and variances() are its own.
  template <class Row> void walk(int first, int end, const Row& row)
  {
    for (int y = first; y < end; ++y) {
      const bool isAnew = (y - first) % rowsUntilAnew_ == 0;
      if (isSliding_) slide(y, isAnew);
      else if (isAnew) sumColumns(y);
      else moveColumns(y);
      finish();
      row(y);
    }
  }

  const float* means() const { return means_; }
  // The mean of the squares less the square of the mean, times the window's area.
  const float* variances() const { return variances_; }

private:
  static constexpr int group = Group<T>::size;

  const T* row(std::ptrdiff_t y) const { return windows_.src[y] + first_; }

  // work(i, load) for each group of columns; load(y) is the group in row y.
  template <class Work> void overColumns(const Work& work) const
  {
    std::ptrdiff_t i = 0;
    for (; i + group <= columns_; i += group) work(i, [&](std::ptrdiff_t y) { return loadGroup<T>(row(y) + i); });
    if (i < columns_)
      work(i, [&](std::ptrdiff_t y) { return loadGroup<T>(PaddedBlock<T, group>(row(y) + i, columns_ - i).values); });
  }
  void storeSums(std::ptrdiff_t i, const GroupSums<Sum>& sums)
  {
    storeGroup(samples_ + i, sums.samples);
    storeGroup(squares_ + i, sums.squares);
  }

  ZORI_ONE_COPY void sumColumns(std::ptrdiff_t y)
  {
    overColumns([&](std::ptrdiff_t i, const auto& load) {
      GroupSums<Sum> sums{};
      for (std::ptrdiff_t k = y; k < y + windows_.mask.height; ++k) sums.add(load(k));
      storeSums(i, sums);
    });
  }
  ZORI_ONE_COPY void moveColumns(std::ptrdiff_t y)
  {
    overColumns([&](std::ptrdiff_t i, const auto& load) {
      GroupSums<Sum> sums{loadGroup<Sum>(samples_ + i), loadGroup<Sum>(squares_ + i)};
      sums.exchange(load(y - 1 + windows_.mask.height), load(y - 1));
      storeSums(i, sums);
    });
  }

  // The sums over the whole width of the window, in place of columns.
  void slide(std::ptrdiff_t y, bool isAnew)
  {
    if (isAnew) {
      std::fill(samples_, samples_ + length_, Sum{});
      std::fill(squares_, squares_ + length_, Sum{});
      for (std::ptrdiff_t k = y; k < y + windows_.mask.height; ++k) slideAlong(row(k), 1);
    } else {
      slideAlong(row(y - 1), -1);
      slideAlong(row(y - 1 + windows_.mask.height), 1);
    }
  }
  void slideAlong(const T* row, Sum sign)
  {
    const int step = windows_.channels;
    const std::ptrdiff_t span = std::ptrdiff_t{windows_.mask.width} * step;
    for (int c = 0; c < step; ++c) {
      const auto at = [=](std::ptrdiff_t i) { return static_cast<Sum>(get<T>(row + i)); };
      Sum sum{}, square{};
      for (std::ptrdiff_t i = c; i < c + span - step; i += step) {
        sum += at(i);
        square += at(i) * at(i);
      }
      for (std::ptrdiff_t i = c; i < length_; i += step) {
        const Sum in = at(i + span - step), out = at(i);
        sum += in;
        square += in * in;
        samples_[i] += sign * sum;
        squares_[i] += sign * square;
        sum -= out;
        square -= out * out;
      }
    }
  }

  // Sums over the width of the window, beginning at column i.
  Vec<Sum> overWidth(const Sum* columns, std::ptrdiff_t i) const
  {
    Vec<Sum> sum = load<Sum>(columns + i);
    if (isSliding_) return sum;
    for (int k = 1; k < windows_.mask.width; ++k) sum += load<Sum>(columns + (i += windows_.channels));
    return sum;
  }

  ZORI_ONE_COPY void finish()
  {
    const Vec<double> inverseArea = splat(inverseArea_);
    const auto variance = [=](Vec<double> squares, Vec<double> samples, Vec<double> mean) {
      return squares - samples * mean;
    };
    for (std::ptrdiff_t i = 0; i < length_; i += Vec<float>::size) {
      Vec<double> samples[2], squares[2];
      if constexpr (isInt<Sum>) {
        const Vec<Sum> a = overWidth(samples_, i), b = overWidth(squares_, i);
        samples[0] = toDoubleLow(a);
        samples[1] = toDoubleHigh(a);
        squares[0] = toDoubleLow(b);
        squares[1] = toDoubleHigh(b);
      } else
        for (int k = 0; k < 2; ++k) {
          samples[k] = overWidth(samples_, i + k * Vec<double>::size);
          squares[k] = overWidth(squares_, i + k * Vec<double>::size);
        }
      const Vec<double> low = samples[0] * inverseArea, high = samples[1] * inverseArea;
      store(means_ + i, toFloat(low, high));
      store(variances_ + i, toFloat(variance(squares[0], samples[0], low), variance(squares[1], samples[1], high)));
    }
  }

  const Windows<T>& windows_;
  const std::ptrdiff_t first_, length_;
  const bool isSliding_;
  const std::ptrdiff_t columns_;
  const int rowsUntilAnew_;
  const double inverseArea_;
  alignas(32) Sum samples_[stripSamples + 4 * mostColumnsOfWindow + 2 * group];
  alignas(32) Sum squares_[stripSamples + 4 * mostColumnsOfWindow + 2 * group];
  alignas(32) float means_[stripSamples + group], variances_[stripSamples + group];
};

} // namespace wiener
} // namespace zori
