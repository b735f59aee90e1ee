// zoriCountInRange_{8u,32f}_{C1,C3,AC4}R: pixels from a lower to an upper bound, both included.
#include "frame/checks.h"
#include "rowkernels/reduce.h"
#include "zori/stats.h"

namespace zori {
namespace {

// Masks of all ones count as -1. Bytes are widened before 255 of them have met in a lane.
template <class T, int Bytes> struct RangeCount : IntegerReducer<Bytes> {
  using Lane = std::conditional_t<sizeof(T) == 1, std::uint8_t, std::uint32_t>;
  static constexpr std::ptrdiff_t capacity = sizeof(T) == 1 ? 255 : PTRDIFF_MAX;
  T lower{}, upper{};
  Vec<Lane, Bytes> lanes = zero<Lane, Bytes>();
  std::uint64_t total = 0, places = 0;

  void add(int, Vec<T, Bytes> x)
  {
    places += Vec<T, Bytes>::size;
    Vec<Lane, Bytes> inside;
    const auto least = splat<T, Bytes>(lower), greatest = splat<T, Bytes>(upper);
    if constexpr (sizeof(T) == 1) inside = equal(min(max(x, least), greatest), x);
    else inside = as<Lane>(lessEqual(least, x) & lessEqual(x, greatest));
    lanes -= inside;
  }
  void flush()
  {
    if constexpr (sizeof(T) == 1) total += lanesSum(sumAbsDiff(lanes, zero<std::uint8_t, Bytes>()));
    else total += lanesSum(widenLow(lanes) + widenHigh(lanes));
    lanes = zero<Lane, Bytes>();
  }
  void endRow() { flush(); }
};

template <class T, Layout L>
ZorStatus countRegion(const T* pSrc, int srcStep, ZorImgSize roiSize, int* count, const T* lower, const T* upper)
{
  if (auto s = firstFailure(nonNull(pSrc, count, lower, upper), positive(srcStep), nonEmpty(roiSize)); s != ZorOk)
    return s;
  for (int k = 0; k < processed<L>; ++k)
    if (get<T>(lower + k) > get<T>(upper + k)) return ZorErrRange;
  const auto make = [=](auto bytes, int k) {
    RangeCount<T, bytes> r;
    r.lower = get<T>(lower + k);
    r.upper = get<T>(upper + k);
    return r;
  };
  const auto use = [=](const auto& reducers) {
    // the zeros that stand in places without a pixel may lie in the range
    const std::uint64_t pixels = static_cast<std::uint64_t>(roiSize.width) * static_cast<unsigned>(roiSize.height);
    for (int k = 0; k < processed<L>; ++k) {
      const bool zeroCounts = reducers[k].lower <= T(0) && T(0) <= reducers[k].upper;
      count[k] = static_cast<int>(
        static_cast<std::uint32_t>(reducers[k].total - (zeroCounts ? reducers[k].places - pixels : 0)));
    }
  };
  reduceRegion<L>(roiSize, make, use, Rows{pSrc, srcStep});
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

// clang-format off
#define STAMPS(type)                                                                                           \
  ZorStatus zoriCountInRange_##type##_C1R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize, int* pCount, \
                                          Zor##type lower, Zor##type upper)                                    \
  { return countRegion<Zor##type, C1>(pSrc, srcStep, roiSize, pCount, &lower, &upper); }                       \
  STAMP(type, C3) STAMP(type, AC4)
#define STAMP(type, layout)                                                                                            \
  ZorStatus zoriCountInRange_##type##_##layout##R(const Zor##type* pSrc, int srcStep, ZorImgSize roiSize, int count[3],\
                                                  const Zor##type lower[3], const Zor##type upper[3])                  \
  { return countRegion<Zor##type, layout>(pSrc, srcStep, roiSize, count, lower, upper); }
STAMPS(8u) STAMPS(32f)
#undef STAMP
#undef STAMPS
