// Window sums against sums of the samples, in memory that ends with the windows; the checks, which differ between
// forms.
#include "covered_image.h"
#include "filter/window_sum.h"
#include "support/limits.h"
#include "zori/filter.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

using filtertest::CoveredImage;

namespace {

template <class T> using Function = ZorStatus (*)(const T*, int, Zor32f*, int, ZorImgSize, int, int);

// The definition: running sums, as a rule in single precision.
template <class T, class Sum, class At> std::vector<float> running(int length, int mask, At at)
{
  std::vector<float> sums;
  Sum sum = 0;
  for (int i = 0; i < mask; ++i) sum += static_cast<Sum>(at(i));
  for (int i = 0; i < length; ++i) {
    sums.push_back(static_cast<float>(sum));
    if (i + 1 < length) sum += static_cast<Sum>(static_cast<int>(at(i + mask)) - static_cast<int>(at(i)));
  }
  return sums;
}

template <class T>
void compare(bool alongRow, int channels, Function<T> function, ZorImgSize region, int mask, unsigned seed,
             bool wantsAligned = false)
{
  const int anchor = static_cast<int>(seed * 11) % mask,
            pitch = wantsAligned ? (region.width * channels + 4) / 4 * 4 : region.width * channels + 1;
  const bool isFirstAligned = wantsAligned || region.width == 9; // of rows that are not
  const ZorImgSize covered =
    alongRow ? ZorImgSize{region.width + mask - 1, region.height} : ZorImgSize{region.width, region.height + mask - 1};
  CoveredImage<T> image(covered, alongRow ? ZorImgPoint{anchor, 0} : ZorImgPoint{0, anchor}, channels, seed % 2 == 0,
                        seed);
  if (region.width == 9) image.fill(std::numeric_limits<T>::max()); // the greatest sums there are
  if (region.width == 16) image.fill(std::numeric_limits<T>::min());
  std::vector<float> out(static_cast<std::size_t>(pitch * region.height + 4), -7.0f), wanted = out;
  const int first = static_cast<int>(-reinterpret_cast<std::uintptr_t>(out.data()) % 16 / 4) + (isFirstAligned ? 0 : 1);
  const bool isAligned = isFirstAligned && pitch % 4 == 0;
  ASSERT_EQ(function(image.region(), image.step(), out.data() + first % 4, pitch * 4, region, mask, anchor), ZorOk);
  const auto put = [&](int x, int y, int k, float v) {
    wanted[static_cast<std::size_t>(first % 4 + y * pitch + x * channels + k)] = v;
  };
  for (int k = 0; k < channels; ++k)
    if (alongRow) {
      for (int y = 0; y < region.height; ++y) {
        const auto sums = running<T, float>(region.width, mask, [&](int x) { return image.at(x, y, k); });
        for (int x = 0; x < region.width; ++x) put(x, y, k, sums[static_cast<std::size_t>(x)]);
      }
    } else {
      for (int x = 0; x < region.width; ++x) {
        const auto at = [&](int y) { return image.at(x, y, k); };
        const auto sums = std::is_same_v<T, Zor16s> && isAligned ? running<T, int>(region.height, mask, at)
                                                                 : running<T, float>(region.height, mask, at);
        for (int y = 0; y < region.height; ++y) put(x, y, k, sums[static_cast<std::size_t>(y)]);
      }
    }
  ASSERT_EQ(out, wanted) << region.width << 'x' << region.height << " mask " << mask << " channels " << channels
                         << (alongRow ? " row" : " column");
}

template <class T> void compareAll(bool alongRow, Function<T> c1, Function<T> c3, Function<T> c4)
{
  unsigned seed = 3;
  std::vector<int> masks = {1, 2, 5, 15, 100, 3000};
  for (const int limit : {zori::window::largestShortMask, zori::window::largestExactMask<Zor16s>})
    for (const int mask : zoritest::around(limit)) masks.push_back(mask);
  for (const int mask : masks)
    for (ZorImgSize region : {ZorImgSize{1, 1}, ZorImgSize{3, 2}, ZorImgSize{4, 3}, ZorImgSize{8, 2}, ZorImgSize{9, 4},
                              ZorImgSize{16, 2}, ZorImgSize{50, 3}}) {
      compare(alongRow, 1, c1, region, mask, ++seed);
      compare(alongRow, 3, c3, region, mask, ++seed);
      compare(alongRow, 4, c4, region, mask, ++seed);
      compare(alongRow, 1, c1, region, mask, ++seed, true);
      compare(alongRow, 3, c3, region, mask, ++seed, true);
      compare(alongRow, 4, c4, region, mask, ++seed, true);
      if (testing::Test::HasFatalFailure()) return;
    }
}

TEST(SumWindow, Row)
{
  compareAll<Zor8u>(true, zoriSumWindowRow_8u32f_C1R, zoriSumWindowRow_8u32f_C3R, zoriSumWindowRow_8u32f_C4R);
  compareAll<Zor16u>(true, zoriSumWindowRow_16u32f_C1R, zoriSumWindowRow_16u32f_C3R, zoriSumWindowRow_16u32f_C4R);
  compareAll<Zor16s>(true, zoriSumWindowRow_16s32f_C1R, zoriSumWindowRow_16s32f_C3R, zoriSumWindowRow_16s32f_C4R);
  compare<Zor8u>(true, 3, zoriSumWindowRow_8u32f_C3R, {20, 1}, 90000, 2);
}

TEST(SumWindow, Column)
{
  compareAll<Zor8u>(false, zoriSumWindowColumn_8u32f_C1R, zoriSumWindowColumn_8u32f_C3R, zoriSumWindowColumn_8u32f_C4R);
  compareAll<Zor16u>(false, zoriSumWindowColumn_16u32f_C1R, zoriSumWindowColumn_16u32f_C3R,
                     zoriSumWindowColumn_16u32f_C4R);
  compareAll<Zor16s>(false, zoriSumWindowColumn_16s32f_C1R, zoriSumWindowColumn_16s32f_C3R,
                     zoriSumWindowColumn_16s32f_C4R);
}

// The steps are used as they are, and what is tested when depends on the form.
template <class T> void checks(Function<T> f, ZorStatus emptyRegion, bool sizeFirst = false)
{
  const T x[4] = {1, 2, 3, 4};
  float out[4] = {9, 9, 9, 9};
  EXPECT_EQ(f(nullptr, 4, out, 4, {1, 1}, 0, 0), ZorErrNullPtr);
  EXPECT_EQ(f(x, 4, nullptr, 4, {0, 1}, 0, 0), sizeFirst ? ZorErrSize : ZorErrNullPtr);
  EXPECT_EQ(f(x, 4, out, 4, {1, 1}, 0, 0), ZorErrMaskSize);
  EXPECT_EQ(f(x, 4, out, 4, {1, 1}, 2, 2), ZorErrAnchor);
  EXPECT_EQ(f(x, 4, out, 4, {1, 1}, 2, -1), ZorErrAnchor);
  for (ZorImgSize empty : {ZorImgSize{0, 1}, ZorImgSize{1, 0}, ZorImgSize{-1, 1}, ZorImgSize{1, -5}}) {
    EXPECT_EQ(f(x, 4, out, 4, empty, 1, 0), emptyRegion);
    EXPECT_EQ(f(x, 4, out, 4, empty, 0, 0), emptyRegion == ZorOk ? ZorErrMaskSize : ZorErrSize);
  }
  EXPECT_EQ(out[0], 9);
  EXPECT_EQ(f(x, 0, out, 0, {1, 2}, 1, 0), ZorOk);
  EXPECT_EQ(out[0], 1);
}

TEST(SumWindow, ChecksDifferBetweenForms)
{
  checks<Zor8u>(zoriSumWindowRow_8u32f_C1R, ZorOk);
  checks<Zor8u>(zoriSumWindowRow_8u32f_C4R, ZorOk);
  checks<Zor16s>(zoriSumWindowRow_16s32f_C3R, ZorOk);
  checks<Zor16u>(zoriSumWindowRow_16u32f_C1R, ZorErrSize);
  checks<Zor8u>(zoriSumWindowColumn_8u32f_C3R, ZorOk);
  checks<Zor16s>(zoriSumWindowColumn_16s32f_C1R, ZorOk);
  checks<Zor16s>(zoriSumWindowColumn_16s32f_C3R, ZorErrSize, true);
  checks<Zor16u>(zoriSumWindowColumn_16u32f_C4R, ZorErrSize);
}

} // namespace
