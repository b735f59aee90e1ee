// The correlation coefficient of a template and every window, by summing products: for images that hold few windows in
// a row. Results lie in lanes.
//
// - 8u, 8s: two taps at a time on 16-bit pairs of neighbours, in 32-bit integers, which are put away as doubles before
//   they could overflow: exact.
// - 32f: a row of the template in single precision, the rows in double.
//
// Output rows are worked in units of a fixed height, each with window sums of its own, so that no result depends on the
// team.
#pragma once

#include "extents.h"
#include "frame/parallel.h"
#include "window_sums.h"

namespace zori {
namespace {

// ---- One row of the template against one row of the source ----

// How samples and taps lie in memory, and what a row of products is summed in.
template <class T> struct Taps { // integers: pairs of 16-bit neighbours
  using Item = std::int32_t;     // a sample and the one behind it; two taps
  static constexpr int tapsOfItem = 2;
  static constexpr std::int64_t mostTaps = 33024; // before a sum of products of 255 leaves 31 bits

  static Item pair(int a, int b) { return static_cast<Item>((a & 0xffff) | static_cast<unsigned>(b) << 16); }
  // n samples, then zeros up to `padded`
  static void takeRow(const T* from, int n, std::ptrdiff_t padded, Item* to)
  {
    int x = 0;
    for (; x + 8 < n; x += 8)
      forEachWidened(interleaveLow(loadLow8<T>(from + x), loadLow8<T>(from + x + 1)),
                     [&](int lane, auto pairs) { store(to + x + lane / 2, as<Item>(pairs)); });
    for (; x + 1 < n; ++x) to[x] = pair(get<T>(from + x), get<T>(from + x + 1));
    to[n - 1] = pair(get<T>(from + n - 1), 0);
    std::fill(to + n, to + padded, 0);
  }
  static void takeTaps(const T* from, int n, Item* to)
  {
    for (int i = 0; i < n; i += 2) *to++ = pair(get<T>(from + i), i + 1 < n ? get<T>(from + i + 1) : 0);
  }
  static Vec<Item> product(Vec<Item> samples, Vec<Item> taps)
  {
    return mulAddPairs(as<std::int16_t>(samples), as<std::int16_t>(taps));
  }
};
template <> struct Taps<float> {
  using Item = float;
  static constexpr int tapsOfItem = 1;
  static constexpr std::int64_t mostTaps = 1; // rows are summed apart

  static void takeRow(const float* from, int n, std::ptrdiff_t padded, Item* to)
  {
    std::memcpy(to, from, static_cast<std::size_t>(n) * sizeof(float));
    std::fill(to + n, to + padded, 0.0f);
  }
  static void takeTaps(const float* from, int n, Item* to) { takeRow(from, n, n, to); }
  static Vec<Item> product(Vec<Item> samples, Vec<Item> taps) { return samples * taps; }
};

// Rows of samples and of taps that meet each other: `rows` rows of `items` taps. The next output row meets the same
// samples with the taps one row above. Rows of taps are filled up with zeros to whole vectors.
template <class Item> struct MeetingRows {
  const Item *samples, *taps;
  std::ptrdiff_t samplePitch, tapPitch;
  int rows, items;
};

// p itself, of which the compiler forgets where it came from: it would carry samples from one round of the loop to the
// next to spare a load, and run out of registers.
template <class P> inline P* forgotten(P* p)
{
  asm("" : "+r"(p));
  return p;
}

// sums[x] += products of the taps with the samples from x on, of V vectors in each of R output rows.
template <class T, int R, int V, class Item>
[[gnu::noinline]] void addProducts(const MeetingRows<Item>& r, Item* sums, std::ptrdiff_t pitch)
{
  constexpr int lanes = Vec<Item>::size;
  Vec<Item> a[R][V];
  for (int q = 0; q < R; ++q)
    for (int v = 0; v < V; ++v) a[q][v] = load<Item>(sums + q * pitch + v * lanes);
  for (int y = 0; y < r.rows; ++y) {
    const Item* samples = r.samples + y * r.samplePitch;
    const Item *const first = r.taps + y * r.tapPitch, *const second = first - (R - 1) * r.tapPitch;
    const std::ptrdiff_t items = r.items;
#pragma GCC unroll 2
    for (std::ptrdiff_t i = 0; i < items; ++i, samples += Taps<T>::tapsOfItem) {
      samples = forgotten(samples);
      const Vec<Item> t[2] = {splat(first[i]), splat(second[i])};
#pragma GCC unroll 8
      for (int v = 0; v < V; ++v) {
        const Vec<Item> s = load<Item>(samples + v * lanes);
#pragma GCC unroll 2
        for (int q = 0; q < R; ++q) a[q][v] += Taps<T>::product(s, t[q]);
      }
    }
  }
  for (int q = 0; q < R; ++q)
    for (int v = 0; v < V; ++v) store(sums + q * pitch + v * lanes, a[q][v]);
}

// The same of any number of vectors. Leaves the samples behind them.
template <class T, int R, class Item>
void addRowsOfProducts(MeetingRows<Item>& r, Item* sums, std::ptrdiff_t pitch, int vectors)
{
  constexpr int lanes = Vec<Item>::size;
  while (vectors > 0) {
    const int v = vectors > 5 ? std::min(vectors - 3, 5) : vectors; // the last two share what is left
    switch (v) {
    case 1: addProducts<T, R, 1>(r, sums, pitch); break;
    case 2: addProducts<T, R, 2>(r, sums, pitch); break;
    case 3: addProducts<T, R, 3>(r, sums, pitch); break;
    case 4: addProducts<T, R, 4>(r, sums, pitch); break;
    default: addProducts<T, R, 5>(r, sums, pitch); break;
    }
    r.samples += v * lanes;
    sums += v * lanes;
    vectors -= v;
  }
}

// Few integer results of a row, which would fill no more than half of a vector: their products are summed along the
// row. Their samples stand once more, one by one.
template <int R, class Item>
[[gnu::noinline]] void addColumns(const MeetingRows<Item>& r, const std::int16_t* column, std::ptrdiff_t columnPitch,
                                  Item* sums, std::ptrdiff_t pitch, int columns)
{
  constexpr int lanes = Vec<Item>::size;
  for (int c = 0; c < columns; ++c) {
    Vec<Item> sum[R];
    for (int q = 0; q < R; ++q) sum[q] = zero<Item>();
    for (int y = 0; y < r.rows; ++y) {
      const std::int16_t* const samples = column + y * columnPitch + c;
      const Item* const taps = r.taps + y * r.tapPitch;
      for (std::ptrdiff_t i = 0; i < r.items; i += lanes) {
        const auto s = load<std::int16_t>(samples + 2 * i);
        for (int q = 0; q < R; ++q) sum[q] += mulAddPairs(s, load<std::int16_t>(taps - q * r.tapPitch + i));
      }
    }
    for (int q = 0; q < R; ++q) {
      alignas(32) Item each[lanes];
      storeAligned(each, sum[q]);
      for (const Item part : each) sums[q * pitch + c] += part;
    }
  }
}

// ---- The match ----

constexpr int rowsOfUnit = 32, mostResults = 64, sourceRowsAtOnce = 16;

template <class T, class D> class DirectMatch {
public:
  using Item = typename Taps<T>::Item;

  DirectMatch(const MatchArguments<T, D>& arguments, BlockPlan& plan)
    : a_(arguments), results_(a_.srcSize.width - a_.tplSize.width + 1),
      rows_(a_.srcSize.height - a_.tplSize.height + 1), pitch_((results_ + 15) / 16 * 16),
      items_((a_.tplSize.width + Taps<T>::tapsOfItem - 1) / Taps<T>::tapsOfItem)
  {
    constexpr int lanes = Vec<Item>::size;
    const int left = results_ % lanes;
    if (std::is_integral_v<T> && left <= lanes / 2) columns_ = left;
    tapPitch_ = (static_cast<std::ptrdiff_t>(items_) + lanes - 1) / lanes * lanes;
    taps_ = plan.add<Item>(static_cast<long long>(tapPitch_) * a_.tplSize.height);
    const std::int64_t taps = a_.tplSize.width + Taps<T>::tapsOfItem;
    rowsAtOnce_ = static_cast<int>(std::clamp<std::int64_t>(Taps<T>::mostTaps / taps, 1, INT32_MAX));
    samplePitch_ = static_cast<std::ptrdiff_t>(a_.srcSize.width) + 32;
    samples_ = threadPlan_.add<Item>(static_cast<long long>(samplePitch_) * sourceRowsAtOnce);
    const long long column = columns_ > 0 ? static_cast<long long>(Taps<T>::tapsOfItem) * tapPitch_ + columns_ - 1 : 0;
    column_ = threadPlan_.add<std::int16_t>(column * sourceRowsAtOnce);
    columnPitch_ = static_cast<std::ptrdiff_t>(column);
    sums_ = threadPlan_.add<Item>(static_cast<long long>(pitch_) * rowsOfUnit);
    totals_ = threadPlan_.add<double>(static_cast<long long>(pitch_) * rowsOfUnit);
    windows_ = threadPlan_.add<double>(WindowSums<T>::memoryFor(a_.srcSize.width));
    deviations_ = threadPlan_.add<float>(pitch_);
  }
  const BlockPlan& threadPlan() const { return threadPlan_; }
  int units() const { return (rows_ + rowsOfUnit - 1) / rowsOfUnit; }
  long long products() const { return static_cast<long long>(results_) * rows_ * std::min<long long>(area(), 1 << 20); }

  void prepare(void* block)
  {
    block_ = block;
    std::conditional_t<std::is_integral_v<T>, std::int64_t, double> total = 0, totalOfSquares = 0;
    const Rows tpl{a_.pTpl, a_.tplStep};
    for (int y = 0; y < a_.tplSize.height; ++y) {
      Item* const taps = taps_.in(block) + y * tapPitch_;
      std::fill(taps + items_, taps + tapPitch_, Item(0));
      Taps<T>::takeTaps(tpl[y], a_.tplSize.width, taps);
      addTaps(tpl[y], a_.tplSize.width, total, totalOfSquares);
    }
    const double squares = static_cast<double>(totalOfSquares);
    sum_ = static_cast<double>(total);
    const float energy = static_cast<float>(squares - sum_ * sum_ / area());
    deviation_ = std::sqrt(energy < floorOf<T> ? floorOf<T> : energy);
    factor_ = std::ldexp(1.0, -std::clamp(a_.scaleFactor, -1000, 1000));
  }

  void work(int unit, void* own) const
  {
    const int first = unit * rowsOfUnit, count = std::min(rowsOfUnit, rows_ - first);
    std::fill_n(sums_.in(own), pitch_ * count, Item(0));
    std::fill_n(totals_.in(own), pitch_ * count, 0.0);
    const Rows src{a_.pSrc, a_.srcStep};
    const int h = a_.tplSize.height, sourceRows = count + h - 1, atOnce = std::min(rowsAtOnce_, sourceRowsAtOnce);
    const bool isShared = rowsAtOnce_ > 1;
    int since[rowsOfUnit] = {}; // rows of products that a row's sums hold
    for (int r = 0; r < sourceRows; r += atOnce) {
      const int n = std::min(atOnce, sourceRows - r);
      for (int k = 0; k < n; ++k) {
        const T* const from = src[static_cast<std::ptrdiff_t>(first) + r + k];
        Taps<T>::takeRow(from, a_.srcSize.width, samplePitch_, samples_.in(own) + k * samplePitch_);
        if (columns_ > 0) takeColumns(from, column_.in(own) + k * columnPitch_);
      }
      // of these rows, output row y meets those from begin(y) to end(y)
      const auto begin = [=](int y) { return std::max(0, y - r); };
      const auto end = [=](int y) { return std::min(n, y + h - r); };
      const auto add = [&](auto outputRows, int y, int from, int to) {
        if (from < to) addTemplateRows<decltype(outputRows)::value>(r + from - y, to - from, from, y, own);
      };
      constexpr std::integral_constant<int, 1> one;
      constexpr std::integral_constant<int, 2> two;
      const int last = std::min(count, r + n);
      for (int y = std::max(0, r - h + 1); y < last; ++y) {
        putAwayIfFull(y, end(y) - begin(y), since, own);
        if (y + 1 < last && isShared) {
          putAwayIfFull(y + 1, end(y + 1) - begin(y + 1), since, own);
          add(one, y, begin(y), begin(y + 1));
          add(two, y, begin(y + 1), end(y));
          add(one, y + 1, end(y), end(y + 1));
          ++y;
        } else {
          add(one, y, begin(y), end(y));
        }
      }
    }
    for (int y = 0; y < count; ++y) putAway(y, own);
    WindowSums<T> windows({src, a_.srcSize.width, a_.srcSize.height, 1, 0, first}, a_.tplSize.width, h, results_, count,
                          WindowSum::Deviation, windows_.in(own), a_.srcSize.width, nullptr, nullptr, 0);
    for (int y = 0; y < count; ++y) {
      windows.goTo(y);
      windows.numbers(deviations_.in(own));
      finishRow(windows, totals_.in(own) + pitch_ * y, deviations_.in(own),
                rowAt(a_.pDst, a_.dstStep, static_cast<std::ptrdiff_t>(first) + y));
    }
  }

private:
  double area() const { return static_cast<double>(a_.tplSize.width) * a_.tplSize.height; }

  template <class Total> static void addTaps(const T* from, int n, Total& total, Total& totalOfSquares)
  {
    if constexpr (std::is_integral_v<T>) {
      constexpr int most = 1 << 15; // squares of 255 then fit 31 bits
      for (int x = 0; x < n;) {
        int sum = 0, squares = 0;
        for (const int end = x + std::min(most, n - x); x < end; ++x) {
          const int t = get<T>(from + x);
          sum += t;
          squares += t * t;
        }
        total += sum;
        totalOfSquares += squares;
      }
    } else {
      for (int x = 0; x < n; ++x) {
        const double t = get<T>(from + x);
        total += t;
        totalOfSquares += t * t;
      }
    }
  }
  // The samples that the last results of a row meet.
  void takeColumns(const T* from, std::int16_t* to) const
  {
    const int first = results_ - columns_, n = a_.srcSize.width - first;
    for (int x = 0; x < n; ++x) to[x] = static_cast<std::int16_t>(get<T>(from + first + x));
    std::fill(to + n, to + columnPitch_, std::int16_t(0));
  }
  // Rows j .. j + rows - 1 of the template at output row y of the unit, and those one above at the next R - 1. They
  // meet the rows of samples from row `from` of those at hand.
  template <int R> void addTemplateRows(int j, int rows, int from, int y, void* own) const
  {
    constexpr int perItem = Taps<T>::tapsOfItem;
    constexpr int most = Taps<T>::mostTaps > perItem ? Taps<T>::mostTaps / perItem : INT32_MAX;
    const int inVectors = results_ - columns_, vectors = (inVectors + Vec<Item>::size - 1) / Vec<Item>::size;
    const Item* const taps = taps_.in(block_) + j * tapPitch_;
    const Item* const samples = samples_.in(own) + from * samplePitch_;
    Item* const sums = sums_.in(own) + pitch_ * y;
    for (int i = 0; i < items_;) { // rows of more taps than a sum holds go alone and in parts
      const int n = std::min(most, items_ - i);
      const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(i) * perItem;
      MeetingRows<Item> meeting = {samples + at, taps + i, samplePitch_, tapPitch_, rows, n};
      addRowsOfProducts<T, R, Item>(meeting, sums, pitch_, vectors);
      if constexpr (std::is_integral_v<T>)
        if (columns_ > 0)
          addColumns<R>(meeting, column_.in(own) + from * columnPitch_ + at, columnPitch_, sums + inVectors, pitch_,
                        columns_);
      i += n;
      if (i < items_) putAway(y, own);
    }
  }
  // Before so many more rows of products come to the sums of output row y.
  void putAwayIfFull(int y, int rows, int* since, void* own) const
  {
    if (since[y] + rows > rowsAtOnce_) {
      putAway(y, own);
      since[y] = 0;
    }
    since[y] += rows;
  }
  void putAway(int y, void* own) const
  {
    Item* const sums = sums_.in(own) + pitch_ * y;
    double* const totals = totals_.in(own) + pitch_ * y;
    for (int x = 0; x < pitch_; ++x) {
      totals[x] += sums[x];
      sums[x] = 0;
    }
  }

  void finishRow(const WindowSums<T>& windows, double* totals, const float* deviations, D* to) const
  {
    float results[mostResults];
    double samples[mostResults];
    windows.sumsOfSamples(samples);
    const double sum = sum_, n = area(), mean = sum_ / n;
    const float floor = floorOf<T>, deviation = deviation_;
    for (int x = 0; x < results_; ++x) {
      // of integers exact, so that a flat window gives 0
      const double products =
        std::is_integral_v<T> ? (n * totals[x] - sum * samples[x]) / n : totals[x] - mean * samples[x];
      results[x] =
        static_cast<float>(products) / (std::sqrt(deviations[x] < floor ? floor : deviations[x]) * deviation);
    }
    if constexpr (std::is_same_v<D, float>) {
      std::memcpy(to, results, static_cast<std::size_t>(results_) * sizeof(float));
    } else {
      for (int x = 0; x < results_; ++x) {
        const double scaled = results[x] * factor_;
        put(to + x, static_cast<D>(scaled < 0 ? 0 : scaled > 255 ? 255 : static_cast<int>(scaled + 0.5)));
      }
    }
  }

  const MatchArguments<T, D>& a_;
  int results_, rows_;
  std::ptrdiff_t pitch_, samplePitch_, tapPitch_, columnPitch_;
  int items_, rowsAtOnce_;
  int columns_ = 0;             // so many results of a row are summed along the row
  double sum_ = 0, factor_ = 1; // the sum of the template's samples
  float deviation_ = 1;
  void* block_ = nullptr;
  BlockPart<Item> taps_, samples_, sums_;
  BlockPart<std::int16_t> column_;
  BlockPart<double> totals_, windows_;
  BlockPart<float> deviations_;
  BlockPlan threadPlan_;
};

constexpr int picosecondsPerProduct = 60;

template <class T, class D> ZorStatus matchDirectly(const MatchArguments<T, D>& arguments)
{
  BlockPlan plan;
  DirectMatch<T, D> match(arguments, plan);
  if (plan.isImpossible() || match.threadPlan().isImpossible()) return ZorErrAlloc;
  Scratch<Zor8u> block(plan.bytes());
  if (!block) return ZorErrAlloc;
  const auto prepare = [&] { match.prepare(block.get()); };
  underRounding(Rounding::Nearest, prepare);
  return masterSlabs(TeamRule::forWork(match.products(), picosecondsPerProduct), Rounding::Nearest, match.units(),
                     static_cast<std::size_t>(match.threadPlan().bytes()), [&](const Slab& slab) {
                       for (int u = slab.first; u < slab.first + slab.count; ++u) match.work(u, slab.buffer);
                       return ZorOk;
                     });
}

} // namespace
} // namespace zori
