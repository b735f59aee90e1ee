// New orders of channels: every order of every form against a sample-by-sample oracle, in place and not.
#include "zori/data.h"

#include "sample_image.h"

#include <gtest/gtest.h>

#include <climits>

using namespace zoritest;

namespace {

template <class T> struct Functions;
#define TABLE(type)                                                                                                    \
  template <> struct Functions<Zor##type> {                                                                            \
    static constexpr auto c3 = zoriSwapChannels_##type##_C3R;                                                          \
    static constexpr auto ac4 = zoriSwapChannels_##type##_AC4R;                                                        \
    static constexpr auto c3c4 = zoriSwapChannels_##type##_C3C4R;                                                      \
    static constexpr auto c4c3 = zoriSwapChannels_##type##_C4C3R;                                                      \
  };
TABLE(8u)
TABLE(16u)
TABLE(16s)
TABLE(32s)
TABLE(32f)

// All orders of n entries out of the given ones.
std::vector<std::vector<int>> orders(int n, const std::vector<int>& entries)
{
  std::vector<std::vector<int>> all = {{}};
  for (int k = 0; k < n; ++k) {
    std::vector<std::vector<int>> longer;
    for (const auto& o : all)
      for (int e : entries) {
        longer.push_back(o);
        longer.back().push_back(e);
      }
    all = longer;
  }
  return all;
}

template <class T> class SwapChannels : public testing::Test {
protected:
  static constexpr int bytes = static_cast<int>(sizeof(T));

  // Runs f(src, dst, roi) on images of some widths; the oracle moves channels by `from`.
  template <class F> void check(int srcChannels, int dstChannels, const std::vector<int>& from, bool inPlace, F f)
  {
    for (int width : {1, 2, 5, 16, 17, 33, 100})
      for (int padding : {0, 6}) {
        const ZorImgSize roi{width, 2};
        SampleImage src(1, srcChannels, bytes, roi, padding, 3, 1), dst(1, dstChannels, bytes, roi, 6 - padding, 5, 2);
        SampleImage& to = inPlace ? src : dst;
        SampleImage expected = to;
        moveSamples(src, expected, from, nullptr, 0);
        ASSERT_EQ(f(first<T>(src), src.step, first<T>(to), to.step, roi), ZorOk);
        ASSERT_EQ(to.bytes, expected.bytes) << "width " << width << ", from " << testing::PrintToString(from);
      }
  }
};
using Elements = testing::Types<Zor8u, Zor16u, Zor16s, Zor32s, Zor32f>;
TYPED_TEST_SUITE(SwapChannels, Elements);

TYPED_TEST(SwapChannels, ThreeToThree)
{
  using F = Functions<TypeParam>;
  for (const auto& order : orders(3, {0, 1, 2})) {
    std::vector<int> keeping = order;
    keeping.push_back(-1);
    for (bool inPlace : {false, true}) {
      this->check(3, 3, order, inPlace, [&](auto... a) { return F::c3(a..., order.data()); });
      this->check(4, 4, keeping, inPlace, [&](auto... a) { return F::ac4(a..., order.data()); });
    }
  }
}

TYPED_TEST(SwapChannels, FourToThree)
{
  for (const auto& order : orders(3, {0, 1, 2, 3}))
    this->check(4, 3, order, false, [&](auto... a) { return Functions<TypeParam>::c4c3(a..., order.data()); });
}

TYPED_TEST(SwapChannels, ThreeToFourWithAValueAndKeptChannels)
{
  using T = TypeParam;
  const T value = static_cast<T>(91);
  for (const auto& order : orders(4, {0, 1, 2, 3, 4, INT_MAX}))
    for (int width : {1, 21}) {
      const ZorImgSize roi{width, 2};
      SampleImage src(1, 3, sizeof(T), roi, 4, 0, 1), dst(1, 4, sizeof(T), roi, 0, 1, 2), expected = dst;
      std::vector<int> from = order;
      for (int& entry : from) entry = entry > 2 ? -1 : entry;
      moveSamples(src, expected, from, nullptr, 0);
      for (int y = 0; y < 2; ++y)
        for (int x = 0; x < width; ++x)
          for (int k = 0; k < 4; ++k)
            if (order[k] == 3) std::memcpy(expected.at(0, y, x, k), &value, sizeof value);
      ASSERT_EQ(Functions<T>::c3c4(first<T>(src), src.step, first<T>(dst), dst.step, roi, order.data(), value), ZorOk);
      ASSERT_EQ(dst.bytes, expected.bytes) << "width " << width << ", order " << testing::PrintToString(order);
    }
}

using InPlace8u = SwapChannels<Zor8u>;
TEST_F(InPlace8u, AllOrders)
{
  for (const auto& order : orders(3, {0, 1, 2}))
    check(3, 3, order, true, [&](auto, int, Zor8u* p, int step, ZorImgSize roi) {
      return zoriSwapChannels_8u_C3IR(p, step, roi, order.data());
    });
  for (const auto& order : orders(4, {0, 1, 2, 3}))
    check(4, 4, order, true, [&](auto, int, Zor8u* p, int step, ZorImgSize roi) {
      return zoriSwapChannels_8u_C4IR(p, step, roi, order.data());
    });
}

// Which entries each form takes, and that the order is looked at last.
TEST(SwapChannelsOrder, EntriesOutOfRange)
{
  Zor8u src[16] = {}, dst[16] = {1, 2, 3, 4}, before[16] = {1, 2, 3, 4};
  const ZorImgSize one{1, 1}, none{0, 1};
  for (int bad : {-1, INT_MIN, 3, 4, INT_MAX})
    for (int k = 0; k < 4; ++k) {
      int order[4] = {0, 0, 0, 0};
      order[k] = bad;
      const ZorStatus three = k < 3 ? ZorErrChannelOrder : ZorOk, four = bad == 3 ? ZorOk : ZorErrChannelOrder;
      if (k < 3) {
        EXPECT_EQ(zoriSwapChannels_8u_C3R(src, 3, dst, 3, one, order), three);
        EXPECT_EQ(zoriSwapChannels_8u_AC4R(src, 4, dst, 4, one, order), three);
        EXPECT_EQ(zoriSwapChannels_8u_C3IR(dst, 3, one, order), three);
        if (bad != 3) {
          EXPECT_EQ(zoriSwapChannels_8u_C4C3R(src, 4, dst, 3, one, order), four);
        }
      }
      if (bad != 3) {
        EXPECT_EQ(zoriSwapChannels_8u_C4IR(dst, 4, one, order), four);
      }
      if (bad < 0) {
        EXPECT_EQ(zoriSwapChannels_8u_C3C4R(src, 3, dst, 4, one, order, 9), ZorErrChannelOrder);
      }
      EXPECT_EQ(zoriSwapChannels_8u_C3R(src, 0, dst, 3, one, order), ZorErrStep);
      EXPECT_EQ(zoriSwapChannels_8u_C3R(src, 0, dst, 3, none, order), ZorErrSize);
      EXPECT_EQ(zoriSwapChannels_8u_C4IR(dst, 0, none, order), ZorErrStep);
      EXPECT_EQ(zoriSwapChannels_8u_C4IR(dst, 4, none, order), ZorErrSize);
      EXPECT_EQ(zoriSwapChannels_8u_C3C4R(src, 0, dst, 0, none, order, 9), ZorErrSize);
    }
  EXPECT_EQ(std::memcmp(dst, before, sizeof dst), 0);
}

} // namespace
