// Interleaved measuring, the table, and the program's main.
//
// Every case is measured against the others in one loop: the memcpy unit, the memory limit, the call, the naive loop,
// a peer and the call on all threads take turns in short batches, so that whatever slows the machine for a while slows
// them alike. The result is the median of the rounds' ratios, in processor time of the thread: what others do to the
// machine costs rounds, not truth.
//
// Large images come from memory: what a batch is going to use is put out of all caches before it, the images of calls,
// unit and limit alike. (To go round more images than a cache holds is not enough: a shared cache may be as large as
// you like, and who comes round sooner finds more of his images there.) Beside that, call and limit are measured on one
// set again and again, as small images always are.
#include "harness.h"

#include <benchmark/benchmark.h>
#include <immintrin.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <time.h>
#include <vector>

namespace bench {
namespace {

struct Case {
  std::string group, name;
  ZorImgSize size;
  Make make;
};

std::vector<Case>& cases()
{
  static std::vector<Case> all;
  return all;
}

struct Options {
  double seconds = 1.0; // for a case
  std::size_t leastRounds = 5;
  bool threads = false;
  int processors = 1;
} options;

double seconds(clockid_t clock)
{
  timespec t;
  clock_gettime(clock, &t);
  return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
}

// ---- What calls are held against ----

// Memory that a call uses.
struct Span {
  std::shared_ptr<char> first;
  std::size_t bytes;
};
std::vector<Span>* made = nullptr; // where noise() writes down what it makes

// What a contender does with a set of images. `memory` comes from beyond the caches.
struct Turn {
  std::function<void()> go;
  std::vector<Span> memory;
};
using Ring = std::vector<Turn>; // gone round, one turn after the other

// The first set of images again and again.
Ring cached(const Ring& ring) { return {{ring[0].go, {}}}; }

// As many sets as a batch of short calls takes.
std::size_t ringLength(double bytesOfASet) { return static_cast<std::size_t>(std::ceil(64e6 / bytesOfASet)); }

constexpr std::size_t cacheLine = 64;
__attribute__((target("clflushopt"))) void flushUnordered(char* p, std::size_t bytes)
{
  for (std::size_t i = 0; i < bytes; i += cacheLine) _mm_clflushopt(p + i);
}
void flushFromCaches(const std::vector<Span>& memory)
{
  static const bool canUnordered = __builtin_cpu_supports("clflushopt");
  for (const auto& [first, bytes] : memory)
    if (canUnordered) flushUnordered(first.get(), bytes);
    else
      for (std::size_t i = 0; i < bytes; i += cacheLine) _mm_clflush(first.get() + i);
  _mm_mfence();
}

// Source and destination of the unit and the limit, at least this long, the same ones for as long as they do.
std::shared_ptr<char> pool(int which, std::size_t bytes)
{
  static std::shared_ptr<char> memory[2];
  static std::size_t sizes[2];
  if (sizes[which] < bytes) memory[which] = std::static_pointer_cast<char>(noise(sizes[which] = bytes));
  return memory[which];
}

Span part(const std::shared_ptr<char>& whole, std::size_t at, std::size_t bytes)
{
  return {{whole, whole.get() + at}, bytes};
}

Ring memcpyUnit()
{
  constexpr std::size_t bytes = 1920 * 1080;
  Ring ring;
  const std::size_t sets = ringLength(2 * bytes);
  const auto src = pool(0, bytes * sets), dst = pool(1, bytes * sets);
  for (std::size_t i = 0; i < sets; ++i) {
    const Span from = part(src, i * bytes, bytes), to = part(dst, i * bytes, bytes);
    ring.push_back({[=] { std::memcpy(to.first.get(), from.first.get(), bytes); }, {from, to}});
  }
  return ring;
}

// What peers take, by the name of the case, from yardsticks.tsv: units beyond the cache, cycles a pixel within; 0 where
// there is no number.
struct Yardstick {
  double copies = 0, cycles = 0;
};
Yardstick yardstickOf(const std::string& name)
{
  static const std::map<std::string, Yardstick> table = [] {
    std::map<std::string, Yardstick> found;
    std::ifstream file(ZORI_YARDSTICKS);
    for (std::string line; std::getline(file, line);) {
      std::vector<std::string> fields;
      std::istringstream rest(line);
      for (std::string field; std::getline(rest, field, '\t');) fields.push_back(field);
      if (fields.size() < 6 || line[0] == '#') continue;
      const double cycles = std::atof(fields[2].c_str()), slow = std::atof(fields[5].c_str());
      Yardstick& large = found[fields[0] + "/" + fields[1]];
      large.copies = slow;
      if (fields[3] == "own") large.cycles = cycles;
      else found[fields[0] + "/" + fields[1] + " " + fields[3].substr(0, fields[3].find('x'))].cycles = cycles;
    }
    return found;
  }();
  const auto found = table.find(name);
  return found == table.end() ? Yardstick{} : found->second;
}

// A chain of so many additions, each of which waits for the one before it: one cycle each. Of registers, since newer
// processors add small constants while they rename registers, several a cycle.
constexpr int additions = 100000;
Ring dependentAdditions()
{
  const auto chain = [] {
    long x = 0, one = 1;
    for (int i = 0; i < additions; i += 10)
      for (int k = 0; k < 10; ++k) asm volatile("add %1, %0" : "+r"(x) : "r"(one));
  };
  return {{chain, {}}};
}

// Copies the bytes that both sides have, reads what is left of the source and fills what is left of the destination,
// with plain 16-byte loads and stores, 64 bytes a pass. The empty statements keep the compiler from making it a memcpy.
void plainPass(const char* src, std::size_t read, char* dst, std::size_t written)
{
  const auto at = [](const char* p) { return reinterpret_cast<const __m128i*>(p); };
  const auto put = [](char* p, __m128i x) { _mm_store_si128(reinterpret_cast<__m128i*>(p), x); };
  const std::size_t both = std::min(read, written);
  std::size_t i = 0;
  for (; i < both; i += 64) {
    const __m128i a = _mm_load_si128(at(src + i)), b = _mm_load_si128(at(src + i + 16)),
                  c = _mm_load_si128(at(src + i + 32)), d = _mm_load_si128(at(src + i + 48));
    put(dst + i, a), put(dst + i + 16, b), put(dst + i + 32, c), put(dst + i + 48, d);
    asm volatile("" ::: "memory");
  }
  for (std::size_t k = i; k < read; k += 64)
    for (int j = 0; j < 64; j += 16) asm volatile("" ::"x"(_mm_load_si128(at(src + k + j))));
  for (std::size_t k = i; k < written; k += 64) {
    for (int j = 0; j < 64; j += 16) put(dst + k + j, _mm_set1_epi8(1));
    asm volatile("" ::: "memory");
  }
}

// The memory limit of a call that reads and writes these numbers of bytes, both spread evenly over the pass.
Ring memoryLimit(double bytesRead, double bytesWritten, std::size_t sets)
{
  const double larger = std::max(bytesRead, bytesWritten);
  const std::size_t parts = bytesRead == bytesWritten ? 1 : std::max<std::size_t>(1, larger / 4096);
  const auto share = [=](double bytes) { return static_cast<std::size_t>(std::lround(bytes / parts / 64)) * 64; };
  const std::size_t read = share(bytesRead), written = share(bytesWritten);
  const auto src = pool(0, read * parts * sets), dst = pool(1, written * parts * sets);
  Ring ring;
  for (std::size_t set = 0; set < sets; ++set) {
    const Span from = part(src, set * parts * read, parts * read),
               to = part(dst, set * parts * written, parts * written);
    const auto pass = [=] {
      for (std::size_t i = 0; i < parts; ++i)
        plainPass(from.first.get() + i * read, read, to.first.get() + i * written, written);
    };
    ring.push_back({pass, {from, to}});
  }
  return ring;
}

// ---- Taking turns ----

double median(std::vector<double> x)
{
  std::nth_element(x.begin(), x.begin() + x.size() / 2, x.end());
  return x[x.size() / 2];
}

class Contender {
public:
  // A thread's time of its own does not grow while others have the processor; a team is timed by the clock on the wall.
  explicit Contender(Ring ring, clockid_t clock = CLOCK_THREAD_CPUTIME_ID) : ring_(std::move(ring)), clock_(clock) {}

  // A call that brings its images, then as many as fill a batch; a long call is a batch.
  void batch()
  {
    constexpr double batchSeconds = 300e-6, longCall = 3e-3;
    const double once = timeOf(1);
    const auto calls = static_cast<std::size_t>(batchSeconds / (times_.empty() ? once : times_.back()));
    times_.push_back(once < longCall ? timeOf(std::max<std::size_t>(1, calls)) : once);
  }

  double time() const { return median(times_); }
  // How many times as long as the other it takes.
  double over(const Contender& other) const
  {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < std::min(times_.size(), other.times_.size()); ++i)
      ratios.push_back(times_[i] / other.times_[i]);
    return median(ratios);
  }

private:
  double timeOf(std::size_t calls)
  {
    const auto turn = [this](std::size_t i) -> Turn& { return ring_[(next_ + i) % ring_.size()]; };
    if (!turn(0).memory.empty()) calls = std::min(calls, ring_.size());
    for (std::size_t i = 0; i < std::min(calls, ring_.size()); ++i) flushFromCaches(turn(i).memory);
    const double begin = seconds(clock_);
    for (std::size_t i = 0; i < calls; ++i) turn(i).go();
    const double end = seconds(clock_);
    next_ += calls;
    return (end - begin) / static_cast<double>(calls);
  }

  Ring ring_;
  clockid_t clock_;
  std::size_t next_ = 0;
  std::vector<double> times_;
};

// Rounds until the time is up. Before each turn a copy clears away what the turn before left in the caches. A naive
// loop that would take all of the time is out after its first round.
void takeTurns(std::map<std::string, Contender>& contenders)
{
  const Ring clear = memcpyUnit();
  std::size_t turn = 0;
  const double end = seconds(CLOCK_MONOTONIC) + options.seconds;
  for (std::size_t round = 0; round < options.leastRounds || seconds(CLOCK_MONOTONIC) < end; ++round)
    for (auto& [name, contender] : contenders)
      if (round == 0 || name != "naive" || contender.time() < options.seconds / 10) {
        clear[turn++ % clear.size()].go();
        contender.batch();
      }
}

void measure(benchmark::State& state, const Case& c)
{
  std::vector<Run> runs;
  std::vector<std::vector<Span>> memory;
  const auto makeSet = [&] {
    made = &memory.emplace_back();
    runs.push_back(c.make(c.size));
    made = nullptr;
  };
  makeSet();
  const double read = runs[0].bytesRead, written = runs[0].bytesWritten;
  const bool isLarge = c.size.width * c.size.height >= 1000000;
  const std::size_t sets = isLarge ? ringLength(read + written) : 1;
  while (runs.size() < sets) makeSet();

  for (auto _ : state) {
    if (runs[0].call() < 0) return state.SkipWithError("the call fails");
    std::map<std::string, Contender> contenders;
    const auto add = [&](const char* name, auto... arguments) { contenders.emplace(name, Contender(arguments...)); };
    const auto ringOf = [&](auto go) {
      Ring ring;
      for (std::size_t i = 0; i < sets; ++i) ring.push_back({[&run = runs[i], go] { go(run); }, memory[i]});
      return isLarge ? ring : cached(ring);
    };
    const auto call = [](const Run& run) { run.call(); };
    add("unit", memcpyUnit());
    add("addition", dependentAdditions());
    add("call", ringOf(call));
    add("limit", isLarge ? memoryLimit(read, written, sets) : cached(memoryLimit(read, written, 1)));
    if (isLarge) {
      add("again", cached(ringOf(call)));
      add("limit again", cached(memoryLimit(read, written, 1)));
    }
    if (runs[0].naive) add("naive", ringOf([](const Run& run) { run.naive(); }));
    if (runs[0].peer) add("peer", ringOf([](const Run& run) { run.peer(); }));
    if (options.threads)
      add("team", ringOf([](const Run& run) {
            omp_set_num_threads(options.processors);
            run.call();
            omp_set_num_threads(1);
          }),
          CLOCK_MONOTONIC);
    takeTurns(contenders);

    const Contender& ours = contenders.at("call");
    const auto ratio = [&](const char* column, double value) { state.counters[column] = value; };
    const auto over = [&](const char* name, const Contender& c) { return contenders.at(name).over(c); };
    const Yardstick peer = yardstickOf(c.group + "/" + c.name);
    const double pixels = double(c.size.width) * c.size.height;
    state.SetIterationTime(ours.time());
    ratio("Mpixel/s", c.size.width / 1e6 * c.size.height / ours.time());
    ratio("copies", 1 / over("unit", ours));
    if (!isLarge && peer.cycles > 0) ratio("vs peer", peer.cycles * over("addition", ours) / additions * pixels);
    else if (peer.copies > 0) ratio("vs peer", peer.copies * over("unit", ours));
    ratio(isLarge ? "of limit" : "in cache", over("limit", ours));
    if (isLarge) ratio("in cache", over("limit again", contenders.at("again")));
    if (runs[0].naive) ratio("vs naive", over("naive", ours));
    if (options.threads) ratio("threads", 1 / over("team", ours));
    if (runs[0].peer) ratio(runs[0].peerName.c_str(), over("peer", ours));
  }
  state.SetLabel(runs[0].peerName);
}

// ---- The table ----

// Columns that have a geometric mean.
const std::vector<const char*> ratios = {"vs peer", "of limit", "in cache", "vs naive", "threads"};

class Table final : public benchmark::BenchmarkReporter {
public:
  bool ReportContext(const Context& context) override
  {
    std::ifstream info("/proc/cpuinfo");
    std::string line, processor = "an unknown processor";
    while (std::getline(info, line) && line.rfind("model name", 0) != 0) {}
    if (info) processor = line.substr(line.find(':') + 2);
    std::printf("Measured on: %s, %d threads", processor.c_str(), context.cpu_info.num_cpus);
    for (const auto& cache : context.cpu_info.caches)
      if (cache.type != "Instruction") std::printf(", L%d %d KB", cache.level, cache.size / 1024);
    std::printf(".\n\n");
    std::vector<const char*> columns{"Mpixel/s", "copies"};
    columns.insert(columns.end(), ratios.begin(), ratios.end());
    columns.push_back("beside");
    head("case", columns);
    return true;
  }

  void ReportRuns(const std::vector<Run>& runs) override
  {
    for (const Run& run : runs) {
      const std::string& name = run.run_name.function_name;
      if (run.error_occurred) {
        std::printf("| %-*s | %s |\n", nameWidth, name.c_str(), run.error_message.c_str());
        failed = true;
        continue;
      }
      auto& family = means_[name.substr(0, name.find(' '))];
      const auto value = [&](const std::string& column) {
        const auto found = run.counters.find(column);
        return found == run.counters.end() ? 0.0 : double(found->second);
      };
      std::printf("| %-*s | %8.0f | %8.3g |", nameWidth, name.c_str(), value("Mpixel/s"), value("copies"));
      for (const char* column : ratios) {
        const double x = value(column);
        cell(x);
        if (x > 0) family[column].logs += std::log(x), ++family[column].count;
      }
      const std::string& peer = run.report_label;
      if (peer.empty()) std::printf(" |\n");
      else std::printf(" %s %.2f |\n", peer.c_str(), value(peer));
      std::fflush(stdout);
    }
  }

  void Finalize() override
  {
    std::printf("\nGeometric means:\n\n");
    head("family", ratios);
    for (auto& [name, family] : means_) {
      std::printf("| %-*s |", nameWidth, name.c_str());
      for (const char* column : ratios) {
        const Mean& mean = family[column];
        cell(mean.count ? std::exp(mean.logs / mean.count) : 0);
      }
      std::printf("\n");
    }
  }

  bool failed = false;

private:
  struct Mean {
    double logs = 0;
    int count = 0;
  };

  static void head(const char* first, std::vector<const char*> columns)
  {
    std::printf("| %-*s |", nameWidth, first);
    for (const char* column : columns) std::printf(" %8s |", column);
    std::printf("\n|:%s|", std::string(nameWidth + 1, '-').c_str());
    for (std::size_t i = 0; i < columns.size(); ++i) std::printf("---------:|");
    std::printf("\n");
  }

  static void cell(double x) // empty where there is no ratio
  {
    if (x > 0) std::printf(" %8.*f |", x < 100 ? 2 : 0, x);
    else std::printf(" %8s |", "");
  }

  static constexpr int nameWidth = 40;
  std::map<std::string, std::map<std::string, Mean>> means_; // by family and column
};

} // namespace

std::shared_ptr<void> noise(std::size_t bytes)
{
  static const std::vector<std::uint64_t> block = [] {
    std::vector<std::uint64_t> words(1 << 17);
    std::uint64_t x = 0x9e3779b97f4a7c15;
    for (auto& word : words) word = (x ^= x << 13, x ^= x >> 7, x ^= x << 17);
    return words;
  }();
  static std::size_t start = 0; // so that images differ
  constexpr std::size_t piece = 1 << 19;
  const std::size_t size = (bytes + piece) / piece * piece;
  std::shared_ptr<void> memory(std::aligned_alloc(4096, size), std::free);
  if (!memory) std::abort();
  for (std::size_t i = 0; i < size; i += piece, start = (start + 8) % (block.size() / 2))
    std::memcpy(static_cast<char*>(memory.get()) + i, &block[start], piece);
  if (made) made->push_back({std::static_pointer_cast<char>(memory), bytes});
  return memory;
}

Group::Group(const char* name, void (*addCases)(Group&)) : name_(name) { addCases(*this); }

void Group::at(const std::string& name, ZorImgSize size, Make make)
{
  cases().push_back({name_, name, size, std::move(make)});
}

} // namespace bench

// zori_bench [--quick] [--threads] [filter]; the options of Google Benchmark work too.
int main(int argc, char** argv)
{
  using namespace bench;
  std::vector<std::string> arguments{argv[0]};
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--quick") options.seconds = 0.2, options.leastRounds = 3;
    else if (argument == "--threads") options.threads = true;
    else arguments.push_back(argument[0] == '-' ? argument : "--benchmark_filter=" + argument);
  }
  options.processors = omp_get_max_threads();
  omp_set_num_threads(1);

  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  int count = static_cast<int>(pointers.size());
  pointers.push_back(nullptr);
  benchmark::Initialize(&count, pointers.data());
  if (benchmark::ReportUnrecognizedArguments(count, pointers.data())) return 2;
  for (const Case& c : cases())
    benchmark::RegisterBenchmark((c.group + "/" + c.name).c_str(), [&c](benchmark::State& s) { measure(s, c); })
      ->Iterations(1)
      ->UseManualTime();
  Table table;
  const bool ran = benchmark::RunSpecifiedBenchmarks(&table) > 0;
  return ran && !table.failed ? 0 : 1;
}
