// What the copies and fills share: elements by width alone.
#pragma once

#include "walk/rows.h"

namespace zori {

// Nothing here looks at values: every type is handled as the unsigned one of its width.
template <class T>
using Raw =
  std::conditional_t<sizeof(T) == 1, std::uint8_t, std::conditional_t<sizeof(T) == 2, std::uint16_t, std::uint32_t>>;

template <class T> inline const Raw<T>* raw(const T* p) { return reinterpret_cast<const Raw<T>*>(p); }
template <class T> inline Raw<T>* raw(T* p) { return reinterpret_cast<Raw<T>*>(p); }

template <class T> inline constexpr int bytesOf = static_cast<int>(sizeof(T));

} // namespace zori
