/* zori-info [--measure]: which library this machine has got, which copy of it is loaded and why, and how many threads a
 * call may take. With --measure: what a pixel costs here in twenty functions, in the cache and beyond it, with one
 * thread and with all. */
#define _GNU_SOURCE
#include <zori.h>

#include <dlfcn.h>
#include <omp.h>
#include <sched.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

/* ---- Which copy ---- */

static void printLibrary(void)
{
  const ZorVersionRecord* version = zoriGetLibVersion();
  Dl_info found;
  void* function = dlsym(RTLD_DEFAULT, "zoriGetLibVersion");
  const char* path = function && dladdr(function, &found) ? found.dli_fname : "?";
  const int isWide = strstr(path, "/glibc-hwcaps/") != NULL;
  __builtin_cpu_init();
  const int canWide = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") && __builtin_cpu_supports("bmi2");
  const char* tunables = getenv("GLIBC_TUNABLES");

  printf("zori       %s\n", ZORI_VERSION);
  printf("library    %s %s\n", version->name, version->version);
  printf("file       %s\n", path);
  printf("vectors    %d bytes (%s copy)\n", isWide ? 32 : 16, isWide ? "wide" : "base");
  if (isWide) printf("because    the loader found the folder for processors like this one\n");
  else if (!canWide) printf("because    this processor has no 32-byte integer vectors\n");
  else if (tunables && strstr(tunables, "hwcaps"))
    printf("because    GLIBC_TUNABLES=%s takes features from the loader's view\n", tunables);
  else {
    char beside[4096];
    const char* slash = strrchr(path, '/');
    snprintf(beside, sizeof beside, "%.*s/glibc-hwcaps/x86-64-v3/%s", slash ? (int)(slash - path) : 0, path,
             slash ? slash + 1 : path);
    printf("because    %s\n", access(beside, R_OK)
                                ? "no wide copy is installed beside it"
                                : "it was named by its path, or linked before the wide copy was there");
  }
}

/* ---- Threads and caches ---- */

/* Processors that a container's quota grants, 0 where there is none. */
static double quota(void)
{
  char text[64];
  double granted = 0, period = 100000;
  FILE* file = fopen("/sys/fs/cgroup/cpu.max", "r");
  if (file) {
    if (fgets(text, sizeof text, file) && sscanf(text, "%lf %lf", &granted, &period) == 2) granted /= period;
    else granted = 0;
    fclose(file);
    return granted;
  }
  file = fopen("/sys/fs/cgroup/cpu/cpu.cfs_quota_us", "r");
  if (file) {
    if (fscanf(file, "%lf", &granted) != 1 || granted < 0) granted = 0;
    fclose(file);
  }
  return granted / period;
}

static void printThreads(void)
{
  cpu_set_t set;
  const int allowed = sched_getaffinity(0, sizeof set, &set) ? 0 : CPU_COUNT(&set);
  const char* asked = getenv("OMP_NUM_THREADS");
  const double granted = quota();
  printf("threads    at most %d a call", omp_get_max_threads());
  if (asked) printf(", from OMP_NUM_THREADS=%s\n", asked);
  else printf(", from the %d processors that this process may run on\n", allowed);
  if (granted > 0)
    printf("quota      %.3g processors%s\n", granted,
           granted < omp_get_max_threads() ? ": fewer than the threads; set OMP_NUM_THREADS to it" : "");
  const long line = sysconf(_SC_LEVEL1_DCACHE_LINESIZE), first = sysconf(_SC_LEVEL1_DCACHE_SIZE),
             second = sysconf(_SC_LEVEL2_CACHE_SIZE), third = sysconf(_SC_LEVEL3_CACHE_SIZE);
  printf("cache      %ld KiB, %ld KiB, %ld KiB, lines of %ld bytes\n", first / 1024, second / 1024, third / 1024, line);
}

/* ---- The cost card ---- */

typedef struct {
  Zor8u *a, *b, *d; /* three channels of bytes fit */
  Zor32f *fa, *fb, *fd;
  ZorImgSize size;
  int step, step3, fstep;
} Images;

static const Zor8u three[3] = {3, 5, 7};
static const ZorImgSize window = {5, 5};
static const ZorImgPoint centre = {2, 2};
static const Zor32s levels[4] = {0, 64, 192, 256}, values[4] = {0, 90, 200, 255};

/* Each works on the inner region, two pixels off the edges. */
#define CASES(X)                                                                                                       \
  X(Copy_8u_C1R, (a, m->step, d, m->step, size))                                                                       \
  X(Set_8u_C3R, (three, m->d, m->step3, size))                                                                         \
  X(Copy_8u_C3P3R, (m->a, m->step3, planes, m->step, size))                                                            \
  X(Convert_8u32f_C1R, (a, m->step, fd, m->fstep, size))                                                               \
  X(Convert_32f8u_C1R, (fa, m->fstep, d, m->step, size, ZorRoundNearestEven))                                          \
  X(Transpose_8u_C1R, (a, m->step, d, m->step, square))                                                                \
  X(Mirror_8u_C3R, (m->a, m->step3, m->d, m->step3, size, ZorAxsVertical))                                             \
  X(Add_8u_C1RSfs, (a, m->step, b, m->step, d, m->step, size, 1))                                                      \
  X(Mul_32f_C1R, (fa, m->fstep, fb, m->fstep, fd, m->fstep, size))                                                     \
  X(MulC_8u_C3RSfs, (m->a, m->step3, three, m->d, m->step3, size, 2))                                                  \
  X(Sqrt_32f_C1R, (fa, m->fstep, fd, m->fstep, size))                                                                  \
  X(Threshold_Val_8u_C1R, (a, m->step, d, m->step, size, 100, 0, ZorCmpLess))                                          \
  X(LUT_Linear_8u_C1R, (a, m->step, d, m->step, size, values, levels, 4))                                              \
  X(Mean_8u_C1R, (a, m->step, size, &mean))                                                                            \
  X(MinMax_32f_C1R, (fa, m->fstep, size, &least, &greatest))                                                           \
  X(NormDiff_L2_8u_C1R, (a, m->step, b, m->step, size, &mean))                                                         \
  X(FilterBox_8u_C1R, (a, m->step, d, m->step, size, window, centre))                                                  \
  X(FilterGauss_8u_C1R, (a, m->step, d, m->step, size, ZorMask5x5))                                                    \
  X(FilterMedian_8u_C1R, (a, m->step, d, m->step, size, window, centre))                                               \
  X(FilterSobelHoriz_8u_C1R, (a, m->step, d, m->step, size))

enum { zoriCases = 20 };

static ZorStatus run(int number, const Images* m)
{
  const ZorImgSize size = {m->size.width - 4, m->size.height - 4};
  const int side = size.width < size.height ? size.width : size.height;
  const ZorImgSize square = {side, side};
  const int at = 2 * m->step + 2, fat = 2 * (m->fstep / 4) + 2;
  const Zor8u *a = m->a + at, *b = m->b + at;
  const Zor32f *fa = m->fa + fat, *fb = m->fb + fat;
  Zor8u* d = m->d + at;
  Zor32f *fd = m->fd + fat, least, greatest;
  Zor8u* const planes[3] = {m->d, m->d + m->size.height * m->step, m->d + 2 * m->size.height * m->step};
  Zor64f mean;
  int i = 0;
#define CASE(name, arguments)                                                                                          \
  if (number == i++) return zori##name arguments;
  CASES(CASE)
#undef CASE
  return ZorErrBadArg;
}

static const char* const names[] = {
#define CASE(name, arguments) #name,
  CASES(CASE)
#undef CASE
};

static double now(void)
{
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec + 1e-9 * (double)t.tv_nsec;
}

/* The least time of several calls, as nanoseconds a pixel. */
static double cost(int number, const Images* m)
{
  double least = 1e30;
  const double start = now();
  for (int i = 0; i < 3 || now() - start < 0.03; ++i) {
    const double before = now();
    if (run(number, m) < 0) return -1;
    const double took = now() - before;
    if (took < least) least = took;
  }
  const int side = m->size.width < m->size.height ? m->size.width : m->size.height;
  const double pixels = !strcmp(names[number], "Transpose_8u_C1R") ? (double)(side - 4) * (side - 4)
                                                                   : (double)(m->size.width - 4) * (m->size.height - 4);
  return least / pixels * 1e9;
}

static Images images(int width, int height)
{
  Images m;
  memset(&m, 0, sizeof m);
  m.size.width = width, m.size.height = height;
  Zor8u** const bytes[3] = {&m.a, &m.b, &m.d};
  Zor32f** const floats[3] = {&m.fa, &m.fb, &m.fd};
  for (int i = 0; i < 3; ++i) {
    *bytes[i] = zoriMalloc_8u_C3(width, height, &m.step3);
    *floats[i] = zoriMalloc_32f_C1(width, height, &m.fstep);
    if (!*bytes[i] || !*floats[i]) {
      fprintf(stderr, "zori-info: no memory\n");
      exit(1);
    }
    unsigned seed = 3u + (unsigned)i;
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < m.step3; ++x)
        (*bytes[i])[y * m.step3 + x] = (Zor8u)((seed = seed * 1664525u + 1013904223u) >> 24);
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x)
        ((Zor32f*)((Zor8u*)*floats[i] + y * m.fstep))[x] = (Zor32f)((seed = seed * 1664525u + 1013904223u) >> 24);
  }
  m.step = m.step3 / 3;
  return m;
}

static void release(Images* m)
{
  zoriFree(m->a), zoriFree(m->b), zoriFree(m->d), zoriFree(m->fa), zoriFree(m->fb), zoriFree(m->fd);
}

static void measure(void)
{
  const int all = omp_get_max_threads();
  Images small = images(256, 128), large = images(3840, 2160);
  printf("\nnanoseconds a pixel            256 x 128   3840 x 2160   3840 x 2160, %d threads\n", all);
  for (int i = 0; i < zoriCases; ++i) {
    omp_set_num_threads(1);
    const double in = cost(i, &small), beyond = cost(i, &large);
    omp_set_num_threads(all);
    printf("%-28s %11.3f %13.3f %14.3f\n", names[i], in, beyond, cost(i, &large));
  }
  release(&small), release(&large);
}

int main(int count, char** arguments)
{
  const int wanted = count == 2 && !strcmp(arguments[1], "--measure");
  if (count > 1 && !wanted) {
    fprintf(stderr, "usage: zori-info [--measure]\n");
    return 2;
  }
  printLibrary();
  printThreads();
  if (wanted) measure();
  return 0;
}
