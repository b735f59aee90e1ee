// The fine forms of the sampling methods: one point at a time, with its coordinates in double precision, wherever it
// is.
#pragma once

#include "rowkernels/simd.h"
#include "sampling.h"
#include "sampling_cubic.h"

#include <algorithm>
#include <cmath>

namespace zori {
namespace geometry {

namespace {

constexpr CubicTable cubicTable;

template <class T> constexpr int bytesOf = static_cast<int>(sizeof(T));

double inside(double x, int limit) { return x > 0 ? (x < limit ? x : double(limit)) : 0.0; }

// x * 2^bits, rounded to the nearest whole number, halves to even.
long long fixedPoint(double x, int bits)
{
  constexpr double toWhole = 6755399441055744.0; // 1.5 * 2^52: what is added to it loses its fraction
  return static_cast<long long>((x * double(1 << bits) + toWhole) - toWhole);
}

template <class T> const Zor8u* pixelAt(const Source& s, const Zor8u* plane, std::ptrdiff_t x, std::ptrdiff_t y)
{
  return plane + y * s.step + x * s.pixelBytes;
}

Zor8u blended8(const Zor8u* p, const Zor8u* q, int right, int fx, int fy)
{
  const int above = (p[0] * (16384 - fx) + p[right] * fx) >> 8, below = (q[0] * (16384 - fx) + q[right] * fx) >> 8;
  return static_cast<Zor8u>((above * (16384 - fy) + below * fy + 524288) >> 20);
}

template <class T> T blended(const Zor8u* p, const Zor8u* q, int right, float fx, float fy)
{
  const auto at = [](const Zor8u* from) { return static_cast<float>(get<T>(from)); };
  const float above = at(p) * (1.0f - fx) + at(p + right) * fx, below = at(q) * (1.0f - fx) + at(q + right) * fx;
  const float out = above + (below - above) * fy;
  if constexpr (std::is_same_v<T, Zor16u>) return static_cast<T>(toInt(out));
  else return out;
}

// The four taps of a cubic on one axis, those beyond the image brought to its nearest column or row.
struct Taps {
  int at[4];
  Taps(int first, int limit)
  {
    for (int k = 0; k < 4; ++k) at[k] = std::clamp(first + k, 0, limit);
  }
};

// Coordinates in 1/1024, inside the image.
template <int Processed>
[[gnu::noinline]] void cubicPoint8(const Source& s, const Zor8u* plane, long long x, long long y, Zor8u* dst)
{
  const Taps columns(static_cast<int>(x >> 10) - 1, s.width - 1), rows(static_cast<int>(y >> 10) - 1, s.height - 1);
  const std::int16_t *const wx = cubicTable.rows[x & 1023], *const wy = cubicTable.rows[y & 1023];
  for (int c = 0; c < Processed; ++c) {
    int sum = 1 << 19;
    for (int i = 0; i < 4; ++i) {
      int row = 128;
      for (int k = 0; k < 4; ++k) row += wx[k] * pixelAt<Zor8u>(s, plane, columns.at[k], rows.at[i])[c];
      sum += wy[i] * (row >> 8);
    }
    dst[c] = static_cast<Zor8u>(std::clamp(sum >> 20, 0, 255));
  }
}

// The weights across and down, in the two lanes.
struct CubicWeightPairs {
  F64x2 w[4];
  explicit CubicWeightPairs(F64x2 t)
  {
    const F64x2 half = splat16(0.5), six = splat16(6.0), t2 = t * t, t3 = t * t2;
    w[0] = (zero<double, 16>() - t2 / six - splat16(1.0 / 3)) * t + t2 * half;
    w[1] = t3 * half + splat16(1.0) - t2 - t * half;
    w[2] = zero<double, 16>() - t3 * half + t2 * half + t;
    w[3] = t3 / six - t / six;
  }
  F64x2 across(int k) const { return interleaveLow(w[k], w[k]); }
};

template <class T> void storeCubic(Zor8u* to, double y)
{
  if constexpr (std::is_same_v<T, Zor16u>)
    put(to, static_cast<Zor16u>(y > 65535 ? 65535 : y < 0 ? 0 : static_cast<int>(y + 0.5)));
  else put(to, static_cast<float>(y));
}

// Pixels of `Channels` samples, of which the first `Processed` are written.
template <class T, int Channels, int Processed> struct FinePixels {
  static constexpr int bytes = Channels * bytesOf<T>, written = Processed * bytesOf<T>;

  static void nearestPoint(const Source& s, const Zor8u* plane, double x, double y, Zor8u* dst)
  {
    std::memcpy(dst, pixelAt<T>(s, plane, fixedPoint(x, 0), fixedPoint(y, 0)), written);
  }

  static void linearPoint(const Source& s, const Zor8u* plane, double x, double y, Zor8u* dst)
  {
    if constexpr (bytesOf<T> == 1) {
      const long long fixedX = fixedPoint(x, 14), fixedY = fixedPoint(y, 14);
      const long long ix = std::min<long long>(fixedX >> 14, s.width - 2);
      const long long iy = std::min<long long>(fixedY >> 14, s.height - 2);
      const int fx = static_cast<int>(fixedX - (ix << 14)), fy = static_cast<int>(fixedY - (iy << 14));
      const Zor8u* const p = pixelAt<T>(s, plane, static_cast<std::ptrdiff_t>(ix), static_cast<std::ptrdiff_t>(iy));
      for (int c = 0; c < Processed; ++c) dst[c] = blended8(p + c, p + s.step + c, Channels, fx, fy);
    } else {
      const int ix = std::min(static_cast<int>(x), s.width - 2), iy = std::min(static_cast<int>(y), s.height - 2);
      const float fx = static_cast<float>(x - ix), fy = static_cast<float>(y - iy);
      const Zor8u* const p = pixelAt<T>(s, plane, ix, iy);
      for (int c = 0; c < Processed; ++c)
        put(dst + c * bytesOf<T>, blended<T>(p + c * bytesOf<T>, p + s.step + c * bytesOf<T>, bytes, fx, fy));
    }
  }

  static bool hasAllTaps(const Source& s, int ix, int iy)
  {
    return static_cast<unsigned>(ix - 1) < static_cast<unsigned>(s.width - 3) &&
           static_cast<unsigned>(iy - 1) < static_cast<unsigned>(s.height - 3);
  }

  // Planes of 16u and 32f, a point with all its taps: the sums of two rows at once, in the order of the others.
  static F64x2 rowPair(const Zor8u* p, const Zor8u* q, const CubicWeightPairs& weights)
  {
    const auto sum = [&](auto low, auto high) { // columns 0 and 1, columns 2 and 3
      return weights.across(0) * toDoubleLow(low) + weights.across(1) * toDoubleHigh(low) +
             weights.across(2) * toDoubleLow(high) + weights.across(3) * toDoubleHigh(high);
    };
    if constexpr (std::is_same_v<T, Zor16u>) {
      const auto both = interleaveLow(loadLow8<T>(p), loadLow8<T>(q));
      return sum(as<std::int32_t>(widenLow(both)), as<std::int32_t>(widenHigh(both)));
    } else {
      const auto a = load16<T>(p), b = load16<T>(q);
      return sum(interleaveLow(a, b), interleaveHigh(a, b));
    }
  }

  static void cubicWhole(const Source& s, const Zor8u* p, double fx, double fy, Zor8u* dst)
  {
    const CubicWeightPairs weights(interleaveLow(splat16(fx), splat16(fy)));
#if ZORI_VECTOR_BYTES == 32
    Vec<double> column[4];
    if constexpr (std::is_same_v<T, Zor16u>) {
      const auto row = [=](int i) { return loadLow8<T>(p + i * s.step); };
      const auto above = as<std::uint32_t>(interleaveLow(row(0), row(1))),
                 below = as<std::uint32_t>(interleaveLow(row(2), row(3)));
      const auto low = as<std::int32_t>(widened(as<T>(interleaveLow(above, below)))),
                 high = as<std::int32_t>(widened(as<T>(interleaveHigh(above, below))));
      column[0] = toDoubleLow(low);
      column[1] = toDoubleHigh(low);
      column[2] = toDoubleLow(high);
      column[3] = toDoubleHigh(high);
    } else {
      F32x4 x[4];
      for (int i = 0; i < 4; ++i) x[i] = load16<float>(p + i * s.step);
      transposeLanes(x);
      for (int k = 0; k < 4; ++k) column[k] = widened(x[k]);
    }
    const auto term = [&](int k) { return splat(firstLane(weights.w[k])) * column[k]; };
    const Vec<double> rows = term(0) + term(1) + term(2) + term(3);
    const Vec<double> all =
      joined(interleaveHigh(weights.w[0], weights.w[1]), interleaveHigh(weights.w[2], weights.w[3])) * rows;
    double out[4];
    store(out, all);
    return storeCubic<T>(dst, out[0] + out[1] + out[2] + out[3]);
#else
    const Zor8u* const q = p + 2 * s.step;
    const F64x2 above = interleaveHigh(weights.w[0], weights.w[1]) * rowPair(p, p + s.step, weights);
    const F64x2 below = interleaveHigh(weights.w[2], weights.w[3]) * rowPair(q, q + s.step, weights);
    const auto second = [](F64x2 x) { return firstLane(interleaveHigh(x, x)); };
    storeCubic<T>(dst, firstLane(above) + second(above) + firstLane(below) + second(below));
#endif
  }

#if ZORI_VECTOR_BYTES == 32
  // Samples of a pixel as floats; a fourth that is not there is zero.
  static F32x4 pixelSamples(const Zor8u* p)
  {
    if constexpr (std::is_same_v<T, Zor16u>) {
      const std::uint64_t x =
        Channels == 4 ? get<std::uint64_t>(p) : get<std::uint32_t>(p) | std::uint64_t{get<std::uint16_t>(p + 4)} << 32;
      return toFloat(as<std::int32_t>(widenLow(loadLow8<T>(&x))));
    } else if constexpr (Channels == 4) {
      return load16<float>(p);
    } else {
      return as<float>(interleaveLow(loadLow8<std::uint64_t>(p), loadLow4<std::uint64_t>(p + 8)));
    }
  }

  // All samples of a pixel at once, in the order of the sums below.
  static void cubicSamples(const Source& s, const Zor8u* plane, int ix, int iy, double fx, double fy, Zor8u* dst)
  {
    const Taps columns(ix - 1, s.width - 1), rows(iy - 1, s.height - 1);
    const CubicWeightPairs weights(interleaveLow(splat16(fx), splat16(fy)));
    Vec<double> across[4], all;
    for (int k = 0; k < 4; ++k) across[k] = splat(firstLane(weights.w[k]));
    for (int i = 0; i < 4; ++i) {
      const auto term = [&](int k) {
        return across[k] * widened(pixelSamples(pixelAt<T>(s, plane, columns.at[k], rows.at[i])));
      };
      const Vec<double> row =
        splat(firstLane(interleaveHigh(weights.w[i], weights.w[i]))) * (term(0) + term(1) + term(2) + term(3));
      all = i == 0 ? row : all + row;
    }
    double out[4];
    store(out, all);
    for (int c = 0; c < Processed; ++c) storeCubic<T>(dst + c * bytesOf<T>, out[c]);
  }
#endif

  static void cubicPoint(const Source& s, const Zor8u* plane, double x, double y, Zor8u* dst)
  {
    if constexpr (bytesOf<T> == 1) {
      cubicPoint8<Processed>(s, plane, fixedPoint(x, 10), fixedPoint(y, 10), dst);
    } else {
      const int ix = static_cast<int>(x), iy = static_cast<int>(y);
      if constexpr (Channels == 1)
        if (hasAllTaps(s, ix, iy)) return cubicWhole(s, pixelAt<T>(s, plane, ix - 1, iy - 1), x - ix, y - iy, dst);
#if ZORI_VECTOR_BYTES == 32
      if constexpr (Channels > 1) return cubicSamples(s, plane, ix, iy, x - ix, y - iy, dst);
#endif
      const Taps columns(ix - 1, s.width - 1), rows(iy - 1, s.height - 1);
      const CubicWeights wx = cubicWeights(x - ix), wy = cubicWeights(y - iy);
      const Zor8u* row[4];
      std::ptrdiff_t column[4];
      for (int i = 0; i < 4; ++i) {
        row[i] = pixelAt<T>(s, plane, 0, rows.at[i]);
        column[i] = std::ptrdiff_t{columns.at[i]} * bytes;
      }
      for (int c = 0; c < Processed; ++c) {
        double sum[4];
        for (int i = 0; i < 4; ++i) {
          const auto at = [&](int k) { return double(get<T>(row[i] + column[k] + c * bytesOf<T>)); };
          sum[i] = wx.w[0] * at(0) + wx.w[1] * at(1) + wx.w[2] * at(2) + wx.w[3] * at(3);
        }
        storeCubic<T>(dst + c * bytesOf<T>, wy.w[0] * sum[0] + wy.w[1] * sum[1] + wy.w[2] * sum[2] + wy.w[3] * sum[3]);
      }
    }
  }

  template <void (*Point)(const Source&, const Zor8u*, double, double, Zor8u*)>
  static void fine(const Source& s, const Zor8u* plane, PointRow points, int count, Zor8u* dst)
  {
    const UpperHalvesCleared atTheEnd;
    const double *const x = points.fineX(), *const y = points.fineY();
    for (int i = 0; i < count; ++i, dst += bytes)
      if (x[i] == x[i] && y[i] == y[i]) Point(s, plane, inside(x[i], s.width - 1), inside(y[i], s.height - 1), dst);
  }
};

} // namespace

} // namespace geometry
} // namespace zori
