// zoriResizeSqrPixel against the formula in double precision, with work memory of exactly the size that is asked for.
#include "resize_image.h"
#include "zori/geometry.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>

namespace {

using namespace resizetest;

template <class T> struct Functions;
template <class T>
using Pixels = ZorStatus (*)(const T*, ZorImgSize, int, ZorImgRect, T*, int, ZorImgRect, double, double, double, double,
                             int, Zor8u*);
template <class T>
using Planes = ZorStatus (*)(const T* const*, ZorImgSize, int, ZorImgRect, T* const*, int, ZorImgRect, double, double,
                             double, double, int, Zor8u*);
// clang-format off
#define FUNCTIONS(type)                                                                                                \
  template <> struct Functions<Zor##type> {                                                                            \
    static constexpr Pixels<Zor##type> pixels[] = {zoriResizeSqrPixel_##type##_C1R, zoriResizeSqrPixel_##type##_C3R,   \
                                                   zoriResizeSqrPixel_##type##_C4R, zoriResizeSqrPixel_##type##_AC4R}; \
    static constexpr Planes<Zor##type> planes[] = {zoriResizeSqrPixel_##type##_P3R, zoriResizeSqrPixel_##type##_P4R};  \
  };
FUNCTIONS(8u) FUNCTIONS(16u) FUNCTIONS(16s) FUNCTIONS(32f)
#undef FUNCTIONS
  // clang-format on

  // Ends at a page without access.
  class Buffer {
public:
  explicit Buffer(int bytes) : bytes_(bytes), block_(static_cast<std::size_t>(bytes)) {}
  Zor8u* data() { return block_.end() - bytes_; }

private:
  int bytes_;
  zoritest::GuardedBlock block_;
};

double cubicWeight(double d)
{
  d = std::fabs(d);
  return d < 1 ? 0.5 * d * d * d - d * d - 0.5 * d + 1 : d < 2 ? -d * d * d / 6 + d * d - 11.0 / 6 * d + 1 : 0;
}
double splineWeight(double d)
{
  d = std::fabs(d);
  return d < 1 ? 0.5 * d * d * d - d * d + 2.0 / 3 : d < 2 ? -d * d * d / 6 + d * d - 2 * d + 4.0 / 3 : 0;
}
double lanczosWeight(double d)
{
  const double pi = std::acos(-1.0);
  d = std::fabs(d);
  return d < 1e-9 ? 1 : d >= 3 ? 0 : std::sin(pi * d) / (pi * d) * std::sin(pi * d / 3) / (pi * d / 3);
}

struct Weighted {
  int pixel;
  double weight;
};

// The source pixels of destination pixel i and their weights, the sum 1.
std::vector<Weighted> weightsOf(int interpolation, int i, double factor, double shift, int image)
{
  std::vector<Weighted> all;
  const double point = (i + 0.5 - shift) / factor;
  const auto add = [&](double k, double w) {
    all.push_back({static_cast<int>(std::clamp<double>(k, 0, image - 1)), w});
  };
  if (interpolation == ZORI_INTER_SUPER) {
    const double low = (i - shift) / factor, high = (i + 1 - shift) / factor;
    for (double k = std::floor(low); k < high; ++k) add(k, (std::min(high, k + 1) - std::max(low, k)) * factor);
    return all;
  }
  if (interpolation == ZORI_INTER_NN) {
    add(std::floor(point), 1);
    return all;
  }
  const double centre = point - 0.5, k = std::floor(centre), f = centre - k;
  double sum = 0;
  for (int j = -2; j <= 3; ++j) {
    const double d = j - f;
    const double w = interpolation == ZORI_INTER_LINEAR      ? std::max(0.0, 1 - std::fabs(d))
                     : interpolation == ZORI_INTER_LANCZOS   ? lanczosWeight(d)
                     : interpolation == ZORI_INTER_CUBIC2P_B ? splineWeight(d)
                     : interpolation == ZORI_INTER_CUBIC2P_C ? 0.5 * (splineWeight(d) + cubicWeight(d))
                                                             : cubicWeight(d);
    sum += w;
    add(k + j, w);
  }
  for (auto& x : all) x.weight /= sum;
  return all;
}

constexpr int interpolations[] = {1, 2, 4, 5, 6, 7, 16, 8};

template <class T> double tolerance(int interpolation)
{
  if (interpolation == ZORI_INTER_NN) return 0;
  if (std::is_floating_point_v<T>) return 0.02 + (interpolation == ZORI_INTER_LANCZOS ? 0.3 : 0);
  const double lanczos = interpolation == ZORI_INTER_LANCZOS ? (sizeof(T) == 1 ? 0.2 : 40) : 0; // weights from a table
  return lanczos + (sizeof(T) == 1 ? 0.56 : interpolation == ZORI_INTER_LINEAR ? 10 : 0.6);
}

template <class T> class SquarePixels : public testing::Test {};
using Types = testing::Types<Zor8u, Zor16u, Zor16s, Zor32f>;
TYPED_TEST_SUITE(SquarePixels, Types);

TYPED_TEST(SquarePixels, InterpolateAtTheirCentres)
{
  using T = TypeParam;
  Random r(sizeof(T) + 7);
  constexpr double plain[] = {1, 2, 0.5, 1.0 / 3, 3, 0.25};
  for (unsigned seed = 0; seed < 600; ++seed) {
    const std::size_t shapeIndex = static_cast<std::size_t>(r.below(6));
    const Shape& shape = shapes[shapeIndex];
    const int most = seed % 3 ? 40 : 5;
    const ZorImgSize size = {r.between(1, most), r.between(1, most)};
    ZorImgRect roi = {r.below(size.width), r.below(size.height), r.between(1, most), r.between(1, most)};
    if (r.below(2)) roi = {0, 0, size.width, size.height};
    const ZorImgRect dstRoi = {r.below(8), r.below(8), r.between(1, 60), r.between(1, 40)};
    const ZorImgSize dstSize = {dstRoi.x + dstRoi.width + r.below(3), dstRoi.y + dstRoi.height};
    const int interpolation = interpolations[r.below(8)];
    const bool isSuper = interpolation == ZORI_INTER_SUPER;
    const auto factor = [&] {
      const double f = r.below(2) ? plain[r.below(6)] : r.below(5) ? r.real(0.2, 4) : r.real(0.02, 12);
      return isSuper ? std::min(f, 1 / f) : f;
    };
    const double fx = factor(), fy = factor(), sx = r.below(2) ? r.between(-3, 5) : r.real(-9, 9), sy = r.real(-4, 9);

    const int gap = r.below(2) * static_cast<int>(sizeof(T));
    std::vector<Image<T>> src, dst;
    for (int p = 0; p < shape.planes; ++p) {
      src.emplace_back(size, shape.channels, 0, 3 * seed + static_cast<unsigned>(p));
      dst.emplace_back(dstSize, shape.channels, gap, seed + 50);
    }
    const std::vector<Image<T>> before = dst;
    int bytes = 0;
    ASSERT_EQ(zoriResizeGetBufSize(roi, dstRoi, fx, fy, shape.channels, interpolation, &bytes), ZorOk);
    if (!isSuper) {
      int same = 0;
      ASSERT_EQ(zoriResizeSqrPixelGetBufSize({dstRoi.width, dstRoi.height}, shape.channels, interpolation, &same),
                ZorOk);
      ASSERT_EQ(same, bytes);
    }
    Buffer buffer(bytes);
    const auto at = [&](auto& image) { return image.data(); };
    ZorStatus status;
    if (shapeIndex < 4) {
      status = Functions<T>::pixels[shapeIndex](src[0].data(), size, src[0].step(), roi, dst[0].data(), dst[0].step(),
                                                dstRoi, fx, fy, sx, sy, interpolation, buffer.data());
    } else {
      const T* s[4];
      T* d[4];
      for (std::size_t p = 0; p < src.size(); ++p) s[p] = at(src[p]), d[p] = at(dst[p]);
      status = Functions<T>::planes[shapeIndex - 4](s, size, src[0].step(), roi, d, dst[0].step(), dstRoi, fx, fy, sx,
                                                    sy, interpolation, buffer.data());
    }

    const int w = std::min(roi.width, size.width - roi.x), h = std::min(roi.height, size.height - roi.y);
    const auto isIn = [](int i, int first, int length, double f, double s) {
      return i + 0.5 >= first * f + s && i + 0.5 < (first + length) * f + s;
    };
    const double allowed = tolerance<T>(interpolation);
    int written = 0;
    std::vector<std::vector<Weighted>> columns;
    for (int x = 0; x < dstSize.width; ++x) columns.push_back(weightsOf(interpolation, x, fx, sx, size.width));
    for (int y = 0; y < dstSize.height; ++y) {
      const auto rows = weightsOf(interpolation, y, fy, sy, size.height);
      for (int x = 0; x < dstSize.width; ++x) {
        const bool inside = x >= dstRoi.x && x < dstRoi.x + dstRoi.width && y >= dstRoi.y &&
                            y < dstRoi.y + dstRoi.height && isIn(x, roi.x, w, fx, sx) && isIn(y, roi.y, h, fy, sy);
        written += inside;
        for (std::size_t p = 0; p < dst.size(); ++p)
          for (int k = 0; k < shape.channels; ++k) {
            const T got = dst[p].get(x, y, k);
            if (!inside || k >= shape.processed) {
              ASSERT_EQ(std::memcmp(&got, std::vector<T>{before[p].get(x, y, k)}.data(), sizeof(T)), 0)
                << "seed " << seed << " " << x << "," << y;
              continue;
            }
            double want = 0;
            for (const auto& row : rows)
              for (const auto& column : columns[static_cast<std::size_t>(x)])
                want += row.weight * column.weight * static_cast<double>(src[p].get(column.pixel, row.pixel, k));
            if (!std::is_floating_point_v<T>)
              want = std::clamp<double>(want, std::numeric_limits<T>::min(), std::numeric_limits<T>::max());
            ASSERT_NEAR(static_cast<double>(got), want, allowed)
              << "seed " << seed << " " << shape.name << " interpolation " << interpolation << " pixel " << x << ","
              << y << " factors " << fx << " " << fy << " shifts " << sx << " " << sy << " image " << size.width << "x"
              << size.height;
          }
      }
    }
    ASSERT_EQ(status, written ? ZorOk : ZorWarnNoRoiIntersect) << seed;
    for (std::size_t p = 0; p < dst.size(); ++p) { // around the pixels
      Image<T> covered = before[p];
      for (int y = 0; y < dstSize.height; ++y)
        for (int i = 0; i < dstSize.width * shape.channels; ++i) covered.put(y, i, dst[p].get(y, i));
      ASSERT_EQ(dst[p].difference(covered), "");
    }
  }
}

TEST(SquarePixelsBuffer, SizesAndStatuses)
{
  int bytes = 0;
  ASSERT_EQ(zoriResizeSqrPixelGetBufSize({33, 16}, 3, ZORI_INTER_NN, &bytes), ZorOk);
  EXPECT_EQ(bytes, 4 * 48 + 4 * 16 + 16);
  // a size that no int holds is none
  EXPECT_EQ(zoriResizeSqrPixelGetBufSize({INT_MAX, 16}, 3, ZORI_INTER_LINEAR, &bytes), ZorErrSize);
  EXPECT_EQ(zoriResizeSqrPixelGetBufSize({INT_MAX, INT_MAX}, 1, ZORI_INTER_NN, &bytes), ZorErrSize);
  EXPECT_EQ(zoriResizeSqrPixelGetBufSize({8, 8}, 1, ZORI_INTER_SUPER, &bytes), ZorErrInterpolation);
  EXPECT_EQ(zoriResizeGetBufSize({0, 0, 8, 8}, {0, 0, 8, 8}, 1, 1.5, 1, ZORI_INTER_SUPER, &bytes), ZorErrResizeFactor);
  EXPECT_EQ(zoriResizeGetBufSize({0, 0, 8, 8}, {0, 0, 8, 8}, 1, 1.5, 2, 3, &bytes), ZorErrChannels);
}

TEST(SquarePixelsStatus, StrangeNumbers)
{
  const double inf = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();
  const double strange[] = {inf, 1e300, 1e9, 1e-9, 4e-324, 0.0625, 1},
               shifts[] = {nan, inf, -inf, 1e300, -1e300, 4e9, -0.3};
  const Image<Zor8u> src({16, 12}, 1, 0, 1);
  Image<Zor8u> dst({24, 18}, 1, 0, 2);
  for (int interpolation : interpolations) {
    int bytes = 0;
    ASSERT_EQ(zoriResizeGetBufSize({0, 0, 16, 12}, {0, 0, 24, 18}, 1, 1, 1, interpolation, &bytes), ZorOk);
    Buffer buffer(bytes);
    for (double x : strange)
      for (double y : strange)
        for (double shift : shifts)
          zoriResizeSqrPixel_8u_C1R(src.data(), {16, 12}, src.step(), {1, 1, 15, 11}, dst.data(), dst.step(),
                                    {0, 0, 24, 18}, x, y, shift, 1.5, interpolation, buffer.data());
  }
}

} // namespace
