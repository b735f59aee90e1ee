// What both ways of deconvolution share: the margin that an image gets, single channels of rows, small numbers that
// count as zero, and how their states hold their parts.
//
// Of a kernel of k by k taps, a = (k - 1) / 2 is the anchor and m = k - 1 - a what lies behind it. The work image has m
// samples to the left of the region and above it, a to its right and below. A sample of the margin is the nearest one
// of the region times a weight that depends on its distance (dx, dy) from there:
//
//   weight(dx, dy) = sum of the taps K[a + v][a + u] with v >= dy and u >= dx, divided by the sum of all with v, u >= 0
#pragma once

#include "frame/arena.h"
#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/parallel.h"
#include "rowkernels/drivers.h"

#include <cmath>

namespace zori {
namespace deconvolution {

// A part of a state, by its distance from the start in units of 32 bytes: states have one layout at every address
// width.
template <class T> struct StatePart {
  Zor32u units = 0;

  T* in(void* state) const { return reinterpret_cast<T*>(static_cast<char*>(state) + std::ptrdiff_t{32} * units); }
  const T* in(const void* state) const
  {
    return reinterpret_cast<const T*>(static_cast<const char*>(state) + std::ptrdiff_t{32} * units);
  }
};

template <class T> inline StatePart<T> partOf(BlockPlan& plan, long long count)
{
  const BlockPart<T> part = plan.add<T>(count);
  if (part.offset / 32 > INT32_MAX) plan.add<char>(-1); // there is no such state
  return {static_cast<Zor32u>(part.offset / 32)};
}

// ---- Numbers up to a threshold count as zero; a NaN does too ----

inline bool isAbove(double x, double threshold) { return std::fabs(x) > threshold; }

struct ZeroUpTo {
  Vec<Zor32f> threshold;
  Vec<Zor32f> operator()(Vec<Zor32f> x) const { return x & greater(abs(x), threshold); }
};

// ---- Margins ----

class Margin {
public:
  explicit Margin(int kernelSize) : kernelSize_(kernelSize) {}

  int anchor() const { return (kernelSize_ - 1) / 2; }
  int before() const { return kernelSize_ - 1 - anchor(); } // samples in front of the region
  int extended(int side) const { return side + kernelSize_ - 1; }
  long long weights() const { return (before() + 1LL) * (before() + 1LL); }

  // The table of weights; sums has room for before() + 1 numbers. A total that counts as zero divides by 1.
  void fill(const Zor32f* kernel, Zor32f threshold, Zor32f* table, Zor64f* sums) const
  {
    const std::ptrdiff_t side = before() + 1;
    const Zor32f* const corner = kernel + (std::ptrdiff_t{anchor()} * kernelSize_ + anchor());
    const auto tap = [&](std::ptrdiff_t v, std::ptrdiff_t u) {
      return static_cast<Zor64f>(corner[v * kernelSize_ + u]);
    };
    Zor64f total = 0;
    for (std::ptrdiff_t u = 0; u < side; ++u) sums[u] = 0;
    for (std::ptrdiff_t v = 0; v < side; ++v)
      for (std::ptrdiff_t u = 0; u < side; ++u) total += tap(v, u);
    if (!isAbove(total, static_cast<Zor64f>(threshold))) total = 1;
    for (std::ptrdiff_t v = side - 1; v >= 0; --v) {
      Zor64f ofRow = 0;
      for (std::ptrdiff_t u = side - 1; u >= 0; --u) {
        ofRow += tap(v, u);
        sums[u] += ofRow;
        table[v * side + u] = static_cast<Zor32f>(sums[u] / total);
      }
    }
  }

  // Row y of the work image, of extended(roi.width) samples, of one channel of the region.
  template <int channelCount>
  void makeRow(const Zor32f* table, Rows<const Zor32f> src, int channel, ZorImgSize roi, int y, Zor32f* to) const
  {
    const int inside = y - before(), nearest = inside < 0 ? 0 : inside < roi.height ? inside : roi.height - 1;
    const int dy = inside < nearest ? nearest - inside : inside - nearest;
    const Zor32f *const weight = table + std::ptrdiff_t{dy} * (before() + 1), *const row = src[nearest] + channel;
    Zor32f* const middle = to + before();
    if constexpr (channelCount == 1) std::memcpy(middle, row, static_cast<std::size_t>(roi.width) * sizeof(Zor32f));
    else
      for (std::ptrdiff_t x = 0; x < roi.width; ++x) middle[x] = get<Zor32f>(row + x * channelCount);
    const Zor32f first = middle[0], last = middle[roi.width - 1];
    for (int dx = 1; dx <= before(); ++dx) middle[-dx] = first * weight[dx];
    for (int dx = 1; dx <= anchor(); ++dx) middle[roi.width - 1 + std::ptrdiff_t{dx}] = last * weight[dx];
    if (dy == 0) return;
    for (std::ptrdiff_t x = 0; x < roi.width; ++x) middle[x] *= weight[0];
  }

private:
  int kernelSize_;
};

// Samples to one channel of a row, those up to the threshold as 0. The samples are overwritten where the row has more
// channels.
template <int channelCount>
inline void putRow(Zor32f* samples, Zor32f threshold, Zor32f* dst, int channel, std::ptrdiff_t width)
{
  const ZeroUpTo op{splat(threshold)};
  if constexpr (channelCount == 1) mapRow(dst, width, op, static_cast<const Zor32f*>(samples));
  else {
    mapRow(samples, width, op, static_cast<const Zor32f*>(samples));
    for (std::ptrdiff_t x = 0; x < width; ++x) put(dst + x * channelCount + channel, samples[x]);
  }
}

// ---- Checks of the calls: a row holds the region, and whole numbers of floats ----

template <int channelCount> inline ZorStatus rowsHold(ZorImgSize roi, int srcStep, int dstStep)
{
  const long long bytes = 4LL * channelCount * roi.width;
  if (srcStep < bytes || dstStep < bytes) return ZorErrStep;
  return require(srcStep % 4 == 0 && dstStep % 4 == 0, ZorErrDeconvParam);
}

} // namespace deconvolution
} // namespace zori
