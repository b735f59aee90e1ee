// Benchmarks of the filters with a kernel of their own.
#include "harness.h"
#include "zori/filter.h"

using bench::Group;
using bench::Image;
using bench::Run;

namespace {

constexpr int margin = 2;

// The naive loop: the kernel's weights around every pixel, in the order of rows.
template <int Side, class S, class D, class Finish>
void correlate(const int* kernel, int channels, const S* src, int srcStep, const Image<D>& dst, Finish finish)
{
  for (int y = 0; y < dst.size.height; ++y) {
    const char* row = reinterpret_cast<const char*>(src) + std::ptrdiff_t{srcStep} * (y - Side / 2);
    for (int i = 0; i < dst.rowLength(); ++i) {
      decltype(S() + 0) sum = 0;
      for (int j = 0; j < Side; ++j)
        for (int k = 0; k < Side; ++k)
          sum += static_cast<decltype(sum)>(kernel[j * Side + k]) *
                 reinterpret_cast<const S*>(row + std::ptrdiff_t{srcStep} * j)[i + (k - Side / 2) * channels];
      dst.row(y)[i] = static_cast<D>(finish(sum));
    }
  }
}

template <int Side, class S, class D, class Finish, class... E, class... A>
void filter(Group& g, const char* name, ZorStatus (*function)(const S*, int, D*, int, ZorImgSize, E...), int channels,
            const int* kernel, Finish finish, A... arguments)
{
  g.both(name, [=](ZorImgSize size) {
    const Image<S> framed({size.width + 2 * margin, size.height + 2 * margin}, channels);
    const Image<D> dst(size, channels);
    const S* src = framed.row(margin) + margin * channels;
    return Run{framed.bytes(), dst.bytes(),
               [=] { return function(src, framed.step, dst, dst.step, size, arguments...); },
               [=] { correlate<Side>(kernel, channels, src, framed.step, dst, finish); }};
  });
}

constexpr int gauss3[] = {1, 2, 1, 2, 4, 2, 1, 2, 1};
constexpr int gauss5[] = {2, 7, 12, 7, 2, 7, 31, 52, 31, 7, 12, 52, 127, 52, 12, 7, 31, 52, 31, 7, 2, 7, 12, 7, 2};
constexpr int sobel3[] = {-1, -2, -1, 0, 0, 0, 1, 2, 1};
constexpr int sobel5[] = {-1, -4, -6, -4, -1, -2, -8, -12, -8, -2, 0, 0, 0, 0, 0, 2, 8, 12, 8, 2, 1, 4, 6, 4, 1};
constexpr int scharr[] = {-3, 0, 3, -10, 0, 10, -3, 0, 3};
constexpr int laplace3[] = {-1, -1, -1, -1, 8, -1, -1, -1, -1};
constexpr int laplace5[] = {-1, -3, -4, -3, -1, -3, 0, 6, 0, -3, -4, 6, 20, 6, -4, -3, 0, 6, 0, -3, -1, -3, -4, -3, -1};
constexpr int ones5[] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};

} // namespace

static const Group fixed("filter", [](Group& g) {
  const auto sixteenth = [](int t) { return (t + 8) >> 4; };
  const auto sixteenthOfFloat = [](float t) { return t / 16; };
  const auto by571 = [](int t) { return (t + 285) / 571; };
  const auto plain = [](auto t) { return t; };
  const auto clamped = [](int t) { return t < 0 ? 0 : t > 255 ? 255 : t; };
  filter<3>(g, "Gauss 8u C1 3x3", zoriFilterGauss_8u_C1R, 1, gauss3, sixteenth, ZorMask3x3);
  filter<3>(g, "Gauss 8u C3 3x3", zoriFilterGauss_8u_C3R, 3, gauss3, sixteenth, ZorMask3x3);
  filter<3>(g, "Gauss 16s C1 3x3", zoriFilterGauss_16s_C1R, 1, gauss3, sixteenth, ZorMask3x3);
  filter<3>(g, "Gauss 32f C1 3x3", zoriFilterGauss_32f_C1R, 1, gauss3, sixteenthOfFloat, ZorMask3x3);
  filter<5>(g, "Gauss 8u C1 5x5", zoriFilterGauss_8u_C1R, 1, gauss5, by571, ZorMask5x5);
  filter<5>(g, "Gauss 16u C1 5x5", zoriFilterGauss_16u_C1R, 1, gauss5, by571, ZorMask5x5);
  filter<5>(
    g, "Gauss 32f C1 5x5", zoriFilterGauss_32f_C1R, 1, gauss5, [](float t) { return t * (1.0f / 571); }, ZorMask5x5);
  filter<5>(
    g, "Lowpass 8u C1 5x5", zoriFilterLowpass_8u_C1R, 1, ones5, [](int t) { return (t + 12) / 25; }, ZorMask5x5);
  filter<3>(g, "Laplace 8u C1 3x3", zoriFilterLaplace_8u_C1R, 1, laplace3, clamped, ZorMask3x3);
  filter<5>(g, "Laplace 8u C1 5x5", zoriFilterLaplace_8u_C1R, 1, laplace5, clamped, ZorMask5x5);
  filter<3>(g, "Sharpen 8u C1", zoriFilterSharpen_8u_C1R, 1, laplace3, clamped);
  filter<3>(g, "SobelHoriz 8u C1", zoriFilterSobelHoriz_8u_C1R, 1, sobel3, clamped);
  filter<3>(g, "SobelHoriz 8u16s C1 3x3", zoriFilterSobelHoriz_8u16s_C1R, 1, sobel3, plain, ZorMask3x3);
  filter<5>(g, "SobelHoriz 8u16s C1 5x5", zoriFilterSobelHoriz_8u16s_C1R, 1, sobel5, plain, ZorMask5x5);
  filter<3>(g, "SobelHoriz 32f C1", zoriFilterSobelHoriz_32f_C1R, 1, sobel3, plain);
  filter<3>(g, "ScharrVert 8u16s C1", zoriFilterScharrVert_8u16s_C1R, 1, scharr, plain);
});
