// The box filter with running sums of floats. Each sum along a row hangs on the one before, so four rows run in four
// lanes: their columns are turned into vectors of four rows, and the results back.
#pragma once

#include "box_rule.h"
#include "rowkernels/drivers.h"

namespace zori {
namespace box {

// Four samples as floats.
inline F32x4 loadFour(const Zor32f* p) { return load<float>(p); }
inline F32x4 loadFour(const Zor8u* p) { return toFloat(as<int32_t>(widenLow(widenLow(loadLow4<uint8_t>(p))))); }

struct FourRows {
  F32x4 v[4];
};

inline FourRows transposed(const FourRows& x)
{
  const F32x4 a = interleaveLow(x.v[0], x.v[1]), b = interleaveLow(x.v[2], x.v[3]);
  const F32x4 c = interleaveHigh(x.v[0], x.v[1]), d = interleaveHigh(x.v[2], x.v[3]);
  return {shuffle<1, 0, 1, 0>(a, b), shuffle<3, 2, 3, 2>(a, b), shuffle<1, 0, 1, 0>(c, d), shuffle<3, 2, 3, 2>(c, d)};
}

// col[i] += row[i]
template <class T> ZORI_ONE_COPY void addRowOfFloats(float* col, const T* row, std::ptrdiff_t n)
{
  std::ptrdiff_t i = 0;
  for (; i + 4 <= n; i += 4) storeAligned(col + i, loadAligned<float>(col + i) + loadFour(row + i));
  if (i < n) storeAligned(col + i, loadAligned<float>(col + i) + loadFour(PaddedBlock<T, 4>(row + i, n - i).values));
}

// Four rows that enter and four that leave: slides the columns by four rows. turned[i] is column i before each slide.
template <class T>
ZORI_ONE_COPY void slideFourRows(float* col, float* turned, const T* const* entering, const T* const* leaving,
                                 std::ptrdiff_t n)
{
  const T *in0 = entering[0], *in1 = entering[1], *in2 = entering[2], *in3 = entering[3];
  const T *out0 = leaving[0], *out1 = leaving[1], *out2 = leaving[2], *out3 = leaving[3];
  const auto slide = [](float* c, float* t, const T* i0, const T* i1, const T* i2, const T* i3, const T* o0,
                        const T* o1, const T* o2, const T* o3) __attribute__((always_inline))
  {
    FourRows x;
    x.v[0] = loadAligned<float>(c);
    x.v[1] = (x.v[0] + loadFour(i0)) - loadFour(o0);
    x.v[2] = (x.v[1] + loadFour(i1)) - loadFour(o1);
    x.v[3] = (x.v[2] + loadFour(i2)) - loadFour(o2);
    storeAligned(c, (x.v[3] + loadFour(i3)) - loadFour(o3));
    x = transposed(x);
    for (int k = 0; k < 4; ++k) storeAligned(t + 4 * k, x.v[k]);
  };
  std::ptrdiff_t i = 0;
  for (; i + 4 <= n; i += 4)
    slide(col + i, turned + 4 * i, in0 + i, in1 + i, in2 + i, in3 + i, out0 + i, out1 + i, out2 + i, out3 + i);
  if (i < n) {
    const auto rest = [=](const T* row) { return PaddedBlock<T, 4>(row + i, n - i); };
    slide(col + i, turned + 4 * i, rest(in0).values, rest(in1).values, rest(in2).values, rest(in3).values,
          rest(out0).values, rest(out1).values, rest(out2).values, rest(out3).values);
  }
}

// Four results of a row, the fourth of which KeepAlpha leaves alone.
template <bool KeepAlpha> inline void storeFour(Zor32f* p, F32x4 x)
{
  store(p, KeepAlpha ? select(colourMask<float>(), x, load<float>(p)) : x);
}
template <bool KeepAlpha> inline void storeFour(Zor8u* p, F32x4 x)
{
  const Vec<int16_t> words = narrowSat<int16_t>(toIntTruncated(x), toIntTruncated(x));
  const Vec<Zor8u> bytes = narrowSat<Zor8u>(words, words);
  storeLow4(p, KeepAlpha ? select(colourMask<Zor8u>(), bytes, loadLow4<Zor8u>(p)) : bytes);
}

// The windows of four rows at once: dst[k][i] from turned columns. A row that is not wanted goes where row 0 does,
// which is stored last.
template <class T, int CH, bool KeepAlpha>
ZORI_ONE_COPY void runFourRows(const float* turned, T* const* dst, std::ptrdiff_t n, int mask, float factor)
{
  constexpr int turn = CH == 3 ? 12 : 4; // elements that are whole pixels and whole vectors
  const std::ptrdiff_t span = static_cast<std::ptrdiff_t>(mask) * CH;
  const F32x4 r = splat(factor), offset = splat(9e-6f);
  T *const dst0 = dst[0], *const dst1 = dst[1], *const dst2 = dst[2], *const dst3 = dst[3];
  F32x4 sums[CH];
  for (int c = 0; c < CH; ++c) sums[c] = loadAligned<float>(turned + 4 * c);
  for (std::ptrdiff_t i = CH; i < span; i += CH)
    for (int c = 0; c < CH; ++c) sums[c] += loadAligned<float>(turned + 4 * (i + c));

  const auto runTurn = [&](std::ptrdiff_t i, FourRows * rows) __attribute__((always_inline))
  {
    FourRows out[turn / 4];
    for (int k = 0; k < turn; ++k) {
      const float* const t = turned + 4 * (i + k);
      F32x4& sum = sums[k % CH];
      out[k / 4].v[k % 4] = std::is_same_v<T, Zor8u> ? sum * r + offset : sum * r;
      sum = (sum + loadAligned<float>(t + 4 * span)) - loadAligned<float>(t);
    }
    for (int k = 0; k < turn / 4; ++k) rows[k] = transposed(out[k]);
  };
  FourRows rows[turn / 4];
  std::ptrdiff_t i = 0;
  for (; i + turn <= n; i += turn) {
    runTurn(i, rows);
    for (int k = 0; k < turn / 4; ++k) {
      storeFour<KeepAlpha>(dst3 + i + 4 * k, rows[k].v[3]);
      storeFour<KeepAlpha>(dst2 + i + 4 * k, rows[k].v[2]);
      storeFour<KeepAlpha>(dst1 + i + 4 * k, rows[k].v[1]);
      storeFour<KeepAlpha>(dst0 + i + 4 * k, rows[k].v[0]);
    }
  }
  if (i < n) {
    runTurn(i, rows);
    for (int row = 3; row >= 0; --row) {
      T last[turn] = {};
      for (int k = 0; k < turn / 4; ++k) storeFour<false>(last + 4 * k, rows[k].v[row]);
      std::memcpy(dst[row] + i, last, static_cast<std::size_t>(n - i) * sizeof(T));
    }
  }
}

// ---- A mask of 3x3 without running sums ----

// c[i] = the sum of row[i] and its next two pixels; dst[i] = ((a[i] + b[i]) + c[i]) * factor unless dst is null.
template <int CH>
ZORI_ONE_COPY void sumThreeRows(const float* a, const float* b, float* c, const float* row, float* dst,
                                std::ptrdiff_t n, float factor)
{
  static_assert(CH == 4);
  const F32x4 r = splat(factor);
  for (std::ptrdiff_t i = 0; i < n; i += 4) {
    const F32x4 sum = (load<float>(row + i) + load<float>(row + i + CH)) + load<float>(row + i + 2 * CH);
    storeAligned(c + i, sum);
    if (dst) store(dst + i, ((loadAligned<float>(a + i) + loadAligned<float>(b + i)) + sum) * r);
  }
}

} // namespace box
} // namespace zori
