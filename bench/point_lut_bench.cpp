// Benchmarks of lookup tables and palettes.
#include "harness.h"
#include "zori/point.h"

#include <vector>

using bench::Image;
using bench::Run;

namespace {

// A tone curve of n nodes over [0, range).
template <class N> struct ToneCurve {
  std::vector<N> levels, values;
  ToneCurve(int n, int range)
  {
    for (int k = 0; k < n; ++k) {
      const double x = double(k) / (n - 1);
      levels.push_back(static_cast<N>(x * range));
      values.push_back(static_cast<N>(x * (2 - x) * (range - 1)));
    }
  }
  int count() const { return static_cast<int>(levels.size()); }
};

// One curve through the one-channel form and the forms that take arrays of curves.
template <class T, class N>
void curve(bench::Group& g, const char* name, ToneCurve<N> f,
           ZorStatus (*function)(const T*, int, T*, int, ZorImgSize, const N*, const N*, int))
{
  g.both(name, [=](ZorImgSize size) {
    const Image<T> src(size), dst(size);
    return Run{src.bytes(), dst.bytes(), [=] {
                 return function(src, src.step, dst, dst.step, size, f.values.data(), f.levels.data(), f.count());
               }};
  });
}
template <class T, class N>
void curves(bench::Group& g, const char* name, int channels, ToneCurve<N> f,
            ZorStatus (*function)(const T*, int, T*, int, ZorImgSize, const N* const*, const N* const*, const int*))
{
  g.both(name, [=](ZorImgSize size) {
    const Image<T> src(size, channels), dst(size, channels);
    return Run{src.bytes(), dst.bytes(), [=] {
                 const N *values[4], *levels[4];
                 int n[4];
                 for (int c = 0; c < 4; ++c) values[c] = f.values.data(), levels[c] = f.levels.data(), n[c] = f.count();
                 return function(src, src.step, dst, dst.step, size, values, levels, n);
               }};
  });
}

template <class T, class D>
void palette(bench::Group& g, const char* name, int bits, int bytesOfAnEntry,
             ZorStatus (*function)(const T*, int, D*, int, ZorImgSize, const D*, int))
{
  g.both(name, [=](ZorImgSize size) {
    const int perPixel = bytesOfAnEntry / static_cast<int>(sizeof(D));
    const Image<T> src(size);
    const Image<D> dst(size, perPixel), table({1 << bits, 1}, perPixel);
    return Run{src.bytes(), dst.bytes(), [=] { return function(src, src.step, dst, dst.step, size, table, bits); }};
  });
}

// A table a channel.
template <class T, class F>
void palettes(bench::Group& g, const char* name, int bits, int srcChannels, int dstChannels, F function)
{
  g.both(name, [=](ZorImgSize size) {
    const Image<T> src(size, srcChannels), dst(size, dstChannels), table({1 << bits, 3});
    return Run{src.bytes(), dst.bytes(), [=] {
                 const T* const tables[3] = {table.row(0), table.row(1), table.row(2)};
                 return function(src, src.step, dst, dst.step, size, tables, bits);
               }};
  });
}

} // namespace

static const bench::Group lut("point", [](bench::Group& g) {
  const ToneCurve<Zor32s> bytes(9, 256), words(9, 65536);
  g.both("LUT_Linear 8u C1", [](ZorImgSize size) {
    static const Zor32s levels[2] = {0, 256}, values[2] = {255, -1};
    const Image<Zor8u> src(size), dst(size);
    return Run{src.bytes(), dst.bytes(),
               [=] { return zoriLUT_Linear_8u_C1R(src, src.step, dst, dst.step, size, values, levels, 2); },
               [=] {
                 Zor8u map[256];
                 for (int x = 0; x < 256; ++x) map[x] = static_cast<Zor8u>(255 - x);
                 bench::naiveMap([&](Zor8u x) { return map[x]; }, dst, src);
               }};
  });
  curve(g, "LUT 8u C1", bytes, zoriLUT_8u_C1R);
  curve(g, "LUT_Cubic 8u C1", bytes, zoriLUT_Cubic_8u_C1R);
  curves(g, "LUT 8u C3", 3, bytes, zoriLUT_8u_C3R);
  curves(g, "LUT_Linear 8u C3", 3, bytes, zoriLUT_Linear_8u_C3R);
  curves(g, "LUT 8u C4", 4, bytes, zoriLUT_8u_C4R);
  curves(g, "LUT 8u AC4", 4, bytes, zoriLUT_8u_AC4R);
  curve(g, "LUT 16u C1", words, zoriLUT_16u_C1R);
  curve(g, "LUT_Linear 16u C1", words, zoriLUT_Linear_16u_C1R);
  curve(g, "LUT_Cubic 16u C1", words, zoriLUT_Cubic_16u_C1R);
  curves(g, "LUT 16u C3", 3, words, zoriLUT_16u_C3R);
  curve(g, "LUT_Linear 16s C1", words, zoriLUT_Linear_16s_C1R);
  for (int n : {4, 9, 257}) {
    const ToneCurve<Zor32f> f(n, 256);
    const std::string nodes = " " + std::to_string(n) + " nodes";
    curve(g, ("LUT 32f C1" + nodes).c_str(), f, zoriLUT_32f_C1R);
    curve(g, ("LUT_Linear 32f C1" + nodes).c_str(), f, zoriLUT_Linear_32f_C1R);
    curve(g, ("LUT_Cubic 32f C1" + nodes).c_str(), f, zoriLUT_Cubic_32f_C1R);
    curves(g, ("LUT_Linear 32f C3" + nodes).c_str(), 3, f, zoriLUT_Linear_32f_C3R);
  }
  palette(g, "LUTPalette 8u C1", 8, 1, zoriLUTPalette_8u_C1R);
  palette(g, "LUTPalette 8u C1 7 bits", 7, 1, zoriLUTPalette_8u_C1R);
  palette(g, "LUTPalette 8u24u C1", 8, 3, zoriLUTPalette_8u24u_C1R);
  palette(g, "LUTPalette 8u32u C1", 8, 4, zoriLUTPalette_8u32u_C1R);
  palette(g, "LUTPalette 16u C1", 12, 2, zoriLUTPalette_16u_C1R);
  palette(g, "LUTPalette 16u8u C1", 12, 1, zoriLUTPalette_16u8u_C1R);
  palette(g, "LUTPalette 16u24u C1", 12, 3, zoriLUTPalette_16u24u_C1R);
  palette(g, "LUTPalette 16u32u C1", 12, 4, zoriLUTPalette_16u32u_C1R);
  palettes<Zor8u>(g, "LUTPalette 8u C3", 8, 3, 3, zoriLUTPalette_8u_C3R);
  palettes<Zor16u>(g, "LUTPalette 16u C3", 12, 3, 3, zoriLUTPalette_16u_C3R);
  palettes<Zor8u>(g, "LUTPalette 8u AC4", 8, 4, 4, zoriLUTPalette_8u_AC4R);
  palettes<Zor8u>(
    g, "LUTPalette 8u C3A0C4", 8, 3, 4,
    [](const Zor8u* src, int srcStep, Zor8u* dst, int dstStep, ZorImgSize size, const Zor8u* const* tables, int bits) {
      return zoriLUTPalette_8u_C3A0C4R(src, srcStep, 255, dst, dstStep, size, tables, bits);
    });
});
