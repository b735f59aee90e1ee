// zoriConvert_1u8u_C1R, zoriConvert_8u1u_C1R: bytes from packed bits, and packed bits from bytes by error diffusion.
//
// Bits are packed eight to a byte, the first pixel in the most significant bit. A bit offset counts from bit 7 of the
// first byte and may exceed a byte; every row starts with the same one.
#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/memory.h"
#include "rowkernels/drivers.h"
#include "zori/data.h"

#include <algorithm>
#include <cstring>

namespace zori {
namespace {

alignas(16) static constexpr Zor8u bitOfPixel[16] = {128, 64, 32, 16, 8, 4, 2, 1, 128, 64, 32, 16, 8, 4, 2, 1};

// ---- Bits to bytes ----

// 64 pixels from the bits that start at bit `shift` (0 to 7) of the byte at p: reads exactly the bytes that hold them.
static inline void bitsToBytes(const Zor8u* p, int shift, Zor8u* dst)
{
  const Vec<Zor8u> test = load<Zor8u>(bitOfPixel);
  Vec<Zor8u> bits = loadLow8<Zor8u>(p);
  if (shift) {
    const Vec<Zor8u> high = as<Zor8u>(shiftLeft(as<Zor16u>(bits), shift));
    const Vec<Zor8u> low = as<Zor8u>(shiftRight(loadLow8<Zor16u>(p + 1), 8 - shift));
    bits = select(splat(static_cast<Zor8u>(0xff << shift)), high, low);
  }
  // each byte eight times, then one bit of each tested
  const Vec<Zor16u> twice = as<Zor16u>(interleaveLow(bits, bits));
  const Vec<Zor32s> fourTimes[2] = {as<Zor32s>(interleaveLow(twice, twice)), as<Zor32s>(interleaveHigh(twice, twice))};
  for (int k = 0; k < 2; ++k) {
    store(dst + 32 * k, equal(as<Zor8u>(shuffle<1, 1, 0, 0>(fourTimes[k])) & test, test));
    store(dst + 32 * k + 16, equal(as<Zor8u>(shuffle<3, 3, 2, 2>(fourTimes[k])) & test, test));
  }
}

ZORI_ONE_COPY static void bitsToBytesRow(const Zor8u* src, int bitOffset, Zor8u* dst, std::ptrdiff_t length)
{
  if (length < 64) {
    alignas(16) Zor8u bits[16] = {}, out[64];
    std::memcpy(bits, src, static_cast<std::size_t>(bitOffset + length + 7) / 8);
    bitsToBytes(bits, bitOffset, out);
    std::memcpy(dst, out, static_cast<std::size_t>(length));
    return;
  }
  const auto block = [=](std::ptrdiff_t i) {
    const std::ptrdiff_t bit = bitOffset + i;
    bitsToBytes(src + bit / 8, static_cast<int>(bit % 8), dst + i);
  };
  const std::ptrdiff_t head = elementsToAlignment(dst);
  if (head) block(0);
  const int shift = static_cast<int>((bitOffset + head) % 8);
  const Zor8u* p = src + (bitOffset + head) / 8;
  std::ptrdiff_t i = head;
  for (; i + 64 <= length; i += 64, p += 8) bitsToBytes(p, shift, dst + i);
  if (i < length) block(length - 64);
}

// ---- Bytes to bits ----
//
// With e1 the errors of the current row, e2 and e3 those of the rows above it and p the pixel of column c,
//
//   sum = 8 (e2[c] + e1[c-1]) + 4 (e3[c] + e2[c-1] + e2[c+1] + e1[c-2])
//       + 2 (e3[c-1] + e3[c+1] + e2[c-2] + e2[c+2]) + e3[c-2] + e3[c+2]
//   t = p * 8192 + 23 * sum, set = t > threshold * 8192, e1[c] = (t >> 10) - (set ? 2047 : 0)
//
// and all errors outside the region zero. A row goes in three passes: what the rows above give to t, for all columns at
// once; the walk, in which each pixel waits for the one before it; errors and bits from the finished t.
//
// Errors fit 16 bits: with e in -2047..2040 in the rows before, t lies in -1977402..4059600. A clear bit means
// t <= 255 * 8192 and so e in -1932..2040, a set one t > 0 and so e in -2047..1917. Nothing overflows 32 bits.
struct DitherRows {
  std::ptrdiff_t columns; // of the region, rounded up to whole blocks of 8
  Zor32s* t;
  Zor16s *e1, *e2, *e3; // with a margin of two columns on each side; zero outside the region

  static constexpr int margin = 4;
  static long long bytes(long long columns)
  {
    return columns * static_cast<int>(sizeof(Zor32s)) + 3 * (columns + 2 * margin) * static_cast<int>(sizeof(Zor16s));
  }
  DitherRows(Zor8u* block, std::ptrdiff_t columns_) : columns(columns_), t(reinterpret_cast<Zor32s*>(block))
  {
    const std::ptrdiff_t stride = columns + 2 * margin;
    e1 = reinterpret_cast<Zor16s*>(t + columns) + margin;
    e2 = e1 + stride;
    e3 = e2 + stride;
    std::memset(e1 - margin, 0, static_cast<std::size_t>(3 * stride) * sizeof(Zor16s));
  }
  void nextRow()
  {
    Zor16s* const oldest = e3;
    e3 = e2;
    e2 = e1;
    e1 = oldest;
  }
};

ZORI_ONE_COPY static void gatherFromAbove(const Zor8u* src, int length, const DitherRows& rows)
{
  const auto at = [](const Zor16s* e, int column) { return load<Zor16s>(e + column); };
  const Vec<Zor16s> weights1 = as<Zor16s>(splat<Zor32s>(92 << 16 | 184));
  const Vec<Zor16s> weights2 = as<Zor16s>(splat<Zor32s>(23 << 16 | 46));
  const Zor16s *e2 = rows.e2, *e3 = rows.e3;
  Zor32s* t = rows.t;
  for (int rest = length; rest > 0; rest -= 8, src += 8, e2 += 8, e3 += 8, t += 8) {
    const Vec<Zor16s> by184 = at(e2, 0);
    const Vec<Zor16s> by92 = at(e2, -1) + at(e2, 1) + at(e3, 0);
    const Vec<Zor16s> by46 = at(e2, -2) + at(e2, 2) + at(e3, -1) + at(e3, 1);
    const Vec<Zor16s> by23 = at(e3, -2) + at(e3, 2);
    const auto bytes = static_cast<std::size_t>(std::min(rest, 8));
    const Vec<Zor16u> p = widenLow(bytes == 8 ? loadLow8<Zor8u>(src) : loadPart<Zor8u>(src, bytes));
    storeAligned(t, shiftLeft<13>(as<Zor32s>(widenLow(p))) + mulAddPairs(interleaveLow(by184, by92), weights1) +
                      mulAddPairs(interleaveLow(by46, by23), weights2));
    storeAligned(t + 4, shiftLeft<13>(as<Zor32s>(widenHigh(p))) + mulAddPairs(interleaveHigh(by184, by92), weights1) +
                          mulAddPairs(interleaveHigh(by46, by23), weights2));
  }
}

// Adds 184 * e1[c-1] + 92 * e1[c-2]. The time of a pixel is that of the way from one t to the next, so it is kept
// short: e1 = u + correction with u = t >> 10, and the product of u does not wait for the comparison.
ZORI_ONE_COPY static void walkRow(Zor32s* t, int length, Zor32s limit)
{
  Zor32s last = 0, lastBut1 = 0; // 184 * u, 92 * e1
  Zor32s correction = 0;         // 92 * what the set bit takes from the last e1
  for (int i = 0; i < length; ++i) {
    const Zor32s now = t[i] + lastBut1 + 2 * correction + last;
    t[i] = now;
    lastBut1 = last / 2 + correction;
    correction = ((limit - now) >> 31) & (-92 * 2047);
    last = 184 * (now >> 10);
  }
}

// Replaces the first `count` (1 to 8) bits of a byte.
static inline void putBits(Zor8u* p, int bits, int count)
{
  const int kept = 0xff >> count;
  *p = static_cast<Zor8u>((bits & ~kept) | (*p & kept));
}

ZORI_ONE_COPY static void finishRow(const DitherRows& rows, int length, Zor32s limit, Zor8u* dst, int bitOffset)
{
  const Vec<Zor32s> limits = splat(limit), lowering = splat<Zor32s>(-2047);
  const Vec<Zor8u> bitOf = load<Zor8u>(bitOfPixel);
  const Zor32s* t = rows.t;
  Zor16s* e1 = rows.e1;
  int pending = *dst & ~(0xff >> bitOffset); // the bits in front of the region, then those that wait for their byte
  int rest = length;
  for (;; rest -= 8, t += 8, e1 += 8) {
    const Vec<Zor32s> t1 = loadAligned<Zor32s>(t), t2 = loadAligned<Zor32s>(t + 4);
    const Vec<Zor32s> set1 = greater(t1, limits), set2 = greater(t2, limits);
    store(e1, narrowSat<Zor16s>(shiftRight<10>(t1) + (set1 & lowering), shiftRight<10>(t2) + (set2 & lowering)));
    const Vec<Zor16s> set = narrowSat<Zor16s>(set1, set2);
    const Vec<Zor8u> mask = as<Zor8u>(narrowSat<Zor8s>(set, set));
    const int packed = firstLane(as<Zor32s>(sumAbsDiff(mask & bitOf, zero<Zor8u>())));
    const int bits = packed << (8 - bitOffset);
    pending |= bits >> 8;
    if (rest <= 8 - bitOffset) break;
    *dst++ = static_cast<Zor8u>(pending);
    pending = bits & 0xff;
    if (rest <= 8) {
      rest -= 8;
      break;
    }
  }
  putBits(dst, pending, bitOffset + rest);
  std::memset(rows.e1 + length, 0, static_cast<std::size_t>(rows.columns - length) * sizeof(Zor16s));
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriConvert_1u8u_C1R(const Zor8u* pSrc, int srcStep, int srcBitOffset, Zor8u* pDst, int dstStep,
                               ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), positive(srcStep, dstStep),
                            require(srcBitOffset >= 0, ZorErrSize));
      s != ZorOk)
    return s;
  const Rows src{pSrc + srcBitOffset / 8, srcStep};
  const Rows dst{pDst, dstStep};
  for (int y = 0; y < roiSize.height; ++y) bitsToBytesRow(src[y], srcBitOffset % 8, dst[y], roiSize.width);
  return ZorOk;
}

ZorStatus zoriConvert_8u1u_C1R(const Zor8u* pSrc, int srcStep, Zor8u* pDst, int dstStep, int dstBitOffset,
                               ZorImgSize roiSize, Zor8u threshold)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), require(dstBitOffset >= 0, ZorErrSize)); s != ZorOk)
    return s;
  const long long columns = (roiSize.width + 7LL) / 8 * 8;
  const Scratch<Zor8u> block(DitherRows::bytes(columns));
  if (!block) return ZorErrAlloc;
  DitherRows rows(block.get(), static_cast<std::ptrdiff_t>(columns));

  const Rows src{pSrc, srcStep};
  const Rows dst{pDst + dstBitOffset / 8, dstStep};
  const Zor32s limit = threshold * 8192;
  for (int y = 0; y < roiSize.height; ++y) {
    gatherFromAbove(src[y], roiSize.width, rows);
    walkRow(rows.t, roiSize.width, limit);
    finishRow(rows, roiSize.width, limit, dst[y], dstBitOffset % 8);
    rows.nextRow();
  }
  return ZorOk;
}
