// zoriRemap_{8u,16u,32f}_{C1,C3,C4,AC4,P3,P4}R: the source at coordinates that two maps give.
//
// A pixel whose coordinates lie outside the region, or are not numbers, is not written. A block of columns is placed as
// if all were valid, and the kernels of the warps go over it when that was so; otherwise over the runs of valid ones.
#include "frame/parallel.h"
#include "sampling_place.h"
#include "warp.h"
#include "zori/geometry.h"

#include <algorithm>

namespace zori {
namespace {

using namespace geometry;

struct Maps {
  const Zor32f* x;
  int xStep;
  const Zor32f* y;
  int yStep;
};

struct Bounds {
  float left, top, right, bottom;
};

// The least and the greatest of many coordinates, and whether one of them is not a number.
class Extent {
public:
  explicit Extent(const Zor32f* map) : least_(load<float>(map)), greatest_(least_), none_(zero<float>()) {}
  void add(Vec<float> x)
  {
    least_ = min(least_, x);
    greatest_ = max(greatest_, x);
    none_ = none_ | unordered(x, x);
  }

  bool isBetween(float low, float high) const
  {
    return moveMask(none_ | less(least_, splat(low)) | less(splat(high), greatest_)) == 0;
  }
  bool isBefore(float end) const { return moveMask(notLess(greatest_, splat(end))) == 0; }

private:
  Vec<float> least_, greatest_, none_;
};

// The form of a method for points before the last column and row.
constexpr Method innerOf(Method m)
{
  return m == Method::Linear8 ? Method::Inner8 : m == Method::Linear ? Method::Inner : m;
}

// Of some points: one at least is not valid, all are, or the inner kernel may have them besides.
enum class Whereabouts { Outside, Valid, Inner };

constexpr int leastPlaced = Vec<float>::size;

// Places the points of so many columns or more as if all were valid, and tells whether they are. Those of inner methods
// are placed where the answer is Inner, others where it is not Outside.
template <Method M>
[[gnu::noinline]] Whereabouts place(const Source& source, const Zor32f* xMap, const Zor32f* yMap, int columns,
                                    const Bounds& bounds, Points& points)
{
  const UpperHalvesCleared atTheEnd;
  const Placer<M> placer(source);
  const float scale = static_cast<float>(1 << fractionBits(M));
  Extent across(xMap), down(yMap);
  for (int done = 0; done < columns; done += leastPlaced) {
    const int i = std::min(done, columns - leastPlaced);
    const Vec<float> x = load<float>(xMap + i), y = load<float>(yMap + i);
    across.add(x);
    down.add(y);
    placer.placeInside(points, 0, i, x * splat(scale), y * splat(scale));
  }
  if (!across.isBetween(bounds.left, bounds.right) || !down.isBetween(bounds.top, bounds.bottom))
    return Whereabouts::Outside;
  if (M != Method::Inner8 && M != Method::Inner && M != Method::Cubic8) return Whereabouts::Valid;
  // what is rounded does not come to the last column or row; cubic: all taps are in the image
  constexpr int cubic = M == Method::Cubic8;
  const float half = M == Method::Inner ? 0.0f : 0.5f / scale;
  const auto isInner = [=](const Extent& e, int size) {
    return e.isBetween(cubic, static_cast<float>(size)) && e.isBefore(static_cast<float>(size - 1 - cubic) - half);
  };
  return isInner(across, source.width) && isInner(down, source.height) ? Whereabouts::Inner : Whereabouts::Valid;
}

bool isValid(const Zor32f* xMap, const Zor32f* yMap, int i, const Bounds& bounds)
{
  const float x = get<float>(xMap + i), y = get<float>(yMap + i);
  return x >= bounds.left && x <= bounds.right && y >= bounds.top && y <= bounds.bottom;
}

// A bit for each valid point, four to a number.
[[gnu::noinline]] void findValid(const Zor32f* xMap, const Zor32f* yMap, int columns, const Bounds& bounds,
                                 std::uint8_t* valid)
{
  const F32x4 left = splat16(bounds.left), right = splat16(bounds.right);
  const F32x4 top = splat16(bounds.top), bottom = splat16(bounds.bottom);
  int i = 0;
  for (; i + 4 <= columns; i += 4) {
    const F32x4 x = load16<float>(xMap + i), y = load16<float>(yMap + i);
    valid[i / 4] = static_cast<std::uint8_t>(
      moveMask(lessEqual(left, x) & lessEqual(x, right) & lessEqual(top, y) & lessEqual(y, bottom)));
  }
  if (i < columns) valid[i / 4] = 0;
  for (; i < columns; ++i)
    valid[i / 4] = static_cast<std::uint8_t>(valid[i / 4] | isValid(xMap, yMap, i, bounds) << i % 4);
}

// Up to 256 columns of a destination row.
template <Method M> class Block {
public:
  Block(const WarpCall& call, const Sampler& sampler, const Bounds& bounds)
    : call_(call), source_(call.source()), sampler_(sampler), bounds_(bounds),
      triesInner_(innerOf(M) == Method::Inner8 ? fitsWords(source_) : innerOf(M) != M)
  {}

  void run(const Zor32f* xMap, const Zor32f* yMap, int columns, std::ptrdiff_t column, int y)
  {
    // mostly all points are valid, and that is found out by the way
    const auto looksValid = [&](int i) { return isValid(xMap, yMap, i, bounds_); };
    if (looksValid(0) && looksValid(columns / 2) && looksValid(columns - 1) && sample(xMap, yMap, columns, column, y))
      return;
    std::uint8_t valid[blockColumns / 4];
    findValid(xMap, yMap, columns, bounds_, valid);
    const auto isValidAt = [&](int i) { return (valid[i / 4] >> i % 4 & 1) != 0; };
    for (int i = 0; i < columns;) {
      if (!isValidAt(i)) {
        i += i % 4 == 0 && valid[i / 4] == 0 ? 4 : 1;
        continue;
      }
      const int first = i;
      while (i < columns && isValidAt(i)) i += i % 4 == 0 && valid[i / 4] == 15 ? 4 : 1;
      sample(xMap + first, yMap + first, i - first, column + first, y);
    }
  }

private:
  // Nothing is written when a point is not valid.
  bool sample(const Zor32f* xMap, const Zor32f* yMap, int count, std::ptrdiff_t column, int y)
  {
    Zor32f few[2][leastPlaced];
    if (count < leastPlaced) {
      for (int i = 0; i < leastPlaced; ++i) {
        few[0][i] = get<float>(xMap + std::min(i, count - 1));
        few[1][i] = get<float>(yMap + std::min(i, count - 1));
      }
      xMap = few[0];
      yMap = few[1];
    }
    const int places = std::max(count, leastPlaced);
    Whereabouts where = Whereabouts::Valid;
    if (triesInner_) where = place<innerOf(M)>(source_, xMap, yMap, places, bounds_, points_);
    if (where == Whereabouts::Valid) where = place<M>(source_, xMap, yMap, places, bounds_, points_);
    if (where == Whereabouts::Outside) return false;
    const SampleRow kernel = M == Method::Fine             ? sampler_.fine
                             : where == Whereabouts::Inner ? sampler_.inner
                                                           : sampler_.placed;
    for (int p = 0; p < call_.planeCount(); ++p)
      kernel(source_, call_.srcPlane(p), {&points_, 0, 0}, count,
             rowAt(call_.dstPlane(p), call_.dstStep, y) + column * call_.pixelBytes());
    return true;
  }

  const WarpCall& call_;
  const Source source_;
  const Sampler& sampler_;
  const Bounds& bounds_;
  const bool triesInner_;
  Points points_;
};

template <Method M>
void remapRow(const WarpCall& call, const Sampler& sampler, const Maps& maps, const Bounds& bounds, int y)
{
  const Zor32f *const xMap = rowAt(maps.x, maps.xStep, y), *const yMap = rowAt(maps.y, maps.yStep, y);
  const int width = call.dstRoi.width;
  Block<M> block(call, sampler, bounds);
  for (int done = 0; done < width; done += std::min(blockColumns, width - done))
    block.run(xMap + done, yMap + done, std::min(blockColumns, width - done), done, y);
}

ZorStatus remap(const WarpCall& call, const Maps& maps)
{
  const int i = call.interpolation;
  if (auto s = nonNull(call.src, call.dst, maps.x, maps.y); s != ZorOk) return s;
  if (auto s = firstFailure(
        checkPlanes(call), nonEmpty(call.srcSize), require(!isEmptyRect(call.srcRoi), ZorErrSize),
        require(!isEmptyRect(call.dstRoi), ZorErrSize),
        require(i == ZORI_INTER_NN || i == ZORI_INTER_LINEAR || i == ZORI_INTER_CUBIC, ZorErrInterpolation),
        positive(call.srcStep, maps.xStep, maps.yStep, call.dstStep));
      s != ZorOk)
    return s;
  ZorImgRect region;
  if (auto s = clipRegion(call, region); s != ZorOk) return s;
  const Box box = boxOf(region);
  const Bounds bounds = {static_cast<float>(box.left), static_cast<float>(box.top), static_cast<float>(box.right),
                         static_cast<float>(box.bottom)};

  const Sampler sampler = samplerFor(call.type, call.layout, i, call.srcSize);
  const bool isPlaced = isPlaceable(call.source(), sampler.method);
  using Row = void (*)(const WarpCall&, const Sampler&, const Maps&, const Bounds&, int);
  const Method method = isPlaced ? sampler.method : Method::Fine;
  const Row row = method == Method::Nearest   ? Row(remapRow<Method::Nearest>)
                  : method == Method::Linear8 ? Row(remapRow<Method::Linear8>)
                  : method == Method::Linear  ? Row(remapRow<Method::Linear>)
                  : method == Method::Cubic8  ? Row(remapRow<Method::Cubic8>)
                                              : Row(remapRow<Method::Fine>);

  constexpr int picosecondsPerPixel = 2000;
  const auto team = TeamRule::forWork(1LL * call.dstRoi.width * call.dstRoi.height, picosecondsPerPixel);
  staticRows(team, Rounding::Nearest, call.dstRoi.height, [&](int y) { row(call, sampler, maps, bounds, y); });
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define IMAGE(type) const Zor##type*
#define IMAGES(type) Zor##type*
#define PLANES(type) const Zor##type* const*
#define PLANES_OUT(type) Zor##type* const*
#define STAMP(type, layout, In, Out)                                                                                   \
  ZorStatus zoriRemap_##type##_##layout##R(In(type) pSrc, ZorImgSize srcSize, int srcStep, ZorImgRect srcRoi,          \
                                           const Zor32f* pXMap, int xMapStep, const Zor32f* pYMap, int yMapStep,       \
                                           Out(type) pDst, int dstStep, ZorImgSize dstRoiSize, int interpolation)      \
  {                                                                                                                    \
    return remap(geometry::warpCall<layout>(geometry::sampleType<Zor##type>, pSrc, srcSize, srcStep, srcRoi, pDst,     \
                                            dstStep, {0, 0, dstRoiSize.width, dstRoiSize.height}, interpolation),      \
                 {pXMap, xMapStep, pYMap, yMapStep});                                                                  \
  }
#define STAMPS(type)                                                                                                   \
  STAMP(type, C1, IMAGE, IMAGES) STAMP(type, C3, IMAGE, IMAGES) STAMP(type, C4, IMAGE, IMAGES)                         \
  STAMP(type, AC4, IMAGE, IMAGES) STAMP(type, P3, PLANES, PLANES_OUT) STAMP(type, P4, PLANES, PLANES_OUT)
STAMPS(8u) STAMPS(16u) STAMPS(32f)
#undef STAMPS
#undef STAMP
