// The checking twin tells what is wrong with a call, and nothing of calls that are right.
#include "zori_check.h"

#include <zori.h>

#include <gtest/gtest.h>

#include <string>

namespace {

struct CheckedCalls : testing::Test {
  long before = zori_check_count();
  long complaints() const { return zori_check_count() - before; }
  int step = 0;
  Zor8u* const image = zoriMalloc_8u_C1(64, 32, &step);
  ZorImgSize size{64, 32};
  void TearDown() override { zoriFree(image); }

  void expectComplaint(const std::string& part)
  {
    EXPECT_EQ(complaints(), 1);
    EXPECT_NE(std::string(zori_check_last()).find(part), std::string::npos) << zori_check_last();
  }
};

TEST_F(CheckedCalls, RightOnesAreLeftAlone)
{
  EXPECT_EQ(zoriSet_8u_C1R(7, image, step, size), ZorOk);
  EXPECT_EQ(zoriAddC_8u_C1IRSfs(3, image, step, size, 0), ZorOk);
  EXPECT_EQ(zoriMirror_8u_C1IR(image, step, size, ZorAxsVertical), ZorOk);
  EXPECT_EQ(zoriCopy_8u_C1R(image, step, image + 32, step, {32, 32}), ZorOk); // beside each other
  EXPECT_EQ(image[40], 10);
  EXPECT_EQ(complaints(), 0);
}

TEST_F(CheckedCalls, ARowLongerThanItsStep)
{
  EXPECT_EQ(zoriSet_8u_C1R(7, image, 40, {64, 2}), ZorOk);
  expectComplaint("rows of pDst overlap: a row has 64 bytes, and dstStep is 40");
}

TEST_F(CheckedCalls, ARegionBeyondItsBlock)
{
  EXPECT_EQ(zoriSet_8u_C1R(7, image + 4, step, {64, 32}), ZorOk);
  expectComplaint("pDst reaches 4 bytes beyond its block");
}

TEST_F(CheckedCalls, TheMarginOfAFilterCounts)
{
  Zor8u out[64 * 32];
  EXPECT_EQ(zoriFilterGauss_8u_C1R(image + step + 1, step, out, 64, {62, 30}, ZorMask3x3), ZorOk);
  EXPECT_EQ(complaints(), 0);
  EXPECT_EQ(zoriFilterGauss_8u_C1R(image + 2 * step, step, out, 64, {62, 29}, ZorMask3x3), ZorOk);
  EXPECT_EQ(complaints(), 0); // one column to the left is in the row before
  EXPECT_EQ(zoriFilterGauss_8u_C1R(image + 1, step, out, 64, {62, 30}, ZorMask3x3), ZorOk);
  expectComplaint("before its block");
}

TEST_F(CheckedCalls, OverlapByAPart)
{
  EXPECT_EQ(zoriCopy_8u_C1R(image, step, image + 8, step, {32, 32}), ZorOk);
  expectComplaint("pDst and pSrc overlap by a part");
}

TEST_F(CheckedCalls, ReleasedMemoryAndRecords)
{
  int other = 0;
  Zor8u* const gone = zoriMalloc_8u_C1(16, 16, &other);
  zoriFree(gone);
  ZorMomentState* state = nullptr;
  ASSERT_EQ(zoriMomentInitAlloc_64f(&state, ZorHintNone), ZorOk);
  EXPECT_EQ(zoriMoments64f_8u_C1R(image, step, size, state), ZorOk);
  EXPECT_EQ(complaints(), 0);
  EXPECT_EQ(zoriMoments64s_8u_C1R(image, step, size, state), ZorErrContext);
  expectComplaint("was made by zoriMomentInitAlloc_64f");
  EXPECT_NE(std::string(zori_explain()).find("zoriMoments64s_8u_C1R gave ZorErrContext"), std::string::npos);
  EXPECT_EQ(zoriMomentFree_64f(state), ZorOk);
}

TEST_F(CheckedCalls, FailuresAreExplained)
{
  EXPECT_EQ(zoriFilterBox_8u_C1R(image, step, image, step, {8, 8}, {3, 0}, {0, 0}), ZorErrMaskSize);
  EXPECT_STREQ(zori_explain(),
               "zoriFilterBox_8u_C1R gave ZorErrMaskSize: maskSize (number 2) is 0, and must be at least 1");
  EXPECT_EQ(zoriSet_8u_C1R(1, nullptr, step, size), ZorErrNullPtr);
  EXPECT_STREQ(zori_explain(), "zoriSet_8u_C1R gave ZorErrNullPtr: pDst is null");
  EXPECT_EQ(zoriSet_8u_C1R(1, image, step, {0, 4}), ZorErrSize);
  EXPECT_STREQ(zori_explain(), "zoriSet_8u_C1R gave ZorErrSize: roiSize.width is 0, and must be at least 1");
}

} // namespace
