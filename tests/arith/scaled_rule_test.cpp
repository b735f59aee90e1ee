// The rule of scaled arithmetic, by the C1 functions: every pair of bytes, and of the other types the values next to
// limits and ties, at all scales that matter and at the ends of int.
#include "scaled_cases.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

using namespace scaledtest;

namespace {

std::vector<int> scales(int from, int to)
{
  std::vector<int> all = {std::numeric_limits<int>::min(), -1000, 1000, std::numeric_limits<int>::max()};
  for (int s = from; s <= to; ++s) all.push_back(s);
  return all;
}

template <class T> std::string words(const char* name, T a, T b, int scale)
{
  Part<T> x[2] = {}, y[2] = {};
  std::memcpy(x, &a, sizeof a);
  std::memcpy(y, &b, sizeof b);
  const auto text = [](const Part<T>* p) { return "(" + std::to_string(p[0]) + ", " + std::to_string(p[1]) + ")"; };
  return std::string(name) + " of " + text(x) + " and " + text(y) + " at scale " + std::to_string(scale);
}

// One row of operands a and b through a C1 function; the first sample that is wrong.
template <class T> std::string check(const Images<T>& f, const std::vector<T>& a, const std::vector<T>& b, int scale)
{
  std::vector<T> d(a.size());
  const bool swapped = f.operation == Difference; // the first image is subtracted
  const T *first = swapped ? b.data() : a.data(), *second = swapped ? a.data() : b.data();
  if (f.to(first, 4, second, 4, d.data(), 4, {static_cast<int>(a.size()), 1}, scale) != ZorOk) return "the call fails";
  for (std::size_t i = 0; i < a.size(); ++i) {
    const T e = expected(f.operation, a[i], b[i], scale);
    if (std::memcmp(&d[i], &e, sizeof e)) return words(f.name, a[i], b[i], scale);
  }
  return "";
}

template <class T> std::string check(const Constants<T>& f, const std::vector<T>& a, T c, int scale)
{
  std::vector<T> d(a.size());
  if (f.to(a.data(), 4, &c, d.data(), 4, {static_cast<int>(a.size()), 1}, scale) != ZorOk) return "the call fails";
  for (std::size_t i = 0; i < a.size(); ++i) {
    const T e = expected(f.operation, a[i], c, scale);
    if (std::memcmp(&d[i], &e, sizeof e)) return words(f.name, a[i], c, scale);
  }
  return "";
}

// Numbers around powers of two, their multiples by small odd numbers, and the limits.
template <class P> std::vector<P> tellingNumbers()
{
  constexpr long long least = std::numeric_limits<P>::min(), greatest = std::numeric_limits<P>::max();
  std::vector<P> all;
  for (int k = 0; k < std::numeric_limits<P>::digits + 1; ++k)
    for (long long factor : {1, 3, 5, 7})
      for (long long off : {-1, 0, 1})
        for (long long sign : {-1, 1}) {
          const long long x = sign * ((factor << k) + off);
          if (x >= least && x <= greatest) all.push_back(static_cast<P>(x));
        }
  for (long long x : {least, least + 1, greatest - 1, greatest}) all.push_back(static_cast<P>(x));
  return all;
}

// Pairs of such numbers in an order without end.
template <class T> std::vector<T> operands(std::size_t count, std::uint64_t seed)
{
  const auto numbers = tellingNumbers<Part<T>>();
  std::vector<T> all(count);
  const auto next = [&] {
    seed = seed * 6364136223846793005u + 1442695040888963407u;
    return numbers[(seed >> 33) % numbers.size()];
  };
  for (T& x : all) {
    const Part<T> p[2] = {next(), next()};
    std::memcpy(&x, p, sizeof x);
  }
  return all;
}

template <class T> class ScaledRule : public testing::Test {};
using Wide = testing::Types<Zor16u, Zor16s, Zor16sc, Zor32sc>;
TYPED_TEST_SUITE(ScaledRule, Wide);

} // namespace

TEST(ScaledRuleOfBytes, EveryPairAtEveryScale)
{
  std::vector<Zor8u> a(65536), b(65536);
  for (std::size_t i = 0; i < a.size(); ++i) a[i] = static_cast<Zor8u>(i), b[i] = static_cast<Zor8u>(i / 256);
  const std::vector<Zor8u> all(a.begin(), a.begin() + 256);
  for (const auto& f : images<Zor8u>())
    for (int s : f.channels == 1 ? scales(-10, 19) : std::vector<int>{}) ASSERT_EQ(check(f, a, b, s), "");
  for (const auto& f : constants<Zor8u>())
    for (int s : f.channels == 1 ? scales(-10, 19) : std::vector<int>{})
      for (Zor8u c : all) ASSERT_EQ(check(f, all, c, s), "");
}

TYPED_TEST(ScaledRule, LimitsAndTies)
{
  using T = TypeParam;
  constexpr int width = 8 * sizeof(Part<T>);
  const auto a = operands<T>(3000, 1), b = operands<T>(3000, 7);
  for (const auto& f : images<T>())
    for (int s : f.channels == 1 ? scales(-width - 2, 2 * width + 3) : std::vector<int>{})
      ASSERT_EQ(check(f, a, b, s), "");
  for (const auto& f : constants<T>())
    for (int s : f.channels == 1 ? scales(-width - 2, 2 * width + 3) : std::vector<int>{})
      for (int i = 0; i < 40; ++i)
        ASSERT_EQ(check(f, std::vector<T>(a.begin() + i, a.begin() + i + 97), b[static_cast<std::size_t>(i)], s), "");
}

TYPED_TEST(ScaledRule, AllPairsOfTheLimits)
{
  using T = TypeParam;
  using P = Part<T>;
  constexpr int width = 8 * sizeof(P);
  const P numbers[] = {std::numeric_limits<P>::min(), P(std::numeric_limits<P>::min() + 1), P(-1), 0, 1,
                       std::numeric_limits<P>::max()};
  std::vector<T> a, b;
  for (P p : numbers)
    for (P q : numbers)
      for (P r : numbers)
        for (P t : numbers) {
          const P x[2] = {p, q}, y[2] = {r, t};
          std::memcpy(&a.emplace_back(), x, sizeof(T));
          std::memcpy(&b.emplace_back(), y, sizeof(T));
        }
  for (const auto& f : images<T>())
    for (int s : f.channels == 1 ? scales(-width - 2, 2 * width + 3) : std::vector<int>{})
      ASSERT_EQ(check(f, a, b, s), "");
  for (const auto& f : constants<T>())
    for (int s : f.channels == 1 ? scales(-width - 2, 2 * width + 3) : std::vector<int>{})
      for (std::size_t i = 0; i < b.size(); i += 43) ASSERT_EQ(check(f, a, b[i], s), "");
}

// The oracle itself, by hand.
TEST(ScaledRuleByHand, TiesGoToTheEvenNeighbour)
{
  struct {
    int a, b, scale, sum;
  } cases[] = {
    {1, 2, 1, 2},           {2, 3, 1, 2},       {3, 4, 1, 4},         {-1, -2, 1, -2}, {5, 1, 2, 2},
    {-5, -1, 2, -2},        {1, 0, -16, 32767}, {-1, 0, -15, -32768}, {9, 9, 17, 0},   {-32768, -32768, 16, -1},
    {-32768, -32768, 17, 0}};
  for (const auto& c : cases) {
    const Zor16s a = static_cast<Zor16s>(c.a), b = static_cast<Zor16s>(c.b);
    Zor16s d = 77;
    ASSERT_EQ(zoriAdd_16s_C1RSfs(&a, 2, &b, 2, &d, 2, {1, 1}, c.scale), ZorOk);
    EXPECT_EQ(d, c.sum) << c.a << " + " << c.b << " at " << c.scale;
  }
  Zor8u ten = 10, three = 3, d = 0;
  zoriSub_8u_C1RSfs(&ten, 1, &three, 1, &d, 1, {1, 1}, 0);
  EXPECT_EQ(d, 0);
  zoriSub_8u_C1RSfs(&three, 1, &ten, 1, &d, 1, {1, 1}, 0);
  EXPECT_EQ(d, 7);
  zoriSub_8u_C1IRSfs(&three, 1, &ten, 1, {1, 1}, 0);
  EXPECT_EQ(ten, 7);
  zoriSubC_8u_C1IRSfs(2, &ten, 1, {1, 1}, 0);
  EXPECT_EQ(ten, 5);
  const Zor32sc least = {INT32_MIN, INT32_MIN};
  Zor32sc product;
  zoriMul_32sc_C1RSfs(&least, 8, &least, 8, &product, 8, {1, 1}, 33);
  EXPECT_EQ(product.re, 0);
  EXPECT_EQ(product.im, 1 << 30);
}
