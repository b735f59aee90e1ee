// Correlation in tiles: see tile_engine.h.
#include "tile_engine.h"

#include "frame/parallel.h"
#include "last_step.h"
#include "nearly_flat.h"
#include "result_row.h"
#include "tile_transform.h"

namespace zori {
namespace {

constexpr int strip = TileTransform::strip, element = TileTransform::element;

// The samples of a template one by one, as doubles.
template <class T> struct TemplateSamples {
  JobImage<const T> image;
  int channels, channel;
  bool isTurned;

  T at(std::int64_t x, std::int64_t y) const
  {
    if (isTurned) x = image.width - 1 - x, y = image.height - 1 - y;
    return get<T>(image.rows[static_cast<std::ptrdiff_t>(y)] + static_cast<std::ptrdiff_t>(x) * channels + channel);
  }
  // sum of f(sample)
  template <class F> double sum(F f) const
  {
    double total = 0;
    for (std::int64_t y = 0; y < image.height; ++y)
      for (std::int64_t x = 0; x < image.width; ++x) total += f(static_cast<double>(at(x, y)));
    return total;
  }
};

// ---- Samples of a tile as they enter the transform: (sample - offset) * scale ----

// Bits that are not counted of squares.
template <class T> constexpr int squaresLost = sizeof(T) == 1 ? 0 : 8;

struct TileNumbers {
  int offset = 0;            // of integers
  float scale = 1;           // of floats
  std::uint64_t squares = 0; // of integers less the offset; of 16 bits about
};

// `rows` rows of 16 samples, `step` bytes apart, to every second half of an element.
[[gnu::noinline]] inline void takeRows(const float* from, int step, int rows, TileNumbers& numbers, float* to)
{
  const Vec<float> scale = splat(numbers.scale);
  for (int y = 0; y < rows; ++y, to += element) {
    const float* const p = rowAt(from, step, y);
    prefetch(p + strip); // for the strip beside this one
    for (int i = 0; i < strip; i += Vec<float>::size) storeAligned(to + i, load<float>(p + i) * scale);
  }
}
template <class T> [[gnu::noinline]] void takeRows(const T* from, int step, int rows, TileNumbers& numbers, float* to)
{
  using Pairs = Vec<std::int16_t>;
  constexpr int lanes = Vec<std::int32_t>::size, mostRows = sizeof(T) == 1 ? 8192 : 64; // before sums could wrap
  for (int y = 0; y < rows;) {
    Vec<std::uint32_t> squares = zero<std::uint32_t>();
    for (const int end = std::min(rows, y + mostRows); y < end; ++y, to += element) {
      const T* const p = rowAt(from, step, y);
#pragma GCC unroll 2
      for (int i = 0; i < strip; i += Pairs::size) {
        if constexpr (sizeof(T) == 1) {
          const Pairs x =
            as<std::int16_t>(loadHalfWidened<T>(p + i)) - splat(static_cast<std::int16_t>(numbers.offset));
          squares += as<std::uint32_t>(mulAddPairs(x, x));
          storeAligned(to + i, toFloat(widenLow(x)));
          storeAligned(to + i + lanes, toFloat(widenHigh(x)));
        } else { // squares of halves, without their last bits
          const auto offset = splat<std::int32_t>(numbers.offset);
          Vec<WiderT<T>> low, high;
          loadWidened<T>(p + i, low, high);
          storeAligned(to + i, toFloat(as<std::int32_t>(low) - offset));
          storeAligned(to + i + lanes, toFloat(as<std::int32_t>(high) - offset));
          const Pairs x =
            as<std::int16_t>(shiftRight<1>(load<T>(p + i))) - splat(static_cast<std::int16_t>(numbers.offset >> 1));
          squares += shiftRight<squaresLost<T> - 2>(as<std::uint32_t>(mulAddPairs(x, x)));
        }
      }
    }
    alignas(32) std::uint32_t each[Vec<std::uint32_t>::size];
    storeAligned(each, squares);
    for (const std::uint32_t sum : each) numbers.squares += std::uint64_t{sum} << squaresLost<T>;
  }
}

// The strip from column x on, as the real or the imaginary parts of `rows` elements.
template <class T>
void takeStrip(const TileView<T>& view, std::int64_t x, int rows, TileNumbers& numbers, float* to, T* spare)
{
  const auto take = [&](const T* p, int step, int y, int count) {
    float* const first = to + static_cast<std::ptrdiff_t>(y) * element;
    takeRows(p, step, count, numbers, first);
  };
  const bool isBeside = view.isBeside(x, strip);
  const int first = isBeside ? rows : view.firstRow(rows), end = isBeside ? rows : view.endRow(rows);
  const auto takeZeros = [&](int y, int count) {
    std::fill(spare, spare + strip, T(0));
    take(spare, 0, y, count);
  };
  if (first > 0) takeZeros(0, first);
  if (first < end && view.isThere(x, strip))
    take(view.run(x, first, strip, spare), view.image.step, first, end - first);
  else
    for (int y = first; y < end; ++y) take(view.run(x, y, strip, spare), 0, y, 1);
  if (end < rows) takeZeros(end, rows - end);
}

// The mean of a tile's samples as an integer, of every fourth row.
template <class T> int meanOf(const TileView<T>& view, int width, int height, T* spare)
{
  std::int64_t sum = 0;
  const int apart = height < 16 ? 1 : 4;
  for (int y = 0; y < height; y += apart) {
    const T* const p = view.run(0, y, width, spare);
    for (int x = 0; x < width;) {
      std::int32_t part = 0; // of at most 2^15 samples
      for (const int end = std::min(width, x + 32768); x < end; ++x) part += get<T>(p + x);
      sum += part;
    }
  }
  return static_cast<int>(sum / (static_cast<std::int64_t>(width) * (height / apart)));
}

// The greatest magnitude as bits, which order as magnitudes do; beyond all numbers where there is a NaN or an infinity.
class GreatestBits {
public:
  GreatestBits()
  {
    for (int k = 0; k < parts; ++k) greatest_[k] = times0_[k] = zero<float>();
  }
  // `rows` rows of n, `step` bytes apart.
  [[gnu::noinline]] void add(const float* from, int step, int rows, int n)
  {
    const UpperHalvesCleared atTheEnd;
    const Vec<float> sign = splat(-0.0f);
    Vec<float> greatest[parts], times0[parts];
    for (int k = 0; k < parts; ++k) greatest[k] = greatest_[k], times0[k] = times0_[k];
    for (int y = 0; y < rows; ++y) {
      const float* const p = rowAt(from, step, y);
      int x = 0;
      for (; x + parts * size <= n; x += parts * size)
        for (int k = 0; k < parts; ++k) {
          const Vec<float> v = load<float>(p + x + k * size);
          greatest[k] = max(without(v, sign), greatest[k]);
          times0[k] += v * zero<float>();
        }
      for (; x < n; ++x) most_ = std::max(most_, zori::get<std::int32_t>(p + x) & 0x7fffffff);
    }
    for (int k = 0; k < parts; ++k) greatest_[k] = greatest[k], times0_[k] = times0[k];
  }
  std::int32_t get() const
  {
    constexpr std::int32_t noNumber = 255 << 23;
    alignas(32) float lanes[size], products[size];
    store(lanes, max(max(greatest_[0], greatest_[1]), max(greatest_[2], greatest_[3])));
    store(products, (times0_[0] + times0_[1]) + (times0_[2] + times0_[3]));
    std::int32_t most = most_;
    for (int i = 0; i < size; ++i)
      most = std::max(most, products[i] == 0 ? zori::get<std::int32_t>(lanes + i) : noNumber);
    return most;
  }

private:
  static constexpr int size = Vec<float>::size, parts = 4;
  Vec<float> greatest_[parts], times0_[parts]; // the latter become NaNs
  std::int32_t most_ = 0;                      // of the ends of rows
};

// The exponent of the greatest magnitude in a tile: 0 of zeros and tiny ones, 255 of an infinity or a NaN.
inline int exponentOf(const TileView<float>& view, int width, int height, float* spare)
{
  GreatestBits bits;
  const int first = view.firstRow(height), end = view.endRow(height);
  if (view.isThere(0, width) && first < end)
    bits.add(view.run(0, first, width, spare), view.image.step, end - first, width);
  else
    for (int y = first; y < end; ++y) bits.add(view.run(0, y, width, spare), 0, 1, width);
  return bits.get() >> 23;
}

// ---- A job ----

struct TilePlace {
  std::int64_t x, y; // of its first result
  int width, height; // results
};

template <class T, class D> class Tiles {
public:
  explicit Tiles(const CorrelationJob<T, D>& job, BlockPlan& plan)
    : job_(job), tile_(chooseTileShape({job.tpl.width, job.result.width, job.orderX, job.runsOver},
                                       {job.tpl.height, job.result.height, job.orderY, job.runsOver})),
      transform_(tile_.width, tile_.height, plan),
      across_((job.result.width + tile_.resultsAcross - 1) / tile_.resultsAcross),
      down_((job.result.height + tile_.resultsDown - 1) / tile_.resultsDown)
  {
    for (int c = 0; c < job.processed; ++c) spectrum_[c] = plan.add<float>(transform_.spectrumFloats());
    values_ = threadPlan_.add<float>(transform_.tileFloats());
    set_ = threadPlan_.add<float>(transform_.setFloats());
    sums_ = threadPlan_.add<double>(hasWindows() ? WindowSums<T>::memoryFor(transform_.width()) : 0);
    const long long row = rowFloats();
    results_ = threadPlan_.add<float>(row);
    windows_ = threadPlan_.add<float>(row);
    stored_ = threadPlan_.add<D>(row);
    for (auto& part : spare_) part = threadPlan_.add<T>(2 * row);
    if (isLaidOut())
      for (auto& part : plane_)
        part = threadPlan_.add<T>(static_cast<long long>(transform_.width()) * transform_.height());
    if (!mendsNearlyFlat()) return;
    for (int c = 0; c < job.processed; ++c)
      taps_[c] = plan.add<std::int32_t>(TurnedTaps::memoryFor(job.tpl.width, job.tpl.height));
    for (auto& part : flat_) part = threadPlan_.add<double>(row + TurnedTaps::zeros);
  }

  const BlockPlan& threadPlan() const { return threadPlan_; }
  std::int64_t count() const { return across_ * down_; }
  std::int64_t pairs() const { return (count() + 1) / 2; }                                      // of a channel
  std::int64_t values() const { return static_cast<std::int64_t>(tile_.width) * tile_.height; } // of a tile

  // Tables and spectra; `own` is memory of a thread's size.
  void prepare(void* block, void* own)
  {
    block_ = block;
    transform_.fill(block);
    for (int c = 0; c < job_.processed; ++c) prepareTemplate(c, values_.in(own));
  }

  // The thread's share: pairs first, first + step ... of all channels.
  void work(std::int64_t first, std::int64_t step, void* own) const
  {
    for (std::int64_t unit = first; unit < pairs() * job_.processed; unit += step) {
      const int channel = static_cast<int>(unit / pairs());
      const std::int64_t number = unit % pairs() * 2;
      const int tiles = number + 1 < count() ? 2 : 1;
      TileView<T> view[2];
      TileNumbers numbers[2];
      bool isApart = false;
      for (int k = 0; k < tiles; ++k) {
        view[k] = viewOf(placeOf(number + k), channel);
        if (isLaidOut()) view[k] = view[k].laidOut(transform_.width(), transform_.height(), plane_[k].in(own));
        if (!bring(view[k], numbers[k], spare_[0].in(own))) isApart = true;
      }
      if (isApart)
        for (int k = 0; k < tiles; ++k) workTogether(number + k, 1, channel, view + k, numbers + k, own);
      else workTogether(number, tiles, channel, view, numbers, own);
    }
  }

private:
  std::ptrdiff_t rowFloats() const { return static_cast<std::ptrdiff_t>(transform_.strips()) * strip; }
  // Samples of one of several channels are brought together first.
  bool isLaidOut() const { return job_.channels > 1 && tile_.width < 1 << 28; }
  bool hasWindows() const { return job_.last != LastStep::Plain; }
  bool mendsNearlyFlat() const { return std::is_integral_v<T> && job_.last == LastStep::Level; }

  TilePlace placeOf(std::int64_t number) const
  {
    // two rows of tiles at a time, so that the tiles of a pair end at the same column and have empty strips in common
    const std::int64_t inTwos = down_ / 2 * 2 * across_, pair = number / 2;
    const std::int64_t column = number < inTwos ? pair % across_ : number - inTwos;
    const std::int64_t row = number < inTwos ? pair / across_ * 2 + number % 2 : down_ - 1;
    const std::int64_t x = column * tile_.resultsAcross, y = row * tile_.resultsDown;
    return {x, y, static_cast<int>(std::min<std::int64_t>(tile_.resultsAcross, job_.result.width - x)),
            static_cast<int>(std::min<std::int64_t>(tile_.resultsDown, job_.result.height - y))};
  }
  TileView<T> viewOf(const TilePlace& place, int channel) const
  {
    return {{job_.source.rows.first + channel, job_.source.rows.step},
            static_cast<int>(job_.source.width),
            static_cast<int>(job_.source.height),
            job_.channels,
            place.x + job_.originX,
            place.y + job_.originY};
  }

  void prepareTemplate(int channel, float* tile)
  {
    const TemplateSamples<T> t{job_.tpl, job_.channels, channel, job_.isTurned};
    const double samples = static_cast<double>(t.image.width) * static_cast<double>(t.image.height);
    double mean = 0;
    TemplateNumbers& numbers = numbers_[channel];
    if (job_.last == LastStep::Level) {
      numbers.sum = t.sum([](double v) { return v; });
      mean = numbers.sum / samples;
      const double energy = t.sum([=](double v) { return (v - mean) * (v - mean); });
      numbers.divisor = std::max(job_.floor, static_cast<float>(energy));
      numbers.clearsFlat = std::is_integral_v<T>;
    } else if (hasWindows()) {
      const float norm = static_cast<float>(std::sqrt(t.sum([](double v) { return v * v; })));
      numbers.divisor = std::max(job_.floor, norm);
      numbers.energy = norm * norm;
    }
    std::memset(tile, 0, static_cast<std::size_t>(transform_.tileFloats()) * sizeof(float));
    for (std::int64_t x0 = 0; x0 < t.image.width; x0 += strip) {
      float* const to = transform_.stripOf(tile, static_cast<int>(x0 / strip));
      const int n = static_cast<int>(std::min<std::int64_t>(strip, t.image.width - x0));
      for (std::int64_t y = 0; y < t.image.height; ++y)
        for (int i = 0; i < n; ++i)
          to[y * element + i] = static_cast<float>(static_cast<double>(t.at(x0 + i, y)) - mean);
      transform_.forwardColumns(block_, to);
    }
    transform_.formSpectrum(block_, tile, spectrum_[channel].in(block_));
    if constexpr (std::is_integral_v<T>)
      if (mendsNearlyFlat()) turnTaps(t, taps_[channel].in(block_));
  }
  static void turnTaps(const TemplateSamples<T>& t, std::int32_t* to)
  {
    for (std::int64_t y = 0; y < t.image.height; ++y) {
      for (std::int64_t x = t.image.width; x-- > 0;) *to++ = t.at(x, y);
      to = std::fill_n(to, TurnedTaps::zeros, 0);
    }
  }

  // How a tile's samples enter the transform; false when it must go alone.
  bool bring(const TileView<T>& view, TileNumbers& numbers, T* spare) const
  {
    const int width = transform_.width(), height = transform_.height();
    if constexpr (std::is_floating_point_v<T>) {
      const int exponent = exponentOf(view, width, height, spare);
      const std::int32_t inverse = std::clamp(254 - exponent, 1, 253) << 23; // the power of two that undoes it
      if (exponent > 0) numbers.scale = get<float>(&inverse);
      return exponent < 255;
    } else {
      if (job_.last == LastStep::Level) numbers.offset = meanOf(view, width, height, spare);
      return true;
    }
  }
  // Whether a strip holds zeros alone.
  static bool isEmpty(const TileView<T>* view, const TileNumbers* numbers, int tiles, int s)
  {
    for (int k = 0; k < tiles; ++k)
      if (numbers[k].offset != 0 || !view[k].isBeside(static_cast<std::int64_t>(s) * strip, strip)) return false;
    return true;
  }
  void workTogether(std::int64_t number, int tiles, int channel, const TileView<T>* view, TileNumbers* numbers,
                    void* own) const
  {
    float* const tile = values_.in(own);
    T* const spare = spare_[0].in(own);
    for (int s = 0; s < transform_.strips(); ++s) {
      float* const to = transform_.stripOf(tile, s);
      if (isEmpty(view, numbers, tiles, s)) { // as is its transform
        std::fill_n(to, static_cast<std::ptrdiff_t>(transform_.height()) * element, 0.0f);
        continue;
      }
      for (int k = 0; k < tiles; ++k)
        takeStrip(view[k], static_cast<std::int64_t>(s) * strip, transform_.height(), numbers[k], to + k * strip,
                  spare);
      if (tiles == 1)
        for (std::ptrdiff_t y = 0; y < transform_.height(); ++y) std::fill_n(to + y * element + strip, strip, 0.0f);
      transform_.forwardColumns(block_, to);
    }
    const int columns = std::max(placeOf(number).width, placeOf(number + tiles - 1).width);
    const int needed = (columns + strip - 1) / strip;
    transform_.correlateRows(block_, tile, spectrum_[channel].in(block_), set_.in(own), needed);
    for (int s = 0; s < needed; ++s)
      transform_.inverseColumns(block_, transform_.stripOf(tile, s), columns - s * strip);
    const std::uint64_t squares = numbers[0].squares + (tiles > 1 ? numbers[1].squares : 0);
    for (int k = 0; k < tiles; ++k)
      finish(placeOf(number + k), channel, view[k], numbers[k].scale, squares, k * strip, own);
  }

  // `squares`: of all samples that went through the transform, of which the results are part `part`.
  void finish(const TilePlace& place, int channel, const TileView<T>& view, float scale, std::uint64_t squares,
              int part, void* own) const
  {
    WindowSums<T> sums(view, static_cast<int>(job_.tpl.width), static_cast<int>(job_.tpl.height), place.width,
                       place.height, job_.last == LastStep::Level ? WindowSum::Deviation : WindowSum::Energy,
                       sums_.in(own), transform_.width(), spare_[0].in(own), spare_[1].in(own), rowFloats());
    float *const results = results_.in(own), *const windows = windows_.in(own);
    const TurnedTaps taps = {taps_[channel].in(block_), static_cast<int>(job_.tpl.width),
                             static_cast<int>(job_.tpl.height), numbers_[channel].sum};
    const NearlyFlatWindows<T> nearlyFlat(
      view, taps, {flat_[0].in(own), reinterpret_cast<std::int32_t*>(flat_[1].in(own))}, spare_[0].in(own),
      static_cast<float>(static_cast<double>(squares) * nearlyFlatShare));
    const Finish last = {job_.last, job_.floor, job_.factor, numbers_[channel]};
    const float bound = mendsNearlyFlat() ? nearlyFlat.bound() : 0;
    for (std::ptrdiff_t y = 0; y < place.height; ++y) {
      const SumsOfProducts products = {transform_.stripOf(values_.in(own), 0) + y * element + part,
                                       static_cast<std::ptrdiff_t>(transform_.stripFloats()), 1 / scale};
      D* const to = job_.result.rows[static_cast<std::ptrdiff_t>(place.y) + y] +
                    static_cast<std::ptrdiff_t>(place.x) * job_.channels + channel;
      float* row = results;
      if constexpr (std::is_same_v<D, float>)
        if (job_.channels == 1) row = to;
      if (!hasWindows()) {
        if (job_.factor == 1) last.takeSums(products, place.width, row);
        else last.scaleSums(products, place.width, row);
      } else {
        const bool areNearlyFlat = finishRow(last, products, sums, y, bound, place.width, windows, row);
        if constexpr (std::is_integral_v<T>)
          if (areNearlyFlat) { // once more, with sums of products that are exact where it matters
            last.takeSums(products, place.width, results);
            sums.numbers(windows);
            sums.sumsOfSamples(flat_[2].in(own));
            nearlyFlat.mend(y, windows, flat_[2].in(own), place.width, results);
            last(SumsOfProducts{results, strip, 1}, ReadyWindows{windows}, 0, place.width, row);
          }
      }
      if (row == results) storeRow(results, to, job_.channels, place.width, job_.scaleFactor, stored_.in(own));
    }
  }
  static bool finishRow(const Finish& last, const SumsOfProducts& products, WindowSums<T>& sums, std::int64_t y,
                        float bound, int n, float* windows, float* to)
  {
    if constexpr (std::is_floating_point_v<T> || sizeof(T) == 1)
      if (y > 0 && (std::is_floating_point_v<T> || sums.byIntegers()))
        return sums.goToWith(y, [&](const auto& numbers) { return last(products, numbers, bound, n, to); });
    sums.goTo(y);
    sums.numbers(windows);
    return last(products, ReadyWindows{windows}, bound, n, to);
  }

  const CorrelationJob<T, D>& job_;
  TileShape tile_;
  TileTransform transform_;
  std::int64_t across_, down_;
  BlockPart<float> spectrum_[4];
  TemplateNumbers numbers_[4] = {};
  void* block_ = nullptr;

  BlockPlan threadPlan_;
  BlockPart<float> values_, set_, results_, windows_;
  BlockPart<double> sums_;
  BlockPart<D> stored_;
  BlockPart<T> spare_[2], plane_[2];
  BlockPart<std::int32_t> taps_[4]; // these for windows that are nearly flat
  BlockPart<double> flat_[3];
};

constexpr int picosecondsPerValue = 4000; // of a tile, with all that belongs to it

} // namespace

template <class T, class D> ZorStatus correlateInTiles(const CorrelationJob<T, D>& job)
{
  if (job.orderX > 30 || job.orderY > 30) return ZorErrOrder;
  BlockPlan plan;
  Tiles<T, D> tiles(job, plan);
  const std::int64_t values = tiles.count() * std::min(tiles.values(), std::int64_t{1} << 30);
  const TeamRule rule = TeamRule::forWork(values, picosecondsPerValue);
  const int units = static_cast<int>(std::min<std::int64_t>(tiles.pairs() * job.processed, INT32_MAX));
  // what all threads read, and an area for each
  const int threads = rule.threads(units);
  if (tiles.threadPlan().isImpossible()) return ZorErrAlloc;
  const std::size_t threadBytes = roundUp(static_cast<std::size_t>(tiles.threadPlan().bytes()), 64);
  const auto areas = plan.add<Zor8u>(static_cast<long long>(threadBytes) * threads, 64);
  if (plan.isImpossible()) return ZorErrAlloc;
  Scratch<Zor8u> block(plan.bytes());
  if (!block) return ZorErrAlloc;
  const auto prepare = [&] { tiles.prepare(block.get(), areas.in(block.get())); };
  underRounding(Rounding::Nearest, prepare);
  return masterSlabs(rule, Rounding::Nearest, units, 0, [&](const Slab& slab) {
    ZORI_ASSERT(slab.threads <= threads);
    tiles.work(slab.thread, slab.threads, areas.in(block.get()) + threadBytes * slab.thread);
    return ZorOk;
  });
}

template ZorStatus correlateInTiles(const CorrelationJob<Zor8u, Zor8u>&);
template ZorStatus correlateInTiles(const CorrelationJob<Zor8u, Zor32f>&);
template ZorStatus correlateInTiles(const CorrelationJob<Zor8s, Zor32f>&);
template ZorStatus correlateInTiles(const CorrelationJob<Zor16u, Zor32f>&);
template ZorStatus correlateInTiles(const CorrelationJob<Zor16s, Zor16s>&);
template ZorStatus correlateInTiles(const CorrelationJob<Zor32f, Zor32f>&);

} // namespace zori
