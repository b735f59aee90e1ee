// The row kernels of conversion that other families call: checks, scale factors, 32s, rows that are their own source.
#include "rowkernels/convert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

using namespace zori;

namespace {

template <class D> using Kernel = ZorStatus (*)(const Zor32f*, D*, int, ZorRoundMode, int);

const std::vector<float>& samples()
{
  static const std::vector<float> all = [] {
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<float> x = {0,      0.5f,     1.5f,     2.5f,          0.49999997f,
                            255.5f, 32767.5f, 65534.5f, 2147483520.0f, 2147483648.0f,
                            4e9f,   3e38f,    1e-40f,   inf,           nan};
    for (size_t i = 0, n = x.size(); i < n; ++i) x.push_back(-x[i]);
    std::mt19937 random(5);
    for (int i = 0; i < 170; ++i)
      x.push_back(
        std::ldexp(static_cast<float>(static_cast<int>(random() % 4001) - 2000) / 4, static_cast<int>(random() % 24)));
    return x;
  }();
  return all;
}

template <class D> D expected(float x, int mode, int scaleFactor)
{
  const double least = std::numeric_limits<D>::min(), greatest = std::numeric_limits<D>::max();
  if (std::isnan(x)) return std::numeric_limits<D>::max();
  const double v = std::ldexp(static_cast<double>(x), -std::clamp(scaleFactor, -400, 400));
  if (v >= greatest) return std::numeric_limits<D>::max();
  if (v <= least) return std::numeric_limits<D>::min();
  double y = std::trunc(v);
  if (mode == 1) y = std::nearbyint(v);
  if (mode == 2) y = std::copysign(std::trunc(static_cast<double>(static_cast<float>(std::fabs(v)) + 0.5f)), v);
  return static_cast<D>(std::clamp(y, least, greatest));
}

template <class D> void checkKernel(Kernel<D> kernel)
{
  const int n = static_cast<int>(samples().size());
  std::vector<D> dst(samples().size());
  for (int scaleFactor : {0, 1, -1, 5, -7, 8, 31, -24, 130, -130, 300, -300, std::numeric_limits<int>::min(),
                          std::numeric_limits<int>::max()})
    for (int mode : {0, 1, 2}) {
      ASSERT_EQ(kernel(samples().data(), dst.data(), n, static_cast<ZorRoundMode>(mode), scaleFactor), ZorOk);
      for (size_t i = 0; i < dst.size(); ++i)
        ASSERT_EQ(dst[i], expected<D>(samples()[i], mode, scaleFactor))
          << samples()[i] << " mode " << mode << " scale " << scaleFactor;
    }
  // a row that is its own source, at every length and alignment
  for (int length = 1; length <= 100; ++length)
    for (int offset = 0; offset < 16; offset += 3) {
      std::vector<unsigned char> bytes(static_cast<size_t>(length) * 4 + 32);
      float* const row = reinterpret_cast<float*>(bytes.data() + offset);
      for (int i = 0; i < length; ++i) put(row + i, samples()[static_cast<size_t>(i + 20)]);
      ASSERT_EQ(kernel(row, reinterpret_cast<D*>(row), length, ZorRoundNearestEven, 0), ZorOk);
      for (int i = 0; i < length; ++i)
        ASSERT_EQ(get<D>(bytes.data() + offset + static_cast<size_t>(i) * sizeof(D)),
                  expected<D>(samples()[static_cast<size_t>(i + 20)], 1, 0))
          << length << ' ' << i;
    }
  EXPECT_EQ(kernel(nullptr, dst.data(), 0, ZorRoundNearestEven, 0), ZorErrNullPtr);
  EXPECT_EQ(kernel(samples().data(), nullptr, 1, ZorRoundNearestEven, 0), ZorErrNullPtr);
  EXPECT_EQ(kernel(samples().data(), dst.data(), 0, ZorRoundNearestEven, 0), ZorErrSize);
}

TEST(ConvertKernels, FloatsToIntegersWithAScaleFactor)
{
  checkKernel<Zor8u>(zorsConvert_32f8u_Sfs);
  checkKernel<Zor8s>(zorsConvert_32f8s_Sfs);
  checkKernel<Zor16u>(zorsConvert_32f16u_Sfs);
  checkKernel<Zor16s>(zorsConvert_32f16s_Sfs);
  checkKernel<Zor32s>(zorsConvert_32f32s_Sfs);
}

template <class S> void checkToFloat(ZorStatus (*kernel)(const S*, Zor32f*, int))
{
  std::mt19937 random(9);
  std::vector<S> src(100);
  for (S& x : src) x = static_cast<S>(random());
  src[0] = std::numeric_limits<S>::min(), src[1] = std::numeric_limits<S>::max();
  for (int length = 1; length <= 90; ++length)
    for (int offset = 0; offset < 5; ++offset) {
      std::vector<float> dst(100, -5);
      ASSERT_EQ(kernel(src.data() + offset, dst.data() + 4 - offset, length), ZorOk);
      for (int i = 0; i < 100; ++i) {
        const int at = i - 4 + offset;
        ASSERT_EQ(dst[static_cast<size_t>(i)],
                  at >= 0 && at < length ? static_cast<float>(src[static_cast<size_t>(at + offset)]) : -5.0f);
      }
    }
  float dst;
  EXPECT_EQ(kernel(nullptr, &dst, 0), ZorErrNullPtr);
  EXPECT_EQ(kernel(src.data(), &dst, 0), ZorErrSize);
}

TEST(ConvertKernels, IntegersToFloats)
{
  checkToFloat<Zor8u>(zorsConvert_8u32f);
  checkToFloat<Zor8s>(zorsConvert_8s32f);
  checkToFloat<Zor16u>(zorsConvert_16u32f);
  checkToFloat<Zor16s>(zorsConvert_16s32f);
  checkToFloat<Zor32s>(zorsConvert_32s32f);
}

} // namespace
