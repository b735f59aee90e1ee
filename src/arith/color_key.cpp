// zoriCompColorKey_{8u,16u,16s}_{C1,C3,C4}R: where the pixel of the first image is the key, the second shows through.
#include "frame/checks.h"
#include "walk/map.h"
#include "zori/arith.h"

namespace zori {
namespace {

// One-channel pixels.
template <class T> struct KeyedSample {
  T key;
  Vec<T> operator()(Vec<T> s1, Vec<T> s2) const { return select(equal(s1, splat(key)), s2, s1); }
};

// Pixels of four channels: 32 or 64 bits.
template <class T> struct KeyedPixel {
  static constexpr int period = 4;
  T key[4];
  Vec<T> operator()(Vec<T> s1, Vec<T> s2) const
  {
    Vec<Zor32s> same;
    if constexpr (sizeof(T) == 1) {
      same = equal(as<Zor32s>(s1), splat(get<Zor32s>(key)));
    } else {
      same = equal(as<Zor32s>(s1), as<Zor32s>(splat(get<Zor64s>(key))));
      same = same & shuffleLocal<2, 3, 0, 1>(same);
    }
    return select(as<T>(same), s2, s1);
  }
};

// Pixels of three channels. A vector holds several and a part of the next one, which is written back as it was.
template <class T>
ZORI_ONE_COPY void keyedRow(const T* src1, const T* src2, T* dst, std::ptrdiff_t width, const T key[3])
{
  constexpr int bytes = sizeof(T), lanes = Vec<T>::size, pixels = lanes / 3;
  const Vec<T> keys = Pattern<T>(key, 3).at(0);
  alignas(16) T first[lanes] = {}, whole[lanes] = {};
  for (int k = 0; k < 3 * pixels; ++k) {
    first[k] = static_cast<T>(k % 3 == 0 ? -1 : 0);
    whole[k] = static_cast<T>(-1);
  }
  const Vec<T> firstOfPixel = load<T>(first), wholePixels = load<T>(whole);
  std::ptrdiff_t i = 0;
  for (; i + lanes <= 3 * width; i += 3 * pixels) {
    const Vec<T> s1 = load<T>(src1 + i), s2 = load<T>(src2 + i);
    Vec<T> same = equal(s1, keys);
    same = same & bytesDown<bytes>(same) & bytesDown<2 * bytes>(same) & firstOfPixel;
    same = same | bytesUp<bytes>(same) | bytesUp<2 * bytes>(same);
    store(dst + i, select(wholePixels, select(same, s2, s1), load<T>(dst + i)));
  }
  for (; i < 3 * width; i += 3) {
    T pixel[3] = {get<T>(src1 + i), get<T>(src1 + i + 1), get<T>(src1 + i + 2)};
    const bool same = pixel[0] == key[0] && pixel[1] == key[1] && pixel[2] == key[2];
    if (same) std::memcpy(pixel, src2 + i, sizeof pixel);
    std::memcpy(dst + i, pixel, sizeof pixel);
  }
}

template <class T, Layout L>
ZorStatus compColorKey(const T* pSrc1, int src1Step, const T* pSrc2, int src2Step, T* pDst, int dstStep,
                       ZorImgSize roiSize, const T* key)
{
  if (auto s = firstFailure(nonNull(pSrc1, pSrc2, pDst, key), nonEmpty(roiSize), positive(src1Step, src2Step, dstStep));
      s != ZorOk)
    return s;
  const Rows dst{pDst, dstStep};
  const Rows src1{pSrc1, src1Step}, src2{pSrc2, src2Step};
  if constexpr (L == C1) {
    mapRegion<C1>(roiSize, KeyedSample<T>{get<T>(key)}, dst, src1, src2);
  } else if constexpr (L == C4) {
    KeyedPixel<T> op;
    std::memcpy(op.key, key, sizeof op.key);
    mapRegion<C4>(roiSize, op, dst, src1, src2);
  } else {
    T aligned[3];
    std::memcpy(aligned, key, sizeof aligned);
    for (int y = 0; y < roiSize.height; ++y) keyedRow<T>(src1[y], src2[y], dst[y], roiSize.width, aligned);
  }
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(type, layout, parameter, address)                                                                 \
  ZorStatus zoriCompColorKey_##type##_##layout##R(const Zor##type* pSrc1, int src1Step, const Zor##type* pSrc2, \
    int src2Step, Zor##type* pDst, int dstStep, ZorImgSize roiSize, parameter)                                  \
  { return compColorKey<Zor##type, layout>(pSrc1, src1Step, pSrc2, src2Step, pDst, dstStep, roiSize, address); }
#define STAMPS(type)                             \
  STAMP(type, C1, Zor##type colorKey, &colorKey) \
  STAMP(type, C3, const Zor##type colorKey[3], colorKey) STAMP(type, C4, const Zor##type colorKey[4], colorKey)
STAMPS(8u) STAMPS(16u) STAMPS(16s)
#undef STAMPS
#undef STAMP
