// zoriZigzag{Fwd,Inv}8x8_16s_C1: the diagonal scan of block codecs.
#include "frame/checks.h"
#include "rowkernels/simd.h"
#include "zori/spectral.h"

namespace zori {
namespace {

// Place in the block of the i-th value of the scan.
constexpr std::uint8_t scan[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                   12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                   35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                   58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

struct Order {
  std::uint8_t from[64];
};
constexpr Order forward()
{
  Order order{};
  for (int i = 0; i < 64; ++i) order.from[i] = scan[i];
  return order;
}
constexpr Order backward()
{
  Order order{};
  for (int i = 0; i < 64; ++i) order.from[scan[i]] = static_cast<std::uint8_t>(i);
  return order;
}

constexpr Order toScan = forward(), toBlock = backward();

// Every place is a constant of the code.
template <const Order& order> ZorStatus reorder(const Zor16s* pSrc, Zor16s* pDst)
{
  if (auto s = nonNull(pSrc, pDst); s != ZorOk) return s;
#pragma GCC unroll 64
  for (int i = 0; i < 64; ++i) put(pDst + i, get<Zor16s>(pSrc + order.from[i]));
  return ZorOk;
}

} // namespace
} // namespace zori

using namespace zori;

ZorStatus zoriZigzagFwd8x8_16s_C1(const Zor16s* pSrc, Zor16s* pDst) { return reorder<toScan>(pSrc, pDst); }
ZorStatus zoriZigzagInv8x8_16s_C1(const Zor16s* pSrc, Zor16s* pDst) { return reorder<toBlock>(pSrc, pDst); }
