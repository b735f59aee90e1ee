// The networks behind medians of squares, on zeros and ones: 64 cases at once, a bit each.
#include "filter/median_tiles.h"
#include "filter/sorted_columns.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

namespace {

struct Bits {
  std::uint64_t v;
};
Bits min(Bits a, Bits b) { return {a.v & b.v}; }
Bits max(Bits a, Bits b) { return {a.v | b.v}; }

using zori::columns::Square;
using zori::network::Network;
using zori::network::twoMerged;
using zori::tiles::Tile;

template <class N> std::vector<std::uint64_t> run(const std::vector<std::uint64_t>& in, std::size_t outputs)
{
  std::vector<std::uint64_t> out(outputs, 0);
  N::template run<Bits>([&](auto k) { return Bits{in[static_cast<std::size_t>(int{k})]}; },
                        [&](auto k, Bits x) { out[static_cast<std::size_t>(int{k})] = x.v; });
  return out;
}

int ones(const std::vector<std::uint64_t>& words, int from, int count, int lane)
{
  int n = 0;
  for (int i = from; i < from + count; ++i) n += words[static_cast<std::size_t>(i)] >> lane & 1;
  return n;
}

// Zeros, then ones, in `lane` of words from..from + count - 1.
void putSorted(std::vector<std::uint64_t>& words, int from, int count, int ones, int lane)
{
  for (int i = 0; i < count; ++i)
    if (i >= count - ones) words[static_cast<std::size_t>(from + i)] |= std::uint64_t{1} << lane;
}

// The same in all lanes.
void putSortedInAll(std::vector<std::uint64_t>& words, int from, int count, int ones)
{
  for (int i = 0; i < count; ++i) words[static_cast<std::size_t>(from + i)] = i >= count - ones ? ~std::uint64_t{0} : 0;
}

bool isSortedWith(const std::vector<std::uint64_t>& words, int from, int count, int ones, int lane)
{
  for (int i = 0; i < count; ++i)
    if ((words[static_cast<std::size_t>(from + i)] >> lane & 1) != (i >= count - ones)) return false;
  return true;
}

template <int Side> void sortsColumns()
{
  using N = Network<Square<Side>::columns>;
  for (int first = 0; first < 1 << (Side + 1); first += 64) {
    std::vector<std::uint64_t> in(Side + 1, 0);
    for (int lane = 0; lane < 64; ++lane)
      for (int k = 0; k <= Side; ++k)
        in[static_cast<std::size_t>(k)] |= static_cast<std::uint64_t>((first + lane) >> k & 1) << lane;
    const auto out = run<N>(in, Side == 3 ? 6 : Side + 1);
    for (int lane = 0; lane < 64; ++lane) {
      if constexpr (Side == 3) {
        ASSERT_TRUE(isSortedWith(out, 0, 3, ones(in, 0, 3, lane), lane));
        ASSERT_TRUE(isSortedWith(out, 3, 3, ones(in, 1, 3, lane), lane));
      } else {
        ASSERT_EQ(out[0], in[0]);
        ASSERT_EQ(out[1], in[Side]);
        ASSERT_TRUE(isSortedWith(out, 2, Side - 1, ones(in, 1, Side - 1, lane), lane));
      }
    }
  }
}

template <class N> void joinsBlocks(int height, int firstHeight, int secondHeight)
{
  for (int a = 0; a <= firstHeight; ++a)
    for (int from = 0; from <= secondHeight; from += 64) {
      std::vector<std::uint64_t> in(static_cast<std::size_t>(height), 0);
      const auto second = [=](int lane) { return std::min(from + lane, secondHeight); };
      for (int lane = 0; lane < 64; ++lane) {
        putSorted(in, 0, firstHeight, a, lane);
        putSorted(in, firstHeight, secondHeight, second(lane), lane);
      }
      const auto out = run<N>(in, static_cast<std::size_t>(height));
      for (int lane = 0; lane < 64; ++lane) ASSERT_TRUE(isSortedWith(out, 0, height, a + second(lane), lane));
    }
}
template <class Plan, int... K> void joinsAll(std::integer_sequence<int, K...>)
{
  (joinsBlocks<Network<twoMerged<Plan::join(K).firstHeight, Plan::join(K).secondHeight>>>(
     Plan::join(K).height, Plan::join(K).firstHeight, Plan::join(K).secondHeight),
   ...);
}

// The medians of both rows, with sorted blocks of all contents and every (above 7: some) contents of the other row.
template <int Side> void selectsMedians()
{
  using N = Network<Square<Side>::windows>;
  using P = Square<Side>;
  const int a = P::height(P::B::window[0]), b = P::height(P::B::window[1]), c = P::height(P::B::window[2]);
  const int shared = a + b + c;
  std::mt19937 random(Side);
  for (int i = 0; i <= a; ++i)
    for (int j = 0; j <= b; ++j)
      for (int k = 0; k <= c; ++k)
        for (int first = 0; first < (Side <= 7 ? 1 << Side : 64); first += 64) {
          std::vector<std::uint64_t> in(static_cast<std::size_t>(shared + 2 * Side), 0);
          putSortedInAll(in, 0, a, i);
          putSortedInAll(in, a, b, j);
          putSortedInAll(in, a + b, c, k);
          for (int lane = 0; lane < 64; ++lane) {
            // above 7, as many ones as zeros on average, or nearly all of a kind
            const unsigned upper = Side <= 7 ? static_cast<unsigned>(first + lane)
                                   : lane < 32
                                     ? static_cast<unsigned>(random())
                                     : (lane % 2 ? ~0u : 0u) ^ static_cast<unsigned>(random() & random() & random());
            const unsigned lower = ~upper;
            for (int n = 0; n < Side; ++n) {
              in[static_cast<std::size_t>(shared + n)] |= static_cast<std::uint64_t>(upper >> n & 1) << lane;
              in[static_cast<std::size_t>(shared + Side + n)] |= static_cast<std::uint64_t>(lower >> n & 1) << lane;
            }
          }
          const auto out = run<N>(in, 2);
          for (int lane = 0; lane < 64; ++lane)
            for (int row = 0; row < 2; ++row) {
              const int all = i + j + k + ones(in, shared + row * Side, Side, lane);
              ASSERT_EQ(out[static_cast<std::size_t>(row)] >> lane & 1, static_cast<unsigned>(all > Side * Side / 2))
                << i << " " << j << " " << k << " of " << a << " " << b << " " << c << ", row " << row;
            }
        }
}

TEST(MedianNetworks, OrderZerosAndOnes)
{
  sortsColumns<3>();
  sortsColumns<5>();
  joinsAll<Square<5>>(std::make_integer_sequence<int, Square<5>::joins>{});
  selectsMedians<5>();
}

// Sorted couples to a sorted column.
template <int Side> void mergesCouples()
{
  constexpr int shared = Tile<Side>::shared;
  int contents = 1;
  for (int k = 0; k < Tile<Side>::pairs; ++k) contents *= 3;
  for (int first = 0; first < contents; first += 64) {
    std::vector<std::uint64_t> in(shared, 0);
    for (int lane = 0; lane < 64; ++lane)
      for (int k = 0, rest = (first + lane) % contents; k < shared; k += 2, rest /= 3)
        putSorted(in, k, 2, rest % 3, lane);
    const auto out = run<Network<Tile<Side>::columns>>(in, shared);
    for (int lane = 0; lane < 64; ++lane) ASSERT_TRUE(isSortedWith(out, 0, shared, ones(in, 0, shared, lane), lane));
  }
}

// The four medians of a tile, each block, column and outer row with any number of ones: all numbers of both blocks of a
// core of 5x5, of larger squares at random, as near to a draw as to all of a kind.
template <int Side> void selectsMediansOfTile()
{
  using P = Tile<Side>;
  constexpr int shared = P::shared, core = shared * shared, rounds = 6000;
  std::mt19937 random(Side);
  const auto upTo = [&](int most) { return static_cast<int>(random() % static_cast<unsigned>(most + 1)); };
  for (int round = 0; round < rounds; ++round) {
    std::vector<std::uint64_t> in(static_cast<std::size_t>(P::inputs), 0);
    for (int lane = 0; lane < 64; ++lane) {
      int at = 0;
      // so many of 1024 are ones: the same share in all inputs leads to the ranks around the middle
      const int share = 512 + upTo(200) - upTo(200);
      for (const int block : P::B::core) {
        const int height = P::height(block), likely = height * share / 1024;
        const int count = lane % 4 ? likely + upTo(4) - 2 : upTo(height);
        putSorted(in, at, height, std::min(std::max(count, 0), height), lane);
        at += height;
      }
      for (int column = 0; column < 2; ++column, at += shared) putSorted(in, at, shared, upTo(shared), lane);
      for (int row = 0; row < 2; ++row, at += shared + 2) {
        for (int k = 0; k < shared; k += 2) putSorted(in, at + k, 2, upTo(2), lane);
        for (int k = 0; k < 2; ++k) putSorted(in, at + shared + k, 1, upTo(1), lane);
      }
    }
    const auto out = run<Network<P::medians>>(in, 4);
    for (int lane = 0; lane < 64; ++lane)
      for (int row = 0; row < 2; ++row)
        for (int right = 0; right < 2; ++right) {
          const int outer = core + 2 * shared + row * (shared + 2);
          const int all = ones(in, 0, core, lane) + ones(in, core + right * shared, shared, lane) +
                          ones(in, outer, shared, lane) + ones(in, outer + shared + right, 1, lane);
          ASSERT_EQ(out[static_cast<std::size_t>(2 * row + right)] >> lane & 1,
                    static_cast<unsigned>(all > Side * Side / 2))
            << all << " ones, row " << row << ", column " << right;
        }
  }
}

template <int Side> void tileIsRight()
{
  mergesCouples<Side>();
  joinsAll<Tile<Side>>(std::make_integer_sequence<int, Tile<Side>::joins>{});
  selectsMediansOfTile<Side>();
}

TEST(MedianNetworks, OrderZerosAndOnesOfTiles)
{
  tileIsRight<5>();
  tileIsRight<7>();
  tileIsRight<9>();
  tileIsRight<11>();
  tileIsRight<13>();
  tileIsRight<15>();
}

// Three sorted columns a row.
TEST(MedianNetworks, TakeTheMiddleOfNine)
{
  std::vector<std::uint64_t> in(18, 0);
  const auto content = [](int lane, int column) { return lane >> (2 * column) & 3; };
  for (int lane = 0; lane < 64; ++lane)
    for (int row = 0; row < 2; ++row)
      for (int column = 0; column < 3; ++column)
        for (int rank = 0; rank < 3; ++rank)
          if (rank >= 3 - content(row ? 63 - lane : lane, column))
            in[static_cast<std::size_t>(row * 9 + rank * 3 + column)] |= std::uint64_t{1} << lane;
  const auto out = run<Network<Square<3>::windows>>(in, 2);
  for (int lane = 0; lane < 64; ++lane) {
    int all = 0;
    for (int column = 0; column < 3; ++column) all += content(lane, column);
    EXPECT_EQ(out[0] >> lane & 1, static_cast<unsigned>(all > 4)) << lane;
    EXPECT_EQ(out[1] >> (63 - lane) & 1, static_cast<unsigned>(all > 4)) << lane;
  }
}

// A kernel costs what its exchanges cost: each is one instruction.
TEST(MedianNetworks, NeedNoMoreThanTheyShould)
{
  EXPECT_EQ(Network<Square<3>::columns>::exchangeHalves + Network<Square<3>::windows>::exchangeHalves, 34);
  const auto halves5 = Network<Square<5>::columns>::exchangeHalves + Network<twoMerged<4, 4>>::exchangeHalves +
                       Network<Square<5>::windows>::exchangeHalves;
  EXPECT_LE(halves5, 154);
  // four medians instead of two; couples and pairs of columns are two for each
  const auto tile5 = 2 * (2 + Network<Tile<5>::columns>::exchangeHalves) + 4 +
                     Network<twoMerged<4, 4>>::exchangeHalves + Network<Tile<5>::medians>::exchangeHalves;
  EXPECT_LE(tile5, 214);
}

} // namespace
