// Bitwise operations and shifts against plain loops, over types, layouts, counts, odd steps and addresses, in place and
// not.
#include "support/numbers.h"
#include "zori/arith.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <type_traits>
#include <vector>

namespace {

struct Shape {
  int channels;
  bool keepsFourth;
};

template <class T> T sample(const std::vector<unsigned char>& image, int y, int step, int i, int offset)
{
  T x;
  std::memcpy(&x, image.data() + offset + y * step + i * static_cast<int>(sizeof(T)), sizeof x);
  return x;
}

std::vector<unsigned char> noise(size_t size, unsigned seed)
{
  std::vector<unsigned char> bytes(size);
  for (auto& b : bytes) b = static_cast<unsigned char>(zoritest::nextNoise(seed) >> 24);
  return bytes;
}

// Calls with images at an odd address and step, and compares every byte of the destination.
template <class T>
void compare(Shape shape, bool inPlace,
             const std::function<ZorStatus(const T*, int, const T*, int, T*, int, ZorImgSize)>& call,
             const std::function<T(T, T, int)>& expected)
{
  for (ZorImgSize roi : {ZorImgSize{1, 1}, ZorImgSize{3, 2}, ZorImgSize{5, 3}, ZorImgSize{16, 2}, ZorImgSize{67, 3}})
    for (int offset : {0, 1, 4}) {
      const int rowBytes = roi.width * shape.channels * static_cast<int>(sizeof(T));
      const int step = offset == 4 ? rowBytes : rowBytes + 5;
      const size_t size = static_cast<size_t>(step * roi.height + 64);
      const auto a = noise(size, 1), b = noise(size, 2), before = inPlace ? b : noise(size, 3);
      auto dst = before;
      const T* second = reinterpret_cast<const T*>((inPlace ? dst : b).data() + offset);
      ASSERT_EQ(call(reinterpret_cast<const T*>(a.data() + offset), step, second, step,
                     reinterpret_cast<T*>(dst.data() + offset), step, roi),
                ZorOk);
      auto wanted = before;
      for (int y = 0; y < roi.height; ++y)
        for (int i = 0; i < roi.width * shape.channels; ++i) {
          if (shape.keepsFourth && i % 4 == 3) continue;
          const T x = expected(sample<T>(a, y, step, i, offset), sample<T>(b, y, step, i, offset), i % shape.channels);
          std::memcpy(wanted.data() + offset + y * step + i * static_cast<int>(sizeof(T)), &x, sizeof x);
        }
      ASSERT_EQ(dst, wanted) << roi.width << 'x' << roi.height << " at " << offset;
    }
}

constexpr Shape c1{1, false}, c3{3, false}, c4{4, false}, ac4{4, true};

template <class T, class R, class I>
void twoImages(Shape shape, R region, I inPlace, std::function<T(T, T, int)> expected)
{
  compare<T>(
    shape, false,
    [=](auto a, int as, auto b, int bs, auto d, int ds, ZorImgSize roi) { return region(a, as, b, bs, d, ds, roi); },
    expected);
  compare<T>(
    shape, true, [=](auto a, int as, auto, int, auto d, int ds, ZorImgSize roi) { return inPlace(a, as, d, ds, roi); },
    expected);
}

// Constant forms: the image is the second operand, so that in place it is the destination.
template <class T, class V, class R, class I>
void constantForm(Shape shape, V value, R region, I inPlace, std::function<T(T, int)> expected)
{
  const auto oracle = [=](T, T b, int k) { return expected(b, k); };
  compare<T>(
    shape, false,
    [=](auto, int, auto b, int bs, auto d, int ds, ZorImgSize roi) { return region(b, bs, value, d, ds, roi); },
    oracle);
  compare<T>(
    shape, true, [=](auto, int, auto, int, auto d, int ds, ZorImgSize roi) { return inPlace(value, d, ds, roi); },
    oracle);
}

#define LOGIC(name, type, op)                                                                                          \
  {                                                                                                                    \
    using T = Zor##type;                                                                                               \
    const auto f = [](T a, T b, int) { return static_cast<T>(a op b); };                                               \
    twoImages<T>(c1, zori##name##_##type##_C1R, zori##name##_##type##_C1IR, f);                                        \
    twoImages<T>(c3, zori##name##_##type##_C3R, zori##name##_##type##_C3IR, f);                                        \
    twoImages<T>(c4, zori##name##_##type##_C4R, zori##name##_##type##_C4IR, f);                                        \
    twoImages<T>(ac4, zori##name##_##type##_AC4R, zori##name##_##type##_AC4IR, f);                                     \
    static const T mixed[4] = {T(0x5a5a5a5a), T(0x0f1e2d3c), T(0x81828384), T(7)},                                     \
                   same[4] = {T(0x36), T(0x36), T(0x36), T(0x36)};                                                     \
    constantForm<T>(c1, mixed[1], zori##name##C_##type##_C1R, zori##name##C_##type##_C1IR,                             \
                    [](T x, int) { return static_cast<T>(x op mixed[1]); });                                           \
    for (const T* v : {mixed, same}) {                                                                                 \
      const auto g = [=](T x, int k) { return static_cast<T>(x op v[k]); };                                            \
      constantForm<T>(c3, v, zori##name##C_##type##_C3R, zori##name##C_##type##_C3IR, g);                              \
      constantForm<T>(c4, v, zori##name##C_##type##_C4R, zori##name##C_##type##_C4IR, g);                              \
      constantForm<T>(ac4, v, zori##name##C_##type##_AC4R, zori##name##C_##type##_AC4IR, g);                           \
    }                                                                                                                  \
  }
#define LOGICS(name, op) LOGIC(name, 8u, op) LOGIC(name, 16u, op) LOGIC(name, 32s, op)

TEST(Logic, AgreesWithTheOperators){LOGICS(And, &) LOGICS(Or, |) LOGICS(Xor, ^)}

TEST(Logic, NotIsTheNegative)
{
  const auto negative = [](Zor8u, Zor8u b, int) { return static_cast<Zor8u>(255 - b); };
#define NOT(shape, layout)                                                                                             \
  compare<Zor8u>(                                                                                                      \
    shape, false,                                                                                                      \
    [](auto, int, auto b, int bs, auto d, int ds, ZorImgSize roi) {                                                    \
      return zoriNot_8u_##layout##R(b, bs, d, ds, roi);                                                                \
    },                                                                                                                 \
    negative);                                                                                                         \
  compare<Zor8u>(                                                                                                      \
    shape, true,                                                                                                       \
    [](auto, int, auto, int, auto d, int ds, ZorImgSize roi) { return zoriNot_8u_##layout##IR(d, ds, roi); },          \
    negative);
  NOT(c1, C1) NOT(c3, C3) NOT(c4, C4) NOT(ac4, AC4)
#undef NOT
}

// Forms written as one-channel runs look at the region before the pointers.
TEST(Logic, OrderOfChecks)
{
  Zor8u x[4] = {1, 2, 3, 4};
  EXPECT_EQ(zoriNot_8u_C1R(nullptr, 1, x, 1, {1, 0}), ZorErrSize);
  EXPECT_EQ(zoriNot_8u_AC4R(nullptr, 1, x, 1, {1, 0}), ZorErrNullPtr);
  EXPECT_EQ(zoriAnd_8u_C3R(nullptr, 1, x, 1, x, 1, {0, 1}), ZorErrSize);
  EXPECT_EQ(zoriAnd_8u_C1R(nullptr, 1, x, 1, x, 1, {0, 1}), ZorErrNullPtr);
  EXPECT_EQ(zoriXor_8u_C1R(x, 0, x, 1, x, 1, {0, 1}), ZorErrStep);
  EXPECT_EQ(zoriAndC_8u_C3IR(nullptr, x, 0, {0, 1}), ZorErrNullPtr);
}

template <class T> T shiftedLeft(T x, Zor32u n)
{
  return n >= 8 * sizeof(T) ? T(0) : static_cast<T>(static_cast<std::make_unsigned_t<T>>(x) << n);
}
template <class T> T shiftedRight(T x, Zor32u n)
{
  if (n < 8 * sizeof(T)) return static_cast<T>(x >> n);
  return x < 0 ? T(-1) : T(0);
}

constexpr Zor32u countSets[][4] = {{0, 0, 0, 0},
                                   {1, 1, 1, 1},
                                   {3, 7, 0, 5},
                                   {8, 15, 16, 2},
                                   {40, 31, 32, 33},
                                   {32, 32, 32, 1},
                                   {~0u, 1u << 31, 64, 255},
                                   {17, 17, 17, 17}};

#define SHIFT(name, type, shifted)                                                                                     \
  for (const Zor32u* n : countSets) {                                                                                  \
    using T = Zor##type;                                                                                               \
    const auto f = [=](T x, int k) { return shifted<T>(x, n[k]); };                                                    \
    constantForm<T>(c1, n[0], zori##name##_##type##_C1R, zori##name##_##type##_C1IR, f);                               \
    constantForm<T>(c3, n, zori##name##_##type##_C3R, zori##name##_##type##_C3IR, f);                                  \
    constantForm<T>(c4, n, zori##name##_##type##_C4R, zori##name##_##type##_C4IR, f);                                  \
    constantForm<T>(ac4, n, zori##name##_##type##_AC4R, zori##name##_##type##_AC4IR, f);                               \
  }

TEST(Shift, EveryTypeAndCount)
{
  SHIFT(LShiftC, 8u, shiftedLeft)
  SHIFT(LShiftC, 16u, shiftedLeft)
  SHIFT(LShiftC, 32s, shiftedLeft)
  SHIFT(RShiftC, 8u, shiftedRight)
  SHIFT(RShiftC, 8s, shiftedRight)
  SHIFT(RShiftC, 16u, shiftedRight) SHIFT(RShiftC, 16s, shiftedRight) SHIFT(RShiftC, 32s, shiftedRight)
}

} // namespace
