// The ways a box filter runs: a region, its windows, and for each kind of sum the walk down a slab of rows. A path
// writes a row of results when it has read what it needs for it, so that the same walk serves images that are filtered
// in place.
#pragma once

#include "box_float.h"
#include "box_quotients.h"
#include "frame/parallel.h"
#include "walk/map.h"

namespace zori {
namespace box {

template <class T> struct Windows {
  Rows<const T> src; // first pixel of the region
  ZorImgSize roi, mask;
  ZorImgPoint anchor;

  // Row y of the rectangle that the windows cover, from its first column on.
  template <int CH> const T* row(std::ptrdiff_t y) const
  {
    return src[y - anchor.y] - static_cast<std::ptrdiff_t>(anchor.x) * CH;
  }
  long long columns(int channels) const { return (static_cast<long long>(roi.width) + mask.width - 1) * channels; }
  template <int CH> std::ptrdiff_t rowElements() const { return static_cast<std::ptrdiff_t>(roi.width) * CH; }
};

// ---- Paths: bufferBytes for a slab, rowsAtOnce, run(windows, first row, rows, buffer, target) ----

// Sums in integers: columns of Col, windows of Finish::Sum.
template <class T, class Col, int CH, bool KeepAlpha, class Finish> struct IntegerPath {
  static constexpr int rowsAtOnce = 1;
  using Columns = Buffered<typename Finish::Sum, Col>;
  Rule rule;

  // Of the columns of an output row, those of the next one beside them: what has just been stored is slow to read at
  // other addresses, so that the sums of a row are formed a row ahead.
  static long long columnElements(const Windows<T>& w) { return (w.columns(CH) + 3 * Columns::margin + 15) / 16 * 16; }
  static long long bufferBytes(const Windows<T>& w)
  {
    return 2 * columnElements(w) * static_cast<long long>(sizeof(Col));
  }

  template <class Target>
  ZORI_ONE_COPY void run(const Windows<T>& w, int first, int rows, void* buffer, Target& target) const
  {
    Col* col = static_cast<Col*>(buffer) + Columns::margin;
    Col* next = col + static_cast<std::ptrdiff_t>(columnElements(w));
    const std::ptrdiff_t n = static_cast<std::ptrdiff_t>(w.columns(CH));
    const Finish quotient(rule);
    std::memset(buffer, 0, static_cast<std::size_t>(bufferBytes(w)));
    addRows(col, Rows<const T>{w.template row<CH>(first), w.src.step}, w.mask.height, n);
    for (int y = first; y < first + rows; ++y) {
      if (y + 1 < first + rows)
        slideColumns(next, col, w.template row<CH>(std::ptrdiff_t{y} + w.mask.height), w.template row<CH>(y), n);
      finish(w, quotient, {col}, target.row(y));
      std::swap(col, next);
      target.done(y);
    }
  }

  void finish(const Windows<T>& w, const Finish& quotient, Columns columns, T* dst) const
  {
    const std::ptrdiff_t n = w.template rowElements<CH>();
    if constexpr (std::is_same_v<T, Zor16u>) {
      const std::ptrdiff_t blocks = static_cast<std::ptrdiff_t>(w.roi.width & ~7) * CH;
      windowSums(quotient, columns, dst, blocks, w.mask.width);
      if (blocks < n)
        runningSums<CH, KeepAlpha>(Columns{columns.p + blocks}, dst + blocks, n - blocks, w.mask.width, WordTail(rule));
    } else {
      windowSums(quotient, columns, dst, n, w.mask.width);
    }
  }

  static void windowSums(const Finish& quotient, Columns columns, T* dst, std::ptrdiff_t n, int mask)
  {
    if constexpr (Finish::smallMasks) {
      if (mask == 3) return directSums<CH, 3, KeepAlpha>(columns, dst, n, quotient);
      if (mask == 5) return directSums<CH, 5, KeepAlpha>(columns, dst, n, quotient);
    }
    runningSums<CH, KeepAlpha>(columns, dst, n, mask, quotient);
  }
};

// Running sums in single precision, four rows at a time.
template <class T, int CH, bool KeepAlpha> struct FloatPath {
  static constexpr int rowsAtOnce = 4;
  Rule rule;

  static long long paddedColumns(const Windows<T>& w) { return w.columns(CH) / 4 * 4 + 16; }
  static long long bufferBytes(const Windows<T>& w)
  {
    return 5 * paddedColumns(w) * static_cast<long long>(sizeof(float));
  }

  template <class Target>
  ZORI_ONE_COPY void run(const Windows<T>& w, int first, int rows, void* buffer, Target& target) const
  {
    float* const col = static_cast<float*>(buffer);
    float* const turned = col + paddedColumns(w);
    const std::ptrdiff_t n = static_cast<std::ptrdiff_t>(w.columns(CH));
    std::memset(buffer, 0, static_cast<std::size_t>(bufferBytes(w)));
    for (int j = 0; j < w.mask.height; ++j) addRowOfFloats(col, w.template row<CH>(std::ptrdiff_t{first} + j), n);
    const int end = first + rows;
    for (int y = first; y < end; y += 4) {
      // below the last row nothing is read; rows beyond it are formed from what is there and overwritten by row 0
      const int count = end - y < 4 ? end - y : 4, slides = end - 1 - y < 4 ? end - 1 - y : 4;
      const T *entering[4], *leaving[4];
      T* dst[4];
      for (int k = 0; k < 4; ++k) {
        leaving[k] = w.template row<CH>(y + (k < slides ? k : 0));
        entering[k] = k < slides ? w.template row<CH>(std::ptrdiff_t{y} + k + w.mask.height) : leaving[k];
        dst[k] = target.row(y + (k < count ? k : 0));
      }
      slideFourRows(col, turned, entering, leaving, n);
      runFourRows<T, CH, KeepAlpha>(turned, dst, w.template rowElements<CH>(), w.mask.width, rule.factor);
      target.done(y + count - 1);
    }
  }
};

// 3x3 in single precision without running sums.
template <int CH> struct NineFloatsPath {
  static constexpr int rowsAtOnce = 1;
  Rule rule;

  static long long bufferBytes(const Windows<Zor32f>& w)
  {
    return 3LL * w.roi.width * CH * static_cast<long long>(sizeof(float));
  }

  template <class Target>
  ZORI_ONE_COPY void run(const Windows<Zor32f>& w, int first, int rows, void* buffer, Target& target) const
  {
    const std::ptrdiff_t n = w.template rowElements<CH>();
    float* sums[3] = {static_cast<float*>(buffer), static_cast<float*>(buffer) + n,
                      static_cast<float*>(buffer) + 2 * n};
    for (int j = 0; j < 2; ++j)
      sumThreeRows<CH>(nullptr, nullptr, sums[j], w.template row<CH>(std::ptrdiff_t{first} + j), nullptr, n, 0);
    for (int y = first; y < first + rows; ++y) {
      sumThreeRows<CH>(sums[0], sums[1], sums[2], w.template row<CH>(std::ptrdiff_t{y} + 2), target.row(y), n,
                       rule.factor);
      float* const oldest = sums[0];
      sums[0] = sums[1], sums[1] = sums[2], sums[2] = oldest;
      target.done(y);
    }
  }
};

// ---- Targets ----

template <class T> struct Image {
  Rows<T> dst;
  T* row(int y) const { return dst[y]; }
  void done(int) const {}
};

// In place, a row is written when the last window that reads it is done: results wait in a ring of rows.
template <class T, Layout L> class Ring {
public:
  static int rowsNeeded(const Windows<T>& w, int rowsAtOnce)
  {
    const long long rows = static_cast<long long>(w.anchor.y) + rowsAtOnce;
    return static_cast<int>(rows < w.roi.height ? rows : w.roi.height);
  }
  static long long rowBytes(const Windows<T>& w)
  {
    return (static_cast<long long>(w.roi.width) * channels<L> * static_cast<long long>(sizeof(T)) + 15) / 16 * 16;
  }

  Ring(Rows<T> image, const Windows<T>& w, int rows, void* buffer)
    : image_(image), rows_(rows), delay_(w.anchor.y), elements_(w.template rowElements<channels<L>>()),
      rowBytes_(static_cast<std::ptrdiff_t>(rowBytes(w))), buffer_(static_cast<char*>(buffer))
  {}
  T* row(int y) const { return reinterpret_cast<T*>(buffer_ + y % rows_ * rowBytes_); }
  void done(int y) { writeUpTo(y - delay_); }
  void writeUpTo(int last)
  {
    for (; written_ <= last; ++written_) {
      T* const dst = image_[written_];
      if constexpr (L == AC4) mapRowOf<AC4>(dst, elements_, Unchanged{}, static_cast<const T*>(row(written_)));
      else std::memcpy(dst, row(written_), static_cast<std::size_t>(elements_) * sizeof(T));
    }
  }

private:
  Rows<T> image_;
  int rows_, delay_, written_ = 0;
  std::ptrdiff_t elements_, rowBytes_;
  char* buffer_;
};

inline bool fitsMemory(long long bytes) { return bytes <= static_cast<long long>(PTRDIFF_MAX / 4); }

// dst may be the image of the windows when inPlace says so.
template <class T, Layout L, bool InPlace, class Path>
ZorStatus runPath(const Windows<T>& w, Rows<T> dst, TeamRule team, const Path& path)
{
  const long long columnBytes = (Path::bufferBytes(w) + 15) / 16 * 16;
  if constexpr (InPlace) {
    const int rows = Ring<T, L>::rowsNeeded(w, Path::rowsAtOnce);
    const long long rowBytes = Ring<T, L>::rowBytes(w);
    if (!fitsMemory(columnBytes) || !fitsMemory(rowBytes) || rows > PTRDIFF_MAX / 4 / rowBytes) return ZorErrAlloc;
    const long long ringBytes = rowBytes * rows;
    Scratch<Zor8u> buffer(columnBytes + ringBytes);
    if (!buffer) return ZorErrAlloc;
    Ring<T, L> ring(dst, w, rows, buffer.get() + columnBytes);
    path.run(w, 0, w.roi.height, buffer.get(), ring);
    ring.writeUpTo(w.roi.height - 1);
    return ZorOk;
  } else {
    if (!fitsMemory(columnBytes)) return ZorErrAlloc;
    const auto slabs = [&](const Slab& slab) {
      const Image<T> image{dst};
      if (slab.count) path.run(w, slab.first, slab.count, slab.buffer, image);
      return ZorOk;
    };
    return masterSlabs(team, Rounding::Nearest, w.roi.height, static_cast<std::size_t>(columnBytes), slabs);
  }
}

} // namespace box
} // namespace zori
