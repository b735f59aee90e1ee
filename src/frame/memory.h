// Aligned blocks. Every working buffer of the library comes from here and is owned by a Scratch while a call lasts.
#pragma once

#include "zori/types.h"

#include <cstddef>
#include <utility>

namespace zori {

// A block of `bytes` bytes on a 32-byte boundary, null when there is none (or none was asked for).
void* alignedBlock(std::size_t bytes);
void releaseBlock(void* block);

// Owns `length` elements of working memory; false when they could not be had. Sizes are full width: a length that
// does not fit the address space counts as a failure.
template <class T> class Scratch {
public:
  explicit Scratch(long long length) : p_(nullptr)
  {
    if (length > 0 && static_cast<unsigned long long>(length) <= static_cast<std::size_t>(-1) / 2 / sizeof(T))
      p_ = static_cast<T*>(alignedBlock(static_cast<std::size_t>(length) * sizeof(T)));
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() { releaseBlock(p_); }

  explicit operator bool() const { return p_ != nullptr; }
  T* get() const { return p_; }
  T& operator[](std::ptrdiff_t i) const { return p_[i]; }
  T* release() { return std::exchange(p_, nullptr); }

private:
  T* p_;
};

// True when working memory may lie on the stack; the tests say no, so that all of it is guarded.
bool mayUseStack();

// The same for what is mostly little: up to `most` elements lie in the object itself, since small regions feel the
// price of the heap.
template <class T, int most> class SmallScratch {
public:
  explicit SmallScratch(long long length)
    : isWithin_(length < 1 || (length <= most && mayUseStack())), heap_(isWithin_ ? 0 : length)
  {}
  explicit operator bool() const { return isWithin_ || heap_; }
  T* get() { return isWithin_ ? within_ : heap_.get(); }
  const T* get() const { return isWithin_ ? within_ : heap_.get(); }

private:
  bool isWithin_;
  Scratch<T> heap_;
  alignas(64) T within_[most];
};

inline std::size_t roundUp(std::size_t bytes, std::size_t unit) { return (bytes + unit - 1) / unit * unit; }

} // namespace zori
