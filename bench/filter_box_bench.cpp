// Benchmarks of the box filter and the window sums.
#include "harness.h"
#include "zori/filter.h"

using bench::Image;
using bench::Run;

namespace {

// The image around the region: the margin of the largest mask here.
constexpr int margin = 64;

template <class T> const T* inside(const Image<T>& image) { return image.row(margin) + margin * image.channels; }
template <class T> Image<T> withMargin(ZorImgSize size, int channels)
{
  return Image<T>({size.width + 2 * margin, size.height + 2 * margin}, channels);
}

template <class T, class F> bench::Make box(F function, int channels, int width, int height)
{
  return [=](ZorImgSize size) {
    const Image<T> src = withMargin<T>(size, channels);
    const Image<T> dst(size, channels);
    return Run{dst.bytes(), dst.bytes(), [=] {
                 return function(inside(src), src.step, dst, dst.step, size, ZorImgSize{width, height},
                                 ZorImgPoint{width / 2, height / 2});
               }};
  };
}
template <class T, class F> bench::Make boxInPlace(F function, int channels, int side)
{
  return [=](ZorImgSize size) {
    const Image<T> image = withMargin<T>(size, channels);
    const double bytes = double(sizeof(T)) * size.width * size.height * channels;
    return Run{bytes, bytes, [=] {
                 return function(const_cast<T*>(inside(image)), image.step, size, ZorImgSize{side, side},
                                 ZorImgPoint{side / 2, side / 2});
               }};
  };
}
template <class T, class F> bench::Make windowSum(F function, int channels, int mask)
{
  return [=](ZorImgSize size) {
    const Image<T> src = withMargin<T>(size, channels);
    const Image<Zor32f> dst(size, channels);
    return Run{dst.bytes() * sizeof(T) / sizeof(Zor32f), dst.bytes(),
               [=] { return function(inside(src), src.step, dst, dst.step, size, mask, mask / 2); }};
  };
}

} // namespace

static const bench::Group filterBox("filter", [](bench::Group& g) {
  g.both("Box 8u C1 3x3", box<Zor8u>(zoriFilterBox_8u_C1R, 1, 3, 3));
  g.both("Box 8u C1 5x5", box<Zor8u>(zoriFilterBox_8u_C1R, 1, 5, 5));
  g.both("Box 8u C1 15x15", box<Zor8u>(zoriFilterBox_8u_C1R, 1, 15, 15));
  g.both("Box 8u C1 31x31", box<Zor8u>(zoriFilterBox_8u_C1R, 1, 31, 31));
  g.both("Box 8u C1 101x101", box<Zor8u>(zoriFilterBox_8u_C1R, 1, 101, 101));
  g.both("Box 8u C3 5x5", box<Zor8u>(zoriFilterBox_8u_C3R, 3, 5, 5));
  g.both("Box 8u C3 15x15", box<Zor8u>(zoriFilterBox_8u_C3R, 3, 15, 15));
  g.both("Box 8u C4 3x3", box<Zor8u>(zoriFilterBox_8u_C4R, 4, 3, 3));
  g.both("Box 8u C1I 15x15", boxInPlace<Zor8u>(zoriFilterBox_8u_C1IR, 1, 15));
  g.both("Box 16u C1 3x3", box<Zor16u>(zoriFilterBox_16u_C1R, 1, 3, 3));
  g.both("Box 16u C1 15x15", box<Zor16u>(zoriFilterBox_16u_C1R, 1, 15, 15));
  g.both("Box 16s C3 5x5", box<Zor16s>(zoriFilterBox_16s_C3R, 3, 5, 5));
  g.both("Box 32f C1 3x3", box<Zor32f>(zoriFilterBox_32f_C1R, 1, 3, 3));
  g.both("Box 32f C1 5x5", box<Zor32f>(zoriFilterBox_32f_C1R, 1, 5, 5));
  g.both("Box 32f C1 15x15", box<Zor32f>(zoriFilterBox_32f_C1R, 1, 15, 15));
  g.both("Box 32f C4 3x3", box<Zor32f>(zoriFilterBox_32f_C4R, 4, 3, 3));
  g.both("Box 32f C4 5x5", box<Zor32f>(zoriFilterBox_32f_C4R, 4, 5, 5));
  g.both("SumWindowRow 8u32f C1 15", windowSum<Zor8u>(zoriSumWindowRow_8u32f_C1R, 1, 15));
  g.both("SumWindowRow 16s32f C3 15", windowSum<Zor16s>(zoriSumWindowRow_16s32f_C3R, 3, 15));
  g.both("SumWindowColumn 8u32f C1 15", windowSum<Zor8u>(zoriSumWindowColumn_8u32f_C1R, 1, 15));
  g.both("SumWindowColumn 16u32f C3 15", windowSum<Zor16u>(zoriSumWindowColumn_16u32f_C3R, 3, 15));
});
