// zoriResizeSqrPixel pixel by pixel, supersampling against the area in double precision; with work memory of exactly
// the size that is asked for.
#include "resize_reference.h"
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
// Destination pixel i along one axis: its source pixels with their weights; of linear the second weight.
struct Place {
  std::vector<int> pixels;
  std::vector<float> weights;
  double f = 0;
};

Place placeOf(int interpolation, int i, double factor, double shift, int image)
{
  const double point = (i + 0.5 - shift) / factor, last = image - 1;
  Place place;
  const auto add = [&](double k) { place.pixels.push_back(static_cast<int>(std::clamp(k, 0.0, last))); };
  if (interpolation == ZORI_INTER_NN) {
    add(std::floor(point));
  } else if (interpolation == ZORI_INTER_LINEAR) {
    const double x = std::clamp(point - 0.5, 0.0, last), k = x == last && image > 1 ? last - 1 : std::floor(x);
    add(k);
    add(k + 1);
    place.f = x - k;
  } else {
    const double x = std::clamp<double>(point - 0.5, -1, image), k = std::floor(x), f = x - k;
    const int taps = interpolation == ZORI_INTER_LANCZOS ? 6 : 4;
    if (taps == 6) place.weights = lanczosSix(static_cast<float>(f));
    for (int j = 0; j < taps; ++j) {
      add(k + j - (taps / 2 - 1));
      const double d = j - 1 - f, mean = 0.5 * cubicWeight(d) + 0.5 * splineWeight(d);
      if (taps == 4)
        place.weights.push_back(static_cast<float>(interpolation == ZORI_INTER_CUBIC2P_B   ? splineWeight(d)
                                                   : interpolation == ZORI_INTER_CUBIC2P_C ? mean
                                                                                           : cubicWeight(d)));
    }
  }
  return place;
}

template <class T> T rounded(float y)
{
  if constexpr (std::is_same_v<T, Zor16s>) return cut<T>(std::nearbyint(static_cast<double>(y)));
  else return finished<T>(y);
}

template <class T, class Sample> T interpolatedAt(int interpolation, const Place& x, const Place& y, Sample sample)
{
  if (interpolation == ZORI_INTER_NN) return sample(x.pixels[0], y.pixels[0]);
  if (interpolation == ZORI_INTER_LINEAR) {
    if constexpr (std::is_floating_point_v<T>) {
      const float f = static_cast<float>(x.f), g = static_cast<float>(y.f);
      float s[2];
      for (std::size_t j = 0; j < 2; ++j) {
        const float a = sample(x.pixels[0], y.pixels[j]), b = sample(x.pixels[1], y.pixels[j]);
        s[j] = a + (b - a) * f;
      }
      return s[0] * (1 - g) + s[1] * g;
    } else {
      constexpr int across = sizeof(T) == 1 ? 8 : 14, down = sizeof(T) == 1 ? 20 : 14;
      const auto blend = [](long long a, long long b, int f, int shift) {
        return (a * (16384 - f) + b * f + (1 << (shift - 1))) >> shift;
      };
      long long s[2];
      for (std::size_t j = 0; j < 2; ++j)
        s[j] = blend(sample(x.pixels[0], y.pixels[j]), sample(x.pixels[1], y.pixels[j]), fixedFraction(x.f), across);
      return static_cast<T>(blend(s[0], s[1], fixedFraction(y.f), down));
    }
  }
  float total = 0;
  for (std::size_t j = 0; j < y.pixels.size(); ++j) {
    float sum = 0;
    for (std::size_t i = 0; i < x.pixels.size(); ++i) {
      const float term = x.weights[i] * static_cast<float>(sample(x.pixels[i], y.pixels[j]));
      sum = i == 0 ? term : sum + term;
    }
    total = j == 0 ? y.weights[0] * sum : total + y.weights[j] * sum;
  }
  return rounded<T>(total);
}

// Supersampling: the source pixels under destination pixel i along one axis, and their shares.
struct AreaShare {
  int pixel;
  double weight;
};
std::vector<AreaShare> sharesOf(int i, double factor, double shift, int image)
{
  std::vector<AreaShare> all;
  const double low = (i - shift) / factor, high = (i + 1 - shift) / factor;
  for (double k = std::floor(low); k < high; ++k)
    all.push_back(
      {static_cast<int>(std::clamp<double>(k, 0, image - 1)), (std::min(high, k + 1) - std::max(low, k)) * factor});
  return all;
}

constexpr int interpolations[] = {1, 2, 4, 5, 6, 7, 16, 8};

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
    if (const Surroundings some(seed); shapeIndex < 4) {
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
    int written = 0;
    std::vector<Place> columns;
    std::vector<std::vector<AreaShare>> areas;
    for (int x = 0; x < dstSize.width; ++x) {
      columns.push_back(placeOf(interpolation, x, fx, sx, size.width));
      areas.push_back(sharesOf(x, fx, sx, size.width));
    }
    for (int y = 0; y < dstSize.height; ++y) {
      const Place row = placeOf(interpolation, y, fy, sy, size.height);
      const auto area = sharesOf(y, fy, sy, size.height);
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
            const auto sample = [&](int column, int line) { return src[p].get(column, line, k); };
            double want = 0, allowed = 0;
            if (isSuper) {
              for (const auto& down : area)
                for (const auto& across : areas[static_cast<std::size_t>(x)])
                  want += down.weight * across.weight * static_cast<double>(sample(across.pixel, down.pixel));
              allowed = std::is_floating_point_v<T> ? 0.002 : 0.51;
            } else {
              want = static_cast<double>(
                interpolatedAt<T>(interpolation, columns[static_cast<std::size_t>(x)], row, sample));
            }
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
  EXPECT_GE(bytes, 4 * 33 + 4 * 16 + 32); // places of columns and rows
  EXPECT_LE(bytes, 2048);
  // large ones, the same in every build
  ASSERT_EQ(zoriResizeSqrPixelGetBufSize({80000000, 16}, 1, ZORI_INTER_LINEAR, &bytes), ZorOk);
  EXPECT_GT(bytes, 1200000000);
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
