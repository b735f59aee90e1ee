// Benchmarks of resizing. Of large cases the larger image has 1920x1080 pixels, of those in the cache the result
// 240x240, as the yardsticks have it.
#include "harness.h"
#include "zori/geometry.h"

#include <algorithm>
#include <string>
#include <vector>

using bench::Group;
using bench::Image;
using bench::Run;

namespace {

template <class T>
using Resize = ZorStatus (*)(const T*, ZorImgSize, int, ZorImgRect, T*, int, ZorImgSize, double, double, int);

ZorImgSize scaled(ZorImgSize size, double factor)
{
  return {static_cast<int>(size.width * factor + 1e-7), static_cast<int>(size.height * factor + 1e-7)};
}

// The naive loop: every output from its taps, two on each axis, or the mean of a block.
template <class T> void naive(const Image<T>& src, const Image<T>& dst, double factor, int interpolation)
{
  const int channels = src.channels;
  const bool isNearest = interpolation == ZORI_INTER_NN, isArea = interpolation == ZORI_INTER_SUPER;
  const double xStep = isNearest || isArea ? 1 / factor : double(src.size.width - 1) / (dst.size.width - 1);
  const double yStep = isNearest || isArea ? 1 / factor : double(src.size.height - 1) / (dst.size.height - 1);
  const int block = isArea ? static_cast<int>(1 / factor + 1e-7) : 2;
  for (int y = 0; y < dst.size.height; ++y)
    for (int x = 0; x < dst.size.width; ++x) {
      const double u = x * xStep, v = y * yStep;
      const int left = std::min(static_cast<int>(u), src.size.width - block),
                top = std::min(static_cast<int>(v), src.size.height - block);
      for (int k = 0; k < channels; ++k) {
        const auto at = [&](int i, int j) { return static_cast<float>(src.row(top + j)[(left + i) * channels + k]); };
        float value = 0;
        if (isNearest) value = at(0, 0);
        else if (isArea) {
          for (int j = 0; j < block; ++j)
            for (int i = 0; i < block; ++i) value += at(i, j);
          value /= static_cast<float>(block * block);
        } else {
          const auto f = static_cast<float>(u - left), g = static_cast<float>(v - top);
          value = (at(0, 0) * (1 - f) + at(1, 0) * f) * (1 - g) + (at(0, 1) * (1 - f) + at(1, 1) * f) * g;
        }
        dst.row(y)[x * channels + k] = static_cast<T>(value);
      }
    }
}

template <class T>
Run resize(Resize<T> function, int channels, ZorImgSize srcSize, ZorImgSize dstSize, double factor, int interpolation)
{
  const Image<T> src(srcSize, channels), dst(dstSize, channels);
  return {src.bytes(), dst.bytes(),
          [=] {
            return function(src, srcSize, src.step, {0, 0, srcSize.width, srcSize.height}, dst, dst.step, dstSize,
                            factor, factor, interpolation);
          },
          [=] { naive(src, dst, factor, interpolation); }};
}

ZorImgSize sourceFor(ZorImgSize result, double factor) { return scaled(result, 1 / factor); }

// 1920x1080 and 240x240.
template <class T>
void both(Group& g, const std::string& name, Resize<T> function, int channels, double factor, int interpolation)
{
  g.at(name, bench::large, [=](ZorImgSize larger) {
    const ZorImgSize smaller = scaled(larger, factor > 1 ? 1 / factor : factor);
    return factor > 1 ? resize<T>(function, channels, smaller, larger, factor, interpolation)
                      : resize<T>(function, channels, larger, smaller, factor, interpolation);
  });
  g.at(name + " 240", {240, 240}, [=](ZorImgSize result) {
    return resize<T>(function, channels, sourceFor(result, factor), result, factor, interpolation);
  });
}

std::shared_ptr<std::vector<Zor8u>> workMemory(ZorImgSize dstSize, int channels, int interpolation)
{
  int bytes = 0;
  zoriResizeSqrPixelGetBufSize(dstSize, channels, interpolation, &bytes);
  return std::make_shared<std::vector<Zor8u>>(static_cast<std::size_t>(bytes));
}

void square(Group& g, const std::string& name, double factor, int interpolation)
{
  const auto make = [=](ZorImgSize srcSize, ZorImgSize dstSize) {
    const Image<Zor8u> src(srcSize), dst(dstSize);
    const auto memory = workMemory(dstSize, 1, interpolation);
    return Run{src.bytes(), dst.bytes(),
               [=] {
                 return zoriResizeSqrPixel_8u_C1R(src, srcSize, src.step, {0, 0, srcSize.width, srcSize.height}, dst,
                                                  dst.step, {0, 0, dstSize.width, dstSize.height}, factor, factor, 0, 0,
                                                  interpolation, memory->data());
               },
               [=] { naive(src, dst, factor, ZORI_INTER_LINEAR); }};
  };
  g.at(name, bench::large, [=](ZorImgSize size) { return make(size, scaled(size, factor)); });
  g.at(name + " 240", {240, 240}, [=](ZorImgSize size) { return make(sourceFor(size, factor), size); });
}

} // namespace

static const Group group("resize", [](Group& g) {
  constexpr double third = 1.0 / 3, twoThirds = 2.0 / 3;
  both<Zor8u>(g, "Resize NN 8u C1 up 2", zoriResize_8u_C1R, 1, 2, ZORI_INTER_NN);
  both<Zor8u>(g, "Resize NN 8u C1 up 1.5", zoriResize_8u_C1R, 1, 1.5, ZORI_INTER_NN);
  both<Zor8u>(g, "Resize NN 8u C3 up 1.5", zoriResize_8u_C3R, 3, 1.5, ZORI_INTER_NN);
  both<Zor8u>(g, "Resize NN 8u C1 down 2/3", zoriResize_8u_C1R, 1, twoThirds, ZORI_INTER_NN);
  both<Zor32f>(g, "Resize NN 32f C1 up 1.5", zoriResize_32f_C1R, 1, 1.5, ZORI_INTER_NN);
  both<Zor8u>(g, "Resize linear 8u C1 up 2 (row kernels)", zoriResize_8u_C1R, 1, 2, ZORI_INTER_LINEAR);
  both<Zor8u>(g, "Resize linear 8u C1 down 2/3 (row kernels)", zoriResize_8u_C1R, 1, twoThirds, ZORI_INTER_LINEAR);
  both<Zor8u>(g, "Resize linear 8u C1 up 2", zoriResize_8u_C1R, 1, 2, ZORI_INTER_LINEAR);
  both<Zor8u>(g, "Resize linear 8u C1 down 2/3", zoriResize_8u_C1R, 1, twoThirds, ZORI_INTER_LINEAR);
  g.at("Resize linear 8u C1 256 to 384", {384, 384}, [](ZorImgSize size) {
    return resize<Zor8u>(zoriResize_8u_C1R, 1, {256, 256}, size, 1.5, ZORI_INTER_LINEAR);
  });
  both<Zor8u>(g, "Resize linear 8u C3 down 2/3", zoriResize_8u_C3R, 3, twoThirds, ZORI_INTER_LINEAR);
  both<Zor8u>(g, "Resize linear 8u C4 up 1.5 (row kernels)", zoriResize_8u_C4R, 4, 1.5, ZORI_INTER_LINEAR);
  both<Zor16u>(g, "Resize linear 16u C1 down 2/3", zoriResize_16u_C1R, 1, twoThirds, ZORI_INTER_LINEAR);
  both<Zor32f>(g, "Resize linear 32f C1 up 1.5", zoriResize_32f_C1R, 1, 1.5, ZORI_INTER_LINEAR);
  both<Zor8u>(g, "Resize cubic 8u C1 up 2", zoriResize_8u_C1R, 1, 2, ZORI_INTER_CUBIC);
  both<Zor8u>(g, "Resize cubic 8u C3 down 2/3", zoriResize_8u_C3R, 3, twoThirds, ZORI_INTER_CUBIC);
  both<Zor8u>(g, "Resize Lanczos 8u C1 up 2 (6 : 8 taps)", zoriResize_8u_C1R, 1, 2, ZORI_INTER_LANCZOS);
  both<Zor8u>(g, "Resize Lanczos 8u C3 down 2/3 (6 : 8)", zoriResize_8u_C3R, 3, twoThirds, ZORI_INTER_LANCZOS);
  both<Zor8u>(g, "Resize area 8u C1 down 1/2", zoriResize_8u_C1R, 1, 0.5, ZORI_INTER_SUPER);
  both<Zor8u>(g, "Resize area 8u C1 down 1/2 (row kernels)", zoriResize_8u_C1R, 1, 0.5, ZORI_INTER_SUPER);
  both<Zor8u>(g, "Resize area 8u C1 down 1/3 (row kernels)", zoriResize_8u_C1R, 1, third, ZORI_INTER_SUPER);
  both<Zor8u>(g, "Resize area 8u C3 down 1/3", zoriResize_8u_C3R, 3, third, ZORI_INTER_SUPER);
  both<Zor8u>(g, "Resize area 8u C1 down 2/3", zoriResize_8u_C1R, 1, twoThirds, ZORI_INTER_SUPER);
  both<Zor8u>(g, "Resize area 8u C3 down 2/3", zoriResize_8u_C3R, 3, twoThirds, ZORI_INTER_SUPER);
  both<Zor32f>(g, "Resize area 32f C1 down 2/3", zoriResize_32f_C1R, 1, twoThirds, ZORI_INTER_SUPER);
  both<Zor32f>(g, "Resize area 32f C1 down 1/2", zoriResize_32f_C1R, 1, 0.5, ZORI_INTER_SUPER);
  square(g, "ResizeSqrPixel linear 8u C1 down 2/3", twoThirds, ZORI_INTER_LINEAR);
  square(g, "ResizeSqrPixel cubic 8u C1 down 2/3", twoThirds, ZORI_INTER_CUBIC);

  g.both("DecimateFilterRow 8u C1 1/2", [](ZorImgSize size) {
    const Image<Zor8u> src(size), dst({size.width / 2, size.height});
    return Run{src.bytes(), dst.bytes(),
               [=] { return zoriDecimateFilterRow_8u_C1R(src, src.step, size, dst, dst.step, 1); }};
  });
  g.both("DecimateFilterColumn 8u C1 1/2", [](ZorImgSize size) {
    const Image<Zor8u> src(size), dst({size.width, size.height / 2});
    return Run{src.bytes(), dst.bytes(),
               [=] { return zoriDecimateFilterColumn_8u_C1R(src, src.step, size, dst, dst.step, 1); }};
  });
  g.both("DeinterlaceFilterCAVT 8u C1", [](ZorImgSize size) {
    const Image<Zor8u> src(size), dst(size);
    return Run{src.bytes(), dst.bytes(),
               [=] { return zoriDeinterlaceFilterCAVT_8u_C1R(src, src.step, dst, dst.step, size, 8); }};
  });
  g.both("ResampleRow 32f C1 44 to 48", [](ZorImgSize size) {
    int specBytes = 0, bufferBytes = 0;
    zoriResampleRowGetSize_32f(44, 48, &specBytes, &bufferBytes);
    const auto spec = std::make_shared<std::vector<Zor8u>>(static_cast<std::size_t>(specBytes)),
               buffer = std::make_shared<std::vector<Zor8u>>(static_cast<std::size_t>(bufferBytes));
    const auto record = reinterpret_cast<ZorResampleRowSpec*>(spec->data());
    zoriResampleRowInit_32f(record, 0, 44, 48);
    const ZorImgSize srcSize = {size.width * 44 / 48, size.height};
    const Image<Zor32f> src(srcSize), dst(size);
    return Run{src.bytes(), dst.bytes(), [=] {
                 return zoriResampleRowReplicateBorder_32f_C1R(src, src.step, srcSize, dst, dst.step, 0, size.width,
                                                               reinterpret_cast<ZorResampleRowSpec*>(spec->data()),
                                                               buffer->data());
               }};
  });
});
