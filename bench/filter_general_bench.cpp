// Benchmarks of filters with the caller's kernel.
#include "harness.h"
#include "zori/filter.h"

#include <vector>

using bench::Image;
using bench::Run;

namespace {

// The pixel that a kernel's first element meets lies half a kernel into the image.
template <class K> struct Kernel {
  ZorImgSize size;
  std::vector<K> elements;
  explicit Kernel(ZorImgSize s) : size(s)
  {
    for (int i = 0; i < s.width * s.height; ++i) elements.push_back(static_cast<K>((i * 7 + 3) % 11 - 4));
    if constexpr (std::is_floating_point_v<K>)
      for (K& k : elements) k /= static_cast<K>(s.width * s.height);
  }
  ZorImgPoint anchor() const { return {size.width / 2, size.height / 2}; }
};

template <class T, class K, class F> bench::Make filter(int channels, ZorImgSize kernelSize, F function)
{
  return [=](ZorImgSize size) {
    const Kernel<K> kernel(kernelSize);
    const Image<T> src({size.width + kernelSize.width, size.height + kernelSize.height}, channels), dst(size, channels);
    const ZorImgPoint a = kernel.anchor();
    const T* const first = src.row(kernelSize.height - 1 - a.y) + (kernelSize.width - 1 - a.x) * channels;
    return Run{src.bytes(), dst.bytes(),
               [=] { return function(first, src.step, dst, dst.step, size, kernel.elements.data(), kernelSize, a); }};
  };
}

#define PARAMETERS                                                                                                     \
  auto src, int srcStep, auto dst, int dstStep, ZorImgSize roi, auto kernel, ZorImgSize size, ZorImgPoint anchor
#define INTEGERS(name, divisor)                                                                                        \
  [](PARAMETERS) { return name(src, srcStep, dst, dstStep, roi, kernel, size, anchor, divisor); }
#define FLOATS(name) [](PARAMETERS) { return name(src, srcStep, dst, dstStep, roi, kernel, size, anchor); }
#define ROW(name, ...)                                                                                                 \
  [](PARAMETERS) { return name(src, srcStep, dst, dstStep, roi, kernel, size.width, anchor.x, ##__VA_ARGS__); }
#define COLUMN(name, ...)                                                                                              \
  [](PARAMETERS) { return name(src, srcStep, dst, dstStep, roi, kernel, size.height, anchor.y, ##__VA_ARGS__); }

} // namespace

static const bench::Group generalKernels("filter", [](bench::Group& g) {
  g.both("Filter 8u C1 3x3", filter<Zor8u, Zor32s>(1, {3, 3}, INTEGERS(zoriFilter_8u_C1R, 16)));
  g.both("Filter 8u C1 5x5", filter<Zor8u, Zor32s>(1, {5, 5}, INTEGERS(zoriFilter_8u_C1R, 25)));
  g.both("Filter 8u C1 11x11", filter<Zor8u, Zor32s>(1, {11, 11}, INTEGERS(zoriFilter_8u_C1R, 121)));
  g.both("Filter 8u C4 5x5", filter<Zor8u, Zor32s>(4, {5, 5}, INTEGERS(zoriFilter_8u_C4R, 25)));
  g.both("Filter 16s C1 3x3", filter<Zor16s, Zor32s>(1, {3, 3}, INTEGERS(zoriFilter_16s_C1R, 16)));
  g.both("Filter 16u C1 5x5", filter<Zor16u, Zor32s>(1, {5, 5}, INTEGERS(zoriFilter_16u_C1R, 25)));
  g.both("Filter 32f C1 3x3", filter<Zor32f, Zor32f>(1, {3, 3}, FLOATS(zoriFilter_32f_C1R)));
  g.both("Filter 32f C1 5x5", filter<Zor32f, Zor32f>(1, {5, 5}, FLOATS(zoriFilter_32f_C1R)));
  g.both("Filter 32f C1 11x11", filter<Zor32f, Zor32f>(1, {11, 11}, FLOATS(zoriFilter_32f_C1R)));
  g.both("Filter 64f C1 5x5", filter<Zor64f, Zor64f>(1, {5, 5}, FLOATS(zoriFilter_64f_C1R)));
  g.both("Filter32f 8u C3 5x5", filter<Zor8u, Zor32f>(3, {5, 5}, FLOATS(zoriFilter32f_8u_C3R)));
  g.both("Filter_Round16s 8u C1 5x5", [](ZorImgSize image) {
    static std::vector<Zor8u> buffer(1 << 20);
    return filter<Zor8u, Zor32s>(1, {5, 5}, [](PARAMETERS) {
      return zoriFilter_Round16s_8u_C1R(src, srcStep, dst, dstStep, roi, kernel, size, anchor, 25, ZorRoundNearestAway,
                                        buffer.data());
    })(image);
  });
  g.both("FilterRow 8u C1 9", filter<Zor8u, Zor32s>(1, {9, 1}, ROW(zoriFilterRow_8u_C1R, 9)));
  g.both("FilterColumn 8u C1 9", filter<Zor8u, Zor32s>(1, {1, 9}, COLUMN(zoriFilterColumn_8u_C1R, 9)));
  g.both("FilterRow 16s C1 9", filter<Zor16s, Zor32s>(1, {9, 1}, ROW(zoriFilterRow_16s_C1R, 9)));
  g.both("FilterRow 32f C1 9", filter<Zor32f, Zor32f>(1, {9, 1}, ROW(zoriFilterRow_32f_C1R)));
  g.both("FilterColumn 32f C1 9", filter<Zor32f, Zor32f>(1, {1, 9}, COLUMN(zoriFilterColumn_32f_C1R)));
  g.both("FilterRow+FilterColumn 32f C1 9", [](ZorImgSize size) {
    const Kernel<Zor32f> kernel({9, 1});
    const Image<Zor32f> src({size.width + 8, size.height + 8}), between({size.width, size.height + 8}), dst(size);
    return Run{src.bytes() + between.bytes(), between.bytes() + dst.bytes(), [=] {
                 const Zor32f* const k = kernel.elements.data();
                 zoriFilterRow_32f_C1R(src.row(0) + 4, src.step, between, between.step, between.size, k, 9, 4);
                 return zoriFilterColumn_32f_C1R(between.row(4), between.step, dst, dst.step, size, k, 9, 4);
               }};
  });
});
#undef COLUMN
#undef ROW
#undef FLOATS
#undef INTEGERS
#undef PARAMETERS
