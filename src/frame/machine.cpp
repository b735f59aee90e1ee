// What the library asks of the machine.
//
// Built with ZORI_TESTING the file can drop the rule that a team must be worth it, and counts the teams asked for.
#include "machine.h"

#include <omp.h>
#include <pthread.h>

#ifdef ZORI_TESTING
#include <atomic>

static std::atomic<bool> isEveryTeamWorthIt{false};
static std::atomic<int> teams{0};

// Free work is shared however little it is, until this is switched off again.
extern "C" void zoriTestShareAllWork(int on) { isEveryTeamWorthIt = on != 0; }
// The teams of more than one thread asked for since the last call.
extern "C" int zoriTestTeams() { return teams.exchange(0); }
#endif

namespace zori {

static bool isForkedChild = false;

__attribute__((constructor)) static void watchForks()
{
  pthread_atfork(nullptr, nullptr, [] { isForkedChild = true; });
}

int allowedThreads()
{
  if (isForkedChild) return 1;
  const int threads = omp_get_max_threads();
  return threads < 1 ? 1 : threads;
}

int TeamRule::threads(int units) const
{
  bool isWorthIt = isWorthIt_;
#ifdef ZORI_TESTING
  if (isFree_ && isEveryTeamWorthIt) isWorthIt = true;
#endif
  if (!isWorthIt || units < 1) return 1;
  const int allowed = allowedThreads(), threads = isFree_ && units < allowed ? units : allowed;
#ifdef ZORI_TESTING
  if (threads > 1) ++teams;
#endif
  return threads;
}

} // namespace zori
