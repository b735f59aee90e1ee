// Fractions of full scale in vectors: their product M, and the operators of alpha compositing on words.
//
// 8u samples are worked on as words, the even bytes of a vector and the odd ones; 16u samples are words.
#pragma once

#include "simd.h"

namespace zori {
inline namespace ZORI_WIDTH {

using Words = Vec<uint16_t>;

template <class T> inline constexpr T fullScale = static_cast<T>(~T(0));

// M(a, b) = (t + (t >> n) + 1) >> n with t = a * b and n the width of the sample; M(x, full) is x.
template <class T> inline Words fractionProduct(Words a, Words b)
{
  if constexpr (sizeof(T) == 1) { // (t + 1) * 257 >> 16, which is the same for every product
    return mulHigh(mulLow(a, b) + splat<uint16_t>(1), splat<uint16_t>(257));
  } else { // high + 1, or high when low + high + 1 stays below 2^16
    const Words low = mulLow(a, b), next = mulHigh(a, b) + splat<uint16_t>(1);
    return next + equal(addSat(low, next), low + next);
  }
}

template <class T> inline Words complement(Words a) { return a ^ splat<uint16_t>(fullScale<T>); }

template <class T> inline Words fractionSum(Words a, Words b)
{
  if constexpr (sizeof(T) == 1) return as<uint16_t>(min(as<int16_t>(a + b), splat<int16_t>(255)));
  else return addSat(a, b);
}

// f(words..., is odd) on the words of vectors of samples.
template <class T, class F, class... X> inline Vec<T> onWords(F f, X... x)
{
  if constexpr (sizeof(T) == 1) {
    const Words even = f((as<uint16_t>(x) & splat<uint16_t>(255))..., std::false_type{});
    const Words odd = f(shiftRight<8>(as<uint16_t>(x))..., std::true_type{});
    return as<T>(even | shiftLeft<8>(odd));
  } else {
    return f(x..., std::true_type{});
  }
}

// ---- Pixels of four channels ----

// The alpha of each pixel in all its words.
#if ZORI_VECTOR_BYTES == 32
template <class T> struct AlphaIndexes {
  alignas(32) uint8_t byte[32] = {};
  constexpr AlphaIndexes()
  {
    constexpr int size = sizeof(T);
    for (int i = 0; i < 32; ++i)
      byte[i] = static_cast<uint8_t>(i % 2 < size ? i % 16 / (4 * size) * (4 * size) + 3 * size + i % 2 : 0x80);
  }
};
template <class T> inline constexpr AlphaIndexes<T> alphaIndexes;

template <class T> inline Words alphaWords(Vec<T> pixels)
{
  return as<uint16_t>(shuffleBytesLocal(as<uint8_t>(pixels), loadAligned<uint8_t>(alphaIndexes<T>.byte)));
}
#else
template <class T> inline Words alphaWords(Vec<T> pixels)
{
  if constexpr (sizeof(T) == 1) return shuffleWords<3, 3, 1, 1>(shiftRight<8>(as<uint16_t>(pixels)));
  else return shuffleWords<3, 3, 3, 3>(pixels);
}
#endif

// The multiplier that premultiplies the colours and leaves alpha as it is: full in the words of alpha.
template <class T, bool Odd> inline Words premultiplier(Words alpha)
{
  if constexpr (sizeof(T) == 1) return Odd ? alpha | as<uint16_t>(splat<uint32_t>(0x00ff0000u)) : alpha;
  else return alpha | as<uint16_t>(splat<uint64_t>(0xffff000000000000ull));
}

// ---- Operators ----

enum class Porter { Over, In, Out, Atop, Xor, Plus };

// Composes premultiplied p1, p2 with the alphas a1, a2.
template <class T, Porter Operator> inline Words compose(Words p1, Words a1, Words p2, Words a2)
{
  switch (Operator) {
  case Porter::Over: return fractionSum<T>(p1, fractionProduct<T>(complement<T>(a1), p2));
  case Porter::In: return fractionProduct<T>(p1, a2);
  case Porter::Out: return fractionProduct<T>(p1, complement<T>(a2));
  case Porter::Atop: return fractionSum<T>(fractionProduct<T>(p1, a2), fractionProduct<T>(p2, complement<T>(a1)));
  case Porter::Xor:
    return fractionSum<T>(fractionProduct<T>(p1, complement<T>(a2)), fractionProduct<T>(p2, complement<T>(a1)));
  default: return fractionSum<T>(p1, p2);
  }
}

} // namespace ZORI_WIDTH
} // namespace zori
