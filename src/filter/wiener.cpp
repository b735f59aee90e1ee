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
    for (int i = 0; i < stripSamples; ++i) values[i] = i < channels ? noise[i] : values[i - channels];
  }
};

// ---- What becomes of a group of windows ----

constexpr int group = Group<float>::size, blocks = group / block, lanes = Vec<float>::size;

template <class T> inline Vec<float> loadAsFloat(const T* p)
{
  if constexpr (!isInt<T>) return load<float>(p);
#if ZORI_VECTOR_BYTES == 32
  else return toFloat(loadWidenedTo32<T>(p));
#else
  else if constexpr (sizeof(T) == 1) return toFloat(as<Zor32s>(widenLow(widenLow(as<Zor8u>(loadLow4<Zor8u>(p))))));
  else return toFloat(loadHalfWidened<T>(p));
#endif
}

// The results of a row.
template <class T> struct Filtering {
  const T* src;
  T* dst;
  const float* noise;
  bool keepsFourth;

  template <class ResultsOf> ZORI_INLINE void operator()(std::ptrdiff_t i, const ResultsOf& resultsOf) const
  {
    const T* const x = src + i;
    T* const y = dst + i;
    using Number = std::conditional_t<isInt<T>, Zor32s, float>;
    Group<Number> numbers;
    for (int k = 0; k < blocks; ++k) {
      const Results of = resultsOf(k);
      for (int j = 0; j < 2; ++j) {
        const int part = 2 * k + j;
        const auto number =
          towardMean(loadAsFloat(x + part * lanes), of.mean[j], of.variance[j], load<float>(noise + i + part * lanes));
        if constexpr (isInt<T>) numbers.part[part] = toInt(number); // between the sample and the mean
        else numbers.part[part] = number;
      }
    }
    Group<T> results;
    if constexpr (isInt<T>) results = packed<T>(numbers);
    else results = numbers;
    if (keepsFourth) {
      const Group<T> old = loadGroup<T>(y);
      for (int k = 0; k < results.parts; ++k) results.part[k] = select(colourMask<T>(), results.part[k], old.part[k]);
    }
    storeGroup(y, results);
  }

private:
  static Vec<float> towardMean(Vec<float> x, Vec<float> mean, Vec<float> variance, Vec<float> n)
  {
    Vec<float> v = max(variance, n);
    if constexpr (!isInt<T>) v = min(v, splat(FLT_MAX));
    return mean + (v - n) / v * (x - mean);
  }
};

// The variances of a row; there is room for whole groups.
struct Variances {
  float* to;

  template <class ResultsOf> ZORI_INLINE void operator()(std::ptrdiff_t i, const ResultsOf& resultsOf) const
  {
    for (int k = 0; k < blocks; ++k) {
      const Results of = resultsOf(k);
      for (int j = 0; j < 2; ++j) store(to + i + (2 * k + j) * lanes, of.variance[j]);
    }
  }
};

// What to do with the windows of a band: filter, or sum up their variances.
struct Task {
  const NoiseRow* noise;
  VarianceSums* sums; // one for each band; null: filter
};

// The last samples of a row, if they are no whole group, have one of their own.
template <class Kind, class T>
void filterRow(const Strip<Kind>& strip, const Call<T>& call, int y, std::ptrdiff_t first, std::ptrdiff_t length,
               const float* noise)
{
  const T* const src = call.src[y] + first;
  T* const dst = call.dst[y] + first;
  const std::ptrdiff_t groups = length / group, whole = groups * group, left = length - whole;
  if (groups) strip.finish(0, groups, Filtering<T>{src, dst, noise, call.keepsFourth});
  if (!left) return;
  const PaddedBlock<T, group> from(src + whole, left);
  PaddedBlock<T, group> to(dst + whole, left);
  strip.finish(whole, 1, Filtering<T>{from.values, to.values, noise + whole, call.keepsFourth});
  std::memcpy(dst + whole, to.values, static_cast<std::size_t>(left) * sizeof(T));
}

template <class Kind, class T> ZORI_ONE_COPY void workOnBand(const Call<T>& call, const Task& task, int band)
{
  const UpperHalvesCleared atTheEnd;
  const std::ptrdiff_t length = elementsOf(call.windows.roi.width, call.windows.channels);
  for (std::ptrdiff_t first = 0; first < length; first += stripSamples) {
    const std::ptrdiff_t ofStrip = std::min<std::ptrdiff_t>(stripSamples, length - first);
    Strip<Kind> strip(call.windows, first, ofStrip);
    strip.walk(call.bands.first(band), call.bands.first(band + 1), [&](int y) {
      if (task.sums) {
        alignas(32) float variances[stripSamples];
        strip.finish(0, (ofStrip + group - 1) / group, Variances{variances});
        task.sums[band].add(variances, ofStrip);
      } else {
        filterRow(strip, call, y, first, ofStrip, task.noise->values);
      }
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
