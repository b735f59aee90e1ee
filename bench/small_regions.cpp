// What small regions cost: calls of a few pixels, whose price is that of a call and of its rows.
//
//   zori_small [BYTES]     bytes from row to row of the image that the regions lie in; 1088 without it
//
// One thread, 8u C1 where the name says nothing else, images in the cache. A time is the least of many short runs, in
// nanoseconds a call; the last column is the price of a pixel at 32x32 in units of that at 256x256. Where rows are a
// large power of two apart, the rows of a region meet in few sets of the cache, and loads wait for stores to addresses
// that differ in their high bits alone.
#include <zori.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <omp.h>
#include <vector>

namespace {

constexpr int sides[] = {4, 8, 16, 32, 64, 256}, rowsOfImage = 300, margin = 8;

// An image from a page boundary on; p is a pixel with a margin on all sides.
template <class T> struct Image {
  int step;
  std::unique_ptr<void, void (*)(void*)> memory;
  T* p;

  explicit Image(int bytes)
    : step(bytes * static_cast<int>(sizeof(T))),
      memory(std::aligned_alloc(4096, (static_cast<std::size_t>(step) * rowsOfImage + 4095) / 4096 * 4096), std::free),
      p(static_cast<T*>(memory.get()) + static_cast<std::ptrdiff_t>(margin) * bytes + 64)
  {
    for (int i = 0; i < bytes * rowsOfImage; ++i) static_cast<T*>(memory.get())[i] = static_cast<T>(i * 37 % 251);
  }
};

double nanosecondsOf(const std::function<void()>& call, int calls)
{
  using Clock = std::chrono::steady_clock;
  const auto begin = Clock::now();
  for (int i = 0; i < calls; ++i) call();
  return std::chrono::duration<double, std::nano>(Clock::now() - begin).count() / calls;
}

double leastOf(const std::function<void()>& call)
{
  double least = nanosecondsOf(call, 1);
  const int calls = std::max(1, static_cast<int>(20000 / std::max(nanosecondsOf(call, 10), 1.0)));
  for (int run = 0; run < 300; ++run) least = std::min(least, nanosecondsOf(call, calls));
  return least;
}

} // namespace

int main(int count, char** arguments)
{
  omp_set_num_threads(1);
  const int bytes = count > 1 ? std::atoi(arguments[1]) : 1088;
  if (bytes < 256 + 2 * 64) return std::fprintf(stderr, "zori_small [BYTES], at least 384\n"), 1;
  const Image<Zor8u> a(bytes), b(bytes), d(bytes);
  const Image<Zor32f> fa(bytes), fd(bytes);
  const ZorImgSize three = {3, 3}, five = {5, 5};
  const ZorImgPoint one = {1, 1}, two = {2, 2};
  Zor64f number;
  Zor8u least, greatest;

  const struct {
    const char* name;
    std::function<ZorStatus(ZorImgSize)> call;
  } cases[] = {
    {"Copy", [&](ZorImgSize s) { return zoriCopy_8u_C1R(a.p, a.step, d.p, d.step, s); }},
    {"Set", [&](ZorImgSize s) { return zoriSet_8u_C1R(7, d.p, d.step, s); }},
    {"Mirror", [&](ZorImgSize s) { return zoriMirror_8u_C1R(a.p, a.step, d.p, d.step, s, ZorAxsVertical); }},
    {"Convert 8u32f", [&](ZorImgSize s) { return zoriConvert_8u32f_C1R(a.p, a.step, fd.p, fd.step, s); }},
    {"Threshold",
     [&](ZorImgSize s) { return zoriThreshold_Val_8u_C1R(a.p, a.step, d.p, d.step, s, 100, 0, ZorCmpLess); }},
    {"And", [&](ZorImgSize s) { return zoriAnd_8u_C1R(a.p, a.step, b.p, b.step, d.p, d.step, s); }},
    {"AddC", [&](ZorImgSize s) { return zoriAddC_8u_C1RSfs(a.p, a.step, 3, d.p, d.step, s, 0); }},
    {"Add", [&](ZorImgSize s) { return zoriAdd_8u_C1RSfs(a.p, a.step, b.p, b.step, d.p, d.step, s, 0); }},
    {"MulC 32f", [&](ZorImgSize s) { return zoriMulC_32f_C1R(fa.p, fa.step, 2, fd.p, fd.step, s); }},
    {"Sum", [&](ZorImgSize s) { return zoriSum_8u_C1R(a.p, a.step, s, &number); }},
    {"MinMax", [&](ZorImgSize s) { return zoriMinMax_8u_C1R(a.p, a.step, s, &least, &greatest); }},
    {"NormDiff L2", [&](ZorImgSize s) { return zoriNormDiff_L2_8u_C1R(a.p, a.step, b.p, b.step, s, &number); }},
    {"FilterBox 3x3", [&](ZorImgSize s) { return zoriFilterBox_8u_C1R(a.p, a.step, d.p, d.step, s, three, one); }},
    {"FilterBox 5x5", [&](ZorImgSize s) { return zoriFilterBox_8u_C1R(a.p, a.step, d.p, d.step, s, five, two); }},
    {"FilterGauss 3x3", [&](ZorImgSize s) { return zoriFilterGauss_8u_C1R(a.p, a.step, d.p, d.step, s, ZorMask3x3); }},
    {"FilterGauss 5x5", [&](ZorImgSize s) { return zoriFilterGauss_8u_C1R(a.p, a.step, d.p, d.step, s, ZorMask5x5); }},
    {"FilterSobelHoriz", [&](ZorImgSize s) { return zoriFilterSobelHoriz_8u_C1R(a.p, a.step, d.p, d.step, s); }},
    {"FilterMedian 3x3",
     [&](ZorImgSize s) { return zoriFilterMedian_8u_C1R(a.p, a.step, d.p, d.step, s, three, one); }},
    {"Erode3x3", [&](ZorImgSize s) { return zoriErode3x3_8u_C1R(a.p, a.step, d.p, d.step, s); }},
  };

  std::printf("%-18s", "8u C1");
  for (const int side : sides) std::printf("%4dx%-4d", side, side);
  std::printf("  32:256   (%d bytes from row to row, nanoseconds a call)\n", bytes);
  for (const auto& c : cases) {
    double times[std::size(sides)];
    std::printf("%-18s", c.name);
    for (std::size_t i = 0; i < std::size(sides); ++i) {
      const ZorImgSize size = {sides[i], sides[i]};
      if (c.call(size) < 0) return std::fprintf(stderr, "%s fails\n", c.name), 1;
      times[i] = leastOf([&] { c.call(size); });
      std::printf("%9.1f", times[i]);
    }
    std::printf("%8.2f\n", times[3] / times[5] * 64);
    std::fflush(stdout);
  }
}
