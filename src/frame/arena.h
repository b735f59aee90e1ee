// One block of working memory cut into aligned parts, with all sizes formed in one place.
//
//   BlockPlan plan;
//   const auto sums = plan.add<float>(width + 8LL), rows = plan.add<Zor8u>(5LL * pitch);
//   Scratch<Zor8u> block(plan.bytes());
//   if (!block) return ZorErrAlloc;
//   float* const s = sums.in(block.get());
//
// A plan whose size does not fit the address space has more bytes than any allocation gets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>

namespace zori {

// Elements of a block, by their distance from its start; they fit whatever address width made the plan.
template <class T> struct BlockPart {
  long long offset = 0, count = 0;

  T* in(void* block) const { return reinterpret_cast<T*>(static_cast<char*>(block) + offset); }
  const T* in(const void* block) const { return reinterpret_cast<const T*>(static_cast<const char*>(block) + offset); }
};

class BlockPlan {
public:
  static constexpr long long impossible = std::numeric_limits<long long>::max();

  // Starts behind `head` bytes that hold something else.
  explicit BlockPlan(long long head = 0) : bytes_(head) {}

  // The next part: count elements from a multiple of `alignment` bytes (a power of two) on.
  template <class T> BlockPart<T> add(long long count, int alignment = 32)
  {
    if (count < 0 || bytes_ > most) return fail<T>();
    const long long offset = (bytes_ + alignment - 1) & -static_cast<long long>(alignment);
    if (count > (most - offset) / static_cast<long long>(sizeof(T))) return fail<T>();
    bytes_ = offset + count * static_cast<long long>(sizeof(T));
    return {offset, count};
  }

  // Of all parts so far.
  long long bytes() const { return bytes_; }
  bool isImpossible() const { return bytes_ > most; }

private:
  static constexpr long long most = std::numeric_limits<std::ptrdiff_t>::max() / 2;

  template <class T> BlockPart<T> fail()
  {
    bytes_ = impossible;
    return {};
  }

  long long bytes_;
};

} // namespace zori
