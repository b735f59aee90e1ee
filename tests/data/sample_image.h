// Images of samples of any width for tests of functions that move samples without looking at them.
#pragma once

#include "support/numbers.h"
#include "zori/types.h"

#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace zoritest {

// Planes of interleaved channels in one block of bytes, filled from a seed, with a border that is compared too.
struct SampleImage {
  static constexpr int border = 40;

  int planes, channels, sampleBytes, width, height, step, origin;
  std::vector<Zor8u> bytes;

  SampleImage(int planes_, int channels_, int sampleBytes_, ZorImgSize roi, int padding, int offset, unsigned seed)
    : planes(planes_), channels(channels_), sampleBytes(sampleBytes_), width(roi.width), height(roi.height),
      step(width * channels * sampleBytes + padding), origin(border + offset),
      bytes(static_cast<size_t>(planes) * planeBytes())
  {
    for (Zor8u& b : bytes) b = static_cast<Zor8u>(zoritest::nextNoise(seed) >> 24);
  }
  int planeBytes() const { return step * height + 2 * border + 16; }
  Zor8u* at(int plane, int y, int x, int channel)
  {
    return bytes.data() + plane * planeBytes() + origin + y * step + (x * channels + channel) * sampleBytes;
  }
  // Channel k of pixel (x, y), be it interleaved or a plane.
  Zor8u* sample(int y, int x, int k) { return planes > 1 ? at(k, y, x, 0) : at(0, y, x, k); }
};

// What a call gets. Pointers address the first pixel, or its channels srcChannel and dstChannel.
struct Operands {
  SampleImage &src, &dst;
  const Zor8u* mask;
  int maskStep;
  ZorImgSize roi;
  int srcChannel = 0, dstChannel = 0;
};
using Call = std::function<ZorStatus(const Operands&)>;

template <class T> T* first(SampleImage& image, int channel = 0)
{
  return reinterpret_cast<T*>(image.at(0, 0, 0, channel));
}
template <class P> struct PlaneArray {
  P plane[4] = {};
  explicit PlaneArray(SampleImage& image)
  {
    for (int k = 0; k < image.planes; ++k) plane[k] = reinterpret_cast<P>(image.at(k, 0, 0, 0));
  }
};

template <class T> Call call(ZorStatus (*f)(const T*, int, T*, int, ZorImgSize))
{
  return [f](const Operands& o) {
    return f(first<T>(o.src, o.srcChannel), o.src.step, first<T>(o.dst, o.dstChannel), o.dst.step, o.roi);
  };
}
template <class T> Call call(ZorStatus (*f)(const T*, int, T* const*, int, ZorImgSize))
{
  return [f](const Operands& o) {
    return f(first<T>(o.src, 0), o.src.step, PlaneArray<T*>(o.dst).plane, o.dst.step, o.roi);
  };
}
template <class T> Call call(ZorStatus (*f)(const T* const*, int, T*, int, ZorImgSize))
{
  return [f](const Operands& o) {
    return f(PlaneArray<const T*>(o.src).plane, o.src.step, first<T>(o.dst, 0), o.dst.step, o.roi);
  };
}
template <class T> Call call(ZorStatus (*f)(const T*, int, T*, int, ZorImgSize, const Zor8u*, int))
{
  return [f](const Operands& o) {
    return f(first<T>(o.src, 0), o.src.step, first<T>(o.dst, 0), o.dst.step, o.roi, o.mask, o.maskStep);
  };
}

// The oracle: channel k of dst is channel from[k] of src where that is not negative, in the pixels that the mask
// selects.
inline void moveSamples(SampleImage& src, SampleImage& dst, const std::vector<int>& from, const Zor8u* mask,
                        int maskStep)
{
  const SampleImage before = src; // src may be dst
  for (int y = 0; y < dst.height; ++y)
    for (int x = 0; x < dst.width; ++x)
      for (size_t k = 0; k < from.size(); ++k)
        if (from[k] >= 0 && (!mask || mask[y * maskStep + x])) {
          const auto at = src.sample(y, x, from[k]) - src.bytes.data();
          const auto bytes = static_cast<size_t>(dst.sampleBytes);
          std::memcpy(dst.sample(y, x, static_cast<int>(k)), before.bytes.data() + at, bytes);
        }
}

// Widths around the block sizes of the kernels.
inline std::vector<int> testWidths()
{
  std::vector<int> widths;
  for (int w = 1; w <= 36; ++w) widths.push_back(w);
  for (int w : {47, 48, 49, 63, 64, 65, 96, 97, 113, 300}) widths.push_back(w);
  return widths;
}

} // namespace zoritest
