// Shapes of tiles: see tile_shape.h.
#include "tile_shape.h"

#include <algorithm>

namespace zori {
namespace {

// Lengths of transforms that are worth their while, and what a value costs there and back, in hundredths of a cycle:
// the mean of two kinds of processors.
struct Length {
  int values, cost;
};
constexpr Length lengths[] = {{16, 225},  {32, 220},  {48, 250},  {64, 260},  {80, 330},  {96, 300},  {128, 320},
                              {144, 335}, {160, 390}, {192, 375}, {240, 400}, {256, 365}, {288, 395}, {320, 430},
                              {384, 445}, {480, 470}, {512, 480}, {576, 490}, {640, 505}, {768, 570}, {1024, 705}};
constexpr int costOfOctave = 50; // beyond these, of powers of two
constexpr int costBesides = 350; // what belongs to a value but for the transforms: turns, products, sums, last step
constexpr int costOfRow = 4000;  // what a row of a tile's results costs beside them
constexpr int most = 24;

// Of a transform by columns, sixteen at a time, for each of their values.
constexpr int floatsOfTransform = 18;

// A side of the common tile.
std::int64_t commonLength(const TileAxis& axis) { return std::max(std::int64_t{16}, std::int64_t{1} << axis.order); }

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
    const std::int64_t common = commonLength(axis);
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
  const std::int64_t width = commonLength(x), height = commonLength(y), common = width * height;
  // a pair of tiles as they stand, gaps and buffer of rows included (TileTransform), in the memory of two common ones
  const std::int64_t area = common + (width - x.samples + 1) * (height - y.samples + 1) + floatsOfTransform * height;
  const auto fits = [=](std::int64_t w, std::int64_t h) { return w * h <= common || w * h + 32 * w <= area; };
  const Sides across(x), down(y);
  TileShape best = {};
  double least = 0;
  for (int i = 0; i < across.count; ++i)
    for (int j = 0; j < down.count; ++j) {
      const Side &a = across.side[i], &b = down.side[j];
      if (!fits(a.length, b.length)) break;
      const std::int64_t values = static_cast<std::int64_t>(a.length) * b.length;
      // numbers of tiles are whole, and tiles go in pairs
      const double tiles = a.tiles * b.tiles,
                   pairs = tiles < 0x1p52 ? static_cast<double>((static_cast<std::int64_t>(tiles) + 1) / 2) : tiles / 2;
      const double work =
        pairs * (static_cast<double>(values) * (costBesides + a.cost + b.cost) + 2.0 * costOfRow * b.results);
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
