#include "guarded.h"

#include "special_numbers.h"

#include <algorithm>
#include <map>
#include <mutex>

namespace zoritest {

static std::mutex poolMutex;
static std::multimap<std::size_t, std::unique_ptr<GuardedBlock>> pool; // free blocks by size

Arena::Arena(std::size_t bytes)
{
  const std::lock_guard<std::mutex> lock(poolMutex);
  const auto found = pool.find(GuardedBlock::sizeFor(bytes));
  if (found == pool.end()) {
    block_ = std::make_unique<GuardedBlock>(bytes);
  } else {
    block_ = std::move(found->second);
    pool.erase(found);
  }
}

Arena::~Arena()
{
  const std::lock_guard<std::mutex> lock(poolMutex);
  pool.emplace(block_->size(), std::move(block_));
}

int elementBytes(Element element)
{
  switch (element) {
  case Element::Pointer: return sizeof(void*);
  case Element::T16u:
  case Element::T16s: return 2;
  case Element::T32u:
  case Element::T32s:
  case Element::T32f: return 4;
  case Element::T64s:
  case Element::T64f: return 8;
  default: return 1;
  }
}

void putNumber(unsigned char* p, Element element, double number)
{
  if (element == Element::T32f) {
    const float f = static_cast<float>(number);
    std::memcpy(p, &f, sizeof f);
  } else if (element == Element::T64f) {
    std::memcpy(p, &number, sizeof number);
  } else { // little-endian: the low bytes come first
    const std::int64_t i = static_cast<std::int64_t>(number);
    std::memcpy(p, &i, static_cast<std::size_t>(elementBytes(element)));
  }
}

static void fillBytes(unsigned char* p, std::size_t n, Random& random)
{
  for (std::size_t i = 0; i < n; i += 4) {
    const std::uint32_t word = random.next();
    std::memcpy(p + i, &word, std::min<std::size_t>(n - i, 4));
  }
}

static void fillElements(unsigned char* p, std::size_t bytes, const Memory& memory, Fill kind, Random& random)
{
  const bool floating = memory.element == Element::T32f || memory.element == Element::T64f;
  if (memory.mask) {
    for (std::size_t i = 0; i < bytes; ++i) p[i] = random.below(2) ? static_cast<unsigned char>(random.next()) : 0;
  } else if (memory.element == Element::Pointer) {
    std::memset(p, 0, bytes);
  } else if (floating && kind != Fill::AnyBits) {
    const auto size = static_cast<std::size_t>(elementBytes(memory.element));
    std::vector<double> numbers(bytes / size);
    for (double& number : numbers) number = ordinaryNumber(random);
    if (kind == Fill::Special) addSpecialNumbers(numbers.data(), numbers.size(), random);
    for (std::size_t i = 0; i < numbers.size(); ++i) putNumber(p + i * size, memory.element, numbers[i]);
  } else {
    fillBytes(p, bytes, random);
  }
}

GuardedImage::GuardedImage(const Shape& shape) : memory_(shape.memory)
{
  const Memory& m = memory_;
  const Shape& e = shape; // its margins
  const int width = columns_ = std::max(shape.width + e.left + e.right, 1);
  rows_ = std::max(shape.height + e.top + e.bottom, 1);
  pixelBytes_ = elementBytes(m.element) * m.count * m.channels;

  if (m.element == Element::T1u) {
    writable_.resize(static_cast<std::size_t>((shape.bitOffset + width + 7) / 8));
    for (int bit = shape.bitOffset; bit < shape.bitOffset + width; ++bit)
      writable_[static_cast<std::size_t>(bit / 8)] |= static_cast<unsigned char>(0x80 >> bit % 8);
  } else {
    // how many bytes of each pixel may be written; memory ends behind the last of them where only one channel is used
    const int used = m.kept == Kept::Alpha   ? pixelBytes_ / 4 * 3
                     : m.kept == Kept::Other ? pixelBytes_ / m.channels
                                             : pixelBytes_;
    const int bytes = m.kept == Kept::Other ? (width - 1) * pixelBytes_ + used : width * pixelBytes_;
    writable_.resize(static_cast<std::size_t>(bytes));
    for (int i = 0; i < bytes; ++i) writable_[static_cast<std::size_t>(i)] = i % pixelBytes_ < used ? 0xff : 0;
  }
  firstWritten_ = 0;
  endWritten_ = rows_;
  if (m.read && m.written && !m.extent.width) { // in place, and the margin around the region is only read
    firstWritten_ = e.top;
    endWritten_ -= e.bottom;
    std::fill_n(writable_.begin(), e.left * pixelBytes_, 0);
    std::fill_n(writable_.end() - e.right * pixelBytes_, e.right * pixelBytes_, 0);
  }

  const int pixelRowBytes = m.element == Element::T1u ? static_cast<int>(writable_.size()) : width * pixelBytes_;
  step_ = shape.step ? shape.step : pixelRowBytes + shape.stepPadding;
  const std::size_t span = static_cast<std::size_t>(rows_ - 1) * static_cast<std::size_t>(step_) + writable_.size();
  for (int plane = 0; plane < std::max(m.planes, 1); ++plane) {
    const std::size_t room = shape.placement == Placement::Middle ? 256 : 0;
    arenas_.push_back(std::make_unique<Arena>(span + room));
    Arena& arena = *arenas_.back();
    unsigned char* first = shape.placement == Placement::End     ? arena.end() - span
                           : shape.placement == Placement::Begin ? arena.begin()
                                                                 : arena.begin() + room / 2 + shape.offset;
    constexpr std::ptrdiff_t near = 256;
    if (step_ < 1 << 24) pieces_.push_back({first_.size(), arena.begin(), arena.end()});
    else
      for (int y = 0; y < rows_; ++y) {
        unsigned char* const p = first + static_cast<std::ptrdiff_t>(y) * step_;
        pieces_.push_back({first_.size(), p - std::min(near, p - arena.begin()),
                           p + writable_.size() + std::min<std::ptrdiff_t>(near, arena.end() - p - rowBytes())});
      }
    first_.push_back(first);
    planes_.push_back(first + static_cast<std::ptrdiff_t>(e.top) * step_ + e.left * pixelBytes_);
  }
}

void* GuardedImage::pointer() { return memory_.planes ? static_cast<void*>(planes_.data()) : planes_[0]; }

template <class Visit> void GuardedImage::forEachRow(Visit visit) const
{
  for (std::size_t plane = 0; plane < first_.size(); ++plane)
    for (int y = 0; y < rows_; ++y) visit(row(plane, y), y >= firstWritten_ && y < endWritten_);
}

void GuardedImage::fill(std::uint64_t seed, Fill kind)
{
  Random around(seed + 99);
  for (const Piece& piece : pieces_) fillBytes(piece.begin, static_cast<std::size_t>(piece.end - piece.begin), around);
  Random random(seed);
  forEachRow([&](unsigned char* p, bool) { fillElements(p, writable_.size(), memory_, kind, random); });
}

void GuardedImage::fillRows(const std::vector<unsigned char>& pattern)
{
  std::size_t next = 0;
  forEachRow([&](unsigned char* p, bool) {
    for (std::size_t i = 0; i < writable_.size(); ++i) p[i] = pattern[next++ % pattern.size()];
  });
}

void GuardedImage::fill(Span<double> numbers)
{
  const auto size = static_cast<std::size_t>(elementBytes(memory_.element));
  int next = 0;
  forEachRow([&](unsigned char* p, bool) {
    for (std::size_t i = 0; i + size <= writable_.size(); i += size)
      putNumber(p + i, memory_.element, numbers[next++ % numbers.size]);
  });
}

std::vector<unsigned char> GuardedImage::pixels() const
{
  std::vector<unsigned char> bytes;
  forEachRow([&](const unsigned char* p, bool written) {
    for (std::size_t i = 0; written && i < writable_.size(); ++i)
      if (writable_[i]) bytes.push_back(p[i] & writable_[i]);
  });
  return bytes;
}

GuardedImage::Snapshot GuardedImage::snapshot() const
{
  Snapshot all;
  for (const Piece& piece : pieces_) all.emplace_back(piece.begin, piece.end);
  return all;
}

std::string GuardedImage::changes(const Snapshot& before, bool outsideOnly) const
{
  for (std::size_t at = 0; at < pieces_.size(); ++at) {
    const Piece& piece = pieces_[at];
    const std::size_t size = before[at].size();
    if (std::memcmp(piece.begin, before[at].data(), size) == 0) continue;
    std::vector<unsigned char> allowed(size, 0);
    for (int y = firstWritten_; outsideOnly && y < endWritten_; ++y) {
      unsigned char* const first = row(piece.plane, y);
      if (first >= piece.begin && first < piece.end)
        std::copy(writable_.begin(), writable_.end(), allowed.begin() + (first - piece.begin));
    }
    for (std::size_t i = 0; i < size; ++i) {
      const unsigned char now = piece.begin[i], then = before[at][i];
      if (((now ^ then) & ~allowed[i]) == 0) continue;
      const std::ptrdiff_t distance = piece.begin + i - first_[piece.plane];
      const std::ptrdiff_t y = distance < 0 ? -1 : std::min<std::ptrdiff_t>(distance / step_, rows_ - 1);
      return "byte " + std::to_string(y < 0 ? distance : distance - y * step_) + " of row " +
             std::to_string(y < 0 ? 0 : y) + (first_.size() > 1 ? " of plane " + std::to_string(piece.plane) : "") +
             " (a row has " + std::to_string(writable_.size()) + " bytes) changed from " + std::to_string(then) +
             " to " + std::to_string(now);
    }
  }
  return "";
}

} // namespace zoritest
