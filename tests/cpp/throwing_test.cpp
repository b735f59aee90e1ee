// zori.hpp with ZORI_THROW: what is refused and what fails throws; warnings come back.
#define ZORI_THROW
#include <gtest/gtest.h>

#include "zori.hpp"

namespace {

template <class Action> ZorStatus thrown(Action action)
{
  try {
    action();
  } catch (const zori::Error& error) {
    EXPECT_STREQ(error.what(), zori_status_text(error.status().code()));
    return error.status().code();
  }
  return ZorOk;
}

TEST(CppThrowing, ErrorsThrowAndWarningsComeBack)
{
  zori::Image<Zor8u, zori::C1> a(6, 4), small(6, 3), dst(6, 4);
  zori::set(0, a);
  EXPECT_EQ(thrown([&] { zori::copy(a, small); }), ZorErrSize);
  EXPECT_EQ(thrown([&] { zori::divC(a, 0, dst, 0); }), ZorErrDivByZero);
  EXPECT_EQ(thrown([&] { a.at({1, 1, 6, 3}); }), ZorErrSize);
  EXPECT_EQ(thrown([&] { zori::View<Zor8u>(nullptr, 8, {8, 8}); }), ZorErrNullPtr);
  EXPECT_EQ(thrown([] { zori::Image<Zor8u>(1 << 20, 1 << 20); }), ZorErrAlloc);
  zori::Status status;
  EXPECT_EQ(thrown([&] { status = zori::div(a, a, dst, 0); }), ZorOk);
  EXPECT_TRUE(status.warning());
}

} // namespace
