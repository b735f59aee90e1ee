// Nearest: pixels are moved as bytes, whatever they mean.
#include "resize_windows.h"
#include "rowkernels/drivers.h"

#include <cstring>

namespace zori {
namespace resize {
namespace {

// Outputs first .. count - 1, of pixels of N bytes.
template <int N, int Moved>
inline void copyFrom(std::ptrdiff_t first, const AxisTable& columns, const Zor8u* row, Zor8u* dst)
{
  const std::int32_t* const at = columns.at;
  std::ptrdiff_t i = first;
  if constexpr (N == 1) {
    constexpr int each = sizeof(std::size_t); // loads and one store
    for (; i + each <= columns.count; i += each) {
      const auto pixel = [=](int k) { return static_cast<std::size_t>(row[at[i + k]]) << (8 * k); };
      std::size_t x = (pixel(0) | pixel(1)) | (pixel(2) | pixel(3));
      if constexpr (each == 8) x |= (pixel(each - 4) | pixel(each - 3)) | (pixel(each - 2) | pixel(each - 1));
      put(dst + i, x);
    }
  } else if constexpr (N == 3) { // each pixel's fourth byte is written over by the next
    for (; i + 1 < columns.count; ++i) {
      const Zor8u* const p = row + std::ptrdiff_t{at[i]} * 3;
      put(dst + 3 * i, get<Zor16u>(p) | static_cast<std::uint32_t>(p[2]) << 16);
    }
  }
  for (; i < columns.count; ++i) std::memcpy(dst + i * N, row + std::ptrdiff_t{at[i]} * N, Moved);
}

template <int N, int Moved> [[gnu::noinline]] void copyPixels(const AxisTable& columns, const void* row, void* dst)
{
  copyFrom<N, Moved>(0, columns, static_cast<const Zor8u*>(row), static_cast<Zor8u*>(dst));
}

// Lanes of a vector twice each, the first half of them and the others.
template <class T, int Bytes> inline void doubled(const T* src, Vec<T, Bytes>& low, Vec<T, Bytes>& high)
{
#if ZORI_VECTOR_BYTES == 32
  if constexpr (Bytes == 32 && sizeof(T) <= 2) { // a shuffle each, of 16 bytes that the load brings into both halves
    alignas(32) static constexpr Zor8u bytes[] = {0, 0, 1, 1, 2,  2,  3,  3,  4,  4,  5,  5,  6,  6,  7,  7,
                                                  8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13, 14, 14, 15, 15};
    alignas(32) static constexpr Zor8u words[] = {0, 1, 0, 1, 2,  3,  2,  3,  4,  5,  4,  5,  6,  7,  6,  7,
                                                  8, 9, 8, 9, 10, 11, 10, 11, 12, 13, 12, 13, 14, 15, 14, 15};
    const auto order = loadAligned<Zor8u>(sizeof(T) == 1 ? bytes : words);
    low = as<T>(shuffleBytesLocal(loadInBothHalves<Zor8u>(src), order));
    high = as<T>(shuffleBytesLocal(loadInBothHalves<Zor8u>(src + 16 / sizeof(T)), order));
    return;
  }
#endif
  const auto x = load<T, Bytes>(src);
  low = interleaveLow(x, x);
  high = interleaveHigh(x, x);
}

// Every pixel twice, from whole vectors of Bytes, into one row or two; how many were made.
template <class T, int Bytes, class... D> inline std::ptrdiff_t doubledBy(std::ptrdiff_t pairs, const T* src, D*... dst)
{
  constexpr std::ptrdiff_t lanes = Bytes / int{sizeof(T)};
  const auto block = [=](std::ptrdiff_t i) {
    Vec<T, Bytes> low, high;
    doubled<T, Bytes>(src + i, low, high);
    ((store(dst + 2 * i, low), store(dst + 2 * i + lanes, high)), ...);
  };
  if (pairs < lanes) return 0;
  for (std::ptrdiff_t i = 0; i + lanes <= pairs; i += lanes) block(i);
  if (pairs % lanes != 0) block(pairs - lanes);
  return 2 * pairs;
}

template <class T, class... D> inline void doublePixels(const AxisTable& columns, const void* row, D*... dst)
{
  const T* const src = static_cast<const T*>(row) + columns.at[0];
  const std::ptrdiff_t pairs = columns.count / 2;
  std::ptrdiff_t made = doubledBy<T, vectorBytes>(pairs, src, static_cast<T*>(dst)...);
  if (vectorBytes > 16 && made == 0) made = doubledBy<T, 16>(pairs, src, static_cast<T*>(dst)...);
  (copyFrom<sizeof(T), sizeof(T)>(made, columns, static_cast<const Zor8u*>(row), static_cast<Zor8u*>(dst)), ...);
}

template <class T> [[gnu::noinline]] void doubleRow(const AxisTable& columns, const void* row, void* dst)
{
  const UpperHalvesCleared atTheEnd;
  doublePixels<T>(columns, row, dst);
}
template <class T>
[[gnu::noinline]] void doubleRowTwice(const AxisTable& columns, const void* row, void* first, void* second)
{
  const UpperHalvesCleared atTheEnd;
  doublePixels<T>(columns, row, first, second);
}

bool isDoubling(const AxisTable& columns)
{
  const std::int32_t first = columns.at[0];
  int differences = 0;
  for (int i = 0; i < columns.count; ++i) differences |= (columns.at[i] - first) ^ i / 2;
  return differences == 0;
}

} // namespace

NearestKernel nearestKernel(AxisTable& columns, int pixelBytes, int moved)
{
  if (moved == pixelBytes && isDoubling(columns)) switch (pixelBytes) {
    case 1: return {doubleRow<std::uint8_t>, doubleRowTwice<std::uint8_t>};
    case 2: return {doubleRow<std::uint16_t>, doubleRowTwice<std::uint16_t>};
    case 4: return {doubleRow<std::uint32_t>, doubleRowTwice<std::uint32_t>};
    case 8: return {doubleRow<std::uint64_t>, doubleRowTwice<std::uint64_t>};
    default: break;
    }
#if ZORI_VECTOR_BYTES == 32
  if (moved == pixelBytes && makeCopyWindows(columns, pixelBytes)) switch (pixelBytes) {
    case 1: return {copyWindows<1>};
    case 2: return {copyWindows<2>};
    case 3: return {copyWindows<3>};
    default: return {copyWindows<4>};
    }
#endif
  const auto plain = [=]() -> CopyRow {
    switch (pixelBytes) {
    case 1: return copyPixels<1, 1>;
    case 2: return copyPixels<2, 2>;
    case 3: return copyPixels<3, 3>;
    case 4: return moved == 4 ? copyPixels<4, 4> : copyPixels<4, 3>;
    case 6: return copyPixels<6, 6>;
    case 8: return moved == 8 ? copyPixels<8, 8> : copyPixels<8, 6>;
    case 12: return copyPixels<12, 12>;
    default: return moved == 16 ? copyPixels<16, 16> : copyPixels<16, 12>;
    }
  };
  return {plain()};
}

} // namespace resize
} // namespace zori
