// zoriDeconvFFTInitAlloc_32f_{C1,C3}R, zoriDeconvFFTFree_32f_{C1,C3}R, zoriDeconvFFT_32f_{C1,C3}R: a blur undone by
// division of spectra.
//
//   state   spectrum of the kernel -> parts up to the threshold as 0 -> 1 / H, and 1 where H vanishes
//   call    region with its margin, in a square of 2^order -> spectrum * (1 / H) -> back; the square's first samples
//   are
//           the result
#include "deconvolution.h"
#include "zori/arith.h"
#include "zori/filter.h"
#include "zori/spectral.h"

struct ZorDeconvFftState {
  Zor32s fftSize, kernelSize;
  Zor32f threshold;
  zori::deconvolution::StatePart<Zor32f> kernel; // and the weights of its margin
  zori::deconvolution::StatePart<Zor8u> buffer;
  zori::deconvolution::StatePart<Zor32fc> work, second, inverse; // fftSize * fftSize each
  ZorFftImgRecord* transform;

  Zor32f* weights() { return kernel.in(this) + std::ptrdiff_t{kernelSize} * kernelSize; }
  Zor32fc* rowOf(zori::deconvolution::StatePart<Zor32fc> part, std::ptrdiff_t y) { return part.in(this) + y * fftSize; }
  int step() const { return fftSize * static_cast<int>(sizeof(Zor32fc)); }
};

namespace zori {
namespace deconvolution {
namespace {

constexpr int greatestOrder = 30;
constexpr int rowPicoseconds = 1000; // of a sample in the passes between the transforms

// The numbers as real parts, zeros behind them.
void makeComplex(const Zor32f* from, std::ptrdiff_t count, Zor32fc* to, std::ptrdiff_t length)
{
  for (std::ptrdiff_t x = 0; x < count; ++x) to[x] = {from[x], 0};
  std::memset(to + count, 0, static_cast<std::size_t>(length - count) * sizeof *to);
}

Zor32fc inverseOf(Zor32fc h, Zor32f threshold)
{
  const auto kept = [=](Zor32f x) { return isAbove(static_cast<Zor64f>(x), static_cast<Zor64f>(threshold)) ? x : 0; };
  const Zor64f re = static_cast<Zor64f>(kept(h.re)), im = static_cast<Zor64f>(kept(h.im));
  if (re == 0 && im == 0) return {1, 0};
  const Zor64f square = re * re + im * im;
  return {static_cast<Zor32f>(re / square), static_cast<Zor32f>(-1.0 * im / square)};
}

// Margin, spectrum of the kernel and its inverse. The kernel is in the state.
ZorStatus prepare(ZorDeconvFftState& state, Zor64f* sums)
{
  const int size = state.fftSize, side = state.kernelSize;
  const Zor32f* const kernel = state.kernel.in(&state);
  Margin(side).fill(kernel, state.threshold, state.weights(), sums);
  for (int y = 0; y < size; ++y) {
    Zor32fc* const row = state.rowOf(state.work, y);
    const int taps = y < side ? side : 0;
    makeComplex(kernel + std::ptrdiff_t{y} * side * (taps != 0), taps, row, size);
    for (int x = 0; x < taps; ++x)
      if (!isAbove(static_cast<Zor64f>(row[x].re), static_cast<Zor64f>(state.threshold))) row[x].re = 0;
  }
  Zor32fc* const inverse = state.inverse.in(&state);
  const ZorStatus s = zoriFFTFwd_CToC_32fc_C1R(state.work.in(&state), state.step(), inverse, state.step(),
                                               state.transform, state.buffer.in(&state));
  const std::ptrdiff_t count = std::ptrdiff_t{size} * size;
  for (std::ptrdiff_t i = 0; i < count; ++i) inverse[i] = inverseOf(inverse[i], state.threshold);
  return s;
}

ZorStatus make(ZorDeconvFftState** made, const Zor32f* pKernel, int kernelSize, int order, Zor32f threshold)
{
  if (auto s = firstFailure(nonNull(made, pKernel), positiveSize(kernelSize),
                            require(order >= 0 && order <= greatestOrder, ZorErrOrder));
      s != ZorOk)
    return s;
  if (auto s = firstFailure(require(kernelSize <= 1 << order, ZorErrSize), require(!(threshold < 0), ZorErrBadArg));
      s != ZorOk)
    return s;

  ZorFftImgRecord* transform = nullptr;
  if (auto s = zoriFFTInitAlloc_C_32fc(&transform, order, order, ZorFftDivInvByN, ZorHintAccurate); s != ZorOk)
    return s;
  int bufferBytes = 0;
  zoriFFTGetBufSize_C_32fc(transform, &bufferBytes);

  const Margin margin(kernelSize);
  const long long taps = 1LL * kernelSize * kernelSize, frequencies = 1LL << 2 * order;
  BlockPlan plan(sizeof(ZorDeconvFftState));
  ZorDeconvFftState head = {1 << order, kernelSize, threshold, {}, {}, {}, {}, {}, transform};
  head.kernel = partOf<Zor32f>(plan, taps + margin.weights());
  head.buffer = partOf<Zor8u>(plan, bufferBytes);
  for (auto* part : {&head.work, &head.second, &head.inverse}) *part = partOf<Zor32fc>(plan, frequencies);
  Scratch<char> block(plan.bytes());
  Scratch<Zor64f> sums(margin.before() + 1LL);
  if (!block || !sums) {
    zoriFFTFree_C_32fc(transform);
    return ZorErrAlloc;
  }
  const auto state = reinterpret_cast<ZorDeconvFftState*>(block.get());
  *state = head;
  std::memcpy(state->kernel.in(state), pKernel, static_cast<std::size_t>(taps) * sizeof *pKernel);
  const ZorStatus s = underRounding(Rounding::Nearest, [&] { return prepare(*state, sums.get()); });
  if (s != ZorOk) {
    zoriFFTFree_C_32fc(transform);
    return s;
  }
  block.release();
  *made = state;
  return ZorOk;
}

ZorStatus release(ZorDeconvFftState* state)
{
  if (!state) return ZorErrNullPtr;
  zoriFFTFree_C_32fc(state->transform);
  releaseBlock(state);
  return ZorOk;
}

template <int channelCount>
ZorStatus restoreChannel(ZorDeconvFftState& state, int channel, Rows<const Zor32f> src, Rows<Zor32f> dst,
                         ZorImgSize roi)
{
  const Margin margin(state.kernelSize);
  const int size = state.fftSize, width = margin.extended(roi.width), height = margin.extended(roi.height);
  const TeamRule team = TeamRule::forWork(1LL * size * size, rowPicoseconds);
  // lines of samples stand in the second spectrum
  const auto line = [&](int y) { return reinterpret_cast<Zor32f*>(state.rowOf(state.second, y)); };
  staticRows(team, Rounding::Nearest, size, [&](int y) {
    if (y < height) margin.makeRow<channelCount>(state.weights(), src, channel, roi, y, line(y));
    makeComplex(line(y), y < height ? width : 0, state.rowOf(state.work, y), size);
  });

  const int step = state.step();
  Zor32fc *const work = state.work.in(&state), *const second = state.second.in(&state);
  Zor8u* const buffer = state.buffer.in(&state);
  if (auto s = zoriFFTFwd_CToC_32fc_C1R(work, step, second, step, state.transform, buffer); s != ZorOk) return s;
  staticRows(team, Rounding::Nearest, size, [&](int y) {
    zoriMul_32fc_C1IR(state.rowOf(state.inverse, y), step, state.rowOf(state.second, y), step, {size, 1});
  });
  if (auto s = zoriFFTInv_CToC_32fc_C1R(second, step, work, step, state.transform, buffer); s != ZorOk) return s;
  staticRows(team, Rounding::Nearest, roi.height, [&](int y) {
    const Zor32fc* const row = state.rowOf(state.work, y);
    Zor32f* const samples = line(y);
    for (std::ptrdiff_t x = 0; x < roi.width; ++x) samples[x] = row[x].re;
    putRow<channelCount>(samples, state.threshold, dst[y], channel, roi.width);
  });
  return ZorOk;
}

template <Layout L>
ZorStatus restore(const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep, ZorImgSize roiSize,
                  ZorDeconvFftState* state)
{
  constexpr int channelCount = channels<L>;
  if (auto s = firstFailure(nonNull(pSrc, pDst, state), nonEmpty(roiSize)); s != ZorOk) return s;
  const long long most = 1LL + state->fftSize - state->kernelSize;
  if (auto s = firstFailure(require(roiSize.width <= most && roiSize.height <= most, ZorErrSize),
                            rowsHold<channelCount>(roiSize, srcStep, dstStep));
      s != ZorOk)
    return s;
  for (int c = 0; c < channelCount; ++c)
    if (auto s = restoreChannel<channelCount>(*state, c, Rows{pSrc, srcStep}, Rows{pDst, dstStep}, roiSize); s != ZorOk)
      return s;
  return ZorOk;
}

} // namespace
} // namespace deconvolution
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(layout)                                                                                                 \
  ZorStatus zoriDeconvFFTInitAlloc_32f_##layout##R(ZorDeconvFftState** ppState, const Zor32f* pKernel, int kernelSize, \
                                                   int fftOrder, Zor32f threshold)                                    \
  { return deconvolution::make(ppState, pKernel, kernelSize, fftOrder, threshold); }                                  \
  ZorStatus zoriDeconvFFTFree_32f_##layout##R(ZorDeconvFftState* pState) { return deconvolution::release(pState); }   \
  ZorStatus zoriDeconvFFT_32f_##layout##R(const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep,                 \
                                          ZorImgSize roiSize, ZorDeconvFftState* pState)                              \
  { return deconvolution::restore<layout>(pSrc, srcStep, pDst, dstStep, roiSize, pState); }
STAMP(C1) STAMP(C3)
#undef STAMP
