// What the library asks of the machine. Constants are found once, when the library is loaded.
#include "corelib.h"

#include "rowkernels/simd.h"

#include <limits>
#include <omp.h>
#include <pthread.h>
#include <unistd.h>

const Zor32f zorConstantOfNAN_32f = std::numeric_limits<float>::quiet_NaN();
const Zor64f zorConstantOfNAN_64f = std::numeric_limits<double>::quiet_NaN();

static bool isForkedChild = false;
static long largestCache = 0;

__attribute__((constructor)) static void atLoad()
{
  constexpr int levels[] = {_SC_LEVEL1_DCACHE_SIZE, _SC_LEVEL2_CACHE_SIZE, _SC_LEVEL3_CACHE_SIZE, _SC_LEVEL4_CACHE_SIZE};
  for (int name : levels) {
    const long bytes = sysconf(name);
    if (bytes > largestCache) largestCache = bytes;
  }
  pthread_atfork(nullptr, nullptr, [] { isForkedChild = true; });
}

int ownGetNumThreads()
{
  if (isForkedChild) return 1;
  const int threads = omp_get_max_threads();
  return threads < 1 ? 1 : threads;
}

int zorGetMaxCacheSizeB(int* pSize)
{
  if (largestCache < 1 || largestCache > std::numeric_limits<int>::max()) return 1;
  *pSize = static_cast<int>(largestCache);
  return 0;
}

unsigned zor_set_rc_ssx(unsigned rounding)
{
  const unsigned old = zori::controlWord();
  if ((old & zori::roundingMask) != rounding) zori::setControlWord((old & ~zori::roundingMask) | rounding);
  return old;
}

void zor_set_cw_ssx(unsigned word) { zori::setControlWord(word); }
unsigned zs_get_ssx() { return zori::controlWord(); }
void zs_set_ssx(unsigned value, unsigned mask) { zori::setControlWord((zori::controlWord() & ~mask) | (value & mask)); }
