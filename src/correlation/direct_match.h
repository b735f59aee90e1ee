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
  static void takeRow(const T* from, int n, int padded, Item* to)
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

  static void takeRow(const float* from, int n, int padded, Item* to)
  {
    std::memcpy(to, from, static_cast<std::size_t>(n) * sizeof(float));
    std::fill(to + n, to + padded, 0.0f);
  }
  static void takeTaps(const float* from, int n, Item* to) { takeRow(from, n, n, to); }
  static Vec<Item> product(Vec<Item> samples, Vec<Item> taps) { return samples * taps; }
};

// sums[x] += products of the taps with the samples from x on, of V vectors.
template <class T, int V, class Item>
[[gnu::noinline]] void addProducts(const Item* samples, const Item* taps, std::ptrdiff_t items, Item* sums)
{
  constexpr int lanes = Vec<Item>::size;
  Vec<Item> a[V];
  for (int v = 0; v < V; ++v) a[v] = load<Item>(sums + v * lanes);
  for (std::ptrdiff_t i = 0; i < items; ++i, samples += Taps<T>::tapsOfItem) {
    const Vec<Item> t = splat(taps[i]);
#pragma GCC unroll 8
    for (int v = 0; v < V; ++v) a[v] += Taps<T>::product(load<Item>(samples + v * lanes), t);
  }
  for (int v = 0; v < V; ++v) store(sums + v * lanes, a[v]);
}

// The same of any number of vectors.
template <class T, class Item>
void addRowOfProducts(const Item* samples, const Item* taps, std::ptrdiff_t items, Item* sums, int vectors)
{
  constexpr int lanes = Vec<Item>::size;
  while (vectors > 0) {
    const int v = vectors > 6 ? std::min(vectors - 3, 6) : vectors; // the last two share what is left
    switch (v) {
    case 1: addProducts<T, 1>(samples, taps, items, sums); break;
    case 2: addProducts<T, 2>(samples, taps, items, sums); break;
    case 3: addProducts<T, 3>(samples, taps, items, sums); break;
    case 4: addProducts<T, 4>(samples, taps, items, sums); break;
    case 5: addProducts<T, 5>(samples, taps, items, sums); break;
    default: addProducts<T, 6>(samples, taps, items, sums); break;
    }
    samples += v * lanes;
    sums += v * lanes;
    vectors -= v;
  }
}

// ---- The match ----

constexpr int rowsOfUnit = 32;

template <class T, class D> class DirectMatch {
public:
  using Item = typename Taps<T>::Item;

  DirectMatch(const MatchArguments<T, D>& arguments, BlockPlan& plan)
    : a_(arguments), results_(a_.srcSize.width - a_.tplSize.width + 1),
      rows_(a_.srcSize.height - a_.tplSize.height + 1), pitch_((results_ + 15) / 16 * 16),
      items_((a_.tplSize.width + Taps<T>::tapsOfItem - 1) / Taps<T>::tapsOfItem)
  {
    taps_ = plan.add<Item>(static_cast<long long>(items_) * a_.tplSize.height);
    samples_ = threadPlan_.add<Item>(a_.srcSize.width + 32LL);
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
    double sum = 0, squares = 0;
    const Rows tpl{a_.pTpl, a_.tplStep};
    for (int y = 0; y < a_.tplSize.height; ++y) {
      Taps<T>::takeTaps(tpl[y], a_.tplSize.width, taps_.in(block) + static_cast<std::ptrdiff_t>(y) * items_);
      for (int x = 0; x < a_.tplSize.width; ++x) {
        const double t = get<T>(tpl[y] + x);
        sum += t;
        squares += t * t;
      }
    }
    mean_ = sum / area();
    const float energy = static_cast<float>(squares - sum * sum / area());
    deviation_ = std::sqrt(energy < floorOf<T> ? floorOf<T> : energy);
    factor_ = std::ldexp(1.0, -std::clamp(a_.scaleFactor, -1000, 1000));
  }

  void work(int unit, void* own) const
  {
    const int first = unit * rowsOfUnit, count = std::min(rowsOfUnit, rows_ - first);
    std::fill_n(sums_.in(own), pitch_ * count, Item(0));
    std::fill_n(totals_.in(own), pitch_ * count, 0.0);
    const Rows src{a_.pSrc, a_.srcStep};
    const int h = a_.tplSize.height;
    for (int r = 0; r < count + h - 1; ++r) {
      Taps<T>::takeRow(src[static_cast<std::ptrdiff_t>(first) + r], a_.srcSize.width, a_.srcSize.width + 32,
                       samples_.in(own));
      for (int y = std::max(0, r - h + 1); y < std::min(count, r + 1); ++y) addTemplateRow(r - y, y, own);
    }
    WindowSums<T> windows({src, a_.srcSize.width, a_.srcSize.height, 1, 0, first}, a_.tplSize.width, h, results_,
                          WindowSum::Deviation, windows_.in(own), a_.srcSize.width, nullptr, nullptr);
    for (int y = 0; y < count; ++y) {
      windows.row(y, deviations_.in(own));
      finishRow(windows, totals_.in(own) + pitch_ * y, deviations_.in(own),
                rowAt(a_.pDst, a_.dstStep, static_cast<std::ptrdiff_t>(first) + y));
    }
  }

private:
  double area() const { return static_cast<double>(a_.tplSize.width) * a_.tplSize.height; }

  // Row j of the template at output row y of the unit.
  void addTemplateRow(int j, int y, void* own) const
  {
    constexpr int perItem = Taps<T>::tapsOfItem;
    constexpr std::int64_t most = Taps<T>::mostTaps;
    const int w = a_.tplSize.width, h = a_.tplSize.height;
    const int vectors = (results_ + Vec<Item>::size - 1) / Vec<Item>::size;
    Item* const sums = sums_.in(own) + pitch_ * y;
    const Item* const taps = taps_.in(block_) + static_cast<std::ptrdiff_t>(j) * items_;
    const int part = most > perItem ? static_cast<int>(most) / perItem : items_;
    for (int i = 0; i < items_; i += part) {
      addRowOfProducts<T>(samples_.in(own) + static_cast<std::ptrdiff_t>(i) * perItem, taps + i,
                          std::min(part, items_ - i), sums, vectors);
      if (items_ > part) putAway(y, own);
    }
    const int rowsAtOnce = static_cast<int>(std::max<std::int64_t>(1, most / (w + perItem)));
    if (j == h - 1 || (j + 1) % rowsAtOnce == 0) putAway(y, own);
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

  void finishRow(const WindowSums<T>& windows, const double* totals, const float* deviations, D* to) const
  {
    for (int x = 0; x < results_; ++x) {
      const float numerator = static_cast<float>(totals[x] - mean_ * windows.sumOfSamples(x));
      const float energy = deviations[x] < floorOf<T> ? floorOf<T> : deviations[x];
      const float result = numerator / (std::sqrt(energy) * deviation_);
      if constexpr (std::is_same_v<D, float>) put(to + x, result);
      else {
        const double scaled = result * factor_;
        put(to + x, static_cast<D>(scaled < 0 ? 0 : scaled > 255 ? 255 : static_cast<int>(scaled + 0.5)));
      }
    }
  }

  const MatchArguments<T, D>& a_;
  int results_, rows_;
  std::ptrdiff_t pitch_;
  int items_;
  double mean_ = 0, factor_ = 1;
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
