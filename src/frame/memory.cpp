// Aligned blocks over malloc and free.
//
// A block is obtained with 36 bytes more than asked for. The caller's pointer is the first multiple of 32 that lies at
// least 4 bytes (on 64-bit: 16, since malloc aligns to 16) behind the start; the system pointer stands at its full
// width directly in front of it and is the whole header.
//
// Built with ZORI_TESTING the file counts blocks and can make any allocation fail.
#include "memory.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

#ifdef ZORI_TESTING
#include <atomic>

static std::atomic<int> allocations{0}, failAt{0}, liveBlocks{0};

// The n-th allocation from now on fails (1 is the next); n <= 0 switches that off. Returns the allocations since the
// last call.
extern "C" int zoriTestFailAllocationAt(int n)
{
  failAt = n;
  return allocations.exchange(0);
}
extern "C" int zoriTestLiveBlocks() { return liveBlocks; }

static void* systemBlock(std::size_t bytes)
{
  ++allocations;
  if (failAt > 0 && --failAt == 0) return nullptr;
  void* p = std::malloc(bytes);
  if (p) ++liveBlocks;
  return p;
}
static void systemFree(void* p)
{
  --liveBlocks;
  std::free(p);
}
#else
static void* systemBlock(std::size_t bytes) { return std::malloc(bytes); }
static void systemFree(void* p) { std::free(p); }
#endif

namespace zori {

void* alignedBlock(std::size_t bytes)
{
  constexpr std::size_t headroom = 36;
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
