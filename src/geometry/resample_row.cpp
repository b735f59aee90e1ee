// zoriResampleRow...: rows of 32f at a rational rate, by a windowed sinc.
//
// Output i lies at source position i * in / out, with the rates reduced. Its weights depend on i * in mod out alone:
// one set a phase, a sinc under a Kaiser window (beta 8) with 16 zero crossings a side at the lower of the two rates,
// formed in double, normalised to the sum 1, stored in single precision. A set's taps are `half` samples up to the
// position and `half` behind it.
#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/numeric_mode.h"
#include "frame/record.h"
#include "rowkernels/simd.h"
#include "zori/geometry.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>

namespace zori {
namespace {

constexpr std::uint32_t tag = 0x434D4169; // "iAMC"
constexpr int crossings = 16;
constexpr double beta = 8;

struct Head {
  std::uint32_t tag;
  std::int32_t filter, in, out, half, reserved[3];
};
constexpr long long headBytes = 32, alignment = 16;
static_assert(sizeof(Head) == headBytes);

struct Rates {
  int in, out;
  Rates(int a, int b)
  {
    int x = a, y = b;
    while (y != 0) {
      const int rest = x % y;
      x = y;
      y = rest;
    }
    in = a / x;
    out = b / x;
  }
  // Samples on either side; a multiple of 4.
  long long half() const
  {
    const long long exact = in <= out ? crossings : (static_cast<long long>(crossings) * in + out - 1) / out;
    return (exact + 3) / 4 * 4;
  }
  // Record and table; the record may start anywhere.
  long long bytes() const
  {
    const long long taps = 2 * half();
    if (taps > INT_MAX / 4) return LLONG_MAX;
    return headBytes + alignment + taps * 4 * out;
  }
};

// ---- The filter table ----

double bessel0(double x)
{
  double sum = 1, term = 1;
  for (int k = 1; k < 60; ++k) {
    term *= x / (2 * k) * (x / (2 * k));
    sum += term;
  }
  return sum;
}

// The weight at a distance, in zero crossings of the filter.
double weightAt(double d)
{
  constexpr double pi = 3.14159265358979323846;
  const double r = d / crossings;
  if (std::fabs(r) >= 1) return 0;
  const double window = bessel0(beta * std::sqrt(1 - r * r)) / bessel0(beta);
  return window * (std::fabs(d) < 1e-12 ? 1 : std::sin(pi * d) / (pi * d));
}

[[gnu::noinline]] void fillTable(const Head& head, float* table)
{
  const int taps = 2 * head.half;
  const double scale = head.in <= head.out ? 1 : static_cast<double>(head.out) / head.in;
  for (int phase = 0; phase < head.out; ++phase) {
    float* const set = table + static_cast<std::ptrdiff_t>(phase) * taps;
    const double fraction = static_cast<double>(phase) / head.out;
    double sum = 0;
    for (int t = 0; t < taps; ++t) sum += weightAt((t - (head.half - 1) - fraction) * scale);
    for (int t = 0; t < taps; ++t)
      set[t] = static_cast<float>(weightAt((t - (head.half - 1) - fraction) * scale) / sum);
  }
}

// A record may stand at any address: its head is read by value, its table by unaligned loads.
Head headOf(const void* record) { return get<Head>(record); }
const char* tableOf(const void* record) { return static_cast<const char*>(record) + headBytes; }

// ---- Rows ----

// The sum of products: four lanes, lane by lane, then (0 + 2) + (1 + 3).
inline float product(const char* weights, const float* samples, int taps)
{
  F32x4 sum = splatFour(0);
  for (int t = 0; t < taps; t += 4)
    sum = sum + loadFour(reinterpret_cast<const float*>(weights) + t) * loadFour(samples + t);
  const F32x4 pairs = sum + shuffle<1, 0, 3, 2>(sum, sum);
  return firstLane(pairs + shuffle<2, 3, 0, 1>(pairs, pairs));
}

// Where an output lies: the whole sample at or in front of it, and the phase.
struct Place {
  long long sample;
  int phase;
  Place(const Head& h, long long output)
  {
    // output * in may take 62 bits
    sample = output * h.in / h.out;
    phase = static_cast<int>(output * h.in % h.out);
  }
  void next(const Head& h)
  {
    sample += h.in / h.out;
    phase += h.in % h.out;
    if (phase >= h.out) {
      phase -= h.out;
      ++sample;
    }
  }
};

// Without a width, the row has whatever the taps ask for.
[[gnu::noinline]] void resampleRow(const void* record, const Head& h, const float* src, long long width,
                                   long long xStart, float* dst, int length)
{
  const int taps = 2 * h.half;
  const char* const table = tableOf(record);
  Place place(h, xStart);
  for (int i = 0; i < length; ++i, place.next(h)) {
    const char* const set = table + static_cast<std::ptrdiff_t>(place.phase) * taps * 4;
    const long long first = place.sample - (h.half - 1);
    if (width == 0 || (first >= 0 && first + taps <= width)) {
      put(dst + i, product(set, src + static_cast<std::ptrdiff_t>(first), taps));
      continue;
    }
    // four samples at a time, each the nearest inside
    F32x4 sum = splatFour(0);
    for (int t = 0; t < taps; t += 4) {
      float four[4];
      for (int k = 0; k < 4; ++k)
        four[k] = get<float>(src + static_cast<std::ptrdiff_t>(std::clamp(first + t + k, 0LL, width - 1)));
      sum = sum + loadFour(reinterpret_cast<const float*>(set) + t) * loadFour(four);
    }
    const F32x4 pairs = sum + shuffle<1, 0, 3, 2>(sum, sum);
    put(dst + i, firstLane(pairs + shuffle<2, 3, 0, 1>(pairs, pairs)));
  }
}

ZorStatus startStatus(int xStart) { return require(xStart >= 0, ZorErrBitSize); }

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriResampleRowGetSize_32f(int inRate, int outRate, int* pSpecSize, int* pBufSize)
{
  if (auto s = firstFailure(nonNull(pSpecSize, pBufSize), require(inRate >= 1 && outRate >= 1, ZorErrBadArg));
      s != ZorOk)
    return s;
  const long long bytes = Rates(inRate, outRate).bytes();
  if (bytes > INT_MAX) return ZorErrBadArg;
  *pSpecSize = static_cast<int>(bytes);
  *pBufSize = static_cast<int>(alignment);
  return ZorOk;
}

ZorStatus zoriResampleRowInit_32f(ZorResampleRowSpec* pSpec, int filter, int inRate, int outRate)
{
  if (auto s = firstFailure(nonNull(pSpec), positiveSize(inRate, outRate), require(filter == 0, ZorErrBadArg));
      s != ZorOk)
    return s;
  const Rates rates(inRate, outRate);
  if (rates.bytes() > INT_MAX) return ZorErrBadArg;
  const Head head = {tag, filter, rates.in, rates.out, static_cast<int>(rates.half()), {}};
  put(pSpec, head);
  const RoundingScope nearest(Rounding::Nearest);
  fillTable(head, reinterpret_cast<float*>(reinterpret_cast<char*>(pSpec) + headBytes));
  return ZorOk;
}

ZorStatus zoriResampleRowGetBorderWidth_32f(const ZorResampleRowSpec* pSpec, int* pLeftWidth, int* pRightWidth)
{
  if (auto s = nonNull(pSpec, pLeftWidth, pRightWidth); s != ZorOk) return s;
  if (auto s = isOfKind(pSpec, tag); s != ZorOk) return s;
  *pLeftWidth = *pRightWidth = headOf(pSpec).half;
  return ZorOk;
}

ZorStatus zoriResampleRow_32f_C1(const Zor32f* pSrc, int xStart, Zor32f* pDst, int dstLength,
                                 const ZorResampleRowSpec* pSpec, Zor8u* pBuffer)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, pSpec, pBuffer), positiveSize(dstLength), startStatus(xStart));
      s != ZorOk)
    return s;
  if (auto s = isOfKind(pSpec, tag); s != ZorOk) return s;
  const RoundingScope nearest(Rounding::Nearest);
  resampleRow(pSpec, headOf(pSpec), pSrc, 0, xStart, pDst, dstLength);
  return ZorOk;
}

ZorStatus zoriResampleRowReplicateBorder_32f_C1R(const Zor32f* pSrc, int srcStep, ZorImgSize srcRoiSize, Zor32f* pDst,
                                                 int dstStep, int xStart, int dstWidth, const ZorResampleRowSpec* pSpec,
                                                 Zor8u* pBuffer)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, pSpec, pBuffer), nonEmpty(srcRoiSize), positiveSize(dstWidth),
                            startStatus(xStart));
      s != ZorOk)
    return s;
  if (auto s = isOfKind(pSpec, tag); s != ZorOk) return s;
  const Head head = headOf(pSpec);
  const RoundingScope nearest(Rounding::Nearest);
  for (int y = 0; y < srcRoiSize.height; ++y)
    resampleRow(pSpec, head, rowAt(pSrc, srcStep, y), srcRoiSize.width, xStart, rowAt(pDst, dstStep, y), dstWidth);
  return ZorOk;
}
