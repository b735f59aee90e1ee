// The last step of a correlation in tiles: a row of sums of products, as a tile holds them, to results. The numbers of
// the windows are formed on the way: division and square root take long enough for that.
#pragma once

#include "tile_engine.h"
#include "tile_transform.h"
#include "window_sums.h"

namespace zori {
namespace {

// What the last step needs to know of a template.
struct TemplateNumbers {
  float energy;    // |t|^2
  float divisor;   // of the last step, but for the window's share
  double sum;      // of the samples
  bool clearsFlat; // a window of V = 0 is known to be flat, and its C to be 0
};

// A row of sums of products: `strip` of them, then the next so many `apart` floats further on; each times `factor`.
struct SumsOfProducts {
  const float* first;
  std::ptrdiff_t apart;
  float factor;

  static constexpr int strip = TileTransform::strip, rowsAhead = 4; // at which rows are fetched into the nearest cache
};

// The numbers of windows that stand in memory; none.
struct ReadyWindows {
  const float* windows;
  [[gnu::always_inline]] Vec<float> operator()(std::ptrdiff_t x) const { return loadAligned<float>(windows + x); }
};
struct NoWindows {
  [[gnu::always_inline]] Vec<float> operator()(std::ptrdiff_t) const { return zero<float>(); }
};

// to[x] = step(sum x, number of window x) for n windows. Whether any number is above 0 and
// below `bound`.
template <class Windows, class Step>
[[gnu::noinline]] bool finishWindows(const SumsOfProducts& sums, const Windows& windowsAt, const Step& lastStep,
                                     float bound, int n, float* to)
{
  const UpperHalvesCleared atTheEnd;
  constexpr int size = Vec<float>::size, strip = SumsOfProducts::strip;
  const Windows windows = windowsAt; // copies that nobody else can see, so that what they hold stays in registers
  const Step step = lastStep;
  const Vec<float> factor = splat(sums.factor), most = splat(bound);
  Vec<float> found = zero<float>();
  const auto result = [&](const float* sum, std::ptrdiff_t x) {
    const Vec<float> w = windows(x);
    if constexpr (!std::is_same_v<Windows, NoWindows>) found = found | (less(w, most) & less(zero<float>(), w));
    return step(loadAligned<float>(sum) * factor, w);
  };
  const float* from = sums.first;
  std::ptrdiff_t x = 0;
  for (; x + strip <= n; x += strip, from += sums.apart) {
    prefetch(from + SumsOfProducts::rowsAhead * TileTransform::element);
    for (int i = 0; i < strip; i += size) store(to + x + i, result(from + i, x + i));
  }
  for (; x < n; x += size, from += size) {
    const Vec<float> last = result(from, x);
    if (x + size <= n) {
      store(to + x, last);
    } else {
      alignas(32) float lanes[size];
      storeAligned(lanes, last);
      for (int i = 0; i < n - x; ++i) put(to + x + i, lanes[i]);
    }
  }
  return moveMask(found) != 0;
}

// The last step of a job.
struct Finish {
  LastStep last;
  float floor, factor;
  TemplateNumbers tpl;

  template <class Windows>
  bool operator()(const SumsOfProducts& sums, const Windows& windows, float bound, int n, float* to) const
  {
    using V = Vec<float>;
    const V least = splat(floor), divisor = splat(tpl.divisor), energy = splat(tpl.energy);
    const auto raised = [=](V v) { return max(least, v); }; // a NaN stays one
    const auto run = [&](auto step) { return finishWindows(sums, windows, step, bound, n, to); };
    switch (last) {
    case LastStep::Norm: return run([=](V sum, V q) { return sum / (sqrt(raised(q)) * divisor); });
    case LastStep::Distance:
      return run([=](V sum, V q) { return ((sum * splat(-2.0f) + q) + energy) / (sqrt(raised(q)) * divisor); });
    case LastStep::Level:
      if (tpl.clearsFlat)
        return run([=](V sum, V v) { return without(sum / sqrt(raised(v) * divisor), equal(v, zero<float>())); });
      return run([=](V sum, V v) { return sum / sqrt(raised(v) * divisor); });
    default: return false;
    }
  }
  // Of a correlation without windows, and to have the sums themselves.
  static void takeSums(const SumsOfProducts& sums, int n, float* to)
  {
    finishWindows(
      sums, NoWindows{}, [](Vec<float> sum, Vec<float>) { return sum; }, 0, n, to);
  }
  void scaleSums(const SumsOfProducts& sums, int n, float* to) const
  {
    const Vec<float> by = splat(factor);
    finishWindows(
      sums, NoWindows{}, [=](Vec<float> sum, Vec<float>) { return sum * by; }, 0, n, to);
  }
};

} // namespace
} // namespace zori
