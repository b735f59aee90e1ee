// zoriLShiftC_{8u,16u,32s}_{C1,C3,C4,AC4}{R,IR}, zoriRShiftC_{8u,8s,16u,16s,32s}_{C1,C3,C4,AC4}{R,IR}: shifts by a
// constant.
//
// A count is unsigned and none is rejected. Path by the counts of the processed channels:
//
//   all of them 0                                        copy
//   all at or above the width, where zeros are shifted in fill with 0, the source is not read
//   all the same                                         one shift for the whole row
//   otherwise                                            each channel's shift, chosen lane by lane
#include "frame/checks.h"
#include "shortcuts.h"
#include "walk/map.h"
#include "zori/arith.h"

namespace zori {
namespace {

enum class Direction { Left, Right };

template <class T> inline constexpr int bits = 8 * sizeof(T);

// Counts beyond the width, where the processor's shifts give what the width itself would.
template <class T> inline int limited(Zor32u count) { return count < bits<T> ? static_cast<int>(count) : bits<T>; }

template <Direction D, class T> struct ShiftBy {
  int count; // 0 to the width
  Vec<T> operator()(Vec<T> x) const
  {
    if constexpr (sizeof(T) > 1) {
      if constexpr (D == Direction::Left) return shiftLeft(x, count);
      else return shiftRight(x, count);
    } else if constexpr (isSigned<T>) { // the odd bytes in their own words, the even ones moved up first
      const Vec<int16_t> words = as<int16_t>(x);
      const Vec<int16_t> odd = shiftRight(words, count) & splat<int16_t>(int16_t(0xff00));
      const Vec<int16_t> even = shiftRight(shiftRight<8>(shiftLeft<8>(words)), count) & splat<int16_t>(0x00ff);
      return as<T>(odd | even);
    } else { // words, without the bits that came from the neighbour
      const Vec<uint16_t> words = as<uint16_t>(x);
      if constexpr (D == Direction::Left)
        return as<T>(shiftLeft(words, count)) & splat<T>(static_cast<T>(0xff << count));
      else return as<T>(shiftRight(words, count)) & splat<T>(static_cast<T>(0xff >> count));
    }
  }
};

// The second operand numbers the channels.
template <Direction D, class T, int Channels> struct ShiftByChannel {
  int counts[Channels];
  Vec<T> operator()(Vec<T> x, Vec<T> channel) const
  {
    Vec<T> result = ShiftBy<D, T>{counts[0]}(x)&equal(channel, zero<T>());
    for (int k = 1; k < Channels; ++k)
      result = result | (ShiftBy<D, T>{counts[k]}(x)&equal(channel, splat(static_cast<T>(k))));
    return result;
  }
};

template <Direction D, class T, Layout L>
ZorStatus shiftRegion(const T* pSrc, int srcStep, const Zor32u* value, T* pDst, int dstStep, ZorImgSize roiSize)
{
  if (auto s = firstFailure(nonNull(pSrc, value, pDst), positive(srcStep, dstStep), nonEmpty(roiSize)); s != ZorOk)
    return s;

  constexpr bool fillsWithZero = D == Direction::Left || !isSigned<T>;
  bool allWide = true, allSame = true;
  ShiftByChannel<D, T, processed<L>> each{};
  for (int k = 0; k < processed<L>; ++k) {
    each.counts[k] = limited<T>(get<Zor32u>(value + k));
    allWide &= each.counts[k] == bits<T>;
    allSame &= each.counts[k] == each.counts[0];
  }

  const Rows src{pSrc, srcStep};
  const Rows dst{pDst, dstStep};
  if constexpr (fillsWithZero)
    if (allWide) return fillRegion<L>(T(0), pDst, dstStep, roiSize);
  if (allSame && each.counts[0] == 0) return copyRegion<L>(pSrc, srcStep, pDst, dstStep, roiSize);
  if (allSame) mapRegion<L>(roiSize, ShiftBy<D, T>{each.counts[0]}, dst, src);
  else if constexpr (L != C1) {
    static constexpr T channelNumbers[4] = {0, 1, 2, 3};
    mapRegionWith<L>(Pattern<T>(channelNumbers, channels<L>), roiSize, each, dst, src);
  }
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMP(name, direction, type, layout, parameter, address)                                                      \
  ZorStatus zori##name##_##type##_##layout##R(const Zor##type* pSrc, int srcStep, parameter, Zor##type* pDst,         \
                                              int dstStep, ZorImgSize roiSize)                                        \
  { return shiftRegion<Direction::direction, Zor##type, layout>(pSrc, srcStep, address, pDst, dstStep, roiSize); }    \
  ZorStatus zori##name##_##type##_##layout##IR(parameter, Zor##type* pSrcDst, int srcDstStep, ZorImgSize roiSize)     \
  { return shiftRegion<Direction::direction, Zor##type, layout>(pSrcDst, srcDstStep, address, pSrcDst, srcDstStep, roiSize); }
#define STAMPS(name, direction, type)                                                                                 \
  STAMP(name, direction, type, C1, Zor32u value, &value)                                                              \
  STAMP(name, direction, type, C3, const Zor32u value[3], value)                                                      \
  STAMP(name, direction, type, C4, const Zor32u value[4], value)                                                      \
  STAMP(name, direction, type, AC4, const Zor32u value[3], value)
STAMPS(LShiftC, Left, 8u) STAMPS(LShiftC, Left, 16u) STAMPS(LShiftC, Left, 32s)
STAMPS(RShiftC, Right, 8u) STAMPS(RShiftC, Right, 8s) STAMPS(RShiftC, Right, 16u) STAMPS(RShiftC, Right, 16s)
STAMPS(RShiftC, Right, 32s)
#undef STAMPS
#undef STAMP
