// Output rows by way of rows in between: each of those is made once, from whatever the source is, and kept as long as
// an output row needs it. Filters make sums down the columns and finish along the row, resizing makes rows of the new
// width and mixes several of them, rank and shape filters make sorted or extreme columns.
#pragma once

#include "frame/arena.h"
#include "frame/parallel.h"

#include <algorithm>
#include <cstddef>

namespace zori {

// Rows first .. end - 1.
struct RowRange {
  int first, end;
};

// The rows in between that an output row needs: [0] is the first of them.
template <class T> class RowWindow {
public:
  RowWindow(T* ring, int ringRows, std::ptrdiff_t pitch, int firstSlot)
    : ring_(ring), ringRows_(ringRows), pitch_(pitch), firstSlot_(firstSlot)
  {}
  T* operator[](int k) const
  {
    ZORI_ASSERT(k >= 0 && k < ringRows_);
    const int slot = firstSlot_ + k < ringRows_ ? firstSlot_ + k : firstSlot_ + k - ringRows_;
    return ring_ + slot * pitch_;
  }

private:
  T* ring_;
  int ringRows_;
  std::ptrdiff_t pitch_;
  int firstSlot_;
};

// What the rows in between take: their length in elements, how many of them an output row needs at most, and how many
// are made before they are needed. One row ahead is worth its place in the cache where rows are short: what has just
// been stored is slow to read at other addresses.
struct RowsBetween {
  long long elements;
  int most;
  int ahead = 1;
};

// Output rows 0 to height - 1, in the order of the rows within each slab:
//
//   needed(y)          the rows in between that output row y needs; neither end of the range falls from row to row
//   make(b, row)       makes row b; each one that is needed in a slab once, in their order
//   finish(y, window)  makes output row y
template <class T, class Needed, class Make, class Finish>
inline ZorStatus pipeRows(TeamRule team, Rounding rounding, int height, RowsBetween between, Needed needed, Make make,
                          Finish finish)
{
  constexpr long long line = 64 / sizeof(T);
  const int ringRows = between.most + between.ahead;
  const long long pitch = (between.elements + line - 1) / line * line;
  if (pitch > BlockPlan::impossible / ringRows) return ZorErrAlloc;
  BlockPlan plan;
  const auto ring = plan.add<T>(pitch * ringRows);
  if (plan.isImpossible()) return ZorErrAlloc;

  const std::ptrdiff_t step = static_cast<std::ptrdiff_t>(pitch);
  return masterSlabs(team, rounding, height, static_cast<std::size_t>(plan.bytes()), [=](const Slab& slab) {
    if (slab.count == 0) return ZorOk;
    const auto makeRow = make; // copies that nobody else can see, so that what they hold stays in registers
    const auto finishRow = finish;
    T* const rows = ring.in(slab.buffer);
    const int limit = needed(slab.first + slab.count - 1).end;
    int made = needed(slab.first).first, slot = 0; // the row that is made next, and where
    for (int y = slab.first; y < slab.first + slab.count; ++y) {
      const RowRange range = needed(y);
      ZORI_ASSERT(range.end - range.first <= between.most);
      made = std::max(made, range.first); // what nobody needs is not made
      for (const int until = std::min(range.end + between.ahead, limit); made < until; ++made) {
        makeRow(made, rows + slot * step);
        slot = slot + 1 < ringRows ? slot + 1 : 0;
      }
      const int firstSlot = slot - (made - range.first);
      finishRow(y, RowWindow<T>(rows, ringRows, step, firstSlot < 0 ? firstSlot + ringRows : firstSlot));
    }
    return ZorOk;
  });
}

} // namespace zori
