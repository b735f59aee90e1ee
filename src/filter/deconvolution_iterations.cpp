// zoriDeconvLRInitAlloc_32f_{C1,C3}R, zoriDeconvLRFree_32f_{C1,C3}R, zoriDeconvLR_32f_{C1,C3}R: a blur undone in
// Lucy-Richardson iterations.
//
//   observed            the region with its margin
//   estimate            observed at first; a round multiplies it by ((observed / (estimate * K)) * K^T), where * K
//                       filters with the kernel and * K^T with its transpose
//
// Both filters see zeros around the image: the estimate and the ratio stand in frames of zeros.
#include "deconvolution.h"
#include "zori/filter.h"

struct ZorDeconvLrState {
  Zor32s bufWidth; // samples from row to row of each image
  ZorImgSize maxRoi;
  Zor32s kernelSize;
  ZorImgSize kernelSides;
  ZorImgPoint anchor;
  Zor32f threshold;
  zori::deconvolution::StatePart<Zor32f> kernel; // and the weights of its margin
  zori::deconvolution::StatePart<Zor32f> transposed, observed, estimate, ratio, correction;

  Zor32f* weights() { return kernel.in(this) + std::ptrdiff_t{kernelSize} * kernelSize; }
  int step() const { return bufWidth * static_cast<int>(sizeof(Zor32f)); }
  // The images from the first sample of the margin on.
  zori::Rows<Zor32f> rows(zori::deconvolution::StatePart<Zor32f> image, std::ptrdiff_t frame = 0)
  {
    return {image.in(this) + frame * bufWidth + frame, step()};
  }
};
static_assert(sizeof(ZorDeconvLrState) == 60);

namespace zori {
namespace deconvolution {
namespace {

constexpr int rowPicoseconds = 1000; // of a sample in the passes between the filters

struct RatioAbove {
  Vec<Zor32f> threshold;
  Vec<Zor32f> operator()(Vec<Zor32f> observed, Vec<Zor32f> blurred) const
  {
    return (observed / blurred) & greater(abs(blurred), threshold);
  }
};

struct ProductAbove {
  Vec<Zor32f> least = splat(1.1754943247493889e-15f);
  Vec<Zor32f> operator()(Vec<Zor32f> a, Vec<Zor32f> b) const
  {
    return a * b & greater(abs(a), least) & greater(abs(b), least);
  }
};

ZorStatus make(ZorDeconvLrState** made, const Zor32f* pKernel, int kernelSize, ZorImgSize maxRoi, Zor32f threshold)
{
  if (auto s = firstFailure(nonNull(made, pKernel), positiveSize(kernelSize),
                            require(kernelSize <= maxRoi.width && kernelSize <= maxRoi.height, ZorErrSize));
      s != ZorOk)
    return s;

  const Margin margin(kernelSize);
  const long long taps = 1LL * kernelSize * kernelSize, width = maxRoi.width + 2LL * (kernelSize - 1),
                  height = maxRoi.height + 2LL * (kernelSize - 1);
  if (width > INT32_MAX / 4) return ZorErrAlloc; // no step is so large
  const auto pitch = static_cast<Zor32s>(width);
  BlockPlan plan(sizeof(ZorDeconvLrState));
  ZorDeconvLrState head = {
    pitch, maxRoi, kernelSize, {kernelSize, kernelSize}, {margin.anchor(), margin.anchor()}, threshold, {}, {}, {},
    {},    {},     {}};
  head.kernel = partOf<Zor32f>(plan, taps + margin.weights());
  head.transposed = partOf<Zor32f>(plan, taps);
  for (auto* framed : {&head.estimate, &head.ratio}) *framed = partOf<Zor32f>(plan, width * height);
  for (auto* plain : {&head.observed, &head.correction})
    *plain = partOf<Zor32f>(plan, width * (height - (kernelSize - 1)));
  Scratch<char> block(plan.bytes());
  Scratch<Zor64f> sums(margin.before() + 1LL);
  if (!block || !sums) return ZorErrAlloc;

  const auto state = reinterpret_cast<ZorDeconvLrState*>(block.release());
  *state = head;
  Zor32f *const kernel = state->kernel.in(state), *const transposed = state->transposed.in(state);
  std::memcpy(kernel, pKernel, static_cast<std::size_t>(taps) * sizeof *pKernel);
  for (std::ptrdiff_t y = 0; y < kernelSize; ++y)
    for (std::ptrdiff_t x = 0; x < kernelSize; ++x) transposed[x * kernelSize + y] = kernel[y * kernelSize + x];
  underRounding(Rounding::Nearest, [&] { margin.fill(kernel, threshold, state->weights(), sums.get()); });
  *made = state;
  return ZorOk;
}

ZorStatus release(ZorDeconvLrState* state)
{
  if (!state) return ZorErrNullPtr;
  releaseBlock(state);
  return ZorOk;
}

void clear(Rows<Zor32f> rows, ZorImgSize size)
{
  for (int y = 0; y < size.height; ++y) std::memset(rows[y], 0, static_cast<std::size_t>(size.width) * sizeof(Zor32f));
}

template <int channelCount>
void restoreChannel(ZorDeconvLrState& state, int channel, Rows<const Zor32f> src, Rows<Zor32f> dst, ZorImgSize roi,
                    int rounds)
{
  const Margin margin(state.kernelSize);
  const int a = margin.anchor(), m = margin.before(), step = state.step();
  const ZorImgSize size = {margin.extended(roi.width), margin.extended(roi.height)};
  const ZorImgSize framed = {margin.extended(size.width), margin.extended(size.height)};
  // the filters reach as far to each side as their anchors say
  const Rows<Zor32f> observed = state.rows(state.observed), estimate = state.rows(state.estimate, m),
                     ratio = state.rows(state.ratio, a), correction = state.rows(state.correction);
  const TeamRule team = TeamRule::forWork(1LL * size.width * size.height, rowPicoseconds);
  const auto eachRow = [&](int height, auto body) { staticRows(team, Rounding::Nearest, height, body); };
  const auto read = [](Rows<Zor32f> rows, int y) { return static_cast<const Zor32f*>(rows[y]); };

  clear(state.rows(state.estimate), framed);
  clear(state.rows(state.ratio), framed);
  eachRow(size.height, [&](int y) {
    margin.makeRow<channelCount>(state.weights(), src, channel, roi, y, observed[y]);
    std::memcpy(estimate[y], observed[y], static_cast<std::size_t>(size.width) * sizeof(Zor32f));
  });
  for (int round = 0; round < rounds; ++round) {
    zoriFilter_32f_C1R(estimate.first, step, ratio.first, step, size, state.kernel.in(&state), state.kernelSides,
                       state.anchor);
    eachRow(size.height, [&](int y) {
      mapRow(ratio[y], size.width, RatioAbove{splat(state.threshold)}, read(observed, y), read(ratio, y));
    });
    zoriFilter_32f_C1R(ratio.first, step, correction.first, step, size, state.transposed.in(&state), state.kernelSides,
                       {m, m});
    eachRow(size.height,
            [&](int y) { mapRow(estimate[y], size.width, ProductAbove{}, read(estimate, y), read(correction, y)); });
  }
  eachRow(roi.height, [&](int y) {
    putRow<channelCount>(estimate[std::ptrdiff_t{y} + m] + m, state.threshold, dst[y], channel, roi.width);
  });
}

template <Layout L>
ZorStatus restore(const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep, ZorImgSize roiSize, int numIter,
                  ZorDeconvLrState* state)
{
  constexpr int channelCount = channels<L>;
  if (auto s = firstFailure(nonNull(pSrc, pDst, state), nonEmpty(roiSize)); s != ZorOk) return s;
  if (auto s = firstFailure(
        require(roiSize.width <= state->maxRoi.width && roiSize.height <= state->maxRoi.height, ZorErrSize),
        rowsHold<channelCount>(roiSize, srcStep, dstStep), require(numIter >= 1, ZorErrBadArg));
      s != ZorOk)
    return s;
  for (int c = 0; c < channelCount; ++c)
    restoreChannel<channelCount>(*state, c, Rows{pSrc, srcStep}, Rows{pDst, dstStep}, roiSize, numIter);
  return ZorOk;
}

} // namespace
} // namespace deconvolution
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(layout)                                                                                                \
  ZorStatus zoriDeconvLRInitAlloc_32f_##layout##R(ZorDeconvLrState** ppState, const Zor32f* pKernel, int kernelSize, \
                                                  ZorImgSize maxRoi, Zor32f threshold)                               \
  { return deconvolution::make(ppState, pKernel, kernelSize, maxRoi, threshold); }                                   \
  ZorStatus zoriDeconvLRFree_32f_##layout##R(ZorDeconvLrState* pState) { return deconvolution::release(pState); }    \
  ZorStatus zoriDeconvLR_32f_##layout##R(const Zor32f* pSrc, int srcStep, Zor32f* pDst, int dstStep,                 \
                                         ZorImgSize roiSize, int numIter, ZorDeconvLrState* pState)                  \
  { return deconvolution::restore<layout>(pSrc, srcStep, pDst, dstStep, roiSize, numIter, pState); }
STAMP(C1) STAMP(C3)
#undef STAMP
