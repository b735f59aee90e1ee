// Square: every integer sample at every scale, the layouts, the masked steps.
#include "elementary.h"
#include "zori/arith.h"

#include <cmath>

// x * x * 2^-scale to the nearest integer, ties to even, in exact integers.
template <class T> static double scaledSquare(T x, int scale)
{
  const long long square = static_cast<long long>(x) * x;
  if (scale > 62) return 0;
  if (scale <= 0) return std::ldexp(static_cast<double>(square), -std::max(scale, -64));
  const long long quotient = square >> scale, twice = 2 * (square - (quotient << scale)), unit = 1ll << scale;
  return static_cast<double>(quotient + (twice > unit || (twice == unit && quotient % 2 != 0)));
}

TEST(Sqr, EverySampleAtEveryScale)
{
  expectMap(zoriSqr_8u_C1RSfs, allValues<Zor8u>(), manyScales(), ZorOk, scaledSquare<Zor8u>);
  expectMap(zoriSqr_16u_C1RSfs, allValues<Zor16u>(), manyScales(), ZorOk, scaledSquare<Zor16u>);
  expectMap(zoriSqr_16s_C1RSfs, allValues<Zor16s>(), manyScales(), ZorOk, scaledSquare<Zor16s>);
}

TEST(Sqr, Floats)
{
  const float src[5] = {-3.0f, 1e30f, 1e-30f, -0.0f, 0.1f};
  float dst[5];
  ASSERT_EQ(zoriSqr_32f_C1R(src, 20, dst, 20, {5, 1}), ZorOk);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(dst[i], src[i] * src[i]);
}

TEST(Sqr, LayoutsAgree)
{
#define FORMS(type, suffix)                                                                                            \
  {1, false, zoriSqr_##type##_C1R##suffix, zoriSqr_##type##_C1IR##suffix},                                             \
    {3, false, zoriSqr_##type##_C3R##suffix, zoriSqr_##type##_C3IR##suffix},                                           \
    {4, false, zoriSqr_##type##_C4R##suffix, zoriSqr_##type##_C4IR##suffix},                                           \
  {                                                                                                                    \
    4, true, zoriSqr_##type##_AC4R##suffix, zoriSqr_##type##_AC4IR##suffix                                             \
  }
  for (const int scale : {-2, 0, 5, 99}) {
    expectLayoutsAgree<Zor8u, int>({FORMS(8u, Sfs)}, scale);
    expectLayoutsAgree<Zor16u, int>({FORMS(16u, Sfs)}, scale);
    expectLayoutsAgree<Zor16s, int>({FORMS(16s, Sfs)}, scale);
  }
  expectLayoutsAgree<Zor32f>({FORMS(32f, )});
#undef FORMS
}

TEST(Sqr, StepsAreMaskedInOneAndThreeChannels)
{
  // two rows of 3 at a step of 2 * 3 + 1 bytes, walked at 6; a step that becomes 0 squares the row twice
  Zor16s x[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  ASSERT_EQ(zoriSqr_16s_C1IRSfs(x, 7, {3, 2}, 0), ZorOk);
  const Zor16s expected[8] = {1, 4, 9, 16, 25, 36, 7, 8};
  EXPECT_EQ(0, std::memcmp(x, expected, sizeof x));
  Zor32f y[3] = {2, 3, 4};
  ASSERT_EQ(zoriSqr_32f_C3IR(y, 3, {1, 2}), ZorOk);
  EXPECT_EQ(y[0], 16);
  EXPECT_EQ(y[2], 256);
  // with a fourth channel the step is raw: the second row starts at byte 9
  unsigned char bytes[17] = {3, 0, 3, 0, 3, 0, 3, 0, 77, 3, 0, 3, 0, 3, 0, 3, 0};
  ASSERT_EQ(zoriSqr_16u_C4IRSfs(reinterpret_cast<Zor16u*>(bytes), 9, {1, 2}, 0), ZorOk);
  for (int i = 0; i < 17; ++i) EXPECT_EQ(bytes[i], i == 8 ? 77 : (i < 8 ? i % 2 == 0 : i % 2 == 1) ? 9 : 0) << i;
}
