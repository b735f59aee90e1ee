// Benchmarks of copies, fills, channel orders, conversions and scaling.
#include "harness.h"
#include "zori/data.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

using namespace bench;

namespace {

template <class D> D saturate(double x)
{
  return static_cast<D>(std::clamp<double>(x, std::numeric_limits<D>::min(), std::numeric_limits<D>::max()));
}

// Half of the pixels, without any order.
Image<Zor8u> mask(ZorImgSize size)
{
  Image<Zor8u> image(size);
  for (int i = 0; i < image.step * size.height; ++i) image.data[i] = image.data[i] & 1 ? 255 : 0;
  return image;
}

template <class Row> void eachRow(ZorImgSize size, Row row)
{
  for (int y = 0; y < size.height; ++y) row(y);
}

// dst pixel = op(src pixel) for interleaved pixels of fixed channels.
template <int S, int D, class Op> std::function<void()> naivePixels(Image<Zor8u> src, Image<Zor8u> dst, Op op)
{
  return [=] {
    eachRow(src.size, [&](int y) {
      const Zor8u* s = src.row(y);
      Zor8u* d = dst.row(y);
      for (int x = 0; x < src.size.width; ++x, s += S, d += D) op(s, d);
    });
  };
}

// A function from S to D channels of 8u.
template <int S, int D, class Op, class... E, class... A>
void pixels(Group& g, const char* name, ZorStatus (*function)(const Zor8u*, int, Zor8u*, int, ZorImgSize, E...),
            Op naive, A... arguments)
{
  g.both(name, [=](ZorImgSize size) {
    const Image<Zor8u> src(size, S), dst(size, D);
    return Run{src.bytes(), dst.bytes(), [=] { return function(src, src.step, dst, dst.step, size, arguments...); },
               naivePixels<S, D>(src, dst, naive)};
  });
}

// Interleaved pixels and planes.
template <int N> struct Planes {
  std::vector<Image<Zor8u>> images;
  explicit Planes(ZorImgSize size) : images(N, Image<Zor8u>(size))
  {
    for (auto& image : images) image = Image<Zor8u>(size);
  }
  template <class P> void pointers(P (&to)[N]) const
  {
    for (int k = 0; k < N; ++k) to[k] = images[k];
  }
};
template <int N, class Function> void split(Group& g, const char* name, Function function)
{
  g.both(name, [=](ZorImgSize size) {
    const Image<Zor8u> src(size, N);
    const Planes<N> dst(size);
    return Run{src.bytes(), src.bytes(),
               [=] {
                 Zor8u* planes[N];
                 dst.pointers(planes);
                 return function(src, src.step, planes, dst.images[0].step, size);
               },
               [=] {
                 for (int y = 0; y < size.height; ++y)
                   for (int k = 0; k < N; ++k)
                     for (int x = 0; x < size.width; ++x) dst.images[k].row(y)[x] = src.row(y)[N * x + k];
               }};
  });
}
template <int N, class Function> void merge(Group& g, const char* name, Function function)
{
  g.both(name, [=](ZorImgSize size) {
    const Image<Zor8u> dst(size, N);
    const Planes<N> src(size);
    return Run{dst.bytes(), dst.bytes(),
               [=] {
                 const Zor8u* planes[N];
                 src.pointers(planes);
                 return function(planes, src.images[0].step, dst, dst.step, size);
               },
               [=] {
                 for (int y = 0; y < size.height; ++y)
                   for (int k = 0; k < N; ++k)
                     for (int x = 0; x < size.width; ++x) dst.row(y)[N * x + k] = src.images[k].row(y)[x];
               }};
  });
}

template <int Flags> Run managedCopy(ZorImgSize size)
{
  const Image<Zor8u> src(size), dst(size);
  return {src.bytes(), dst.bytes(), [=] { return zoriCopyManaged_8u_C1R(src, src.step, dst, dst.step, size, Flags); }};
}

Run copyBesideMemcpy(ZorImgSize size)
{
  const Image<Zor8u> src(size), dst(size);
  return {src.bytes(),
          dst.bytes(),
          [=] { return zoriCopy_8u_C1R(src, src.step, dst, dst.step, size); },
          [=] { naiveMap([](Zor8u x) { return x; }, dst, src); },
          "memcpy",
          [=] { std::memcpy(dst, src, static_cast<std::size_t>(src.bytes())); }};
}

constexpr int reversed[] = {2, 1, 0}, reversedOfFour[] = {2, 1, 0, 3};

} // namespace

static const Group copies("data", [](Group& g) {
  const auto same = [](auto x) { return x; };
  g.both("Copy 8u C1", copyBesideMemcpy);
  g.at("Copy 8u C1 4096", {4096, 4096}, copyBesideMemcpy);
  g.both("CopyManaged 8u C1 ordinary", managedCopy<0>);
  g.both("CopyManaged 8u C1 streaming", managedCopy<1>);
  g.at("CopyManaged 8u C1 streaming 4096", {4096, 4096}, managedCopy<1>);
  g.map("Copy 8u C3", zoriCopy_8u_C3R, 3, same);
  g.map("Copy 32f C1", zoriCopy_32f_C1R, 1, same);
  g.both("Copy 8u C1 masked", [](ZorImgSize size) {
    const Image<Zor8u> src(size), dst(size), m = mask(size);
    return Run{src.bytes() + m.bytes(), dst.bytes(),
               [=] { return zoriCopy_8u_C1MR(src, src.step, dst, dst.step, size, m, m.step); },
               [=] {
                 eachRow(size, [&](int y) {
                   naiveRow(
                     size.width, [](Zor8u s, Zor8u d, Zor8u k) { return k ? s : d; }, dst.row(y),
                     static_cast<const Zor8u*>(src.row(y)), static_cast<const Zor8u*>(dst.row(y)),
                     static_cast<const Zor8u*>(m.row(y)));
                 });
               }};
  });
  split<3>(g, "Copy 8u C3P3", zoriCopy_8u_C3P3R);
  split<4>(g, "Copy 8u C4P4", zoriCopy_8u_C4P4R);
  merge<3>(g, "Copy 8u P3C3", zoriCopy_8u_P3C3R);
  merge<4>(g, "Copy 8u P4C4", zoriCopy_8u_P4C4R);
  pixels<3, 1>(g, "Copy 8u C3C1", zoriCopy_8u_C3C1R, [](const Zor8u* s, Zor8u* d) { d[0] = s[0]; });
  pixels<1, 3>(g, "Copy 8u C1C3", zoriCopy_8u_C1C3R, [](const Zor8u* s, Zor8u* d) { d[0] = s[0]; });
  pixels<4, 4>(g, "Copy 8u AC4", zoriCopy_8u_AC4R,
               [](const Zor8u* s, Zor8u* d) { d[0] = s[0], d[1] = s[1], d[2] = s[2]; });
  pixels<4, 3>(g, "Copy 8u AC4C3", zoriCopy_8u_AC4C3R,
               [](const Zor8u* s, Zor8u* d) { d[0] = s[0], d[1] = s[1], d[2] = s[2]; });
  pixels<1, 3>(g, "Dup 8u C1C3", zoriDup_8u_C1C3R, [](const Zor8u* s, Zor8u* d) { d[0] = d[1] = d[2] = s[0]; });
});

static const Group fills("data", [](Group& g) {
  g.both("Set 8u C1", [](ZorImgSize size) {
    const Image<Zor8u> dst(size);
    return Run{0, dst.bytes(), [=] { return zoriSet_8u_C1R(7, dst, dst.step, size); },
               [=] { eachRow(size, [&](int y) { std::fill_n(dst.row(y), size.width, Zor8u(7)); }); }};
  });
  g.both("Set 8u C3", [](ZorImgSize size) {
    const Image<Zor8u> dst(size, 3);
    return Run{0, dst.bytes(),
               [=] {
                 const Zor8u value[] = {1, 2, 3};
                 return zoriSet_8u_C3R(value, dst, dst.step, size);
               },
               naivePixels<0, 3>(dst, dst, [](const Zor8u*, Zor8u* d) { d[0] = 1, d[1] = 2, d[2] = 3; })};
  });
  g.both("Set 32f C1", [](ZorImgSize size) {
    const Image<Zor32f> dst(size);
    return Run{0, dst.bytes(), [=] { return zoriSet_32f_C1R(7, dst, dst.step, size); },
               [=] { eachRow(size, [&](int y) { std::fill_n(dst.row(y), size.width, 7.0f); }); }};
  });
  g.both("Set 8u C1 masked", [](ZorImgSize size) {
    const Image<Zor8u> dst(size), m = mask(size);
    return Run{m.bytes(), dst.bytes(), [=] { return zoriSet_8u_C1MR(7, dst, dst.step, size, m, m.step); },
               [=] {
                 eachRow(size, [&](int y) {
                   naiveRow(
                     size.width, [](Zor8u d, Zor8u k) { return k ? Zor8u(7) : d; }, dst.row(y),
                     static_cast<const Zor8u*>(dst.row(y)), static_cast<const Zor8u*>(m.row(y)));
                 });
               }};
  });
});

static const Group channelOrders("data", [](Group& g) {
  pixels<3, 3>(
    g, "SwapChannels 8u C3", zoriSwapChannels_8u_C3R,
    [](const Zor8u* s, Zor8u* d) { d[0] = s[2], d[1] = s[1], d[2] = s[0]; }, reversed);
  pixels<4, 4>(
    g, "SwapChannels 8u AC4", zoriSwapChannels_8u_AC4R,
    [](const Zor8u* s, Zor8u* d) { d[0] = s[2], d[1] = s[1], d[2] = s[0]; }, reversed);
  pixels<3, 4>(
    g, "SwapChannels 8u C3C4", zoriSwapChannels_8u_C3C4R,
    [](const Zor8u* s, Zor8u* d) { d[0] = s[2], d[1] = s[1], d[2] = s[0], d[3] = 255; }, reversedOfFour, Zor8u(255));
  pixels<4, 3>(
    g, "SwapChannels 8u C4C3", zoriSwapChannels_8u_C4C3R,
    [](const Zor8u* s, Zor8u* d) { d[0] = s[2], d[1] = s[1], d[2] = s[0]; }, reversed);
});

static const Group conversions("data", [](Group& g) {
  const auto to8u = [](auto x) { return saturate<Zor8u>(std::nearbyint(x)); };
  g.map("Convert 8u32f C1", zoriConvert_8u32f_C1R, 1, [](Zor8u x) { return Zor32f(x); });
  g.map("Convert 8u16s C3", zoriConvert_8u16s_C3R, 3, [](Zor8u x) { return Zor16s(x); });
  g.map("Convert 16s32f C1", zoriConvert_16s32f_C1R, 1, [](Zor16s x) { return Zor32f(x); });
  g.map("Convert 16u8u C1", zoriConvert_16u8u_C1R, 1, [](Zor16u x) { return Zor8u(std::min<Zor16u>(x, 255)); });
  g.map("Convert 16s8u C1", zoriConvert_16s8u_C1R, 1, [](Zor16s x) { return Zor8u(std::clamp<Zor16s>(x, 0, 255)); });
  g.map("Convert 32f8u C1", zoriConvert_32f8u_C1R, 1, to8u, ZorRoundNearestEven);
  g.map(
    "Convert 32f16s C1", zoriConvert_32f16s_C1R, 1, [](Zor32f x) { return saturate<Zor16s>(std::nearbyint(x)); },
    ZorRoundNearestEven);
  g.both("Convert 8u1u C1", [](ZorImgSize size) {
    const Image<Zor8u> src(size), dst({size.width / 8, size.height});
    return Run{src.bytes(), dst.bytes(),
               [=] { return zoriConvert_8u1u_C1R(src, src.step, dst, dst.step, 0, size, 128); }};
  });
  g.both("Convert 1u8u C1", [](ZorImgSize size) {
    const Image<Zor8u> src({size.width / 8, size.height}), dst(size);
    return Run{src.bytes(), dst.bytes(), [=] { return zoriConvert_1u8u_C1R(src, src.step, 0, dst, dst.step, size); },
               [=] {
                 eachRow(size, [&](int y) {
                   const Zor8u* s = src.row(y);
                   Zor8u* d = dst.row(y);
                   for (int x = 0; x < size.width; ++x) d[x] = s[x / 8] >> (7 - x % 8) & 1 ? 255 : 0;
                 });
               }};
  });
  g.map(
    "Scale 8u32f C1", zoriScale_8u32f_C1R, 1, [](Zor8u x) { return x / 255.0f; }, 0.0f, 1.0f);
  g.map("Scale 32f8u C1", zoriScale_32f8u_C1R, 1, to8u, 0.0f, 255.0f);
  g.map(
    "Scale 16s8u C1 accurate", zoriScale_16s8u_C1R, 1, [](Zor16s x) { return Zor8u((x + 32768) * 255LL / 65535); },
    ZorHintAccurate);
});
