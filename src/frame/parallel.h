// The team of threads: the only file with OpenMP pragmas.
//
// A region is entered afresh in each call; nothing survives it and nothing takes a lock. A team of one, a runtime that
// refuses to fork and the child of a fork all run the body in the calling thread. Every thread works under the rounding
// that the call names and else in the calling thread's mode. Results do not depend on the team.
#pragma once

#include "compiler.h"
#include "machine.h"
#include "memory.h"
#include "numeric_mode.h"

#include <atomic>
#include <cstdint>
#include <omp.h>

namespace zori {

// Rows 0 to height - 1 in bands, a contiguous one for each thread: body(first, count).
template <class Body> inline void staticBands(TeamRule team, Rounding rounding, int height, Body body)
{
  const int wanted = team.threads(height);
  if (wanted == 1) return underRounding(rounding, [&] { body(0, height); });
  const unsigned mode = modeFor(rounding);
#pragma omp parallel num_threads(wanted)
  underMode(mode, [&] {
    const int threads = omp_get_num_threads(), t = omp_get_thread_num(), least = height / threads,
              longer = height % threads; // so many bands have a row more
    const int first = t * least + (t < longer ? t : longer), count = least + (t < longer ? 1 : 0);
    if (count > 0) body(first, count);
  });
}

// The same row by row: body(y).
template <class Body> inline void staticRows(TeamRule team, Rounding rounding, int height, Body body)
{
  staticBands(team, rounding, height, [=](int first, int count) {
    for (int y = first; y < first + count; ++y) body(y);
  });
}

// A thread's share of the work: units first .. first + count - 1, and its slice of the team's buffer.
struct Slab {
  int first, count;
  int thread, threads;
  Zor8u* buffer; // bytesPerThread, aligned to 32; null when none was asked for
};

// A slab buffer of one thread of up to so many bytes costs nothing.
struct SlabMemory {
  static constexpr int onStack = 4096;
};

// The first non-zero status in thread order.
class TeamStatus {
public:
  void report(int thread, ZorStatus status)
  {
    if (status == ZorOk) return;
    // thread order above, status below: the least word wins
    const std::uint32_t word = static_cast<std::uint32_t>(thread) << 16 | static_cast<std::uint16_t>(status);
    std::uint32_t seen = first_.load(std::memory_order_relaxed);
    while (word < seen && !first_.compare_exchange_weak(seen, word, std::memory_order_relaxed)) {}
  }
  ZorStatus status() const
  {
    const std::uint32_t word = first_.load(std::memory_order_relaxed);
    return word == none ? ZorOk : static_cast<ZorStatus>(static_cast<std::int16_t>(word & 0xffff));
  }

private:
  static constexpr std::uint32_t none = 0xffffffffu;
  std::atomic<std::uint32_t> first_{none};
};

// Units 0 to units - 1 (mostly rows) in slabs of units / threads, the last thread taking the whole rest.
// One buffer serves the team, a slice of bytesPerThread each; ZorErrAlloc when it cannot be had, before any work.
// The body gets its Slab (of no units too: it may have a share of another kind) and returns a status.
template <class Body>
inline ZorStatus masterSlabs(TeamRule rule, Rounding rounding, int units, std::size_t bytesPerThread, Body body)
{
  if (bytesPerThread > PTRDIFF_MAX / 2) return ZorErrAlloc;
  const std::size_t slice = roundUp(bytesPerThread, 64);
  const int wanted = rule.threads(units);
  if (wanted == 1) {
    SmallScratch<Zor8u, SlabMemory::onStack> buffer(static_cast<long long>(bytesPerThread));
    if (bytesPerThread && !buffer) return ZorErrAlloc;
    const Slab all{0, units, 0, 1, bytesPerThread ? buffer.get() : nullptr};
    return underRounding(rounding, [&] { return body(all); });
  }

  const unsigned mode = modeFor(rounding);
  Zor8u* teamBuffer = nullptr;
  bool failed = false;
  int threads = 1, slabUnits = 0, slabRest = 0;
  TeamStatus team;
#pragma omp parallel num_threads(wanted)
  {
#pragma omp master
    {
      threads = omp_get_num_threads();
      slabUnits = units / threads;
      slabRest = units % threads;
      if (slice) {
        const std::size_t others = static_cast<std::size_t>(threads) - 1;
        teamBuffer = Scratch<Zor8u>(static_cast<long long>(slice * others + bytesPerThread)).release();
        failed = !teamBuffer;
      }
    }
#pragma omp barrier
    if (!failed) {
      const int t = omp_get_thread_num();
      const int count = slabUnits + (t == threads - 1 ? slabRest : 0);
      const Slab slab{t * slabUnits, count, t, threads, slice ? teamBuffer + slice * t : nullptr};
      team.report(t, underMode(mode, [&] { return body(slab); }));
    }
  }
  releaseBlock(teamBuffer);
  return failed ? ZorErrAlloc : team.status();
}

} // namespace zori
