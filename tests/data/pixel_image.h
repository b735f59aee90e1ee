// Images of pixels of any width that end, or start, at a page without access: for tests of functions that move pixels.
#pragma once

#include "support/guarded_block.h"
#include "support/numbers.h"
#include "zori/types.h"

#include <cstddef>
#include <cstring>
#include <vector>

namespace zoritest {

enum class Edge { End, Begin };

class PixelImage {
public:
  PixelImage(ZorImgSize size, int pixelBytes, int padding, Edge edge, unsigned seed)
    : step(size.width * pixelBytes + padding), pixelBytes_(pixelBytes),
      bytes_(static_cast<std::size_t>(step) * static_cast<std::size_t>(size.height - 1) +
             static_cast<std::size_t>(size.width * pixelBytes)),
      block_(bytes_), first_(edge == Edge::Begin ? 0 : block_.size() - bytes_)
  {
    for (Zor8u& byte : block_) byte = static_cast<Zor8u>(zoritest::nextNoise(seed) >> 24);
  }

  template <class T = Zor8u> T* at(int x, int y) const { return reinterpret_cast<T*>(block_.begin() + offset(x, y)); }
  // Where a pixel stands in bytes().
  std::size_t offset(int x, int y) const
  {
    return first_ + static_cast<std::size_t>(y) * static_cast<std::size_t>(step) +
           static_cast<std::size_t>(x * pixelBytes_);
  }
  // Everything within reach of the image, with what lies around it.
  std::vector<Zor8u> bytes() const { return {block_.begin(), block_.end()}; }

  int step;

private:
  int pixelBytes_;
  std::size_t bytes_;
  GuardedBlock block_;
  std::size_t first_;
};

} // namespace zoritest
