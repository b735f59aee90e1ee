// The 300 functions of scaled arithmetic as tables, and their rule in plain numbers.
#pragma once

#include "zori/arith.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>
#include <vector>

namespace scaledtest {

enum Operation { Sum, Difference, Product };

// ---- Elements as real and imaginary part ----

template <class T> struct PartOf {
  using Type = T;
};
template <> struct PartOf<Zor16sc> {
  using Type = Zor16s;
};
template <> struct PartOf<Zor32sc> {
  using Type = Zor32s;
};
template <> struct PartOf<Zor32fc> {
  using Type = Zor32f;
};
template <class T> using Part = typename PartOf<T>::Type;
template <class T> constexpr int parts = sizeof(T) / sizeof(Part<T>);

// ---- The rule ----

// Extended precision holds every exact result, of at most 64 bits, and its multiples by powers of two.
using Exact = long double;
static_assert(std::numeric_limits<Exact>::digits >= 64);

template <class P> P scaled(Exact v, int scale)
{
  const Exact rounded = std::nearbyint(std::ldexp(v, -std::clamp(scale, -200, 200)));
  if (rounded <= Exact(std::numeric_limits<P>::min())) return std::numeric_limits<P>::min();
  if (rounded >= Exact(std::numeric_limits<P>::max())) return std::numeric_limits<P>::max();
  return static_cast<P>(rounded);
}

// a op b; a difference is a - b.
template <class T> T expected(Operation operation, T a, T b, int scale)
{
  using P = Part<T>;
  P x[2] = {}, y[2] = {}, r[2] = {};
  std::memcpy(x, &a, sizeof a);
  std::memcpy(y, &b, sizeof b);
  if constexpr (std::is_floating_point_v<P>) {
    for (int i = 0; i < 2; ++i) r[i] = operation == Sum ? x[i] + y[i] : x[i] - y[i];
    if (operation == Product) {
      const P ac = x[0] * y[0], bd = x[1] * y[1], ad = x[0] * y[1], bc = x[1] * y[0];
      r[0] = parts<T> == 1 ? ac : ac - bd, r[1] = ad + bc;
    }
  } else {
    for (int i = 0; i < 2; ++i) r[i] = scaled<P>(operation == Sum ? Exact(x[i]) + y[i] : Exact(x[i]) - y[i], scale);
    if (operation == Product) {
      r[0] = scaled<P>(Exact(x[0]) * y[0] - Exact(x[1]) * y[1], scale);
      r[1] = scaled<P>(Exact(x[0]) * y[1] + Exact(x[1]) * y[0], scale);
    }
  }
  T result;
  std::memcpy(&result, r, sizeof result);
  return result;
}

// ---- The functions: of two images, of an image and a constant (by address in every layout) ----

template <class T> struct Images {
  const char* name;
  Operation operation;
  int channels, processed;
  ZorStatus (*to)(const T*, int, const T*, int, T*, int, ZorImgSize, int);
  ZorStatus (*inPlace)(const T*, int, T*, int, ZorImgSize, int);
};
template <class T> struct Constants {
  const char* name;
  Operation operation;
  int channels, processed;
  ZorStatus (*to)(const T*, int, const T*, T*, int, ZorImgSize, int);
  ZorStatus (*inPlace)(const T*, T*, int, ZorImgSize, int);
};

// Floats take no scale.
template <class F, class... A> ZorStatus call(int scale, F function, A... arguments)
{
  if constexpr (std::is_invocable_v<F, A..., int>) return function(arguments..., scale);
  else return function(arguments...);
}

template <class T> std::vector<Images<T>> images();
template <class T> std::vector<Constants<T>> constants();

// SFS is the end of a name, VALUE what makes a constant of its address.
#define IMAGES(type, name, operation, layout, channels, processed, SFS)                                                \
  {#name " " #type " " #layout,                                                                                        \
   operation,                                                                                                          \
   channels,                                                                                                           \
   processed,                                                                                                          \
   [](const Zor##type* a, int aStep, const Zor##type* b, int bStep, Zor##type* d, int dStep, ZorImgSize roi, int s) {  \
     return call(s, zori##name##_##type##_##layout##R##SFS, a, aStep, b, bStep, d, dStep, roi);                        \
   },                                                                                                                  \
   [](const Zor##type* a, int aStep, Zor##type* d, int dStep, ZorImgSize roi, int scale) {                             \
     return call(scale, zori##name##_##type##_##layout##IR##SFS, a, aStep, d, dStep, roi);                             \
   }},
#define CONSTANTS(type, name, operation, layout, channels, processed, VALUE, SFS)                                      \
  {#name " " #type " " #layout,                                                                                        \
   operation,                                                                                                          \
   channels,                                                                                                           \
   processed,                                                                                                          \
   [](const Zor##type* a, int aStep, const Zor##type* c, Zor##type* d, int dStep, ZorImgSize roi, int scale) {         \
     return call(scale, zori##name##_##type##_##layout##R##SFS, a, aStep, VALUE c, d, dStep, roi);                     \
   },                                                                                                                  \
   [](const Zor##type* c, Zor##type* d, int dStep, ZorImgSize roi, int scale) {                                        \
     return call(scale, zori##name##_##type##_##layout##IR##SFS, VALUE c, d, dStep, roi);                              \
   }},
#define COMPLEX(type, name, operation, SFS)                                                                            \
  IMAGES(type, name, operation, C1, 1, 1, SFS)                                                                         \
  IMAGES(type, name, operation, C3, 3, 3, SFS)                                                                         \
  IMAGES(type, name, operation, AC4, 4, 3, SFS)
#define REAL(type, name, operation, SFS)                                                                               \
  COMPLEX(type, name, operation, SFS) IMAGES(type, name, operation, C4, 4, 4, SFS)
#define COMPLEX_C(type, name, operation, SFS)                                                                          \
  CONSTANTS(type, name, operation, C1, 1, 1, *, SFS)                                                                   \
  CONSTANTS(type, name, operation, C3, 3, 3, , SFS)                                                                    \
  CONSTANTS(type, name, operation, AC4, 4, 3, , SFS)
#define REAL_C(type, name, operation, SFS)                                                                             \
  COMPLEX_C(type, name, operation, SFS) CONSTANTS(type, name, operation, C4, 4, 4, , SFS)
#define TABLES(type, kind, SFS)                                                                                        \
  template <> inline std::vector<Images<Zor##type>> images()                                                           \
  {                                                                                                                    \
    return {kind(type, Add, Sum, SFS) kind(type, Sub, Difference, SFS) kind(type, Mul, Product, SFS)};                 \
  }                                                                                                                    \
  template <> inline std::vector<Constants<Zor##type>> constants()                                                     \
  {                                                                                                                    \
    return {kind##_C(type, AddC, Sum, SFS) kind##_C(type, SubC, Difference, SFS) kind##_C(type, MulC, Product, SFS)};  \
  }
TABLES(8u, REAL, Sfs)
TABLES(16u, REAL, Sfs)
TABLES(16s, REAL, Sfs)
TABLES(32f, REAL, )
TABLES(16sc, COMPLEX, Sfs)
TABLES(32sc, COMPLEX, Sfs)
TABLES(32fc, COMPLEX, )
#undef TABLES
#undef REAL_C
#undef COMPLEX_C
#undef REAL
#undef COMPLEX
#undef CONSTANTS
#undef IMAGES

} // namespace scaledtest
