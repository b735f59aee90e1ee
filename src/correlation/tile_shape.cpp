// Shapes of tiles: see tile_shape.h.
#include "tile_shape.h"

#include <algorithm>

namespace zori {
namespace {

// Lengths of transforms that are worth their while, and what a value costs there and back, in hundredths of a cycle.
struct Length {
  int values, cost;
};
constexpr Length lengths[] = {{16, 220},  {32, 210},  {48, 235},  {64, 270},  {80, 340},  {96, 315},
                              {128, 340}, {144, 340}, {160, 400}, {192, 390}, {240, 370}, {256, 345},
                              {288, 370}, {320, 390}, {384, 420}, {512, 450}, {768, 480}, {1024, 550}};
constexpr int costOfOctave = 50; // beyond these, of powers of two
constexpr int costBesides = 350; // what belongs to a value but for the transforms: turns, products, sums, last step
constexpr int most = 24;

// A length that may become a side of the tile.
struct Side {
  double tiles;
  int length, cost, results;
};

struct Sides {
  Side side[most];
  int count = 0;

  explicit Sides(const TileAxis& axis)
  {
    const int common = std::max(1 << axis.order, 16);
    for (const Length& l : lengths)
      if (l.values / 2 <= common) add(axis, l);
    const Length& last = lengths[sizeof lengths / sizeof *lengths - 1];
    int cost = last.cost;
    for (std::int64_t n = 2 * std::int64_t{last.values}; n <= common; n *= 2) {
      cost += costOfOctave;
      if (4 * n > common) add(axis, {static_cast<int>(n), cost});
    }
  }

private:
  // A longer side must lead to fewer tiles.
  void add(const TileAxis& axis, const Length& l)
  {
    std::int64_t results = l.values - axis.samples + 1;
    if (axis.runsOver && l.values >= axis.results) results = axis.results;
    if (results < 1) return;
    const double tiles = static_cast<double>((axis.results + results - 1) / results);
    if (count == 0 || tiles < side[count - 1].tiles)
      side[count++] = {tiles, l.values, l.cost, static_cast<int>(results)};
  }
};

} // namespace

TileShape chooseTileShape(const TileAxis& x, const TileAxis& y)
{
  const std::int64_t mostValues =
    std::max(std::int64_t{16}, std::int64_t{1} << x.order) * std::max(std::int64_t{16}, std::int64_t{1} << y.order);
  const Sides across(x), down(y);
  TileShape best = {};
  double least = 0;
  for (int i = 0; i < across.count; ++i)
    for (int j = 0; j < down.count; ++j) {
      const Side &a = across.side[i], &b = down.side[j];
      const std::int64_t values = static_cast<std::int64_t>(a.length) * b.length;
      if (values > mostValues) break;
      // numbers of tiles are whole, and tiles go in pairs
      const double tiles = a.tiles * b.tiles,
                   pairs = tiles < 0x1p52 ? static_cast<double>((static_cast<std::int64_t>(tiles) + 1) / 2) : tiles / 2;
      const double work = pairs * static_cast<double>(values) * (costBesides + a.cost + b.cost);
      if (best.width == 0 || work < least) best = {a.length, b.length, a.results, b.results}, least = work;
    }
  return best;
}

int orderCovering(std::int64_t samples)
{
  int order = 1;
  while ((std::int64_t{1} << order) < samples) ++order;
  return order;
}

int tileOrder(std::int64_t samples, std::int64_t results, int limit)
{
  const int order = orderCovering(2 * samples);
  return order < limit && (std::int64_t{1} << order) < results ? order + 1 : order;
}

} // namespace zori
