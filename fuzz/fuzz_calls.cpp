// The fuzz test of calls: each input is played; a fault ends the program.
#include "player.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

using namespace zoritest;

static unsigned long long calls = 0;
extern "C" unsigned long long callsPlayed() { return calls; }
static const auto start = std::chrono::steady_clock::now();

static void count()
{
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
  std::printf("%llu calls in %.0f s\n", calls, time.count());
}

// The sanitizers need not tell where every block of the test came from.
extern "C" const char* __asan_default_options() { return "malloc_context_size=3"; }

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
  static const bool tells = std::getenv("ZORI_FUZZ_TELLS"), counts = !std::atexit(count);
  (void)counts;
  PlayRules rules;
  rules.tells = tells;
  const Played played = play(data, size, rules);
  calls += static_cast<unsigned long long>(played.calls);
  if (played.fault.empty()) return 0;
  std::fprintf(stderr, "%s\n", played.fault.c_str());
  if (!tells) {
    std::fprintf(stderr, "The calls were:\n");
    rules.tells = true;
    play(data, size, rules);
  }
  if (!std::getenv("ZORI_FUZZ_GOES_ON")) std::abort();
  return 0;
}
