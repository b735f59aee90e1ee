// The row kernel of conversion that other families call, and rounding away from zero: every length, rows that are their
// own source.
#include "frame/numeric_mode.h"
#include "rowkernels/convert.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

using namespace zori;

namespace {

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

enum class Mode { TowardZero, Nearest, Away };

template <class D> D expected(float x, Mode mode)
{
  const double least = std::numeric_limits<D>::min(), greatest = std::numeric_limits<D>::max();
  if (std::isnan(x)) return std::numeric_limits<D>::max();
  const double v = x;
  if (v >= greatest) return std::numeric_limits<D>::max();
  if (v <= least) return std::numeric_limits<D>::min();
  double y = std::trunc(v);
  if (mode == Mode::Nearest) y = std::nearbyint(v);
  if (mode == Mode::Away) y = std::copysign(std::trunc(static_cast<double>(std::fabs(x) + 0.5f)), v);
  return static_cast<D>(std::clamp(y, least, greatest));
}

template <class D> void convert(const float* src, D* dst, int length, Mode mode)
{
  const RoundingScope scope(mode == Mode::TowardZero ? roundTowardZero : roundNearest);
  if (mode == Mode::Away) mapGroups(dst, length, RoundedAway<D>{}, src);
  else convertRow(src, dst, length);
}

template <class D> void checkFromFloat()
{
  const int n = static_cast<int>(samples().size());
  std::vector<D> dst(samples().size());
  for (Mode mode : {Mode::TowardZero, Mode::Nearest, Mode::Away}) {
    convert(samples().data(), dst.data(), n, mode);
    for (size_t i = 0; i < dst.size(); ++i)
      ASSERT_EQ(dst[i], expected<D>(samples()[i], mode)) << samples()[i] << " mode " << static_cast<int>(mode);
  }
  // a row that is its own source, at every length and alignment
  for (int length = 1; length <= 100; ++length)
    for (int offset = 0; offset < 16; offset += 3) {
      std::vector<unsigned char> bytes(static_cast<size_t>(length) * 4 + 32);
      float* const row = reinterpret_cast<float*>(bytes.data() + offset);
      for (int i = 0; i < length; ++i) put(row + i, samples()[static_cast<size_t>(i + 20)]);
      convert(row, reinterpret_cast<D*>(row), length, Mode::Nearest);
      for (int i = 0; i < length; ++i)
        ASSERT_EQ(get<D>(bytes.data() + offset + static_cast<size_t>(i) * sizeof(D)),
                  expected<D>(samples()[static_cast<size_t>(i + 20)], Mode::Nearest))
          << length << ' ' << i;
    }
}

TEST(ConvertRow, FloatsToIntegers)
{
  checkFromFloat<Zor8u>();
  checkFromFloat<Zor8s>();
  checkFromFloat<Zor16u>();
  checkFromFloat<Zor16s>();
  checkFromFloat<Zor32s>();
}

template <class S> void checkToFloat()
{
  std::mt19937 random(9);
  std::vector<S> src(100);
  for (S& x : src) x = static_cast<S>(random());
  src[0] = std::numeric_limits<S>::min(), src[1] = std::numeric_limits<S>::max();
  for (int length = 1; length <= 90; ++length)
    for (int offset = 0; offset < 5; ++offset) {
      std::vector<float> dst(100, -5);
      convertRow(src.data() + offset, dst.data() + 4 - offset, length);
      for (int i = 0; i < 100; ++i) {
        const int at = i - 4 + offset;
        ASSERT_EQ(dst[static_cast<size_t>(i)],
                  at >= 0 && at < length ? static_cast<float>(src[static_cast<size_t>(at + offset)]) : -5.0f);
      }
    }
}

TEST(ConvertRow, IntegersToFloats)
{
  checkToFloat<Zor8u>();
  checkToFloat<Zor8s>();
  checkToFloat<Zor16u>();
  checkToFloat<Zor16s>();
  checkToFloat<Zor32s>();
}

} // namespace
