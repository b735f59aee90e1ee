// zoriWT{Fwd,Inv}{InitAlloc,Free}_32f_{C1R,C3R}, zoriWT{Fwd,Inv}GetBufSize_{C1R,C3R}, zoriWT{Fwd,Inv}_32f_{C1R,C3R}:
// one level of a separable wavelet transform with any pair of filters.
//
// Along either axis
//
//   forward   y[n] = sum over k of taps[k] * x[2n + anchor - k]
//   inverse   x[m] = sum over k of taps[k] * u[m + anchor - k], u[2n + 1] = y[n], u[2n] = 0
//
// The image is worked in strips of 256 columns of the small images, and in them row by row: the column filters make two
// lines, the row filters their results, so that nothing but two lines and the rows around them are in use.
//
// - Forward: the lines are split into even and odd pixels as they are made. A row filter then is two runs of terms over
//   neighbouring values, one for its even taps and one for its odd ones.
// - Inverse: of an output row or column every second tap meets a zero and is left out. Each filter pair is one sum.
//
// A state is one block: its head, and of each filter the taps, as they are and split into even and odd ones.
#include "frame/arena.h"
#include "frame/checks.h"
#include "frame/numeric_mode.h"
#include "frame/record.h"
#include "wavelet_sums.h"
#include "zori/spectral.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace zori {
namespace {

constexpr int stripColumns = 256; // of the small images

// ---- States ----

enum class Way : Zor32u { Forward = 46, Inverse = 47 }; // the tags

struct Filter {
  Zor32s length, anchor;
  BlockPart<float> taps, phase[2]; // all; those of even and of odd index
};

struct State {
  Way tag;
  Zor32s channels;
  Zor32s left, right; // pixels that a line has beyond those of its strip
  Zor32s lineFloats, lineBytes;
  Filter low, high;

  int bufferBytes() const { return lineBytes + lineFloats * static_cast<int>(sizeof(float)); }
};
static_assert(std::has_unique_object_representations_v<State>);

struct Taps {
  const float* values;
  int length, anchor;

  bool isPlaced() const { return anchor >= 0 && anchor < length; }
};

int leftOf(Way way, Taps f) { return way == Way::Forward ? f.length - f.anchor - 1 : (f.length - f.anchor) / 2; }
int rightOf(Way way, Taps f) { return way == Way::Forward ? std::max(f.anchor - 1, 0) : f.anchor / 2; }

Filter planFilter(Taps f, BlockPlan& block)
{
  Filter filter = {f.length, f.anchor, {}, {}};
  filter.taps = block.add<float>(f.length);
  for (const int odd : {0, 1}) filter.phase[odd] = block.add<float>((f.length + 1 - odd) / 2);
  return filter;
}

// The head of a state of legal filters. False when its buffer has more bytes than an int tells.
bool planState(Way way, int channelCount, Taps low, Taps high, BlockPlan& block, State& state)
{
  state.tag = way;
  state.channels = channelCount;
  state.left = std::max(leftOf(way, low), leftOf(way, high));
  state.right = std::max(rightOf(way, low), rightOf(way, high));
  const long long pixels = (way == Way::Forward ? 2 : 1) * stripColumns + 0LL + state.left + state.right;
  const long long floats = channelCount * pixels, lineBytes = (floats * 4 + 31) & ~31LL;
  if (lineBytes + floats * 4 > std::numeric_limits<int>::max()) return false;
  state.lineFloats = static_cast<Zor32s>(floats);
  state.lineBytes = static_cast<Zor32s>(lineBytes);
  state.low = planFilter(low, block);
  state.high = planFilter(high, block);
  return true;
}

void copyTaps(const Filter& filter, const float* taps, void* state)
{
  for (int k = 0; k < filter.length; ++k) {
    const float tap = get<float>(taps + k);
    filter.taps.in(state)[k] = tap;
    filter.phase[k % 2].in(state)[k / 2] = tap;
  }
}

template <class Made> ZorStatus make(Way way, int channelCount, Made** made, Taps low, Taps high)
{
  if (auto s =
        firstFailure(nonNull(made, low.values, high.values), require(low.length >= 2 && high.length >= 2, ZorErrSize),
                     require(low.isPlaced() && high.isPlaced(), ZorErrAnchor));
      s != ZorOk)
    return s;
  *made = nullptr;
  BlockPlan block(sizeof(State));
  State head = {};
  if (!planState(way, channelCount, low, high, block, head) || block.isImpossible()) return ZorErrAlloc;
  Scratch<Zor8u> memory(block.bytes());
  if (!memory) return ZorErrAlloc;
  std::memcpy(memory.get(), &head, sizeof head);
  copyTaps(head.low, low.values, memory.get());
  copyTaps(head.high, high.values, memory.get());
  *made = reinterpret_cast<Made*>(memory.release());
  return ZorOk;
}

// A state is sound when its head is the one that its filters' numbers give.
ZorStatus checked(Way way, int channelCount, const void* given)
{
  if (!given) return ZorErrNullPtr;
  if (auto s = isOfKind(given, static_cast<std::uint32_t>(way)); s != ZorOk) return s;
  const State& state = *static_cast<const State*>(given);
  const Taps low = {nullptr, state.low.length, state.low.anchor},
             high = {nullptr, state.high.length, state.high.anchor};
  if (low.length < 2 || high.length < 2 || !low.isPlaced() || !high.isPlaced()) return ZorErrContext;
  BlockPlan block(sizeof(State));
  State expected = {};
  return planState(way, channelCount, low, high, block, expected) && std::memcmp(&state, &expected, sizeof state) == 0
           ? ZorOk
           : ZorErrContext;
}

ZorStatus tellBufferBytes(Way way, int channelCount, const void* state, int* size)
{
  if (auto s = nonNull(state, size); s != ZorOk) return s;
  if (auto s = checked(way, channelCount, state); s != ZorOk) return s;
  *size = static_cast<const State*>(state)->bufferBytes();
  return ZorOk;
}

ZorStatus release(Way way, int channelCount, void* state)
{
  if (auto s = checked(way, channelCount, state); s != ZorOk) return s;
  return releaseRecord(state, static_cast<std::uint32_t>(way));
}

// ---- Transforms ----

// Rows of an image of pixels of so many channels, at column x.
template <int channelCount, class T> struct Pixels {
  Rows<T> rows;
  T* at(std::ptrdiff_t x, std::ptrdiff_t y) const { return rows[y] + x * channelCount; }
};

template <int channelCount> class Transform {
public:
  using Source = Pixels<channelCount, const float>;
  using Target = Pixels<channelCount, float>;

  Transform(const State& state, Zor8u* buffer)
    : state_(state), lines_{reinterpret_cast<float*>(buffer), reinterpret_cast<float*>(buffer + state.lineBytes)}
  {}

  // to[0..3]: LL, HL, LH, HH
  void forward(Source from, const Target (&to)[4], std::ptrdiff_t x, std::ptrdiff_t y, std::ptrdiff_t columns) const
  {
    const std::ptrdiff_t pixels = 2 * columns + state_.left + state_.right;
    const float* const source = from.at(2 * x - state_.left, 0);
    for (const bool high : {false, true}) {
      const Filter& filter = high ? state_.high : state_.low;
      const Rows<const float> rows{source, from.rows.step};
      const Sum sum[1] = {
        {{{bytes(rows[2 * y + filter.anchor]), rows.step, filter.taps.in(&state_), filter.length}, none}}};
      float* const line = lines_[high];
      putSums(sum, pixels * channelCount, SplitPixels<channelCount>{line, oddHalf(line, pixels)});
    }
    for (const bool highColumn : {false, true})
      for (const bool highRow : {false, true}) {
        const Sum sum[1] = {halfLineSum(highRow ? state_.high : state_.low, lines_[highColumn], pixels)};
        putSums(sum, columns * channelCount, AsTheyCome{to[2 * highRow + highColumn].at(x, y)});
      }
  }

  void inverse(const Source (&from)[4], Target to, std::ptrdiff_t x, std::ptrdiff_t y, std::ptrdiff_t columns) const
  {
    const std::ptrdiff_t pixels = columns + state_.left + state_.right;
    for (const int odd : {0, 1}) {
      for (const bool highRow : {false, true}) {
        const Source &low = from[2 * highRow], &high = from[2 * highRow + 1];
        const Sum sum[1] = {
          {{spread(
              state_.low, odd, y, [&](std::ptrdiff_t n) { return low.at(x - state_.left, n); }, low.rows.step),
            spread(
              state_.high, odd, y, [&](std::ptrdiff_t n) { return high.at(x - state_.left, n); }, high.rows.step)}}};
        putSums(sum, pixels * channelCount, AsTheyCome{lines_[highRow]});
      }
      const auto lineSum = [&](int oddColumn) {
        const auto value = [&](const float* line) { return [=](std::ptrdiff_t n) { return line + n * channelCount; }; };
        return Sum{{spread(state_.low, oddColumn, state_.left, value(lines_[0]), pixelBytes),
                    spread(state_.high, oddColumn, state_.left, value(lines_[1]), pixelBytes)}};
      };
      const Sum sums[2] = {lineSum(0), lineSum(1)};
      putSums(sums, columns * channelCount, MergePixels<channelCount>{to.at(2 * x, 2 * y + odd)});
    }
  }

private:
  static constexpr int pixelBytes = channelCount * sizeof(float);
  static constexpr Terms none = {nullptr, 0, nullptr, 0};

  static const char* bytes(const float* p) { return reinterpret_cast<const char*>(p); }
  static float* oddHalf(float* line, std::ptrdiff_t pixels) { return line + (pixels + 1) / 2 * channelCount; }

  // y[n] = sum of taps[k] * line[2n + anchor - k + left], the line split into halves.
  Sum halfLineSum(const Filter& filter, float* line, std::ptrdiff_t pixels) const
  {
    Sum sum;
    for (const int odd : {0, 1}) {
      const std::ptrdiff_t first = filter.anchor + state_.left - odd;
      const float* const half = first % 2 == 0 ? line : oddHalf(line, pixels);
      const auto& taps = filter.phase[odd];
      sum.run[odd] = {bytes(half + first / 2 * channelCount), pixelBytes, taps.in(&state_),
                      static_cast<int>(taps.count)};
    }
    return sum;
  }

  // x[2n + odd] = sum of taps[k] * u[2n + odd + anchor - k]: the taps whose u is not zero. value(i) tells where the
  // floats of y[i] stand.
  template <class Value>
  Terms spread(const Filter& filter, int odd, std::ptrdiff_t n, Value value, std::ptrdiff_t apart) const
  {
    const int from = (odd + filter.anchor + 1) % 2; // the first such tap
    const auto& taps = filter.phase[from];
    return {bytes(value(n + (odd + filter.anchor - from - 1) / 2)), apart, taps.in(&state_),
            static_cast<int>(taps.count)};
  }

  const State& state_;
  float* lines_[2];
};

// body(x, y, columns) for every row of every strip.
template <class Body> [[gnu::noinline]] void inStrips(ZorImgSize size, Body body)
{
  underRounding(roundNearest, [&] {
    for (std::ptrdiff_t x = 0; x < size.width; x += stripColumns)
      for (std::ptrdiff_t y = 0; y < size.height; ++y)
        body(x, y, std::min<std::ptrdiff_t>(stripColumns, size.width - x));
  });
}

template <int channelCount>
ZorStatus forward(const Zor32f* pSrc, int srcStep, Zor32f* pDstLL, int dstLLStep, Zor32f* pDstHL, int dstHLStep,
                  Zor32f* pDstLH, int dstLHStep, Zor32f* pDstHH, int dstHHStep, ZorImgSize size,
                  const ZorWtFwdState* pState, Zor8u* pBuffer)
{
  if (auto s = firstFailure(checked(Way::Forward, channelCount, pState),
                            nonNull(pSrc, pDstLL, pDstHL, pDstLH, pDstHH, pBuffer), nonEmpty(size),
                            positive(srcStep, dstLLStep, dstHLStep, dstLHStep, dstHHStep));
      s != ZorOk)
    return s;
  using Work = Transform<channelCount>;
  const Work work(*reinterpret_cast<const State*>(pState), pBuffer);
  const typename Work::Source from = {{pSrc, srcStep}};
  const typename Work::Target to[4] = {
    {{pDstLL, dstLLStep}}, {{pDstHL, dstHLStep}}, {{pDstLH, dstLHStep}}, {{pDstHH, dstHHStep}}};
  inStrips(size,
           [&](std::ptrdiff_t x, std::ptrdiff_t y, std::ptrdiff_t columns) { work.forward(from, to, x, y, columns); });
  return ZorOk;
}

template <int channelCount>
ZorStatus inverse(const Zor32f* pSrcLL, int srcLLStep, const Zor32f* pSrcHL, int srcHLStep, const Zor32f* pSrcLH,
                  int srcLHStep, const Zor32f* pSrcHH, int srcHHStep, ZorImgSize size, Zor32f* pDst, int dstStep,
                  const ZorWtInvState* pState, Zor8u* pBuffer)
{
  if (auto s = firstFailure(checked(Way::Inverse, channelCount, pState),
                            nonNull(pSrcLL, pSrcHL, pSrcLH, pSrcHH, pDst, pBuffer), nonEmpty(size),
                            positive(srcLLStep, srcHLStep, srcLHStep, srcHHStep, dstStep));
      s != ZorOk)
    return s;
  using Work = Transform<channelCount>;
  const Work work(*reinterpret_cast<const State*>(pState), pBuffer);
  const typename Work::Source from[4] = {
    {{pSrcLL, srcLLStep}}, {{pSrcHL, srcHLStep}}, {{pSrcLH, srcLHStep}}, {{pSrcHH, srcHHStep}}};
  const typename Work::Target to = {{pDst, dstStep}};
  inStrips(size,
           [&](std::ptrdiff_t x, std::ptrdiff_t y, std::ptrdiff_t columns) { work.inverse(from, to, x, y, columns); });
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(name, way, kind, layout, n)                                                                         \
  ZorStatus zoriWT##name##InitAlloc_32f_##layout(kind** ppState, const Zor32f* pTapsLow, int lenLow,              \
                                                int anchorLow, const Zor32f* pTapsHigh, int lenHigh,              \
                                                int anchorHigh)                                                   \
  { return make(way, n, ppState, {pTapsLow, lenLow, anchorLow}, {pTapsHigh, lenHigh, anchorHigh}); }              \
  ZorStatus zoriWT##name##Free_32f_##layout(kind* pState) { return release(way, n, pState); }                     \
  ZorStatus zoriWT##name##GetBufSize_##layout(const kind* pState, int* pSize)                                     \
  { return tellBufferBytes(way, n, pState, pSize); }
STAMP(Fwd, Way::Forward, ZorWtFwdState, C1R, 1) STAMP(Fwd, Way::Forward, ZorWtFwdState, C3R, 3)
STAMP(Inv, Way::Inverse, ZorWtInvState, C1R, 1) STAMP(Inv, Way::Inverse, ZorWtInvState, C3R, 3)
#undef STAMP

#define STAMP(layout, n)                                                                                          \
  ZorStatus zoriWTFwd_32f_##layout(const Zor32f* pSrc, int srcStep, Zor32f* pDstLL, int dstLLStep, Zor32f* pDstHL, \
                                  int dstHLStep, Zor32f* pDstLH, int dstLHStep, Zor32f* pDstHH, int dstHHStep,    \
                                  ZorImgSize dstRoiSize, const ZorWtFwdState* pState, Zor8u* pBuffer)             \
  { return forward<n>(pSrc, srcStep, pDstLL, dstLLStep, pDstHL, dstHLStep, pDstLH, dstLHStep, pDstHH, dstHHStep,  \
                      dstRoiSize, pState, pBuffer); }                                                             \
  ZorStatus zoriWTInv_32f_##layout(const Zor32f* pSrcLL, int srcLLStep, const Zor32f* pSrcHL, int srcHLStep,      \
                                  const Zor32f* pSrcLH, int srcLHStep, const Zor32f* pSrcHH, int srcHHStep,       \
                                  ZorImgSize srcRoiSize, Zor32f* pDst, int dstStep, const ZorWtInvState* pState,  \
                                  Zor8u* pBuffer)                                                                 \
  { return inverse<n>(pSrcLL, srcLLStep, pSrcHL, srcHLStep, pSrcLH, srcLHStep, pSrcHH, srcHHStep, srcRoiSize,     \
                      pDst, dstStep, pState, pBuffer); }
STAMP(C1R, 1) STAMP(C3R, 3)
#undef STAMP
