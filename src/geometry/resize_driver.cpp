// The driver: tables and rows of sums, and the walk over the destination's rows.
//
// A source row is resampled across once and kept in a ring for as long as output rows use it; rows between those that
// any output uses are never read.
#include "resize_driver.h"

#include "frame/parallel.h"
#include "rowkernels/drivers.h"

#include <algorithm>
#include <cstring>

namespace zori {
namespace resize {

Taps tapsFor(int interpolation, Element element)
{
  switch (interpolation) {
  case ZORI_INTER_NN: return Taps::Nearest;
  case ZORI_INTER_LINEAR: return element == Element::F32 ? Taps::LinearFloat : Taps::LinearInteger;
  case ZORI_INTER_CUBIC: return Taps::Newton;
  default: return Taps::Weights6;
  }
}

int picosecondsPerSample(Taps taps)
{
  return taps == Taps::Nearest                                      ? 100
         : taps == Taps::LinearInteger || taps == Taps::LinearFloat ? 300
         : taps == Taps::Weights6                                   ? 1500
                                                                    : 1000;
}

namespace {

Kernels kernelsFor(const Images& images, AxisTable& columns)
{
  switch (columns.taps) {
  case Taps::Nearest: return {};
  case Taps::LinearInteger:
  case Taps::LinearFloat: return linearKernels(images.element, images.channels, columns);
  default: return weightedKernels(images.element, images.channels, columns.taps);
  }
}

struct SumRows {
  long long pitch;    // bytes of a row of sums
  int rows;           // those of all taps, and one that is made ahead
  long long finished; // bytes of a row of results, where they do not go straight into the destination
};

SumRows sumRows(const Images& images, Taps taps, int width)
{
  if (taps == Taps::Nearest) return {0, 0, 0};
  const bool isLinear = taps == Taps::LinearInteger || taps == Taps::LinearFloat;
  const int sumBytes = taps == Taps::LinearInteger ? 2 : 4;
  const long long samples = static_cast<long long>(width) * images.channels;
  const auto bytes = [](long long n) { return (n + 63) / 64 * 64; };
  return {bytes((samples + sumSlack) * sumBytes), tapsOf(taps) + isLinear,
          images.keepsFourth ? bytes(samples * bytesOf(images.element)) : 0};
}

struct Same {
  template <class V> V operator()(V x) const { return x; }
};

// A finished row into a destination that keeps its fourth channel.
void storeColours(Element element, const char* row, char* dst, std::ptrdiff_t samples)
{
  const auto copy = [=](auto* to) {
    using T = std::remove_pointer_t<decltype(to)>;
    mapRow(to, samples, KeepFourth<Same>{}, static_cast<const T*>(to), reinterpret_cast<const T*>(row));
  };
  switch (bytesOf(element)) {
  case 1: return copy(reinterpret_cast<std::uint8_t*>(dst));
  case 2: return copy(reinterpret_cast<std::uint16_t*>(dst));
  default: return copy(reinterpret_cast<std::uint32_t*>(dst));
  }
}

} // namespace

Walk::Walk(const Images& i, const AxisTable& c, const AxisTable& r)
  : images(i), columns(c), rows(r), kernels(kernelsFor(i, columns))
{
  const int pixel = images.pixelBytes();
  if (columns.taps == Taps::Nearest)
    nearest = nearestKernel(columns, pixel, images.keepsFourth ? pixel / 4 * 3 : pixel);
}

long long Walk::workBytes(const Images& images, Taps taps, int width)
{
  const SumRows sums = sumRows(images, taps, width);
  return sums.pitch * sums.rows + sums.finished;
}

void Walk::rowsOf(int first, int count, void* work) const
{
  if (count <= 0) return;
  for (int p = 0; p < images.planes; ++p) {
    if (nearest.copy) copyRows(p, first, count);
    else combineRows(p, first, count, static_cast<char*>(work));
  }
}

namespace {

// Both taps of an image one pixel wide.
const char* pixelTwice(const char* pixel, int bytes, char* twice)
{
  std::memcpy(twice, pixel, static_cast<std::size_t>(bytes));
  std::memcpy(twice + bytes, pixel, static_cast<std::size_t>(bytes));
  return twice;
}

} // namespace

void Walk::copyRows(int plane, int first, int count) const
{
  const std::size_t bytes = static_cast<std::size_t>(columns.count) * images.pixelBytes();
  const int end = first + count;
  for (int y = first; y < end; ++y) {
    const char* const src = images.srcRow(plane, rows.at[y]);
    char* const dst = images.dstRow(plane, y);
    if (nearest.copyTwice && y + 1 < end && rows.at[y + 1] == rows.at[y])
      nearest.copyTwice(columns, src, dst, images.dstRow(plane, ++y));
    else if (y > first && rows.at[y] == rows.at[y - 1] && !images.keepsFourth)
      std::memmove(dst, images.dstRow(plane, y - 1), bytes);
    else nearest.copy(columns, src, dst);
  }
}

void Walk::combineRows(int plane, int first, int count, char* work) const
{
  const SumRows layout = sumRows(images, columns.taps, columns.count);
  const auto pitch = static_cast<std::ptrdiff_t>(layout.pitch);
  char* const finished = layout.finished ? work + pitch * layout.rows : nullptr;
  const std::ptrdiff_t samples = static_cast<std::ptrdiff_t>(columns.count) * images.channels;
  const int taps = tapsOf(columns.taps), slots = layout.rows, last = rows.image - 1;
  const bool isOneWide = columns.image == 1;
  const std::int32_t* const at = rows.at;
  const auto inImage = [=](int row) { return std::clamp(row, 0, last); };
  const char* const src = images.srcRow(plane, 0);
  const std::ptrdiff_t srcStep = images.srcStep;
  void* window[7]; // sums of rows start .. start + slots - 1 of the image; those below `made` are there
  for (int t = 0; t < slots; ++t) window[t] = work + pitch * t;
  const int end = first + count;
  int start = inImage(at[first]), made = start;
  for (int y = first, next; y < end; y = next) {
    next = y + 1;
    while (next < end && at[next] == at[y]) ++next;
    const int top = inImage(at[y]), bottom = inImage(at[y] + taps - 1);
    if (top >= made) start = made = top; // none of the rows is needed any more
    for (; start < top; ++start) {
      void* const freed = window[0];
      for (int t = 1; t < slots; ++t) window[t - 1] = window[t];
      window[slots - 1] = freed;
    }
    while (made <= bottom) {
      const int second = made + 1;
      const bool isTwo =
        kernels.atOnce == 2 &&
        (second <= bottom || (next < end && second >= inImage(at[next]) && second <= inImage(at[next] + taps - 1)));
      const char* const row = src + srcStep * made;
      const void* from[2] = {row, isTwo ? row + srcStep : row};
      char twice[2][2 * 16];
      if (isOneWide && taps == 2)
        for (int r = 0; r <= isTwo; ++r) from[r] = pixelTwice(row + srcStep * r, images.pixelBytes(), twice[r]);
      kernels.across(columns, from, 1 + isTwo, window + (made - top));
      made += 1 + isTwo;
    }

    const void* const* sums = window;
    const void* nearest[6];
    if (at[y] < 0 || at[y] > last - (taps - 1)) { // some taps lie outside the image
      for (int t = 0; t < taps; ++t) nearest[t] = window[inImage(at[y] + t) - top];
      sums = nearest;
    }
    if (finished) {
      for (int k = y; k < next; ++k) {
        kernels.down(sums, rows, k, 1, columns.hasNegative, finished, 0, samples);
        storeColours(images.element, finished, images.dstRow(plane, k), samples);
      }
    } else {
      kernels.down(sums, rows, y, next - y, columns.hasNegative, images.dstRow(plane, y), images.dstStep, samples);
    }
  }
}

ZorStatus interpolate(const Images& images, const Axis& x, const Axis& y, int interpolation)
{
  const Taps taps = tapsFor(interpolation, images.element);
  BlockPlan plan;
  const auto add = [&](long long count, auto sample) {
    return plan.add<decltype(sample)>(count, TablePart::alignment);
  };
  const TablePart columnPart = TablePart::of(taps, x.count, images.shuffleRoom(taps), add),
                  rowPart = TablePart::of(taps, y.count, 0, add);
  const long long work = Walk::workBytes(images, taps, x.count);
  if (plan.isImpossible() || work > PTRDIFF_MAX / 2) return ZorErrAlloc;
  Scratch<char> block(plan.bytes());
  if (!block) return ZorErrAlloc;

  AxisTable columns = columnPart.table(block.get(), taps, x.count), rows = rowPart.table(block.get(), taps, y.count);
  fillTables(x, columns, y, rows);
  const Walk walk(images, columns, rows);
  const long long samples = static_cast<long long>(x.count) * y.count * images.channels * images.planes;
  return masterSlabs(TeamRule::forWork(samples, picosecondsPerSample(taps)), Rounding::Nearest, y.count,
                     static_cast<std::size_t>(work), [&](const Slab& slab) {
                       walk.rowsOf(slab.first, slab.count, slab.buffer);
                       return ZorOk;
                     });
}

} // namespace resize
} // namespace zori
