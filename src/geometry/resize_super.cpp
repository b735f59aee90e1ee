// Supersampling.
//
// Rows are added to a row of sums, then neighbouring sums to outputs, and these are scaled: integers to
// sum * scale + 0.5 cut to whole numbers, 32f to sum * scale. Where both axes cover whole pixels integers are summed as
// integers; all else is single precision, sample by sample in their order.
//
// The work goes in strips of columns whose sums stay in the cache.
#include "resize_super.h"

#include "frame/parallel.h"
#include "resize_super_blocks.h"
#include "resize_super_sums.h"

#include <iterator>

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

// Blocks of whole pixels, one of each output.
struct Blocks {
  bool areWhole, areInside = false;                   // inside what may be read
  long long width = 0, height = 0, left = 0, top = 0; // of one, and where in the image the first begins

  Blocks(CoverSweep columns, int columnCount, CoverSweep rows, int rowCount)
    : areWhole(columns.isWhole() && rows.isWhole())
  {
    if (!areWhole) return;
    const Cover x = columns.next(), y = rows.next();
    width = x.whole;
    height = y.whole;
    left = columns.first() + x.first;
    top = rows.first() + y.first;
    areInside = x.first >= 0 && y.first >= 0 && width <= (columns.length() - x.first) / columnCount &&
                height <= (rows.length() - y.first) / rowCount;
  }
  double pixels() const { return static_cast<double>(width) * static_cast<double>(height); }
};

// Enough for strips of any kind.
constexpr std::size_t stripSpaceBytes = sizeof(StripSpace<std::uint16_t, 1>);

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

// Totals of outputs, of one strip, to pixels of the destination from (x, y) on.
template <class T, int C, class A>
void finish(const Images& images, const Scaling& scaling, int plane, int y, int x, const A* totals, int count)
{
  T* const dst = reinterpret_cast<T*>(images.dstRow(plane, y)) + static_cast<std::ptrdiff_t>(x) * C;
  if (!images.keepsFourth) return scaleTotals(totals, std::ptrdiff_t{count} * C, scaling, dst);
  T out[stripOutputs * C];
  scaleTotals(totals, std::ptrdiff_t{count} * C, scaling, out);
  for (int o = 0; o < count; ++o) std::memcpy(dst + o * C, out + o * C, 3 * sizeof(T));
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

  using Space = StripSpace<Sum, C>;

  [[gnu::noinline]] void run(int plane, int firstRow, int rowCount, Space& space)
  {
    CoverSweep sweep = columns, rowStart = rows;
    for (int y = 0; y < firstRow; ++y) rowStart.next();
    std::fill(std::begin(space.totals), std::end(space.totals), Total<Sum>());
    std::fill(std::begin(space.shortTotals), std::end(space.shortTotals), std::uint16_t());
    Sum* const sums = space.sums;
    Strip& strip = space.strip;
    Cover next = sweep.next();
    for (int x = 0; x < width;) {
      strip.clear();
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
          if constexpr (sizeof(Sum) == 2) {
            if (scaling.block <= 128) {
              sumColumnsShort<C>(strip, sums, space.shortTotals);
              finish<T, C>(images, scaling, plane, y, x, space.shortTotals, strip.count);
              continue;
            }
          }
          sumColumns<std::is_same_v<T, float>>(space, static_cast<std::ptrdiff_t>(covered) * C);
        } else {
          sumWide(plane, strip.covers[0], row, sums, space.totals);
        }
        finish<T, C>(images, scaling, plane, y, x, space.totals, strip.count);
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
      store(dst, inOrder((evenLanes(low, high) + oddLanes(low, high) + zero<T>()) * splat(0.25f)));
    } else {
      const auto quarters = [=](const T* p, const T* q) {
#if ZORI_VECTOR_BYTES == 32
        const auto ones = splat<Zor8s>(1);
        return mulRounded(mulAddPairs(load<T>(p), ones) + mulAddPairs(load<T>(q), ones), splat<Zor16s>(1 << 13));
#else
        const auto x = load<Zor16u>(p), y = load<Zor16u>(q);
        // of low + 256 * high each: less 255 times the high ones
        const auto high = shiftRight<8>(x) + shiftRight<8>(y);
        const auto sum = (x + y) + mulLow(high, loadedOnce(splat<Zor16u>(65536 - 255)));
        return as<Zor16s>(shiftRight<2>(sum + splat<Zor16u>(2)));
#endif
      };
      store(dst, narrowSat<T>(quarters(a, b), quarters(a + lanes, b + lanes)));
    }
  }
};

// A row shorter than that: the first and the last half of a vector, or what there is.
template <class T> void halveShortRow(const T* a, const T* b, T* dst, std::ptrdiff_t width)
{
  constexpr std::ptrdiff_t lanes = Halving<T>::blockLength, half = lanes / 2;
  T out[lanes];
  if (width >= half) {
    const EndsOfBlock<T, 2 * lanes> first(a, 2 * width), second(b, 2 * width);
    Halving<T>().block(first.values, second.values, out);
    std::memcpy(dst, out, half * sizeof(T));
    std::memcpy(dst + width - half, out + half, half * sizeof(T));
  } else {
    const PaddedBlock<T, 2 * lanes> first(a, 2 * width), second(b, 2 * width);
    Halving<T>().block(first.values, second.values, out);
    std::memcpy(dst, out, static_cast<std::size_t>(width) * sizeof(T));
  }
}

// Rows further on are asked for while these are worked on: the next two but one, if so many stay in the first cache.
template <class T>
[[gnu::noinline]] void halveRows(const char* src, std::ptrdiff_t srcStep, char* dst, std::ptrdiff_t dstStep,
                                 std::ptrdiff_t width, int height)
{
  const UpperHalvesCleared atTheEnd;
  constexpr std::ptrdiff_t lanes = Halving<T>::blockLength;
  const Halving<T> halving;
  const std::ptrdiff_t pair = 2 * srcStep;
  const int pairsAhead = width * static_cast<std::ptrdiff_t>(sizeof(T)) <= 1024 ? 2 : 1;
  for (int left = height; left > 0; --left, src += pair, dst += dstStep) {
    const T *const a = reinterpret_cast<const T*>(src), *const b = reinterpret_cast<const T*>(src + srcStep);
    T* const to = reinterpret_cast<T*>(dst);
    if (width < lanes) {
      halveShortRow(a, b, to, width);
      continue;
    }
    const std::ptrdiff_t next = left > pairsAhead ? pairsAhead * pair : 0;
    std::ptrdiff_t i = 0;
    for (; i + lanes <= width; i += lanes) {
      prefetch(reinterpret_cast<const char*>(a + 2 * i) + next);
      prefetch(reinterpret_cast<const char*>(b + 2 * i) + next);
      halving.block(a + 2 * i, b + 2 * i, to + i);
    }
    if (i < width) halving.block(a + 2 * (width - lanes), b + 2 * (width - lanes), to + width - lanes);
  }
}

bool isHalving(const Images& images, const Blocks& blocks, double scale)
{
  return images.channels == 1 && scale == 0.25 && blocks.areInside && blocks.width == 2 && blocks.height == 2;
}
template <class T> void halve(const Images& images, const Blocks& blocks, int width, int plane, int first, int count)
{
  const char* const src = images.srcRow(plane, static_cast<std::ptrdiff_t>(blocks.top) + 2 * std::ptrdiff_t{first}) +
                          static_cast<std::ptrdiff_t>(blocks.left) * static_cast<std::ptrdiff_t>(sizeof(T));
  halveRows<T>(src, images.srcStep, images.dstRow(plane, first), images.dstStep, width, count);
}

#if ZORI_VECTOR_BYTES == 32
// ---- Blocks by windows: 8u ----

// Rows of outputs, as strips of equal length that may overlap.
template <int C>
void sumRowsOfBlocks(const Images& images, const Blocks& blocks, SumBlocks sum, int width, const Scaling& scaling,
                     int plane, const Slab& slab)
{
  alignas(32) std::uint16_t totals[stripOutputs * C + slackSamples] = {};
  const int strips = (width + stripOutputs - 1) / stripOutputs,
            each = std::min(width, ((width + strips - 1) / strips + leastBlocks - 1) / leastBlocks * leastBlocks);
  const int height = static_cast<int>(blocks.height);
  for (int y = slab.first; y < slab.first + slab.count; ++y) {
    const char* const row = images.srcRow(plane, static_cast<std::ptrdiff_t>(blocks.top) + std::ptrdiff_t{height} * y);
    for (int k = 0; k < strips; ++k) {
      const int x = std::min(k * each, width - each);
      const auto pixel = static_cast<std::ptrdiff_t>(blocks.left + blocks.width * x);
      sum(reinterpret_cast<const Zor8u*>(row) + pixel * C, images.srcStep, height, each, totals);
      finish<Zor8u, C>(images, scaling, plane, y, x, totals, each);
    }
  }
}
#endif

// ---- The choice ----

template <class T, class Sum, int C>
void stripsOf(const Images& images, const CoverSweep& columns, int width, const CoverSweep& rows,
              const Scaling& scaling, int plane, const Slab& slab)
{
  static_assert(sizeof(StripSpace<Sum, C>) <= stripSpaceBytes);
  Strips<T, Sum, C>{images, columns, rows, width, scaling}.run(plane, slab.first, slab.count,
                                                               *reinterpret_cast<StripSpace<Sum, C>*>(slab.buffer));
}

template <class T>
ZorStatus supersampled(const Images& images, const CoverSweep& columns, int width, const CoverSweep& rows, int height,
                       double scale, TeamRule rule)
{
  const auto slabs = [=](std::size_t bytes, auto work) {
    return masterSlabs(rule, Rounding::Nearest, height, bytes, [=, &images](const Slab& slab) {
      for (int p = 0; slab.count > 0 && p < images.planes; ++p) work(p, slab);
      return ZorOk;
    });
  };
  const Blocks blocks(columns, width, rows, height);
  if constexpr (sizeof(T) == 1 || sizeof(T) == 4)
    if (isHalving(images, blocks, scale))
      return slabs(0, [&](int p, const Slab& slab) { halve<T>(images, blocks, width, p, slab.first, slab.count); });
  const Scaling scaling(scale, sizeof(T) == 1 && blocks.areWhole ? blocks.pixels() : 0);
#if ZORI_VECTOR_BYTES == 32
  if constexpr (sizeof(T) == 1)
    if (blocks.areInside && width >= leastBlocks)
      if (const SumBlocks sum = blockSums(images.channels, blocks.width, blocks.height))
        return slabs(0, [&](int p, const Slab& slab) {
          switch (images.channels) {
          case 1: return sumRowsOfBlocks<1>(images, blocks, sum, width, scaling, p, slab);
          case 3: return sumRowsOfBlocks<3>(images, blocks, sum, width, scaling, p, slab);
          default: return sumRowsOfBlocks<4>(images, blocks, sum, width, scaling, p, slab);
          }
        });
#endif
  const auto strips = [&](auto sum) {
    using Sum = decltype(sum);
    return slabs(stripSpaceBytes, [&](int p, const Slab& slab) {
      switch (images.channels) {
      case 1: return stripsOf<T, Sum, 1>(images, columns, width, rows, scaling, p, slab);
      case 3: return stripsOf<T, Sum, 3>(images, columns, width, rows, scaling, p, slab);
      default: return stripsOf<T, Sum, 4>(images, columns, width, rows, scaling, p, slab);
      }
    });
  };
  if constexpr (sizeof(T) <= 2 && !std::is_signed_v<T>) {
    constexpr double most = std::numeric_limits<T>::max();
    if (blocks.areWhole) {
      if (most * blocks.pixels() > 2147483647.0) return strips(std::uint64_t());
      if constexpr (sizeof(T) == 1)
        if (most * static_cast<double>(blocks.height) <= 65535) return strips(std::uint16_t());
      return strips(std::uint32_t());
    }
  }
  return strips(float());
}

} // namespace

ZorStatus supersample(const Images& images, const CoverSweep& columns, int width, const CoverSweep& rows, int height,
                      double scale)
{
  constexpr int picosecondsPerSample = 1000;
  const long long samples = static_cast<long long>(width) * height * images.channels * images.planes;
  const TeamRule rule = TeamRule::forWork(samples, picosecondsPerSample);
  switch (images.element) {
  case Element::U8: return supersampled<Zor8u>(images, columns, width, rows, height, scale, rule);
  case Element::U16: return supersampled<Zor16u>(images, columns, width, rows, height, scale, rule);
  case Element::S16: return supersampled<Zor16s>(images, columns, width, rows, height, scale, rule);
  default: return supersampled<Zor32f>(images, columns, width, rows, height, scale, rule);
  }
}

} // namespace resize
} // namespace zori
