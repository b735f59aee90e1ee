// Benchmarks of Fourier transforms and of the arithmetic on their spectra. Where FFTW is installed it does the same
// transforms in this process: real ones out of place, its plans measured.
#include "harness.h"
#include "zori/spectral.h"

#ifdef ZORI_BENCH_FFTW
#include <fftw3.h>
#endif

#include <string>
#include <vector>

using bench::Image;
using bench::Run;

namespace {

#ifdef ZORI_BENCH_FFTW
using Plan = std::shared_ptr<std::remove_pointer_t<fftwf_plan>>;

// Measuring a plan spoils the images, so each plan has images of its own. Complex numbers are pairs of floats.
struct Peer {
  std::shared_ptr<float> real, complex, result;
  Plan plan;

  static std::shared_ptr<float> floats(long long count)
  {
    return {fftwf_alloc_real(static_cast<std::size_t>(count)), fftwf_free};
  }
  static void fill(const std::shared_ptr<float>& p, long long count)
  {
    for (long long i = 0; i < count; ++i) p.get()[i] = static_cast<float>(i % 251);
  }
  static fftwf_complex* numbers(const std::shared_ptr<float>& p) { return reinterpret_cast<fftwf_complex*>(p.get()); }

  enum Kind { Forward, Inverse, Complex };
  Peer(ZorImgSize s, Kind kind)
  {
    const long long pixels = static_cast<long long>(s.width) * s.height;
    real = floats(pixels), complex = floats(2 * pixels), result = floats(kind == Complex ? 2 * pixels : 1);
    fftwf_complex *const from = numbers(complex), *const to = numbers(result);
    plan = Plan(kind == Forward   ? fftwf_plan_dft_r2c_2d(s.height, s.width, real.get(), from, FFTW_MEASURE)
                : kind == Inverse ? fftwf_plan_dft_c2r_2d(s.height, s.width, from, real.get(), FFTW_MEASURE)
                                  : fftwf_plan_dft_2d(s.height, s.width, from, to, FFTW_FORWARD, FFTW_MEASURE),
                fftwf_destroy_plan);
    fill(real, pixels), fill(complex, 2 * pixels), fill(result, kind == Complex ? 2 * pixels : 1);
  }
};

void addPeer(Run& run, ZorImgSize size, Peer::Kind kind)
{
  const Peer peer(size, kind);
  run.peerName = "FFTW3f";
  run.peer = [peer] { fftwf_execute(peer.plan.get()); };
}
#define PEER(run, size, kind) addPeer(run, size, Peer::kind)
#else
#define PEER(run, size, kind) (void)0
#endif

std::string named(const char* name, ZorImgSize size)
{
  return std::string(name) + " " + std::to_string(size.width) + "x" + std::to_string(size.height);
}

template <class Record> std::shared_ptr<Record> held(Record* record, ZorStatus (*release)(Record*))
{
  return {record, release};
}

std::shared_ptr<ZorFftImgRecord> fftRecord(ZorImgSize size, bool isReal)
{
  ZorFftImgRecord* record = nullptr;
  const int x = __builtin_ctz(static_cast<unsigned>(size.width)), y = __builtin_ctz(static_cast<unsigned>(size.height));
  (isReal ? zoriFFTInitAlloc_R_32f : zoriFFTInitAlloc_C_32fc)(&record, x, y, ZorFftNoDiv, ZorHintNone);
  return held(record, isReal ? zoriFFTFree_R_32f : zoriFFTFree_C_32fc);
}

template <class Record>
std::shared_ptr<Zor8u> bufferOf(const std::shared_ptr<Record>& record, ZorStatus (*query)(const Record*, int*))
{
  int bytes = 0;
  query(record.get(), &bytes);
  return std::static_pointer_cast<Zor8u>(bench::noise(static_cast<std::size_t>(bytes)));
}

} // namespace

static const bench::Group spectral("spectral", [](bench::Group& g) {
  for (const int side : {256, 512, 1024, 2048}) {
    const ZorImgSize square = {side, side};
    g.at(named("FFTFwd_RToPack 32f", square), square, [](ZorImgSize size) {
      const Image<Zor32f> src(size), dst(size);
      const auto record = fftRecord(size, true);
      const auto buffer = bufferOf(record, zoriFFTGetBufSize_R_32f);
      Run run{src.bytes(), dst.bytes(),
              [=] { return zoriFFTFwd_RToPack_32f_C1R(src, src.step, dst, dst.step, record.get(), buffer.get()); }};
      PEER(run, size, Forward);
      return run;
    });
  }
  g.at("FFTInv_PackToR 32f 512x512", {512, 512}, [](ZorImgSize size) {
    const Image<Zor32f> src(size), dst(size);
    const auto record = fftRecord(size, true);
    const auto buffer = bufferOf(record, zoriFFTGetBufSize_R_32f);
    Run run{src.bytes(), dst.bytes(),
            [=] { return zoriFFTInv_PackToR_32f_C1R(src, src.step, dst, dst.step, record.get(), buffer.get()); }};
    PEER(run, size, Inverse);
    return run;
  });
  g.at("FFTFwd_CToC 32fc 512x512", {512, 512}, [](ZorImgSize size) {
    const Image<Zor32fc> src(size), dst(size);
    const auto record = fftRecord(size, false);
    const auto buffer = bufferOf(record, zoriFFTGetBufSize_C_32fc);
    Run run{src.bytes(), dst.bytes(),
            [=] { return zoriFFTFwd_CToC_32fc_C1R(src, src.step, dst, dst.step, record.get(), buffer.get()); }};
    PEER(run, size, Complex);
    return run;
  });
  g.at("FFTFwd_RToPack 32f C3 512x512", {512, 512}, [](ZorImgSize size) {
    const Image<Zor32f> src(size, 3), dst(size, 3);
    const auto record = fftRecord(size, true);
    const auto buffer = bufferOf(record, zoriFFTGetBufSize_R_32f);
    return Run{src.bytes(), dst.bytes(),
               [=] { return zoriFFTFwd_RToPack_32f_C3R(src, src.step, dst, dst.step, record.get(), buffer.get()); }};
  });
  for (const ZorImgSize any : {ZorImgSize{640, 480}, ZorImgSize{1920, 1080}, ZorImgSize{251, 251}}) {
    const std::string name = named("DFTFwd_RToPack 32f", any) + (any.width == 251 ? " primes" : "");
    g.at(name, any, [](ZorImgSize size) {
      const Image<Zor32f> src(size), dst(size);
      ZorDftImgRecord* made = nullptr;
      zoriDFTInitAlloc_R_32f(&made, size.width, size.height, ZorFftNoDiv, ZorHintNone);
      const auto record = held(made, zoriDFTFree_R_32f);
      const auto buffer = bufferOf(record, zoriDFTGetBufSize_R_32f);
      Run run{src.bytes(), dst.bytes(),
              [=] { return zoriDFTFwd_RToPack_32f_C1R(src, src.step, dst, dst.step, record.get(), buffer.get()); }};
      PEER(run, size, Forward);
      return run;
    });
  }

  g.both("MulPack 32f C1", [](ZorImgSize size) {
    const Image<Zor32f> a(size), b(size), dst(size);
    return Run{a.bytes() + b.bytes(), dst.bytes(),
               [=] { return zoriMulPack_32f_C1R(a, a.step, b, b.step, dst, dst.step, size); }};
  });
  g.both("MulPack 16s C1", [](ZorImgSize size) {
    const Image<Zor16s> a(size), b(size), dst(size);
    return Run{a.bytes() + b.bytes(), dst.bytes(),
               [=] { return zoriMulPack_16s_C1RSfs(a, a.step, b, b.step, dst, dst.step, size, 8); }};
  });
  g.both("Magnitude 32fc32f C1", [](ZorImgSize size) {
    const Image<Zor32fc> src(size);
    const Image<Zor32f> dst(size);
    return Run{src.bytes(), dst.bytes(), [=] { return zoriMagnitude_32fc32f_C1R(src, src.step, dst, dst.step, size); }};
  });
  g.both("Phase 32fc32f C1", [](ZorImgSize size) {
    const Image<Zor32fc> src(size);
    const Image<Zor32f> dst(size);
    return Run{src.bytes(), dst.bytes(), [=] { return zoriPhase_32fc32f_C1R(src, src.step, dst, dst.step, size); }};
  });
  g.both("MagnitudePack 32f C1", [](ZorImgSize size) {
    const Image<Zor32f> src(size), dst(size);
    return Run{src.bytes(), dst.bytes(), [=] { return zoriMagnitudePack_32f_C1R(src, src.step, dst, dst.step, size); }};
  });
  g.both("PolarToCart 32fc C1", [](ZorImgSize size) {
    const Image<Zor32fc> src(size), dst(size);
    return Run{src.bytes(), dst.bytes(), [=] { return zoriPolarToCart_32fc_C1R(src, src.step, dst, dst.step, size); }};
  });
});
