// Calls of every overload of zori.hpp: the C functions are stand-ins that note what they are given, and each call is
// compared with what the views, written out by hand of the catalogue, ought to have become.
#ifndef ZORI_TESTS_CPP_OVERLOADS_H
#define ZORI_TESTS_CPP_OVERLOADS_H

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "zori.hpp"

using Notes = std::vector<std::uint64_t>;

inline std::uint64_t mixed(std::uint64_t hash, const void* data, std::size_t count)
{
  for (std::size_t i = 0; i < count; ++i) hash = (hash ^ static_cast<const unsigned char*>(data)[i]) * 1099511628211u;
  return hash;
}
constexpr std::uint64_t start = 14695981039346656037u;

inline std::uint64_t address(const volatile void* p) { return mixed(start, &p, sizeof p); }
template <class T> std::uint64_t bytes(T value) { return mixed(start, &value, sizeof value); }
template <class T> std::uint64_t pointers(T* const* planes, int count)
{
  return mixed(start, planes, static_cast<std::size_t>(count) * sizeof(T*));
}

/// What a stand-in was given last.
ZorStatus note(const char* name, const Notes& arguments);
/// Compares that with what it ought to have been given.
void judge(zori::Status status, const char* name, const Notes& arguments);

struct Listed {
  explicit Listed(void (*call)());
};

/// Addresses that nothing reads.
char* place(int index);
template <class T> T somewhere(int index) { return static_cast<T>(static_cast<void*>(place(index))); }

template <class V> struct Sample;
template <class T, class L> struct Sample<zori::View<T, L>> {
  /// A view with room on all sides, each of a step of its own; or one whose rows adjoin.
  static zori::View<T, L> make(int index, int width, int height, bool adjoining)
  {
    const int pixel = static_cast<int>(sizeof(T)) * L::channels;
    T* const data = somewhere<T*>(index);
    if (adjoining) return zori::View<T, L>(data, width * pixel, {width, height});
    return zori::View<T, L>(data, (width + 96) * pixel + 32 * index, {width + 96, height + 96})
      .at({48, 48, width, height});
  }
};
template <class T, class L> struct Sample<zori::Channel<T, L>> {
  static zori::Channel<T, L> make(int index, int width, int height, bool adjoining)
  {
    return Sample<zori::View<T, L>>::make(index, width, height, adjoining).channel(L::channels - 1);
  }
};
template <class T, class L> struct Sample<zori::Planes<T, L>> {
  static zori::Planes<T, L> make(int index, int width, int height, bool adjoining)
  {
    std::array<T*, L::planes> data;
    int step = 0;
    for (std::size_t i = 0; i < data.size(); ++i) {
      const auto plane = Sample<zori::View<T, zori::C1>>::make(index, width, height, adjoining);
      data[i] = plane.data() + 7 * i;
      step = plane.step();
    }
    return zori::Planes<T, L>(data, step, {width, height});
  }
};
template <class T> struct Sample<zori::Bits<T>> {
  static zori::Bits<T> make(int index, int width, int height, bool)
  {
    return zori::Bits<T>(somewhere<T*>(index), width + 32 * index, {width + 3, height}).at({3, 0, width, height});
  }
};

template <class V> V sample(int index, int width, int height, bool adjoining)
{
  return Sample<V>::make(index, width, height, adjoining);
}

#endif
