// Little stack, forks, signals in the middle of calls, flushed denormals, fewer threads than were asked for: every
// function of the table gives what it gives in peace.
#include "sweep/sweep.h"

#include <atomic>
#include <csignal>
#include <functional>
#include <map>
#include <omp.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>
#include <xmmintrin.h>

using namespace zoritest;

extern "C" void zoriTestShareAllWork(int on);

ZORI_SWEEP_SUITE(StackSweep);
ZORI_SWEEP_SUITE(SignalSweep);
ZORI_SWEEP_SUITE(DenormalTeamsSweep);

namespace {

struct Answer {
  int status = 0;
  std::vector<unsigned char> output;
  bool operator==(const Answer& other) const { return status == other.status && output == other.output; }
};

Answer answerOf(Call& call)
{
  const int status = call.run().status;
  return {status, call.output()};
}

Plan planOf(int variant)
{
  Plan plan;
  plan.region = variant % 2 ? ZorImgSize{1031, 21} : ZorImgSize{67, 71};
  plan.seed = static_cast<std::uint64_t>(variant + 1);
  plan.vary = variant > 0;
  return plan;
}

struct SharedWork {
  explicit SharedWork(int threads)
  {
    omp_set_num_threads(threads);
    zoriTestShareAllWork(1);
  }
  ~SharedWork()
  {
    zoriTestShareAllWork(0);
    omp_set_num_threads(1);
  }
};

// ---- Stack ----

// Calls on a stack of its own, and tells how much of it was used.
class PaintedStack {
public:
  static constexpr std::size_t bytes = 256 << 10;

  std::size_t use(Call& call)
  {
    return use([&] { call.run(); });
  }
  std::size_t use(const std::function<void()>& body)
  {
    std::memset(block_.begin(), paint, block_.size());
    running = &body;
    getcontext(&inside_);
    inside_.uc_stack.ss_sp = block_.begin();
    inside_.uc_stack.ss_size = block_.size();
    inside_.uc_link = &outside_;
    makecontext(&inside_, run, 0);
    swapcontext(&outside_, &inside_);
    std::size_t untouched = 0;
    while (untouched < block_.size() && block_.begin()[untouched] == paint) ++untouched;
    return block_.size() - untouched;
  }

private:
  static constexpr unsigned char paint = 0xc7;
  static const std::function<void()>* running;
  static void run() { (*running)(); }

  GuardedBlock block_{bytes};
  ucontext_t inside_, outside_;
};
const std::function<void()>* PaintedStack::running;

} // namespace

// A thread with a stack of 64 KiB keeps the rest for its own.
TEST_P(StackSweep, CallsTakeAtMost56KiB)
{
  constexpr std::size_t most = 56 << 10;
  PaintedStack stack;
  std::size_t deepest = 0;
  const Function* deepestFunction = nullptr;
  eachFunction([&](const Function& function) -> std::string {
    std::size_t used = 0;
    for (int variant = 0; variant < 6; ++variant) {
      Call call(function, planOf(variant));
      used = std::max(used, stack.use(call));
    }
    if (used > deepest) deepest = used, deepestFunction = &function;
    return used <= most ? "" : std::string(function.name) + " takes " + std::to_string(used) + " bytes of stack";
  });
  if (deepestFunction) std::printf("at most %zu bytes of stack: %s\n", deepest, deepestFunction->name);
}

// Blocks of two, three and four hundred pixels, of more rows than 16 bits sum, of more than 32 bits do; and split
// pixels.
TEST(Stack, SuperSamplingTakesAtMost16KiB)
{
  using Resize =
    ZorStatus (*)(const void*, ZorImgSize, int, ZorImgRect, void*, int, ZorImgSize, double, double, int interpolation);
  constexpr std::size_t most = 16 << 10;
  constexpr ZorImgSize size = {1200, 600};
  const int step = size.width * 16;
  std::vector<unsigned char> src(static_cast<std::size_t>(step) * size.height), dst(src.size());
  PaintedStack stack;
  for (const char* form : {"8u_C1R", "8u_C3R", "8u_AC4R", "16u_C1R", "16u_C4R", "32f_C1R", "32f_AC4R"}) {
    const Function* const function = findFunction(std::string("zoriResize_") + form);
    if (!function) continue; // left out of this build
    const auto resize = reinterpret_cast<Resize>(function->callable.function);
    for (double factor : {1.0 / 2, 1.0 / 3, 1.0 / 20, 1.0 / 150, 1.0 / 300, 0.61}) {
      ZorStatus status = ZorErrAlloc;
      const std::size_t used = stack.use([&] {
        status = resize(src.data(), size, step, {0, 0, size.width, size.height}, dst.data(), step, size, factor, factor,
                        ZORI_INTER_SUPER);
      });
      EXPECT_EQ(status, ZorOk) << form;
      EXPECT_LE(used, most) << form << " " << factor;
    }
  }
}

// The sides that have kernels of their own, of which the sweep draws few.
TEST(Stack, MediansOfSquaresTakeAtMost56KiB)
{
  using Filter = ZorStatus (*)(const void*, int, void*, int, ZorImgSize, ZorImgSize, ZorImgPoint);
  constexpr std::size_t most = 56 << 10;
  constexpr ZorImgSize roi = {530, 40};
  const int step = 600 * 8;
  std::vector<unsigned char> src(static_cast<std::size_t>(step) * 60), dst(src.size());
  PaintedStack stack;
  for (const char* form : {"8u_C1R", "8u_C3R", "8u_AC4R", "16u_C1R", "16u_C4R", "16s_C1R", "16s_AC4R"}) {
    const Function* const function = findFunction(std::string("zoriFilterMedian_") + form);
    if (!function) continue; // left out of this build
    const auto filter = reinterpret_cast<Filter>(function->callable.function);
    for (int side = 3; side <= 17; side += 2) {
      ZorStatus status = ZorErrAlloc;
      const std::size_t used = stack.use([&] {
        status = filter(src.data(), step, dst.data(), step, roi, {side, side}, {0, 0});
      });
      EXPECT_EQ(status, ZorOk) << form;
      EXPECT_LE(used, most) << form << ", side " << side;
    }
  }
}

// ---- Signals ----

static std::atomic<int> signals{0};

// Leaves every register that a handler may change in another state.
static void onSignal(int)
{
  volatile double x = 1e300;
  x = x * x / 3 + signals;
  asm volatile("pcmpeqb %%xmm0, %%xmm0\n\tmovaps %%xmm0, %%xmm1\n\tmovaps %%xmm0, %%xmm7" ::: "xmm0", "xmm1", "xmm7");
  ++signals;
}

TEST_P(SignalSweep, HandlersInTheMiddleOfCallsDoNotShow)
{
  struct sigaction action = {}, old;
  action.sa_handler = onSignal;
  action.sa_flags = SA_RESTART;
  sigaction(SIGALRM, &action, &old);
  const itimerval often = {{0, 20}, {0, 20}}, never = {};
  constexpr int mostTries = 20, untilTheFirst = 5000; // short calls are over before a signal arrives
  eachFunction([&](const Function& function) -> std::string {
    Call calm(function, planOf(1));
    const Answer wanted = answerOf(calm);
    const int before = signals;
    for (int i = 0; i < (before == 0 ? untilTheFirst : mostTries) && signals == before; ++i) {
      Call disturbed(function, planOf(1));
      setitimer(ITIMER_REAL, &often, nullptr);
      const Answer given = answerOf(disturbed);
      setitimer(ITIMER_REAL, &never, nullptr);
      if (!(given == wanted)) return disturbed.describe() + " differs when signals arrive";
    }
    return "";
  });
  sigaction(SIGALRM, &old, nullptr);
  EXPECT_GT(signals, 0);
}

// ---- Denormals ----

// A caller that flushes denormals gets what its own mode gives, in every thread of a team.
TEST_P(DenormalTeamsSweep, FlushedDenormalsGiveTheSameInEveryTeam)
{
  constexpr unsigned flush = 0x8040;
  std::map<const Function*, Answer> alone;
  for (const int threads : {1, 3}) {
    const SharedWork team(threads);
    eachFunction([&](const Function& function) -> std::string {
      if (!hasFloats(function) || function.exemptions & kThreadsExempt) return "";
      Plan plan = planOf(0);
      plan.pattern = {1, 0, 0, 0, 0x3f, 0x12, 0x40, 0x00, 0x00, 0x00, 0x80, 0x3f, 0, 0, 0}; // every third is denormal
      Call call(function, plan);
      const unsigned found = _mm_getcsr();
      _mm_setcsr(found | flush);
      const Answer given = answerOf(call);
      _mm_setcsr(found);
      if (threads == 1) alone[&function] = given;
      return given == alone[&function] ? "" : call.describe() + " differs in a team";
    });
  }
}

// ---- Forks ----

namespace {

const char* const teamed[] = {
  "zoriFilterMedian_8u_C4R",    "zoriFilterGauss_8u_C1R",         "zoriMul_8u_C1RSfs",     "zoriResize_8u_C1R",
  "zoriFFTFwd_RToPack_32f_C1R", "zoriCrossCorrFull_Norm_32f_C1R", "zoriWarpAffine_8u_C1R", "zoriMean_8u_C1R"};

std::vector<const Function*> teamedFunctions()
{
  std::vector<const Function*> functions;
  for (const char* name : teamed)
    if (const Function* function = findFunction(name)) functions.push_back(function);
  return functions;
}

std::vector<Answer> answers()
{
  std::vector<Answer> all;
  for (const Function* function : teamedFunctions()) {
    Call call(*function, planOf(0));
    all.push_back(answerOf(call));
  }
  return all;
}

// What the child of a fork says of its answers.
bool isSameInAChild(const std::vector<Answer>& wanted)
{
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    _exit(answers() == wanted ? 0 : 1);
  }
  int status = -1;
  return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace

TEST(ForkedTeams, AChildGivesTheSameAfterItsParentHadATeam)
{
  const SharedWork team(3);
  const auto wanted = answers();
  EXPECT_TRUE(isSameInAChild(wanted));
  EXPECT_EQ(answers(), wanted); // and the parent still has its team
}

TEST(ForkedTeams, AThreadOfATeamMayFork)
{
  const SharedWork team(3);
  const auto wanted = answers();
  int good = 0;
#pragma omp parallel num_threads(3) reduction(+ : good)
  {
#pragma omp critical
    good += isSameInAChild(wanted);
  }
  EXPECT_GE(good, 1);
  EXPECT_EQ(good, omp_get_thread_limit() < 3 ? omp_get_thread_limit() : 3);
}

TEST(LimitedTeams, FewerThreadsThanAskedForGiveTheSame)
{
  std::vector<Answer> wanted;
  {
    const SharedWork team(1);
    wanted = answers();
  }
  for (const int threads : {2, 5, 64}) {
    const SharedWork team(threads);
    EXPECT_EQ(answers(), wanted) << threads << " threads";
  }
}
