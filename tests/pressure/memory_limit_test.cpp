// The system gives no more memory: a call fails with the status of its contract and writes nothing, or does without
// and gives the same. Functions run in a child with a limit on its addresses, so that any of a chain of allocations is
// the one that fails; the ordinary allocator is in place.
#include "sweep/sweep.h"

#include <fstream>
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace zoritest;

namespace {

class MemoryLimit : public testing::TestWithParam<Batch> {};

std::size_t bytesOfAddresses()
{
  std::size_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * GuardedBlock::pageBytes();
}

void limitAddresses(rlim_t bytes)
{
  rlimit limit;
  getrlimit(RLIMIT_AS, &limit);
  limit.rlim_cur = bytes;
  setrlimit(RLIMIT_AS, &limit);
}

// What is wrong with a call that may have so many bytes more than there are, or "".
std::string faultWith(const Function& function, std::size_t more, int& failures)
{
  Plan plan;
  plan.region = {517, 130};
  Call free(function, plan), limited(function, plan);
  free.run();
  const auto wanted = free.output();
  malloc_trim(0);
  limitAddresses(bytesOfAddresses() + more);
  const Result result = limited.run();
  limitAddresses(RLIM_INFINITY);
  const std::string where = limited.describe() + " with " + std::to_string(more) + " bytes to be had";
  if (limited.succeeded(result)) {
    if (limited.output() == wanted || function.exemptions & kFallbackExempt) return "";
    return where + " gives another result";
  }
  ++failures;
  const bool fits = function.callable.returnsPointer || result.status == ZorErrAlloc || result.status == ZorErrNoMem ||
                    (function.exemptions & kAllocationExempt && result.status == ZorErrNullPtr);
  if (!fits) return where + " gives " + std::to_string(result.status);
  const std::string change = limited.changesAfter(result.status);
  return change.empty() ? "" : where + " wrote: " + change;
}

} // namespace

TEST_P(MemoryLimit, CallsFailAsTheContractSays)
{
  int tube[2];
  ASSERT_EQ(pipe(tube), 0);
  const pid_t child = fork();
  if (child == 0) {
    mallopt(M_MMAP_THRESHOLD, 0); // every block is the system's
    mallopt(M_TOP_PAD, 0);
    std::string text;
    int failures = 0, calls = 0;
    for (const Function* function : GetParam().functions)
      for (const std::size_t more : {0u, 1u << 14, 1u << 18}) {
        ++calls;
        const std::string fault = faultWith(*function, more, failures);
        if (!fault.empty()) text += fault + "\n";
      }
    text += std::to_string(calls) + " calls, " + std::to_string(failures) + " without memory";
    const bool said = write(tube[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
    _exit(said && text.find('\n') == std::string::npos ? 0 : 1);
  }
  close(tube[1]);
  std::string text;
  char part[4096];
  for (ssize_t n; (n = read(tube[0], part, sizeof part)) > 0;) text.append(part, static_cast<std::size_t>(n));
  close(tube[0]);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << text;
  std::printf("%s\n", text.c_str());
}

INSTANTIATE_TEST_SUITE_P(All, MemoryLimit, testing::ValuesIn(zoritest::batches()), zoritest::batchName);
