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
  static constexpr std::ptrdiff_t blockLength = Vec<uint16_t>::size;
  void block(const uint8_t* src, uint16_t* dst) const
  {
    const Vec<uint16_t> x = loadHalfWidened<uint8_t>(src);
    store(dst, x + x);
  }
};
// The sum of a byte and a word; and back to bytes.
struct WidenedSum {
  Group<uint16_t> operator()(const Group<uint8_t>& a, const Group<uint16_t>& b) const
  {
    Group<uint16_t> y;
    for (int k = 0; k < a.parts; ++k) {
      y.part[2 * k] = widenLow(a.part[k]) + b.part[2 * k];
      y.part[2 * k + 1] = widenHigh(a.part[k]) + b.part[2 * k + 1];
    }
    return y;
  }
};
struct Narrowed {
  Group<uint8_t> operator()(const Group<int32_t>& x) const
  {
    Group<uint8_t> y;
    for (int k = 0; k < y.parts; ++k)
      y.part[k] = narrowSat<uint8_t>(narrowSat<int16_t>(x.part[4 * k], x.part[4 * k + 1]),
                                     narrowSat<int16_t>(x.part[4 * k + 2], x.part[4 * k + 3]));
    return y;
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
  const T constant[6] = {3, 50, 7, 99, 21, 64};
  for (int channels : {1, 2, 3, 4, 6}) // 6: three complex channels
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

// Rows of a region: each as if it were alone, at steps that differ, over rows of every length. The last one is its own
// source.
TYPED_TEST(Drivers, RowsOfARegion)
{
  using T = TypeParam;
  constexpr int rows = 3;
  const T constant[3] = {3, 50, 7};
  for (int length = 1; length <= longest; ++length) {
    const int step = length * static_cast<int>(sizeof(T)) + 5, wider = step + 11;
    std::vector<unsigned char> a(static_cast<size_t>(rows * step)), b(static_cast<size_t>(rows * wider));
    for (size_t i = 0; i < a.size(); ++i) a[i] = static_cast<unsigned char>(i * 29 + i / 5);
    for (size_t i = 0; i < b.size(); ++i) b[i] = static_cast<unsigned char>(i * 53 + i / 3);
    const Rows<const T> from{reinterpret_cast<const T*>(a.data()), step};
    const auto check = [&](auto&& call, auto&& expected) {
      std::vector<unsigned char> out = b, wanted = b;
      const Rows<T> to{reinterpret_cast<T*>(out.data()), wider};
      for (int y = 0; y < rows; ++y)
        for (int i = 0; i < length; ++i) {
          const T before = get<T>(b.data() + y * wider + i * static_cast<int>(sizeof(T)));
          put(wanted.data() + y * wider + i * static_cast<int>(sizeof(T)), expected(i, get<T>(from[y] + i), before));
        }
      call(to);
      ASSERT_EQ(out, wanted) << length;
    };
    check([&](Rows<T> to) { mapRows(to, length, rows, Sum{}, from, readOnly(to)); },
          [](int, T x, T before) { return T(x + before); });
    check([&](Rows<T> to) { mapRowsWith(Pattern<T>(constant, 3), to, length, rows, Sum{}, from); },
          [&](int i, T x, T) { return T(x + constant[i % 3]); });
  }
}

TEST(DriversOfGroups, EveryLengthBetweenWidths)
{
  for (int length = 1; length <= longest; ++length)
    for (int offset : {0, 1, 4, 13}) {
      Row<uint8_t> a(offset, length, 1), bytes(offset, length, 4), bytesBefore = bytes;
      Row<uint16_t> b(13 - offset, length, 2), words(offset, length, 3), wordsBefore = words;
      mapGroups(words.data(), length, WidenedSum{}, static_cast<const uint8_t*>(a.data()),
                static_cast<const uint16_t*>(b.data()));
      for (int i = 0; i < length; ++i) ASSERT_EQ(words.at(i), uint16_t(a.at(i) + b.at(i))) << length << ' ' << i;
      ASSERT_TRUE(words.sameOutside(wordsBefore));

      Row<int32_t> numbers(offset, length, 5);
      for (int i = 0; i < length; ++i) put(numbers.data() + i, numbers.at(i) >> 22);
      mapGroups(bytes.data(), length, Narrowed{}, static_cast<const int32_t*>(numbers.data()));
      for (int i = 0; i < length; ++i) ASSERT_EQ(bytes.at(i), std::clamp(numbers.at(i), 0, 255)) << length << ' ' << i;
      ASSERT_TRUE(bytes.sameOutside(bytesBefore));

      if (length % 4 != 0) continue;
      words = wordsBefore;
      mapGroups(words.data(), length, KeepFourth<WidenedSum>{}, static_cast<const uint16_t*>(words.data()),
                static_cast<const uint8_t*>(a.data()), static_cast<const uint16_t*>(b.data()));
      for (int i = 0; i < length; ++i)
        ASSERT_EQ(words.at(i), i % 4 == 3 ? wordsBefore.at(i) : uint16_t(a.at(i) + b.at(i))) << length << ' ' << i;
      ASSERT_TRUE(words.sameOutside(wordsBefore));
    }
}

// A lane that is no element of the row could raise a flag, or a warning.
TEST(ShortRows, HoldNothingButTheRow)
{
  uint8_t row[64];
  for (int bytes = 1; bytes < vectorBytes; ++bytes) {
    std::fill(std::begin(row), std::end(row), uint8_t(0));
    std::fill(row + 16, row + 16 + bytes, uint8_t(7));
    const auto vector = loadShort<uint8_t>(row + 16, static_cast<size_t>(bytes));
    EXPECT_TRUE(isAll(equal(vector, splat<uint8_t>(7)))) << bytes;
    const auto group = loadShortGroup<uint8_t, vectorBytes>(row + 16, bytes, greatestPowerOfTwo(bytes));
    for (const auto& part : group.part) EXPECT_TRUE(isAll(equal(part, splat<uint8_t>(7)))) << bytes;
  }
}

// What has two forms, one across the vector and one within 16 bytes, and what moves or halves whole vectors.
TEST(Shuffles, AcrossTheWholeVector)
{
  uint8_t a[vectorBytes], b[vectorBytes], out[2 * vectorBytes];
  for (int i = 0; i < vectorBytes; ++i) a[i] = uint8_t(i * 37 + 5), b[i] = uint8_t(i * 59 + 77);
  const auto x = load<uint8_t>(a), y = load<uint8_t>(b);
  store(out, interleaveLow(x, y));
  store(out + vectorBytes, interleaveHigh(x, y));
  for (int i = 0; i < vectorBytes; ++i) ASSERT_TRUE(out[2 * i] == a[i] && out[2 * i + 1] == b[i]) << i;

  uint16_t words[vectorBytes];
  store(words, widenLow(x));
  store(words + vectorBytes / 2, widenHigh(x));
  for (int i = 0; i < vectorBytes; ++i) ASSERT_EQ(words[i], a[i]);
  store(out, narrowSat<uint8_t>(as<int16_t>(widenLow(x)), as<int16_t>(widenHigh(x))));
  ASSERT_TRUE(std::equal(a, a + vectorBytes, out));
  store(out, narrowSatLocal<uint8_t>(as<int16_t>(widenLowLocal(x)), as<int16_t>(widenHighLocal(x))));
  ASSERT_TRUE(std::equal(a, a + vectorBytes, out));

  const auto moved = [&](auto up, int n) {
    store(out, up);
    for (int i = 0; i < vectorBytes; ++i)
      ASSERT_EQ(out[i], i - n >= 0 && i - n < vectorBytes ? a[i - n] : 0) << n << ' ' << i;
  };
  moved(bytesUp<1>(x), 1), moved(bytesUp<8>(x), 8), moved(bytesUp<15>(x), 15);
  moved(bytesDown<3>(x), -3), moved(bytesDown<8>(x), -8);
  if constexpr (vectorBytes == 32) moved(bytesUp<16>(x), 16), moved(bytesUp<21>(x), 21), moved(bytesDown<19>(x), -19);

  float f[Vec<float>::size];
  for (int i = 0; i < Vec<float>::size; ++i) f[i] = float(i) + 0.25f;
  const auto floats = load<float>(f);
  store(out, toFloat(toDoubleLow(floats), toDoubleHigh(floats)));
  ASSERT_EQ(std::memcmp(out, f, sizeof f), 0);

  int32_t wide[4][Vec<int32_t>::size];
  for (int i = 0; i < vectorBytes; ++i) wide[i / Vec<int32_t>::size][i % Vec<int32_t>::size] = i * 13 - 90;
  store(out, narrowSatFour<uint8_t>(load<int32_t>(wide[0]), load<int32_t>(wide[1]), load<int32_t>(wide[2]),
                                    load<int32_t>(wide[3])));
  for (int i = 0; i < vectorBytes; ++i) ASSERT_EQ(out[i], std::clamp(i * 13 - 90, 0, 255)) << i;
}

TEST(Shuffles, PairsAndSquaresOfFloats)
{
  constexpr int lanes = Vec<float>::size;
  float f[lanes][lanes], out[2 * lanes];
  for (int i = 0; i < lanes * lanes; ++i) f[i / lanes][i % lanes] = float(i);
  const auto a = load<float>(f[0]), b = load<float>(f[1]), even = evenLanes(a, b), odd = oddLanes(a, b);
  store(out, pairsLow(even, odd));
  store(out + lanes, pairsHigh(even, odd));
  for (int i = 0; i < 2 * lanes; ++i) ASSERT_EQ(out[i], float(i));
  store(out, inOrder(even));
  store(out + lanes, inOrder(odd));
  for (int i = 0; i < lanes; ++i) ASSERT_TRUE(out[i] == float(2 * i) && out[lanes + i] == float(2 * i + 1)) << i;

  Vec<float> square[lanes];
  for (int i = 0; i < lanes; ++i) square[i] = load<float>(f[i]);
  transposeLanes(square);
  for (int i = 0; i < lanes; ++i) {
    store(out, square[i]);
    for (int j = 0; j < lanes; ++j) ASSERT_EQ(out[j], f[j][i]);
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

// Regions beyond the caches are fetched ahead or streamed: the same bytes, and nothing between the rows.
struct Exclusive {
  template <class V> V operator()(V x, V y) const { return x ^ y; }
};

TEST(Drivers, LargeRegions)
{
  const uint8_t three[3] = {1, 20, 255};
  const Pattern<uint8_t> constant(three, 3);
  for (const auto& [length, rows] : {std::pair{1100, 200}, {1600, 16000}, {9000, 30}, {9000, 2900}})
    for (const int offset : {0, 1, 7}) {
      const int step = length + offset + 3;
      const size_t bytes = static_cast<size_t>(step) * static_cast<size_t>(rows) + 64;
      std::vector<uint8_t> a(bytes), b(bytes), images(bytes, 9), patterns(bytes, 9);
      for (size_t i = 0; i < bytes; ++i)
        a[i] = static_cast<uint8_t>(i * 41 + i / 251), b[i] = static_cast<uint8_t>(i * 7 + i / 1021);
      const Rows<const uint8_t> from{a.data() + 2, step}, other{b.data() + offset, step};
      mapRows(Rows<uint8_t>{images.data() + offset, step}, length, rows, Exclusive{}, from, other);
      mapRowsWith(constant, Rows<uint8_t>{patterns.data() + offset, step}, length, rows, Exclusive{}, from);
      size_t wrong = 0;
      for (size_t i = 0; i < bytes; ++i) {
        const auto at = static_cast<ptrdiff_t>(i) - offset, y = at / step, x = at % step;
        const bool inside = at >= 0 && y < rows && x < length;
        const uint8_t source = inside ? from[y][x] : uint8_t{0};
        wrong += images[i] != (inside ? source ^ other[y][x] : 9);
        wrong += patterns[i] != (inside ? source ^ three[x % 3] : 9);
      }
      EXPECT_EQ(wrong, 0u) << length << ' ' << rows << ' ' << offset;
    }
}

template <class T> static void constantsOfEveryPhase(std::initializer_list<int> periods)
{
  const T constants[8] = {3, 1, 4, 15, 9, 2, 6, 5};
  for (const int period : periods) {
    const Pattern<T> pattern(constants, period);
    for (ptrdiff_t i = 0; i < 100; ++i) {
      T lanes[Vec<T>::size];
      store(lanes, pattern.at(i));
      for (int k = 0; k < Vec<T>::size; ++k) ASSERT_EQ(lanes[k], constants[(i + k) % period]) << period << ' ' << i;
    }
  }
}

// Rows whose loops begin anywhere within a pixel, of complex numbers too.
TEST(Pattern, EveryPhase)
{
  constantsOfEveryPhase<uint8_t>({1, 3, 4});
  constantsOfEveryPhase<int16_t>({1, 2, 3, 4, 6, 8});
  constantsOfEveryPhase<int32_t>({1, 2, 3, 4, 6, 8});
  constantsOfEveryPhase<float>({1, 2, 3, 4, 6, 8});
  constantsOfEveryPhase<double>({1, 3, 4});
}

TEST(VectorParts, EveryNumberOfBytes)
{
  constexpr int room = 3 * vectorBytes;
  unsigned char from[room], to[room];
  for (int bytes = 0; bytes < vectorBytes; ++bytes)
    for (int offset = 0; offset < 16; ++offset) {
      for (int i = 0; i < room; ++i) from[i] = static_cast<unsigned char>(i + 1), to[i] = 200;
      storePart(to + offset, loadPart<uint8_t>(from + offset, static_cast<size_t>(bytes)), static_cast<size_t>(bytes));
      for (int i = 0; i < room; ++i)
        ASSERT_EQ(to[i], i >= offset && i < offset + bytes ? from[i] : 200) << bytes << ' ' << i;
    }
}

} // namespace
