// The extents of correlation: how many results there are, and where the window of the first begins.
#pragma once

#include "frame/checks.h"
#include "tile_engine.h"

namespace zori {

enum class CorrelationExtent { Full, Same, Valid };

struct ExtentOfResults {
  std::int64_t width, height;
  int originX, originY;

  ExtentOfResults(CorrelationExtent extent, ZorImgSize src, ZorImgSize tpl)
  {
    const std::int64_t w = tpl.width, h = tpl.height;
    switch (extent) {
    case CorrelationExtent::Full:
      width = src.width + w - 1, height = src.height + h - 1;
      originX = -(tpl.width - 1), originY = -(tpl.height - 1);
      break;
    case CorrelationExtent::Same:
      width = src.width, height = src.height;
      originX = -(tpl.width >> 1), originY = -(tpl.height >> 1);
      break;
    case CorrelationExtent::Valid:
      width = src.width - w + 1, height = src.height - h + 1;
      originX = originY = 0;
      break;
    }
  }
};

// What the caller passes to a correlation with a template.
template <class T, class D> struct MatchArguments {
  const T* pSrc;
  int srcStep;
  ZorImgSize srcSize;
  const T* pTpl;
  int tplStep;
  ZorImgSize tplSize;
  D* pDst;
  int dstStep;
  int scaleFactor;

  ZorStatus check() const
  {
    return firstFailure(nonNull(pSrc, pTpl, pDst), nonEmpty(srcSize), nonEmpty(tplSize),
                        require(tplSize.width <= srcSize.width && tplSize.height <= srcSize.height, ZorErrSize),
                        positive(srcStep, tplStep, dstStep));
  }
};

// The floor of denominators.
template <class T> inline constexpr float floorOf = std::is_floating_point_v<T> ? 0.0005f : 1.0f;

// The greatest order up to which a tile of twice the template is doubled once more.
inline constexpr int matchOrderLimit = 7;

template <Layout L, class T, class D>
ZorStatus matchInTiles(const MatchArguments<T, D>& a, CorrelationExtent extent, LastStep last)
{
  const ExtentOfResults results(extent, a.srcSize, a.tplSize);
  CorrelationJob<T, D> job = {};
  job.source = {{a.pSrc, a.srcStep}, a.srcSize.width, a.srcSize.height};
  job.tpl = {{a.pTpl, a.tplStep}, a.tplSize.width, a.tplSize.height};
  job.result = {{a.pDst, a.dstStep}, results.width, results.height};
  job.channels = channels<L>, job.processed = processed<L>;
  job.originX = results.originX, job.originY = results.originY;
  job.last = last;
  job.floor = floorOf<T>;
  job.factor = 1;
  job.scaleFactor = a.scaleFactor;
  job.orderX = tileOrder(a.tplSize.width, results.width, matchOrderLimit);
  job.orderY = tileOrder(a.tplSize.height, results.height, matchOrderLimit);
  return correlateInTiles(job);
}

} // namespace zori
