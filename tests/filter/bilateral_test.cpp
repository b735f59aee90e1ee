// Bilateral filter: against sums in double precision, with states of exactly the told size at every address.
#include "zori/filter.h"

#include "covered_image.h"
#include "filter_image.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <pmmintrin.h>
#include <vector>

using namespace filtertest;

namespace {

struct Setting {
  ZorImgSize kernel;
  float valueSigma, placeSigma;
  int step = 1;
  ZorBilateralType type = ZorBilateralGauss;
};

// A state in a buffer of the told size, `shift` bytes in front of a page without access.
class State {
public:
  State(ZorImgSize maxRoi, ZorImgSize maxKernel, const Setting& s, int shift = 0)
    : bytes_(sizeOf(maxRoi, maxKernel)), shift_(shift), block_(static_cast<std::size_t>(bytes_ + shift)),
      buffer_(block_.end() - bytes_ - shift)
  {
    std::fill(block_.begin(), block_.end(), Zor8u{0xa5});
    status = zoriFilterBilateralInit_8u_C1R(s.type, s.kernel, s.valueSigma, s.placeSigma, s.step, get());
  }
  static int sizeOf(ZorImgSize roi, ZorImgSize kernel)
  {
    int bytes = -1;
    EXPECT_EQ(zoriFilterBilateralGetBufSize_8u_C1R(ZorBilateralGauss, roi, kernel, &bytes), ZorOk);
    return bytes;
  }
  ZorBilateralState* get() { return reinterpret_cast<ZorBilateralState*>(buffer_); }
  Zor8u* bytes() { return buffer_; }
  // Nothing is written around the buffer.
  bool isIntact() const
  {
    const auto untouched = [](Zor8u b) { return b == 0xa5; };
    return std::all_of(block_.begin(), buffer_, untouched) &&
           std::all_of(block_.end() - shift_, block_.end(), untouched);
  }

  ZorStatus status;

private:
  int bytes_, shift_;
  zoritest::GuardedBlock block_;
  Zor8u* buffer_;
};

int radius(int side, int step) { return (side - 1) / 2 - (side - 1) / 2 % step; }

// The quotient at a pixel that stands `r` inside the image.
double quotient(const CoveredImage<Zor8u>& image, ZorImgPoint r, int x, int y, const Setting& s, ZorImgSize tableKernel)
{
  const double area = double(tableKernel.width) * tableKernel.height;
  const double values = std::trunc(std::sqrt(s.valueSigma * (std::log(area) + 6.3) * 1.42)) + 1;
  const int c = image.at(x + r.x, y + r.y, 0);
  double sum = 0, weights = 0;
  for (int j = -r.y; j <= r.y; j += s.step)
    for (int i = -r.x; i <= r.x; i += s.step) {
      const int v = image.at(x + r.x + i, y + r.y + j, 0), d = std::abs(v - c);
      if (d >= values) continue;
      const double w = std::exp(-0.5 / s.placeSigma * (i * i + j * j)) * std::exp(-0.5 / s.valueSigma * d * d);
      sum += w * v;
      weights += w;
    }
  return sum / weights;
}

void check(ZorImgSize roi, const Setting& s, ZorImgSize tableKernel, int variant)
{
  Setting table = s;
  table.kernel = tableKernel;
  State state(roi, tableKernel, table, variant % 8);
  ASSERT_EQ(state.status, ZorOk);
  const ZorImgPoint r = {radius(s.kernel.width, s.step), radius(s.kernel.height, s.step)};
  CoveredImage<Zor8u> src({roi.width + 2 * r.x, roi.height + 2 * r.y}, r, 1, variant % 2 == 0,
                          static_cast<unsigned>(variant));
  if (variant % 3)
    for (std::size_t i = 0; i < src.samples(); ++i) { // neighbours that are alike
      Zor8u& v = src.region()[static_cast<std::ptrdiff_t>(i) - static_cast<std::ptrdiff_t>(src.index(r.x, r.y, 0))];
      v = static_cast<Zor8u>(90 + v / 5);
    }
  Image<Zor8u> dst(roi, 1, 0, 0, 3, variant % 3), expected = dst;
  ASSERT_EQ(zoriFilterBilateral_8u_C1R(src.region(), src.step(), dst.pointer(), dst.step(), roi, s.kernel, state.get()),
            ZorOk);
  for (int y = 0; y < roi.height; ++y)
    for (int x = 0; x < roi.width; ++x) {
      const double q = quotient(src, r, x, y, s, tableKernel);
      ASSERT_NEAR(dst.get(x, y, 0), q, 0.5005)
        << x << "," << y << " in " << roi.width << "x" << roi.height << ", kernel " << s.kernel.width << "x"
        << s.kernel.height << " step " << s.step;
      expected.put(x, y, 0, dst.get(x, y, 0));
    }
  EXPECT_EQ(dst.difference(expected), "");
  EXPECT_TRUE(state.isIntact());
}

TEST(Bilateral, SumsOverTheWindow)
{
  const Setting settings[] = {
    {{1, 1}, 100, 2},      {{3, 3}, 900, 1},       {{5, 5}, 400, 4},       {{5, 5}, 400, 4, 2},      {{7, 7}, 2500, 9},
    {{9, 9}, 100, 20},     {{9, 9}, 100, 9, 2},    {{11, 3}, 300, 9},      {{3, 13}, 300, 9},        {{1, 9}, 50, 9},
    {{9, 1}, 50, 9},       {{6, 4}, 600, 3},       {{17, 17}, 1e6f, 1e6f}, {{17, 15}, 200, 30, 3},   {{19, 5}, 200, 30},
    {{5, 23}, 200, 30, 2}, {{41, 35}, 800, 90, 5}, {{7, 7}, 1e-3f, 1e-3f}, {{3, 3}, 1e-40f, 1e-40f},
  };
  const ZorImgSize sizes[] = {{1, 1}, {1, 9}, {15, 2}, {16, 3}, {37, 11}, {127, 3}, {128, 2}, {129, 4}, {260, 3}};
  int variant = 0;
  for (Setting s : settings)
    for (const ZorImgSize& size : sizes) {
      s.type = variant % 2 ? ZorBilateralGauss : ZorBilateralGaussFast;
      check(size, s, s.kernel, variant++);
      if (HasFatalFailure()) return;
      check({size.width, 2}, s, {s.kernel.width + 4, s.kernel.height + 2}, variant++); // tables for larger windows
      if (HasFatalFailure()) return;
    }
}

TEST(Bilateral, DifferencesBeyondTheTableDoNotCount)
{
  // a table of 3x3 with variance 400 has 70 entries
  for (int d : {68, 69, 70, 71}) {
    const ZorImgSize roi = {1, 1}, kernel = {3, 3};
    State state(roi, kernel, {kernel, 400, 1e9f});
    Zor8u src[9];
    std::fill(src, src + 9, static_cast<Zor8u>(100 + d));
    src[4] = 100;
    Zor8u dst = 0;
    ASSERT_EQ(zoriFilterBilateral_8u_C1R(src + 4, 3, &dst, 1, roi, kernel, state.get()), ZorOk);
    EXPECT_EQ(dst, d == 68 ? 102 : d == 69 ? 101 : 100) << d; // all of them would bring it above 101
  }
}

TEST(Bilateral, FlatImagesStay)
{
  for (int value : {0, 1, 127, 254, 255})
    for (int side : {3, 9, 17, 101, 511}) {
      const int r = side / 2;
      const ZorImgSize roi = {side > 100 ? 3 : 20, 2}, kernel = {side, side};
      CoveredImage<Zor8u> src({roi.width + 2 * r, roi.height + 2 * r}, {r, r}, 1, true, 1);
      std::fill(src.region() - src.index(r, r, 0), src.region() - src.index(r, r, 0) + src.samples(),
                static_cast<Zor8u>(value));
      State state(roi, kernel, {kernel, 1e9f, 1e9f});
      Image<Zor8u> dst(roi, 1, 0, 0, 9, 0);
      ASSERT_EQ(
        zoriFilterBilateral_8u_C1R(src.region(), src.step(), dst.pointer(), dst.step(), roi, kernel, state.get()),
        ZorOk);
      for (int y = 0; y < roi.height; ++y)
        for (int x = 0; x < roi.width; ++x) ASSERT_EQ(dst.get(x, y, 0), value) << side;
    }
}

// What a pixel becomes depends neither on its place in the region nor on the caller's rounding.
TEST(Bilateral, PlaceAndRounding)
{
  for (int side : {5, 11, 21}) {
    const int r = side / 2;
    const ZorImgSize roi = {150, 12}, kernel = {side, side};
    const Setting setting{kernel, 700, 12};
    CoveredImage<Zor8u> src({roi.width + 2 * r, roi.height + 2 * r}, {r, r}, 1, true, 7);
    State state(roi, kernel, setting);
    Image<Zor8u> whole(roi, 1, 0, 0, 9, 0);
    ASSERT_EQ(
      zoriFilterBilateral_8u_C1R(src.region(), src.step(), whole.pointer(), whole.step(), roi, kernel, state.get()),
      ZorOk);
    const unsigned before = _mm_getcsr();
    for (unsigned field : {0u, 0x2000u, 0x4000u, 0x6000u}) {
      _mm_setcsr((before & ~0x6000u) | field);
      State own(roi, kernel, setting, 3);
      Image<Zor8u> part({roi.width - 13, roi.height - 5}, 1, 0, 0, 9, 2);
      const ZorStatus status =
        zoriFilterBilateral_8u_C1R(src.region() + 13 + 5 * src.step(), src.step(), part.pointer(), part.step(),
                                   {roi.width - 13, roi.height - 5}, kernel, own.get());
      const unsigned after = _mm_getcsr();
      _mm_setcsr(before);
      ASSERT_EQ(status, ZorOk);
      EXPECT_EQ(after & 0x6000u, field);
      for (int y = 5; y < roi.height; ++y)
        for (int x = 13; x < roi.width; ++x) ASSERT_EQ(part.get(x - 13, y - 5, 0), whole.get(x, y, 0)) << x << "," << y;
    }
  }
}

TEST(Bilateral, StateInTheBuffer)
{
  const Setting gauss{{3, 3}, 9, 9};
  Setting fast = gauss;
  fast.type = ZorBilateralGaussFast;
  for (int shift = 0; shift < 8; ++shift) {
    State a({1, 1}, {3, 3}, gauss, shift), b({1, 1}, {3, 3}, fast, shift);
    const int distance = 8 - static_cast<int>(reinterpret_cast<std::uintptr_t>(a.bytes()) & 7);
    EXPECT_EQ(a.bytes()[0], distance);
    std::uint32_t tag;
    std::memcpy(&tag, a.bytes() + distance, 4);
    EXPECT_EQ(tag, 0x434d416cu);
    std::memcpy(&tag, b.bytes() + b.bytes()[0], 4);
    EXPECT_EQ(tag, 0x434d416du);
    EXPECT_TRUE(a.isIntact() && b.isIntact());
  }
  // 12 bytes for each four pixels of a row, 16 for each eight, 4 for a place of the kernel, and its longer side
  EXPECT_EQ(State::sizeOf({1, 1}, {1, 1}), 48 + 16 + 2213 + (4 + 1) * 4);
  EXPECT_EQ(State::sizeOf({100, 7}, {4, 3}), 1200 + 208 + 2213 + (12 + 3) * 4);
  EXPECT_EQ(State::sizeOf({2000000000, 1}, {60000, 60000}), std::numeric_limits<int>::max());
}

TEST(Bilateral, Limits)
{
  const auto init = [](Setting s) { return State({600, 1}, {600, 600}, s).status; };
  EXPECT_EQ(init({{512, 512}, 1, 1}), ZorOk);
  EXPECT_EQ(init({{513, 3}, 1, 1}), ZorErrMaskSize);
  EXPECT_EQ(init({{3, 513}, 1, 1}), ZorErrMaskSize);
  EXPECT_EQ(init({{599, 3}, 1, 1, 200}), ZorOk); // the radius is 200
  EXPECT_EQ(init({{2147483647, 2147483647}, 1, 1, 2147483647}), ZorOk);
  const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(init({{5, 5}, inf, inf}), ZorOk);
  EXPECT_EQ(init({{5, 5}, nan, 1}), ZorErrBadArg);
  EXPECT_EQ(init({{5, 5}, 1, nan}), ZorErrBadArg);
  EXPECT_EQ(init({{5, 5}, -1, 1}), ZorErrBadArg);

  // each radius is held against its own
  State wide({20, 20}, {9, 5}, {{9, 5}, 100, 4, 2});
  CoveredImage<Zor8u> src({40, 40}, {10, 10}, 1, true, 1);
  Image<Zor8u> dst({20, 20}, 1, 0, 0, 9, 0);
  const Image<Zor8u> before = dst;
  const auto filter = [&](ZorImgSize kernel) {
    return zoriFilterBilateral_8u_C1R(src.region(), src.step(), dst.pointer(), dst.step(), {20, 20}, kernel,
                                      wide.get());
  };
  EXPECT_EQ(filter({5, 9}), ZorErrMaskSize);
  EXPECT_EQ(filter({13, 5}), ZorErrMaskSize);
  EXPECT_EQ(filter({9, 0}), ZorErrMaskSize);
  wide.bytes()[wide.bytes()[0]] ^= 1; // one type's tag turns into the other's
  EXPECT_EQ(filter({12, 8}), ZorOk);  // radii 5 and 3, of which the step leaves 4 and 2
  const Image<Zor8u> filtered = dst;
  wide.bytes()[wide.bytes()[0]] ^= 2;
  EXPECT_EQ(filter({5, 5}), ZorErrContext);
  EXPECT_EQ(filter({99, 99}), ZorErrContext);
  wide.bytes()[0] = 200;
  EXPECT_EQ(filter({5, 5}), ZorErrContext);
  EXPECT_EQ(dst.difference(filtered), "");
  EXPECT_NE(dst.difference(before), "");
}

} // namespace
