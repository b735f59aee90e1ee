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

// ---- Bits to bytes ----

// 64 pixels from the bits that start at bit `shift` (0 to 7) of the byte at p: reads exactly the bytes that hold them.
static inline void bitsToBytes(const Zor8u* p, int shift, Zor8u* dst)
{
  alignas(16) static constexpr Zor8u bitOfPixel[16] = {128, 64, 32, 16, 8, 4, 2, 1, 128, 64, 32, 16, 8, 4, 2, 1};
  const Vec<Zor8u> test = load<Zor8u>(bitOfPixel);
  const Vec<Zor8u> high = as<Zor8u>(shiftLeft(loadLow8<Zor16u>(p), shift));
  const Vec<Zor8u> low = as<Zor8u>(shiftRight(loadLow8<Zor16u>(p + (shift != 0)), 8 - shift));
  const Vec<Zor8u> bits = select(splat(static_cast<Zor8u>(0xff << shift)), high, low);
  // each byte eight times, then one bit of each tested
  const Vec<Zor16u> twice = as<Zor16u>(interleaveLow(bits, bits));
  const Vec<Zor32s> fourTimes[2] = {as<Zor32s>(interleaveLow(twice, twice)), as<Zor32s>(interleaveHigh(twice, twice))};
  for (int k = 0; k < 2; ++k) {
    store(dst + 32 * k, equal(as<Zor8u>(shuffle<1, 1, 0, 0>(fourTimes[k])) & test, test));
    store(dst + 32 * k + 16, equal(as<Zor8u>(shuffle<3, 3, 2, 2>(fourTimes[k])) & test, test));
  }
}

[[gnu::noinline]] static void bitsToBytesRow(const Zor8u* src, int bitOffset, Zor8u* dst, std::ptrdiff_t length)
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

// The errors of the current row and of the two above it. Columns outside the region are zero: a margin of at least two
// on each side, and the rest of the last block of eight.
//
// An error fits 16 bits: with e from -2047 to 2040 in all rows, 23 * sum lies in -1977402..1970640 and t in
// -1977402..4059600. A clear bit means t <= threshold * 8192 <= 255 * 8192, so e = t >> 10 lies in -1932..2040; a set
// one means t > 0, so e lies in -2047..1917. So 32 bits hold every sum too.
struct ErrorRows {
  Zor16s *current, *above, *aboveThat;
  void rotate()
  {
    Zor16s* const oldest = aboveThat;
    aboveThat = above;
    above = current;
    current = oldest;
  }
};

// t of eight pixels without the share of the current row: p * 8192 + 23 * (the sum over the two rows above).
static inline void shareOfRowsAbove(Vec<Zor8u> pixels, const Zor16s* e2, const Zor16s* e3, Zor32s* t)
{
  const auto at = [](const Zor16s* e, int column) { return load<Zor16s>(e + column); };
  const Vec<Zor16s> by184 = at(e2, 0);
  const Vec<Zor16s> by92 = at(e2, -1) + at(e2, 1) + at(e3, 0);
  const Vec<Zor16s> by46 = at(e2, -2) + at(e2, 2) + at(e3, -1) + at(e3, 1);
  const Vec<Zor16s> by23 = at(e3, -2) + at(e3, 2);
  const Vec<Zor16s> weights1 = as<Zor16s>(splat<Zor32s>(92 << 16 | 184)), weights2 = as<Zor16s>(splat<Zor32s>(23 << 16 | 46));
  const Vec<Zor16u> p = widenLow(pixels);
  store(t, shiftLeft<13>(as<Zor32s>(widenLow(p))) + mulAddPairs(interleaveLow(by184, by92), weights1) +
             mulAddPairs(interleaveLow(by46, by23), weights2));
  store(t + 4, shiftLeft<13>(as<Zor32s>(widenHigh(p))) + mulAddPairs(interleaveHigh(by184, by92), weights1) +
                 mulAddPairs(interleaveHigh(by46, by23), weights2));
}

// The walk along a row: each pixel waits for the error of the one before it, so the chain is kept short. With
// u = t >> 10 and m all ones where the bit is set, e = u + (m & -2047) and 184 * e = 184 * u + (m & -184 * 2047).
struct Chain {
  Zor32s limit;        // threshold * 8192
  Zor32s scaled = 0;   // 184 * u of the last pixel
  Zor32s rest = 0;     // what else the current row gives to the next pixel
  Zor32s previous = 0; // e of the last pixel

  // Eight bits, the first in the most significant one; those behind `count` are clear.
  int step(const Zor32s* share, Zor16s* e, int count)
  {
    int bits = 0;
    for (int k = 0; k < count; ++k) {
      const Zor32s t = share[k] + rest + scaled;
      const Zor32s u = t >> 10, set = (limit - t) >> 31;
      scaled = 184 * u;
      rest = 92 * previous + (set & (-184 * 2047));
      previous = u + (set & -2047);
      e[k] = static_cast<Zor16s>(previous);
      bits = 2 * bits - set;
    }
    return bits << (8 - count);
  }
};

// Replaces the first `count` (1 to 8) bits of a byte.
static inline void putBits(Zor8u* p, int bits, int count)
{
  const int kept = 0xff >> count;
  *p = static_cast<Zor8u>((bits & ~kept) | (*p & kept));
}

[[gnu::noinline]] static void ditherRow(const Zor8u* src, Zor8u* dst, int bitOffset, int length, int threshold,
                                        const ErrorRows& errors)
{
  Chain chain{threshold * 8192};
  int pending = *dst & ~(0xff >> bitOffset); // the bits in front of the region, then those that wait for their byte
  alignas(16) Zor32s share[8];
  int i = 0;
  for (; i + 8 <= length; i += 8, ++dst) {
    shareOfRowsAbove(loadLow8<Zor8u>(src + i), errors.above + i, errors.aboveThat + i, share);
    const int bits = chain.step(share, errors.current + i, 8) << (8 - bitOffset);
    *dst = static_cast<Zor8u>(pending | bits >> 8);
    pending = bits & 0xff;
  }
  int count = bitOffset; // bits that wait
  if (i < length) {
    const int rest = length - i;
    shareOfRowsAbove(loadPart<Zor8u>(src + i, static_cast<std::size_t>(rest)), errors.above + i, errors.aboveThat + i, share);
    const int bits = chain.step(share, errors.current + i, rest) << (8 - bitOffset);
    pending |= bits >> 8;
    count += rest;
    if (count > 8) {
      *dst++ = static_cast<Zor8u>(pending);
      pending = bits & 0xff;
      count -= 8;
    }
  }
  if (count) putBits(dst, pending, count);
}

} // namespace zori

using namespace zori;

ZorStatus zoriConvert_1u8u_C1R(const Zor8u* pSrc, int srcStep, int srcBitOffset, Zor8u* pDst, int dstStep, ZorImgSize roiSize)
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
  const long long stride = (roiSize.width + 7LL) / 8 * 8 + 8;
  const Scratch<Zor16s> block(3 * stride);
  if (!block) return ZorErrAlloc;
  std::memset(block.get(), 0, static_cast<std::size_t>(3 * stride) * sizeof(Zor16s));
  Zor16s* const first = block.get() + 4;
  ErrorRows errors{first, first + stride, first + 2 * stride};

  const Rows src{pSrc, srcStep};
  const Rows dst{pDst + dstBitOffset / 8, dstStep};
  for (int y = 0; y < roiSize.height; ++y) {
    ditherRow(src[y], dst[y], dstBitOffset % 8, roiSize.width, threshold, errors);
    errors.rotate();
  }
  return ZorOk;
}
