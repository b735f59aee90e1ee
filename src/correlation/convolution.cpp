// zori{ConvFull,ConvValid}_{8u,16s,32f}_{C1,C3,AC4}R: the sum over (i, j) of src1(x - i, y - j) * src2(i, j), wherever
// it is not always zero (full) or where one image lies inside the other (valid).
//
// L is the wider image, with equal widths the first, S the other, which stands for a template turned by half a turn.
//
//   full    fewer than 2961 results, or an S of fewer than 121 samples   directly (direct_convolution.h)
//           else an L of up to 7 times the samples of S                  one transform that covers all results
//           else                                                         tiles (tile_engine.h)
//   valid   an S of fewer than 225 samples, or fewer than 144 results    directly
//           else                                                         tiles
#include "direct_convolution.h"
#include "frame/checks.h"
#include "tile_engine.h"
#include "zori/correlation.h"

namespace zori {
namespace {

// The greatest order up to which a tile of twice the smaller image is doubled once more.
constexpr int orderLimit = 8;

template <class T> struct ConvolutionImage {
  const T* p;
  int step;
  ZorImgSize size;
  std::int64_t area() const { return static_cast<std::int64_t>(size.width) * size.height; }
};

// What is left once the images are in their order.
template <class T, Layout L> struct Convolution {
  ConvolutionImage<T> large, small;
  T* pDst;
  int dstStep;
  std::int64_t width, height; // of the result
  int originX, originY;       // the sample of `large` that the first tap of result (0, 0) meets
  float factor;

  ZorStatus directly() const
  {
    const int w = small.size.width, h = small.size.height;
    BlockPlan plan;
    TapRows kernel = {nullptr, w, h, TapRows::canBeSpread(w, small.area())};
    const auto taps = plan.template add<float>(small.area() * kernel.step() * processed<L>);
    Scratch<Zor8u> block(plan.isImpossible() ? -1 : plan.bytes());
    if (!block || width > INT32_MAX || height > INT32_MAX) return ZorErrAlloc;
    float* to = taps.in(block.get());
    kernel.taps = to;
    for (int c = 0; c < processed<L>; ++c)
      for (int y = h - 1; y >= 0; --y)
        for (int x = w - 1; x >= 0; --x, to += kernel.step())
          std::fill_n(to, kernel.step(),
                      static_cast<float>(
                        get<T>(rowAt(small.p, small.step, y) + static_cast<std::ptrdiff_t>(x) * channels<L> + c)));
    const DirectConvolution<T, L> sums{
      {large.p, large.step},    large.size.width, large.size.height, {pDst, dstStep}, static_cast<int>(width),
      static_cast<int>(height), originX,          originY,           factor};
    return sums.run(kernel);
  }

  CorrelationJob<T, T> job() const
  {
    CorrelationJob<T, T> j = {};
    j.source = {{large.p, large.step}, large.size.width, large.size.height};
    j.tpl = {{small.p, small.step}, small.size.width, small.size.height};
    j.result = {{pDst, dstStep}, width, height};
    j.channels = channels<L>, j.processed = processed<L>;
    j.originX = originX, j.originY = originY;
    j.isTurned = true;
    j.last = LastStep::Plain;
    j.factor = factor;
    return j;
  }
  ZorStatus inTiles() const
  {
    CorrelationJob<T, T> j = job();
    j.orderX = tileOrder(small.size.width, width, orderLimit);
    j.orderY = tileOrder(small.size.height, height, orderLimit);
    return correlateInTiles(j);
  }
  // What runs over the end of the only tile meets the zeros in front of the image.
  ZorStatus inOneTile() const
  {
    CorrelationJob<T, T> j = job();
    j.orderX = orderCovering(width), j.orderY = orderCovering(height);
    j.runsOver = true;
    return correlateInTiles(j);
  }
};

enum class ConvolutionExtent { Full, Valid };

template <class T, Layout L, ConvolutionExtent extent>
ZorStatus convolve(const T* pSrc1, int src1Step, ZorImgSize src1Size, const T* pSrc2, int src2Step, ZorImgSize src2Size,
                   T* pDst, int dstStep, int divisor = 1)
{
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pDst), nonEmpty(src1Size), nonEmpty(src2Size),
                            positive(src1Step, src2Step, dstStep), require(divisor != 0, ZorErrKernelDivisor));
      s != ZorOk)
    return s;
  Convolution<T, L> c = {};
  c.large = {pSrc1, src1Step, src1Size}, c.small = {pSrc2, src2Step, src2Size};
  if (src1Size.width < src2Size.width) std::swap(c.large, c.small);
  c.pDst = pDst, c.dstStep = dstStep;
  const ZorImgSize large = c.large.size, small = c.small.size;
  const auto reciprocal = [&] { c.factor = 1.0f / static_cast<float>(divisor); };
  underRounding(Rounding::Nearest, reciprocal);

  if constexpr (extent == ConvolutionExtent::Full) {
    c.width = std::int64_t{large.width} + small.width - 1, c.height = std::int64_t{large.height} + small.height - 1;
    c.originX = 1 - small.width, c.originY = 1 - small.height;
    const bool hasFewResults = c.width < 2961 && c.height < 2961 && c.width * c.height < 2961;
    if (hasFewResults || c.small.area() < 121) return c.directly();
    return c.large.area() / 7 + (c.large.area() % 7 != 0) <= c.small.area() ? c.inOneTile() : c.inTiles();
  } else {
    if (large.height < small.height) return ZorErrSize;
    c.width = std::int64_t{large.width} - small.width + 1, c.height = std::int64_t{large.height} - small.height + 1;
    if (c.small.area() < 225 || (c.width < 144 && c.height < 144 && c.width * c.height < 144)) return c.directly();
    return c.inTiles();
  }
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(extent, type, layout, last, divisor)                                                                   \
  ZorStatus zoriConv##extent##_##type##_##layout##R(const Zor##type* pSrc1, int src1Step, ZorImgSize src1Size,       \
                                                    const Zor##type* pSrc2, int src2Step, ZorImgSize src2Size,       \
                                                    Zor##type* pDst, int dstStep last)                               \
  { return convolve<Zor##type, layout, ConvolutionExtent::extent>(pSrc1, src1Step, src1Size, pSrc2, src2Step,        \
                                                                  src2Size, pDst, dstStep divisor); }
#define COMMA ,
#define TYPES(extent, layout)                                                                                        \
  STAMP(extent, 8u, layout, COMMA int divisor, COMMA divisor)                                                        \
  STAMP(extent, 16s, layout, COMMA int divisor, COMMA divisor)                                                       \
  STAMP(extent, 32f, layout, , )
TYPES(Full, C1) TYPES(Full, C3) TYPES(Full, AC4)
TYPES(Valid, C1) TYPES(Valid, C3) TYPES(Valid, AC4)
#undef TYPES
#undef COMMA
#undef STAMP
