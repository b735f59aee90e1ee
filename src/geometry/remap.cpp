// zoriRemap_{8u,16u,32f}_{C1,C3,C4,AC4,P3,P4}R: the source at coordinates that two maps give.
//
// A pixel whose coordinates lie outside the region, or are not numbers, is not written. Points are placed for a block
// of columns, wherever they are, and the kernels of the warps go over the runs of valid ones.
#include "frame/parallel.h"
#include "rowkernels/drivers.h"
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

constexpr int blockGroups = blockColumns / 4;

// The least and the greatest of many coordinates, and whether one of them is not a number.
class Extent {
public:
  explicit Extent(const Zor32f* map) : least_(load<float>(map)), greatest_(least_), none_(zero<float>()) {}
  void add(F32x4 x)
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
  F32x4 least_, greatest_, none_;
};

constexpr bool isInnerMethod(Method m) { return m == Method::Inner8 || m == Method::Inner; }

// What is known of the points of a block: Outside, that some are not valid (inner methods: or not before the last
// column and row); Inner, that the inner kernel may have them.
enum class Whereabouts { Outside, Inside, Inner };

// Places the points of four to 256 columns as if all were valid, and tells whether they are: this is the rule, and
// wants much less than a look at each.
template <Method M>
[[gnu::noinline]] Whereabouts placeInside(const Source& source, const Zor32f* xMap, const Zor32f* yMap, int columns,
                                          const Bounds& bounds, Points& points)
{
  const Placer<M> placer(source);
  const float scale = static_cast<float>(1 << fractionBits(M));
  Extent across(xMap), down(yMap);
  for (int done = 0; done < columns; done += 4) {
    const int i = std::min(done, columns - 4);
    const F32x4 x = load<float>(xMap + i), y = load<float>(yMap + i);
    across.add(x);
    down.add(y);
    placer.placeInside(points, 0, i, x * splat(scale), y * splat(scale));
  }
  if (!across.isBetween(bounds.left, bounds.right) || !down.isBetween(bounds.top, bounds.bottom))
    return Whereabouts::Outside;
  if (!isInnerMethod(M) && M != Method::Cubic8) return Whereabouts::Inside;
  // inner: what is rounded does not come to the last column or row; cubic: all taps are in the image
  const float half = M == Method::Inner ? 0.0f : 0.5f / scale, begin = M == Method::Cubic8 ? 1.0f : 0.0f;
  const auto isInner = [=](const Extent& e, int size) {
    return e.isBetween(begin, static_cast<float>(size)) &&
           e.isBefore(static_cast<float>(size - 1 - (M == Method::Cubic8)) - half);
  };
  if (isInner(across, source.width) && isInner(down, source.height)) return Whereabouts::Inner;
  return isInnerMethod(M) ? Whereabouts::Outside : Whereabouts::Inside;
}

// Places the points of up to 256 columns, and tells by a bit each, four to a number, which are valid.
template <Method M>
[[gnu::noinline]] void placeRow(const Source& source, const Zor32f* xMap, const Zor32f* yMap, int columns,
                                const Bounds& bounds, Points& points, std::uint8_t (&valid)[blockGroups])
{
  const Placer<M> placer(source);
  const F32x4 left = splat(bounds.left), right = splat(bounds.right);
  const F32x4 top = splat(bounds.top), bottom = splat(bounds.bottom);
  const F32x4 scale = splat(static_cast<float>(1 << fractionBits(M)));
  for (int i = 0; i < columns; i += 4) {
    const bool isWhole = i + 4 <= columns;
    const std::size_t bytes = static_cast<std::size_t>(columns - i) * sizeof(float);
    const F32x4 x = isWhole ? load<float>(xMap + i) : loadPart<float>(xMap + i, bytes);
    const F32x4 y = isWhole ? load<float>(yMap + i) : loadPart<float>(yMap + i, bytes);
    const F32x4 inside = greaterEqual(x, left) & lessEqual(x, right) & greaterEqual(y, top) & lessEqual(y, bottom);
    valid[i / 4] = static_cast<std::uint8_t>(moveMask(inside) & (isWhole ? 15 : (1 << (columns - i)) - 1));
    placer.placeSingle(points, 0, i, x * scale, y * scale);
  }
}

bool isValid(const Zor32f* xMap, const Zor32f* yMap, int i, const Bounds& bounds)
{
  const float x = get<float>(xMap + i), y = get<float>(yMap + i);
  return x >= bounds.left && x <= bounds.right && y >= bounds.top && y <= bounds.bottom;
}

template <Method M>
void remapRow(const WarpCall& call, const Sampler& sampler, const Maps& maps, const Bounds& bounds, int y)
{
  const Source source = call.source();
  const Zor32f *const xMap = rowAt(maps.x, maps.xStep, y), *const yMap = rowAt(maps.y, maps.yStep, y);
  const int width = call.dstRoi.width;
  constexpr Method inner = M == Method::Linear8 ? Method::Inner8 : M;
  const bool triesInner = inner != M && fitsWords(source);
  Points points, innerPoints;
  std::uint8_t valid[blockGroups];
  for (int done = 0; done < width; done += std::min(blockColumns, width - done)) {
    const int columns = std::min(blockColumns, width - done);
    const auto sample = [&](SampleRow kernel, const Points& placed, int first, int count) {
      for (int p = 0; p < call.planeCount(); ++p)
        kernel(source, call.srcPlane(p), {&placed, 0, first}, count,
               rowAt(call.dstPlane(p), call.dstStep, y) + (std::ptrdiff_t{done} + first) * call.pixelBytes());
    };
    const Zor32f *const xs = xMap + done, *const ys = yMap + done;
    const SampleRow placedKernel = M == Method::Fine ? sampler.fine : sampler.placed;
    // all valid, and well inside
    const bool looksInside = columns >= 4 && isValid(xs, ys, 0, bounds) && isValid(xs, ys, columns / 2, bounds) &&
                             isValid(xs, ys, columns - 1, bounds);
    if (looksInside) {
      constexpr Method best = M == Method::Linear8 ? Method::Inner8 : M == Method::Linear ? Method::Inner : M;
      const Whereabouts where = best == Method::Inner8 && !triesInner
                                  ? Whereabouts::Outside
                                  : placeInside<best>(source, xs, ys, columns, bounds, innerPoints);
      if (where != Whereabouts::Outside) {
        sample(where == Whereabouts::Inner ? sampler.inner : placedKernel, innerPoints, 0, columns);
        continue;
      }
    }
    // runs of valid points
    bool isPlaced = false;
    const auto placeAll = [&] {
      if (!isPlaced) placeRow<M>(source, xs, ys, columns, bounds, points, valid);
      isPlaced = true;
    };
    if (triesInner) placeRow<inner>(source, xs, ys, columns, bounds, innerPoints, valid);
    else placeAll();
    const auto isValidAt = [&](int i) { return (valid[i / 4] >> i % 4 & 1) != 0; };
    for (int i = 0; i < columns;) {
      if (!isValidAt(i)) {
        i += i % 4 == 0 && valid[i / 4] == 0 ? 4 : 1;
        continue;
      }
      const int first = i;
      while (i < columns && isValidAt(i)) i += i % 4 == 0 && valid[i / 4] == 15 ? 4 : 1;
      const bool isInner = triesInner && !anyBeyond(innerPoints, 0, first, i - first);
      if (!isInner) placeAll();
      sample(isInner ? sampler.inner : placedKernel, isInner ? innerPoints : points, first, i - first);
    }
  }
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
