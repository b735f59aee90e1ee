// Palettes against a plain loop; tables that end where no page follows.
#include "support/numbers.h"
#include "zori/point.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

// Tables whose last byte is the last of its page.
class TableAtPageEnd {
public:
  explicit TableAtPageEnd(const std::vector<Zor8u>& bytes)
  {
    const auto page = static_cast<size_t>(getpagesize());
    size_ = (bytes.size() + page - 1) / page * page + page;
    memory_ = static_cast<Zor8u*>(mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(memory_ + size_ - page, page, PROT_NONE);
    first_ = memory_ + size_ - page - bytes.size();
    std::memcpy(first_, bytes.data(), bytes.size());
  }
  TableAtPageEnd(const TableAtPageEnd&) = delete;
  ~TableAtPageEnd() { munmap(memory_, size_); }
  template <class T> const T* as() const { return reinterpret_cast<const T*>(first_); }

private:
  size_t size_;
  Zor8u *memory_, *first_;
};

struct Form {
  int srcBytes, srcChannels, entryBytes, dstChannels, place[3], alphaAt; // bytes of a sample and of an entry
  int tables() const { return srcChannels == 1 ? 1 : 3; }
};
constexpr Form one(int srcBytes, int entryBytes) { return {srcBytes, 1, entryBytes, 1, {0, 0, 0}, -1}; }

using Bytes = std::vector<Zor8u>;
template <class T> T* as(Bytes& b) { return reinterpret_cast<T*>(b.data() + 1); } // an odd address
struct Images {
  Bytes src, dst;
  int srcStep, dstStep;
};
using Call = std::function<ZorStatus(Images&, ZorImgSize, const TableAtPageEnd* const*, int alpha, int bits)>;

Zor32u sampleAt(const Bytes& b, size_t at, int bytes)
{
  Zor32u x = 0;
  std::memcpy(&x, &b[at], static_cast<size_t>(bytes));
  return x;
}

// Tables hold no more entries than the samples' low bits call for.
void check(const Form& form, const Call& call)
{
  unsigned seed = 11;
  const auto random = [&] { return zoritest::nextNoise(seed) >> 11; };
  for (int bits = 1; bits <= 8 * form.srcBytes; ++bits)
    for (int alpha : {-1, 0, 77, 255, 256, 65535, 65536})
      for (ZorImgSize roi : {ZorImgSize{1, 1}, ZorImgSize{5, 2}, ZorImgSize{33, 3}}) {
        if (form.alphaAt < 0 && alpha != 77) continue;
        const int srcRow = roi.width * form.srcChannels, dstRow = roi.width * form.dstChannels * form.entryBytes;
        Images images{{}, {}, srcRow * form.srcBytes + 3, dstRow + 5};
        images.src.resize(static_cast<size_t>(images.srcStep * roi.height) + 1);
        images.dst.resize(static_cast<size_t>(images.dstStep * roi.height) + 1);
        for (auto& v : images.src) v = static_cast<Zor8u>(random());
        for (auto& v : images.dst) v = static_cast<Zor8u>(random());

        const Zor32u mask = (1u << bits) - 1;
        const auto index = [&](int y, int i) {
          return sampleAt(images.src, static_cast<size_t>(1 + y * images.srcStep + i * form.srcBytes), form.srcBytes) &
                 mask;
        };
        Bytes contents[3];
        std::vector<std::unique_ptr<TableAtPageEnd>> tables;
        const TableAtPageEnd* pointers[3] = {};
        for (int t = 0; t < form.tables(); ++t) {
          Zor32u largest = 0;
          for (int y = 0; y < roi.height; ++y)
            for (int i = 0; i < srcRow; ++i)
              if (form.tables() == 1 || i % form.srcChannels == t) largest = std::max(largest, index(y, i));
          contents[t].resize((largest + 1) * static_cast<size_t>(form.entryBytes));
          for (auto& v : contents[t]) v = static_cast<Zor8u>(random());
          tables.push_back(std::make_unique<TableAtPageEnd>(contents[t]));
          pointers[t] = tables.back().get();
        }

        Bytes expected = images.dst;
        const auto size = static_cast<size_t>(form.entryBytes);
        for (int y = 0; y < roi.height; ++y)
          for (int x = 0; x < roi.width; ++x) {
            const size_t pixel =
              static_cast<size_t>(1 + y * images.dstStep) + static_cast<size_t>(x * form.dstChannels) * size;
            for (int t = 0; t < form.tables(); ++t)
              std::memcpy(&expected[pixel + static_cast<size_t>(form.place[t]) * size],
                          &contents[t][index(y, x * form.srcChannels + t) * size], size);
            if (form.alphaAt >= 0 && alpha >= 0 && alpha < 1 << 8 * form.entryBytes)
              std::memcpy(&expected[pixel + static_cast<size_t>(form.alphaAt) * size], &alpha, size);
          }
        ASSERT_EQ(call(images, roi, pointers, alpha, bits), ZorOk);
        ASSERT_TRUE(images.dst == expected) << bits << " bits, alpha " << alpha << ", width " << roi.width;
      }
}

#define CALL_ONE(types, S, D)                                                                                          \
  [](Images& i, ZorImgSize roi, const TableAtPageEnd* const* t, int, int bits) {                                       \
    return zoriLUTPalette_##types##_C1R(as<Zor##S>(i.src), i.srcStep, as<Zor##D>(i.dst), i.dstStep, roi,               \
                                        t[0]->as<Zor##D>(), bits);                                                     \
  }
#define CALL_THREE(name, type, layout, ...)                                                                            \
  [](Images& i, ZorImgSize roi, const TableAtPageEnd* const* t, int alpha, int bits) {                                 \
    (void)alpha;                                                                                                       \
    const Zor##type* tables[3] = {t[0]->as<Zor##type>(), t[1]->as<Zor##type>(), t[2]->as<Zor##type>()};                \
    return name##_##type##_##layout##R(as<Zor##type>(i.src), i.srcStep __VA_ARGS__, as<Zor##type>(i.dst), i.dstStep,   \
                                       roi, tables, bits);                                                             \
  }

TEST(Palette, OneTable)
{
  check(one(1, 1), CALL_ONE(8u, 8u, 8u));
  check(one(2, 2), CALL_ONE(16u, 16u, 16u));
  check(one(2, 1), CALL_ONE(16u8u, 16u, 8u));
  check(one(1, 3), CALL_ONE(8u24u, 8u, 8u));
  check(one(1, 4), CALL_ONE(8u32u, 8u, 32u));
  check(one(2, 3), CALL_ONE(16u24u, 16u, 8u));
  check(one(2, 4), CALL_ONE(16u32u, 16u, 32u));
}

TEST(Palette, ThreeTables)
{
  check({1, 3, 1, 3, {0, 1, 2}, -1}, CALL_THREE(zoriLUTPalette, 8u, C3));
  check({2, 3, 2, 3, {0, 1, 2}, -1}, CALL_THREE(zoriLUTPalette, 16u, C3));
  check({1, 4, 1, 4, {0, 1, 2}, -1}, CALL_THREE(zoriLUTPalette, 8u, AC4));
  check({2, 4, 2, 4, {0, 1, 2}, -1}, CALL_THREE(zoriLUTPalette, 16u, AC4));
}

TEST(Palette, AlphaFirstAndLast)
{
  check({1, 3, 1, 4, {1, 2, 3}, 0}, CALL_THREE(zoriLUTPalette, 8u, C3A0C4, , alpha));
  check({2, 3, 2, 4, {1, 2, 3}, 0}, CALL_THREE(zoriLUTPalette, 16u, C3A0C4, , alpha));
  check({1, 3, 1, 4, {2, 1, 0}, 3}, CALL_THREE(zoriLUTPaletteSwap, 8u, C3A0C4, , alpha));
}

TEST(Palette, ChecksInTheirOrder)
{
  Zor8u src[3] = {}, dst[4] = {9, 9, 9, 9}, table[256] = {5};
  const Zor8u* tables[3] = {table, table, nullptr};
  EXPECT_EQ(zoriLUTPalette_8u_C3R(src, 0, dst, 0, {0, 1}, nullptr, 9), ZorErrNullPtr);
  EXPECT_EQ(zoriLUTPalette_8u_C3R(src, 0, dst, 0, {0, 1}, tables, 9), ZorErrSize);
  EXPECT_EQ(zoriLUTPalette_8u_C3R(src, 0, dst, 0, {1, 1}, tables, 9), ZorErrNullPtr);
  EXPECT_EQ(zoriLUTPaletteSwap_8u_C3A0C4R(src, 0, 0, dst, 0, {1, 1}, tables, 9), ZorErrNullPtr);
  tables[2] = table;
  EXPECT_EQ(zoriLUTPalette_8u_C3R(src, 0, dst, 0, {1, 1}, tables, 9), ZorErrBitSize);
  EXPECT_EQ(zoriLUTPalette_8u_C1R(src, 0, dst, 0, {1, 1}, table, 0), ZorErrBitSize);
  EXPECT_EQ(zoriLUTPalette_16u8u_C1R(reinterpret_cast<Zor16u*>(src), 0, dst, 0, {1, 1}, table, 17), ZorErrBitSize);
  EXPECT_EQ(dst[0], 9);
  EXPECT_EQ(zoriLUTPalette_8u_C1R(src, 0, dst, 0, {1, 7}, table, 8), ZorOk); // steps are free
  EXPECT_EQ(dst[0], 5);
  EXPECT_EQ(zoriLUTPalette_8u_C1R(src + 2, -1, dst + 3, -1, {1, 3}, table, 8), ZorOk);
  EXPECT_EQ(dst[1], 5);
}

} // namespace
