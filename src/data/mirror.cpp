// zoriMirror_{8u,16u,16s,32s,32f}_{C1,C3,C4,AC4}{R,IR}: mirror images.
//
// A mirror about the horizontal axis copies rows, one about the vertical axis reverses them, both together do both. In
// place, runs of pixels change places by way of a buffer; a row or column in the middle stays where it is. Pixels move
// whole, AC4 moves three of four elements. Steps are not tested: negative ones walk upward.
#include "rowkernels/mirror.h"
#include "frame/checks.h"
#include "region.h"
#include "rowkernels/copy.h"
#include "walk/map.h"
#include "zori/data.h"

#include <algorithm>

namespace zori {
namespace {

// Rows of pixels of PixelBytes; with KeepsFourth those of four elements whose last one stays.
template <int PixelBytes, bool KeepsFourth> struct MirrorRows {
  using Element = std::conditional_t<PixelBytes == 4, std::uint8_t,
                                     std::conditional_t<PixelBytes == 8, std::uint16_t, std::uint32_t>>;

  static void copy(const Zor8u* src, Zor8u* dst, std::ptrdiff_t pixels)
  {
    if constexpr (KeepsFourth) {
      mapRowOf<AC4>(reinterpret_cast<Element*>(dst), pixels * 4, Unchanged{}, reinterpret_cast<const Element*>(src));
    } else {
      std::memcpy(dst, src, static_cast<std::size_t>(pixels) * PixelBytes);
    }
  }

  // The pixels from a on change places with those from b on, or with those in front of b, in reverse order.
  template <bool Turned> static void exchange(Zor8u* a, Zor8u* b, std::ptrdiff_t pixels)
  {
    using Reversed = ReversedPixels<PixelBytes, KeepsFourth>;
    if constexpr (Reversed::fillsVectors) {
      if (pixels >= Reversed::lanes) return exchangePixels<PixelBytes, KeepsFourth, Turned>(a, b, pixels);
    } else if constexpr (!Turned) {
      using Bytes = ReversedPixels<1, false>;
      if (pixels >= Bytes::lanes) return exchangePixels<1, false, false>(a, b, pixels * PixelBytes);
    }
    constexpr std::ptrdiff_t most = 4096 / PixelBytes;
    alignas(16) Zor8u buffer[most * PixelBytes];
    for (std::ptrdiff_t done = 0; done < pixels; done += most) {
      const std::ptrdiff_t count = std::min(most, pixels - done);
      Zor8u* const here = a + done * PixelBytes;
      if constexpr (Turned) {
        Zor8u* const there = b - (done + count) * PixelBytes;
        const FlipAhead ahead = aheadInRow(count * PixelBytes);
        copyReversed<PixelBytes, false>({here, 0}, {buffer, 0}, count, 1, ahead);
        copyReversed<PixelBytes, KeepsFourth>({there, 0}, {here, 0}, count, 1, ahead);
        copy(buffer, there, count);
      } else {
        Zor8u* const there = b + done * PixelBytes;
        std::memcpy(buffer, here, static_cast<std::size_t>(count) * PixelBytes);
        copy(there, here, count);
        copy(buffer, there, count);
      }
    }
  }

  static void mirrorInPlace(Rows<Zor8u> image, ZorImgSize roi, ZorAxis flip)
  {
    const std::ptrdiff_t rowBytes = static_cast<std::ptrdiff_t>(roi.width) * PixelBytes;
    const int pairs = flip == ZorAxsVertical ? 0 : roi.height / 2; // of rows that change places
    for (int y = 0; y < pairs; ++y)
      if (flip == ZorAxsHorizontal) exchange<false>(image[y], image[roi.height - 1 - y], roi.width);
      else exchange<true>(image[y], image[roi.height - 1 - y] + rowBytes, roi.width);
    if (flip != ZorAxsHorizontal) // the rows that stay: all of them, or the middle one
      for (int y = pairs; y < roi.height - pairs; ++y) exchange<true>(image[y], image[y] + rowBytes, roi.width / 2);
  }

  // From this size on an image is fetched by rows: the processor does not foresee where a row that is read backward
  // goes on, and a row's length is not enough to learn it.
  static constexpr long long fetchedBytes = 1 << 20;
  static constexpr std::ptrdiff_t fetchedRow = 8192; // two such rows on both sides are no burden to the second cache
  static constexpr int fetchedRows = 2;

  static void flipCopy(Rows<const Zor8u> src, Rows<Zor8u> dst, ZorImgSize roi, ZorAxis flip)
  {
    const std::ptrdiff_t rowBytes = static_cast<std::ptrdiff_t>(roi.width) * PixelBytes;
    const long long bytes = 1LL * rowBytes * roi.height;
    const bool fetchesRows = bytes >= fetchedBytes && rowBytes <= fetchedRow;
    const std::ptrdiff_t dstStep = flip == ZorAxsVertical ? std::ptrdiff_t{dst.step} : -std::ptrdiff_t{dst.step};
    Zor8u* const target = dst[flip == ZorAxsVertical ? 0 : roi.height - 1];
    if (flip != ZorAxsHorizontal) {
      const auto reverseRows = [=](std::ptrdiff_t y, std::ptrdiff_t rows, FlipAhead ahead) {
        copyReversed<PixelBytes, KeepsFourth>({src[y], src.step}, {target + y * dstStep, dstStep}, roi.width, rows,
                                              ahead);
      };
      const int rowsAhead = fetchesRows ? std::max(roi.height - fetchedRows, 0) : 0;
      const std::ptrdiff_t srcStep = src.step;
      if (rowsAhead > 0) reverseRows(0, rowsAhead, {fetchedRows * srcStep, fetchedRows * dstStep});
      reverseRows(rowsAhead, roi.height - rowsAhead, aheadInRow(rowBytes));
    } else {
      for (int y = 0; y < roi.height; ++y)
        if (KeepsFourth) copy(src[y], target + y * dstStep, roi.width);
        else copyRow(src[y], target + y * dstStep, rowBytes, bytes);
    }
  }
};

template <int PixelBytes, bool KeepsFourth>
ZORI_ONE_COPY ZorStatus mirrorRegion(const void* pSrc, int srcStep, void* pDst, int dstStep, ZorImgSize roiSize,
                                     ZorAxis flip)
{
  const bool isAxis = flip == ZorAxsHorizontal || flip == ZorAxsVertical || flip == ZorAxsBoth;
  if (auto s = firstFailure(nonNull(pSrc, pDst), nonEmpty(roiSize), require(isAxis, ZorErrAxis),
                            require(flip == ZorAxsVertical || roiSize.height >= 2, ZorErrSize),
                            require(flip == ZorAxsHorizontal || roiSize.width >= 2, ZorErrSize));
      s != ZorOk)
    return s;
  using Pixels = MirrorRows<PixelBytes, KeepsFourth>;
  const Rows dst{static_cast<Zor8u*>(pDst), dstStep};
  if (pSrc == pDst && srcStep == dstStep) Pixels::mirrorInPlace(dst, roiSize, flip);
  else Pixels::flipCopy({static_cast<const Zor8u*>(pSrc), srcStep}, dst, roiSize, flip);
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout)                                                                                            \
  ZorStatus zoriMirror_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,         \
                                            ZorImgSize roiSize, ZorAxis flip)                                          \
  {                                                                                                                    \
    return mirrorRegion<channels<layout> * bytesOf<Zor##type>, layout == AC4>(pSrc, srcStep, pDst, dstStep, roiSize,   \
                                                                              flip);                                   \
  }                                                                                                                    \
  ZorStatus zoriMirror_##type##_##layout##IR(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize, ZorAxis flip)     \
  { return zoriMirror_##type##_##layout##R(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, flip); }
#define STAMPS(type) STAMP(type, C1) STAMP(type, C3) STAMP(type, C4) STAMP(type, AC4)
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32s) STAMPS(32f)
#undef STAMPS
#undef STAMP
