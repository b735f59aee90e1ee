// Supersampling.
//
// Rows are added to a row of sums, then neighbouring sums to outputs, and these are scaled: integers to
// sum * scale + 0.5 cut to whole numbers, 32f to sum * scale. Where both axes cover whole pixels integers are summed as
// integers; all else is single precision, sample by sample in their order.
//
// The work goes in strips of columns whose sums fit the stack, so that no memory is needed.
#include "resize_super.h"

#include "frame/parallel.h"
#include "rowkernels/convert.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace zori {
namespace resize {

// ---- Covers ----

namespace {
constexpr double slack = 1e-7;
double withoutDust(double x) { return std::fabs(x) <= slack ? 0 : x; }
} // namespace

CoverSweep::CoverSweep(int first, int length, double ratio) : first_(first), length_(length), ratio_(ratio)
{
  isWhole_ = ratio - std::floor(ratio) < slack;
}

CoverSweep::CoverSweep(int image, int firstOutput, double factor, double shift)
  : first_(0), length_(image), ratio_(1 / factor), isSquare_(true), output_(firstOutput), shift_(shift)
{
  const double start = (output_ - shift) / factor;
  isWhole_ =
    std::fabs(start - std::floor(start + 0.5)) <= slack && std::fabs(ratio_ - std::floor(ratio_ + 0.5)) <= slack;
}

Cover CoverSweep::next()
{
  Cover cover = {};
  if (isSquare_) {
    const double low = (output_ - shift_) * ratio_, high = (output_ + 1 - shift_) * ratio_;
    output_ += 1;
    const double lowest = -1e9, highest = 4e9;
    if (isWhole_) {
      cover.first = static_cast<long long>(std::floor(std::clamp(low, lowest, highest) + 0.5));
      cover.whole = std::max(1LL, static_cast<long long>(std::floor(std::min(ratio_, highest) + 0.5)));
      return cover;
    }
    const double from = std::clamp(low, lowest, highest), to = std::clamp(high, from, highest);
    const double begin = std::floor(from + slack), end = std::floor(to + slack);
    cover.first = static_cast<long long>(begin);
    const double cutOff = withoutDust(from - begin);
    if (end <= begin) { // within one pixel
      cover.head = static_cast<float>(std::max(to - from, slack));
      return cover;
    }
    cover.head = cutOff > 0 ? static_cast<float>(1 - cutOff) : 0;
    cover.whole = static_cast<long long>(end - begin) - (cutOff > 0);
    cover.tail = static_cast<float>(std::max(withoutDust(to - end), 0.0));
    return cover;
  }
  cover.first = at_;
  if (isWhole_) {
    cover.whole = static_cast<long long>(ratio_);
  } else {
    double a = 0;
    if (!isFirst_) {
      a = 1 - rest_;
      if (a <= slack) a = 0;
    }
    cover.whole = static_cast<long long>(std::floor((isFirst_ ? 0 : slack) + (ratio_ - (isFirst_ ? 0 : 1 - rest_))));
    rest_ = withoutDust(ratio_ - (isFirst_ ? 0 : 1 - rest_) - static_cast<double>(cover.whole));
    cover.head = static_cast<float>(a);
    cover.tail = static_cast<float>(std::max(rest_, 0.0));
    if (a == 1) { // nothing was carried
      cover.head = 0;
      ++cover.whole;
    }
    isFirst_ = false;
  }
  at_ += cover.pixels() - (cover.tail > 0);
  return cover;
}

namespace {

// ---- Rows to a row of sums ----

// Rows are gathered in bunches, each with its weight.
constexpr int bunchRows = 16;
template <class T> struct Bunch {
  const T* rows[bunchRows];
  float weights[bunchRows];
  int count = 0;
  bool isPlain = true; // all weights are 1

  void add(const T* row, float weight)
  {
    rows[count] = row;
    weights[count++] = weight;
    isPlain &= weight == 1;
  }
  void clear() { count = 0, isPlain = true; }
};

// sums[i] += the rows' samples, each times its weight; from 0 on when isFirst. Count: how many rows, or 0.
template <bool IsPlain, int Count, class T, class Sum>
[[gnu::noinline]] void addRows(const Bunch<T>& bunch, bool isFirst, std::ptrdiff_t samples, Sum* sums)
{
  constexpr std::ptrdiff_t block = Group<T>::size;
  const int count = Count ? Count : bunch.count;
  const T* rows[Count ? Count : bunchRows];
  std::copy(bunch.rows, bunch.rows + count, rows);
  std::ptrdiff_t i = 0;
  if constexpr (sizeof(Sum) <= 4) {
    for (; i + block <= samples; i += block) {
      Group<Sum> sum;
      for (auto& v : sum.part) v = zero<Sum>();
      if (!isFirst) sum = loadGroup(sums + i);
      for (int r = 0; r < count; ++r) {
        const Group<T> row = loadGroup(rows[r] + i);
        Group<Sum> x;
        if constexpr (std::is_same_v<T, Sum>) x = row;
        else x = Converted<Sum>{}(row);
        for (int k = 0; k < sum.parts; ++k) {
          if constexpr (IsPlain) sum.part[k] += x.part[k];
          else sum.part[k] += x.part[k] * splat(bunch.weights[r]);
        }
      }
      storeGroup(sums + i, sum);
    }
  }
  for (; i < samples; ++i) {
    Sum sum = isFirst ? Sum() : sums[i];
    for (int r = 0; r < count; ++r) {
      const T x = get<T>(rows[r] + i);
      if constexpr (IsPlain) sum = static_cast<Sum>(sum + static_cast<Sum>(x));
      else sum += static_cast<float>(x) * bunch.weights[r];
    }
    sums[i] = sum;
  }
}

template <bool IsPlain, class T, class Sum>
void addBunch(const Bunch<T>& bunch, bool isFirst, std::ptrdiff_t samples, Sum* sums)
{
  switch (bunch.count) {
  case 2: return addRows<IsPlain, 2>(bunch, isFirst, samples, sums);
  case 3: return addRows<IsPlain, 3>(bunch, isFirst, samples, sums);
  default: return addRows<IsPlain, 0>(bunch, isFirst, samples, sums);
  }
}

struct Limits { // pixels of an axis that may be read
  long long first, length;
  long long inside(long long k) const { return first + std::clamp(k, 0LL, length - 1); }
};

// The rows under `cover`, samples from `offset` on.
template <class T, class Sum>
void sumRows(const Images& images, int plane, const Limits& limits, const Cover& cover, std::ptrdiff_t offset,
             std::ptrdiff_t samples, Sum* sums)
{
  Bunch<T> bunch;
  bool isFirst = true;
  const long long pixels = cover.pixels();
  for (long long k = 0; k < pixels; ++k) {
    const char* const row = images.srcRow(plane, static_cast<std::ptrdiff_t>(limits.inside(cover.first + k)));
    bunch.add(reinterpret_cast<const T*>(row) + offset, cover.weight(k));
    if (bunch.count < bunchRows && k < pixels - 1) continue;
    if constexpr (std::is_same_v<Sum, float>) {
      if (bunch.isPlain) addBunch<true>(bunch, isFirst, samples, sums);
      else addBunch<false>(bunch, isFirst, samples, sums);
    } else {
      addBunch<true>(bunch, isFirst, samples, sums);
    }
    isFirst = false;
    bunch.clear();
  }
}

// ---- Totals to samples ----

// How totals become samples: total * scale in double, and for integers + 0.5 and cut.
//
// Totals of 8u under blocks of up to 128 pixels stay in 15 bits. There the quotient (total + block / 2) / block, cut,
// mostly is the same number, and a product gives it: (total * factor + half) >> shift. What rounding of the double
// product can change are totals halfway between two results; they are tried.
struct Scaling {
  double scale, block;
  bool isSingle; // scale is a number of single precision: products of floats are rounded once then, as they must be
  int factor = 0, half = 0, shift = 0; // 0: the double product

  // block: pixels of an output when all totals are whole numbers of 8u, else 0.
  Scaling(double s, double b) : scale(s), block(b), isSingle(static_cast<double>(static_cast<float>(s)) == s)
  {
    if (!(block >= 1 && block <= 128)) return;
    const int n = static_cast<int>(block), most = 255 * n + n / 2;
    if (!(std::fabs(s * n - 1) < 1e-6)) return;
    while ((2 << shift) / n < 32768) ++shift;
    const int ceiling = ((1 << shift) + n - 1) / n;
    const long long excess = 1LL * ceiling * n - (1LL << shift);
    if (most * excess < 1LL << shift && (n % 2 || tiesGoUp(n))) factor = ceiling, half = n / 2 * ceiling;
  }

private:
  bool tiesGoUp(int n) const
  {
    bool all = true;
    for (int m = 0; m < 255; ++m) all &= (m * n + n / 2) * scale + 0.5 >= m + 1;
    return all;
  }
};

template <class T, class A> inline T scaledSample(A total, double scale)
{
  const double y = static_cast<double>(total) * scale;
  if constexpr (std::is_same_v<T, float>) return static_cast<float>(y);
  else {
    constexpr double high = std::numeric_limits<T>::max(), low = std::numeric_limits<T>::min();
    const double rounded = y + 0.5;
    return static_cast<T>(std::isless(rounded, low) ? low : std::isless(rounded, high) ? std::floor(rounded) : high);
  }
}

// (x * scale + 0.5) cut to whole numbers (16s: to the next below).
template <class T> inline Vec<Zor32s> scaledInts(F64x2 low, F64x2 high, double scale)
{
  const F64x2 s = splat(scale), half = splat(0.5);
  return toIntTruncated(low * s + half, high * s + half);
}

// Totals of outputs, of which there is room for whole groups.
template <class T, class A>
[[gnu::noinline]] void scaleTotals(const A* totals, std::ptrdiff_t count, const Scaling& by, T* dst)
{
  constexpr bool isVector = sizeof(A) == 4 && !std::is_same_v<T, Zor16s>;
  if constexpr (isVector && std::is_same_v<T, float>) {
    const F32x4 single = splatFour(static_cast<float>(by.scale));
    const F64x2 exact = splat(by.scale);
    std::ptrdiff_t i = 0;
    for (; i + 4 <= count; i += 4) {
      const F32x4 x = loadFour(totals + i);
      store(dst + i, by.isSingle ? x * single : toFloat(toDoubleLow(x) * exact, toDoubleHigh(x) * exact));
    }
    for (; i < count; ++i) put(dst + i, scaledSample<T>(totals[i], by.scale));
  } else if constexpr (isVector) {
    constexpr std::ptrdiff_t block = Group<T>::size;
    for (std::ptrdiff_t i = 0; i < count; i += block) {
      Group<Zor32s> n;
      for (int k = 0; k < n.parts; ++k) {
        const A* const p = totals + i + k * Vec<Zor32s>::size;
        if constexpr (std::is_same_v<A, float>) {
          const F32x4 x = loadFour(p);
          n.part[k] = scaledInts<T>(toDoubleLow(x), toDoubleHigh(x), by.scale);
        } else {
          const auto x = load<Zor32s>(p);
          if (by.factor > 0) {
            const auto product = mulAddPairs(as<Zor16s>(x), as<Zor16s>(splat(by.factor)));
            n.part[k] = shiftRight(product + splat(by.half), by.shift);
          } else {
            n.part[k] = scaledInts<T>(toDoubleLow(x), toDoubleHigh(x), by.scale);
          }
        }
      }
      const Group<T> x = packed<T>(n);
      if (i + block <= count) {
        storeGroup(dst + i, x);
      } else {
        T rest[block];
        storeGroup(rest, x);
        std::memcpy(dst + i, rest, static_cast<std::size_t>(count - i) * sizeof(T));
      }
    }
  } else {
    for (std::ptrdiff_t i = 0; i < count; ++i) put(dst + i, scaledSample<T>(totals[i], by.scale));
  }
}

// ---- Sums to totals ----

template <class Sum>
using Total = std::conditional_t<std::is_same_v<Sum, float>, float,
                                 std::conditional_t<sizeof(Sum) == 8, std::uint64_t, std::int32_t>>;

constexpr int stripOutputs = 256;
constexpr std::ptrdiff_t stripBytes = 16384, slackSamples = 16;

// Outputs that are worked on together, and the samples of the row of sums that they cover.
struct Strip {
  static constexpr int fewTaps = 8;
  Cover covers[stripOutputs];
  int count = 0;
  long long origin = 0, end = 0; // pixels
  long long taps = 0;            // of the output that has most of them
  bool isWhole = true;           // each covers just so many whole pixels
  std::int32_t at[stripOutputs];
  float weights[fewTaps][stripOutputs]; // 0 where an output has fewer taps

  void add(const Cover& cover)
  {
    if (count == 0) origin = cover.first;
    taps = std::max(taps, cover.pixels());
    end = std::max(end, cover.first + cover.pixels());
    covers[count++] = cover;
  }
  void finish()
  {
    for (int o = 0; o < count; ++o) {
      isWhole &= covers[o].whole == taps;
      at[o] = static_cast<std::int32_t>(covers[o].first - origin);
    }
    const int padded = (count + 3) / 4 * 4;
    for (int o = count; o < padded; ++o) at[o] = at[count - 1];
    if (isWhole || taps > fewTaps) return;
    for (int t = 0; t < taps; ++t)
      for (int o = 0; o < padded; ++o) {
        const Cover& cover = covers[std::min(o, count - 1)];
        weights[t][o] = t < cover.pixels() ? cover.weight(t) : 0;
      }
  }
};

inline void transpose(F32x4& a, F32x4& b, F32x4& c, F32x4& d)
{
  const F32x4 ab = interleaveLow(a, b), cd = interleaveLow(c, d), abHigh = interleaveHigh(a, b),
              cdHigh = interleaveHigh(c, d);
  a = shuffle<1, 0, 1, 0>(ab, cd);
  b = shuffle<3, 2, 3, 2>(ab, cd);
  c = shuffle<1, 0, 1, 0>(abHigh, cdHigh);
  d = shuffle<3, 2, 3, 2>(abHigh, cdHigh);
}

// Four outputs at a time, tap by tap. Where some have fewer taps the others' are read and count for nothing, but that
// 32f may hold what stays a number in no product.
template <bool IsWhole, bool MayBeInfinite, class Sum>
[[gnu::noinline]] void sumSingles(const Strip& strip, const Sum* sums, Total<Sum>* totals)
{
  const int taps = static_cast<int>(strip.taps);
  for (int o = 0; o < strip.count; o += 4) {
    Vec<Total<Sum>> total = zero<Total<Sum>>();
    for (int t = 0; t < taps; t += 4) {
      F32x4 p[4];
      for (int k = 0; k < 4; ++k) p[k] = loadFour(reinterpret_cast<const float*>(sums) + strip.at[o + k] + t);
      transpose(p[0], p[1], p[2], p[3]);
      for (int k = 0; k < 4; ++k) {
        if (t + k >= taps) break;
        if constexpr (IsWhole) {
          total += as<Total<Sum>>(p[k]);
        } else {
          const F32x4 w = loadFour(strip.weights[t + k] + o);
          const F32x4 share = p[k] * w;
          total += MayBeInfinite ? without(share, equal(w, splatFour(0))) : share;
        }
      }
    }
    store(totals + o, total);
  }
}

// Pixels of three or four samples, each a vector.
template <int C, class Sum> inline Vec<Total<Sum>> pixelAt(const Sum* p)
{
  if constexpr (sizeof(Sum) == 2) return as<Zor32s>(widenLow(loadLow8<Sum>(p)));
  else return as<Total<Sum>>(loadFour(reinterpret_cast<const float*>(p)));
}

template <int C, class Sum> [[gnu::noinline]] void sumPixelsOf(const Strip& strip, const Sum* sums, Total<Sum>* totals)
{
  for (int o = 0; o < strip.count; ++o, totals += C) {
    const Cover& cover = strip.covers[o];
    const Sum* p = sums + std::ptrdiff_t{strip.at[o]} * C;
    auto total = zero<Total<Sum>>();
    if constexpr (std::is_same_v<Sum, float>) {
      if (cover.head > 0) {
        total += pixelAt<C>(p) * splatFour(cover.head);
        p += C;
      }
    }
    for (long long k = 0; k < cover.whole; ++k, p += C) total += pixelAt<C>(p);
    if constexpr (std::is_same_v<Sum, float>) {
      if (cover.tail > 0) total += pixelAt<C>(p) * splatFour(cover.tail);
    }
    store(totals, total); // the fourth of three is written over by the next
  }
}

// Outputs that all cover N whole pixels (0: as many as it takes); the first of one is the next of the one before.
// IsShort: totals fit the type of the sums.
template <int C, int N, bool IsShort, class Sum>
[[gnu::noinline]] void sumWholePixels(const Strip& strip, const Sum* sums, Total<Sum>* totals)
{
  const auto pixels = N > 0 ? std::ptrdiff_t{N} : static_cast<std::ptrdiff_t>(strip.taps);
  for (int o = 0; o < strip.count; ++o, totals += C, sums += pixels * C) {
    if constexpr (IsShort) {
      auto total = loadLow8<Sum>(sums);
      for (std::ptrdiff_t k = 1; k < pixels; ++k) total += loadLow8<Sum>(sums + k * C);
      store(totals, as<Zor32s>(widenLow(total)));
    } else {
      auto total = pixelAt<C>(sums);
      for (std::ptrdiff_t k = 1; k < pixels; ++k) total += pixelAt<C>(sums + k * C);
      store(totals, total);
    }
  }
}

template <int C, bool IsShort, class Sum> void sumWhole(const Strip& strip, const Sum* sums, Total<Sum>* totals)
{
  switch (strip.taps) {
  case 2: return sumWholePixels<C, 2, IsShort>(strip, sums, totals);
  case 3: return sumWholePixels<C, 3, IsShort>(strip, sums, totals);
  default: return sumWholePixels<C, 0, IsShort>(strip, sums, totals);
  }
}

// The same for one channel and sums of up to 15 bits, four taps of two outputs at a time.
[[gnu::noinline]] void sumWholeSingles(const Strip& strip, const std::uint16_t* sums, std::int32_t* totals)
{
  const auto taps = static_cast<std::ptrdiff_t>(strip.taps);
  const auto fourOf = [](const std::uint16_t* low, const std::uint16_t* high) {
    return as<Zor16s>(loadHalves(reinterpret_cast<const float*>(low), reinterpret_cast<const float*>(high)));
  };
  const auto ones = splat<Zor16s>(1);
  const int rest = static_cast<int>(taps % 4); // ones for so many of the last taps
  const auto last = as<Zor16s>(splat(rest == 0 ? ~std::uint64_t{0} : ~(~std::uint64_t{0} << 16 * rest))) & ones;
  for (int o = 0; o < strip.count; o += 4) {
    const std::uint16_t* p[4];
    for (int k = 0; k < 4; ++k) p[k] = sums + strip.at[o + k];
    Vec<Zor32s> low = zero<Zor32s>(), high = low;
    std::ptrdiff_t t = 0;
    for (; t + 4 < taps; t += 4) {
      low += mulAddPairs(fourOf(p[0] + t, p[1] + t), ones);
      high += mulAddPairs(fourOf(p[2] + t, p[3] + t), ones);
    }
    low += mulAddPairs(fourOf(p[0] + t, p[1] + t), last);
    high += mulAddPairs(fourOf(p[2] + t, p[3] + t), last);
    const F32x4 a = as<float>(low), b = as<float>(high);
    store(totals + o, as<Zor32s>(shuffle<2, 0, 2, 0>(a, b)) + as<Zor32s>(shuffle<3, 1, 3, 1>(a, b)));
  }
}

template <int C, class Sum> [[gnu::noinline]] void sumPlainly(const Strip& strip, const Sum* sums, Total<Sum>* totals)
{
  for (int o = 0; o < strip.count; ++o) {
    const Cover& cover = strip.covers[o];
    const Sum* p = sums + std::ptrdiff_t{strip.at[o]} * C;
    const auto pixels = static_cast<std::ptrdiff_t>(cover.pixels());
    for (int c = 0; c < C; ++c) {
      Total<Sum> total = 0;
      for (std::ptrdiff_t k = 0; k < pixels; ++k) {
        if constexpr (std::is_same_v<Sum, float>) total += p[k * C + c] * cover.weight(k);
        else total += static_cast<Total<Sum>>(p[k * C + c]);
      }
      totals[o * C + c] = total;
    }
  }
}

// areShort: no total is above 32767.
template <int C, bool MayBeInfinite, class Sum>
inline void sumColumns(const Strip& strip, Sum* sums, std::ptrdiff_t samples, bool areShort, Total<Sum>* totals)
{
  if constexpr (sizeof(Sum) == 8) {
    sumPlainly<C>(strip, sums, totals);
  } else if constexpr (C > 1) {
    if (!strip.isWhole || std::is_same_v<Sum, float>) sumPixelsOf<C>(strip, sums, totals);
    else if (sizeof(Sum) == 2 && areShort) sumWhole<C, sizeof(Sum) == 2>(strip, sums, totals);
    else sumWhole<C, false>(strip, sums, totals);
  } else if constexpr (sizeof(Sum) == 2) {
    if (areShort) return sumWholeSingles(strip, sums, totals);
    std::uint32_t wide[stripBytes / 2 + slackSamples];
    mapGroups(wide, samples, Converted<std::uint32_t>{}, static_cast<const Sum*>(sums));
    sumSingles<true, false>(strip, static_cast<const std::uint32_t*>(wide), totals);
  } else if (strip.isWhole) {
    sumSingles<true, false>(strip, static_cast<const Sum*>(sums), totals);
  } else if constexpr (std::is_same_v<Sum, float>) {
    for (int k = 0; k < 8; ++k) sums[samples + k] = 0; // read with weight 0
    if (strip.taps <= Strip::fewTaps) sumSingles<false, MayBeInfinite>(strip, static_cast<const Sum*>(sums), totals);
    else sumPlainly<1>(strip, sums, totals);
  }
}

// Outputs of rows, as strips of columns.
template <class T, class Sum, int C> struct Strips {
  const Images& images;
  CoverSweep columns, rows;
  int width;
  Scaling scaling;

  static constexpr long long pixels = stripBytes / static_cast<long long>(sizeof(Sum)) / C;

  // Pixels first .. first + count - 1 of the sums of one output row.
  void sumPixels(int plane, const Cover& row, long long first, long long count, Sum* sums) const
  {
    const Limits across = {columns.first(), columns.length()}, down = {rows.first(), rows.length()};
    const long long begin = std::clamp(first, 0LL, across.length - 1),
                    end = std::clamp(first + count, begin + 1, across.length);
    // a strip that lies outside altogether has the one pixel that is nearest
    const long long before = begin > first ? std::min(begin - first, count) : 0;
    Sum* const inside = sums + static_cast<std::ptrdiff_t>(before) * C;
    Sum nearest[C];
    if (before == count || begin >= first + count || first >= across.length) {
      sumRows<T, Sum>(images, plane, down, row, static_cast<std::ptrdiff_t>(across.first + begin) * C, C, nearest);
      for (std::ptrdiff_t k = 0; k < static_cast<std::ptrdiff_t>(count) * C; ++k) sums[k] = nearest[k % C];
      return;
    }
    const auto samples = static_cast<std::ptrdiff_t>(end - begin) * C;
    sumRows<T, Sum>(images, plane, down, row, static_cast<std::ptrdiff_t>(across.first + begin) * C, samples, inside);
    for (std::ptrdiff_t k = 0; k < static_cast<std::ptrdiff_t>(before) * C; ++k) sums[k] = inside[k % C];
    const auto rest = static_cast<std::ptrdiff_t>(count - before) * C;
    for (std::ptrdiff_t k = samples; k < rest; ++k) inside[k] = inside[k - C];
  }

  void finish(int plane, int y, int x, const Total<Sum>* totals, int count) const
  {
    T* const dst = reinterpret_cast<T*>(images.dstRow(plane, y)) + static_cast<std::ptrdiff_t>(x) * C;
    if (!images.keepsFourth) return scaleTotals(totals, std::ptrdiff_t{count} * C, scaling, dst);
    T out[stripOutputs * C];
    scaleTotals(totals, std::ptrdiff_t{count} * C, scaling, out);
    for (int o = 0; o < count; ++o) std::memcpy(dst + o * C, out + o * C, 3 * sizeof(T));
  }

  // An output that is wider than the strip, piece by piece.
  void sumWide(int plane, const Cover& column, const Cover& row, Sum* sums, Total<Sum>* totals) const
  {
    const long long all = column.pixels();
    for (int c = 0; c < C; ++c) totals[c] = 0;
    for (long long done = 0; done < all; done += pixels) {
      const long long part = std::min(pixels, all - done);
      sumPixels(plane, row, column.first + done, part, sums);
      for (long long k = 0; k < part; ++k)
        for (int c = 0; c < C; ++c) {
          const Sum x = sums[static_cast<std::ptrdiff_t>(k) * C + c];
          if constexpr (std::is_same_v<Sum, float>) totals[c] += x * column.weight(done + k);
          else totals[c] += static_cast<Total<Sum>>(x);
        }
    }
  }

  [[gnu::noinline]] void run(int plane, int firstRow, int rowCount)
  {
    CoverSweep sweep = columns, rowStart = rows;
    for (int y = 0; y < firstRow; ++y) rowStart.next();
    alignas(16) Sum sums[stripBytes / sizeof(Sum) + slackSamples];
    alignas(16) Total<Sum> totals[stripOutputs * C + slackSamples] = {};
    Cover next = sweep.next();
    for (int x = 0; x < width;) {
      Strip strip;
      while (strip.count < stripOutputs && x + strip.count < width &&
             (strip.count == 0 || next.first + next.pixels() - strip.origin <= pixels)) {
        strip.add(next);
        next = sweep.next();
      }
      strip.finish();
      const long long covered = strip.end - strip.origin;
      CoverSweep rowSweep = rowStart;
      for (int y = firstRow; y < firstRow + rowCount; ++y) {
        const Cover row = rowSweep.next();
        if (covered <= pixels) {
          sumPixels(plane, row, strip.origin, covered, sums);
          sumColumns<C, std::is_same_v<T, float>>(strip, sums, static_cast<std::ptrdiff_t>(covered) * C,
                                                  scaling.block <= 128, totals);
        } else {
          sumWide(plane, strip.covers[0], row, sums, totals);
        }
        finish(plane, y, x, totals, strip.count);
      }
      x += strip.count;
    }
  }
};

// ---- Blocks of two by two in one pass: 8u and 32f of one channel ----

template <class T> struct Halving {
  static constexpr std::ptrdiff_t blockLength = Vec<T>::size;
  void block(const T* a, const T* b, T* dst) const // from twice as many of two rows
  {
    constexpr std::ptrdiff_t lanes = Vec<T>::size;
    if constexpr (std::is_same_v<T, float>) {
      const Vec<T> low = load<T>(a) + load<T>(b), high = load<T>(a + lanes) + load<T>(b + lanes);
      // the sums start at 0, which no sum of negative zeros is
      store(dst, (evenLanes(low, high) + oddLanes(low, high) + zero<T>()) * splat(0.25f));
    } else {
      const auto quarters = [=](const T* p, const T* q) {
        const auto x = load<Zor16u>(p), y = load<Zor16u>(q);
        // of low + 256 * high each: less 255 times the high ones
        const auto high = shiftRight<8>(x) + shiftRight<8>(y);
        const auto sum = (x + y) + mulLow(high, loadedOnce(splat<Zor16u>(65536 - 255)));
        return as<Zor16s>(shiftRight<2>(sum + splat<Zor16u>(2)));
      };
      store(dst, narrowSat<T>(quarters(a, b), quarters(a + lanes, b + lanes)));
    }
  }
};

template <class T> struct HalvedRegion {
  const char* src;
  char* dst;
  std::ptrdiff_t srcStep, dstStep;

  [[gnu::noinline]] void make(std::ptrdiff_t width, int height) const
  {
    constexpr std::ptrdiff_t lanes = Halving<T>::blockLength;
    const Halving<T> halving;
    for (int y = 0; y < height; ++y) {
      const T *const a = reinterpret_cast<const T*>(src + 2 * y * srcStep), *const b = reinterpret_cast<const T*>(
                                                                              src +
                                                                              (2 * y + std::ptrdiff_t{1}) * srcStep);
      T* const to = reinterpret_cast<T*>(dst + y * dstStep);
      if (width < lanes) {
        T few[2][2 * lanes] = {}, out[lanes];
        std::memcpy(few[0], a, 2 * static_cast<std::size_t>(width) * sizeof(T));
        std::memcpy(few[1], b, 2 * static_cast<std::size_t>(width) * sizeof(T));
        halving.block(few[0], few[1], out);
        std::memcpy(to, out, static_cast<std::size_t>(width) * sizeof(T));
        continue;
      }
      std::ptrdiff_t i = 0;
      for (; i + lanes <= width; i += lanes) halving.block(a + 2 * i, b + 2 * i, to + i);
      if (i < width) halving.block(a + 2 * (width - lanes), b + 2 * (width - lanes), to + width - lanes);
    }
  }
};

// True when it was such a call.
template <class T>
bool halve(const Images& images, CoverSweep columns, int width, CoverSweep rows, double scale, int plane, int first,
           int count)
{
  if (images.channels != 1 || scale != 0.25 || !columns.isWhole() || !rows.isWhole()) return false;
  const Cover x = columns.next(), y = rows.next();
  if (x.whole != 2 || y.whole != 2 || x.first < 0 || y.first < 0 || x.first + 2LL * width > columns.length() ||
      y.first + 2LL * (first + count) > rows.length())
    return false;
  const std::ptrdiff_t row = static_cast<std::ptrdiff_t>(rows.first() + y.first) + 2 * std::ptrdiff_t{first},
                       column = static_cast<std::ptrdiff_t>(columns.first() + x.first);
  HalvedRegion<T>{images.srcRow(plane, row) + column * static_cast<std::ptrdiff_t>(sizeof(T)),
                  images.dstRow(plane, first), images.srcStep, images.dstStep}
    .make(width, count);
  return true;
}

template <class T, class Sum>
void stripsOf(const Images& images, const CoverSweep& columns, int width, const CoverSweep& rows,
              const Scaling& scaling, int plane, int first, int count)
{
  switch (images.channels) {
  case 1: return Strips<T, Sum, 1>{images, columns, rows, width, scaling}.run(plane, first, count);
  case 3: return Strips<T, Sum, 3>{images, columns, rows, width, scaling}.run(plane, first, count);
  default: return Strips<T, Sum, 4>{images, columns, rows, width, scaling}.run(plane, first, count);
  }
}

template <class T>
void slabOf(const Images& images, const CoverSweep& columns, int width, const CoverSweep& rows, double scale, int plane,
            int first, int count)
{
  double block = 0;
  const auto with = [&](auto sum) {
    stripsOf<T, decltype(sum)>(images, columns, width, rows, Scaling(scale, sizeof(T) == 1 ? block : 0), plane, first,
                               count);
  };
  if constexpr (sizeof(T) == 1 || sizeof(T) == 4)
    if (halve<T>(images, columns, width, rows, scale, plane, first, count)) return;
  if constexpr (sizeof(T) <= 2 && !std::is_signed_v<T>) {
    if (columns.isWhole() && rows.isWhole()) {
      CoverSweep x = columns, y = rows;
      constexpr double most = std::numeric_limits<T>::max();
      const auto down = static_cast<double>(y.next().whole);
      block = down * static_cast<double>(x.next().whole);
      if (most * block > 2147483647.0) return with(std::uint64_t());
      if constexpr (sizeof(T) == 1)
        if (most * down <= 65535) return with(std::uint16_t());
      return with(std::uint32_t());
    }
  }
  with(float());
}

} // namespace

void supersample(const Images& images, const CoverSweep& columns, int width, const CoverSweep& rows, int height,
                 double scale)
{
  constexpr int picosecondsPerSample = 1000;
  const long long samples = static_cast<long long>(width) * height * images.channels * images.planes;
  masterSlabs(TeamRule::forWork(samples, picosecondsPerSample), Rounding::Nearest, height, 0, [&](const Slab& slab) {
    for (int p = 0; slab.count > 0 && p < images.planes; ++p) {
      switch (images.element) {
      case Element::U8: slabOf<Zor8u>(images, columns, width, rows, scale, p, slab.first, slab.count); break;
      case Element::U16: slabOf<Zor16u>(images, columns, width, rows, scale, p, slab.first, slab.count); break;
      case Element::S16: slabOf<Zor16s>(images, columns, width, rows, scale, p, slab.first, slab.count); break;
      case Element::F32: slabOf<Zor32f>(images, columns, width, rows, scale, p, slab.first, slab.count); break;
      }
    }
    return ZorOk;
  });
}

} // namespace resize
} // namespace zori
