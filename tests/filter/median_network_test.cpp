// The networks behind medians of squares, on zeros and ones: 64 cases at once, a bit each.
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

template <int Side, int K> void joinsBlocks()
{
  constexpr auto join = Square<Side>::join(K);
  using N = Network<Square<Side>::template joined<K>>;
  for (int a = 0; a <= join.firstHeight; ++a) {
    std::vector<std::uint64_t> in(static_cast<std::size_t>(join.height), 0);
    for (int b = 0; b <= join.secondHeight; ++b) {
      putSorted(in, 0, join.firstHeight, a, b);
      putSorted(in, join.firstHeight, join.secondHeight, b, b);
    }
    const auto out = run<N>(in, static_cast<std::size_t>(join.height));
    for (int b = 0; b <= join.secondHeight; ++b) ASSERT_TRUE(isSortedWith(out, 0, join.height, a + b, b));
  }
}
template <int Side, int... K> void joinsAll(std::integer_sequence<int, K...>) { (joinsBlocks<Side, K>(), ...); }

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

template <int Side> void isRight()
{
  sortsColumns<Side>();
  joinsAll<Side>(std::make_integer_sequence<int, Square<Side>::joins>{});
  if constexpr (Side > 3) selectsMedians<Side>();
}

TEST(MedianNetworks, OrderZerosAndOnes)
{
  isRight<3>();
  isRight<5>();
  isRight<7>();
  isRight<9>();
  isRight<11>();
  isRight<13>();
  isRight<15>();
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
  const auto halves5 = Network<Square<5>::columns>::exchangeHalves + Network<Square<5>::joined<0>>::exchangeHalves +
                       Network<Square<5>::windows>::exchangeHalves;
  EXPECT_LE(halves5, 154);
}

} // namespace
