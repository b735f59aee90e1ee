// Filters with the caller's kernel in two dimensions, against plain loops; memory, rounding mode, statuses.
#include "general.h"

#include "zori/filter.h"

#include <omp.h>
#include <pmmintrin.h>

using namespace general;

extern "C" int zoriTestFailAllocationAt(int n);

namespace {

constexpr int divisors[] = {1, 2, 64, 3, 9, 22, -1, -4, -7, 1 << 30, std::numeric_limits<int>::min()};

template <class T, class F> void integers(Layout layout, F function, int seed)
{
  for (const Shape& shape : shapes) {
    const int divisor = divisors[seed++ % 11];
    const std::vector<Zor32s> kernel = kernelOf<Zor32s>(shape, seed);
    const Ties ties = sizeof(T) == 1 ? tiesOf(shape.kernel.width, shape.roi.width) : Ties::Even;
    compare<T>(
      layout, shape, kernel,
      [&](auto src, int srcStep, auto dst, int dstStep, const Shape& s) {
        return function(src, srcStep, dst, dstStep, s.roi, kernel.data(), s.kernel, s.anchor, divisor);
      },
      [&](Zor32s sum) { return divided<T>(sum, divisor, ties); });
  }
}

TEST(Filter, IntegersByDivisorAndPath)
{
  for (int seed = 0; seed < 11; ++seed) {
    integers<Zor8u>(c1, zoriFilter_8u_C1R, seed);
    integers<Zor16s>(c1, zoriFilter_16s_C1R, seed);
  }
  integers<Zor8u>(c3, zoriFilter_8u_C3R, 1);
  integers<Zor8u>(c4, zoriFilter_8u_C4R, 2);
  integers<Zor8u>(ac4, zoriFilter_8u_AC4R, 3);
  integers<Zor16s>(c3, zoriFilter_16s_C3R, 4);
  integers<Zor16s>(c4, zoriFilter_16s_C4R, 5);
  integers<Zor16s>(ac4, zoriFilter_16s_AC4R, 6);
}

// Sums wrap at 32 bits; elements beyond 16 bits count in full.
TEST(Filter, LargeElements)
{
  const Shape shape{{21, 4}, {3, 3}, {1, 1}};
  constexpr int most = std::numeric_limits<int>::max(), least = std::numeric_limits<int>::min();
  const std::vector<Zor32s> kernel = {40000, -1, 7, -65536, most, least, 32768, -32768, 98304};
  for (const int divisor : {1, 1 << 16, 40009}) {
    compare<Zor8u>(
      c1, shape, kernel,
      [&](auto src, int srcStep, auto dst, int dstStep, const Shape& s) {
        return zoriFilter_8u_C1R(src, srcStep, dst, dstStep, s.roi, kernel.data(), s.kernel, s.anchor, divisor);
      },
      [&](Zor32s sum) { return divided<Zor8u>(sum, divisor, Ties::Up); });
    compare<Zor16s>(
      c3, shape, kernel,
      [&](auto src, int srcStep, auto dst, int dstStep, const Shape& s) {
        return zoriFilter_16s_C3R(src, srcStep, dst, dstStep, s.roi, kernel.data(), s.kernel, s.anchor, divisor);
      },
      [&](Zor32s sum) { return divided<Zor16s>(sum, divisor, Ties::Even); });
  }
}

// 15 / 6 is a tie: even on the fast path, which wants a wide kernel, a wide region and elements from -32767 to 32766.
TEST(Filter, TiesOfTheTwoPaths)
{
  const std::vector<Zor8u> src(40 * 3, 15);
  const auto first = [&](std::vector<Zor32s> kernel, int kw, int width) {
    std::vector<Zor8u> dst(40);
    EXPECT_EQ(zoriFilter_8u_C1R(src.data(), 40, dst.data(), 40, {width, 1}, kernel.data(), {kw, 1}, {kw - 1, 0}, 6),
              ZorOk);
    return int{dst[0]};
  };
  EXPECT_EQ(first({0, 1, 0}, 3, 16), 2);
  EXPECT_EQ(first({0, 1, 0}, 3, 15), 3);
  EXPECT_EQ(first({1, 0}, 2, 16), 3);
  EXPECT_EQ(first({32766, -32766, 1}, 3, 16), 2);
  EXPECT_EQ(first({32767, -32767, 1}, 3, 16), 3);
  EXPECT_EQ(first({-32768, 32766, 3}, 3, 16), 3);
}

template <class T, class F> void floats(Layout layout, F function, int seed)
{
  for (const Shape& shape : shapes) {
    const std::vector<Zor32f> kernel = kernelOf<Zor32f>(shape, ++seed);
    const Ties ties = sizeof(T) == 1 ? tiesOf(shape.kernel.width, shape.roi.width) : Ties::Even;
    compare<T>(
      layout, shape, kernel,
      [&](auto src, int srcStep, auto dst, int dstStep, const Shape& s) {
        return function(src, srcStep, dst, dstStep, s.roi, kernel.data(), s.kernel, s.anchor);
      },
      [&](Zor32f sum) {
        if constexpr (std::is_same_v<T, Zor32f>) return sum;
        else return rounded<T>(sum, ties);
      });
  }
}

TEST(Filter, Floats)
{
#define LAYOUTS(name, type)                                                                                            \
  floats<Zor##type>(c1, name##_##type##_C1R, 1), floats<Zor##type>(c3, name##_##type##_C3R, 20);                       \
  floats<Zor##type>(c4, name##_##type##_C4R, 40), floats<Zor##type>(ac4, name##_##type##_AC4R, 60);
  LAYOUTS(zoriFilter, 32f) LAYOUTS(zoriFilter32f, 8u) LAYOUTS(zoriFilter32f, 16u) LAYOUTS(zoriFilter32f, 16s)
#undef LAYOUTS
}

TEST(Filter, FloatTiesTo8u)
{
  const std::vector<Zor8u> src(20, 5);
  const Zor32f kernel[3] = {0, 0.5f, 0};
  Zor8u dst[20] = {};
  ASSERT_EQ(zoriFilter32f_8u_C1R(src.data(), 20, dst, 20, {16, 1}, kernel, {3, 1}, {2, 0}), ZorOk);
  EXPECT_EQ(dst[0], 2);
  ASSERT_EQ(zoriFilter32f_8u_C1R(src.data(), 20, dst, 20, {15, 1}, kernel, {3, 1}, {2, 0}), ZorOk);
  EXPECT_EQ(dst[0], 3);
}

// Zero times infinity: a sum that is no number takes the upper bound on all paths.
TEST(Filter, SumsThatAreNoNumbers)
{
  const Zor8u src[20] = {};
  const Zor32f kernel[3] = {1, INFINITY, 1};
  for (const int width : {1, 16}) {
    Zor8u dst[20] = {}, buffer[4096];
    ASSERT_EQ(zoriFilter32f_8u_C1R(src, 20, dst, 20, {width, 1}, kernel, {3, 1}, {2, 0}), ZorOk);
    EXPECT_EQ(dst[0], 255);
    ASSERT_EQ(
      zoriFilter_Round32f_8u_C1R(src, 20, dst, 20, {width, 1}, kernel, {3, 1}, {2, 0}, ZorRoundTowardZero, buffer),
      ZorOk);
    EXPECT_EQ(dst[0], 255);
  }
}

TEST(Filter, Doubles)
{
  for (const Shape& shape : shapes) {
    const std::vector<Zor64f> kernel = kernelOf<Zor64f>(shape, 5);
    compare<Zor64f>(
      c1, shape, kernel,
      [&](auto src, int srcStep, auto dst, int dstStep, const Shape& s) {
        return zoriFilter_64f_C1R(src, srcStep, dst, dstStep, s.roi, kernel.data(), s.kernel, s.anchor);
      },
      [](Zor64f sum) { return sum; });
  }
}

// 16u rounds each element to a float first.
TEST(Filter, DividedKernels)
{
  const auto all = [](Layout layout, auto function) {
    for (const Shape& shape : shapes)
      for (const int divisor : {3, 32, -11}) {
        const std::vector<Zor32s> kernel = kernelOf<Zor32s>(shape, divisor);
        std::vector<Zor32f> quotients(kernel.begin(), kernel.end());
        for (Zor32f& q : quotients) q *= 1.0f / static_cast<Zor32f>(divisor);
        compare<Zor16u>(
          layout, shape, quotients,
          [&](auto src, int srcStep, auto dst, int dstStep, const Shape& s) {
            return function(src, srcStep, dst, dstStep, s.roi, kernel.data(), s.kernel, s.anchor, divisor);
          },
          [](Zor32f sum) { return rounded<Zor16u>(sum, Ties::Even); });
      }
  };
  all(c1, zoriFilter_16u_C1R), all(c3, zoriFilter_16u_C3R), all(c4, zoriFilter_16u_C4R), all(ac4, zoriFilter_16u_AC4R);
}

// A kernel with a one at an end moves the image.
TEST(Filter, KernelIsReversed)
{
  std::vector<Zor8u> src(40), dst(40);
  for (int i = 0; i < 40; ++i) src[static_cast<size_t>(i)] = static_cast<Zor8u>(3 * i);
  const Zor32s kernel[3] = {1, 0, 0};
  for (const int anchor : {0, 1, 2, -3, 12}) {
    ASSERT_EQ(zoriFilter_8u_C1R(src.data() + 8, 40, dst.data(), 40, {20, 1}, kernel, {3, 1}, {anchor, 0}, 1), ZorOk);
    EXPECT_EQ(dst[0], 3 * (8 + anchor));
    EXPECT_EQ(dst[19], 3 * (27 + anchor));
  }
}

// ---- A choice of rounding ----

template <class T, class F> void roundIntegers(Layout layout, F function, int seed)
{
  std::vector<Zor8u> buffer(1 << 16);
  for (const ZorRoundMode mode : {ZorRoundTowardZero, ZorRoundNearestEven, ZorRoundNearestAway})
    for (const Shape& shape : shapes) {
      const int divisor = divisors[seed++ % 11];
      std::vector<Zor32s> kernel = kernelOf<Zor32s>(shape, seed);
      if (seed % 3 == 0) kernel.back() = 65537 * seed;
      compare<T>(
        layout, shape, kernel,
        [&](auto src, int srcStep, auto dst, int dstStep, const Shape& s) {
          return function(src, srcStep, dst, dstStep, s.roi, kernel.data(), s.kernel, s.anchor, divisor, mode,
                          buffer.data());
        },
        [&](Zor32s sum) { return dividedExactly<T>(sum, divisor, mode); });
    }
}

template <class T, class F> void roundFloats(Layout layout, F function, int seed)
{
  std::vector<Zor8u> buffer(1 << 16);
  for (const ZorRoundMode mode : {ZorRoundTowardZero, ZorRoundNearestEven, ZorRoundNearestAway})
    for (const Shape& shape : shapes) {
      std::vector<Zor32f> kernel = kernelOf<Zor32f>(shape, ++seed);
      for (Zor32f& k : kernel) k = std::nearbyint(k * 64) / 64; // so that ties occur
      compare<T>(
        layout, shape, kernel,
        [&](auto src, int srcStep, auto dst, int dstStep, const Shape& s) {
          return function(src, srcStep, dst, dstStep, s.roi, kernel.data(), s.kernel, s.anchor, mode, buffer.data());
        },
        [&](Zor32f sum) { return roundedBy<T>(sum, mode); });
    }
}

TEST(FilterRound, Integers)
{
#define LAYOUTS(kernel, type)                                                                                          \
  roundIntegers<Zor##type>(c1, zoriFilter_Round##kernel##_##type##_C1R, 0);                                            \
  roundIntegers<Zor##type>(c3, zoriFilter_Round##kernel##_##type##_C3R, 4);                                            \
  roundIntegers<Zor##type>(c4, zoriFilter_Round##kernel##_##type##_C4R, 8);                                            \
  roundIntegers<Zor##type>(ac4, zoriFilter_Round##kernel##_##type##_AC4R, 6);
  LAYOUTS(16s, 8u) LAYOUTS(32s, 16u) LAYOUTS(32s, 16s)
#undef LAYOUTS
}

TEST(FilterRound, Floats)
{
#define LAYOUTS(type)                                                                                                  \
  roundFloats<Zor##type>(c1, zoriFilter_Round32f_##type##_C1R, 0);                                                     \
  roundFloats<Zor##type>(c3, zoriFilter_Round32f_##type##_C3R, 4);                                                     \
  roundFloats<Zor##type>(c4, zoriFilter_Round32f_##type##_C4R, 8);                                                     \
  roundFloats<Zor##type>(ac4, zoriFilter_Round32f_##type##_AC4R, 6);
  LAYOUTS(8u) LAYOUTS(16u) LAYOUTS(16s)
#undef LAYOUTS
}

TEST(FilterRound, HalvesOfBothSigns)
{
  const Zor16s src[20] = {-5, -3, -1, 0, 1, 3, 5};
  const Zor32s kernel[1] = {1};
  const Zor32f half[1] = {0.5f}, nearHalf[1] = {0.49999997f};
  const auto row = [&](ZorRoundMode mode) {
    Zor8u buffer[4096];
    std::vector<Zor16s> integers(7), floats(7);
    const auto convolve = [&](std::vector<Zor16s>& dst, const Zor32f* k) {
      return zoriFilter_Round32f_16s_C1R(src, 40, dst.data(), 14, {7, 1}, k, {1, 1}, {0, 0}, mode, buffer);
    };
    EXPECT_EQ(
      zoriFilter_Round32s_16s_C1R(src, 40, integers.data(), 14, {7, 1}, kernel, {1, 1}, {0, 0}, 2, mode, buffer),
      ZorOk);
    EXPECT_EQ(convolve(floats, half), ZorOk);
    EXPECT_EQ(integers, floats);
    EXPECT_EQ(convolve(floats, nearHalf), ZorOk);
    EXPECT_EQ(floats[4], 0);
    return integers;
  };
  EXPECT_EQ(row(ZorRoundTowardZero), (std::vector<Zor16s>{-2, -1, 0, 0, 0, 1, 2}));
  EXPECT_EQ(row(ZorRoundNearestEven), (std::vector<Zor16s>{-2, -2, 0, 0, 0, 2, 2}));
  EXPECT_EQ(row(ZorRoundNearestAway), (std::vector<Zor16s>{-3, -2, -1, 0, 1, 2, 3}));
}

TEST(FilterRound, BufferSizes)
{
  int size = -1;
  for (const int team : {1, 5}) {
    omp_set_num_threads(team);
    EXPECT_EQ(zoriFilterRoundGetBufSize16s_8u_C3R({5, 3}, 100, &size), ZorOk);
    EXPECT_EQ(size, ((5 * 4 * 3 + 100) * 4 + 15) * team);
    EXPECT_EQ(zoriFilterRoundGetBufSize32s_16u_AC4R({5, 3}, 100, &size), ZorOk);
    EXPECT_EQ(size, ((5 * 4 * 3 + 100) * 4 + 31) * team);
    EXPECT_EQ(zoriFilterRoundGetBufSize32f_8u_C1R({5, 3}, 100, &size), ZorOk);
    EXPECT_EQ(size, (5 * 3 * 16 + 100 * 8 + 43) * team);
  }
  omp_set_num_threads(2);
  EXPECT_EQ(zoriFilterGetBufSize_64f_C1R({5, 3}, 100, &size), ZorOk);
  EXPECT_EQ(size, 0);
}

// ---- The machine ----

// Kernels too large for the stack work in memory from the heap. Without it the call goes on, off the fast path.
TEST(Filter, KernelsOfAnySizeAndNoMemory)
{
  const Shape shape{{19, 3}, {61, 45}, {30, 20}};
  const std::vector<Zor32s> kernel = kernelOf<Zor32s>(shape, 1);
  const std::vector<Zor32f> floats = kernelOf<Zor32f>(shape, 2);
  for (const bool fails : {false, true}) {
    const auto limit = [&] { zoriTestFailAllocationAt(fails ? 1 : 0); };
    compare<Zor8u>(
      c4, shape, kernel,
      [&](auto src, int srcStep, auto dst, int dstStep, const Shape& s) {
        limit();
        return zoriFilter_8u_C4R(src, srcStep, dst, dstStep, s.roi, kernel.data(), s.kernel, s.anchor, 6 * 300);
      },
      [&](Zor32s sum) { return divided<Zor8u>(sum, 6 * 300, fails ? Ties::Up : Ties::Even); });
    EXPECT_GE(zoriTestFailAllocationAt(0), 1);
    compare<Zor32f>(
      ac4, shape, floats,
      [&](auto src, int srcStep, auto dst, int dstStep, const Shape& s) {
        limit();
        return zoriFilter_32f_AC4R(src, srcStep, dst, dstStep, s.roi, floats.data(), s.kernel, s.anchor);
      },
      [](Zor32f sum) { return sum; });
    EXPECT_GE(zoriTestFailAllocationAt(0), 1);
  }
  // the divided kernel has to be somewhere
  std::vector<Zor16u> src(100 * 60), dst(100 * 60, 7);
  zoriTestFailAllocationAt(1);
  EXPECT_EQ(zoriFilter_16u_C1R(src.data(), 200, dst.data(), 200, {19, 3}, kernel.data(), {20, 20}, {19, 19}, 5),
            ZorErrAlloc);
  EXPECT_EQ(zoriTestFailAllocationAt(0), 1);
  EXPECT_EQ(dst, std::vector<Zor16u>(100 * 60, 7));
}

TEST(Filter, ControlRegisterOfTheCaller)
{
  const unsigned before = _mm_getcsr();
  for (const unsigned rounding : {0x2000u, 0x4000u, 0x6000u}) { // down, up, toward zero
    for (const int team : {1, 3}) {
      omp_set_num_threads(team);
      const Shape shape{{70, 65}, {3, 3}, {1, 1}};
      const std::vector<Zor32s> kernel = kernelOf<Zor32s>(shape, 3);
      const std::vector<Zor32f> floats = kernelOf<Zor32f>(shape, 4);
      const auto under = [&](auto function) {
        _mm_setcsr((before & ~0x6000u) | rounding);
        const ZorStatus status = function();
        const unsigned after = _mm_getcsr();
        _mm_setcsr(before);
        EXPECT_EQ((after & 0x6000u), rounding);
        return status;
      };
      compare<Zor8u>(
        c1, shape, kernel,
        [&](auto src, int srcStep, auto dst, int dstStep, const Shape& s) {
          return under([&] {
            return zoriFilter_8u_C1R(src, srcStep, dst, dstStep, s.roi, kernel.data(), s.kernel, s.anchor, 37);
          });
        },
        [](Zor32s sum) { return divided<Zor8u>(sum, 37, Ties::Even); });
      compare<Zor32f>(
        c1, shape, floats,
        [&](auto src, int srcStep, auto dst, int dstStep, const Shape& s) {
          return under(
            [&] { return zoriFilter_32f_C1R(src, srcStep, dst, dstStep, s.roi, floats.data(), s.kernel, s.anchor); });
        },
        [](Zor32f sum) { return sum; });
    }
  }
  omp_set_num_threads(2);
}

// ---- Statuses that the sweeps do not reach ----

TEST(Filter, StepsAreComparedWithWhatIsRead)
{
  std::vector<Zor16s> src(4000), dst(4000);
  const Zor32s kernel[15] = {1};
  const auto call = [&](int srcStep, int dstStep) {
    return zoriFilter_16s_C3R(src.data() + 1000, srcStep, dst.data(), dstStep, {10, 2}, kernel, {5, 3}, {2, 1}, 1);
  };
  EXPECT_EQ(call(14 * 6, 10 * 6), ZorOk);
  EXPECT_EQ(call(14 * 6 - 1, 10 * 6), ZorErrStep);
  EXPECT_EQ(call(14 * 6, 10 * 6 - 1), ZorErrStep);
  EXPECT_EQ(call(-200, 10 * 6), ZorErrStep);
  EXPECT_EQ(zoriFilter_16s_C3R(src.data(), 0, dst.data(), 0, {10, 2}, kernel, {5, 3}, {2, 1}, 0), ZorErrKernelDivisor);
}

} // namespace
