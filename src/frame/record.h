// What records (states and plans that a caller holds between calls) have in common: a tag that tells their kind, places
// within the record as offsets, release.
//
// A record starts with its tag, as 32 bits. Tables that belong to it lie in the same block; a record says where by
// offsets from its own start, so that its head has one layout at every address width and a copied record stays whole.
#pragma once

#include "memory.h"

#include <cstdint>
#include <cstring>

namespace zori {

// A table of T, so many bytes behind the start of its record; 0 stands for no table.
template <class T> struct RecordOffset {
  std::int32_t bytes = 0;

  explicit operator bool() const { return bytes != 0; }
  const T* in(const void* record) const
  {
    return bytes ? reinterpret_cast<const T*>(static_cast<const char*>(record) + bytes) : nullptr;
  }
  T* in(void* record) const { return bytes ? reinterpret_cast<T*>(static_cast<char*>(record) + bytes) : nullptr; }
};

inline std::uint32_t tagOf(const void* record)
{
  std::uint32_t tag;
  std::memcpy(&tag, record, sizeof tag);
  return tag;
}

// ZorErrContext unless the record, which is not null, is of this kind.
inline ZorStatus isOfKind(const void* record, std::uint32_t tag)
{
  return tagOf(record) == tag ? ZorOk : ZorErrContext;
}

// Releases the block of a record. Its tag is wiped first, so that a released record is not taken for a valid one.
inline ZorStatus releaseRecord(void* record, std::uint32_t tag)
{
  if (!record) return ZorErrNullPtr;
  if (const ZorStatus s = isOfKind(record, tag); s != ZorOk) return s;
  const volatile std::uint32_t none = 0;
  std::memcpy(record, const_cast<const std::uint32_t*>(&none), sizeof none);
  releaseBlock(record);
  return ZorOk;
}

} // namespace zori
