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
    for (int x = 0; x + 1 < n; ++x) to[x] = pair(get<T>(from + x), get<T>(from + x + 1));
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
// samples with the taps one row above.
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

// The same of any number of vectors.
template <class T, int R, class Item>
void addRowsOfProducts(MeetingRows<Item> r, Item* sums, std::ptrdiff_t pitch, int vectors)
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
    taps_ = plan.add<Item>(static_cast<long long>(items_) * a_.tplSize.height);
    const std::int64_t taps = a_.tplSize.width + Taps<T>::tapsOfItem;
    rowsAtOnce_ = static_cast<int>(std::clamp<std::int64_t>(Taps<T>::mostTaps / taps, 1, INT32_MAX));
    samplePitch_ = static_cast<std::ptrdiff_t>(a_.srcSize.width) + 32;
    samples_ = threadPlan_.add<Item>(static_cast<long long>(samplePitch_) * sourceRowsAtOnce);
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
      Taps<T>::takeTaps(tpl[y], a_.tplSize.width, taps_.in(block) + static_cast<std::ptrdiff_t>(y) * items_);
      for (int x = 0; x < a_.tplSize.width; ++x) {
        const std::conditional_t<std::is_integral_v<T>, int, double> t = get<T>(tpl[y] + x);
        total += t;
        totalOfSquares += t * t;
      }
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
      for (int k = 0; k < n; ++k)
        Taps<T>::takeRow(src[static_cast<std::ptrdiff_t>(first) + r + k], a_.srcSize.width, samplePitch_,
                         samples_.in(own) + k * samplePitch_);
      // of these rows, output row y meets those from begin(y) to end(y)
      const auto begin = [=](int y) { return std::max(0, y - r); };
      const auto end = [=](int y) { return std::min(n, y + h - r); };
      const auto add = [&](auto outputRows, int y, int from, int to) {
        if (from < to)
          addTemplateRows<decltype(outputRows)::value>(r + from - y, to - from, samples_.in(own) + from * samplePitch_,
                                                       y, own);
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

  // Rows j .. j + rows - 1 of the template at output row y of the unit, and those one above at the next R - 1.
  template <int R> void addTemplateRows(int j, int rows, const Item* samples, int y, void* own) const
  {
    constexpr int perItem = Taps<T>::tapsOfItem;
    constexpr int most = Taps<T>::mostTaps > perItem ? Taps<T>::mostTaps / perItem : INT32_MAX;
    const int vectors = (results_ + Vec<Item>::size - 1) / Vec<Item>::size;
    const Item* const taps = taps_.in(block_) + static_cast<std::ptrdiff_t>(j) * items_;
    for (int i = 0; i < items_;) { // rows of more taps than a sum holds go alone and in parts
      const int n = std::min(most, items_ - i);
      addRowsOfProducts<T, R, Item>(
        {samples + static_cast<std::ptrdiff_t>(i) * perItem, taps + i, samplePitch_, items_, rows, n},
        sums_.in(own) + pitch_ * y, pitch_, vectors);
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
  std::ptrdiff_t pitch_, samplePitch_;
  int items_, rowsAtOnce_;
  double sum_ = 0, factor_ = 1; // the sum of the template's samples
  float deviation_ = 1;
  void* block_ = nullptr;
  BlockPart<Item> taps_, samples_, sums_;
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
