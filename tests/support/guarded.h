// Images and arrays in memory that ends, or starts, at a page without access.
#pragma once

#include "function_table.h"
#include "guarded_block.h"

#include <cstddef>
#include <memory>

namespace zoritest {

// Whole pages between two pages without access, a quarter more than asked for at most. Blocks are kept for the next
// user of the same size.
class Arena {
public:
  explicit Arena(std::size_t bytes);
  ~Arena();
  Arena(const Arena&) = delete;
  Arena& operator=(const Arena&) = delete;
  unsigned char* begin() const { return block_->begin(); }
  unsigned char* end() const { return block_->end(); }

private:
  std::unique_ptr<GuardedBlock> block_;
};

// Bytes that somebody else chose, as the engine of a fuzz test does.
class Bytes {
public:
  Bytes(const unsigned char* data, std::size_t size) : at_(data), end_(data + size) {}
  std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }
  int byte() { return at_ < end_ ? *at_++ : 0; }
  std::uint32_t word()
  {
    std::uint32_t word = 0;
    for (int shift = 0; shift < 32; shift += 8) word |= static_cast<std::uint32_t>(byte()) << shift;
    return word;
  }

private:
  const unsigned char *at_, *end_;
};

// A fast sequence of numbers that depends on the seed alone, behind those that are made of given bytes.
class Random {
public:
  explicit Random(std::uint64_t seed, Bytes* bytes = nullptr) : state_((seed + 1) * 0x9E3779B97F4A7C15u), bytes_(bytes)
  {
    step();
  }
  std::uint32_t next()
  {
    if (bytes_ && bytes_->left()) return bytes_->word();
    step();
    return static_cast<std::uint32_t>(state_ >> 32);
  }
  std::uint64_t next64() // of the seed alone
  {
    step();
    return state_ * 0x2545F4914F6CDD1Du;
  }
  int below(int n)
  {
    if (n <= 256 && bytes_ && bytes_->left()) return bytes_->byte() % n;
    return static_cast<int>(next() % static_cast<std::uint32_t>(n));
  }

private:
  void step() { state_ ^= state_ << 13, state_ ^= state_ >> 7, state_ ^= state_ << 17; }
  std::uint64_t state_;
  Bytes* bytes_;
};

int elementBytes(Element element);

// Stores a number as an element.
void putNumber(unsigned char* p, Element element, double number);

// Where the data lies in its pages: up to the last byte, from the first byte on, or with room on both sides.
enum class Placement { End, Begin, Middle };

// What random elements are drawn from: all values (floating ones finite, of moderate size, with all bits of their
// fraction in use), the same with special numbers among the floating ones, or all bit patterns.
enum class Fill { Ordinary, Special, AnyBits };

class GuardedImage {
public:
  struct Shape {
    Memory memory;
    int width = 1, height = 1; // in pixels, without the margins
    int left = 0, top = 0, right = 0, bottom = 0;
    int stepPadding = 0; // bytes behind each row
    int step = 0;        // in place of one that follows from the row and its padding
    int bitOffset = 0;   // of packed bits
    Placement placement = Placement::End;
    int offset = 0; // bytes by which the data is moved off its place in the middle
  };

  explicit GuardedImage(const Shape& shape);

  void* pointer(); // what the function wants: the first pixel of the region, or the array of planes
  void** planes() { return planes_.data(); }
  int step() const { return step_; }
  int rowBytes() const { return static_cast<int>(writable_.size()); }

  // The samples of the region and its margins, from the first.
  const Memory& memory() const { return memory_; }
  int columns() const { return columns_; }
  int rows() const { return rows_; }
  int sampleBytes() const { return pixelBytes_ / memory_.channels; }
  unsigned char* sample(int plane, int y, int x, int channel) const
  {
    return row(static_cast<std::size_t>(plane), y) + static_cast<std::ptrdiff_t>(x) * pixelBytes_ +
           channel * sampleBytes();
  }

  // Fills every pixel with values that depend on the seed alone, and all bytes around them.
  void fill(std::uint64_t seed, Fill kind);
  // Fills the rows with the given bytes in turn.
  void fillRows(const std::vector<unsigned char>& pattern);
  // Fills the samples with the given numbers in turn.
  void fill(Span<double> numbers);

  // The bytes of all pixels that a function may write, row by row.
  std::vector<unsigned char> pixels() const;

  // All bytes (around rows that lie far apart, those near them); what changed in them since, told in words, or "".
  // Outside: only bytes that no function may write.
  using Snapshot = std::vector<std::vector<unsigned char>>;
  Snapshot snapshot() const;
  std::string changes(const Snapshot& before, bool outsideOnly) const;

private:
  template <class Visit> void forEachRow(Visit visit) const;
  unsigned char* row(std::size_t plane, int y) const { return first_[plane] + static_cast<std::ptrdiff_t>(y) * step_; }

  Memory memory_;
  int columns_, rows_, pixelBytes_, step_;
  int firstWritten_, endWritten_;       // rows that a function may write
  std::vector<unsigned char> writable_; // for each byte of a row: the bits that a function may write
  std::vector<std::unique_ptr<Arena>> arenas_;
  struct Piece {
    std::size_t plane;
    unsigned char *begin, *end;
  };
  std::vector<Piece> pieces_;         // what is filled and watched
  std::vector<unsigned char*> first_; // of each plane, with the margins
  std::vector<void*> planes_;         // of each plane, without them
};

} // namespace zoritest
