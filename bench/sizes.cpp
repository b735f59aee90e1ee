// zori_sizes [-s WxH] [-n N] [GLOB]: what a pixel costs in pictures far beyond the cache, and what a team gains there.
//
// Of each family the first and the last functions (N in all, default 2), or all whose names match, are called with the
// inputs of the tests on 256x256 pixels, which stay in the cache, and on the large size (default: 8192x8192). Columns:
// nanoseconds a pixel in cache, and beyond it with one thread; the ratio of the latter to what it is held against,
// which is the cost in cache plus that of copying as many bytes from memory to memory as the function reads and writes;
// whether the function may form a team, and then the gain of all threads over one on the clock. Behind them stand those
// above 1.1 (a tenth is noise), and those whose team gains less than 1.6.
#include "support/call.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fnmatch.h>
#include <omp.h>
#include <time.h>

using namespace zoritest;

static double now(clockid_t clock)
{
  timespec t;
  clock_gettime(clock, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// The least of several batches of a hundredth of a second, seconds a call.
static double seconds(Call& call, clockid_t clock, int batches)
{
  const Callable& callable = call.function().callable;
  double least = 1e9;
  int calls = 1;
  for (int batch = 0; batch < batches; ++batch) {
    const double begin = now(clock);
    for (int i = 0; i < calls; ++i) callable.invoke(callable.function, call.values().data());
    const double taken = (now(clock) - begin) / calls;
    least = std::min(least, taken);
    calls = std::max(1, static_cast<int>(0.01 / least));
  }
  return least;
}

static double copyOfAByte()
{
  constexpr std::size_t bytes = std::size_t{256} << 20;
  std::vector<char> from(bytes, 1), to(bytes, 2);
  double least = 1e9;
  for (int i = 0; i < 8; ++i) {
    const double begin = now(CLOCK_THREAD_CPUTIME_ID);
    std::memcpy(to.data(), from.data(), bytes);
    asm volatile("" : : "r"(to.data()) : "memory");
    least = std::min(least, now(CLOCK_THREAD_CPUTIME_ID) - begin);
  }
  return least / bytes;
}

// What moves: each sample that is read and each that is written counts half of a copied one.
static double copiedBytes(Call& call)
{
  double bytes = 0;
  for (std::size_t i = 0; i < call.function().arguments.size; ++i) {
    const Argument& argument = call.function().arguments[i];
    if (argument.role != Role::Image) continue;
    GuardedImage& image = call.image(static_cast<int>(i));
    const double size = 1.0 * image.rowBytes() * image.rows() * std::max(1, argument.memory.planes);
    bytes += size * (argument.memory.read + argument.memory.written) / 2;
  }
  return bytes;
}

static std::vector<const Function*> chosen(const Subsystem& subsystem, const char* glob, std::size_t eachFamily)
{
  std::vector<const Function*> all, family;
  const auto take = [&] {
    const std::size_t n = glob ? family.size() : std::min(eachFamily, family.size());
    for (std::size_t i = 0; i < n; ++i) all.push_back(family[n == 1 ? 0 : i * (family.size() - 1) / (n - 1)]);
    family.clear();
  };
  for (const Function& function : subsystem.functions) {
    if (!function.sweep || function.release[0] || (glob && fnmatch(glob, function.name, 0) != 0)) continue;
    if (!family.empty() && std::string(family[0]->family) != function.family) take();
    family.push_back(&function);
  }
  take();
  return all;
}

int main(int argc, char** argv)
{
  ZorImgSize large = {8192, 8192};
  std::size_t eachFamily = 2;
  const char* glob = nullptr;
  for (int i = 1; i < argc; ++i)
    if (argv[i] == std::string("-s") && i + 1 < argc) std::sscanf(argv[++i], "%dx%d", &large.width, &large.height);
    else if (argv[i] == std::string("-n") && i + 1 < argc) eachFamily = static_cast<std::size_t>(std::atoi(argv[++i]));
    else glob = argv[i];

  const int threads = omp_get_max_threads();
  const double copy = copyOfAByte();
  std::printf("a byte copied from memory to memory takes %.3f ns; teams of %d\n", copy * 1e9, threads);
  std::vector<std::string> above, littleGain;
  int tried = 0, teamed = 0;
  for (const Subsystem& subsystem : subsystems())
    for (const Function* function : chosen(subsystem, glob, eachFamily)) {
      Plan plan;
      plan.placement = Placement::Middle;
      const auto pixels = [](ZorImgSize size) { return static_cast<double>(size.width) * size.height; };
      omp_set_num_threads(1);
      plan.region = {256, 256};
      double small;
      {
        Call call(*function, plan);
        if (call.run().status < 0) continue;
        small = seconds(call, CLOCK_THREAD_CPUTIME_ID, 8) / pixels(plan.region);
      }
      plan.region = large;
      Call call(*function, plan);
      if (copiedBytes(call) < pixels(large) / 16 || call.run().status < 0) continue; // small whatever the region is
      const double one = seconds(call, CLOCK_THREAD_CPUTIME_ID, 4) / pixels(large);
      const double bound = small + copy * copiedBytes(call) / pixels(large);
      char line[200];
      int length = std::snprintf(line, sizeof line, "%-44s %9.3f %9.3f %6.2f", function->name, small * 1e9, one * 1e9,
                                 one / bound);
      ++tried;
      if (one > 1.1 * bound) above.push_back(line);
      if (function->team == Team::Yes) {
        ++teamed;
        const double alone = seconds(call, CLOCK_MONOTONIC, 3);
        omp_set_num_threads(threads);
        const double gain = alone / seconds(call, CLOCK_MONOTONIC, 4);
        std::snprintf(line + length, sizeof line - static_cast<std::size_t>(length), "  %5.2f", gain);
        if (gain < 1.6) littleGain.push_back(line);
      }
      std::printf("%s\n", line);
      std::fflush(stdout);
    }
  std::printf("\nAbove a copy and the cost in cache: %zu of %d\n", above.size(), tried);
  for (const std::string& line : above) std::printf("%s\n", line.c_str());
  std::printf("\nTeams that gain less than 1.6: %zu of %d\n", littleGain.size(), teamed);
  for (const std::string& line : littleGain) std::printf("%s\n", line.c_str());
}
