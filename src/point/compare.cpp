// zori{Compare,CompareC}_{8u,16u,16s,32f}_{C1,C3,C4,AC4}R, zori{CompareEqualEps,CompareEqualEpsC}_32f_{C1,C3,C4,AC4}R:
// masks of one byte a pixel, 255 where the comparison holds in every processed channel.
//
// As many pixels at a time as a vector has bytes: samples compare in their own type to vectors of byte masks, and the
// masks of a pixel's channels meet by a bitwise and. One channel is a walk of groups. Greater (or equal) is less (or
// equal) with the operands exchanged; a NaN fails every comparison.
#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/numeric_mode.h"
#include "rowkernels/channels.h"
#include "walk/map.h"
#include "zori/point.h"

namespace zori {
namespace {

// ---- Comparisons of vectors: lanes of all ones where they hold ----

struct Less {
  template <class V> V operator()(V a, V b) const { return greater(b, a); }
};
struct LessOrEqual {
  template <class T, int B> Vec<T, B> operator()(Vec<T, B> a, Vec<T, B> b) const
  {
    if constexpr (std::is_same_v<T, Zor32f>) return lessEqual(a, b);
    else if constexpr (isSigned<T>) return without(splat<T, B>(T(-1)), greater(a, b));
    else return equal(subSat(a, b), zero<T, B>());
  }
};
struct Equal {
  template <class V> V operator()(V a, V b) const { return equal(a, b); }
};
struct WithinTolerance {
  Zor32f eps;
  template <int B> Vec<Zor32f, B> operator()(Vec<Zor32f, B> a, Vec<Zor32f, B> b) const
  {
    return lessEqual(abs(a - b), splat<Zor32f, B>(eps));
  }
};

// Byte masks of as many parts of masks as they come in.
template <class T, int B> inline Vec<Zor8u, B> byteMasks(const Vec<T, B>* part)
{
  if constexpr (sizeof(T) == 1) return as<Zor8u>(part[0]);
  else if constexpr (sizeof(T) == 2) return as<Zor8u>(narrowSat<Zor8s>(as<Zor16s>(part[0]), as<Zor16s>(part[1])));
  else
    return as<Zor8u>(
      narrowSatFour<Zor8s>(as<Zor32s>(part[0]), as<Zor32s>(part[1]), as<Zor32s>(part[2]), as<Zor32s>(part[3])));
}

// ---- One channel: an operation on groups, and on vectors where masks are as wide as samples ----

template <class T, class Compare> struct MasksOfGroups {
  Compare compare;
  Vec<T> constant; // in place of the second image, if there is one

  template <int B> ZORI_INLINE Group<Zor8u, B> operator()(const Group<T, B>& a, const Group<T, B>& b) const
  {
    Vec<T, B> part[a.parts];
    for (int k = 0; k < a.parts; ++k) part[k] = compare(a.part[k], b.part[k]);
    return {{byteMasks(part)}};
  }
  template <int B> ZORI_INLINE Group<Zor8u, B> operator()(const Group<T, B>& a) const
  {
    Group<T, B> b;
    for (auto& part : b.part) part = firstBytes<B>(constant);
    return (*this)(a, b);
  }
  Vec<Zor8u> operator()(Vec<Zor8u> a, Vec<Zor8u> b) const { return compare(a, b); }
  Vec<Zor8u> operator()(Vec<Zor8u> a) const { return compare(a, constant); }
};

template <class T, class Compare, class... Image>
void compareSamples(Vec<T> constant, Rows<Zor8u> dst, ZorImgSize roi, Compare compare, Image... image)
{
  const MasksOfGroups<T, Compare> op{compare, constant};
  if constexpr (sizeof(T) == 1) mapRegion<C1>(roi, op, dst, image...);
  else mapRegionOfGroups<C1>(roi, op, dst, image...);
}

// ---- Operands: the samples of a block of pixels as groups of as many, of which every channel of a pixel has one ----

// Three channels come in words of four samples: group w is of the words w, w + 3, w + 6 and w + 9, so that the groups
//   a0 b0 c0 a1   b1 c1 a2 b2   c2 a3 b3 c3
// of 32-bit words of masks hold all channels of the same four pixels in the same place.
template <class T> struct Image {
  const T* p;
  template <Layout L, int B> Vec<T, B> part(int group, int k) const
  {
    constexpr int lanes = Vec<T, B>::size;
    if constexpr (L != C3) return load<T, B>(p + B * group + lanes * k);
    else if constexpr (sizeof(T) == 1)
      return as<T>(
        pick<3, 0, 3, 0>(load<std::uint32_t, 16>(p + 4 * group), load<std::uint32_t, 16>(p + 4 * group + 24)));
    else if constexpr (sizeof(T) == 2) {
      const T* const from = p + 4 * group + 24 * k;
      return as<T>(interleaveLow(loadLow8<std::uint64_t>(from), loadLow8<std::uint64_t>(from + 12)));
    } else return load<T, 16>(p + 4 * group + 12 * k);
  }
  Image at(std::ptrdiff_t sample) const { return {p + sample}; }
  void fetch(std::ptrdiff_t sample, std::ptrdiff_t distance, std::ptrdiff_t samples) const
  {
    fetchAhead(p + sample, distance, samples * static_cast<std::ptrdiff_t>(sizeof(T)));
  }
};

// A constant of the processed channels; the fourth of AC4 is never looked at.
template <class T, Layout L, int Bytes> struct Constant {
  static constexpr int groups = L == C3 ? 3 : 1; // different ones
  static constexpr int lanes = Vec<T, Bytes>::size;
  T values[groups * lanes];

  explicit Constant(const T* constant)
  {
    for (int g = 0; g < groups; ++g)
      for (int i = 0; i < lanes; ++i) {
        const int c = (4 * g + i % 4) % channels<L>;
        values[g * lanes + i] = c < processed<L> ? get<T>(constant + c) : T(0);
      }
  }
  template <Layout, int B> Vec<T, B> part(int g, int) const { return load<T, B>(values + g % groups * lanes); }
  const Constant& row(int) const { return *this; }
  const Constant& at(std::ptrdiff_t) const { return *this; }
  void fetch(std::ptrdiff_t, std::ptrdiff_t, std::ptrdiff_t) const {}
};

// ---- From samples to masks, of B pixels ----

template <Layout L, class T, int B, class First, class Second, class Compare>
[[gnu::always_inline]] inline Vec<Zor8u, B> pixelMasks(Compare compare, const First& a, const Second& b)
{
  const auto masks = [&](int group) __attribute__((always_inline))
  {
    constexpr int parts = sizeof(T);
    Vec<T, B> part[parts];
    for (int k = 0; k < parts; ++k) part[k] = compare(a.template part<L, B>(group, k), b.template part<L, B>(group, k));
    return byteMasks(part);
  };
  if constexpr (L == C3) {
    auto x = as<std::uint32_t>(masks(0)), y = as<std::uint32_t>(masks(1)), z = as<std::uint32_t>(masks(2));
    sortHalves(x, y, z); // to a0 b0 a2 b2, c0 a1 c2 a3, b1 c1 b3 c3
    const auto even = as<std::uint16_t>(x), odd = as<std::uint16_t>(z);
    const auto two = (even & shiftRight<8>(even)) | (odd & shiftLeft<8>(odd));
    return as<Zor8u>(two & as<std::uint16_t>(y));
  } else { // four masks a pixel: 32 bits, all of them set
    Vec<Zor32s, B> pixels[4];
    for (int k = 0; k < 4; ++k) {
      Vec<Zor32s, B> x = as<Zor32s>(masks(k));
      if constexpr (L == AC4) x = x | splat<Zor32s, B>(static_cast<Zor32s>(0xff000000u));
      pixels[k] = equal(x, splat<Zor32s, B>(-1));
    }
    return as<Zor8u>(narrowSatFour<Zor8s>(pixels[0], pixels[1], pixels[2], pixels[3]));
  }
}

// ---- Rows and regions ----

template <class T> struct ImageRows {
  Rows<const T> rows;
  Image<T> row(int y) const { return {rows[y]}; }
};

// The last block overlaps the one before it, and is formed first, since the row may be its own source.
template <Layout L, int B, class T, class Second, class Compare>
ZORI_ONE_COPY void maskRow(const T* src, const Second& b, Zor8u* dst, std::ptrdiff_t width, Compare compare)
{
  const UpperHalvesCleared atTheEnd;
  constexpr std::ptrdiff_t samples = B * channels<L>;
  const auto masksOf = [&](const auto& first, const auto& second) __attribute__((always_inline))
  {
    return pixelMasks<L, T, B>(compare, first, second);
  };
  if constexpr (B == 16) {
    if (width < B) {
      const PaddedBlock<T, samples> first(src, width * channels<L>);
      Vec<Zor8u, B> masks;
      if constexpr (std::is_same_v<Second, Image<T>>) {
        const PaddedBlock<T, samples> second(b.p, width * channels<L>);
        masks = masksOf(Image<T>{first.values}, Image<T>{second.values});
      } else masks = masksOf(Image<T>{first.values}, b);
      storePart(dst, masks, static_cast<std::size_t>(width));
      return;
    }
  }
  const Image<T> a{src};
  const auto masksAt = [&](std::ptrdiff_t x) __attribute__((always_inline))
  {
    return masksOf(a.at(x * channels<L>), b.at(x * channels<L>));
  };
  const std::ptrdiff_t distance = fetchDistance<T>(width * channels<L>);
  const Vec<Zor8u, B> last = masksAt(width - B);
  for (std::ptrdiff_t x = 0; x + B < width; x += B) {
    if (distance != 0) {
      a.fetch(x * channels<L>, distance, samples);
      b.fetch(x * channels<L>, distance, samples);
      fetchAhead(dst + x, distance, B);
    }
    store(dst + x, masksAt(x));
  }
  store(dst + width - B, last);
}
template <Layout L, int B, class T, class Second, class Compare>
void maskRows(Rows<const T> src, const Second& second, Rows<Zor8u> dst, ZorImgSize roi, Compare compare)
{
  for (int y = 0; y < roi.height; ++y) maskRow<L, B>(src[y], second.row(y), dst[y], roi.width, compare);
}

// f of the pixels of a block as a constant: 16 of three channels and in short rows, as many as a vector has bytes else.
template <Layout L, class F> ZORI_INLINE inline void withBlock(int width, F f)
{
  constexpr int whole = L == C3 ? 16 : vectorBytes;
  if (L == C3 || width < whole) f(std::integral_constant<int, 16>{});
  else f(std::integral_constant<int, whole>{});
}

template <Layout L, class T, class Compare>
void compareRows(Rows<const T> a, Rows<const T> b, Rows<Zor8u> dst, ZorImgSize roi, Compare compare)
{
  if constexpr (L == C1) compareSamples(Vec<T>{}, dst, roi, compare, a, b);
  else withBlock<L>(roi.width, [=](auto block) { maskRows<L, block>(a, ImageRows<T>{b}, dst, roi, compare); });
}

// `constant` points to a value a channel.
template <Layout L, class T, class Compare>
void compareRows(Rows<const T> a, const T* constant, Rows<Zor8u> dst, ZorImgSize roi, Compare compare)
{
  if constexpr (L == C1) compareSamples(splat(get<T>(constant)), dst, roi, compare, a);
  else
    withBlock<L>(roi.width,
                 [=](auto block) { maskRows<L, block>(a, Constant<T, L, block>(constant), dst, roi, compare); });
}

template <class T, Layout L>
ZorStatus compareRegion(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, Zor8u* pDst, int dstStep,
                        ZorImgSize roiSize, ZorCmpOp cmpOp)
{
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pDst), positive(src1Step, src2Step, dstStep), nonEmpty(roiSize));
      s != ZorOk)
    return s;
  const Rows a{pSrc1, src1Step}, b{pSrc2, src2Step};
  const Rows dst{pDst, dstStep};
  switch (static_cast<int>(cmpOp)) {
  case ZorCmpLess: compareRows<L>(a, b, dst, roiSize, Less{}); break;
  case ZorCmpLessEq: compareRows<L>(a, b, dst, roiSize, LessOrEqual{}); break;
  case ZorCmpEq: compareRows<L>(a, b, dst, roiSize, Equal{}); break;
  case ZorCmpGreaterEq: compareRows<L>(b, a, dst, roiSize, LessOrEqual{}); break;
  case ZorCmpGreater: compareRows<L>(b, a, dst, roiSize, Less{}); break;
  default: break; // an unknown selector writes nothing and is no error
  }
  return ZorOk;
}

// Exchanges the operands of a comparison, so that the constant stands first.
template <class Compare> struct Exchanged {
  Compare compare;
  template <class V> V operator()(V a, V b) const { return compare(b, a); }
};

template <class T, Layout L>
ZorStatus compareConstant(const T* pSrc, int srcStep, const T* value, Zor8u* pDst, int dstStep, ZorImgSize roiSize,
                          ZorCmpOp cmpOp)
{
  if (auto s = firstFailure(nonNull(pSrc, value, pDst), positive(srcStep, dstStep), nonEmpty(roiSize)); s != ZorOk)
    return s;
  const Rows a{pSrc, srcStep};
  const Rows dst{pDst, dstStep};
  switch (static_cast<int>(cmpOp)) {
  case ZorCmpLess: compareRows<L>(a, value, dst, roiSize, Less{}); break;
  case ZorCmpLessEq: compareRows<L>(a, value, dst, roiSize, LessOrEqual{}); break;
  case ZorCmpEq: compareRows<L>(a, value, dst, roiSize, Equal{}); break;
  case ZorCmpGreaterEq: compareRows<L>(a, value, dst, roiSize, Exchanged<LessOrEqual>{}); break;
  case ZorCmpGreater: compareRows<L>(a, value, dst, roiSize, Exchanged<Less>{}); break;
  default: break;
  }
  return ZorOk;
}

inline ZorStatus knownTolerance(Zor32f eps)
{
  return require(!(eps < 0.0f), ZorErrEpsilon);
} // a NaN passes and never holds

template <Layout L>
ZorStatus compareEqualEps(const Zor32f* pSrc1, int src1Step, const Zor32f* pSrc2, int src2Step, Zor8u* pDst,
                          int dstStep, ZorImgSize roiSize, Zor32f eps)
{
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pDst), positive(src1Step, src2Step, dstStep), nonEmpty(roiSize),
                            knownTolerance(eps));
      s != ZorOk)
    return s;
  underRounding(Rounding::Nearest, [&] {
    compareRows<L>(Rows{pSrc1, src1Step}, Rows{pSrc2, src2Step}, Rows{pDst, dstStep}, roiSize, WithinTolerance{eps});
  });
  return ZorOk;
}

template <Layout L>
ZorStatus compareEqualEpsC(const Zor32f* pSrc, int srcStep, const Zor32f* value, Zor8u* pDst, int dstStep,
                           ZorImgSize roiSize, Zor32f eps)
{
  if (auto s =
        firstFailure(nonNull(pSrc, value, pDst), positive(srcStep, dstStep), nonEmpty(roiSize), knownTolerance(eps));
      s != ZorOk)
    return s;
  underRounding(Rounding::Nearest, [&] {
    compareRows<L>(Rows{pSrc, srcStep}, value, Rows{pDst, dstStep}, roiSize, WithinTolerance{eps});
  });
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP_IMAGES(type, layout)                                                                                     \
  ZorStatus zoriCompare_##type##_##layout##R(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2, int src2Step,\
                                             Zor8u* pDst, int dstStep, ZorImgSize roiSize, ZorCmpOp cmpOp)             \
  { return compareRegion<Zor##type, layout>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, cmpOp); }
#define STAMP_CONSTANT(type, layout, parameter, address)                                                               \
  ZorStatus zoriCompareC_##type##_##layout##R(const Zor##type* pSrc, int srcStep, parameter, Zor8u* pDst, int dstStep, \
                                              ZorImgSize roiSize, ZorCmpOp cmpOp)                                      \
  { return compareConstant<Zor##type, layout>(pSrc, srcStep, address, pDst, dstStep, roiSize, cmpOp); }
#define STAMPS(type)                                                                                          \
  STAMP_IMAGES(type, C1) STAMP_IMAGES(type, C3) STAMP_IMAGES(type, C4) STAMP_IMAGES(type, AC4)                \
  STAMP_CONSTANT(type, C1, Zor##type value, &value) STAMP_CONSTANT(type, C3, const Zor##type value[3], value) \
  STAMP_CONSTANT(type, C4, const Zor##type value[4], value) STAMP_CONSTANT(type, AC4, const Zor##type value[3], value)
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32f)
#undef STAMPS
#undef STAMP_CONSTANT
#undef STAMP_IMAGES

#define STAMP(layout, parameter, address)                                                                              \
  ZorStatus zoriCompareEqualEps_32f_##layout##R(const Zor32f* pSrc1, int src1Step, const Zor32f* pSrc2, int src2Step,  \
                                                Zor8u* pDst, int dstStep, ZorImgSize roiSize, Zor32f eps)              \
  { return compareEqualEps<layout>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, eps); }                   \
  ZorStatus zoriCompareEqualEpsC_32f_##layout##R(const Zor32f* pSrc, int srcStep, parameter, Zor8u* pDst, int dstStep, \
                                                 ZorImgSize roiSize, Zor32f eps)                                       \
  { return compareEqualEpsC<layout>(pSrc, srcStep, address, pDst, dstStep, roiSize, eps); }
STAMP(C1, Zor32f value, &value) STAMP(C3, const Zor32f value[3], value)
STAMP(C4, const Zor32f value[4], value) STAMP(AC4, const Zor32f value[3], value)
#undef STAMP
