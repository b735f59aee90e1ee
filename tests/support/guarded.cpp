#include "guarded.h"

#include "special_numbers.h"

#include <algorithm>
#include <map>
#include <mutex>

namespace zoritest {

namespace {

// Free blocks by their size. There are few sizes, so that blocks find a user again; the largest are not kept.
struct Pool {
  std::map<std::size_t, std::vector<std::unique_ptr<GuardedBlock>>> free;
  std::mutex mutex;
};
Pool pool;
const std::size_t page = GuardedBlock::pageBytes();
constexpr std::size_t mostKept = std::size_t{1} << 26;

// Up to 8 pages each number of them, then four sizes from one power of two to the next.
std::size_t roundedUp(std::size_t bytes)
{
  const std::size_t pages = std::max((bytes + page - 1) / page, std::size_t{1});
  if (bytes > mostKept) return pages * page;
  std::size_t unit = 1;
  while (pages > 8 * unit) unit *= 2;
  return (pages + unit - 1) / unit * unit * page;
}

} // namespace

Arena::Arena(std::size_t bytes)
{
  const std::size_t size = roundedUp(bytes);
  {
    const std::lock_guard<std::mutex> lock(pool.mutex);
    auto& list = pool.free[size];
    if (!list.empty()) {
      block_ = std::move(list.back());
      list.pop_back();
    }
  }
  if (!block_) block_ = std::make_unique<GuardedBlock>(size);
}

Arena::~Arena()
{
  if (block_->size() > mostKept) return;
  const std::lock_guard<std::mutex> lock(pool.mutex);
  pool.free[block_->size()].push_back(std::move(block_));
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
  std::size_t i = 0;
  for (; i + 8 <= n; i += 8) {
    const std::uint64_t word = random.next64();
    std::memcpy(p + i, &word, 8);
  }
  const std::uint64_t word = random.next64();
  std::memcpy(p + i, &word, n - i);
}

// What lies around images: never the same number twice in a row, and cheap.
static void fillAround(unsigned char* p, std::size_t n, std::uint64_t seed)
{
  static const std::vector<unsigned char> noise = [] {
    std::vector<unsigned char> bytes(std::size_t{1} << 16);
    Random random(99);
    fillBytes(bytes.data(), bytes.size(), random);
    return bytes;
  }();
  for (std::size_t at = Random(seed).next() % noise.size(); n > 0; at = 0) {
    const std::size_t part = std::min(n, noise.size() - at);
    std::memcpy(p, noise.data() + at, part);
    p += part, n -= part;
  }
}

template <class F> static void fillNumbers(unsigned char* p, std::size_t count, Fill kind, int side, Random& random)
{
  static thread_local std::vector<F> numbers;
  numbers.resize(count);
  for (F& number : numbers) number = static_cast<F>(ordinaryNumber(random));
  if (kind == Fill::Special) addSpecialNumbers(numbers.data(), count, side, random);
  if (count) std::memcpy(p, numbers.data(), count * sizeof(F));
}

// Special numbers of an image can lie on one side of zero: 1, -1, or 0 for both.
static void fillElements(unsigned char* p, std::size_t bytes, const Memory& memory, Fill kind, int side, Random& random)
{
  if (memory.mask) {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < bytes; ++i, word >>= 16) {
      if (i % 4 == 0) word = random.next64();
      p[i] = word & 0x100 ? static_cast<unsigned char>(word) : 0;
    }
  } else if (memory.element == Element::Pointer) {
    std::memset(p, 0, bytes);
  } else if (memory.element == Element::T32f && kind != Fill::AnyBits) {
    fillNumbers<float>(p, bytes / sizeof(float), kind, side, random);
  } else if (memory.element == Element::T64f && kind != Fill::AnyBits) {
    fillNumbers<double>(p, bytes / sizeof(double), kind, side, random);
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
    writable_.assign(static_cast<std::size_t>(bytes), 0xff);
    for (int i = used; used < pixelBytes_ && i < bytes; i += pixelBytes_)
      std::fill_n(writable_.begin() + i, std::min(pixelBytes_ - used, bytes - i), 0);
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
  for (const Piece& piece : pieces_) fillAround(piece.begin, static_cast<std::size_t>(piece.end - piece.begin), seed);
  Random random(seed);
  const int sides[] = {1, -1, 0, 0}, side = kind == Fill::Special ? sides[random.below(4)] : 0;
  forEachRow([&](unsigned char* p, bool) { fillElements(p, writable_.size(), memory_, kind, side, random); });
}

void GuardedImage::fillRows(const std::vector<unsigned char>& pattern)
{
  std::vector<unsigned char> tile; // the pattern again and again, as long as a row, and once more
  while (tile.size() < writable_.size() + pattern.size()) tile.insert(tile.end(), pattern.begin(), pattern.end());
  std::size_t next = 0;
  forEachRow([&](unsigned char* p, bool) {
    std::memcpy(p, &tile[next], writable_.size());
    next = (next + writable_.size()) % pattern.size();
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

// The first byte that changed in bits that are not allowed to, or bytes.
static std::size_t firstChange(const unsigned char* now, const unsigned char* then, const unsigned char* allowed,
                               std::size_t bytes)
{
  std::size_t i = 0;
  const auto word = [&](const unsigned char* p) {
    std::uint64_t w;
    std::memcpy(&w, p + i, 8);
    return w;
  };
  if (!allowed && std::memcmp(now, then, bytes) == 0) return bytes;
  while (i + 8 <= bytes && ((word(now) ^ word(then)) & ~(allowed ? word(allowed) : 0)) == 0) i += 8;
  while (i < bytes && ((now[i] ^ then[i]) & ~(allowed ? allowed[i] : 0)) == 0) ++i;
  return i;
}

std::string GuardedImage::changes(const Snapshot& before, bool outsideOnly) const
{
  for (std::size_t at = 0; at < pieces_.size(); ++at) {
    const Piece& piece = pieces_[at];
    const unsigned char *const then = before[at].data(), *p = piece.begin, *wrong = nullptr;
    const auto look = [&](const unsigned char* end, const unsigned char* allowed) {
      if (wrong || end <= p) return;
      const std::size_t bytes = static_cast<std::size_t>(end - p);
      const std::size_t i = firstChange(p, then + (p - piece.begin), allowed, bytes);
      if (i < bytes) wrong = p + i;
      p = end;
    };
    for (int y = firstWritten_; outsideOnly && y < endWritten_; ++y) {
      const unsigned char* const first = row(piece.plane, y);
      if (first < piece.begin || first >= piece.end) continue;
      look(first, nullptr);
      look(first + writable_.size(), writable_.data());
    }
    look(piece.end, nullptr);
    if (!wrong) continue;
    const std::ptrdiff_t distance = wrong - first_[piece.plane];
    const std::ptrdiff_t y = distance < 0 ? -1 : std::min<std::ptrdiff_t>(distance / step_, rows_ - 1);
    return "byte " + std::to_string(y < 0 ? distance : distance - y * step_) + " of row " +
           std::to_string(y < 0 ? 0 : y) + (first_.size() > 1 ? " of plane " + std::to_string(piece.plane) : "") +
           " (a row has " + std::to_string(writable_.size()) + " bytes) changed from " +
           std::to_string(then[wrong - piece.begin]) + " to " + std::to_string(*wrong);
  }
  return "";
}

} // namespace zoritest
