// Version record, image memory, team of threads, numeric mode.
#include "frame/checks.h"
#include "frame/machine.h"
#include "frame/memory.h"
#include "frame/parallel.h"
#include "rowkernels/simd.h"
#include "zori/core.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cmath>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern "C" int zoriTestFailAllocationAt(int n);
extern "C" void zoriTestShareAllWork(int on);
extern "C" int zoriTestTeams();
extern "C" int zoriTestLiveBlocks();

using namespace zori;

TEST(Version, RecordHoldsTheReleasedNumbers)
{
  const ZorVersionRecord* v = zoriGetLibVersion();
  EXPECT_EQ(v, zoriGetLibVersion());
  EXPECT_EQ(v->major, 5);
  EXPECT_EQ(v->minor, 3);
  EXPECT_EQ(v->majorBuild, 85);
  EXPECT_EQ(v->build, 502);
  EXPECT_EQ(0, std::memcmp(v->targetCpu, "q7\0\0", 4));
  EXPECT_STREQ(v->name, "libzoriq7-5.3.dylib");
  EXPECT_STREQ(v->version, "5.3 Update 2 build 85.21");
  EXPECT_STREQ(v->buildDate, "Feb 18 2008");
}

static void* headerOf(void* block)
{
  void* raw;
  std::memcpy(&raw, static_cast<char*>(block) - sizeof raw, sizeof raw);
  return raw;
}

TEST(ImageMemory, StepsAndAlignment)
{
  struct Case {
    void* (*call)(int, int, int*);
    int width, step;
  };
#define CASE(name, width, step)                                                                                        \
  {                                                                                                                    \
    [](int w, int h, int* s) { return static_cast<void*>(zoriMalloc_##name(w, h, s)); }, width, step                   \
  }
  for (const Case& c :
       {Case CASE(8u_C1, 1, 32), Case CASE(8u_C1, 33, 64), Case CASE(8u_C2, 16, 32), Case CASE(8u_C3, 11, 64),
        Case CASE(8u_AC4, 9, 64), Case CASE(16u_C3, 5, 32), Case CASE(16s_C4, 4, 32), Case CASE(32s_C3, 3, 64),
        Case CASE(32f_AC4, 3, 64), Case CASE(32sc_C2, 3, 64), Case CASE(32fc_C3, 3, 96), Case CASE(32fc_C4, 3, 96)}) {
    int step = -1;
    char* p = static_cast<char*>(c.call(c.width, 7, &step));
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(step, c.step);
    EXPECT_TRUE(reinterpret_cast<std::uintptr_t>(p) % 32 == 0);
    EXPECT_LE(static_cast<char*>(headerOf(p)) + sizeof(void*), p);
    EXPECT_GE(static_cast<char*>(headerOf(p)) + 36, p);
    std::memset(p, 0xa5, static_cast<size_t>(step) * 7);
    zoriFree(p);
  }
#undef CASE
  zoriFree(nullptr);
}

TEST(ImageMemory, Failures)
{
  int step = 77;
  EXPECT_EQ(zoriMalloc_8u_C1(4, 4, nullptr), nullptr);
  EXPECT_EQ(zoriMalloc_8u_C1(0, 5, &step), nullptr);
  EXPECT_EQ(step, 0);
  step = 77;
  EXPECT_EQ(zoriMalloc_32f_C3(5, -1, &step), nullptr);
  EXPECT_EQ(step, 0);
  zoriTestFailAllocationAt(1);
  EXPECT_EQ(zoriMalloc_8u_C1(40, 2, &step), nullptr);
  EXPECT_EQ(step, 64);
  zoriTestFailAllocationAt(0);
  // sizes wrap in 32 bits: 2^31 and 2^32 bytes count as none
  EXPECT_EQ(zoriMalloc_8u_C1(1 << 16, 1 << 15, &step), nullptr);
  EXPECT_EQ(step, 1 << 16);
  EXPECT_EQ(zoriMalloc_8u_C1(1 << 16, 1 << 16, &step), nullptr);
  // 2^32 + 2^16 bytes wrap to a block of 2^16
  void* small = zoriMalloc_8u_C1(1 << 16, (1 << 16) + 1, &step);
  ASSERT_NE(small, nullptr);
  zoriFree(small);
  EXPECT_EQ(alignedBlock(0), nullptr);
  EXPECT_EQ(alignedBlock(SIZE_MAX - 3), nullptr);
}

TEST(ImageMemory, ScratchRefusesWhatCannotBe)
{
  EXPECT_FALSE(Scratch<Zor32f>(0));
  EXPECT_FALSE(Scratch<Zor32f>(-5));
  EXPECT_FALSE(Scratch<Zor64f>(INT64_MAX / 2));
  const int before = zoriTestLiveBlocks();
  {
    Scratch<Zor16s> some(100);
    EXPECT_TRUE(some);
    EXPECT_EQ(zoriTestLiveBlocks(), before + 1);
  }
  EXPECT_EQ(zoriTestLiveBlocks(), before);
}

TEST(Checks, TheFirstFailureDecides)
{
  int x = 0;
  int* none = nullptr;
  EXPECT_EQ(firstFailure(nonNull(&x), nonEmpty({1, 1}), positive(1)), ZorOk);
  EXPECT_EQ(firstFailure(nonNull(&x, none), nonEmpty({0, 1}), positive(0)), ZorErrNullPtr);
  EXPECT_EQ(firstFailure(nonEmpty({1, -1}), nonNull(none)), ZorErrSize);
  EXPECT_EQ(firstFailure(positive(3, INT_MIN), nonEmpty({0, 0})), ZorErrStep);
  int* planes[3] = {&x, nullptr, &x};
  EXPECT_EQ(nonNullPlanes<3>(planes), ZorErrNullPtr);
  EXPECT_EQ(nonNullPlanes<1>(planes), ZorOk);
}

class Team : public testing::TestWithParam<int> {
protected:
  void SetUp() override { omp_set_num_threads(GetParam()); }
  void TearDown() override { omp_set_num_threads(before_); }
  int before_ = omp_get_max_threads();
};

TEST_P(Team, EveryRowIsDoneOnce)
{
  for (int height : {1, 2, 3, 7, 8, 100}) {
    std::vector<int> done(static_cast<size_t>(height));
    staticRows(TeamRule::byContract(true), Rounding::Callers, height, [&](int y) { ++done[static_cast<size_t>(y)]; });
    EXPECT_EQ(done, std::vector<int>(static_cast<size_t>(height), 1));
    std::fill(done.begin(), done.end(), 0);
    staticBands(TeamRule::byContract(true), Rounding::Nearest, height, [&](int first, int count) {
      EXPECT_GE(count, 1);
      EXPECT_LE(count, height / GetParam() + 1); // shared evenly
      for (int y = first; y < first + count; ++y) ++done[static_cast<size_t>(y)];
    });
    EXPECT_EQ(done, std::vector<int>(static_cast<size_t>(height), 1));
    ASSERT_EQ(masterSlabs(TeamRule::byContract(true), Rounding::Nearest, height, 40,
                          [&](const Slab& slab) {
                            EXPECT_TRUE(isAligned(slab.buffer, 32));
                            std::memset(slab.buffer, slab.thread, 40);
                            const int share = height / slab.threads;
                            EXPECT_EQ(slab.first, slab.thread * share);
                            EXPECT_EQ(slab.count, slab.thread == slab.threads - 1 ? height - slab.first : share);
                            for (int y = slab.first; y < slab.first + slab.count; ++y) ++done[static_cast<size_t>(y)];
                            return ZorOk;
                          }),
              ZorOk);
    EXPECT_EQ(done, std::vector<int>(static_cast<size_t>(height), 2));
  }
}

TEST_P(Team, StatusOfTheFirstThread)
{
  const auto status = masterSlabs(TeamRule::byContract(true), Rounding::Nearest, 100, 0, [](const Slab& slab) {
    if (slab.thread == slab.threads - 1) return ZorErrMode;
    return slab.thread == 1 ? ZorErrAlloc : slab.thread == 2 ? ZorWarnDivByZero : ZorOk;
  });
  EXPECT_EQ(status, GetParam() > 2 ? ZorErrAlloc : ZorErrMode);
}

TEST_P(Team, FailedBufferLeavesTheWorkUndone)
{
  zoriTestFailAllocationAt(1);
  bool worked = false;
  EXPECT_EQ(masterSlabs(TeamRule::byContract(true), Rounding::Nearest, 10, 100000,
                        [&](const Slab&) {
                          worked = true;
                          return ZorOk;
                        }),
            ZorErrAlloc);
  EXPECT_FALSE(worked);
  zoriTestFailAllocationAt(0);
}

TEST_P(Team, InsideOfATeamWorksAlone)
{
  masterSlabs(TeamRule::byContract(true), Rounding::Nearest, 4, 0, [&](const Slab&) {
    std::atomic<int> rows{0};
    staticRows(TeamRule::byContract(true), Rounding::Callers, 9, [&](int) { ++rows; });
    EXPECT_EQ(rows, 9);
    return ZorOk;
  });
}

TEST_P(Team, ChildOfAForkWorksAlone)
{
  staticRows(TeamRule::byContract(true), Rounding::Callers, 50, [](int) {});
  const pid_t child = fork();
  if (child == 0) {
    alarm(20); // a hanging run-time ends here
    int rows = 0;
    staticRows(TeamRule::byContract(true), Rounding::Callers, 50, [&](int) { ++rows; });
    masterSlabs(TeamRule::byContract(true), Rounding::Nearest, 50, 16, [&](const Slab& slab) {
      rows += slab.count;
      return ZorOk;
    });
    _exit(rows == 100 && allowedThreads() == 1 ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

TEST(NumericMode, RoundingScopeRestores)
{
  const unsigned before = controlWord();
  setControlWord((before & ~roundingField) | roundUpward);
  {
    RoundingScope nearest(Rounding::Nearest);
    EXPECT_EQ(controlWord() & roundingField, roundNearest);
    {
      RoundingScope chop(roundTowardZero);
      EXPECT_EQ(controlWord() & roundingField, roundTowardZero);
    }
    RoundingScope callers(Rounding::Callers);
    EXPECT_EQ(controlWord() & roundingField, roundNearest);
  }
  EXPECT_EQ(controlWord() & roundingField, roundUpward);
  setControlWord(before);
}

// Every thread works under the rounding that was named, and leaves its own as it was.
TEST_P(Team, WorksUnderTheRoundingNamed)
{
  const unsigned before = controlWord();
  setControlWord((before & ~roundingField) | roundUpward);
  std::atomic<int> wrong{0};
  const auto expect = [&](unsigned field) { wrong += (controlWord() & roundingField) != field; };
  for (const auto& [rounding, field] : {std::pair{Rounding::Nearest, roundNearest}, {Rounding::Callers, roundUpward}}) {
    staticRows(TeamRule::byContract(true), rounding, 40, [&](int) { expect(field); });
    masterSlabs(TeamRule::byContract(true), rounding, 40, 0, [&](const Slab&) {
      expect(field);
      return ZorOk;
    });
    expect(roundUpward);
  }
  EXPECT_EQ(wrong, 0);
  setControlWord(before);
}

// Little work keeps to the calling thread, and no team is larger than its units of work, unless results depend on it.
TEST_P(Team, FollowsTheRule)
{
  const int allowed = GetParam();
  EXPECT_EQ(TeamRule::alone().threads(100), 1);
  EXPECT_EQ(TeamRule::forWork(49999, 1000).threads(100), 1);
  EXPECT_EQ(TeamRule::forWork(50000, 1000).threads(100), allowed);
  EXPECT_EQ(TeamRule::forWork(50000, 1000).threads(2), std::min(allowed, 2));
  EXPECT_EQ(TeamRule::forWork(50000, 1000).fromSize(false).threads(100), 1);
  EXPECT_EQ(TeamRule::forWork(50000, 1000).when(false).threads(100), 1);
  EXPECT_EQ(TeamRule::byContract(true).threads(2), allowed);
  zoriTestShareAllWork(1);
  zoriTestTeams();
  EXPECT_EQ(TeamRule::forWork(1, 1).fromSize(false).threads(100), allowed);
  EXPECT_EQ(TeamRule::forWork(1, 1).when(false).threads(100), 1);
  EXPECT_EQ(zoriTestTeams(), allowed > 1);
  zoriTestShareAllWork(0);
}

INSTANTIATE_TEST_SUITE_P(Sizes, Team, testing::Values(1, 2, 3, 7));
