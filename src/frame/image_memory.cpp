// zoriMalloc_{8u,16u,16s,32s,32f,32sc,32fc}_{C1,C2,C3,C4,AC4}, zoriFree: images whose rows all start on 32 bytes.
//
// step = width * pixelBytes rounded up to 32; all sizes are formed in 32 bits and wrap; from 2^31 bytes on there
// is no image.
#include "layout.h"
#include "memory.h"
#include "zori/core.h"

#include <cstdint>

namespace zori {

template <class T, Layout L> static T* imageBlock(int width, int height, int* pStepBytes)
{
  if (!pStepBytes) return nullptr;
  if (width < 1 || height < 1) {
    *pStepBytes = 0;
    return nullptr;
  }
  constexpr std::uint32_t pixelBytes = sizeof(T) * channels<L>;
  const std::uint32_t step = (static_cast<std::uint32_t>(width) * pixelBytes + 31u) & ~31u;
  *pStepBytes = static_cast<int>(step);
  const std::int32_t bytes = static_cast<std::int32_t>(step * static_cast<std::uint32_t>(height));
  return bytes < 1 ? nullptr : static_cast<T*>(alignedBlock(static_cast<std::size_t>(bytes)));
}

} // namespace zori

using namespace zori;

void zoriFree(void* pBlock) { releaseBlock(pBlock); }

// clang-format off
#define STAMP(type, layout) \
  Zor##type* zoriMalloc_##type##_##layout(int width, int height, int* pStepBytes) \
  { return imageBlock<Zor##type, layout>(width, height, pStepBytes); }
#define STAMPS(type) STAMP(type, C1) STAMP(type, C2) STAMP(type, C3) STAMP(type, C4) STAMP(type, AC4)
STAMPS(8u) STAMPS(16u) STAMPS(16s) STAMPS(32s) STAMPS(32f) STAMPS(32sc) STAMPS(32fc)
#undef STAMPS
#undef STAMP
