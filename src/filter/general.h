// Filters with the caller's kernel: what one call is made of, and how its sums become samples.
//
// The kernel is applied reversed. "Source order" below is the order in which the pixels lie in memory: the first pixel
// of the rectangle that is read meets the kernel's last element. Rows and columns are kernels of one row and one
// column, pixels of any channel count are runs of samples whose neighbours lie `channels` apart.
//
// Sums are formed in one place for all families (general_sums.cpp):
//
//   integer kernels   in 32 bits, which wrap, so that their order does not matter
//   32f, 64f kernels  in the kernel's type, one accumulator a sample that starts at zero, products in source order: row
//                     by row, left to right
#pragma once

#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/memory.h"
#include "rowkernels/simd.h"

namespace zori {
inline namespace ZORI_WIDTH {
namespace general {

// The finishing of a row of sums: dst[i] = finished(sums[i]). Without a row function the sums are the result.
template <class Sum> struct Finish {
  void (*row)(const Finish&, const Sum* sums, void* dst, std::ptrdiff_t samples) = nullptr;
  Zor64f divisor = 1; // of integer sums
  int shift = 0;      // of a divisor that is a power of two
  ZorRoundMode roundMode = ZorRoundNearestEven;
};

// One call. The finishing depends on the path in some families, so there are two: `fast` for what the vector path has
// computed, `plain` for the loop that needs no working memory.
template <class S, class K> struct Convolution {
  Rows<const S> src; // from the first sample that is read
  Rows<char> dst;
  int dstSampleBytes;
  ZorImgSize roi;
  int channels;
  const K* pKernel;
  ZorImgSize kernelSize;
  Finish<K> fast, plain;

  // Element of the reversed kernel, in source order.
  K at(int row, int column) const
  {
    const std::ptrdiff_t index =
      std::ptrdiff_t{kernelSize.height - 1 - row} * kernelSize.width + (kernelSize.width - 1 - column);
    return get<K>(pKernel + index);
  }
  std::ptrdiff_t rowSamples() const { return std::ptrdiff_t{roi.width} * channels; }
};

template <Layout L, class S, class D, class K>
inline Convolution<S, K> convolution(const S* pSrc, int srcStep, D* pDst, int dstStep, ZorImgSize roi, const K* pKernel,
                                     ZorImgSize kernelSize, ZorImgPoint anchor)
{
  // the anchor may be any number: the distance is formed in 64 bits
  const long long rows = 1LL + anchor.y - kernelSize.height, pixels = 1LL + anchor.x - kernelSize.width;
  const long long bytes = rows * srcStep + pixels * static_cast<long long>(channels<L> * sizeof(S));
  const char* const first = reinterpret_cast<const char*>(pSrc) + static_cast<std::ptrdiff_t>(bytes);
  return {{reinterpret_cast<const S*>(first), srcStep},
          {reinterpret_cast<char*>(pDst), dstStep},
          static_cast<int>(sizeof(D)),
          roi,
          channels<L>,
          pKernel,
          kernelSize,
          {},
          {}};
}

// Computes the region: a team of threads when it is 64 pixels wide and high. Under round to nearest, whatever the
// caller's control register says. Never fails: without working memory it goes on as a plain loop.
// For S of 8u, 16u, 16s with kernels of 32s and 32f, and 32f with a kernel of 32f.
template <class S, class K> void convolve(const Convolution<S, K>& call);

// The plain loop alone, in the calling thread.
void convolveInDouble(const Convolution<Zor64f, Zor64f>& call);

// ---- Checks ----

// A row of the source holds what the kernel covers, a row of the destination the region.
template <Layout L, class S, class D>
inline ZorStatus rowsFit(const S*, int srcStep, D*, int dstStep, ZorImgSize roi, int kernelWidth)
{
  return require(srcStep >= (1LL * roi.width + kernelWidth - 1) * channels<L> * static_cast<long long>(sizeof(S)) &&
                   dstStep >= 1LL * roi.width * channels<L> * static_cast<long long>(sizeof(D)),
                 ZorErrStep);
}

inline ZorStatus divides(int divisor) { return require(divisor != 0, ZorErrKernelDivisor); }
inline ZorStatus isRoundMode(ZorRoundMode mode) { return require(mode >= 0 && mode <= 2, ZorErrRoundMode); }

// ---- The choice of the finishing in 8u ----

// What the fast finishing asks for: a kernel and a region that are not narrow, counted in pixels.
inline bool isWide(int kernelLength, int roiWidth) { return kernelLength >= 3 && roiWidth >= 16; }

inline bool elementsWithin(const Zor32s* pKernel, ZorImgSize kernelSize, int low, int high)
{
  const std::ptrdiff_t count = std::ptrdiff_t{kernelSize.width} * kernelSize.height;
  for (std::ptrdiff_t i = 0; i < count; ++i) {
    const Zor32s k = get<Zor32s>(pKernel + i);
    if (k < low || k > high) return false;
  }
  return true;
}

// ---- Integer kernels of 16-bit images: the elements times 1.0f / divisor, as a kernel of 32f ----

class DividedKernel {
public:
  DividedKernel(const Zor32s* pKernel, ZorImgSize kernelSize, int divisor);
  const Zor32f* get() const { return elements_.get(); } // null when there is no memory

  static constexpr int mostWithin = 256; // elements that need no working memory

private:
  SmallScratch<Zor32f, mostWithin> elements_;
};

} // namespace general
} // namespace ZORI_WIDTH
} // namespace zori
