// The kernels of square windows, one a side and width of sample.
#include "median_square.h"

#include "median_tiles.h"
#include "sorted_columns.h"

namespace zori {
namespace median {
namespace {

// Columns where they are faster: tiles first part even and odd pixels, which costs most where pixels have three
// channels, and fill vectors with half as many of them.
template <class T, int Side>
inline void filterSquare(Rows<const T> src, Rows<T> dst, ZorImgSize roi, int channels, bool keepFourth, T flippedBits,
                         TeamRule team)
{
  if constexpr (Side <= 5) {
    const bool isNarrow = std::ptrdiff_t{roi.width} * channels * static_cast<int>(sizeof(T)) < 64;
    if (Side == 3 || channels == 3 || isNarrow)
      return columns::filterSquare<T, Side>(src, dst, roi, channels, keepFourth, flippedBits, team);
  }
  if constexpr (Side >= 5) tiles::filterSquare<T, Side>(src, dst, roi, channels, keepFourth, flippedBits, team);
}

} // namespace

template <int Side>
void squareOfBytes(Rows<const uint8_t> src, Rows<uint8_t> dst, ZorImgSize roi, int channels, bool keepFourth,
                   TeamRule team)
{
  filterSquare<uint8_t, Side>(src, dst, roi, channels, keepFourth, 0, team);
}

template <int Side>
void squareOfWords(Rows<const int16_t> src, Rows<int16_t> dst, ZorImgSize roi, int channels, bool keepFourth,
                   bool isUnsigned)
{
  const int16_t flipped = isUnsigned ? INT16_MIN : 0;
  filterSquare<int16_t, Side>(src, dst, roi, channels, keepFourth, flipped, TeamRule::alone());
}

// clang-format off
#define SIDE(side)                                                                                                     \
  template void squareOfBytes<side>(Rows<const uint8_t>, Rows<uint8_t>, ZorImgSize, int, bool, TeamRule);              \
  template void squareOfWords<side>(Rows<const int16_t>, Rows<int16_t>, ZorImgSize, int, bool, bool);
SIDE(3) SIDE(5) SIDE(7) SIDE(9) SIDE(11) SIDE(13) SIDE(15)
#undef SIDE

} // namespace median
} // namespace zori
