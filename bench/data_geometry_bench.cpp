// Benchmarks of transposition, mirrors and borders.
#include "harness.h"
#include "zori/data.h"

#include <cstring>

using namespace bench;

namespace {

template <class T> T* at(const Image<T>& image, int x, int y) { return image.row(y) + x * image.channels; }

template <class T> void movePixel(const Image<T>& dst, int x, int y, const Image<T>& src, int fromX, int fromY)
{
  for (int k = 0; k < src.channels; ++k) at(dst, x, y)[k] = at(src, fromX, fromY)[k];
}

template <class T>
void transpose(Group& g, const std::string& name, ZorStatus (*function)(const T*, int, T*, int, ZorImgSize), int channels)
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
