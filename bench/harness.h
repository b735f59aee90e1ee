// The benchmark harness: a case is a name, images, the call, and what the call is held against.
//
//   static const bench::Group group("data", [](bench::Group& g) {
//     g.map("Convert 8u32f C1", zoriConvert_8u32f_C1R, 1, [](Zor8u x) { return Zor32f(x); });
//     g.both("Set 8u C1", [](ZorImgSize size) {
//       Image<Zor8u> dst(size);
//       return Run{0, dst.bytes(), [=] { return zoriSet_8u_C1R(7, dst, dst.step, size); }};
//     });
//   });
//
// The first word of a name is the case's family. A name that stands in yardsticks.tsv is compared with that table.
#pragma once

#include "zori/types.h"

#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>

namespace bench {

// Memory of a case, on a page boundary and filled with noise.
std::shared_ptr<void> noise(std::size_t bytes);

// An image as zoriMalloc lays it out. Float samples are noise in [0, 256), other samples noise over their range. Copies
// share the pixels.
template <class T> struct Image {
  explicit Image(ZorImgSize s, int channelCount = 1)
    : size(s), channels(channelCount), step((s.width * channelCount * static_cast<int>(sizeof(T)) + 31) / 32 * 32),
      memory(noise(static_cast<std::size_t>(step) * s.height)), data(static_cast<T*>(memory.get()))
  {
    using Sample = std::conditional_t<std::is_same_v<T, Zor32fc>, Zor32f, T>;
    char* const p = static_cast<char*>(memory.get());
    if constexpr (std::is_floating_point_v<Sample>)
      for (std::size_t i = 0; i < std::size_t(step) * s.height; i += sizeof(Sample))
        *reinterpret_cast<Sample*>(p + i) = static_cast<unsigned char>(p[i]) + Sample(0.375);
  }

  operator T*() const { return data; }
  T* row(int y) const { return reinterpret_cast<T*>(reinterpret_cast<char*>(data) + std::ptrdiff_t{step} * y); }
  int rowLength() const { return size.width * channels; }
  double bytes() const { return double(sizeof(T)) * rowLength() * size.height; }

  ZorImgSize size;
  int channels, step;
  std::shared_ptr<void> memory;
  T* data;
};

// The region of a filter: inside a larger image, with a margin on all sides, and its result.
template <class T> struct Framed {
  static constexpr int margin = 16;
  Framed(ZorImgSize size, int channels)
    : image({size.width + 2 * margin, size.height + 2 * margin}, channels), dst(size, channels)
  {}
  // A pixel by its place in the region; places in the margin are negative or beyond it.
  const T* at(int x, int y) const { return image.row(y + margin) + (x + margin) * image.channels; }
  const T* src() const { return at(0, 0); }
  Image<T> image, dst;
};

// What a case runs. The bytes decide the memory limit; a destination that is read first counts as written only, for a
// store fetches its cache line anyway. The peer is another library that does the same work in this process: FFTW and
// pixman are there under ZORI_BENCH_FFTW and ZORI_BENCH_PIXMAN.
struct Run {
  double bytesRead, bytesWritten;
  std::function<ZorStatus()> call;
  std::function<void()> naive = nullptr;
  std::string peerName = "";
  std::function<void()> peer = nullptr;
};
using Make = std::function<Run(ZorImgSize)>;

inline constexpr ZorImgSize large = {1920, 1080}, small = {256, 256};

// dst[i] = op(src[i]...): the naive loop of an element by element function.
template <class Op, class D, class... S> void naiveRow(int length, Op op, D* dst, const S*... src)
{
  for (int i = 0; i < length; ++i) dst[i] = op(src[i]...);
}
template <class Op, class D, class... S> void naiveMap(Op op, const Image<D>& dst, const Image<S>&... src)
{
  for (int y = 0; y < dst.size.height; ++y) naiveRow<Op, D, S...>(dst.rowLength(), op, dst.row(y), src.row(y)...);
}

class Group {
public:
  Group(const char* name, void (*addCases)(Group&)); // names as the groups of yardsticks.tsv

  // One size; both sizes, the small one as "<name> 256".
  void at(const std::string& name, ZorImgSize size, Make make);
  void both(const std::string& name, Make make)
  {
    at(name, large, make);
    at(name + " 256", small, make);
  }

  // Functions of the common shapes at both sizes: one or two sources, arguments behind the region.
  template <class S, class D, class Op, class... E, class... A>
  void map(const char* name, ZorStatus (*function)(const S*, int, D*, int, ZorImgSize, E...), int channels, Op naive,
           A... arguments)
  {
    both(name, [=](ZorImgSize size) {
      const Image<S> src(size, channels);
      const Image<D> dst(size, channels);
      return Run{src.bytes(), dst.bytes(), [=] { return function(src, src.step, dst, dst.step, size, arguments...); },
                 [=] { naiveMap(naive, dst, src); }};
    });
  }
  template <class S, class T, class D, class Op, class... E, class... A>
  void map(const char* name, ZorStatus (*function)(const S*, int, const T*, int, D*, int, ZorImgSize, E...),
           int channels, Op naive, A... arguments)
  {
    both(name, [=](ZorImgSize size) {
      const Image<S> a(size, channels);
      const Image<T> b(size, channels);
      const Image<D> dst(size, channels);
      return Run{a.bytes() + b.bytes(), dst.bytes(),
                 [=] { return function(a, a.step, b, b.step, dst, dst.step, size, arguments...); },
                 [=] { naiveMap(naive, dst, a, b); }};
    });
  }

private:
  std::string name_;
};

} // namespace bench
