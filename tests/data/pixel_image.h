// Images of pixels of any width that end, or start, at a page without access: for tests of functions that move pixels.
#pragma once

#include "zori/types.h"

#include <cstddef>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace zoritest {

enum class Edge { End, Begin };

class PixelImage {
public:
  PixelImage(ZorImgSize size, int pixelBytes, int padding, Edge edge, unsigned seed)
    : step(size.width * pixelBytes + padding), pixelBytes_(pixelBytes)
  {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t bytes = static_cast<std::size_t>(step) * static_cast<std::size_t>(size.height - 1) +
                              static_cast<std::size_t>(size.width * pixelBytes);
    length_ = (bytes + page - 1) / page * page;
    void* const all = mmap(nullptr, length_ + 2 * page, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    memory_ = static_cast<Zor8u*>(all) + page;
    mprotect(memory_, length_, PROT_READ | PROT_WRITE);
    for (std::size_t i = 0; i < length_; ++i) memory_[i] = static_cast<Zor8u>((seed = seed * 1664525u + 1013904223u) >> 24);
    first_ = edge == Edge::Begin ? 0 : length_ - bytes;
  }
  PixelImage(const PixelImage&) = delete;
  PixelImage& operator=(const PixelImage&) = delete;
  ~PixelImage()
  {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    munmap(memory_ - page, length_ + 2 * page);
  }

  template <class T = Zor8u> T* at(int x, int y) const { return reinterpret_cast<T*>(memory_ + offset(x, y)); }
  // Where a pixel stands in bytes().
  std::size_t offset(int x, int y) const
  {
    return first_ + static_cast<std::size_t>(y) * static_cast<std::size_t>(step) + static_cast<std::size_t>(x * pixelBytes_);
  }
  // Everything within reach of the image, with what lies around it.
  std::vector<Zor8u> bytes() const { return {memory_, memory_ + length_}; }

  int step;

private:
  int pixelBytes_;
  std::size_t length_, first_;
  Zor8u* memory_;
};

} // namespace zoritest
