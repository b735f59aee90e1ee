// The frame of all warps, and their coefficients.
//
//   checks: pointers, sizes, steps, interpolation, planes; what the coefficients have to be; the region
//   the image of the region, a quadrangle, is clipped to the destination rectangle and gives the span of every row
//   rows go by fours, in blocks of columns: a rule places the source points, the sampler's kernel reads them
//
// A pixel that is covered is always written, with the nearest point of the image where rounding has led outside.
#include "frame/parallel.h"
#include "warp.h"
#include "warp_walk.h"

#include <algorithm>
#include <cstdlib>

namespace zori {
namespace geometry {

// ---- Checks ----

ZorStatus checkImages(const WarpCall& c)
{
  return firstFailure(nonNull(c.src, c.dst), nonEmpty(c.srcSize), require(!isEmptyRect(c.srcRoi), ZorErrSize),
                      require(!isEmptyRect(c.dstRoi), ZorErrSize), positive(c.srcStep, c.dstStep));
}

ZorStatus checkPlanes(const WarpCall& c)
{
  for (int i = 0; i < c.planeCount(); ++i)
    if (!c.srcPlane(i) || !c.dstPlane(i)) return ZorErrNullPtr;
  return ZorOk;
}

ZorStatus clipRegion(const WarpCall& c, ZorImgRect& region)
{
  region = c.srcRoi;
  if (region.x >= c.srcSize.width || region.y >= c.srcSize.height) return ZorWarnNoRoiIntersect;
  region.width = std::min(region.width, c.srcSize.width - region.x);
  region.height = std::min(region.height, c.srcSize.height - region.y);
  return ZorOk;
}

namespace {

bool isSmooth(const WarpCall& c) { return (c.interpolation & ZORI_SMOOTH_EDGE) != 0; }
int selector(const WarpCall& c) { return c.interpolation & ~ZORI_SMOOTH_EDGE; }

template <class... Given> ZorStatus checkCall(const WarpCall& c, const Given*... coeffs)
{
  if (auto s = nonNull(coeffs...); s != ZorOk) return s;
  if (auto s = checkImages(c); s != ZorOk) return s;
  const int i = selector(c);
  if (i != ZORI_INTER_NN && i != ZORI_INTER_LINEAR && i != ZORI_INTER_CUBIC) return ZorErrInterpolation;
  return checkPlanes(c);
}

ZorStatus findRegion(const WarpCall& c, Box& box)
{
  ZorImgRect region;
  if (auto s = clipRegion(c, region); s != ZorOk) return s;
  if (region.width <= 1 || region.height <= 1) return ZorErrCoeff;
  box = boxOf(region);
  return ZorOk;
}

// ---- The walk ----

// Source points beyond these bounds are left out; null when there are none.
using Bounds = const Box*;

// Asks for what the columns behind these will read of the source, whose lines the processor does not see coming where
// rows cross them on a slant. It lies as far on as these points reach. Of that, the group of rows above has had all but
// the lines that the lowest row of pixels meets first; rows that meet the same lines are left out, and so are steep
// ones, where there is less to gain than it costs.
template <Method M>
[[gnu::always_inline]] inline void fetchNext(const Source& source, const Zor8u* plane, const Points& points, int row,
                                             int count)
{
  constexpr int below = M == Method::Cubic8 ? 2 : 1;
  const std::int32_t* const offset = points.offset[row];
  const std::ptrdiff_t reach = offset[count - 1] - offset[0];
  const int line = std::max(64 / source.pixelBytes, 1), crossed = static_cast<int>(std::abs(reach / source.step));
  const int toNext = std::clamp(count / std::max(crossed, 1), 1, line); // points
  if (crossed > count / 2 || (blockRows - 1 - row) % (line / toNext) != 0) return;
  const Zor8u* const next = plane + reach + below * source.step;
  for (int i = 0; i < count; i += toNext) prefetch(next + offset[i]);
}

template <class Rule> using PlaceBlock = void (*)(const Rule&, Lanes<Rule>&, const Source&, int, Points&);

// The form of a method for points before the last column and row. In single precision only linear rules know ahead.
template <Method M, class Rule> constexpr Method innerOf()
{
  if (M == Method::Linear8) return Method::Inner8;
  return M == Method::Linear && Rule::keepsBetweenEnds ? Method::Inner : M;
}

template <Method M, class Rule>
void walkGroups(const WarpCall& call, const Rule& rule, const Outline& outline, const Sampler& sampler, Bounds bounds,
                int firstGroup, int groups)
{
  const Source source = call.source();
  constexpr Method inner = innerOf<M, Rule>();
  const Placer<M> placer(source);
  const Placer<inner> innerPlacer(source);
  const bool triesInner = inner != M && fitsWords(source);
  const bool isAlwaysFine = bounds || !isPlaceable(source, M);
  const double scale = 1 << fractionBits(M);
  // edges of the bounds are inside, to a hair
  const auto skips = [=](double x, double y) {
    constexpr double hair = 1e-6;
    return bounds && !(x >= bounds->left - hair && x <= bounds->right + hair && y >= bounds->top - hair &&
                       y <= bounds->bottom + hair);
  };
  constexpr long long cachedBytes = 1 << 20;
  const bool fetches = source.bytes() > cachedBytes;
  const int planes = call.planeCount(), pixelBytes = call.pixelBytes();

  Points points, innerPoints;
  auto row = rule.firstRow(outline.firstRow());
  for (long long i = 0; i < 1LL * firstGroup * blockRows; ++i) rule.advance(row);
  for (int group = firstGroup; group < firstGroup + groups; ++group) {
    const long long top = outline.firstRow() + 1LL * group * blockRows;
    Lanes<Rule> lanes = {};
    int first[blockRows] = {}, width[blockRows] = {};
    for (int r = 0; r < blockRows && top + r <= outline.lastRow(); ++r) {
      const int y = static_cast<int>(top + r);
      const Outline::Span span = outline.row(y);
      if (span.first <= span.last) {
        first[r] = span.first;
        width[r] = span.last - span.first + 1;
        double sum[Rule::sums], step[Rule::sums];
        rule.start(row, y, span.first, sum, step);
        lanes.start(r, sum, step);
      }
      rule.advance(row);
    }
    const int most = *std::max_element(width, width + blockRows);
    for (int done = 0; done < most; done += std::min(blockColumns, most - done)) {
      const int columns = std::min(blockColumns, most - done);
      const Lanes<Rule> before = lanes;
      bool isPlaced = !triesInner;
      if (triesInner) placeBlock<inner>(rule, lanes, source, columns, innerPoints);
      else placeBlock<M>(rule, lanes, source, columns, points);
      for (int r = 0; r < blockRows; ++r) {
        const int count = std::min(columns, width[r] - done);
        if (count <= 0) continue;
        const std::ptrdiff_t at = (std::ptrdiff_t{first[r]} + done) * pixelBytes;
        const auto sample = [&](SampleRow kernel, const Points& placed) {
          for (int p = 0; p < planes; ++p) {
            if (fetches && kernel != sampler.fine) fetchNext<M>(source, call.srcPlane(p), placed, r, count);
            kernel(source, call.srcPlane(p), {&placed, r, 0}, count,
                   rowAt(call.dstPlane(p), call.dstStep, static_cast<std::ptrdiff_t>(top + r)) + at);
          }
        };
        if (isAlwaysFine || !isPlain(before, r, count, placer)) {
          Points own;
          placeFine(rule, before, r, count, scale, skips, own);
          sample(sampler.fine, own);
        } else if (triesInner && isInner(before, r, count, innerPlacer, innerPoints)) {
          sample(sampler.inner, innerPoints);
        } else {
          if (!isPlaced) {
            Lanes<Rule> again = before;
            placeBlock<M>(rule, again, source, columns, points);
            isPlaced = true;
          }
          sample(M == Method::Cubic8 && Rule::keepsBetweenEnds ? sampler.inner : sampler.placed, points);
        }
      }
    }
  }
}

// make(scale) gives the rule for coordinates of that scale.
template <class MakeRule>
ZorStatus warp(const WarpCall& call, const Polygon& area, bool isPositive, MakeRule make, Bounds bounds = nullptr)
{
  const Polygon covered = clipped(area, boxOf(call.dstRoi));
  const Outline outline(covered, isPositive, call.dstRoi);
  if (outline.isEmpty()) return ZorWarnNoQuadIntersect;

  const Sampler sampler = samplerFor(call.type, call.layout, selector(call), call.srcSize);
  const auto rule = make(double(1 << fractionBits(sampler.method)));
  using Rule = std::remove_const_t<decltype(rule)>;
  using Walk = void (*)(const WarpCall&, const Rule&, const Outline&, const Sampler&, Bounds, int, int);
  const Walk walk = sampler.method == Method::Nearest   ? Walk(walkGroups<Method::Nearest, Rule>)
                    : sampler.method == Method::Linear8 ? Walk(walkGroups<Method::Linear8, Rule>)
                    : sampler.method == Method::Linear  ? Walk(walkGroups<Method::Linear, Rule>)
                    : sampler.method == Method::Cubic8  ? Walk(walkGroups<Method::Cubic8, Rule>)
                                                        : Walk(walkGroups<Method::Fine, Rule>);

  constexpr int picosecondsPerPixel = 2000;
  const long long rows = 1LL + outline.lastRow() - outline.firstRow();
  const auto team = TeamRule::forWork(rows * call.dstRoi.width, picosecondsPerPixel);
  masterSlabs(team, Rounding::Nearest, static_cast<int>((rows + blockRows - 1) / blockRows), 0, [&](const Slab& slab) {
    walk(call, rule, outline, sampler, bounds, slab.first, slab.count);
    return ZorOk;
  });
  if (isSmooth(call)) smoothEdges(call, covered, isPositive);
  return ZorOk;
}

Quad loadQuad(const double (*from)[2])
{
  Quad quad;
  for (int i = 0; i < 4; ++i) quad.corner[i] = {from[i][0], from[i][1]};
  return quad;
}

constexpr Box unit = {0, 0, 1, 1};

// ---- Affine ----

ZorStatus runAffine(const WarpCall& call, const Affine& forward, const Affine* backward)
{
  if (isSingular(backward ? *backward : forward)) return ZorErrQuad;
  Box region;
  if (auto s = findRegion(call, region); s != ZorOk) return s;
  const Quad quad = mapped(forward, region);
  const QuadKind kind = kindOf(quad);
  if (!isSound(kind)) return ZorErrQuad;
  const Affine back = backward ? *backward : affineFrom(quad, region);
  return warp(call, Polygon(quad), kind == QuadKind::Positive, [&](double scale) { return AffineRule(back, scale); });
}

// ---- By quadrangles ----

// A cut that is to pass through pixels passes through them.
double withoutHair(double x)
{
  const double whole = std::rint(x);
  return std::fabs(x - whole) < 1e-9 ? whole : x;
}

// The part of dstQuad whose source lies in the region. `source` holds the points that belong to its corners.
template <class Transform> Polygon coveredPart(const Quad& dstQuad, const Quad& source, Box region, const Transform& t)
{
  // what is outside by rounding alone is not cut
  constexpr double hair = 1e-9;
  const Box wide = {region.left - hair, region.top - hair, region.right + hair, region.bottom + hair};
  const Box bound = boundOf(source);
  if (bound.left >= wide.left && bound.top >= wide.top && bound.right <= wide.right && bound.bottom <= wide.bottom)
    return Polygon(dstQuad);
  Polygon part = clipped(Polygon(source), region);
  for (int i = 0; i < part.count; ++i) {
    const Point p = part.vertex[i], there = mapped(t, p);
    part.vertex[i] = {withoutHair(there.x), withoutHair(there.y)};
    for (int k = 0; k < 4; ++k)
      if (p == source.corner[k]) part.vertex[i] = dstQuad.corner[k];
  }
  return part;
}

struct QuadPair {
  Quad src, dst;
  QuadKind kind; // of dst
};

ZorStatus loadPair(const double (*srcQuad)[2], const double (*dstQuad)[2], QuadPair& pair)
{
  pair.src = loadQuad(srcQuad);
  pair.dst = loadQuad(dstQuad);
  pair.kind = kindOf(pair.dst);
  return require(isSound(kindOf(pair.src)) && isSound(pair.kind), ZorErrRect);
}

ZorStatus runAffineQuad(const WarpCall& call, const double (*srcQuad)[2], const double (*dstQuad)[2])
{
  QuadPair pair;
  if (auto s = loadPair(srcQuad, dstQuad, pair); s != ZorOk) return s;
  const Affine forward = product(affineTo(pair.dst, unit), affineFrom(pair.src, unit));
  const Affine back = product(affineTo(pair.src, unit), affineFrom(pair.dst, unit));
  if (isSingular(forward)) return ZorErrQuad;
  Box region;
  if (auto s = findRegion(call, region); s != ZorOk) return s;
  Quad source = pair.src; // three points fix the map, the fourth comes of it
  source.corner[3] = mapped(back, pair.dst.corner[3]);
  return warp(call, coveredPart(pair.dst, source, region, forward), pair.kind == QuadKind::Positive,
              [&](double scale) { return AffineRule(back, scale); });
}

// ---- Perspective ----

ZorStatus runPerspective(const WarpCall& call, const Perspective& given, bool isBack)
{
  if (isSingular(given)) return ZorErrQuad;
  Box region;
  if (auto s = findRegion(call, region); s != ZorOk) return s;
  const Quad quad = mapped(isBack ? inverseOf(given) : given, region);
  const QuadKind kind = kindOf(quad);
  if (!isSound(kind)) return ZorErrQuad;
  const Perspective back = isBack ? given : inverseOf(perspectiveTo(quad, region));
  return warp(call, Polygon(quad), kind == QuadKind::Positive,
              [&](double scale) { return PerspectiveRule(back, scale); });
}

ZorStatus runPerspectiveQuad(const WarpCall& call, const double (*srcQuad)[2], const double (*dstQuad)[2])
{
  QuadPair pair;
  if (auto s = loadPair(srcQuad, dstQuad, pair); s != ZorOk) return s;
  const Perspective toSrc = perspectiveTo(pair.src, unit), toDst = perspectiveTo(pair.dst, unit);
  const Perspective forward = product(toDst, inverseOf(toSrc)), back = product(toSrc, inverseOf(toDst));
  if (isSingular(back)) return ZorErrQuad;
  Box region;
  if (auto s = findRegion(call, region); s != ZorOk) return s;
  return warp(call, coveredPart(pair.dst, pair.src, region, forward), pair.kind == QuadKind::Positive,
              [&](double scale) { return PerspectiveRule(back, scale); });
}

// ---- Bilinear ----

ZorStatus runBilinear(const WarpCall& call, const Bilinear& b)
{
  Box region;
  if (auto s = findRegion(call, region); s != ZorOk) return s;
  const Quad quad = mapped(b, region);
  const QuadKind kind = kindOf(quad);
  if (!isSound(kind)) return ZorErrQuad;
  // counted from the region's corner, where the inverse is exact
  const double x = region.left, y = region.top;
  const Bilinear local = {b.xBoth, b.xBoth * y + b.xx, b.xBoth * x + b.xy, quad.corner[0].x,
                          b.yBoth, b.yBoth * y + b.yx, b.yBoth * x + b.yy, quad.corner[0].y};
  const Bilinear toSource = {0, 1, 0, x, 0, 0, 1, y};
  const bool isPositive = kind == QuadKind::Positive;
  return warp(call, Polygon(quad), isPositive,
              [&](double scale) { return BilinearRule(local, isPositive, toSource, scale); });
}

ZorStatus runBilinearBack(const WarpCall& call, const Bilinear& back)
{
  Box region;
  if (auto s = findRegion(call, region); s != ZorOk) return s;
  // A point has two preimages, one on either side of the fold: those of the corners are taken on the side where the
  // destination rectangle's middle lies, or on the other where that gives no quadrangle.
  const Box box = boxOf(call.dstRoi);
  const double turn = turnAt(back, {(box.left + box.right) / 2, (box.top + box.bottom) / 2});
  const Quad corners = cornersOf(region);
  for (const double side : {turn, -turn}) {
    Quad quad;
    for (int i = 0; i < 4; ++i) quad.corner[i] = preimage(back, corners.corner[i], side);
    const QuadKind kind = kindOf(quad);
    if (isSound(kind))
      return warp(call, Polygon(quad), kind == QuadKind::Positive,
                  [&](double scale) { return BilinearBackRule(back, scale); });
  }
  return ZorErrQuad;
}

ZorStatus runBilinearQuad(const WarpCall& call, const double (*srcQuad)[2], const double (*dstQuad)[2])
{
  QuadPair pair;
  if (auto s = loadPair(srcQuad, dstQuad, pair); s != ZorOk) return s;
  Box region;
  if (auto s = findRegion(call, region); s != ZorOk) return s;
  // both quadrangles are images of the unit square
  const Bilinear toDst = bilinearTo(pair.dst, unit), toSrc = bilinearTo(pair.src, unit);
  const Box bound = boundOf(pair.src);
  const bool isInside = bound.left >= region.left && bound.top >= region.top && bound.right <= region.right &&
                        bound.bottom <= region.bottom;
  const bool isPositive = pair.kind == QuadKind::Positive;
  return warp(
    call, Polygon(pair.dst), isPositive, [&](double scale) { return BilinearRule(toDst, isPositive, toSrc, scale); },
    isInside ? nullptr : &region);
}

} // namespace

// ---- As they are called: the arithmetic is done under rounding to nearest. ----

ZorStatus warpAffine(const WarpCall& call, const double (*coeffs)[3])
{
  if (auto s = checkCall(call, coeffs); s != ZorOk) return s;
  return underRounding(Rounding::Nearest, [&] { return runAffine(call, affineOf(coeffs), nullptr); });
}

ZorStatus warpAffineBack(const WarpCall& call, const double (*coeffs)[3])
{
  if (auto s = checkCall(call, coeffs); s != ZorOk) return s;
  const Affine back = affineOf(coeffs);
  return underRounding(Rounding::Nearest, [&] { return runAffine(call, inverseOf(back), &back); });
}

ZorStatus warpPerspective(const WarpCall& call, const double (*coeffs)[3])
{
  if (auto s = checkCall(call, coeffs); s != ZorOk) return s;
  return underRounding(Rounding::Nearest, [&] { return runPerspective(call, perspectiveOf(coeffs), false); });
}

ZorStatus warpPerspectiveBack(const WarpCall& call, const double (*coeffs)[3])
{
  if (auto s = checkCall(call, coeffs); s != ZorOk) return s;
  return underRounding(Rounding::Nearest, [&] { return runPerspective(call, perspectiveOf(coeffs), true); });
}

ZorStatus warpBilinear(const WarpCall& call, const double (*coeffs)[4])
{
  if (auto s = checkCall(call, coeffs); s != ZorOk) return s;
  return underRounding(Rounding::Nearest, [&] { return runBilinear(call, bilinearOf(coeffs)); });
}

ZorStatus warpBilinearBack(const WarpCall& call, const double (*coeffs)[4])
{
  if (auto s = checkCall(call, coeffs); s != ZorOk) return s;
  return underRounding(Rounding::Nearest, [&] { return runBilinearBack(call, bilinearOf(coeffs)); });
}

ZorStatus warpAffineQuad(const WarpCall& call, const double (*srcQuad)[2], const double (*dstQuad)[2])
{
  if (auto s = checkCall(call, srcQuad, dstQuad); s != ZorOk) return s;
  return underRounding(Rounding::Nearest, [&] { return runAffineQuad(call, srcQuad, dstQuad); });
}

ZorStatus warpPerspectiveQuad(const WarpCall& call, const double (*srcQuad)[2], const double (*dstQuad)[2])
{
  if (auto s = checkCall(call, srcQuad, dstQuad); s != ZorOk) return s;
  return underRounding(Rounding::Nearest, [&] { return runPerspectiveQuad(call, srcQuad, dstQuad); });
}

ZorStatus warpBilinearQuad(const WarpCall& call, const double (*srcQuad)[2], const double (*dstQuad)[2])
{
  if (auto s = checkCall(call, srcQuad, dstQuad); s != ZorOk) return s;
  return underRounding(Rounding::Nearest, [&] { return runBilinearQuad(call, srcQuad, dstQuad); });
}

} // namespace geometry
} // namespace zori
