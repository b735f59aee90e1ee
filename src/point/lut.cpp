// zori{LUT,LUT_Linear,LUT_Cubic}_{8u,16u,16s,32f}_{C1,C3,C4,AC4}{R,IR}: samples through a curve that nodes describe.
//
// Interval k reaches from level k up to, but not including, level k + 1. In it, LUT gives value k, LUT_Linear the
// straight line between nodes k and k + 1, LUT_Cubic the cubic through four nodes; fewer than four nodes, in any
// channel, are joined by lines. A sample in no interval passes unchanged.
//
//   8u, 16u, 16s   the curve is written into a map of all values, and samples are looked up. Intervals are written in
//                  order, a later one over an earlier one. Values are cut toward zero, then clamped to the type
//   16u, 16s       LUT in C1 and C3 searches the interval of each sample of a small region instead
//   32f            the first interval that holds the sample decides
//
// Differences of integer nodes are formed in 32 bits and wrap; all else is double precision in the order written.
#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/memory.h"
#include "frame/numeric_mode.h"
#include "rowkernels/drivers.h"
#include "rowkernels/lookup.h"
#include "zori/point.h"

#include <algorithm>
#include <limits>
#include <new>

namespace zori {
namespace {

enum class Curve { Step, Linear, Cubic };

constexpr long long mostPixelsToSearch = 4096; // of 16-bit samples
constexpr int leastNodesOfCubic = 4;

template <class T> inline constexpr bool isFloat = std::is_same_v<T, Zor32f>;
template <class T> using Node = std::conditional_t<isFloat<T>, Zor32f, Zor32s>;

// One channel's nodes.
template <class T> struct Nodes {
  const Node<T>* values;
  const Node<T>* levels;
  int count;

  int intervals() const { return count - 1; }
  Node<T> lastLevel() const { return levels[count - 1]; }
  bool ascend() const
  {
    for (int k = 0; k < intervals(); ++k)
      if (!(levels[k] <= levels[k + 1])) return false;
    return true;
  }
};

// ---- Formulas ----

inline double difference(Zor32s a, Zor32s b)
{
  return static_cast<Zor32s>(static_cast<Zor32u>(a) - static_cast<Zor32u>(b));
}
inline double difference(Zor32f a, Zor32f b) { return a - b; }

struct Cubic {
  double a, b, c; // y = a d^3 + b d^2 + c d above the origin's value, d from the origin's level
};

// The first of the four nodes that an interval's cubic goes through; the next one is its origin.
inline int firstNodeOfCubic(int interval, int count)
{
  return std::min(std::max(interval - 1, 0), count - leastNodesOfCubic);
}

// The cubic through the origin and three nodes that are (a, p), (b, q) and (c, r) away from it. Nodes on one level give
// coefficients that are not finite.
static Cubic cubicThrough(double a, double b, double c, double p, double q, double r)
{
  const double a2 = a * a, b2 = b * b, c2 = c * c, a3 = a2 * a, b3 = b2 * b, c3 = c2 * c;
  const double scale = 1 / ((a3 * b2 - b3 * a2) * c + (-a3 * b + a * b3) * c2 + (a2 * b - a * b2) * c3);
  return {((b2 * p - a2 * q) * c + (-b * p + a * q) * c2 + (a2 * b - a * b2) * r) * scale,
          ((b * p - a * q) * c3 + (-b3 * p + a3 * q) * c + (a * b3 - a3 * b) * r) * scale,
          ((b3 * p - a3 * q) * c2 + (-b2 * p + a2 * q) * c3 + (a3 * b2 - b3 * a2) * r) * scale};
}

template <class T> Cubic cubicOfInterval(const Nodes<T>& nodes, int k)
{
  const int m = firstNodeOfCubic(k, nodes.count);
  const Node<T>*x = nodes.levels + m, *y = nodes.values + m;
  return cubicThrough(difference(x[0], x[1]), difference(x[2], x[1]), difference(x[3], x[1]), difference(y[0], y[1]),
                      difference(y[2], y[1]), difference(y[3], y[1]));
}

// ---- Maps of all values ----

template <class T> inline constexpr int low = std::numeric_limits<T>::min();
template <class T> inline constexpr int high = std::numeric_limits<T>::max();
template <class T> inline constexpr int mapSize = high<T> - low<T> + 1;

template <class T> inline T clamped(int value) { return static_cast<T>(std::clamp<int>(value, low<T>, high<T>)); }

// Entries from `from` up to, but not including, `to`; make(x) gives a vector of them from x on.
template <class T, class Make> void fill(T* map, int from, int to, Make make)
{
  int x = from;
  for (; x + Vec<T>::size <= to; x += Vec<T>::size) store(map + x, make(x));
  if (x < to) storePart(map + x, make(x), static_cast<std::size_t>(to - x) * sizeof(T));
}

// x, x + 1, ...
template <class T> Vec<T> countFrom(int x)
{
  alignas(vectorBytes) static constexpr T count[] = {0,  1,  2,  3,  4,  5,  6,  7,  8,  9,  10, 11, 12, 13, 14, 15,
                                                     16, 17, 18, 19, 20, 21, 22, 23, 24, 25, 26, 27, 28, 29, 30, 31};
  return load<T>(count) + splat(static_cast<T>(x));
}

template <class T> void fillIdentity(T* map, int from, int to) { fill(map, from, to, countFrom<T>); }

template <class T> void fillConstant(T* map, int from, int to, int value)
{
  fill(map, from, to, [v = splat(clamped<T>(value))](int) { return v; });
}

// y(x) of doubles, cut toward zero and clamped; what is not finite gives the lowest value or the highest one.
template <class T, class Y> void fillCurve(T* map, int from, int to, Y y)
{
  constexpr int n = Vec<std::int32_t>::size;
  const auto part = [=](int x) {
    const Vec<std::int32_t> lanes = countFrom<std::int32_t>(x);
    const Vec<double> top = splat<double>(high<T>); // far below, the cut gives the least integer
    return toIntTruncated(min(top, y(toDoubleLow(lanes))), min(top, y(toDoubleHigh(lanes))));
  };
  fill(map, from, to, [=](int x) {
    if constexpr (sizeof(T) == 2) return narrowSat<T>(part(x), part(x + n));
    else return narrowSatFour<T>(part(x), part(x + n), part(x + 2 * n), part(x + 3 * n));
  });
}

template <Curve C, class T> void fillInterval(T* map, const Nodes<T>& nodes, int k)
{
  const int level = nodes.levels[k], next = nodes.levels[k + 1], value = nodes.values[k];
  const int end = std::clamp(next, low<T>, high<T> + 1);
  if constexpr (C == Curve::Step) {
    fillConstant(map, std::clamp(level, low<T>, high<T> + 1), end, value);
  } else {
    if (next <= level) return;
    const int first = std::clamp(level, low<T>, high<T>); // the highest entry belongs to an interval above it, too
    if (end - first == 1) map[first] = clamped<T>(value);
    else if constexpr (C == Curve::Linear) {
      const double slope = difference(nodes.values[k + 1], value) / difference(next, level);
      const double base = value + 0.5 - level * slope;
      fillCurve(map, first, end, [m = splat(slope), b = splat(base)](Vec<double> x) { return x * m + b; });
    } else {
      const int origin = firstNodeOfCubic(k, nodes.count) + 1;
      const Cubic f = cubicOfInterval(nodes, k);
      const double from = nodes.levels[origin], base = nodes.values[origin];
      fillCurve(map, first, end, [=](Vec<double> x) {
        const Vec<double> d = x - splat(from), d2 = d * d;
        return (splat(f.a) * d2 + splat(f.c)) * d + (splat(f.b) * d2 + splat(base) + splat(0.5));
      });
    }
  }
}

// map points to the image of 0.
template <Curve C, class T> ZORI_ONE_COPY void fillMap(T* map, const Nodes<T>& nodes)
{
  const UpperHalvesCleared atTheEnd;
  fillIdentity(map, low<T>, std::clamp(nodes.levels[0], low<T>, high<T> + 1));
  for (int k = 0; k < nodes.intervals(); ++k) fillInterval<C>(map, nodes, k);
  fillIdentity(map, std::clamp(nodes.lastLevel(), low<T>, high<T> + 1), high<T> + 1);
}

template <Curve C, class T, Layout L>
void throughMaps(Rows<const T> src, Rows<T> dst, ZorImgSize roi, const Nodes<T>* nodes, T* maps)
{
  const T* tables[processed<L>];
  for (int c = 0; c < processed<L>; ++c) {
    T* map = maps + c * mapSize<T> - low<T>;
    fillMap<C>(map, nodes[c]);
    tables[c] = map;
  }
  for (int y = 0; y < roi.height; ++y) lookUpRow(src[y], dst[y], roi.width, tables, WholeSample{}, AlikePixels<L>{});
}

// ---- Search of the interval, sample by sample ----

// The interval that holds x among levels in any order, or -1: of floats the first one, of integers the one that halving
// comes upon.
template <class T> int intervalOf(Node<T> x, const Nodes<T>& nodes)
{
  const Node<T>* levels = nodes.levels;
  if constexpr (isFloat<T>) {
    for (int k = 0; k < nodes.intervals(); ++k)
      if (x >= levels[k] && levels[k + 1] > x) return k;
    return -1;
  } else {
    if (x < levels[0] || x >= nodes.lastLevel()) return -1;
    int k = 0;
    for (int count = nodes.intervals(); count > 1;) {
      const int half = count / 2;
      const bool above = x >= levels[k + half];
      k = above ? k + half : k;
      count = above ? count - half : half;
    }
    return k;
  }
}

// One channel of a row. With ascending levels several samples are searched side by side, in steps that depend on the
// number of levels alone; at most one interval holds a sample then, and both ways find it.
template <class T, class Evaluate>
ZORI_ONE_COPY void searchRow(const T* src, T* dst, std::ptrdiff_t pixels, int stride, const Nodes<T>& nodes,
                             bool ascending, Evaluate evaluate)
{
  if (!ascending) {
    for (; pixels > 0; --pixels, src += stride, dst += stride) {
      const T x = get<T>(src);
      const int k = intervalOf(x, nodes);
      put(dst, k < 0 ? x : evaluate(k, x));
    }
    return;
  }
  const Node<T>* const levels = nodes.levels;
  const Node<T> first = levels[0], last = nodes.lastLevel();
  const std::ptrdiff_t intervals = nodes.intervals();
  const auto search = [&](auto block) {
    Node<T> x[block];
    const Node<T>* level[block]; // of the interval that holds x
    for (int i = 0; i < block; ++i) {
      x[i] = get<T>(src + i * stride);
      level[i] = levels;
    }
    for (std::ptrdiff_t rest = intervals; rest > 1;) {
      const std::ptrdiff_t half = rest / 2;
      rest -= half;
      for (int i = 0; i < block; ++i) level[i] = level[i][half] <= x[i] ? level[i] + half : level[i];
    }
    for (int i = 0; i < block; ++i)
      put(dst + i * stride, x[i] >= first && x[i] < last ? evaluate(level[i] - levels, x[i]) : static_cast<T>(x[i]));
    src += block * stride;
    dst += block * stride;
    pixels -= block;
  };
  while (pixels >= 4) search(std::integral_constant<int, 4>{});
  while (pixels > 0) search(std::integral_constant<int, 1>{});
}

// evaluatorOf(c) gives what makes an image of interval k and sample x of channel c.
template <class T, Layout L, class EvaluatorOf>
void mapBySearch(Rows<const T> src, Rows<T> dst, ZorImgSize roi, const Nodes<T>* nodes, EvaluatorOf evaluatorOf)
{
  for (int c = 0; c < processed<L>; ++c) {
    const bool ascending = nodes[c].ascend();
    const auto evaluate = evaluatorOf(c);
    for (int y = 0; y < roi.height; ++y)
      searchRow(src[y] + c, dst[y] + c, roi.width, channels<L>, nodes[c], ascending, evaluate);
  }
}

template <class T> struct StepValues {
  const Node<T>* values;
  T operator()(std::ptrdiff_t k, Node<T>) const
  {
    if constexpr (isFloat<T>) return values[k];
    else return clamped<T>(values[k]);
  }
};

// An interval of 32f, ready to be evaluated.
template <Curve C> struct Piece;

template <> struct Piece<Curve::Linear> {
  double slope, value;
  Zor32f level;

  Piece(const Nodes<Zor32f>& nodes, int k) : value(nodes.values[k]), level(nodes.levels[k])
  {
    const Zor32f width = nodes.levels[k + 1] - level;
    slope = width != 0 ? (nodes.values[k + 1] - nodes.values[k]) / width : 0.0f;
  }
  Zor32f operator()(Zor32f x) const { return static_cast<Zor32f>(static_cast<double>(x - level) * slope + value); }
};

template <> struct Piece<Curve::Cubic> {
  Cubic f = {};
  double value; // of the origin
  Zor32f level;

  Piece(const Nodes<Zor32f>& nodes, int k)
  {
    const int origin = firstNodeOfCubic(k, nodes.count) + 1;
    value = nodes.values[origin];
    level = nodes.levels[origin];
    if (nodes.levels[k + 1] > nodes.levels[k]) f = cubicOfInterval(nodes, k);
  }
  Zor32f operator()(Zor32f x) const
  {
    const double d = x - level, d2 = d * d;
    return static_cast<Zor32f>((f.a * d2 + f.c) * d + (value + f.b * d2));
  }
};

template <Curve C> struct Pieces {
  const Piece<C>* pieces;
  Zor32f operator()(std::ptrdiff_t k, Zor32f x) const { return pieces[k](x); }
};

// ---- The functions ----

template <Curve C, class T, Layout L>
ZorStatus mapRegionByCurve(Rows<const T> src, Rows<T> dst, ZorImgSize roi, const Nodes<T>* nodes)
{
  constexpr int n = processed<L>;
  if constexpr (C == Curve::Cubic) {
    for (int c = 0; c < n; ++c)
      if (nodes[c].count < leastNodesOfCubic) return mapRegionByCurve<Curve::Linear, T, L>(src, dst, roi, nodes);
  }
  if constexpr (sizeof(T) == 1) {
    T maps[n * mapSize<T>];
    throughMaps<C, T, L>(src, dst, roi, nodes, maps);
    return ZorOk;
  } else if constexpr (isFloat<T>) {
    if constexpr (C == Curve::Step) {
      mapBySearch<T, L>(src, dst, roi, nodes, [=](int c) { return StepValues<T>{nodes[c].values}; });
    } else {
      long long total = 0;
      for (int c = 0; c < n; ++c) total += nodes[c].intervals();
      Scratch<Piece<C>> pieces(total);
      if (!pieces) return ZorErrAlloc;
      Piece<C>* end = pieces.get();
      mapBySearch<T, L>(src, dst, roi, nodes, [&](int c) {
        Piece<C>* const own = end;
        for (int k = 0; k < nodes[c].intervals(); ++k) new (end++) Piece<C>(nodes[c], k);
        return Pieces<C>{own};
      });
    }
    return ZorOk;
  } else {
    if constexpr (C == Curve::Step && (L == C1 || L == C3)) {
      if (static_cast<long long>(roi.width) * roi.height <= mostPixelsToSearch) {
        mapBySearch<T, L>(src, dst, roi, nodes, [=](int c) { return StepValues<T>{nodes[c].values}; });
        return ZorOk;
      }
    }
    Scratch<T> maps(n * static_cast<long long>(mapSize<T>));
    if (!maps) return ZorErrAlloc;
    throughMaps<C, T, L>(src, dst, roi, nodes, maps.get());
    return ZorOk;
  }
}

template <Curve C, class T, Layout L>
ZorStatus mapUnderNearest(Rows<const T> src, Rows<T> dst, ZorImgSize roi, const Nodes<T>* nodes)
{
  const auto map = [&] { return mapRegionByCurve<C, T, L>(src, dst, roi, nodes); };
  return C == Curve::Step ? map() : underRounding(Rounding::Nearest, map); // steps take no arithmetic
}

inline ZorStatus enoughLevels(int nLevels) { return require(nLevels >= 2, ZorErrLutLevels); }

template <Curve C, class T>
ZorStatus curveC1(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize, const Node<T>* pValues,
                  const Node<T>* pLevels, int nLevels)
{
  if (auto s = firstFailure(nonNull(pSrc, pDst, pValues, pLevels), nonEmpty(roiSize), positive(srcStep, dstStep),
                            enoughLevels(nLevels));
      s != ZorOk)
    return s;
  const Nodes<T> nodes{pValues, pLevels, nLevels};
  return mapUnderNearest<C, T, C1>({pSrc, srcStep}, {pDst, dstStep}, roiSize, &nodes);
}

template <Curve C, class T, Layout L>
ZorStatus curveChannels(const T* pSrc, int srcStep, T* pDst, int dstStep, ZorImgSize roiSize,
                        const Node<T>* const* pValues, const Node<T>* const* pLevels, const int* nLevels)
{
  if (auto s = nonNull(pSrc, pDst, pValues, pLevels, nLevels); s != ZorOk) return s;
  Nodes<T> nodes[processed<L>];
  for (int c = 0; c < processed<L>; ++c) {
    if (auto s = firstFailure(nonNull(pValues[c], pLevels[c]), enoughLevels(nLevels[c])); s != ZorOk) return s;
    nodes[c] = {pValues[c], pLevels[c], nLevels[c]};
  }
  if (auto s = firstFailure(nonEmpty(roiSize), positive(srcStep, dstStep)); s != ZorOk) return s;
  return mapUnderNearest<C, T, L>({pSrc, srcStep}, {pDst, dstStep}, roiSize, nodes);
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(name, curve, type, node)                                                                                 \
  ZorStatus zori##name##_##type##_C1R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,                \
    ZorImgSize roiSize, const Zor##node* pValues, const Zor##node* pLevels, int nLevels)                               \
  { return curveC1<Curve::curve>(pSrc, srcStep, pDst, dstStep, roiSize, pValues, pLevels, nLevels); }                  \
  ZorStatus zori##name##_##type##_C1IR(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize, const Zor##node* pValues,\
    const Zor##node* pLevels, int nLevels)                                                                             \
  {                                                                                                                    \
    return zori##name##_##type##_C1R(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, pValues, pLevels, nLevels);    \
  }                                                                                                                    \
  STAMP_N(name, curve, type, node, C3, 3) STAMP_N(name, curve, type, node, C4, 4) STAMP_N(name, curve, type, node, AC4, 3)
#define STAMP_N(name, curve, type, node, layout, n)                                                                    \
  ZorStatus zori##name##_##type##_##layout##R(const Zor##type* pSrc, int srcStep, Zor##type* pDst, int dstStep,        \
    ZorImgSize roiSize, const Zor##node* const pValues[n], const Zor##node* const pLevels[n], const int nLevels[n])    \
  {                                                                                                                    \
    return curveChannels<Curve::curve, Zor##type, layout>(pSrc, srcStep, pDst, dstStep, roiSize, pValues, pLevels, nLevels);\
  }                                                                                                                    \
  ZorStatus zori##name##_##type##_##layout##IR(Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize,                 \
    const Zor##node* const pValues[n], const Zor##node* const pLevels[n], const int nLevels[n])                        \
  {                                                                                                                    \
    return zori##name##_##type##_##layout##R(pSrcDst, srcDstStep, pSrcDst, srcDstStep, roiSize, pValues, pLevels, nLevels);\
  }
#define STAMP_CURVE(name, curve) \
  STAMP(name, curve, 8u, 32s) STAMP(name, curve, 16u, 32s) STAMP(name, curve, 16s, 32s) STAMP(name, curve, 32f, 32f)
STAMP_CURVE(LUT, Step) STAMP_CURVE(LUT_Linear, Linear) STAMP_CURVE(LUT_Cubic, Cubic)
#undef STAMP_CURVE
#undef STAMP_N
#undef STAMP
