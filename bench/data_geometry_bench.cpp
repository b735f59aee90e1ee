// Benchmarks of transposition, mirrors and borders.
#include "harness.h"
#include "zori/data.h"

#include <string>

using namespace bench;

namespace {

template <class T> T* at(const Image<T>& image, int x, int y) { return image.row(y) + x * image.channels; }

template <class T> void movePixel(const Image<T>& dst, int x, int y, const Image<T>& src, int fromX, int fromY)
{
  for (int k = 0; k < src.channels; ++k) at(dst, x, y)[k] = at(src, fromX, fromY)[k];
}

template <class T>
void transpose(Group& g, const std::string& name, ZorStatus (*function)(const T*, int, T*, int, ZorImgSize),
               int channels)
{
  const Make make = [=](ZorImgSize size) {
    const Image<T> src(size, channels), dst({size.height, size.width}, channels);
    return Run{src.bytes(), dst.bytes(), [=] { return function(src, src.step, dst, dst.step, size); },
               [=] {
                 for (int y = 0; y < size.height; ++y)
                   for (int x = 0; x < size.width; ++x) movePixel(dst, y, x, src, x, y);
               }};
  };
  g.both("Transpose " + name, make);
  g.at("Transpose " + name + " 4096", {4096, 4096}, make);
}

template <class T>
void transposeInPlace(Group& g, const std::string& name, ZorStatus (*function)(T*, int, ZorImgSize), int channels)
{
  const Make make = [=](ZorImgSize size) {
    const Image<T> image(size, channels);
    return Run{image.bytes(), image.bytes(), [=] { return function(image, image.step, size); }};
  };
  g.at("Transpose " + name + " in place 256", {256, 256}, make);
  g.at("Transpose " + name + " in place 1440", {1440, 1440}, make);
}

template <class T>
void mirror(Group& g, const std::string& name, ZorStatus (*function)(const T*, int, T*, int, ZorImgSize, ZorAxis),
            int channels, ZorAxis axis)
{
  g.both("Mirror " + name, [=](ZorImgSize size) {
    const Image<T> src(size, channels), dst(size, channels);
    return Run{src.bytes(), dst.bytes(), [=] { return function(src, src.step, dst, dst.step, size, axis); },
               [=] {
                 for (int y = 0; y < size.height; ++y)
                   for (int x = 0; x < size.width; ++x)
                     movePixel(dst, axis == ZorAxsHorizontal ? x : size.width - 1 - x,
                               axis == ZorAxsVertical ? y : size.height - 1 - y, src, x, y);
               }};
  });
}

template <class T>
void mirrorInPlace(Group& g, const std::string& name, ZorStatus (*function)(T*, int, ZorImgSize, ZorAxis), int channels,
                   ZorAxis axis)
{
  g.both("Mirror " + name + " in place", [=](ZorImgSize size) {
    const Image<T> image(size, channels);
    return Run{image.bytes(), image.bytes(), [=] { return function(image, image.step, size, axis); }};
  });
}

// A frame of 16 pixels on all sides. The naive form takes coordinates of the destination back into the source, or gives
// the constant's pixel for those outside.
constexpr int margin = 16;

template <class T, class Back, class... E, class... V>
void border(Group& g, const std::string& name,
            ZorStatus (*function)(const T*, int, ZorImgSize, T*, int, ZorImgSize, int, int, E...), int channels,
            Back back, V... value)
{
  g.both(name, [=](ZorImgSize size) {
    const ZorImgSize outer = {size.width + 2 * margin, size.height + 2 * margin};
    const Image<T> src(size, channels), dst(outer, channels);
    return Run{src.bytes(), dst.bytes(),
               [=] { return function(src, src.step, size, dst, dst.step, outer, margin, margin, value...); },
               [=] {
                 for (int y = 0; y < outer.height; ++y)
                   for (int x = 0; x < outer.width; ++x) {
                     const int fromX = back(x - margin, size.width), fromY = back(y - margin, size.height);
                     if (fromX >= 0 && fromY >= 0) movePixel(dst, x, y, src, fromX, fromY);
                     else
                       for (int k = 0; k < channels; ++k) at(dst, x, y)[k] = T(k);
                   }
               }};
  });
}

} // namespace

static const Group transposes("data", [](Group& g) {
  transpose(g, "8u C1", zoriTranspose_8u_C1R, 1);
  transpose(g, "8u C3", zoriTranspose_8u_C3R, 3);
  transpose(g, "8u C4", zoriTranspose_8u_C4R, 4);
  transpose(g, "16s C1", zoriTranspose_16s_C1R, 1);
  transpose(g, "16s C3", zoriTranspose_16s_C3R, 3);
  transpose(g, "32s C1", zoriTranspose_32s_C1R, 1);
  transpose(g, "32s C3", zoriTranspose_32s_C3R, 3);
  transpose(g, "32s C4", zoriTranspose_32s_C4R, 4);
  transposeInPlace(g, "8u C1", zoriTranspose_8u_C1IR, 1);
  transposeInPlace(g, "8u C3", zoriTranspose_8u_C3IR, 3);
  transposeInPlace(g, "32s C1", zoriTranspose_32s_C1IR, 1);
});

static const Group mirrors("data", [](Group& g) {
  mirror(g, "8u C1 rows", zoriMirror_8u_C1R, 1, ZorAxsHorizontal);
  mirror(g, "8u C1 columns", zoriMirror_8u_C1R, 1, ZorAxsVertical);
  mirror(g, "8u C3 columns", zoriMirror_8u_C3R, 3, ZorAxsVertical);
  mirror(g, "8u C4 columns", zoriMirror_8u_C4R, 4, ZorAxsVertical);
  mirror(g, "8u AC4 columns", zoriMirror_8u_AC4R, 4, ZorAxsVertical);
  mirror(g, "16s C1 columns", zoriMirror_16s_C1R, 1, ZorAxsVertical);
  mirror(g, "16s C3 columns", zoriMirror_16s_C3R, 3, ZorAxsVertical);
  mirror(g, "32s C1 both", zoriMirror_32s_C1R, 1, ZorAxsBoth);
  mirror(g, "32f C3 both", zoriMirror_32f_C3R, 3, ZorAxsBoth);
  mirrorInPlace(g, "8u C1 rows", zoriMirror_8u_C1IR, 1, ZorAxsHorizontal);
  mirrorInPlace(g, "8u C1 columns", zoriMirror_8u_C1IR, 1, ZorAxsVertical);
  mirrorInPlace(g, "8u C3 both", zoriMirror_8u_C3IR, 3, ZorAxsBoth);
});

static const Group borders("data", [](Group& g) {
  const auto clamped = [](int i, int n) { return i < 0 ? 0 : i < n ? i : n - 1; };
  const auto outside = [](int i, int n) { return i < n ? i : -1; };
  const auto wrapped = [](int i, int n) { return i < 0 ? i + n : i < n ? i : i - n; };
  static const Zor8u constant[] = {0, 1, 2, 3};
  border(g, "CopyReplicateBorder 8u C1 16", zoriCopyReplicateBorder_8u_C1R, 1, clamped);
  border(g, "CopyReplicateBorder 8u C3 16", zoriCopyReplicateBorder_8u_C3R, 3, clamped);
  border(g, "CopyReplicateBorder 8u AC4 16", zoriCopyReplicateBorder_8u_AC4R, 4, clamped);
  border(g, "CopyConstBorder 8u C1 16", zoriCopyConstBorder_8u_C1R, 1, outside, Zor8u(0));
  border(g, "CopyConstBorder 8u C3 16", zoriCopyConstBorder_8u_C3R, 3, outside, static_cast<const Zor8u*>(constant));
  border(g, "CopyConstBorder 8u AC4 16", zoriCopyConstBorder_8u_AC4R, 4, outside, static_cast<const Zor8u*>(constant));
  border(g, "CopyWrapBorder 32s C1 16", zoriCopyWrapBorder_32s_C1R, 1, wrapped);
});
