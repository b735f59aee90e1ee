// zoriResampleRow...: a resampler as good as its filter promises, in memory of exactly the queried size.
#include "resize_image.h"
#include "zori/geometry.h"

#include <gtest/gtest.h>
#include <memory>

#include <algorithm>
#include <climits>
#include <cmath>

namespace {

using namespace resizetest;

// A record and its buffer between pages without access.
class Resampler {
public:
  Resampler(int in, int out)
  {
    EXPECT_EQ(zoriResampleRowGetSize_32f(in, out, &specBytes_, &bufferBytes_), ZorOk);
    block_ = std::make_unique<zoritest::GuardedBlock>(static_cast<std::size_t>(specBytes_));
    buffer_ = std::make_unique<zoritest::GuardedBlock>(static_cast<std::size_t>(bufferBytes_));
    EXPECT_EQ(zoriResampleRowInit_32f(spec(), 0, in, out), ZorOk);
    int right = 0;
    EXPECT_EQ(zoriResampleRowGetBorderWidth_32f(spec(), &border, &right), ZorOk);
    EXPECT_EQ(border, right);
  }
  ZorResampleRowSpec* spec() { return reinterpret_cast<ZorResampleRowSpec*>(block_->end() - specBytes_); }
  Zor8u* buffer() { return buffer_->end() - bufferBytes_; }
  int border = 0;

private:
  int specBytes_ = 0, bufferBytes_ = 0;
  std::unique_ptr<zoritest::GuardedBlock> block_, buffer_;
};

constexpr int rates[][2] = {{1, 1},     {44, 48}, {48, 44}, {2, 1},   {1, 2},
                            {147, 160}, {5, 3},   {100, 7}, {7, 100}, {441, 80}};

TEST(ResampleRow, KeepsConstantsAndWaves)
{
  for (const auto& rate : rates) {
    Resampler r(rate[0], rate[1]);
    const double pi = std::acos(-1.0), step = double(rate[0]) / rate[1];
    const int length = 500, count = static_cast<int>(length / step), border = r.border;
    // nothing but what the border query tells is read
    zoritest::GuardedBlock block(static_cast<std::size_t>(length + 2 * border) * 4);
    float* const row = reinterpret_cast<float*>(block.end()) - length - border;
    std::vector<float> out(static_cast<std::size_t>(count));
    for (int i = -border; i < length + border; ++i) row[i] = 7.25f;
    ASSERT_EQ(zoriResampleRow_32f_C1(row, 0, out.data(), count, r.spec(), r.buffer()), ZorOk);
    for (float x : out) ASSERT_NEAR(x, 7.25, 7.25 * 1.5e-6) << rate[0] << ":" << rate[1];
    // a third of the lower rate's band passes
    const double frequency = pi / 3 * std::min(1.0, 1 / step);
    for (int i = -border; i < length + border; ++i) row[i] = static_cast<float>(std::sin(frequency * i));
    ASSERT_EQ(zoriResampleRow_32f_C1(row, 0, out.data(), count, r.spec(), r.buffer()), ZorOk);
    for (int i = 0; i < count; ++i)
      ASSERT_NEAR(out[static_cast<std::size_t>(i)], std::sin(frequency * i * step), 2e-3)
        << rate[0] << ":" << rate[1] << " " << i;
    // piece by piece
    std::vector<float> pieces(out.size());
    for (int i = 0; i < count; i += 37)
      ASSERT_EQ(zoriResampleRow_32f_C1(row, i, pieces.data() + i, std::min(37, count - i), r.spec(), r.buffer()),
                ZorOk);
    ASSERT_EQ(pieces, out);
  }
}

TEST(ResampleRow, OwnRateIsACopy)
{
  Resampler r(9, 9);
  const int border = r.border;
  std::vector<float> row(static_cast<std::size_t>(100 + 2 * border)), out(100);
  Random random(3);
  for (float& x : row) x = static_cast<float>(random.real(-1, 1));
  ASSERT_EQ(zoriResampleRow_32f_C1(row.data() + border, 0, out.data(), 100, r.spec(), r.buffer()), ZorOk);
  for (int i = 0; i < 100; ++i)
    ASSERT_NEAR(out[static_cast<std::size_t>(i)], row[static_cast<std::size_t>(border + i)], 1e-6);
}

TEST(ResampleRow, RegionsRepeatTheirFirstAndLastSample)
{
  for (const auto& rate : rates)
    for (int width : {1, 2, 5, 33, 300})
      for (int start : {0, 3}) {
        Resampler r(rate[0], rate[1]);
        const int border = r.border, height = 3;
        const int count = std::max(1, static_cast<int>(1LL * width * rate[1] / rate[0])) + 2;
        const Image<Zor32f> src({width, height}, 1, 4, static_cast<unsigned>(width));
        Image<Zor32f> dst({count, height}, 1, 0, 5), expected = dst;
        const long long last = (1LL * start + count) * rate[0] / rate[1] + 2 * border;
        std::vector<float> row(static_cast<std::size_t>(last + 2 * border));
        for (int y = 0; y < height; ++y) {
          for (int i = 0; i < static_cast<int>(row.size()); ++i)
            row[static_cast<std::size_t>(i)] = src.get(std::clamp(i - border, 0, width - 1), y, 0);
          std::vector<float> out(static_cast<std::size_t>(count));
          ASSERT_EQ(zoriResampleRow_32f_C1(row.data() + border, start, out.data(), count, r.spec(), r.buffer()), ZorOk);
          for (int i = 0; i < count; ++i) expected.put(i, y, 0, out[static_cast<std::size_t>(i)]);
        }
        ASSERT_EQ(zoriResampleRowReplicateBorder_32f_C1R(src.data(), src.step(), {width, height}, dst.data(),
                                                         dst.step(), start, count, r.spec(), r.buffer()),
                  ZorOk);
        ASSERT_EQ(dst.difference(expected), "") << rate[0] << ":" << rate[1] << " width " << width;
      }
}

// So far behind a row that positions times rates take 62 bits there is its last sample.
TEST(ResampleRow, OutputsFarBehindTheRowAreItsLastSample)
{
  for (const auto& [in, out] : {std::pair{3, 2}, {160, 147}, {1, 4}})
    for (const int start : {100000, 1431655770, 2000000000, INT_MAX - 8}) {
      Resampler r(in, out);
      const float row[4] = {1, -5, 9, 3};
      float dst[6] = {};
      ASSERT_EQ(zoriResampleRowReplicateBorder_32f_C1R(row, sizeof row, {4, 1}, dst, sizeof dst, start, 6, r.spec(),
                                                       r.buffer()),
                ZorOk);
      for (const float x : dst) EXPECT_NEAR(x, 3, 1e-5) << in << ":" << out << " from " << start;
    }
}

TEST(ResampleRow, Statuses)
{
  Resampler r(3, 2);
  int a, b;
  EXPECT_EQ(zoriResampleRowGetSize_32f(0, 1, nullptr, &b), ZorErrNullPtr);
  EXPECT_EQ(zoriResampleRowGetSize_32f(0, 1, &a, &b), ZorErrBadArg);
  EXPECT_EQ(zoriResampleRowGetSize_32f(INT_MAX, 1, &a, &b), ZorErrBadArg); // more weights than an int counts
  EXPECT_EQ(zoriResampleRowGetSize_32f(INT_MAX, INT_MAX, &a, &b), ZorOk);
  EXPECT_EQ(zoriResampleRowInit_32f(nullptr, 1, 0, 1), ZorErrNullPtr);
  EXPECT_EQ(zoriResampleRowInit_32f(r.spec(), 1, 0, 1), ZorErrSize);
  EXPECT_EQ(zoriResampleRowInit_32f(r.spec(), 1, 3, 2), ZorErrBadArg);
  float row[200] = {}, out[4];
  EXPECT_EQ(zoriResampleRow_32f_C1(row + 64, -1, out, 0, r.spec(), nullptr), ZorErrNullPtr);
  EXPECT_EQ(zoriResampleRow_32f_C1(row + 64, -1, out, 0, r.spec(), r.buffer()), ZorErrSize);
  EXPECT_EQ(zoriResampleRow_32f_C1(row + 64, -1, out, 4, r.spec(), r.buffer()), ZorErrBitSize);
  EXPECT_EQ(zoriResampleRowReplicateBorder_32f_C1R(row, 400, {100, 0}, out, 16, -1, 4, r.spec(), r.buffer()),
            ZorErrSize);
  EXPECT_EQ(zoriResampleRowReplicateBorder_32f_C1R(row, 400, {100, 2}, out, 16, -1, 4, r.spec(), r.buffer()),
            ZorErrBitSize);
  std::memset(r.spec(), 0, 4);
  EXPECT_EQ(zoriResampleRow_32f_C1(row + 64, 0, out, 4, r.spec(), r.buffer()), ZorErrContext);
  EXPECT_EQ(zoriResampleRowGetBorderWidth_32f(r.spec(), &a, nullptr), ZorErrNullPtr);
  EXPECT_EQ(zoriResampleRowGetBorderWidth_32f(r.spec(), &a, &b), ZorErrContext);
}

} // namespace
