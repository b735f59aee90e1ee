// Parts of a block, and records.
#include "frame/arena.h"
#include "frame/memory.h"
#include "frame/record.h"

#include <gtest/gtest.h>

#include <cstdint>

using namespace zori;

extern "C" int zoriTestLiveBlocks();

TEST(BlockPlan, PartsAreAlignedAndDoNotOverlap)
{
  BlockPlan plan(12);
  const auto bytes = plan.add<Zor8u>(5);
  const auto floats = plan.add<float>(3);
  const auto none = plan.add<double>(0);
  const auto close = plan.add<Zor16s>(7, 2);
  EXPECT_EQ(bytes.offset, 32);
  EXPECT_EQ(floats.offset, 64);
  EXPECT_EQ(none.offset, 96);
  EXPECT_EQ(close.offset, 96);
  EXPECT_EQ(plan.bytes(), 96 + 14);
  Scratch<Zor8u> block(plan.bytes());
  ASSERT_TRUE(block);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(floats.in(block.get())) % 32, 0u);
}

TEST(BlockPlan, SizesBeyondTheAddressSpaceGetNoMemory)
{
  for (const long long count : {-1LL, 1LL << 61, BlockPlan::impossible}) {
    BlockPlan plan;
    plan.add<double>(count);
    EXPECT_TRUE(plan.isImpossible());
    plan.add<Zor8u>(1);
    EXPECT_TRUE(plan.isImpossible());
    EXPECT_FALSE(Scratch<Zor8u>(plan.bytes()));
  }
  BlockPlan halves;
  const long long half = PTRDIFF_MAX / 4 - 64;
  halves.add<Zor8u>(half);
  EXPECT_FALSE(halves.isImpossible());
  halves.add<Zor8u>(half);
  halves.add<Zor8u>(half);
  EXPECT_TRUE(halves.isImpossible());
}

TEST(Record, IsKnownByItsTagAndReleasedOnce)
{
  struct Numbers {
    std::uint32_t tag;
    RecordOffset<double> table, none;
  };
  const int before = zoriTestLiveBlocks();
  BlockPlan plan(sizeof(Numbers));
  const auto table = plan.add<double>(4);
  auto* record = reinterpret_cast<Numbers*>(Scratch<Zor8u>(plan.bytes()).release());
  ASSERT_NE(record, nullptr);
  *record = {77, {static_cast<std::int32_t>(table.offset)}, {}};
  EXPECT_EQ(record->table.in(record), table.in(record));
  EXPECT_EQ(record->none.in(record), nullptr);
  EXPECT_EQ(isOfKind(record, 78), ZorErrContext);
  EXPECT_EQ(releaseRecord(record, 78), ZorErrContext);
  EXPECT_EQ(zoriTestLiveBlocks(), before + 1);
  EXPECT_EQ(releaseRecord(record, 77), ZorOk);
  EXPECT_EQ(zoriTestLiveBlocks(), before);
  EXPECT_EQ(releaseRecord(nullptr, 77), ZorErrNullPtr);
}
