// The fuzz test of calls: each input is played; a fault ends the program.
#include "player.h"

#include <cstdio>
#include <cstdlib>

static unsigned long long calls = 0;

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
  static const bool tells = std::getenv("ZORI_FUZZ_TELLS");
  zoritest::PlayRules rules;
  rules.tells = tells;
  static const bool counts = !std::atexit([] { std::printf("%llu calls\n", calls); });
  (void)counts;
  const zoritest::Played played = zoritest::play(data, size, rules);
  calls += static_cast<unsigned long long>(played.calls);
  if (played.fault.empty()) return 0;
  std::fprintf(stderr, "%s\n", played.fault.c_str());
  if (!std::getenv("ZORI_FUZZ_GOES_ON")) std::abort();
  return 0;
}
