// Benchmarks of medians and morphology.
#include "harness.h"
#include "zori/filter.h"

#include <algorithm>
#include <vector>

using bench::Framed;
using bench::Run;

namespace {

// The naive loop: value(window) of the samples of the mask's rectangle.
template <class T, class Value> void naiveRank(const Framed<T>& f, int width, int height, Value value)
{
  std::vector<T> window(static_cast<std::size_t>(width * height));
  for (int y = 0; y < f.dst.size.height; ++y)
    for (int i = 0; i < f.dst.rowLength(); ++i) {
      auto to = window.begin();
      for (int j = 0; j < height; ++j)
        for (int k = 0; k < width; ++k) *to++ = f.at(k - width / 2, y + j - height / 2)[i];
      f.dst.row(y)[i] = value(window);
    }
}

template <class T> T middle(std::vector<T>& window)
{
  const auto at = window.begin() + static_cast<std::ptrdiff_t>(window.size() / 2);
  std::nth_element(window.begin(), at, window.end());
  return *at;
}
template <class T> T greatest(std::vector<T>& window) { return *std::max_element(window.begin(), window.end()); }
template <class T> T least(std::vector<T>& window) { return *std::min_element(window.begin(), window.end()); }

// Functions that take the arguments behind the region.
template <class T, class F, class Value, class... A>
bench::Make around(F function, int channels, int width, int height, Value value, A... arguments)
{
  return [=](ZorImgSize size) {
    const Framed<T> f(size, channels);
    return Run{f.dst.bytes(), f.dst.bytes(),
               [=] { return function(f.src(), f.image.step, f.dst, f.dst.step, size, arguments...); },
               [=] { naiveRank(f, width, height, value); }};
  };
}

template <class T>
bench::Make median(ZorStatus (*f)(const T*, int, T*, int, ZorImgSize, ZorImgSize, ZorImgPoint), int channels, int width,
                   int height)
{
  return around<T>(f, channels, width, height, middle<T>, ZorImgSize{width, height},
                   ZorImgPoint{width / 2, height / 2});
}
template <class T>
bench::Make maximum(ZorStatus (*f)(const T*, int, T*, int, ZorImgSize, ZorImgSize, ZorImgPoint), int channels, int side)
{
  return around<T>(f, channels, side, side, greatest<T>, ZorImgSize{side, side}, ZorImgPoint{side / 2, side / 2});
}

// A picture without noise: a slow slope, on which neighbouring medians hardly differ.
bench::Make smoothMedian(int side)
{
  return [=](ZorImgSize size) {
    const Framed<Zor8u> f(size, 1);
    for (int y = 0; y < f.image.size.height; ++y)
      for (int x = 0; x < f.image.size.width; ++x)
        f.image.row(y)[x] =
          static_cast<Zor8u>((x + y) * 200 / (f.image.size.width + f.image.size.height) + (x * y & 1));
    return Run{f.dst.bytes(), f.dst.bytes(),
               [=] {
                 return zoriFilterMedian_8u_C1R(f.src(), f.image.step, f.dst, f.dst.step, size, {side, side},
                                                {side / 2, side / 2});
               },
               [=] { naiveRank(f, side, side, middle<Zor8u>); }};
  };
}

template <class T> bench::Make inPlace(ZorStatus (*f)(T*, int, ZorImgSize), int channels)
{
  return [=](ZorImgSize size) {
    const Framed<T> frame(size, channels);
    return Run{frame.dst.bytes(), frame.dst.bytes(),
               [=] { return f(const_cast<T*>(frame.src()), frame.image.step, size); }};
  };
}

constexpr Zor8u disc[25] = {0, 1, 1, 1, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 1, 1, 1, 0};
constexpr Zor8u ellipse[25] = {0, 0, 1, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 0, 1, 0, 0};
bench::Make dilation(const Zor8u* mask)
{
  return [=](ZorImgSize size) {
    const Framed<Zor8u> f(size, 1);
    return Run{f.dst.bytes(), f.dst.bytes(), [=] {
                 return zoriDilate_8u_C1R(f.src(), f.image.step, f.dst, f.dst.step, size, mask, {5, 5}, {2, 2});
               }};
  };
}

} // namespace

static const bench::Group rank("rank", [](bench::Group& g) {
  g.both("Median 8u C1 3x3", median(zoriFilterMedian_8u_C1R, 1, 3, 3));
  g.both("Median 8u C3 3x3", median(zoriFilterMedian_8u_C3R, 3, 3, 3));
  g.both("Median 8u AC4 3x3", median(zoriFilterMedian_8u_AC4R, 4, 3, 3));
  g.both("Median 16s C1 3x3", median(zoriFilterMedian_16s_C1R, 1, 3, 3));
  g.both("Median 8u C1 5x5", median(zoriFilterMedian_8u_C1R, 1, 5, 5));
  g.both("Median 8u C4 5x5", median(zoriFilterMedian_8u_C4R, 4, 5, 5));
  g.both("Median 16u C1 5x5", median(zoriFilterMedian_16u_C1R, 1, 5, 5));
  g.both("Median 8u C1 7x7", median(zoriFilterMedian_8u_C1R, 1, 7, 7));
  g.both("Median 8u C1 11x11", median(zoriFilterMedian_8u_C1R, 1, 11, 11));
  g.both("Median 8u C1 15x15", median(zoriFilterMedian_8u_C1R, 1, 15, 15));
  g.both("Median 8u C1 15x15 smooth image", smoothMedian(15));
  g.both("Median 16u C1 7x5", median(zoriFilterMedian_16u_C1R, 1, 7, 5));
  g.both("Median 16u C1 15x15", median(zoriFilterMedian_16u_C1R, 1, 15, 15));
  g.both("MedianHoriz 8u C1 3", around<Zor8u>(zoriFilterMedianHoriz_8u_C1R, 1, 3, 1, middle<Zor8u>, ZorMask3x1));
  g.both("MedianColor 8u C3 3x3", around<Zor8u>(zoriFilterMedianColor_8u_C3R, 3, 3, 3, middle<Zor8u>, ZorMask3x3));
  g.both("MedianColor 8u C3 5x5", around<Zor8u>(zoriFilterMedianColor_8u_C3R, 3, 5, 5, middle<Zor8u>, ZorMask5x5));

  g.both("Erode3x3 8u C1", around<Zor8u>(zoriErode3x3_8u_C1R, 1, 3, 3, least<Zor8u>));
  g.both("Erode3x3 8u C3", around<Zor8u>(zoriErode3x3_8u_C3R, 3, 3, 3, least<Zor8u>));
  g.both("Erode3x3 8u C3 in place", inPlace(zoriErode3x3_8u_C3IR, 3));
  g.both("Erode3x3 32f C1", around<Zor32f>(zoriErode3x3_32f_C1R, 1, 3, 3, least<Zor32f>));
  g.both("Dilate 8u C1 5x5 disc", dilation(disc));
  g.both("Dilate 8u C1 5x5 ellipse", dilation(ellipse));
  g.both("FilterMax 8u C1 15x15", maximum(zoriFilterMax_8u_C1R, 1, 15));
  g.both("FilterMax 16u C1 5x5", maximum(zoriFilterMax_16u_C1R, 1, 5));
  g.both("FilterMax 8u C3 31x31", maximum(zoriFilterMax_8u_C3R, 3, 31));
});
