// zori.hpp on the library: views, parts, what is refused, statuses and owners.
#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

#include "zori.hpp"

namespace {

using zori::AC4;
using zori::C1;
using zori::C3;
using zori::C4;
using zori::P3;
using View8 = zori::View<Zor8u, C1>;
using ConstView8 = zori::View<const Zor8u, C1>;

static_assert(std::is_convertible_v<View8, ConstView8> && !std::is_convertible_v<ConstView8, View8>);
static_assert(!std::is_convertible_v<zori::View<Zor8u, C4>, zori::View<Zor8u, AC4>>, "layouts are told, not guessed");
static_assert(std::is_convertible_v<zori::Image<Zor8u, P3>&, zori::Planes<const Zor8u, P3>>);
static_assert(!std::is_convertible_v<const zori::Image<Zor8u, C1>&, View8>, "an image keeps const");
static_assert(!std::is_copy_constructible_v<zori::Image<Zor8u, C1>> &&
              std::is_nothrow_move_assignable_v<zori::Image<Zor8u, C1>>);
static_assert(!std::is_copy_constructible_v<zori::FFT_R_32f> && std::is_nothrow_move_assignable_v<zori::FFT_R_32f>);
static_assert(std::is_trivially_copyable_v<View8> && std::is_trivially_destructible_v<View8>);
static_assert(zori::Status(ZorWarnDivByZero).ok() && zori::Status(ZorWarnDivByZero).warning());
static_assert(!zori::Status(ZorErrSize).ok() && !zori::Status().warning());
static_assert(!View8().ok());

template <class V> void fill(const V& view, int seed)
{
  for (int y = 0; y < view.height(); ++y)
    for (int x = 0; x < view.width(); ++x)
      *view.pixel(x, y) = static_cast<std::remove_reference_t<decltype(*view.data())>>((x * 7 + y * 13 + seed) & 127);
}

TEST(CppViews, OfWhatIsNoImageAreEmpty)
{
  Zor8u pixels[64] = {};
  EXPECT_TRUE(View8(pixels, 8, {8, 8}).ok());
  EXPECT_TRUE(View8(pixels + 56, -8, {8, 8}).ok()) << "upwards";
  EXPECT_TRUE(View8(pixels, 0, {64, 1}).ok()) << "a single row needs no step";
  EXPECT_FALSE(View8(pixels, 7, {8, 8}).ok());
  EXPECT_FALSE(View8(pixels, 8, {8, 0}).ok());
  EXPECT_FALSE(View8(nullptr, 8, {8, 8}).ok());
  EXPECT_EQ(View8::check(pixels, 7, {8, 8}), ZorErrStepTooSmall);
  EXPECT_EQ((zori::View<Zor32f, C4>::check(pixels, 0x7fffffff, {0x7fffffff, 2})), ZorErrStepTooSmall) << "no wrap";
  EXPECT_FALSE((zori::Planes<Zor8u, P3>({pixels, nullptr, pixels}, 8, {8, 2}).ok()));
  EXPECT_FALSE(zori::Bits<Zor8u>(pixels, 1, {8, 2}, 1).ok());
  EXPECT_FALSE(zori::copy(View8(), View8()).ok());
}

TEST(CppViews, PartsAreCheckedAndKnowTheirRoom)
{
  zori::Image<Zor16u, C3> image(10, 8);
  const auto part = image.at({2, 1, 5, 4});
  EXPECT_EQ(part.data(), image.view().pixel(2, 1));
  EXPECT_EQ(part.step(), image.step());
  const auto inner = part.at({1, 1, 2, 2});
  EXPECT_EQ(inner.data(), image.view().pixel(3, 2));
  EXPECT_EQ(inner.room().left, 3);
  EXPECT_EQ(inner.room().top, 2);
  EXPECT_EQ(inner.room().right, 5);
  EXPECT_EQ(inner.room().bottom, 4);
  for (const ZorImgRect bad :
       {ZorImgRect{-1, 0, 2, 2}, {0, 0, 6, 2}, {4, 4, 1, 1}, {0, 0, 0, 1}, {1, 0, 0x7fffffff, 1}})
    EXPECT_FALSE(part.at(bad).ok());
  EXPECT_EQ(image.view().within(1, 1, 2, 3).size().height, 4);
  EXPECT_FALSE(image.view().within(5, 0, 5, 0).ok());
  EXPECT_FALSE(image.view().within(-1, 0, 0, 0).ok());
  EXPECT_EQ(image.view().channel(2).data(), image.view().data() + 2);
  EXPECT_FALSE(image.view().channel(3).ok());

  zori::Image<Zor8u, P3> planes(9, 4);
  const auto some = planes.view().at({3, 2, 2, 2});
  EXPECT_EQ(some.plane(2).data(), planes.view().plane(2).pixel(3, 2));
  Zor8u packed[8] = {};
  const auto bits = zori::Bits<Zor8u>(packed, 4, {24, 2}, 3).at({6, 1, 5, 1});
  EXPECT_EQ(bits.data(), packed + 5);
  EXPECT_EQ(bits.firstBit(), 1);
}

TEST(CppViews, CallsDoWhatTheFunctionsDo)
{
  zori::Image<Zor8u, C3> a(31, 17), b(31, 17), sum(31, 17), wanted(31, 17);
  for (int c = 0; c < 3; ++c) {
    for (auto* image : {&a, &b})
      for (int y = 0; y < 17; ++y)
        for (int x = 0; x < 31; ++x) image->view().pixel(x, y)[c] = static_cast<Zor8u>(x * y + 5 * c + (image == &b));
  }
  const auto equal = [&] {
    for (int y = 0; y < 17; ++y)
      if (std::memcmp(sum.view().row(y), wanted.view().row(y), 93) != 0) return false;
    return true;
  };
  ASSERT_TRUE(zori::add(a, b, sum, 1).ok());
  ASSERT_EQ(zoriAdd_8u_C3RSfs(a.view().data(), a.step(), b.view().data(), b.step(), wanted.view().data(), wanted.step(),
                              {31, 17}, 1),
            ZorOk);
  EXPECT_TRUE(equal());
  ASSERT_TRUE(zori::addC({1, 2, 3}, sum, 0).ok()) << "in place";
  ASSERT_EQ(zoriAddC_8u_C3IRSfs(std::array<Zor8u, 3>{1, 2, 3}.data(), wanted.view().data(), wanted.step(), {31, 17}, 0),
            ZorOk);
  EXPECT_TRUE(equal());

  std::array<Zor64f, 3> mean = {}, direct = {};
  const zori::View<const Zor8u, C3> region = a.at({3, 2, 20, 9});
  ASSERT_TRUE(zori::mean(region, mean).ok());
  ASSERT_EQ(zoriMean_8u_C3R(region.data(), region.step(), region.size(), direct.data()), ZorOk);
  EXPECT_EQ(mean, direct);

  zori::Image<Zor8u, P3> planes(31, 17);
  ASSERT_TRUE(zori::copy(a, planes).ok());
  EXPECT_EQ(*planes.view().plane(1).pixel(30, 16), a.view().pixel(30, 16)[1]);
  zori::Image<Zor8u, C1> green(31, 17);
  ASSERT_TRUE(zori::copy(a.view().channel(1), green).ok());
  EXPECT_EQ(*green.view().pixel(30, 16), a.view().pixel(30, 16)[1]);
  ASSERT_TRUE(zori::copy(planes, wanted).ok());
  EXPECT_EQ(std::memcmp(a.view().row(5), wanted.view().row(5), 93), 0);
}

TEST(CppViews, SizesThatDisagreeAreRefused)
{
  zori::Image<Zor8u, C1> a(8, 6), b(8, 6), small(8, 5), turned(6, 8);
  fill(a.view(), 0);
  fill(small.view(), 50);
  const Zor8u before = *small.view().pixel(3, 3);
  EXPECT_EQ(zori::copy(a, small), ZorErrSize);
  EXPECT_EQ(zori::add(a, b, small, 0), ZorErrSize);
  EXPECT_EQ(*small.view().pixel(3, 3), before) << "nothing was written";
  EXPECT_EQ(zori::transpose(a, b), ZorErrSize);
  ASSERT_TRUE(zori::transpose(a, turned).ok());
  EXPECT_EQ(*turned.view().pixel(4, 7), *a.view().pixel(7, 4));

  const std::array<double, 6> move = {1, 0, 0, 0, 1, 0};
  double coeffs[2][3];
  std::memcpy(coeffs, move.data(), sizeof coeffs);
  EXPECT_EQ(zori::warpAffine(a, {0, 0, 8, 6}, small, {0, 0, 8, 6}, coeffs, ZORI_INTER_NN), ZorErrSize);
  ASSERT_TRUE(zori::warpAffine(a, {0, 0, 8, 6}, small, {0, 0, 8, 5}, coeffs, ZORI_INTER_NN).ok());
  EXPECT_EQ(*small.view().pixel(3, 3), *a.view().pixel(3, 3));

  zori::Image<Zor32f, C1> f(12, 9), tpl(4, 3), valid(9, 7), off(9, 8);
  fill(f.view(), 3);
  fill(tpl.view(), 90);
  EXPECT_TRUE(zori::crossCorrValid(f, tpl, valid).ok());
  EXPECT_EQ(zori::crossCorrValid(f, tpl, off), ZorErrSize);
}

TEST(CppViews, FiltersWantTheirNeighboursInTheImage)
{
  zori::Image<Zor8u, C1> image(12, 10), result(10, 8);
  fill(image.view(), 1);
  EXPECT_EQ(zori::filterBox(image.at({0, 1, 10, 8}), result, {3, 3}, {1, 1}), ZorErrSize) << "nothing to the left";
  EXPECT_EQ(zori::filterBox(image.at({1, 1, 10, 8}), result, {5, 3}, {1, 1}), ZorErrSize) << "too little to the right";
  ASSERT_TRUE(zori::filterBox(image.view().within(1, 1, 1, 1), result, {3, 3}, {1, 1}).ok());
  int sum = 0;
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 3; ++x) sum += *image.view().pixel(x, y);
  EXPECT_NEAR(*result.view().pixel(0, 0), sum / 9.0, 1);
  EXPECT_EQ(zori::filterBox(image.view().within(1, 1, 1, 1), result, {3, 3}, {3, 1}), ZorErrSize);
  EXPECT_EQ(zori::filterBox(image.view().within(1, 1, 1, 1), result, {3, 3}, {-1, 1}).ok(), false);
}

TEST(CppViews, StatusesSpeak)
{
  zori::Image<Zor8u, C1> a(4, 4), zero(4, 4), dst(4, 4);
  fill(a.view(), 1);
  ASSERT_TRUE(zori::set(0, zero).ok());
  const zori::Status s = zori::div(zero, a, dst, 0);
  EXPECT_TRUE(s.ok() && s.warning());
  EXPECT_STREQ(s.name(), "ZorWarnDivByZero");
  EXPECT_STREQ(zori::Status(ZorErrSize).text(), zori_status_text(ZorErrSize));
  EXPECT_EQ(zori::divC(a, 0, dst, 0), ZorErrDivByZero) << "the function's own checks stand behind those of the views";
}

TEST(CppOwners, ImagesOwnTheirMemory)
{
  zori::Image<Zor32f, AC4> image(5, 3);
  ASSERT_TRUE(image.ok());
  EXPECT_EQ(image.step(), 96);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(image.view().data()) % 32, 0u);
  Zor32f* const data = image.view().data();
  zori::Image<Zor32f, AC4> other(std::move(image));
  EXPECT_FALSE(image.ok());
  EXPECT_FALSE(image.view().ok());
  EXPECT_EQ(other.view().data(), data);
  image = std::move(other);
  EXPECT_EQ(image.view().data(), data);
  EXPECT_FALSE((zori::Image<Zor8u, C1>(0, 5).ok()));
  EXPECT_FALSE((zori::Image<Zor64f, C4>(1 << 20, 1 << 20).ok()));
  EXPECT_FALSE((zori::Image<Zor8u, P3>(1 << 15, 1 << 15).ok()));
  EXPECT_FALSE((zori::Image<Zor8u, C1>(0x7fffffff, 1).ok()));
}

TEST(CppOwners, RecordsAreMadeAndReleased)
{
  zori::FFT_R_32f fft;
  EXPECT_EQ(zori::make(fft, -1, 3, ZorFftDivInvByN, ZorHintNone), ZorErrOrder);
  EXPECT_FALSE(fft.ok());
  ASSERT_TRUE(zori::make(fft, 4, 3, ZorFftDivInvByN, ZorHintNone).ok());
  int size = 0;
  ASSERT_TRUE(zori::fftGetBufSize_R_32f(fft, size).ok());
  zori::Buffer buffer(size);
  zori::Image<Zor32f, C1> image(16, 8), spectrum(16, 8), back(16, 8);
  fill(image.view(), 4);
  ASSERT_TRUE(zori::fftFwd_RToPack(image, spectrum, fft, buffer).ok());
  ASSERT_TRUE(zori::fftInv_PackToR(spectrum, back, fft, buffer).ok());
  EXPECT_NEAR(*back.view().pixel(9, 5), *image.view().pixel(9, 5), 1e-3);
  zori::FFT_R_32f moved(std::move(fft));
  EXPECT_FALSE(fft.ok());
  ASSERT_TRUE(zori::make(moved, 3, 3, ZorFftDivInvByN, ZorHintNone).ok()) << "the former record is released";
}

TEST(CppFunctions, WhatHasNoViewIsAsInC)
{
  int step = 0;
  Zor8u* const memory = zori::malloc_8u_C3(20, 10, step);
  const zori::View<Zor8u, C3> view(memory, step, {20, 10});
  ASSERT_TRUE(view.ok());
  EXPECT_TRUE(zori::set({1, 2, 3}, view).ok());
  EXPECT_EQ(view.pixel(19, 9)[2], 3);
  zori::free_(memory);
  EXPECT_EQ(zori::getLibVersion(), zoriGetLibVersion());

  const Zor32f first[3] = {1, 2, 3}, second[3] = {10, 20, 30}, weights[2] = {1, 0.5F};
  const Zor32f* const rows[2] = {first, second};
  Zor32f sums[3] = {};
  EXPECT_TRUE(zori::dotProdCol_32f_L2(rows, weights, sums, 2, 3).ok());
  EXPECT_EQ(sums[2], 18);
}

} // namespace
