// Greatest and least samples under a mask: what all forms share.
//
// An operation picks one of two samples; it is associative, so that windows may share what they have in common. Among
// zeros of both signs the later operand is picked: whoever regroups keeps operands in the order of the window's pixels,
// by rows or by columns, and the bits do not depend on how pixels lie in rows, strips or groups.
#pragma once

#include "frame/checks.h"
#include "frame/layout.h"
#include "frame/memory.h"
#include "rowkernels/drivers.h"

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cstring>

namespace zori {
namespace morphology {

// ---- Operations ----

template <class T> struct Greatest {
  using Sample = T;
  template <class V> static V pick(V a, V b) { return max(a, b); }
  template <class V> static V finished(V x) { return x; }
};
template <class T> struct Least {
  using Sample = T;
  template <class V> static V pick(V a, V b) { return min(a, b); }
  template <class V> static V finished(V x) { return x; }
};

// Masks of any shape give finite floats.
template <template <class> class Op> struct Finite : Op<float> {
  template <int Bytes> static Vec<float, Bytes> finished(Vec<float, Bytes> x)
  {
    return min(max(x, splat<float, Bytes>(-FLT_MAX)), splat<float, Bytes>(FLT_MAX));
  }
};
template <template <class> class Op, class T>
using Limited = std::conditional_t<std::is_same_v<T, float>, Finite<Op>, Op<T>>;

// ---- Storing ----

// The results of a row into it, or into its first three of four channels.
template <bool KeepFourth, class T, int Bytes> inline void storeResult(T* to, Vec<T, Bytes> x)
{
  store(to, KeepFourth ? select(colourMask<T, Bytes>(), x, load<T, Bytes>(to)) : x);
}
template <bool KeepFourth, class T> inline void storeResultPart(T* to, Vec<T, 16> x, std::size_t bytes)
{
  storePart(to, KeepFourth ? select(colourMask<T, 16>(), x, loadPart16<T>(to, bytes)) : x, bytes);
}
// The same of a row in the manner of loadShort.
template <bool KeepFourth, class T> inline void storeShortResult(T* to, Vec<T> x, std::size_t bytes)
{
  storeShort(to, KeepFourth ? select(colourMask<T>(), x, loadShort<T>(to, bytes)) : x, bytes);
}

// ---- The walk ----

inline constexpr int mostRowsAtOnce = 8;

// A filter computes rows of results: rows(y, count, to, keepFourth) for 1 to rowsAtOnce() rows, y a multiple of these.
// They may be those of its own source up to `above` rows before y: the windows of row y begin so far above it.
template <class T> struct Target {
  Rows<T> dst;
  ZorImgSize roi;
  int channels;
  bool keepFourth;

  template <class Filter> void fill(Filter& filter) const
  {
    for (std::ptrdiff_t y = 0; y < roi.height;) {
      const int count = static_cast<int>(std::min<std::ptrdiff_t>(filter.rowsAtOnce(), roi.height - y));
      filter.rows(y, count, {dst[y], dst.step}, keepFourth);
      y += count;
    }
  }

  // In place a row is written when the last window that reads it is done: results wait in a ring of rows. It holds
  // whole groups of rowsAtOnce(), so that none reaches beyond its end.
  template <class Filter> ZorStatus fillInPlace(Filter& filter, int above) const
  {
    const std::ptrdiff_t delay = std::max(above, 0), samples = std::ptrdiff_t{roi.width} * channels;
    const int group = filter.rowsAtOnce(), later = static_cast<int>(std::min<std::ptrdiff_t>(delay, roi.height - 1));
    const long long rows = (later + 2LL * group - 1) / group * group;
    constexpr int lanes = Vec<T>::size, most = INT_MAX / static_cast<int>(sizeof(T));
    const auto pitch = static_cast<int>(std::min<std::ptrdiff_t>((samples + lanes - 1) / lanes * lanes, most));
    if (pitch > PTRDIFF_MAX / 4 / rows / static_cast<std::ptrdiff_t>(sizeof(T))) return ZorErrAlloc;
    const Scratch<T> ring(rows * pitch);
    if (!ring) return ZorErrAlloc;
    const auto waiting = [&](std::ptrdiff_t y) { return ring.get() + y % static_cast<std::ptrdiff_t>(rows) * pitch; };

    std::ptrdiff_t written = 0;
    const auto writeBelow = [&](std::ptrdiff_t end) {
      for (; written < end; ++written) {
        T* const to = dst[written];
        if (keepFourth)
          mapRow(to, samples, KeepFourth<Unchanged>{}, static_cast<const T*>(to),
                 static_cast<const T*>(waiting(written)));
        else std::memcpy(to, waiting(written), static_cast<std::size_t>(samples) * sizeof(T));
      }
    };
    for (std::ptrdiff_t y = 0; y < roi.height;) {
      const int count = static_cast<int>(std::min<std::ptrdiff_t>(group, roi.height - y));
      filter.rows(y, count, {waiting(y), pitch * static_cast<int>(sizeof(T))}, false);
      y += count;
      writeBelow(y - delay);
    }
    writeBelow(roi.height);
    return ZorOk;
  }

private:
  struct Unchanged {
    template <class V> V operator()(V x) const { return x; }
  };
};

// ---- Checks ----

inline ZorStatus isAnchorInside(ZorImgSize mask, ZorImgPoint anchor)
{
  return require(anchor.x >= 0 && anchor.x < mask.width && anchor.y >= 0 && anchor.y < mask.height, ZorErrAnchor);
}
inline ZorStatus isMask(ZorImgSize mask) { return require(mask.width >= 1 && mask.height >= 1, ZorErrMaskSize); }

// A step that holds so many pixels.
template <class T, Layout L> inline ZorStatus rowFits(int step, long long pixels)
{
  return require(step >= pixels * channels<L> * static_cast<long long>(sizeof(T)), ZorErrStepTooSmall);
}

} // namespace morphology
} // namespace zori
