// Resize kernels of four and six taps, in single precision.
//
// Newton's form of the polynomial through p0 to p3, at t:
//
//   d1 = p1 - p0, d2 = (p2 - p1) - d1, d3 = (((p1 - p2) - p2) + p3) - d2
//   y = ((p0 + v * d3) + u * d2) + (t + 1) * d1 with u = t * (t + 1) * 0.5, v = (t - 1) * u / 3
//
// Weights: y = ((w0 * p0 + w1 * p1) + w2 * p2) + ..., tap by tap.
//
// Samples become floats once a row, a strip of outputs at a time; where outputs lie so far apart that most samples
// would be converted in vain, their taps are gathered. Results of 8u and 16u are y + 0.5000001 cut to whole numbers,
// those of 16s are rounded to nearest; all are saturated.
#include "resize_kernels.h"
#include "resize_taps.h"
#include "rowkernels/convert.h"

#include <algorithm>
#include <utility>

namespace zori {
namespace resize {
namespace {

// ---- The two sums, on vectors of any width ----

// How the taps of an output are combined, with its factors.
template <Taps Kind> struct Combine {
  static constexpr int taps = tapsOf(Kind);

  template <class V> struct Factors {
    V f[factorsOf(Kind)];
  };
  template <class V, class At> static Factors<V> factors(At at)
  {
    Factors<V> x;
    for (int k = 0; k < factorsOf(Kind); ++k) x.f[k] = at(k);
    return x;
  }
  template <class V> static V apply(const V (&p)[taps], const Factors<V>& by)
  {
    const auto& f = by.f;
    if constexpr (Kind == Taps::Newton) {
      // d3 with all signs turned but its last: the same numbers, and p2 - p1 is there already
      const V d1 = p[1] - p[0], e = p[2] - p[1], d2 = e - d1, d3 = (p[3] - (e + p[2])) - d2;
      return p[0] + f[1] * d3 + f[0] * d2 + f[2] * d1;
    } else {
      V sum = f[0] * p[0];
      for (int j = 1; j < taps; ++j) sum = sum + f[j] * p[j];
      return sum;
    }
  }
};

// ---- Across ----

// Outputs first .. first + count - 1 of a row; output i has its taps at src + at[i] * C.
template <Taps Kind, int C>
inline void acrossStrip(const AxisTable& columns, std::ptrdiff_t first, std::ptrdiff_t count, const std::int32_t* at,
                        const float* src, float* out)
{
  using Sum = Combine<Kind>;
  if constexpr (C == 1) {
    for (std::ptrdiff_t i = 0; i < count; i += Vec<float>::size) {
      Vec<float> p[Sum::taps];
      loadTaps(src, at + i, p);
      const auto f =
        Sum::template factors<Vec<float>>([&](int k) { return load<float>(columns.plane(k) + first + i); });
      store(out + i, Sum::apply(p, f));
    }
  } else {
    for (std::ptrdiff_t i = 0; i < count; ++i, out += C) {
      const float* const q = src + std::ptrdiff_t{at[i]} * C;
      F32x4 p[Sum::taps];
      for (int j = 0; j < Sum::taps; ++j) p[j] = loadFour(q + j * C);
      const auto f = Sum::template factors<F32x4>([&](int k) { return splatFour(columns.plane(k)[first + i]); });
      store(out, Sum::apply(p, f));
    }
  }
}

// Samples of a row as floats, from one on.
template <class T> void convertRun(const void* row, std::ptrdiff_t first, float* dst, std::ptrdiff_t samples)
{
  const T* const src = static_cast<const T*>(row) + first;
  if constexpr (std::is_same_v<T, Zor32f>) std::memcpy(dst, src, static_cast<std::size_t>(samples) * sizeof(float));
  else mapGroups(dst, samples, Converted<Zor32f>{}, src);
}
using ConvertRun = void (*)(const void* row, std::ptrdiff_t first, float* dst, std::ptrdiff_t samples);

// Pixels first .. end - 1 of a row, those outside the image by the table's rule.
template <int C>
inline void convertPixels(const AxisTable& columns, ConvertRun convert, const void* row, std::ptrdiff_t first,
                          std::ptrdiff_t end, float* dst)
{
  const std::ptrdiff_t image = columns.image, inside = std::clamp<std::ptrdiff_t>(first, 0, image - 1),
                       insideEnd = std::clamp<std::ptrdiff_t>(end, inside + 1, image);
  const std::ptrdiff_t before = (inside - first) * C, samples = (insideEnd - inside) * C;
  const std::ptrdiff_t behind = (end - insideEnd) * C;
  convert(row, inside * C, dst + before, samples);
  const bool isZero = columns.outside == AxisTable::Outside::Zero;
  for (std::ptrdiff_t k = 0; k < before; ++k) dst[k] = isZero ? 0 : dst[before + k % C];
  float* const rest = dst + before + samples;
  for (std::ptrdiff_t k = 0; k < behind; ++k) rest[k] = isZero ? 0 : rest[k % C - C];
}

constexpr std::ptrdiff_t stripOutputs = 256, stripSamples = 2048;

template <Taps Kind, int C>
[[gnu::noinline]] void acrossFloats(const AxisTable& columns, ConvertRun convert, const void* row, float* out)
{
  const UpperHalvesCleared atTheEnd;
  constexpr int taps = tapsOf(Kind);
  constexpr std::ptrdiff_t gatheredOutputs = 32;
  static_assert(gatheredOutputs * taps * C <= stripSamples);
  alignas(16) float strip[stripSamples + 16]; // the last pixel is read with a fourth lane
  for (std::ptrdiff_t i = 0; i < columns.count;) {
    const std::int32_t* const at = columns.at + i;
    const std::ptrdiff_t first = at[0];
    const auto pixels = [=](std::ptrdiff_t outputs) { return std::ptrdiff_t{at[outputs - 1]} + taps - first; };
    std::ptrdiff_t count = std::min(stripOutputs, columns.count - i);
    if (pixels(count) > stripSamples / C) count = std::min(stripOutputs / 2, count);
    if (pixels(count) <= stripSamples / C && pixels(count) <= 2 * taps * count) {
      convertPixels<C>(columns, convert, row, first, first + pixels(count), strip);
      acrossStrip<Kind, C>(columns, i, count, at, strip - first * C, out + i * C);
    } else {
      std::int32_t gathered[gatheredOutputs];
      count = std::min(gatheredOutputs, count);
      for (std::ptrdiff_t k = 0; k < gatheredOutputs; ++k) {
        gathered[k] = static_cast<std::int32_t>(std::min(k, count - 1)) * taps;
        if (k < count)
          convertPixels<C>(columns, convert, row, at[k], std::ptrdiff_t{at[k]} + taps, strip + k * taps * C);
      }
      acrossStrip<Kind, C>(columns, i, count, gathered, strip, out + i * C);
    }
    i += count;
  }
}

template <Taps Kind, class T, int C>
void across(const AxisTable& columns, const void* const* rows, int count, void* const* sums)
{
  for (int r = 0; r < count; ++r) acrossFloats<Kind, C>(columns, convertRun<T>, rows[r], static_cast<float*>(sums[r]));
}

// ---- Down ----

template <class T> inline Group<T> finished(const Group<float>& y)
{
  if constexpr (std::is_same_v<T, Zor32f>) return y;
  else {
    Group<Zor32s> n;
    for (int k = 0; k < y.parts; ++k)
      n.part[k] = std::is_same_v<T, Zor16s> ? toInt(y.part[k]) : toIntTruncated(y.part[k] + splat(0.5000001192092896f));
    if constexpr (std::is_same_v<T, Zor16u>) {
      Group<T> x;
      for (int k = 0; k < x.parts; ++k) x.part[k] = narrowSat<T>(n.part[2 * k], n.part[2 * k + 1]);
      return x;
    } else {
      return packed<T>(n);
    }
  }
}

template <Taps Kind, class T> struct DownRows {
  using V = Vec<float>;
  using Sum = Combine<Kind>;
  static constexpr std::ptrdiff_t blockLength = Group<float>::size;
  typename Sum::template Factors<V> factors;

  void block(const float* p0, const float* p1, const float* p2, const float* p3, T* dst) const
  {
    const float* const rows[] = {p0, p1, p2, p3};
    blockOf(rows, dst);
  }
  void block(const float* p0, const float* p1, const float* p2, const float* p3, const float* p4, const float* p5,
             T* dst) const
  {
    const float* const rows[] = {p0, p1, p2, p3, p4, p5};
    blockOf(rows, dst);
  }

private:
  void blockOf(const float* const (&rows)[Sum::taps], T* dst) const
  {
    Group<float> y;
    for (int k = 0; k < y.parts; ++k) {
      V p[Sum::taps];
      for (int j = 0; j < Sum::taps; ++j) p[j] = load<float>(rows[j] + k * V::size);
      y.part[k] = Sum::apply(p, factors);
    }
    storeGroup(dst, finished<T>(y));
  }
};

template <Taps Kind, class T, std::size_t... J>
inline void downRows(const void* const* rows, const AxisTable& table, int y, T* dst, std::ptrdiff_t samples,
                     std::index_sequence<J...>)
{
  const auto f = Combine<Kind>::template factors<Vec<float>>([&](int k) { return splat(table.plane(k)[y]); });
  mapBlocks(dst, samples, DownRows<Kind, T>{f}, static_cast<const float*>(rows[J])...);
}

template <Taps Kind, class T>
void downFloats(const void* const* rows, const AxisTable& table, int first, int count, bool, void* dst, int step,
                std::ptrdiff_t samples)
{
  for (int k = 0; k < count; ++k)
    downRows<Kind, T>(rows, table, first + k, rowAt(static_cast<T*>(dst), step, k), samples,
                      std::make_index_sequence<tapsOf(Kind)>());
}

// ---- The choice ----

template <Taps Kind, class T> Kernels kernelsOf(int channels)
{
  const AcrossRows kernel = channels == 1   ? across<Kind, T, 1>
                            : channels == 3 ? across<Kind, T, 3>
                                            : across<Kind, T, 4>;
  return {kernel, downFloats<Kind, T>, 1};
}

template <Taps Kind> Kernels kernelsOf(Element element, int channels)
{
  switch (element) {
  case Element::U8: return kernelsOf<Kind, Zor8u>(channels);
  case Element::U16: return kernelsOf<Kind, Zor16u>(channels);
  case Element::F32: return kernelsOf<Kind, Zor32f>(channels);
  default: break;
  }
  if constexpr (Kind == Taps::Newton) return {};
  else return kernelsOf<Kind, Zor16s>(channels);
}

} // namespace

Kernels weightedKernels(Element element, int channels, Taps taps)
{
  switch (taps) {
  case Taps::Newton: return kernelsOf<Taps::Newton>(element, channels);
  case Taps::Weights4: return kernelsOf<Taps::Weights4>(element, channels);
  default: return kernelsOf<Taps::Weights6>(element, channels);
  }
}

} // namespace resize
} // namespace zori
