// Norms against exact integers and the written orders of float sums; relative norms and what a vanishing denominator
// leaves.
#include "reference.h"
#include "stats/norms.h"
#include "support/limits.h"
#include "zori/stats.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace reference;

namespace {

enum Kind { Inf, L1, L2 };

// The norm before the root of L2, per channel, of a or of a - b.
template <class T> double raw(Kind kind, ZorHint hint, const Image<T>& a, const Image<T>* b, int k)
{
  if constexpr (std::is_floating_point_v<T>) {
    double total = 0, even = 0, odd = 0, greatest = 0;
    for (int y = 0; y < a.height; ++y) {
      float lane[4] = {};
      for (int x = 0; x < a.width; ++x) {
        const float f = b ? a.at(x, y, k) - b->at(x, y, k) : a.at(x, y, k);
        const double d = b ? static_cast<double>(a.at(x, y, k)) - b->at(x, y, k) : a.at(x, y, k);
        lane[x % 4] += kind == L1 ? std::fabs(f) : f * f;
        const double term = kind == L1 ? std::fabs(d) : d * d;
        (x % 2 ? odd : even) += term;
        if (a.channels > 1) total += hint == ZorHintAccurate ? term : 0;
        greatest = std::max(greatest, static_cast<double>(std::fabs(f)));
      }
      if (hint != ZorHintAccurate) total += (lane[0] + lane[1]) + (lane[2] + lane[3]);
    }
    return kind == Inf ? greatest : hint == ZorHintAccurate && a.channels == 1 ? odd + even : total;
  } else {
    unsigned long long total = 0, greatest = 0;
    for (int y = 0; y < a.height; ++y)
      for (int x = 0; x < a.width; ++x) {
        const long long d = static_cast<long long>(a.at(x, y, k)) - (b ? b->at(x, y, k) : 0);
        const auto m = static_cast<unsigned long long>(d < 0 ? -d : d);
        total += kind == L1 ? m : m * m;
        greatest = std::max(greatest, m);
      }
    return static_cast<double>(kind == Inf ? greatest : total);
  }
}

// How a relative norm is formed: in one pass, or of the two norms.
template <class T> bool composed(Kind kind, Shape shape, bool accurate)
{
  if (shape.channels == 1 || std::is_same_v<T, Zor16u>) return false;
  if (std::is_same_v<T, Zor16s>) return kind == L2;
  if (shape.channels == 3) return true;
  return kind != Inf && (std::is_same_v<T, Zor8u> || accurate);
}

template <class T, class Norm, class Diff, class Rel>
void check(const char* name, Kind kind, Shape shape, Norm norm, Diff diff, Rel rel)
{
  for (ZorImgSize size : sizes)
    for (ZorHint hint : {ZorHintNone, ZorHintAccurate}) {
      Image<T> a(size.width, size.height, shape.channels, 3, size.width % 3),
        b(size.width, size.height, shape.channels, 4, size.width % 3);
      double n[4] = {-1, -1, -1, -1}, d[4] = {-1, -1, -1, -1}, r[4] = {-1, -1, -1, -1};
      ASSERT_EQ(norm(b.begin(), b.step(), size, n, hint), ZorOk);
      ASSERT_EQ(diff(a.begin(), a.step(), b.begin(), b.step(), size, d, hint), ZorOk);
      ASSERT_EQ(rel(a.begin(), a.step(), b.begin(), b.step(), size, r, hint), ZorOk);
      const auto rooted = [&](double v) { return kind == L2 ? std::sqrt(v) : v; };
      for (int k = 0; k < 4; ++k) {
        if (k >= shape.processed) {
          ASSERT_TRUE(n[k] == -1 && d[k] == -1 && r[k] == -1) << name;
          continue;
        }
        const double numerator = raw<T>(kind, hint, a, &b, k), denominator = raw<T>(kind, hint, b, nullptr, k);
        ASSERT_EQ(n[k], rooted(denominator)) << name << ' ' << size.width;
        ASSERT_EQ(d[k], rooted(numerator)) << name << ' ' << size.width;
        const bool apart = composed<T>(kind, shape, hint == ZorHintAccurate && std::is_floating_point_v<T>);
        ASSERT_EQ(r[k], apart ? rooted(numerator) / rooted(denominator) : rooted(numerator / denominator))
          << name << ' ' << size.width;
      }

      // the last channel of the reference vanishes
      for (int y = 0; y < size.height; ++y)
        for (int x = 0; x < size.width; ++x) b.at(x, y, shape.processed - 1) = 0;
      double w[4] = {-1, -1, -1, -1};
      ASSERT_EQ(rel(a.begin(), a.step(), b.begin(), b.step(), size, w, hint), ZorWarnDivByZero) << name;
      const bool words = sizeof(T) == 2 && shape.channels > 1;
      for (int k = 0; k < shape.processed; ++k) {
        const double numerator = raw<T>(kind, hint, a, &b, k);
        const double left = kind == Inf && words                               ? -1
                            : kind == L2 && words && std::is_same_v<T, Zor16u> ? numerator
                                                                               : rooted(numerator);
        ASSERT_EQ(w[k], left) << name << ' ' << k;
      }
    }
}

template <class F> struct WithoutHint {
  F f;
  template <class... A> ZorStatus operator()(A... a) const
  {
    return call(std::index_sequence_for<A...>{}, std::make_tuple(a...));
  }
  template <size_t... i, class Tuple> ZorStatus call(std::index_sequence<i...>, Tuple t) const
  {
    return drop(std::make_index_sequence<sizeof...(i) - 1>{}, t);
  }
  template <size_t... i, class Tuple> ZorStatus drop(std::index_sequence<i...>, Tuple t) const
  {
    return f(std::get<i>(t)...);
  }
};
template <class F> WithoutHint(F) -> WithoutHint<F>;

#define PLAIN(kind, type, shape, layout)                                                                               \
  check<Zor##type>(#kind " " #type " " #layout, kind, shape, WithoutHint{zoriNorm_##kind##_##type##_##layout##R},      \
                   WithoutHint{zoriNormDiff_##kind##_##type##_##layout##R},                                            \
                   WithoutHint{zoriNormRel_##kind##_##type##_##layout##R});
#define HINTED(kind, type, shape, layout)                                                                              \
  check<Zor##type>(#kind " " #type " " #layout, kind, shape, zoriNorm_##kind##_##type##_##layout##R,                   \
                   zoriNormDiff_##kind##_##type##_##layout##R, zoriNormRel_##kind##_##type##_##layout##R);
#define LAYOUTS(form, kind, type)                                                                                      \
  form(kind, type, c1, C1) form(kind, type, c3, C3) form(kind, type, c4, C4) form(kind, type, ac4, AC4)
#define KINDS(type) LAYOUTS(PLAIN, Inf, type) LAYOUTS(PLAIN, L1, type) LAYOUTS(PLAIN, L2, type)

TEST(Norms, Bytes){KINDS(8u)} TEST(Norms, UnsignedWords){KINDS(16u)} TEST(Norms, SignedWords){KINDS(16s)} TEST(Norms,
                                                                                                               Floats)
{
  LAYOUTS(PLAIN, Inf, 32f) LAYOUTS(HINTED, L1, 32f) LAYOUTS(HINTED, L2, 32f)
}

// More extreme samples than any accumulator of the reducers holds before it is emptied.
template <class T, class Sum, class Norm1, class Norm2>
void checkLongRow(Sum sum, Norm1 norm1, Norm2 norm2, double value)
{
  constexpr ZorImgSize size = {1000, 1100};
  const double samples = 1100000;
  const std::vector<T> image(1100000, static_cast<T>(value));
  const int step = size.width * static_cast<int>(sizeof(T)); // rows that adjoin are one
  double result = 0;
  EXPECT_EQ(sum(image.data(), step, size, &result), ZorOk);
  EXPECT_EQ(result, samples * value);
  EXPECT_EQ(norm1(image.data(), step, size, &result), ZorOk);
  EXPECT_EQ(result, samples * std::fabs(value));
  EXPECT_EQ(norm2(image.data(), step, size, &result), ZorOk);
  EXPECT_EQ(result, std::sqrt(samples * value * value));
}
TEST(Norms, LongRowsOfExtremes)
{
  checkLongRow<Zor8u>(zoriSum_8u_C1R, zoriNorm_L1_8u_C1R, zoriNorm_L2_8u_C1R, 255);
  checkLongRow<Zor16u>(zoriSum_16u_C1R, zoriNorm_L1_16u_C1R, zoriNorm_L2_16u_C1R, 65535);
  for (const double value : {-32768, 32767})
    checkLongRow<Zor16s>(zoriSum_16s_C1R, zoriNorm_L1_16s_C1R, zoriNorm_L2_16s_C1R, value);
}

TEST(Norms, WideAndExtreme)
{
  std::vector<Zor8u> bytes(40000, 255), zeros(40000, 0);
  double norm = 0;
  std::vector<int> widths = {40000};
  for (const int width : zoritest::around(zori::normStripWidth)) widths.push_back(width);
  for (const int width : widths) {
    ASSERT_EQ(zoriNorm_L2_8u_C1R(bytes.data(), 40000, {width, 1}, &norm), ZorOk);
    const int first = std::min(width, zori::normStripWidth);
    const double strips[2] = {std::sqrt(65025.0 * first), std::sqrt(65025.0 * (width - first))};
    EXPECT_EQ(norm, std::sqrt(strips[0] * strips[0] + strips[1] * strips[1])) << width;
  }
  ASSERT_EQ(zoriNormRel_L2_8u_C1R(zeros.data(), 40000, bytes.data(), 40000, {40000, 1}, &norm), ZorOk);
  EXPECT_EQ(norm, 1.0);
  std::vector<Zor16s> words(70001, -32768);
  ASSERT_EQ(zoriNorm_L2_16s_C1R(words.data(), 140002, {70001, 1}, &norm), ZorOk);
  EXPECT_EQ(norm, std::sqrt(1073741824.0 * 70001));
  const Zor32s ints[4] = {5, -2147483647 - 1, 2147483647, 0};
  ASSERT_EQ(zoriNorm_Inf_32s_C1R(ints, 16, {4, 1}, &norm), ZorOk);
  EXPECT_EQ(norm, 2147483648.0);
}

} // namespace
