// Neighbourhood filters against sums in exact arithmetic.
#include "accuracy.h"

using namespace accuracy;

namespace {

constexpr int width = 301, height = 67;

struct Kernel {
  int width, height;
  std::vector<Real> weights; // as they stand over the window, its anchor in the middle
};

// What a filter makes of the weighted sum.
enum class Unit { One, Sum, SumAndCount }; // the sum of the magnitudes under the window, that times their number

template <class T, class D, class F>
void holdFilter(const char* name, F call, const Kernel& k, Real divisor = 1, Unit unit = Unit::One)
{
  const Real count = unit == Unit::SumAndCount ? k.width * k.height : 1;
  Error error;
  for (const bool isScene : {false, true}) {
    Picture<T> src(width, height, 8);
    Picture<D> dst(width, height);
    if (isScene) src.fillWithScene(3);
    else src.fillWithNoise(4);
    ASSERT_EQ(call(src, dst), ZorOk) << name;
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        Real sum = 0, size = 0;
        for (int j = 0; j < k.height; ++j)
          for (int i = 0; i < k.width; ++i) {
            const Real part = k.weights[static_cast<std::size_t>(j * k.width + i)] / divisor *
                              src.at(x + i - k.width / 2, y + j - k.height / 2);
            sum += part, size += std::fabs(part);
          }
        if (std::is_integral_v<D>) sum = clamped<D>(sum);
        error.add(dst.at(x, y), sum, unit == Unit::One ? 1 : size * count);
      }
  }
  hold(name, error, unit == Unit::One ? "" : "of the sum of magnitudes");
}

Kernel box(int w, int h) { return {w, h, std::vector<Real>(static_cast<std::size_t>(w * h), 1)}; }

const Kernel gauss5 = {5, 5, {2, 7, 12, 7, 2, 7, 31, 52, 31, 7, 12, 52, 127, 52, 12, 7, 31, 52, 31, 7, 2, 7, 12, 7, 2}};
const Kernel laplace5 = {
  5, 5, {-1, -3, -4, -3, -1, -3, 0, 6, 0, -3, -4, 6, 20, 6, -4, -3, 0, 6, 0, -3, -1, -3, -4, -3, -1}};
const Kernel sobel = {3, 3, {-1, -2, -1, 0, 0, 0, 1, 2, 1}};

// A call with a picture and its result, and what else the function takes.
template <class F, class... More> auto with(F f, More... more)
{
  return [=](auto& src, auto& dst) { return f(src.data(), src.step(), dst.data(), dst.step(), dst.size(), more...); };
}

} // namespace

TEST(FilterAccuracy, Means)
{
  const ZorImgSize mask = {7, 5};
  const ZorImgPoint middle = {3, 2};
  holdFilter<Zor8u, Zor8u>("zoriFilterBox_8u_C1R", with(zoriFilterBox_8u_C1R, mask, middle), box(7, 5), 35);
  holdFilter<Zor8u, Zor8u>("zoriFilterBox_8u_C1R", with(zoriFilterBox_8u_C1R, ZorImgSize{3, 3}, ZorImgPoint{1, 1}),
                           box(3, 3), 9);
  holdFilter<Zor16u, Zor16u>("zoriFilterBox_16u_C1R", with(zoriFilterBox_16u_C1R, mask, middle), box(7, 5), 35);
  holdFilter<Zor16s, Zor16s>("zoriFilterBox_16s_C1R", with(zoriFilterBox_16s_C1R, mask, middle), box(7, 5), 35);
  holdFilter<Zor32f, Zor32f>("zoriFilterBox_32f_C1R", with(zoriFilterBox_32f_C1R, mask, middle), box(7, 5), 35);
  holdFilter<Zor16u, Zor32f>("zoriSumWindowRow_16u32f_C1R", with(zoriSumWindowRow_16u32f_C1R, 9, 4), box(9, 1), 1,
                             Unit::Sum);
  holdFilter<Zor16s, Zor32f>("zoriSumWindowColumn_16s32f_C1R", with(zoriSumWindowColumn_16s32f_C1R, 9, 4), box(1, 9), 1,
                             Unit::Sum);
  const auto m5 = ZorMask5x5;
  holdFilter<Zor8u, Zor8u>("zoriFilterGauss_8u_C1R", with(zoriFilterGauss_8u_C1R, m5), gauss5, 571);
  holdFilter<Zor16u, Zor16u>("zoriFilterGauss_16u_C1R", with(zoriFilterGauss_16u_C1R, m5), gauss5, 571);
  holdFilter<Zor16s, Zor16s>("zoriFilterGauss_16s_C1R", with(zoriFilterGauss_16s_C1R, m5), gauss5, 571);
  holdFilter<Zor32f, Zor32f>("zoriFilterGauss_32f_C1R", with(zoriFilterGauss_32f_C1R, m5), gauss5, 571);
  for (const bool is5 : {false, true}) {
    const ZorMaskSize m = is5 ? ZorMask5x5 : ZorMask3x3;
    const Kernel k = is5 ? box(5, 5) : box(3, 3);
    const Real area = is5 ? 25 : 9;
    holdFilter<Zor8u, Zor8u>("zoriFilterLowpass_8u_C1R", with(zoriFilterLowpass_8u_C1R, m), k, area);
    holdFilter<Zor16u, Zor16u>("zoriFilterLowpass_16u_C1R", with(zoriFilterLowpass_16u_C1R, m), k, area);
    holdFilter<Zor16s, Zor16s>("zoriFilterLowpass_16s_C1R", with(zoriFilterLowpass_16s_C1R, m), k, area);
    holdFilter<Zor32f, Zor32f>("zoriFilterLowpass_32f_C1R", with(zoriFilterLowpass_32f_C1R, m), k, area);
  }
}

TEST(FilterAccuracy, FixedKernelsOfFloats)
{
  const Kernel sharpen = {3, 3, {-1, -1, -1, -1, 16, -1, -1, -1, -1}};
  Kernel hipass = box(5, 5);
  for (Real& weight : hipass.weights) weight = -1;
  hipass.weights[12] = 24;
  const Kernel prewitt = {3, 3, {-1, -1, -1, 0, 0, 0, 1, 1, 1}}, scharr = {3, 3, {-3, -10, -3, 0, 0, 0, 3, 10, 3}};
  const Kernel second = {5, 5, {1, 4, 6, 4, 1, 0, 0, 0, 0, 0, -2, -8, -12, -8, -2, 0, 0, 0, 0, 0, 1, 4, 6, 4, 1}};
  using F = Zor32f;
  holdFilter<F, F>("zoriFilterSharpen_32f_C1R", with(zoriFilterSharpen_32f_C1R), sharpen, 8, Unit::Sum);
  holdFilter<F, F>("zoriFilterHipass_32f_C1R", with(zoriFilterHipass_32f_C1R, ZorMask5x5), hipass, 1, Unit::Sum);
  holdFilter<F, F>("zoriFilterLaplace_32f_C1R", with(zoriFilterLaplace_32f_C1R, ZorMask5x5), laplace5, 1, Unit::Sum);
  holdFilter<F, F>("zoriFilterPrewittHoriz_32f_C1R", with(zoriFilterPrewittHoriz_32f_C1R), prewitt, 1, Unit::Sum);
  holdFilter<F, F>("zoriFilterSobelHoriz_32f_C1R", with(zoriFilterSobelHoriz_32f_C1R), sobel, 1, Unit::Sum);
  holdFilter<F, F>("zoriFilterSobelHorizMask_32f_C1R", with(zoriFilterSobelHorizMask_32f_C1R, ZorMask3x3), sobel, 1,
                   Unit::Sum);
  holdFilter<F, F>("zoriFilterSobelHorizSecond_32f_C1R", with(zoriFilterSobelHorizSecond_32f_C1R, ZorMask5x5), second,
                   1, Unit::Sum);
  holdFilter<F, F>("zoriFilterScharrHoriz_32f_C1R", with(zoriFilterScharrHoriz_32f_C1R), scharr, 1, Unit::Sum);
}

TEST(FilterAccuracy, GeneralKernels)
{
  for (const int side : {3, 7, 15}) {
    Noise noise(8);
    const auto elements = static_cast<std::size_t>(side * side);
    std::vector<Zor32f> k32(elements);
    std::vector<Zor64f> k64(elements);
    std::vector<Zor32s> integers(elements);
    Kernel k = box(side, side), ofIntegers = k;
    for (std::size_t i = 0; i < elements; ++i) { // kernels are applied reversed
      k64[i] = k32[i] = static_cast<float>(noise.uniform(-1, 1)), integers[i] = noise.below(200) - 50;
      k.weights[elements - 1 - i] = k64[i], ofIntegers.weights[elements - 1 - i] = integers[i];
    }
    const ZorImgSize size = {side, side};
    const ZorImgPoint middle = {side / 2, side / 2};
    const Real n = side * side;
    holdFilter<Zor32f, Zor32f>("zoriFilter_32f_C1R", with(zoriFilter_32f_C1R, k32.data(), size, middle), k, 1,
                               Unit::SumAndCount);
    holdFilter<Zor64f, Zor64f>("zoriFilter_64f_C1R", with(zoriFilter_64f_C1R, k64.data(), size, middle), k, 1,
                               Unit::SumAndCount);
    holdFilter<Zor8u, Zor8u>("zoriFilter_8u_C1R",
                             with(zoriFilter_8u_C1R, integers.data(), size, middle, 50 * side * side), ofIntegers,
                             50 * n);
    holdFilter<Zor16s, Zor16s>("zoriFilter_16s_C1R",
                               with(zoriFilter_16s_C1R, integers.data(), size, middle, 50 * side * side), ofIntegers,
                               50 * n);
    holdFilter<Zor16u, Zor16u>("zoriFilter_16u_C1R",
                               with(zoriFilter_16u_C1R, integers.data(), size, middle, 50 * side * side), ofIntegers,
                               50 * n);
    k.height = ofIntegers.height = 1;
    k.weights.erase(k.weights.begin(), k.weights.end() - side);
    ofIntegers.weights.erase(ofIntegers.weights.begin(), ofIntegers.weights.end() - side);
    holdFilter<Zor32f, Zor32f>("zoriFilterRow_32f_C1R", with(zoriFilterRow_32f_C1R, k32.data(), side, side / 2), k, 1,
                               Unit::SumAndCount);
    holdFilter<Zor8u, Zor8u>("zoriFilterRow_8u_C1R",
                             with(zoriFilterRow_8u_C1R, integers.data(), side, side / 2, 50 * side), ofIntegers,
                             50 * side);
    holdFilter<Zor16u, Zor16u>("zoriFilterRow_16u_C1R",
                               with(zoriFilterRow_16u_C1R, integers.data(), side, side / 2, 50 * side), ofIntegers,
                               50 * side);
  }
}

TEST(FilterAccuracy, Wiener)
{
  const auto measure = [](const char* name, auto call, auto sample, Real full, Real unit) {
    using T = decltype(sample);
    const int w = 5, h = 7;
    Picture<T> src(width, height, 8), dst(width, height);
    src.fillWithScene(5);
    Zor32f noise[1] = {0.01f};
    const Real level = noise[0] * full * full;
    int bytes = 0;
    zoriFilterWienerGetBufferSize(dst.size(), {w, h}, 1, &bytes);
    std::vector<Zor8u> buffer(static_cast<std::size_t>(bytes));
    call(src.data(), src.step(), dst.data(), dst.step(), dst.size(), ZorImgSize{w, h}, ZorImgPoint{w / 2, h / 2}, noise,
         buffer.data());
    Error error;
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        Real sum = 0, squares = 0;
        for (int j = -h / 2; j <= h / 2; ++j)
          for (int i = -w / 2; i <= w / 2; ++i) {
            const Real s = src.at(x + i, y + j);
            sum += s, squares += s * s;
          }
        const Real mean = sum / (w * h), v = std::max(squares / (w * h) - mean * mean, level);
        error.add(dst.at(x, y), mean + (v - level) / v * (src.at(x, y) - mean), unit);
      }
    hold(name, error);
  };
  measure("zoriFilterWiener_8u_C1R", zoriFilterWiener_8u_C1R, Zor8u(), 255, 1);
  measure("zoriFilterWiener_16s_C1R", zoriFilterWiener_16s_C1R, Zor16s(), 65535, 1);
  measure("zoriFilterWiener_32f_C1R", zoriFilterWiener_32f_C1R, Zor32f(), 1, 1);
}

TEST(FilterAccuracy, Bilateral)
{
  for (const int side : {3, 7, 15}) {
    const ZorImgSize kernel = {side, side};
    Picture<Zor8u> src(width, height, 8), dst(width, height);
    src.fillWithScene(6);
    int bytes = 0;
    zoriFilterBilateralGetBufSize_8u_C1R(ZorBilateralGauss, dst.size(), kernel, &bytes);
    std::vector<Zor8u> memory(static_cast<std::size_t>(bytes));
    const auto state = reinterpret_cast<ZorBilateralState*>(memory.data());
    const float values = 900, places = 12;
    ASSERT_EQ(zoriFilterBilateralInit_8u_C1R(ZorBilateralGauss, kernel, values, places, 1, state), ZorOk);
    zoriFilterBilateral_8u_C1R(src.data(), src.step(), dst.data(), dst.step(), dst.size(), kernel, state);
    Error error;
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        Real sum = 0, weights = 0;
        for (int j = -side / 2; j <= side / 2; ++j)
          for (int i = -side / 2; i <= side / 2; ++i) {
            const Real s = src.at(x + i, y + j), d = s - src.at(x, y);
            const Real w = std::exp(-0.5L * (i * i + j * j) / places) * std::exp(-0.5L * d * d / values);
            sum += w * s, weights += w;
          }
        error.add(dst.at(x, y), sum / weights, 1);
      }
    hold("zoriFilterBilateral_8u_C1R", error);
  }
}

// An image that was blurred comes back.
TEST(FilterAccuracy, Deconvolution)
{
  constexpr int side = 64, taps = 3;
  const Zor32f kernel[taps * taps] = {0.02f, 0.05f, 0.02f, 0.05f, 0.72f, 0.05f, 0.02f, 0.05f, 0.02f};
  const Kernel k = {taps, taps, {kernel, kernel + taps * taps}};
  // the margin is that of a plane of one value, so that the middle of the image is restored from the outside, too
  Picture<Zor32f> sharp(side, side, 8), blurred(side, side), restored(side, side);
  sharp.fill([](int x, int y) { return 0.5 + 0.3 * std::exp(-((x - 30) * (x - 30) + (y - 34) * (y - 34)) / 40.0); });
  for (int y = 0; y < side; ++y)
    for (int x = 0; x < side; ++x) {
      Real sum = 0;
      for (int j = 0; j < taps; ++j)
        for (int i = 0; i < taps; ++i)
          sum += k.weights[static_cast<std::size_t>(j * taps + i)] * sharp.at(x + i - 1, y + j - 1);
      blurred.at(x, y) = static_cast<float>(sum);
    }
  const auto difference = [&] {
    Error error;
    for (int y = 16; y < side - 16; ++y)
      for (int x = 16; x < side - 16; ++x) error.add(restored.at(x, y), sharp.at(x, y), 1);
    return error;
  };
  ZorDeconvFftState* state = nullptr;
  ASSERT_EQ(zoriDeconvFFTInitAlloc_32f_C1R(&state, kernel, taps, 7, 1e-6f), ZorOk);
  zoriDeconvFFT_32f_C1R(blurred.data(), blurred.step(), restored.data(), restored.step(), restored.size(), state);
  zoriDeconvFFTFree_32f_C1R(state);
  hold("zoriDeconvFFT_32f_C1R", difference(), "of the greatest sample");
}
