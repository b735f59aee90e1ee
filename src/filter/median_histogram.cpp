// Medians by counting. All search for the least value that more than half of the window's samples do not exceed.
//
// Bytes: every column keeps the counts of its samples under the window, and the window's counts follow from row to row
// and column to column by adding those of the column that enters and taking off those of the one that leaves. Counts
// are kept in two levels, 16 groups of 16 values, and each as running totals, so that an update adds a row of a table
// and the search is one comparison of vectors. Of the values, only the group that holds the median is kept up to date.
// The cost of a pixel does not depend on the window. Without working memory, one histogram follows the window.
//
// Words: one histogram follows the window. It counts the high bytes of all samples, and the low bytes of those that
// share the median's high byte; these are counted anew where it changes.
#include "median_histogram.h"

#include "frame/arena.h"
#include "frame/memory.h"
#include "rowkernels/simd.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace zori {
namespace median {
namespace {

// ---- Bytes: running totals ----

// 16 totals: at k, how many lie below k.
template <class Count> struct Totals {
  static constexpr int parts = 16 / Vec<Count>::size;
  Vec<Count> part[parts];

  static Totals loaded(const Count* p)
  {
    Totals x;
    for (int i = 0; i < parts; ++i) x.part[i] = load<Count>(p + i * Vec<Count>::size);
    return x;
  }
  void storeTo(Count* p) const
  {
    for (int i = 0; i < parts; ++i) store(p + i * Vec<Count>::size, part[i]);
  }
  Totals operator+(const Totals& other) const
  {
    Totals x;
    for (int i = 0; i < parts; ++i) x.part[i] = part[i] + other.part[i];
    return x;
  }
  Totals operator-(const Totals& other) const
  {
    Totals x;
    for (int i = 0; i < parts; ++i) x.part[i] = part[i] - other.part[i];
    return x;
  }
  // The last of them that is below the bound; the first is.
  int lastBelow(Vec<Count> bound) const
  {
    std::uint64_t below = 0; // as many bits a total as it has bytes
    for (int i = 0; i < parts; ++i)
      below |= static_cast<std::uint64_t>(static_cast<std::uint32_t>(moveMask(greater(bound, part[i]))))
               << (i * static_cast<int>(sizeof(part[i])));
    return (63 - __builtin_clzll(below)) / static_cast<int>(sizeof(Count));
  }
};

// What a sample of value v adds to totals.
template <class Count> struct Increments {
  Count at[16][16] = {};
  constexpr Increments()
  {
    for (int v = 0; v < 16; ++v)
      for (int k = 0; k < 16; ++k) at[v][k] = k > v;
  }
};
template <class Count> alignas(64) constexpr Increments<Count> increments{};

// The columns of a strip, and the window that moves over them.
template <class Count> class Columns {
  using T16 = Totals<Count>;

public:
  static long long counts(long long columns) { return columns * 17 * 16; }

  // Within a block of counts(columns).
  Columns(Count* block, std::ptrdiff_t columns) : columns_(columns), groups_(block), values_(block + columns * 16)
  {
    std::memset(block, 0, static_cast<std::size_t>(counts(columns)) * sizeof(Count));
  }

  void add(std::ptrdiff_t column, uint8_t v)
  {
    Count* const group = groups_ + column * 16;
    Count* const value = valuesOf(v >> 4, column);
    (T16::loaded(group) + increment(v >> 4)).storeTo(group);
    (T16::loaded(value) + increment(v & 15)).storeTo(value);
  }
  void replace(std::ptrdiff_t column, uint8_t out, uint8_t in)
  {
    if (out == in) return;
    Count* const group = groups_ + column * 16;
    (T16::loaded(group) + increment(in >> 4) - increment(out >> 4)).storeTo(group);
    Count* const left = valuesOf(out >> 4, column);
    (T16::loaded(left) - increment(out & 15)).storeTo(left);
    Count* const entered = valuesOf(in >> 4, column);
    (T16::loaded(entered) + increment(in & 15)).storeTo(entered);
  }

  // The medians of `count` windows of `width` columns, dst[i * channels].
  [[gnu::noinline]] void medians(uint8_t* dst, std::ptrdiff_t count, int channels, std::ptrdiff_t width,
                                 Count half) const
  {
    T16 group = T16::loaded(groups_);
    for (std::ptrdiff_t i = 1; i < width; ++i) group = group + T16::loaded(groups_ + i * 16);
    alignas(64) Count groupTotals[16], valueTotals[16][16];
    std::ptrdiff_t upTo[16]; // the windows whose values are in valueTotals
    std::fill(upTo, upTo + 16, -width - 1);
    const Vec<Count> bound = splat(static_cast<Count>(half + 1));

    for (std::ptrdiff_t x = 0;; ++x) {
      const int g = group.lastBelow(bound);
      group.storeTo(groupTotals);
      const Count below = groupTotals[g];

      T16 value = T16::loaded(valueTotals[g]);
      if (const std::ptrdiff_t late = x - upTo[g]; 2 * late > width) {
        value = T16::loaded(valuesOf(g, x));
        for (std::ptrdiff_t i = x + 1; i < x + width; ++i) value = value + T16::loaded(valuesOf(g, i));
      } else {
        for (std::ptrdiff_t i = x - late; i < x; ++i)
          value = value - T16::loaded(valuesOf(g, i)) + T16::loaded(valuesOf(g, i + width));
      }
      value.storeTo(valueTotals[g]);
      upTo[g] = x;
      dst[x * channels] = static_cast<uint8_t>(16 * g + value.lastBelow(splat(static_cast<Count>(half + 1 - below))));

      if (x + 1 == count) return;
      group = group - T16::loaded(groups_ + x * 16) + T16::loaded(groups_ + (x + width) * 16);
    }
  }

private:
  static T16 increment(int v) { return T16::loaded(increments<Count>.at[v]); }
  // Those of a group stand side by side: the search follows them from column to column.
  Count* valuesOf(int group, std::ptrdiff_t column) const { return values_ + (group * columns_ + column) * 16; }

  std::ptrdiff_t columns_;
  Count* groups_;
  Count* values_;
};

struct Call {
  Rows<const uint8_t> src;
  Rows<uint8_t> dst;
  ZorImgSize roi, mask;
  int channels, processed;
};

inline long long areaOf(ZorImgSize mask) { return static_cast<long long>(mask.width) * mask.height; }

// Working memory for as many columns as the second-level cache holds, but not for a strip narrower than its window.
constexpr int stripPixels = 256;

inline long long windowsOfStrip(const Call& c)
{
  return std::min<long long>(c.roi.width, std::max<long long>(stripPixels, 2LL * c.mask.width));
}

template <class Count> bool filterByColumns(const Call& c)
{
  const long long strip = windowsOfStrip(c), columns = strip + c.mask.width - 1;
  BlockPlan plan;
  const auto counts = plan.add<Count>(Columns<Count>::counts(columns), 64);
  if (plan.isImpossible()) return false;
  const Scratch<Zor8u> block(plan.bytes());
  if (!block) return false;

  const Count half = static_cast<Count>(areaOf(c.mask) / 2);
  for (std::ptrdiff_t x = 0; x < c.roi.width; x += static_cast<std::ptrdiff_t>(strip)) {
    const std::ptrdiff_t windows = std::min<std::ptrdiff_t>(static_cast<std::ptrdiff_t>(strip), c.roi.width - x);
    const std::ptrdiff_t used = windows + c.mask.width - 1;
    for (int k = 0; k < c.processed; ++k) {
      const std::ptrdiff_t first = x * c.channels + k;
      Columns<Count> all(counts.in(block.get()), used);
      for (std::ptrdiff_t y = 0; y < c.mask.height; ++y) {
        const uint8_t* const in = c.src[y] + first;
        for (std::ptrdiff_t i = 0; i < used; ++i) all.add(i, in[i * c.channels]);
      }
      for (std::ptrdiff_t y = 0;; ++y) {
        all.medians(c.dst[y] + first, windows, c.channels, c.mask.width, half);
        if (y + 1 == c.roi.height) break;
        const uint8_t* const out = c.src[y] + first;
        const uint8_t* const in = c.src[y + c.mask.height] + first;
        for (std::ptrdiff_t i = 0; i < used; ++i) all.replace(i, out[i * c.channels], in[i * c.channels]);
      }
    }
  }
  return true;
}

// ---- One histogram that follows the window ----

// Counts of the window's samples by value. The last median is the first value to be looked at.
class Histogram {
public:
  void enter(int v)
  {
    ++count_[v];
    below_ += v < at_;
  }
  void leave(int v)
  {
    --count_[v];
    below_ -= v < at_;
  }
  void clear() { *this = {}; }
  // The first value at which the running total passes `half`.
  int find(std::size_t half)
  {
    while (below_ > half) below_ -= count_[--at_];
    while (below_ + count_[at_] <= half) below_ += count_[at_++];
    return at_;
  }
  // How many samples are below the value found.
  std::size_t below() const { return below_; }

private:
  std::size_t count_[256] = {};
  int at_ = 128;
  std::size_t below_ = 0;
};

void filterByWindow(const Call& c)
{
  const std::ptrdiff_t step = c.channels, width = c.mask.width;
  const std::size_t half = static_cast<std::size_t>(areaOf(c.mask) / 2);
  for (int k = 0; k < c.processed; ++k) {
    for (std::ptrdiff_t y = 0; y < c.roi.height; ++y) {
      Histogram window;
      for (std::ptrdiff_t j = 0; j < c.mask.height; ++j)
        for (std::ptrdiff_t i = 0; i < width; ++i) window.enter(c.src[y + j][i * step + k]);
      for (std::ptrdiff_t x = 0;; ++x) {
        c.dst[y][x * step + k] = static_cast<uint8_t>(window.find(half));
        if (x + 1 == c.roi.width) break;
        for (std::ptrdiff_t j = 0; j < c.mask.height; ++j) {
          const uint8_t* const row = c.src[y + j] + x * step + k;
          window.leave(row[0]);
          window.enter(row[width * step]);
        }
      }
    }
  }
}

// ---- Words ----

// The window's samples of one channel: rows of `width` samples `step` apart.
struct Window {
  Rows<const uint16_t> rows;
  std::ptrdiff_t offset, step, width, height;
  uint16_t flip;

  const uint16_t* row(std::ptrdiff_t j) const { return rows[j] + offset; }
  int at(const uint16_t* p) const { return get<uint16_t>(p) ^ flip; }
};

// The low bytes of the window's samples whose high byte is `high`.
[[gnu::noinline]] void countLow(const Window& w, int high, Histogram& low)
{
  constexpr std::ptrdiff_t lanes = Vec<uint16_t>::size;
  const auto wanted = splat(static_cast<uint16_t>((high << 8) ^ (w.flip & 0xff00))), mask = splat<uint16_t>(0xff00);
  const std::ptrdiff_t length = (w.width - 1) * w.step + 1;
  for (std::ptrdiff_t j = 0; j < w.height; ++j) {
    const uint16_t* const row = w.row(j);
    std::ptrdiff_t i = 0;
    if (w.step == 1) {
      for (; i + lanes <= length; i += lanes) {
        unsigned found = static_cast<unsigned>(moveMask(equal(load<uint16_t>(row + i) & mask, wanted)));
        for (; found; found &= found - 1, found &= found - 1) // two bits a lane
          low.enter(w.at(row + i + __builtin_ctz(found) / 2) & 255);
      }
    }
    for (; i < length; i += w.step)
      if (const int v = w.at(row + i); v >> 8 == high) low.enter(v & 255);
  }
}

} // namespace

void histogramOfBytes(Rows<const uint8_t> src, Rows<uint8_t> dst, ZorImgSize roi, ZorImgSize mask, int channels,
                      int processed)
{
  const Call call{src, dst, roi, mask, channels, processed};
  const long long area = areaOf(mask);
  const bool done = area <= INT16_MAX   ? filterByColumns<int16_t>(call)
                    : area <= INT32_MAX ? filterByColumns<int32_t>(call)
                                        : false;
  if (!done) filterByWindow(call);
}

void histogramOfWords(Rows<const uint16_t> src, Rows<uint16_t> dst, ZorImgSize roi, ZorImgSize mask, int channels,
                      int processed, bool isSigned)
{
  const std::size_t half = static_cast<std::size_t>(areaOf(mask) / 2);
  for (int k = 0; k < processed; ++k) {
    for (std::ptrdiff_t y = 0; y < roi.height; ++y) {
      Window w{{src[y], src.step}, k, channels, mask.width, mask.height, static_cast<uint16_t>(isSigned ? 0x8000 : 0)};
      Histogram high, low;
      int counted = -1; // the high byte whose low bytes `low` counts
      for (std::ptrdiff_t j = 0; j < w.height; ++j)
        for (std::ptrdiff_t i = 0; i < w.width; ++i) high.enter(w.at(w.row(j) + i * w.step) >> 8);
      for (std::ptrdiff_t x = 0;; ++x) {
        const int top = high.find(half);
        if (top != counted) {
          low.clear();
          countLow(w, top, low);
          counted = top;
        }
        const int bottom = low.find(half - high.below());
        put(dst[y] + x * channels + k, static_cast<uint16_t>((top << 8 | bottom) ^ w.flip));
        if (x + 1 == roi.width) break;
        for (std::ptrdiff_t j = 0; j < w.height; ++j) {
          const int out = w.at(w.row(j)), in = w.at(w.row(j) + w.width * w.step);
          high.leave(out >> 8);
          high.enter(in >> 8);
          if (out >> 8 == counted) low.leave(out & 255);
          if (in >> 8 == counted) low.enter(in & 255);
        }
        w.offset += w.step;
      }
    }
  }
}

} // namespace median
} // namespace zori
