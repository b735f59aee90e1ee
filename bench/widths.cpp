// zori_widths BASE WIDE [-s WxH]... [GLOB]: two builds of the library side by side, function by function.
//
// Every function of the catalogue (or those whose names match) is called in both with the inputs of the tests, on
// images of the sizes given (default: 256x256, which stays in the cache). The builds take turns in short batches; the
// result is the median of the ratios of their times, above 1 where the second one is faster. Behind the functions come
// the geometric means of the families, and the functions that got slower.
#include "support/call.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fnmatch.h>
#include <map>
#include <omp.h>
#include <time.h>

using namespace zoritest;

static double now()
{
  timespec t;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

static double median(std::vector<double> x)
{
  std::nth_element(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(x.size() / 2), x.end());
  return x[x.size() / 2];
}

struct Contender {
  Function function;
  Call call;
  const Value* values;
  Contender(const Function& f, void* library, const Plan& plan) : function(own(f, library)), call(function, plan)
  {
    values = call.values().data();
  }
  static Function own(Function f, void* library)
  {
    f.callable.function = reinterpret_cast<AnyFunction>(dlsym(library, f.name));
    return f;
  }
  double time(int calls) const
  {
    const double begin = now();
    for (int i = 0; i < calls; ++i) function.callable.invoke(function.callable.function, values);
    return (now() - begin) / calls;
  }
};

int main(int argc, char** argv)
{
  if (argc < 3) {
    std::fprintf(stderr, "usage: zori_widths BASE WIDE [-s WxH]... [GLOB]\n");
    return 2;
  }
  void* library[2];
  for (int i = 0; i < 2; ++i)
    if (!(library[i] = dlopen(argv[i + 1], RTLD_NOW | RTLD_LOCAL))) {
      std::fprintf(stderr, "%s\n", dlerror());
      return 1;
    }
  std::vector<ZorImgSize> sizes;
  const char* glob = "*";
  for (int i = 3; i < argc; ++i)
    if (argv[i] == std::string("-s") && i + 1 < argc) {
      ZorImgSize size;
      if (std::sscanf(argv[++i], "%dx%d", &size.width, &size.height) == 2) sizes.push_back(size);
    } else glob = argv[i];
  if (sizes.empty()) sizes.push_back({256, 256});
  omp_set_num_threads(1);

  struct Line {
    std::string name;
    double ratio, nanoseconds;
  };
  std::map<std::string, std::vector<double>> families;
  std::vector<Line> slower;
  for (const Subsystem& subsystem : subsystems())
    for (const Function& function : subsystem.functions) {
      if (!function.sweep || function.release[0] || fnmatch(glob, function.name, 0) != 0) continue;
      for (const ZorImgSize size : sizes) {
        Plan plan;
        plan.region = size;
        plan.placement = Placement::Middle;
        const Contender base(function, library[0], plan), wide(function, library[1], plan);
        base.time(1), wide.time(1);
        const int calls = std::max(1, static_cast<int>(40e-6 / base.time(3)));
        std::vector<double> ratios, times;
        for (int round = 0; round < 15; ++round) {
          const double b = base.time(calls), w = wide.time(calls);
          ratios.push_back(b / w), times.push_back(w);
        }
        const std::string name =
          std::string(function.name) + " " + std::to_string(size.width) + "x" + std::to_string(size.height);
        const Line line{name, median(ratios), median(times) * 1e9};
        std::printf("%-56s %6.2f %12.1f ns\n", line.name.c_str(), line.ratio, line.nanoseconds);
        families[std::string(subsystem.name) + "/" + function.family].push_back(line.ratio);
        if (line.ratio < 0.95) slower.push_back(line);
      }
    }
  std::printf("\nMeans:\n");
  for (const auto& [name, ratios] : families) {
    double logs = 0;
    for (const double r : ratios) logs += std::log(r);
    std::printf("%-56s %6.2f  worst %.2f\n", name.c_str(), std::exp(logs / static_cast<double>(ratios.size())),
                *std::min_element(ratios.begin(), ratios.end()));
  }
  std::printf("\nSlower: %zu\n", slower.size());
  std::sort(slower.begin(), slower.end(), [](const Line& a, const Line& b) { return a.ratio < b.ratio; });
  for (const Line& line : slower)
    std::printf("%-56s %6.2f %12.1f ns\n", line.name.c_str(), line.ratio, line.nanoseconds);
}
