// zoriFilterWiener_{8u,16s,32f}_{C1,C3,C4,AC4}R, zoriFilterWienerGetBufferSize: adaptive noise reduction.
//
//   dst = m + (v - n) / v * (x - m)
//
// m is the window's mean, v its variance, and n that of the noise, both in units of the window's area; v is at least n.
// Where the caller does not know the noise, n is the mean of v over the region, for which the windows are walked twice.
#include "frame/checks.h"
#include "frame/machine.h"
#include "frame/parallel.h"
#include "walk/map.h"
#include "wiener_windows.h"
#include "zori/filter.h"

#include <cfloat>
#include <climits>

namespace zori {
namespace wiener {
namespace {

constexpr int picosecondsPerSample = 1500;
constexpr float leastGivenNoise = 0x1p-23f, mostNoise = 0x1.fffffep-1f; // below 1

// The square of the full scale, of which noise is a part.
template <class T> constexpr double fullPower = sizeof(T) == 1 ? 255.0 * 255 : sizeof(T) == 2 ? 65535.0 * 65535 : 1;

ZorStatus isMask(ZorImgSize mask) { return require(mask.width >= 2 && mask.height >= 2, ZorErrMaskSize); }
ZorStatus isAnchorInside(ZorImgSize mask, ZorImgPoint anchor)
{
  return require(anchor.x >= 0 && anchor.x < mask.width && anchor.y >= 0 && anchor.y < mask.height, ZorErrAnchor);
}
ZorStatus isNoise(const Zor32f* noise, int count)
{
  for (int c = 0; c < count; ++c) {
    const float x = get<float>(noise + c);
    if (!(x >= 0 && x < 1)) return ZorErrNoiseRange;
  }
  return ZorOk;
}

// The samples and what is known of their windows to the result.
template <class T> struct TowardMean {
  static constexpr bool isLong = true;
  Group<T> operator()(const Group<T>& x, const Group<float>& mean, const Group<float>& variance,
                      const Group<float>& noise) const
  {
    Group<float> y;
    if constexpr (isInt<T>) y = Converted<float>{}(x);
    else y = x;
    for (int k = 0; k < y.parts; ++k) {
      const Vec<float> m = mean.part[k], n = noise.part[k];
      Vec<float> v = max(variance.part[k], n);
      if constexpr (!isInt<T>) v = min(v, splat(FLT_MAX));
      y.part[k] = m + (v - n) / v * (y.part[k] - m);
    }
    if constexpr (isInt<T>) return Rounded<T>{}(y);
    else return y;
  }
};

// ---- A call ----

// Rows are worked on in bands that do not depend on the team, so that no result does.
struct Bands {
  static constexpr int most = 64;
  int count, height;

  explicit Bands(ZorImgSize roi, int maskHeight) : height(roi.height)
  {
    const long long least = std::max(64LL, 4LL * maskHeight);
    count = static_cast<int>(std::clamp<long long>(roi.height / least, 1, most));
  }
  int first(int band) const { return static_cast<int>(1LL * height * band / count); }
};

template <class T> struct Call {
  Windows<T> windows;
  Rows<const T> src;
  Rows<T> dst;
  bool keepsFourth; // the fourth channel of the destination
  TeamRule team;
  Bands bands;
};

// Sums of a row of variances, in an order that does not depend on the width of vectors: of every twelfth sample, which
// is whole pixels of each layout.
struct VarianceSums {
  static constexpr int period = 12;
  double ofPhase[period] = {};

  void add(const float* x, std::ptrdiff_t length)
  {
    const auto positive = [](float v) { return static_cast<double>(v > 0 ? v : 0); };
    std::ptrdiff_t i = 0;
    for (; i + period <= length; i += period)
      for (int k = 0; k < period; ++k) ofPhase[k] += positive(x[i + k]);
    for (int k = 0; i + k < length; ++k) ofPhase[k] += positive(x[i + k]);
  }
};

// The noise of all samples of a strip.
struct NoiseRow {
  alignas(32) float values[stripSamples];

  NoiseRow(const float (&noise)[4], int channels)
  {
    for (int i = 0; i < stripSamples; ++i) values[i] = noise[i % channels];
  }
};

template <class T>
void filterRow(const Call<T>& call, const NoiseRow& noise, int y, std::ptrdiff_t first, std::ptrdiff_t length,
               const float* means, const float* variances)
{
  const T* const src = call.src[y] + first;
  T* const dst = call.dst[y] + first;
  constexpr TowardMean<T> op{};
  if (call.keepsFourth)
    mapGroups(dst, length, KeepFourth<TowardMean<T>>{op}, static_cast<const T*>(dst), src, means, variances,
              static_cast<const float*>(noise.values));
  else mapGroups(dst, length, op, src, means, variances, static_cast<const float*>(noise.values));
}

// What to do with the windows of a band: filter, or sum up their variances.
struct Task {
  const NoiseRow* noise;
  VarianceSums* sums; // one for each band; null: filter
};

template <class Kind, class T> ZORI_ONE_COPY void workOnBand(const Call<T>& call, const Task& task, int band)
{
  const UpperHalvesCleared atTheEnd;
  const std::ptrdiff_t length = elementsOf(call.windows.roi.width, call.windows.channels);
  for (std::ptrdiff_t first = 0; first < length; first += stripSamples) {
    const std::ptrdiff_t ofStrip = std::min<std::ptrdiff_t>(stripSamples, length - first);
    Strip<Kind> strip(call.windows, first, ofStrip);
    strip.walk(call.bands.first(band), call.bands.first(band + 1), [&](int y) {
      if (task.sums) task.sums[band].add(strip.variances(), ofStrip);
      else filterRow(call, *task.noise, y, first, ofStrip, strip.means(), strip.variances());
    });
  }
}
template <class Kind, class T> void workOnAll(const Call<T>& call, const Task& task)
{
  masterSlabs(call.team, Rounding::Nearest, call.bands.count, 0, [&](const Slab& slab) {
    for (int k = 0; k < slab.count; ++k) workOnBand<Kind>(call, task, slab.first + k);
    return ZorOk;
  });
}

// The mean variance of each channel.
template <class Kind, class T> void estimate(const Call<T>& call, double (&mean)[4])
{
  VarianceSums sums[Bands::most];
  workOnAll<Kind>(call, {nullptr, sums});
  std::fill(mean, mean + 4, 0.0);
  for (int band = 0; band < call.bands.count; ++band)
    for (int k = 0; k < VarianceSums::period; ++k) mean[k % call.windows.channels] += sums[band].ofPhase[k];
  for (double& m : mean) m /= static_cast<double>(call.windows.roi.width) * call.windows.roi.height;
}

template <class Kind, class T> void filterWith(const Call<T>& call, Zor32f* noise)
{
  const double area = static_cast<double>(call.windows.area());
  const int channels = call.windows.channels;
  float level[4] = {FLT_MIN, FLT_MIN, FLT_MIN, FLT_MIN};
  double estimated[4];
  bool isEstimated = false;
  for (int c = 0; c < (call.keepsFourth ? 3 : channels); ++c) {
    double n = get<float>(noise + c) * fullPower<T> * area;
    if (get<float>(noise + c) < leastGivenNoise) {
      if (!isEstimated) estimate<Kind>(call, estimated);
      isEstimated = true;
      n = estimated[c];
      const auto part = static_cast<float>(n / area / fullPower<T>);
      put(noise + c, part < 1 ? part : mostNoise);
    }
    level[c] = static_cast<float>(std::clamp<double>(n, FLT_MIN, FLT_MAX)); // positive: flat windows have no variance
  }
  const NoiseRow noiseRow(level, channels);
  workOnAll<Kind>(call, {&noiseRow, nullptr});
}

// With the kind of sums that the windows need.
template <class T> void filterWithSums(const Call<T>& call, Zor32f* noise)
{
  const long long area = call.windows.area();
  const bool isNarrow = call.windows.mask.width <= mostColumnsOfWindow;
  if constexpr (sizeof(T) == 1) {
    if (isNarrow && area <= SumsOfFewBytes::most) return filterWith<SumsOfFewBytes>(call, noise);
    if (isNarrow && area <= SumsOfBytes::most) return filterWith<SumsOfBytes>(call, noise);
  } else if constexpr (sizeof(T) == 2) {
    if (isNarrow && area <= SumsOfWords::most) return filterWith<SumsOfWords>(call, noise);
  }
  filterWith<SumsOfAny<T>>(call, noise);
}

// pBuffer must be there but is not used: strips need less than the stack has, and its size knows nothing of windows
// that are wide against the region.
template <Layout L, class T>
ZorStatus filter(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roi, ZorImgSize mask, ZorImgPoint anchor,
                 Zor32f* noise, Zor8u* pBuffer)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, noise, pBuffer), nonEmpty(roi), isMask(mask),
                            isAnchorInside(mask, anchor), positive(srcStep, dstStep));
      s != ZorOk)
    return s;
  if (auto s = isNoise(noise, processed<L>); s != ZorOk) return s;

  const T* const first = rowAt(pSrc, srcStep, -std::ptrdiff_t{anchor.y}) - std::ptrdiff_t{anchor.x} * channels<L>;
  const Windows<T> windows{{first, srcStep}, roi, mask, channels<L>};
  const long long samples = 1LL * roi.width * roi.height * channels<L>;
  const Call<T> call{windows,
                     {pSrc, srcStep},
                     {pDst, dstStep},
                     L == AC4,
                     TeamRule::forWork(samples, picosecondsPerSample).when(L != C1),
                     Bands(roi, mask.height)};
  underRounding(Rounding::Nearest, [&] { filterWithSums(call, noise); });
  return ZorOk;
}

} // namespace
} // namespace wiener
} // namespace zori

using namespace zori;
using namespace zori::wiener;

ZorStatus zoriFilterWienerGetBufferSize(ZorImgSize roiSize, ZorImgSize maskSize, int channels, int* pBufferSize)
{
  if (auto s = firstFailure(nonNull(pBufferSize), nonEmpty(roiSize),
                            require(channels == 1 || channels == 3 || channels == 4, ZorErrChannels), isMask(maskSize));
      s != ZorOk)
    return s;
  const long long width = roiSize.width;
  const long long elements = (channels == 1 ? width + maskSize.width + 6 : width * channels + 6) & ~3LL;
  *pBufferSize = static_cast<int>(std::min<long long>(elements * allowedThreads() * 20 + 15, INT_MAX));
  return ZorOk;
}

// clang-format off
#define STAMP(type, layout)                                                                                            \
  ZorStatus zoriFilterWiener_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,    \
                                                  ZorImgSize roiSize, ZorImgSize maskSize, ZorImgPoint anchor,         \
                                                  Zor32f* noise, Zor8u* pBuffer)                                       \
  { return filter<layout>(pSrc, srcStep, pDst, dstStep, roiSize, maskSize, anchor, noise, pBuffer); }
#define STAMPS(layout) STAMP(8u, layout) STAMP(16s, layout) STAMP(32f, layout)
STAMPS(C1) STAMPS(C3) STAMPS(C4) STAMPS(AC4)
#undef STAMPS
#undef STAMP
