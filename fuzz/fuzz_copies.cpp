// The fuzz test of both 64-bit copies of the library: each input is played with both, and gives the same statuses and
// bytes. What the program is linked with tells the engine where it has been.
#include "player.h"

#include <cstdio>
#include <cstdlib>

using namespace zoritest;

static unsigned long long calls = 0;
extern "C" unsigned long long callsPlayed() { return calls; }

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
  static Build base(std::getenv("ZORI_BASE_LIBRARY")), wide(std::getenv("ZORI_WIDE_LIBRARY"));
  if (!wide.isLoaded()) {
    std::fprintf(stderr, "ZORI_WIDE_LIBRARY names the copy to compare with, ZORI_BASE_LIBRARY the other one\n");
    std::exit(2);
  }
  PlayRules rules;
  rules.keepsResults = true;
  rules.tells = std::getenv("ZORI_FUZZ_TELLS");
  rules.build = &base;
  const Played one = play(data, size, rules);
  rules.build = &wide;
  const Played other = play(data, size, rules);
  static const bool counts = !std::atexit([] { std::printf("%llu calls of each\n", calls); });
  (void)counts;
  calls += static_cast<unsigned long long>(one.calls);
  std::string fault = one.fault.empty() ? other.fault : one.fault;
  for (std::size_t i = 0; i < one.moves.size() && i < other.moves.size() && fault.empty(); ++i) {
    fault = difference(*one.moves[i].function, one.moves[i].results, other.moves[i].results);
    if (!fault.empty()) fault = std::string(one.moves[i].function->name) + ": " + fault;
  }
  if (fault.empty()) return 0;
  std::fprintf(stderr, "%s\nThe calls were:\n", fault.c_str());
  rules.tells = true;
  play(data, size, rules);
  std::abort();
}
