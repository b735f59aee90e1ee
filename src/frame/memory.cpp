// Aligned blocks over malloc and free.
//
// A block is obtained with 36 bytes more than asked for. The caller's pointer is the first multiple of 32 that lies at
// least 4 bytes (on 64-bit: 16, since malloc aligns to 16) behind the start; the system pointer stands at its full
// width directly in front of it and is the whole header.
//
// Built with ZORI_TESTING the file counts blocks, can make any allocation fail, and guards every block: it is filled
// with 0xa5 or another byte (valgrind takes it for unwritten), a page without access follows it, and the few bytes up
// to that page, left over by the alignment, must still hold their value on release; so must those in front of the
// header.
#include "memory.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

static constexpr std::size_t headroom = 36;

#ifdef ZORI_TESTING
#include <atomic>
#include <cstdio>
#include <new>
#include <sys/mman.h>
#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/asan_interface.h>
#define ZORI_CLOSE(p, bytes) ASAN_POISON_MEMORY_REGION(p, bytes)
#define ZORI_OPEN(p, bytes) ASAN_UNPOISON_MEMORY_REGION(p, bytes)
#else
#define ZORI_CLOSE(p, bytes) (void)0
#define ZORI_OPEN(p, bytes) (void)0
#endif
#if __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#define ZORI_UNWRITTEN(p, bytes) VALGRIND_MAKE_MEM_UNDEFINED(p, bytes)
#else
#define ZORI_UNWRITTEN(p, bytes) (void)0
#endif

static std::atomic<int> allocations{0}, failAt{0}, liveBlocks{0};
static std::atomic<bool> isHeapForAll{false};
static std::atomic<unsigned char> filling{0xa5};

// The n-th allocation from now on fails (1 is the next), all of them where n is negative; 0 switches that off. Returns
// the allocations since the last call.
extern "C" int zoriTestFailAllocationAt(int n)
{
  failAt = n;
  return allocations.exchange(0);
}
extern "C" int zoriTestLiveBlocks() { return liveBlocks; }
// Working memory comes from the heap however little it is, until this is switched off again.
extern "C" void zoriTestUseHeap(int on) { isHeapForAll = on != 0; }
// What new blocks are filled with.
extern "C" void zoriTestFillBlocks(int byte) { filling = static_cast<unsigned char>(byte); }
static bool isStackForbidden() { return isHeapForAll; }

namespace {

// Pages of which the last has no access. Those of a moderate size wait for their next user in lists by the power of
// two of their number.
struct Pages {
  Pages* next;
  int order;
  std::size_t bytes; // with access
};
// What stands in front of a block; the start of it, `raw`, follows.
struct Guard {
  Pages* pages;
  std::size_t bytes; // asked for, behind the alignment
  std::uint64_t mark;
};

constexpr std::size_t page = 4096, alignment = 32, slackOfStart = 16; // as malloc gives it
constexpr int greatestOrder = 11;
constexpr unsigned char slackFilling = 0x5a;
constexpr std::uint64_t guardMark = 0x5ca1ab1e0ddba11u;
constexpr std::size_t wholeFill = std::size_t{1} << 20; // larger blocks are filled at both ends

std::atomic_flag isBusy = ATOMIC_FLAG_INIT;
Pages* waiting[greatestOrder + 1];

struct PoolLock {
  PoolLock()
  {
    while (isBusy.test_and_set(std::memory_order_acquire)) {}
  }
  ~PoolLock() { isBusy.clear(std::memory_order_release); }
};

Pages* pagesFor(std::size_t bytes)
{
  if (bytes > SIZE_MAX / 4) return nullptr;
  std::size_t count = (bytes + page - 1) / page;
  int order = 0;
  while (order <= greatestOrder && count > std::size_t{1} << order) ++order;
  if (order <= greatestOrder) {
    count = std::size_t{1} << order;
    const PoolLock lock;
    if (Pages* const found = waiting[order]) {
      waiting[order] = found->next;
      return found;
    }
  }
  void* const all = mmap(nullptr, (count + 1) * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (all == MAP_FAILED) return nullptr;
  if (mprotect(all, count * page, PROT_READ | PROT_WRITE) != 0) {
    munmap(all, (count + 1) * page);
    return nullptr;
  }
  return new (all) Pages{nullptr, order, count * page};
}

void giveBack(Pages* pages)
{
  if (pages->order > greatestOrder) {
    munmap(static_cast<void*>(pages), pages->bytes + page);
    return;
  }
  const PoolLock lock;
  pages->next = waiting[pages->order];
  waiting[pages->order] = pages;
}

std::size_t roundedUp(std::size_t bytes) { return (bytes + alignment - 1) / alignment * alignment; }

} // namespace

// As malloc, for a caller that takes the first multiple of 32 behind the start and leaves the last 36 bytes alone.
static void* systemBlock(std::size_t bytesWithHeadroom)
{
  ++allocations;
  if (failAt < 0 || (failAt > 0 && --failAt == 0)) return nullptr;
  const std::size_t bytes = bytesWithHeadroom > headroom ? bytesWithHeadroom - headroom : 0;
  constexpr std::size_t front = sizeof(Pages) + sizeof(Guard) + slackOfStart + alignment;
  if (bytes > SIZE_MAX - front - alignment) return nullptr;
  Pages* const pages = pagesFor(roundedUp(bytes) + front);
  if (!pages) return nullptr;
  char* const end = reinterpret_cast<char*>(pages) + pages->bytes;
  char* const block = end - roundedUp(bytes);
  char* const raw = block - slackOfStart;
  const Guard guard = {pages, bytes, guardMark};
  std::memcpy(raw - sizeof guard, &guard, sizeof guard);
  std::memset(raw, filling, slackOfStart);
  if (bytes <= wholeFill) {
    std::memset(block, filling, bytes);
  } else {
    std::memset(block, filling, wholeFill / 2);
    std::memset(block + bytes - wholeFill / 2, filling, wholeFill / 2);
  }
  ZORI_UNWRITTEN(block, bytes);
  std::memset(block + bytes, slackFilling, static_cast<std::size_t>(end - block) - bytes);
  ZORI_CLOSE(block + bytes, static_cast<std::size_t>(end - block) - bytes);
  ++liveBlocks;
  return raw;
}

static void systemFree(void* p)
{
  char* const raw = static_cast<char*>(p);
  Guard guard;
  std::memcpy(&guard, raw - sizeof guard, sizeof guard);
  if (guard.mark != guardMark) {
    std::fprintf(stderr, "a block that is none was released, or something was written in front of one\n");
    std::abort();
  }
  std::memset(raw - sizeof guard, 0, sizeof guard);
  const char* const slack = raw + slackOfStart + guard.bytes;
  const char* const end = reinterpret_cast<const char*>(guard.pages) + guard.pages->bytes;
  ZORI_OPEN(slack, static_cast<std::size_t>(end - slack));
  for (const char* q = slack; q < end; ++q)
    if (static_cast<unsigned char>(*q) != slackFilling) {
      std::fprintf(stderr, "byte %zu of a block of %zu bytes was written\n",
                   static_cast<std::size_t>(q - slack) + guard.bytes, guard.bytes);
      std::abort();
    }
  giveBack(guard.pages);
  --liveBlocks;
}
#else
static void* systemBlock(std::size_t bytes) { return std::malloc(bytes); }
static void systemFree(void* p) { std::free(p); }
static bool isStackForbidden() { return false; }
#endif

namespace zori {

bool mayUseStack() { return !isStackForbidden(); }

void* alignedBlock(std::size_t bytes)
{
  if (bytes < 1 || bytes > SIZE_MAX - headroom) return nullptr;
  void* const raw = systemBlock(bytes + headroom);
  if (!raw) return nullptr;
  const std::uintptr_t aligned = (reinterpret_cast<std::uintptr_t>(raw) + 35) & ~std::uintptr_t(31);
  std::memcpy(reinterpret_cast<void*>(aligned - sizeof raw), &raw, sizeof raw);
  return reinterpret_cast<void*>(aligned);
}

void releaseBlock(void* block)
{
  if (!block) return;
  void* raw;
  std::memcpy(&raw, static_cast<char*>(block) - sizeof raw, sizeof raw);
  systemFree(raw);
}

} // namespace zori
