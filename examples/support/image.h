// An image that owns its memory: what the examples put around zoriMalloc and zoriFree.
#pragma once

#include "zori.h"

#include <climits>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace example {

// The allocator of an element type and a channel count.
template <class T, int N> inline constexpr auto allocator = nullptr;
template <> inline constexpr auto allocator<Zor8u, 1> = zoriMalloc_8u_C1;
template <> inline constexpr auto allocator<Zor8u, 3> = zoriMalloc_8u_C3;
template <> inline constexpr auto allocator<Zor8u, 4> = zoriMalloc_8u_C4;
template <> inline constexpr auto allocator<Zor16u, 1> = zoriMalloc_16u_C1;
template <> inline constexpr auto allocator<Zor16u, 3> = zoriMalloc_16u_C3;
template <> inline constexpr auto allocator<Zor16s, 1> = zoriMalloc_16s_C1;
template <> inline constexpr auto allocator<Zor16s, 3> = zoriMalloc_16s_C3;
template <> inline constexpr auto allocator<Zor32s, 1> = zoriMalloc_32s_C1;
template <> inline constexpr auto allocator<Zor32f, 1> = zoriMalloc_32f_C1;
template <> inline constexpr auto allocator<Zor32f, 3> = zoriMalloc_32f_C3;

template <class T, int N> class Image {
public:
  Image() = default;
  Image(int width, int height) : size_{width, height}
  {
    // the allocators count bytes in 32 bits
    const long long rowBytes = (width * static_cast<long long>(N * sizeof(T)) + 31) / 32 * 32;
    if (rowBytes > INT_MAX - 64 || rowBytes * height > INT_MAX - 64) throw std::length_error("picture too large");
    data_ = allocator<T, N>(width, height, &step_);
    if (!data_) throw std::bad_alloc();
  }
  explicit Image(ZorImgSize size) : Image(size.width, size.height) {}
  Image(Image&& other) noexcept { *this = std::move(other); }
  Image& operator=(Image&& other) noexcept
  {
    std::swap(data_, other.data_);
    std::swap(step_, other.step_);
    std::swap(size_, other.size_);
    return *this;
  }
  ~Image() { zoriFree(data_); }

  explicit operator bool() const { return data_ != nullptr; }
  ZorImgSize size() const { return size_; }
  int width() const { return size_.width; }
  int height() const { return size_.height; }
  int step() const { return step_; }
  T* data() { return data_; }
  const T* data() const { return data_; }

  // The first sample of a pixel: where a region starts.
  T* at(int x, int y) { return const_cast<T*>(std::as_const(*this).at(x, y)); }
  const T* at(int x, int y) const
  {
    const char* row = reinterpret_cast<const char*>(data_) + static_cast<long>(y) * step_;
    return reinterpret_cast<const T*>(row) + static_cast<long>(x) * N;
  }

private:
  T* data_ = nullptr;
  int step_ = 0;
  ZorImgSize size_{0, 0};
};

using Picture = Image<Zor8u, 3>;
using Grey = Image<Zor8u, 1>;

// Negative codes are errors of the call; in an example they end it.
inline void check(ZorStatus status, const char* call)
{
  if (status < 0) throw std::runtime_error(std::string(call) + " returned " + std::to_string(status));
}
#define ZORI_CHECK(call) ::example::check(call, #call)

} // namespace example
