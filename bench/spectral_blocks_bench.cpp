// Benchmarks of cosine transforms and wavelets. A block transform runs over all blocks of an image, each at its place
// in the image; the naive loop is the definition by rows and columns. Where FFTW is installed it does the cosine
// transforms of images in this process, its plans measured.
#include "harness.h"
#include "zori/spectral.h"

#ifdef ZORI_BENCH_FFTW
#include <fftw3.h>
#endif

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

using bench::Image;
using bench::Run;

namespace {

#ifdef ZORI_BENCH_FFTW
void addPeer(Run& run, ZorImgSize size, bool inverse)
{
  const auto reals = [&] {
    return std::shared_ptr<float>(fftwf_alloc_real(static_cast<std::size_t>(size.width) * size.height), fftwf_free);
  };
  const std::shared_ptr<float> src = reals(), dst = reals();
  const auto kind = inverse ? FFTW_REDFT01 : FFTW_REDFT10;
  const std::shared_ptr<std::remove_pointer_t<fftwf_plan>> plan(
    fftwf_plan_r2r_2d(size.height, size.width, src.get(), dst.get(), kind, kind, FFTW_MEASURE), fftwf_destroy_plan);
  for (int i = 0; i < size.width * size.height; ++i) src.get()[i] = static_cast<float>(i % 251);
  run.peerName = "FFTW3f";
  run.peer = [=] { fftwf_execute_r2r(plan.get(), src.get(), dst.get()); };
}
#else
void addPeer(Run&, ZorImgSize, bool) {}
#endif

Run imageDct(ZorImgSize size, bool inverse)
{
  const Image<Zor32f> src(size), dst(size);
  ZorDctImgRecord* made = nullptr;
  int bytes = 0;
  (inverse ? zoriDCTInvInitAlloc_32f : zoriDCTFwdInitAlloc_32f)(&made, size, ZorHintNone);
  (inverse ? zoriDCTInvGetBufSize_32f : zoriDCTFwdGetBufSize_32f)(made, &bytes);
  const std::shared_ptr<ZorDctImgRecord> record(made, inverse ? zoriDCTInvFree_32f : zoriDCTFwdFree_32f);
  const auto buffer = std::static_pointer_cast<Zor8u>(bench::noise(static_cast<std::size_t>(bytes)));
  const auto call = inverse ? zoriDCTInv_32f_C1R : zoriDCTFwd_32f_C1R;
  Run run{src.bytes(), dst.bytes(), [=] { return call(src, src.step, dst, dst.step, record.get(), buffer.get()); }};
  addPeer(run, size, inverse);
  return run;
}

// The definition, rows first.
template <class T> struct NaiveBlock {
  std::array<float, 64> weight;
  explicit NaiveBlock(bool inverse)
  {
    for (int u = 0; u < 8; ++u)
      for (int i = 0; i < 8; ++i)
        weight[static_cast<std::size_t>(inverse ? 8 * i + u : 8 * u + i)] =
          static_cast<float>(std::cos((2 * i + 1) * u * M_PI / 16) * (u ? 0.5 : std::sqrt(0.125)));
  }
  void operator()(const T* src, T* dst) const
  {
    float half[64];
    for (int y = 0; y < 8; ++y)
      for (int u = 0; u < 8; ++u) {
        float sum = 0;
        for (int i = 0; i < 8; ++i) sum += weight[8 * u + i] * src[8 * y + i];
        half[8 * y + u] = sum;
      }
    for (int v = 0; v < 8; ++v)
      for (int u = 0; u < 8; ++u) {
        float sum = 0;
        for (int i = 0; i < 8; ++i) sum += weight[8 * v + i] * half[8 * i + u];
        dst[8 * v + u] = static_cast<T>(sum);
      }
  }
};

// All blocks of 64 values that follow each other.
template <class T, class Block> Run blocks(ZorImgSize size, ZorStatus (*function)(const T*, T*), Block naive)
{
  const Image<T> src(size), dst(size);
  const long long count = static_cast<long long>(size.width) * size.height / 64;
  for (long long i = 0; i < 64 * count; ++i) src.data[i] = static_cast<T>(i * 37 % 255 - 127);
  return {src.bytes(), dst.bytes(),
          [=] {
            ZorStatus s = ZorOk;
            for (long long i = 0; i < count; ++i) s = std::max(s, function(src.data + 64 * i, dst.data + 64 * i));
            return s;
          },
          [=] {
            for (long long i = 0; i < count; ++i) naive(src.data + 64 * i, dst.data + 64 * i);
          }};
}

Run wavelet(ZorImgSize full, int length, int channels, bool inverse)
{
  const ZorImgSize size = {full.width / 2, full.height / 2};
  const ZorImgSize framed = {full.width + 2 * length, full.height + 2 * length};
  const ZorImgSize framedSmall = {size.width + 2 * length, size.height + 2 * length};
  const Image<Zor32f> image(framed, channels);
  const std::vector<Image<Zor32f>> bands = {Image<Zor32f>(framedSmall, channels), Image<Zor32f>(framedSmall, channels),
                                            Image<Zor32f>(framedSmall, channels), Image<Zor32f>(framedSmall, channels)};
  const auto inner = [=](const Image<Zor32f>& i) { return i.row(length) + length * channels; };
  const std::vector<Zor32f> low(static_cast<std::size_t>(length), 0.3f), high(low);
  const double bytes = 4.0 * channels * full.width * full.height;
  int n = 0;
  if (inverse) {
    ZorWtInvState* made = nullptr;
    (channels == 1 ? zoriWTInvInitAlloc_32f_C1R : zoriWTInvInitAlloc_32f_C3R)(&made, low.data(), length, length / 2,
                                                                              high.data(), length, length / 2);
    (channels == 1 ? zoriWTInvGetBufSize_C1R : zoriWTInvGetBufSize_C3R)(made, &n);
    const std::shared_ptr<ZorWtInvState> state(made, channels == 1 ? zoriWTInvFree_32f_C1R : zoriWTInvFree_32f_C3R);
    const auto buffer = std::static_pointer_cast<Zor8u>(bench::noise(static_cast<std::size_t>(n)));
    const auto call = channels == 1 ? zoriWTInv_32f_C1R : zoriWTInv_32f_C3R;
    return {bytes, bytes, [=] {
              return call(inner(bands[0]), bands[0].step, inner(bands[1]), bands[1].step, inner(bands[2]),
                          bands[2].step, inner(bands[3]), bands[3].step, size, inner(image), image.step, state.get(),
                          buffer.get());
            }};
  }
  ZorWtFwdState* made = nullptr;
  (channels == 1 ? zoriWTFwdInitAlloc_32f_C1R : zoriWTFwdInitAlloc_32f_C3R)(&made, low.data(), length, length / 2,
                                                                            high.data(), length, length / 2);
  (channels == 1 ? zoriWTFwdGetBufSize_C1R : zoriWTFwdGetBufSize_C3R)(made, &n);
  const std::shared_ptr<ZorWtFwdState> state(made, channels == 1 ? zoriWTFwdFree_32f_C1R : zoriWTFwdFree_32f_C3R);
  const auto buffer = std::static_pointer_cast<Zor8u>(bench::noise(static_cast<std::size_t>(n)));
  const auto call = channels == 1 ? zoriWTFwd_32f_C1R : zoriWTFwd_32f_C3R;
  return {bytes, bytes, [=] {
            return call(inner(image), image.step, inner(bands[0]), bands[0].step, inner(bands[1]), bands[1].step,
                        inner(bands[2]), bands[2].step, inner(bands[3]), bands[3].step, size, state.get(),
                        buffer.get());
          }};
}

} // namespace

static const bench::Group blocksAndWavelets("spectral", [](bench::Group& g) {
  for (const ZorImgSize size : {ZorImgSize{256, 256}, {512, 512}, {1024, 1024}, {640, 480}, {1920, 1080}}) {
    const std::string shape = " " + std::to_string(size.width) + "x" + std::to_string(size.height);
    g.at("DCTFwd 32f" + shape, size, [](ZorImgSize s) { return imageDct(s, false); });
  }
  g.at("DCTInv 32f 512x512", {512, 512}, [](ZorImgSize s) { return imageDct(s, true); });

  constexpr ZorImgSize blockImage = {256, 256};
  g.at("DCT8x8Fwd 16s", blockImage,
       [](ZorImgSize s) { return blocks(s, zoriDCT8x8Fwd_16s_C1, NaiveBlock<Zor16s>(false)); });
  g.at("DCT8x8Inv 16s", blockImage,
       [](ZorImgSize s) { return blocks(s, zoriDCT8x8Inv_16s_C1, NaiveBlock<Zor16s>(true)); });
  g.at("DCT8x8Fwd 32f", blockImage,
       [](ZorImgSize s) { return blocks(s, zoriDCT8x8Fwd_32f_C1, NaiveBlock<Zor32f>(false)); });
  g.at("DCT8x8Inv 32f", blockImage,
       [](ZorImgSize s) { return blocks(s, zoriDCT8x8Inv_32f_C1, NaiveBlock<Zor32f>(true)); });
  g.at("ZigzagFwd8x8 16s", blockImage, [](ZorImgSize s) {
    return blocks(s, zoriZigzagFwd8x8_16s_C1, [](const Zor16s* src, Zor16s* dst) {
      int i = 0;
      for (int d = 0; d < 15; ++d)
        for (int k = std::max(0, d - 7); k <= std::min(d, 7); ++k)
          dst[i++] = d % 2 ? src[8 * k + d - k] : src[8 * (d - k) + k];
    });
  });

  for (const int length : {2, 4, 8})
    for (const bool inverse : {false, true})
      g.both((inverse ? "WTInv 32f C1 " : "WTFwd 32f C1 ") + std::to_string(length) + " taps",
             [=](ZorImgSize size) { return wavelet(size, length, 1, inverse); });
  g.both("WTFwd 32f C3 4 taps", [](ZorImgSize size) { return wavelet(size, 4, 3, false); });
  g.both("WTInv 32f C3 4 taps", [](ZorImgSize size) { return wavelet(size, 4, 3, true); });
});
