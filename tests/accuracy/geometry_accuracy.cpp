// Resizing, warping and resampling against interpolation in exact arithmetic.
#include "accuracy.h"

using namespace accuracy;

namespace {

struct Tap {
  int at;
  Real weight;
};
using Taps = std::vector<Tap>;

Real sinc(Real x)
{
  const Real t = std::acos(Real{-1}) * x;
  return t == 0 ? 1 : std::sin(t) / t;
}

// Beyond the row its nearest sample is repeated.
Taps normalised(Taps taps, int count)
{
  Real sum = 0;
  for (const Tap& tap : taps) sum += tap.weight;
  for (Tap& tap : taps) tap.weight /= sum, tap.at = std::clamp(tap.at, 0, count - 1);
  return taps;
}

Taps linear(Real position, int count)
{
  const int k = std::clamp(static_cast<int>(std::floor(position)), 0, std::max(count - 2, 0));
  return {{k, 1 - (position - k)}, {k + 1, position - k}};
}

// The polynomial through four samples from `first` on.
Taps polynomial(Real position, int first)
{
  Taps taps;
  for (int a = 0; a < 4; ++a) {
    Real weight = 1;
    for (int b = 0; b < 4; ++b)
      if (a != b) weight *= (position - (first + b)) / (a - b);
    taps.push_back({first + a, weight});
  }
  return taps;
}
Taps cubicOfFour(Real position, int count)
{
  return polynomial(position, std::clamp(static_cast<int>(std::floor(position)) - 1, 0, count - 4));
}
Taps cubicRepeated(Real position, int count)
{
  return normalised(polynomial(position, static_cast<int>(std::floor(position)) - 1), count);
}

Taps lanczos(Real position, int count)
{
  Taps taps;
  const int k = static_cast<int>(std::floor(position));
  for (int i = k - 2; i <= k + 3; ++i) taps.push_back({i, sinc(position - i) * sinc((position - i) / 3)});
  return normalised(taps, count);
}

// The share of each sample in the area from `begin` to `end`.
Taps area(Real begin, Real end, int count)
{
  Taps taps;
  for (int i = static_cast<int>(std::floor(begin)); i < end; ++i)
    taps.push_back({i, std::min<Real>(end, i + 1) - std::max<Real>(begin, i)});
  return normalised(taps, count);
}

template <class T> Real sampled(Picture<T>& src, const Taps& columns, const Taps& rows)
{
  Real sum = 0;
  for (const Tap& row : rows)
    for (const Tap& column : columns) sum += row.weight * column.weight * src.at(column.at, row.at);
  return std::is_integral_v<T> ? clamped<T>(sum) : sum;
}

constexpr int width = 97, height = 61;

// A resize whose result at (x, y) is made of taps(x, factor, count) along each axis.
template <class T, class Resize, class TapsOf>
Error resizeError(Resize resize, double xFactor, double yFactor, TapsOf tapsOf)
{
  Error error;
  for (const bool isScene : {false, true}) {
    Picture<T> src(width, height);
    if (isScene) src.fillWithScene(1);
    else src.fillWithNoise(2);
    Picture<T> dst(static_cast<int>(width * xFactor + 1e-7), static_cast<int>(height * yFactor + 1e-7));
    EXPECT_EQ(resize(src, dst), ZorOk);
    for (int y = 0; y < dst.height; ++y)
      for (int x = 0; x < dst.width; ++x)
        error.add(dst.at(x, y), sampled(src, tapsOf(x, xFactor, width), tapsOf(y, yFactor, height)), 1);
  }
  return error;
}

template <class T> bool isCoarse(int interpolation)
{
  return sizeof(T) == 1 || interpolation == ZORI_INTER_LANCZOS ||
         (std::is_integral_v<T> && interpolation == ZORI_INTER_LINEAR);
}

template <class T, class F> void holdResize(const char* name, F function)
{
  Error coarse, fine; // whose weights have few digits, and the others
  const auto tried = [&](int interpolation, double xFactor, double yFactor, auto tapsOf) {
    const auto call = [&](auto& src, auto& dst) {
      return function(src.data(), src.size(), src.step(), src.rectangle(), dst.data(), dst.step(), dst.size(), xFactor,
                      yFactor, interpolation);
    };
    (isCoarse<T>(interpolation) ? coarse : fine).add(resizeError<T>(call, xFactor, yFactor, tapsOf));
  };
  const auto corners = [](auto of) {
    return
      [of](int i, double factor, int count) { return of(Real(i) * (count - 1) / (Real{factor} * count - 1), count); };
  };
  for (const double factor : {1.7, 0.6, 3.25}) {
    tried(ZORI_INTER_LINEAR, factor, factor * 0.9, corners(linear));
    tried(ZORI_INTER_CUBIC, factor, factor * 0.9, corners(cubicOfFour));
    tried(ZORI_INTER_LANCZOS, factor, factor * 0.9, corners(lanczos));
  }
  tried(ZORI_INTER_SUPER, 0.37, 0.5,
        [](int i, double factor, int count) { return area(i / Real{factor}, (i + 1) / Real{factor}, count); });
  hold(name, coarse, "with weights of few digits");
  if (sizeof(T) > 1) hold(name, fine, "with others", 1);
}

template <class T, class F> void holdSquareResize(const char* name, F function)
{
  Error coarse, fine;
  const auto tried = [&](int interpolation, double xFactor, double yFactor, auto of) {
    const auto call = [&](auto& src, auto& dst) {
      int bytes = 0;
      zoriResizeGetBufSize(src.rectangle(), dst.rectangle(), xFactor, yFactor, 1, interpolation, &bytes);
      std::vector<Zor8u> buffer(static_cast<std::size_t>(bytes) + 1);
      return function(src.data(), src.size(), src.step(), src.rectangle(), dst.data(), dst.step(), dst.rectangle(),
                      xFactor, yFactor, 0, 0, interpolation, buffer.data());
    };
    const auto centres = [of](int i, double factor, int count) { return of((i + 0.5L) / factor - 0.5L, count); };
    (isCoarse<T>(interpolation) ? coarse : fine).add(resizeError<T>(call, xFactor, yFactor, centres));
  };
  const auto linearRepeated = [](Real position, int count) {
    const int k = static_cast<int>(std::floor(position));
    return normalised({{k, 1 - (position - k)}, {k + 1, position - k}}, count);
  };
  for (const double factor : {1.7, 0.6, 3.25}) {
    tried(ZORI_INTER_LINEAR, factor, factor * 0.9, linearRepeated);
    tried(ZORI_INTER_CUBIC, factor, factor * 0.9, cubicRepeated);
    tried(ZORI_INTER_LANCZOS, factor, factor * 0.9, lanczos);
  }
  hold(name, coarse, "with weights of few digits");
  if (sizeof(T) > 1) hold(name, fine, "with others", 1);
}

// Pixels whose source point lies well inside.
template <class T, class Warp> Error warpError(Warp warp, const double (&inverse)[2][3], int interpolation)
{
  Error error;
  for (const bool isScene : {false, true}) {
    Picture<T> src(width, height), dst(140, 120);
    if (isScene) src.fillWithScene(1);
    else src.fillWithNoise(2);
    EXPECT_EQ(warp(src, dst), ZorOk);
    for (int y = 0; y < dst.height; ++y)
      for (int x = 0; x < dst.width; ++x) {
        const Real u = inverse[0][0] * Real(x) + inverse[0][1] * Real(y) + inverse[0][2];
        const Real v = inverse[1][0] * Real(x) + inverse[1][1] * Real(y) + inverse[1][2];
        if (u < 2 || v < 2 || u > width - 4 || v > height - 4) continue;
        const bool isCubic = interpolation == ZORI_INTER_CUBIC;
        error.add(dst.at(x, y),
                  isCubic ? sampled(src, cubicRepeated(u, width), cubicRepeated(v, height))
                          : sampled(src, linear(u, width), linear(v, height)),
                  1);
      }
  }
  return error;
}

template <class T, class F, class G> void holdWarps(const std::string& type, F affineBack, G remap)
{
  const double inverse[2][3] = {{0.71, 0.33, -6.3}, {-0.29, 0.64, 14.7}};
  for (const int interpolation : {ZORI_INTER_LINEAR, ZORI_INTER_CUBIC}) {
    const auto warp = [&](auto& src, auto& dst) {
      return affineBack(src.data(), src.size(), src.step(), src.rectangle(), dst.data(), dst.step(), dst.rectangle(),
                        inverse, interpolation);
    };
    const int which = sizeof(T) == 1 && interpolation == ZORI_INTER_LINEAR;
    hold("zoriWarpAffineBack_" + type + "_C1R", warpError<T>(warp, inverse, interpolation), "", which);
    const double onGrid[2][3] = {{0.75, 0.375, -6.25}, {-0.25, 0.625, 14.5}}; // coordinates that single precision has
    const auto map = [&](auto& src, auto& dst) {
      Picture<Zor32f> x(dst.width, dst.height), y(dst.width, dst.height);
      x.fill([&](int i, int j) { return onGrid[0][0] * i + onGrid[0][1] * j + onGrid[0][2]; });
      y.fill([&](int i, int j) { return onGrid[1][0] * i + onGrid[1][1] * j + onGrid[1][2]; });
      return remap(src.data(), src.size(), src.step(), src.rectangle(), x.data(), x.step(), y.data(), y.step(),
                   dst.data(), dst.step(), dst.size(), interpolation);
    };
    hold("zoriRemap_" + type + "_C1R", warpError<T>(map, onGrid, interpolation), "", which);
  }
}

} // namespace

TEST(GeometryAccuracy, Resize)
{
  holdResize<Zor8u>("zoriResize_8u_C1R", zoriResize_8u_C1R);
  holdResize<Zor16u>("zoriResize_16u_C1R", zoriResize_16u_C1R);
  holdResize<Zor32f>("zoriResize_32f_C1R", zoriResize_32f_C1R);
}

TEST(GeometryAccuracy, ResizeWithSquarePixels)
{
  holdSquareResize<Zor8u>("zoriResizeSqrPixel_8u_C1R", zoriResizeSqrPixel_8u_C1R);
  holdSquareResize<Zor16u>("zoriResizeSqrPixel_16u_C1R", zoriResizeSqrPixel_16u_C1R);
  holdSquareResize<Zor16s>("zoriResizeSqrPixel_16s_C1R", zoriResizeSqrPixel_16s_C1R);
  holdSquareResize<Zor32f>("zoriResizeSqrPixel_32f_C1R", zoriResizeSqrPixel_32f_C1R);
}

TEST(GeometryAccuracy, Warps)
{
  holdWarps<Zor8u>("8u", zoriWarpAffineBack_8u_C1R, zoriRemap_8u_C1R);
  holdWarps<Zor16u>("16u", zoriWarpAffineBack_16u_C1R, zoriRemap_16u_C1R);
  holdWarps<Zor32f>("32f", zoriWarpAffineBack_32f_C1R, zoriRemap_32f_C1R);
}

TEST(GeometryAccuracy, Rows)
{
  Picture<Zor8u> src(203, 40);
  src.fillWithNoise(3);
  for (int fraction = 1; fraction <= 4; ++fraction) {
    const int p = fraction, q = fraction + 1;
    Picture<Zor8u> dst(src.width * p / q, src.height);
    ASSERT_EQ(zoriDecimateFilterRow_8u_C1R(src.data(), src.step(), src.size(), dst.data(), dst.step(), fraction),
              ZorOk);
    Error error;
    for (int x = 0; x < dst.width; ++x) {
      const Real position = (x + 0.5L) * q / p - 0.5L, stretch = Real(q) / p;
      Taps taps;
      for (int i = static_cast<int>(std::ceil(position - 2 * stretch)); i < position + 2 * stretch; ++i)
        taps.push_back({i, sinc((i - position) / stretch) * sinc((i - position) / stretch / 2)});
      taps = normalised(taps, src.width);
      for (int y = 0; y < dst.height; ++y) error.add(dst.at(x, y), sampled(src, taps, {{y, 1}}), 1);
    }
    hold("zoriDecimateFilterRow_8u_C1R", error);
  }

  const int rates[][2] = {{3, 2}, {2, 3}, {441, 160}, {7, 7}};
  for (const auto& [in, out] : rates) {
    int bytes = 0, bufferBytes = 0;
    ASSERT_EQ(zoriResampleRowGetSize_32f(in, out, &bytes, &bufferBytes), ZorOk);
    std::vector<Zor8u> memory(static_cast<std::size_t>(bytes)), buffer(static_cast<std::size_t>(bufferBytes) + 1);
    const auto spec = reinterpret_cast<ZorResampleRowSpec*>(memory.data());
    zoriResampleRowInit_32f(spec, 0, in, out);
    Picture<Zor32f> row(400, 1), dst(400 * out / in, 1);
    row.fillWithNoise(4);
    zoriResampleRowReplicateBorder_32f_C1R(row.data(), row.step(), row.size(), dst.data(), dst.step(), 0, dst.width,
                                           spec, buffer.data());
    Error error;
    const Real cut = std::min<Real>(1, Real(out) / in), reach = 16 / cut;
    for (int x = 0; x < dst.width; ++x) {
      const Real position = Real(x) * in / out;
      Taps taps;
      for (int i = static_cast<int>(std::ceil(position - reach)); i <= position + reach; ++i) {
        const Real d = (i - position) * cut, inside = 1 - d * d / 256;
        if (inside >= 0) taps.push_back({i, sinc(d) * std::cyl_bessel_i(Real{0}, 8 * std::sqrt(inside))});
      }
      error.add(dst.at(x, 0), sampled(row, normalised(taps, row.width), {{0, 1}}), 1);
    }
    hold("zoriResampleRowReplicateBorder_32f_C1R", error);
  }
}

TEST(GeometryAccuracy, Transforms)
{
  const ZorImgRect region = {5, 7, 200, 120};
  const double quad[4][2] = {{13.5, -4.25}, {211.0, 17.3}, {190.7, 160.2}, {2.1, 133.3}};
  Error error;
  double perspective[3][3], bilinear[2][4], back[4][2];
  ASSERT_EQ(zoriGetPerspectiveTransform(region, quad, perspective), ZorOk);
  ASSERT_EQ(zoriGetPerspectiveQuad(region, back, perspective), ZorOk);
  for (int i = 0; i < 8; ++i) error.add(back[i / 2][i % 2], quad[i / 2][i % 2], 211);
  ASSERT_EQ(zoriGetBilinearTransform(region, quad, bilinear), ZorOk);
  ASSERT_EQ(zoriGetBilinearQuad(region, back, bilinear), ZorOk);
  for (int i = 0; i < 8; ++i) error.add(back[i / 2][i % 2], quad[i / 2][i % 2], 211);
  hold("zoriGetPerspectiveTransform", error, "of the greatest coordinate");
  Error turned;
  for (const double angle : {0.1, 30.0, 77.7, 200.0, -1234.5}) {
    ASSERT_EQ(zoriGetRotateQuad(region, back, angle, 3, -4), ZorOk);
    const Real a = std::fmod(Real{angle}, 360) * std::acos(Real{-1}) / 180;
    turned.add(back[2][0], 204 * std::cos(a) + 126 * std::sin(a) + 3, 333);
    turned.add(back[2][1], -204 * std::sin(a) + 126 * std::cos(a) - 4, 333);
  }
  hold("zoriGetRotateQuad", turned, "of the terms");
}
