// The row drivers: every length and every alignment, in place and not, nothing outside the row.
#include "rowkernels/drivers.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using namespace zori;

namespace {

constexpr int longest = 150, margin = 32;

// A row inside a buffer that is checked around the row.
template <class T> struct Row {
  std::vector<unsigned char> bytes;
  int offset, length;
  Row(int offset_, int length_, int seed)
    : bytes((longest + 8) * sizeof(T) + 2 * margin), offset(margin + offset_), length(length_)
  {
    for (size_t i = 0; i < bytes.size(); ++i)
      bytes[i] = static_cast<unsigned char>(i * 37 + static_cast<size_t>(seed) * 101 + i / 7);
  }
  T* data() { return reinterpret_cast<T*>(bytes.data() + offset); }
  T at(int i) { return get<T>(bytes.data() + offset + i * static_cast<int>(sizeof(T))); }
  bool sameOutside(const Row& other) const
  {
    const auto end = offset + length * static_cast<int>(sizeof(T));
    return std::equal(bytes.begin(), bytes.begin() + offset, other.bytes.begin()) &&
           std::equal(bytes.begin() + end, bytes.end(), other.bytes.begin() + end);
  }
};

struct Sum {
  template <class T> Vec<T> operator()(Vec<T> a, Vec<T> b) const { return a + b; }
};
struct Negative {
  template <class T> Vec<T> operator()(Vec<T> a) const { return zero<T>() - a; }
};
struct WidenTwice {
  static constexpr std::ptrdiff_t blockLength = 8;
  void block(const uint8_t* src, uint16_t* dst) const
  {
    const Vec<uint16_t> x = widenLow(loadLow8<uint8_t>(src));
    store(dst, x + x);
  }
};

template <class T> class Drivers : public testing::Test {};
using Elements = testing::Types<uint8_t, uint16_t, int32_t>;
TYPED_TEST_SUITE(Drivers, Elements);

TYPED_TEST(Drivers, MapRowAtAllLengthsAndAlignments)
{
  using T = TypeParam;
  for (int length = 1; length <= longest; ++length)
    for (int offset : {0, 1, 2, 3, 4, 8, 13, 16}) {
      Row<T> a(offset, length, 1), b(16 - offset, length, 2), dst(offset * 5 % 16, length, 3);
      Row<T> before = dst;
      mapRow(dst.data(), length, Sum{}, a.data(), b.data());
      for (int i = 0; i < length; ++i)
        ASSERT_EQ(dst.at(i), T(a.at(i) + b.at(i))) << length << ' ' << offset << ' ' << i;
      ASSERT_TRUE(dst.sameOutside(before));

      Row<T> inPlace = a;
      mapRow(inPlace.data(), length, Negative{}, static_cast<const T*>(inPlace.data()));
      for (int i = 0; i < length; ++i) ASSERT_EQ(inPlace.at(i), T(-a.at(i)));
      ASSERT_TRUE(inPlace.sameOutside(a));
    }
}

TYPED_TEST(Drivers, PatternsAndTheFourthChannel)
{
  using T = TypeParam;
  const T constant[4] = {3, 50, 7, 99};
  for (int channels : {1, 2, 3, 4})
    for (int length = channels; length <= longest; length += channels)
      for (int offset : {0, 1, 4, 13}) {
        Row<T> a(offset, length, 1), dst(13 - offset, length, 3);
        Row<T> before = dst;
        const Pattern<T> pattern(constant, channels);
        mapRowWith(pattern, dst.data(), length, Sum{}, static_cast<const T*>(a.data()));
        for (int i = 0; i < length; ++i)
          ASSERT_EQ(dst.at(i), T(a.at(i) + constant[i % channels])) << length << ' ' << i;
        ASSERT_TRUE(dst.sameOutside(before));
        if (channels == 4) {
          dst = before;
          mapRow(dst.data(), length, KeepFourth<Negative>{}, static_cast<const T*>(dst.data()),
                 static_cast<const T*>(a.data()));
          for (int i = 0; i < length; ++i) ASSERT_EQ(dst.at(i), i % 4 == 3 ? before.at(i) : T(-a.at(i)));
          ASSERT_TRUE(dst.sameOutside(before));
        }
      }
}

TEST(DriversOfBlocks, OverlapAtTheEnd)
{
  for (int length = 1; length <= longest; ++length)
    for (int offset : {0, 1, 7}) {
      Row<uint8_t> a(offset, length, 1);
      Row<uint16_t> dst(offset, length, 2), before = dst;
      mapBlocks(dst.data(), length, WidenTwice{}, static_cast<const uint8_t*>(a.data()));
      for (int i = 0; i < length; ++i) ASSERT_EQ(dst.at(i), a.at(i) * 2);
      ASSERT_TRUE(dst.sameOutside(before));
    }
}

TEST(VectorParts, EveryNumberOfBytes)
{
  unsigned char from[48], to[48];
  for (int bytes = 0; bytes < 16; ++bytes)
    for (int offset = 0; offset < 16; ++offset) {
      for (int i = 0; i < 48; ++i) from[i] = static_cast<unsigned char>(i + 1), to[i] = 200;
      storePart(to + offset, loadPart<uint8_t>(from + offset, static_cast<size_t>(bytes)), static_cast<size_t>(bytes));
      for (int i = 0; i < 48; ++i)
        ASSERT_EQ(to[i], i >= offset && i < offset + bytes ? from[i] : 200) << bytes << ' ' << i;
    }
}

} // namespace
