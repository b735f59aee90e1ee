// Filters with the caller's kernel of one row or one column, against plain loops.
#include "general.h"

#include "zori/filter.h"

using namespace general;

namespace {

// Kernel length: of the one side that is not 1.
int lengthOf(const Shape& s) { return s.kernel.width * s.kernel.height; }
int anchorOf(const Shape& s) { return s.anchor.x + s.anchor.y; }

template <class F> void bytes(const std::vector<Shape>& lines, Layout layout, F function)
{
  for (const Shape& shape : lines)
    for (const int divisor : {1, 8, 5, 6, -3}) {
      const std::vector<Zor32s> kernel = kernelOf<Zor32s>(shape, divisor);
      const Ties ties = tiesOf(lengthOf(shape), shape.roi.width);
      compare<Zor8u>(
        layout, shape, kernel,
        [&](auto src, int srcStep, auto dst, int dstStep, const Shape& s) {
          return function(src, srcStep, dst, dstStep, s.roi, kernel.data(), lengthOf(s), anchorOf(s), divisor);
        },
        [&](Zor32s sum) { return divided<Zor8u>(sum, divisor, ties); });
    }
}

template <class T, class F> void words(const std::vector<Shape>& lines, Layout layout, F function)
{
  for (const Shape& shape : lines)
    for (const int divisor : {1, 12, -7}) {
      const std::vector<Zor32s> kernel = kernelOf<Zor32s>(shape, divisor);
      std::vector<Zor32f> quotients(kernel.begin(), kernel.end());
      for (Zor32f& q : quotients) q *= 1.0f / static_cast<Zor32f>(divisor);
      compare<T>(
        layout, shape, quotients,
        [&](auto src, int srcStep, auto dst, int dstStep, const Shape& s) {
          return function(src, srcStep, dst, dstStep, s.roi, kernel.data(), lengthOf(s), anchorOf(s), divisor);
        },
        [](Zor32f sum) { return rounded<T>(sum, Ties::Even); });
    }
}

template <class T, class F> void floats(const std::vector<Shape>& lines, Layout layout, F function)
{
  for (const Shape& shape : lines) {
    const std::vector<Zor32f> kernel = kernelOf<Zor32f>(shape, layout.channels);
    const Ties ties = sizeof(T) == 1 ? tiesOf(lengthOf(shape), shape.roi.width) : Ties::Even;
    compare<T>(
      layout, shape, kernel,
      [&](auto src, int srcStep, auto dst, int dstStep, const Shape& s) {
        return function(src, srcStep, dst, dstStep, s.roi, kernel.data(), lengthOf(s), anchorOf(s));
      },
      [&](Zor32f sum) {
        if constexpr (std::is_same_v<T, Zor32f>) return sum;
        else return rounded<T>(sum, ties);
      });
  }
}

#define LAYOUTS(test, lines, name)                                                                                     \
  test(lines, c1, name##_C1R), test(lines, c3, name##_C3R), test(lines, c4, name##_C4R), test(lines, ac4, name##_AC4R)

TEST(FilterRow, Integers)
{
  LAYOUTS(bytes, rows, zoriFilterRow_8u);
  LAYOUTS(words<Zor16u>, rows, zoriFilterRow_16u);
  LAYOUTS(words<Zor16s>, rows, zoriFilterRow_16s);
}

TEST(FilterRow, Floats)
{
  LAYOUTS(floats<Zor32f>, rows, zoriFilterRow_32f);
  LAYOUTS(floats<Zor8u>, rows, zoriFilterRow32f_8u);
  LAYOUTS(floats<Zor16u>, rows, zoriFilterRow32f_16u);
  LAYOUTS(floats<Zor16s>, rows, zoriFilterRow32f_16s);
}

TEST(FilterColumn, Integers)
{
  LAYOUTS(bytes, columns, zoriFilterColumn_8u);
  LAYOUTS(words<Zor16u>, columns, zoriFilterColumn_16u);
  LAYOUTS(words<Zor16s>, columns, zoriFilterColumn_16s);
}

TEST(FilterColumn, Floats)
{
  LAYOUTS(floats<Zor32f>, columns, zoriFilterColumn_32f);
  LAYOUTS(floats<Zor8u>, columns, zoriFilterColumn32f_8u);
  LAYOUTS(floats<Zor16u>, columns, zoriFilterColumn32f_16u);
  LAYOUTS(floats<Zor16s>, columns, zoriFilterColumn32f_16s);
}

// 15 / 6 is a tie: even on the fast path, whose elements are the 16-bit integers here.
TEST(FilterRow, TiesOfTheTwoPaths)
{
  const std::vector<Zor8u> src(20 * 3, 15);
  const auto first = [&](std::vector<Zor32s> kernel, int width) {
    const int length = static_cast<int>(kernel.size());
    Zor8u row[20] = {}, column[20] = {};
    EXPECT_EQ(zoriFilterRow_8u_C1R(src.data(), 20, row, 20, {width, 1}, kernel.data(), length, length - 1, 6), ZorOk);
    EXPECT_EQ(zoriFilterColumn_8u_C1R(src.data(), 20, column, 20, {width, 1}, kernel.data(), length, length - 1, 6),
              ZorOk);
    EXPECT_EQ(row[0], column[0]);
    return int{row[0]};
  };
  EXPECT_EQ(first({32767, -32766, 0}, 16), 2);
  EXPECT_EQ(first({-32768, 32767, 2}, 16), 2);
  EXPECT_EQ(first({-32767, 32768, 0}, 16), 3);
  EXPECT_EQ(first({0, 1, 0}, 15), 3);
  EXPECT_EQ(first({0, 1}, 16), 3);
}

// A column needs no more of a source row than the region's width.
TEST(FilterColumn, StepsAreComparedWithTheRegion)
{
  const std::vector<Zor32f> src(1000);
  std::vector<Zor32f> dst(1000);
  const Zor32f kernel[7] = {1};
  EXPECT_EQ(zoriFilterColumn_32f_C3R(src.data() + 500, 120, dst.data(), 120, {10, 2}, kernel, 7, 3), ZorOk);
  EXPECT_EQ(zoriFilterColumn_32f_C3R(src.data() + 500, 119, dst.data(), 120, {10, 2}, kernel, 7, 3), ZorErrStep);
  EXPECT_EQ(zoriFilterRow_32f_C3R(src.data() + 500, 192, dst.data(), 120, {10, 2}, kernel, 7, 3), ZorOk);
  EXPECT_EQ(zoriFilterRow_32f_C3R(src.data() + 500, 191, dst.data(), 120, {10, 2}, kernel, 7, 3), ZorErrStep);
  EXPECT_EQ(zoriFilterRow_32f_C3R(src.data() + 500, 192, dst.data(), 119, {10, 2}, kernel, 7, 3), ZorErrStep);
}

// The forms that divide the kernel look at it before anything else.
TEST(FilterRow, KernelFirst)
{
  const Zor32s kernel[3] = {1, 2, 3};
  EXPECT_EQ(zoriFilterRow_16s_C1R(nullptr, 0, nullptr, 0, {0, 0}, kernel, 3, 0, 0), ZorErrKernelDivisor);
  EXPECT_EQ(zoriFilterRow_8u_C1R(nullptr, 0, nullptr, 0, {0, 0}, kernel, 3, 0, 0), ZorErrNullPtr);
}

} // namespace
