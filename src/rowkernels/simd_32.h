// Operations on vectors of 32 bytes. What is named as in 16 bytes does the same in the order of the whole vector; what
// is called Local does it within each 16 bytes, which is cheaper, for pairs of steps that cancel (widen, work, narrow).
#pragma once

#include "simd_16.h"

#if ZORI_VECTOR_BYTES == 32

namespace zori {
inline namespace ZORI_WIDTH {

// ---- Memory ----

template <class T> inline Vec<T, 32> load32(const void* p)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_loadu_ps(static_cast<const float*>(p))};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_loadu_pd(static_cast<const double*>(p))};
  else return {_mm256_loadu_si256(static_cast<const __m256i*>(p))};
}

template <class T> inline Vec<T, 32> loadAligned32(const void* p)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_load_ps(static_cast<const float*>(p))};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_load_pd(static_cast<const double*>(p))};
  else return {_mm256_load_si256(static_cast<const __m256i*>(p))};
}

template <class T> inline void store(void* p, Vec<T, 32> x)
{
  if constexpr (std::is_same_v<T, float>) _mm256_storeu_ps(static_cast<float*>(p), x.v);
  else if constexpr (std::is_same_v<T, double>) _mm256_storeu_pd(static_cast<double*>(p), x.v);
  else _mm256_storeu_si256(static_cast<__m256i*>(p), x.v);
}

template <class T> inline void storeAligned(void* p, Vec<T, 32> x)
{
  if constexpr (std::is_same_v<T, float>) _mm256_store_ps(static_cast<float*>(p), x.v);
  else if constexpr (std::is_same_v<T, double>) _mm256_store_pd(static_cast<double*>(p), x.v);
  else _mm256_store_si256(static_cast<__m256i*>(p), x.v);
}

// Non-temporal store to an aligned address; the writer ends with streamFence().
template <class T> inline void stream(void* p, Vec<T, 32> x)
{
  if constexpr (std::is_same_v<T, float>) _mm256_stream_ps(static_cast<float*>(p), x.v);
  else if constexpr (std::is_same_v<T, double>) _mm256_stream_pd(static_cast<double*>(p), x.v);
  else _mm256_stream_si256(static_cast<__m256i*>(p), x.v);
}

// ---- Making and viewing ----

template <class T> inline Vec<T, 32> splat32(T x)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_set1_ps(x)};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_set1_pd(x)};
  else if constexpr (sizeof(T) == 1) return {_mm256_set1_epi8(static_cast<char>(x))};
  else if constexpr (sizeof(T) == 2) return {_mm256_set1_epi16(static_cast<short>(x))};
  else if constexpr (sizeof(T) == 4) return {_mm256_set1_epi32(static_cast<int>(x))};
  else return {_mm256_set1_epi64x(static_cast<long long>(x))};
}

// The same bits as lanes of another type.
template <class To, class From> inline Vec<To, 32> as(Vec<From, 32> x)
{
  if constexpr (std::is_same_v<To, From>) return x;
  else if constexpr (std::is_same_v<To, float>) {
    if constexpr (std::is_same_v<From, double>) return {_mm256_castpd_ps(x.v)};
    else return {_mm256_castsi256_ps(x.v)};
  } else if constexpr (std::is_same_v<To, double>) {
    if constexpr (std::is_same_v<From, float>) return {_mm256_castps_pd(x.v)};
    else return {_mm256_castsi256_pd(x.v)};
  } else if constexpr (std::is_same_v<From, float>) return {_mm256_castps_si256(x.v)};
  else if constexpr (std::is_same_v<From, double>) return {_mm256_castpd_si256(x.v)};
  else return {x.v};
}

template <class T> inline T firstLane(Vec<T, 32> x)
{
  if constexpr (std::is_same_v<T, float>) return _mm256_cvtss_f32(x.v);
  else if constexpr (std::is_same_v<T, double>) return _mm256_cvtsd_f64(x.v);
  else if constexpr (sizeof(T) == 8) return get<T>(&x.v);
  else return static_cast<T>(_mm256_cvtsi256_si32(x.v));
}

// ---- Bits ----

template <class T> inline Vec<T, 32> operator&(Vec<T, 32> a, Vec<T, 32> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_and_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_and_pd(a.v, b.v)};
  else return {_mm256_and_si256(a.v, b.v)};
}
template <class T> inline Vec<T, 32> operator|(Vec<T, 32> a, Vec<T, 32> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_or_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_or_pd(a.v, b.v)};
  else return {_mm256_or_si256(a.v, b.v)};
}
template <class T> inline Vec<T, 32> operator^(Vec<T, 32> a, Vec<T, 32> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_xor_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_xor_pd(a.v, b.v)};
  else return {_mm256_xor_si256(a.v, b.v)};
}
// a with the bits of mask cleared
template <class T> inline Vec<T, 32> without(Vec<T, 32> a, Vec<T, 32> mask)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_andnot_ps(mask.v, a.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_andnot_pd(mask.v, a.v)};
  else return {_mm256_andnot_si256(mask.v, a.v)};
}

// One bit a byte (integers) or a lane (floats) from the sign bits.
template <class T> inline int moveMask(Vec<T, 32> x)
{
  if constexpr (std::is_same_v<T, float>) return _mm256_movemask_ps(x.v);
  else if constexpr (std::is_same_v<T, double>) return _mm256_movemask_pd(x.v);
  else return _mm256_movemask_epi8(x.v);
}

// ---- Sums and differences: wrapping for integers ----

template <class T> inline Vec<T, 32> operator+(Vec<T, 32> a, Vec<T, 32> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_add_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_add_pd(a.v, b.v)};
  else if constexpr (sizeof(T) == 1) return {_mm256_add_epi8(a.v, b.v)};
  else if constexpr (sizeof(T) == 2) return {_mm256_add_epi16(a.v, b.v)};
  else if constexpr (sizeof(T) == 4) return {_mm256_add_epi32(a.v, b.v)};
  else return {_mm256_add_epi64(a.v, b.v)};
}
template <class T> inline Vec<T, 32> operator-(Vec<T, 32> a, Vec<T, 32> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_sub_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_sub_pd(a.v, b.v)};
  else if constexpr (sizeof(T) == 1) return {_mm256_sub_epi8(a.v, b.v)};
  else if constexpr (sizeof(T) == 2) return {_mm256_sub_epi16(a.v, b.v)};
  else if constexpr (sizeof(T) == 4) return {_mm256_sub_epi32(a.v, b.v)};
  else return {_mm256_sub_epi64(a.v, b.v)};
}
inline Vec<float, 32> operator*(Vec<float, 32> a, Vec<float, 32> b) { return {_mm256_mul_ps(a.v, b.v)}; }
inline Vec<double, 32> operator*(Vec<double, 32> a, Vec<double, 32> b) { return {_mm256_mul_pd(a.v, b.v)}; }
inline Vec<float, 32> operator/(Vec<float, 32> a, Vec<float, 32> b) { return {_mm256_div_ps(a.v, b.v)}; }
inline Vec<double, 32> operator/(Vec<double, 32> a, Vec<double, 32> b) { return {_mm256_div_pd(a.v, b.v)}; }
inline Vec<float, 32> sqrt(Vec<float, 32> a) { return {_mm256_sqrt_ps(a.v)}; }
inline Vec<double, 32> sqrt(Vec<double, 32> a) { return {_mm256_sqrt_pd(a.v)}; }
inline Vec<float, 32> reciprocalEstimate(Vec<float, 32> a) { return {_mm256_rcp_ps(a.v)}; }
inline Vec<float, 32> rsqrtEstimate(Vec<float, 32> a) { return {_mm256_rsqrt_ps(a.v)}; }

template <class T> inline Vec<T, 32> addSat(Vec<T, 32> a, Vec<T, 32> b)
{
  static_assert(isInt<T> && sizeof(T) <= 2);
  if constexpr (std::is_same_v<T, uint8_t>) return {_mm256_adds_epu8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, int8_t>) return {_mm256_adds_epi8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, uint16_t>) return {_mm256_adds_epu16(a.v, b.v)};
  else return {_mm256_adds_epi16(a.v, b.v)};
}
template <class T> inline Vec<T, 32> subSat(Vec<T, 32> a, Vec<T, 32> b)
{
  static_assert(isInt<T> && sizeof(T) <= 2);
  if constexpr (std::is_same_v<T, uint8_t>) return {_mm256_subs_epu8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, int8_t>) return {_mm256_subs_epi8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, uint16_t>) return {_mm256_subs_epu16(a.v, b.v)};
  else return {_mm256_subs_epi16(a.v, b.v)};
}
// (a + b + 1) >> 1
inline Vec<uint8_t, 32> average(Vec<uint8_t, 32> a, Vec<uint8_t, 32> b) { return {_mm256_avg_epu8(a.v, b.v)}; }
inline Vec<uint16_t, 32> average(Vec<uint16_t, 32> a, Vec<uint16_t, 32> b) { return {_mm256_avg_epu16(a.v, b.v)}; }
// Sums of absolute differences of each eight bytes, in 64-bit lanes.
inline Vec<uint64_t, 32> sumAbsDiff(Vec<uint8_t, 32> a, Vec<uint8_t, 32> b) { return {_mm256_sad_epu8(a.v, b.v)}; }

// ---- Products ----

// Low and high halves of the 16-bit products.
template <class T> inline Vec<T, 32> mulLow(Vec<T, 32> a, Vec<T, 32> b)
{
  static_assert(sizeof(T) == 2);
  return {_mm256_mullo_epi16(a.v, b.v)};
}
inline Vec<int16_t, 32> mulHigh(Vec<int16_t, 32> a, Vec<int16_t, 32> b) { return {_mm256_mulhi_epi16(a.v, b.v)}; }
inline Vec<uint16_t, 32> mulHigh(Vec<uint16_t, 32> a, Vec<uint16_t, 32> b) { return {_mm256_mulhi_epu16(a.v, b.v)}; }
// a0*b0 + a1*b1 of each pair of 16-bit lanes.
inline Vec<int32_t, 32> mulAddPairs(Vec<int16_t, 32> a, Vec<int16_t, 32> b) { return {_mm256_madd_epi16(a.v, b.v)}; }
// Low halves of the 32-bit products.
inline Vec<int32_t, 32> mulLow(Vec<int32_t, 32> a, Vec<int32_t, 32> b) { return {_mm256_mullo_epi32(a.v, b.v)}; }
// 64-bit products of the even 32-bit lanes.
inline Vec<uint64_t, 32> mulEven(Vec<uint32_t, 32> a, Vec<uint32_t, 32> b) { return {_mm256_mul_epu32(a.v, b.v)}; }

// ---- Shifts: arithmetic to the right for signed lanes; a count beyond the lane gives 0 or the sign. ----

template <class T> inline Vec<T, 32> shiftLeft(Vec<T, 32> a, int n)
{
  const __m128i c = _mm_cvtsi32_si128(n);
  static_assert(isInt<T> && sizeof(T) > 1);
  if constexpr (sizeof(T) == 2) return {_mm256_sll_epi16(a.v, c)};
  else if constexpr (sizeof(T) == 4) return {_mm256_sll_epi32(a.v, c)};
  else return {_mm256_sll_epi64(a.v, c)};
}
template <class T> inline Vec<T, 32> shiftRight(Vec<T, 32> a, int n)
{
  const __m128i c = _mm_cvtsi32_si128(n);
  static_assert(isInt<T> && sizeof(T) > 1 && !(isSigned<T> && sizeof(T) == 8));
  if constexpr (isSigned<T>) {
    if constexpr (sizeof(T) == 2) return {_mm256_sra_epi16(a.v, c)};
    else return {_mm256_sra_epi32(a.v, c)};
  } else {
    if constexpr (sizeof(T) == 2) return {_mm256_srl_epi16(a.v, c)};
    else if constexpr (sizeof(T) == 4) return {_mm256_srl_epi32(a.v, c)};
    else return {_mm256_srl_epi64(a.v, c)};
  }
}
template <int N, class T> inline Vec<T, 32> shiftLeft(Vec<T, 32> a)
{
  if constexpr (sizeof(T) == 2) return {_mm256_slli_epi16(a.v, N)};
  else if constexpr (sizeof(T) == 4) return {_mm256_slli_epi32(a.v, N)};
  else return {_mm256_slli_epi64(a.v, N)};
}
template <int N, class T> inline Vec<T, 32> shiftRight(Vec<T, 32> a)
{
  if constexpr (isSigned<T>) {
    if constexpr (sizeof(T) == 2) return {_mm256_srai_epi16(a.v, N)};
    else return {_mm256_srai_epi32(a.v, N)};
  } else {
    if constexpr (sizeof(T) == 2) return {_mm256_srli_epi16(a.v, N)};
    else if constexpr (sizeof(T) == 4) return {_mm256_srli_epi32(a.v, N)};
    else return {_mm256_srli_epi64(a.v, N)};
  }
}
// The whole vector moved by N bytes towards higher (up) or lower (down) addresses; zeros come in.
template <int N, class T> inline Vec<T, 32> bytesUp(Vec<T, 32> a)
{
  const __m256i x = as<uint8_t>(a).v, lowAbove = _mm256_permute2x128_si256(x, x, 0x08);
  if constexpr (N >= 16) return as<T>(Vec<uint8_t, 32>{_mm256_slli_si256(lowAbove, N - 16)});
  else return as<T>(Vec<uint8_t, 32>{_mm256_alignr_epi8(x, lowAbove, 16 - N)});
}
template <int N, class T> inline Vec<T, 32> bytesDown(Vec<T, 32> a)
{
  const __m256i x = as<uint8_t>(a).v, highBelow = _mm256_permute2x128_si256(x, x, 0x81);
  if constexpr (N >= 16) return as<T>(Vec<uint8_t, 32>{_mm256_srli_si256(highBelow, N - 16)});
  else return as<T>(Vec<uint8_t, 32>{_mm256_alignr_epi8(highBelow, x, N)});
}
// Each 16 bytes moved by N bytes towards higher addresses; zeros come in.
template <int N, class T> inline Vec<T, 32> bytesUpLocal(Vec<T, 32> a)
{
  return as<T>(Vec<uint8_t, 32>{_mm256_slli_si256(as<uint8_t>(a).v, N)});
}
// The bytes N to N + 31 of a and b behind each other, N at most 16.
template <int N, class T> inline Vec<T, 32> bytesFrom(Vec<T, 32> a, Vec<T, 32> b)
{
  static_assert(N >= 0 && N <= 16);
  const __m256i x = as<uint8_t>(a).v, middle = _mm256_permute2x128_si256(x, as<uint8_t>(b).v, 0x21);
  return as<T>(Vec<uint8_t, 32>{_mm256_alignr_epi8(middle, x, N)});
}
// The same within each 16 bytes: of a row where b was loaded 16 bytes behind a.
template <int N, class T> inline Vec<T, 32> bytesFromLocal(Vec<T, 32> a, Vec<T, 32> b)
{
  static_assert(N >= 0 && N <= 16);
  return as<T>(Vec<uint8_t, 32>{_mm256_alignr_epi8(as<uint8_t>(b).v, as<uint8_t>(a).v, N)});
}

// ---- Comparison: lanes of all ones where it holds ----

template <class T> inline Vec<T, 32> equal(Vec<T, 32> a, Vec<T, 32> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_cmp_ps(a.v, b.v, _CMP_EQ_OQ)};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_cmp_pd(a.v, b.v, _CMP_EQ_OQ)};
  else if constexpr (sizeof(T) == 1) return {_mm256_cmpeq_epi8(a.v, b.v)};
  else if constexpr (sizeof(T) == 2) return {_mm256_cmpeq_epi16(a.v, b.v)};
  else {
    static_assert(sizeof(T) == 4);
    return {_mm256_cmpeq_epi32(a.v, b.v)};
  }
}

template <class T> inline Vec<T, 32> greater(Vec<T, 32> a, Vec<T, 32> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_cmp_ps(a.v, b.v, _CMP_GT_OS)};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_cmp_pd(a.v, b.v, _CMP_GT_OS)};
  else {
    static_assert(sizeof(T) <= 4);
    if constexpr (!isSigned<T>) { // compare with the top bit flipped
      a = a ^ topBits<T, 32>();
      b = b ^ topBits<T, 32>();
    }
    if constexpr (sizeof(T) == 1) return {_mm256_cmpgt_epi8(a.v, b.v)};
    else if constexpr (sizeof(T) == 2) return {_mm256_cmpgt_epi16(a.v, b.v)};
    else return {_mm256_cmpgt_epi32(a.v, b.v)};
  }
}
inline Vec<float, 32> greaterEqual(Vec<float, 32> a, Vec<float, 32> b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_GE_OS)}; }
inline Vec<float, 32> lessEqual(Vec<float, 32> a, Vec<float, 32> b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_LE_OS)}; }
inline Vec<float, 32> less(Vec<float, 32> a, Vec<float, 32> b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_LT_OS)}; }
inline Vec<float, 32> notLess(Vec<float, 32> a, Vec<float, 32> b)
{
  return {_mm256_cmp_ps(a.v, b.v, _CMP_NLT_US)};
} // holds for a NaN too
inline Vec<float, 32> unordered(Vec<float, 32> a, Vec<float, 32> b) { return {_mm256_cmp_ps(a.v, b.v, _CMP_UNORD_Q)}; }

// For floats, as the processor does: the second operand where either is a NaN (or both are zeros).
template <class T> inline Vec<T, 32> min(Vec<T, 32> a, Vec<T, 32> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_min_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_min_pd(a.v, b.v)};
  else if constexpr (std::is_same_v<T, uint8_t>) return {_mm256_min_epu8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, int16_t>) return {_mm256_min_epi16(a.v, b.v)};
  else if constexpr (std::is_same_v<T, int8_t>) return {_mm256_min_epi8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, uint16_t>) return {_mm256_min_epu16(a.v, b.v)};
  else if constexpr (std::is_same_v<T, int32_t>) return {_mm256_min_epi32(a.v, b.v)};
  else {
    static_assert(std::is_same_v<T, uint32_t>);
    return {_mm256_min_epu32(a.v, b.v)};
  }
}
template <class T> inline Vec<T, 32> max(Vec<T, 32> a, Vec<T, 32> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_max_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_max_pd(a.v, b.v)};
  else if constexpr (std::is_same_v<T, uint8_t>) return {_mm256_max_epu8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, int16_t>) return {_mm256_max_epi16(a.v, b.v)};
  else if constexpr (std::is_same_v<T, int8_t>) return {_mm256_max_epi8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, uint16_t>) return {_mm256_max_epu16(a.v, b.v)};
  else if constexpr (std::is_same_v<T, int32_t>) return {_mm256_max_epi32(a.v, b.v)};
  else {
    static_assert(std::is_same_v<T, uint32_t>);
    return {_mm256_max_epu32(a.v, b.v)};
  }
}

// ---- Halves ----

template <class T> inline Vec<T, 16> lowHalf(Vec<T, 32> a)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_castps256_ps128(a.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_castpd256_pd128(a.v)};
  else return {_mm256_castsi256_si128(a.v)};
}
template <class T> inline Vec<T, 16> highHalf(Vec<T, 32> a)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_extractf128_ps(a.v, 1)};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_extractf128_pd(a.v, 1)};
  else return {_mm256_extracti128_si256(a.v, 1)};
}
template <class T> inline Vec<T, 32> joined(Vec<T, 16> low, Vec<T, 16> high)
{
  if constexpr (std::is_same_v<T, float>) return {_mm256_set_m128(high.v, low.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm256_set_m128d(high.v, low.v)};
  else return {_mm256_set_m128i(high.v, low.v)};
}
// The low (high) halves of a and b; the four quarters in the order D, C, B, A from the highest to the lowest.
template <class T> inline Vec<T, 32> lowHalves(Vec<T, 32> a, Vec<T, 32> b)
{
  if constexpr (isInt<T>) return {_mm256_permute2x128_si256(a.v, b.v, 0x20)};
  else if constexpr (std::is_same_v<T, float>) return {_mm256_permute2f128_ps(a.v, b.v, 0x20)};
  else return {_mm256_permute2f128_pd(a.v, b.v, 0x20)};
}
template <class T> inline Vec<T, 32> highHalves(Vec<T, 32> a, Vec<T, 32> b)
{
  if constexpr (isInt<T>) return {_mm256_permute2x128_si256(a.v, b.v, 0x31)};
  else if constexpr (std::is_same_v<T, float>) return {_mm256_permute2f128_ps(a.v, b.v, 0x31)};
  else return {_mm256_permute2f128_pd(a.v, b.v, 0x31)};
}
template <int D, int C, int B, int A, class T> inline Vec<T, 32> shuffleQuarters(Vec<T, 32> a)
{
  return as<T>(Vec<uint64_t, 32>{_mm256_permute4x64_epi64(as<uint64_t>(a).v, _MM_SHUFFLE(D, C, B, A))});
}

// Lanes of four bytes from the order 0 2 4 6 1 3 5 7, which narrowing twice within each 16 bytes leaves.
template <class T> inline Vec<T, 32> fourthsInOrder(Vec<T, 32> a)
{
  const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
  return as<T>(Vec<uint32_t, 32>{_mm256_permutevar8x32_epi32(as<uint32_t>(a).v, order)});
}

// ---- Interleaving and widths, within each 16 bytes ----

template <class T> inline Vec<T, 32> interleaveLowLocal(Vec<T, 32> a, Vec<T, 32> b)
{
  if constexpr (!isInt<T>) return as<T>(interleaveLowLocal(as<SameBits<T>>(a), as<SameBits<T>>(b)));
  else if constexpr (sizeof(T) == 1) return {_mm256_unpacklo_epi8(a.v, b.v)};
  else if constexpr (sizeof(T) == 2) return {_mm256_unpacklo_epi16(a.v, b.v)};
  else if constexpr (sizeof(T) == 4) return {_mm256_unpacklo_epi32(a.v, b.v)};
  else return {_mm256_unpacklo_epi64(a.v, b.v)};
}
template <class T> inline Vec<T, 32> interleaveHighLocal(Vec<T, 32> a, Vec<T, 32> b)
{
  if constexpr (!isInt<T>) return as<T>(interleaveHighLocal(as<SameBits<T>>(a), as<SameBits<T>>(b)));
  else if constexpr (sizeof(T) == 1) return {_mm256_unpackhi_epi8(a.v, b.v)};
  else if constexpr (sizeof(T) == 2) return {_mm256_unpackhi_epi16(a.v, b.v)};
  else if constexpr (sizeof(T) == 4) return {_mm256_unpackhi_epi32(a.v, b.v)};
  else return {_mm256_unpackhi_epi64(a.v, b.v)};
}

template <class To> inline Vec<To, 32> narrowSatLocal(Vec<int16_t, 32> low, Vec<int16_t, 32> high)
{
  static_assert(sizeof(To) == 1);
  if constexpr (isSigned<To>) return {_mm256_packs_epi16(low.v, high.v)};
  else return {_mm256_packus_epi16(low.v, high.v)};
}
template <class To> inline Vec<To, 32> narrowSatLocal(Vec<int32_t, 32> low, Vec<int32_t, 32> high)
{
  static_assert(sizeof(To) == 2);
  if constexpr (isSigned<To>) return {_mm256_packs_epi32(low.v, high.v)};
  else return {_mm256_packus_epi32(low.v, high.v)};
}

// The even lanes of a and the odd ones of b.
inline Vec<uint32_t, 32> alternating(Vec<uint32_t, 32> a, Vec<uint32_t, 32> b)
{
  return {_mm256_blend_epi32(a.v, b.v, 0xaa)};
}
inline Vec<uint64_t, 32> alternating(Vec<uint64_t, 32> a, Vec<uint64_t, 32> b)
{
  return {_mm256_blend_epi32(a.v, b.v, 0xcc)};
}

// ---- The same across the whole vector ----

template <class T> inline Vec<T, 32> interleaveLow(Vec<T, 32> a, Vec<T, 32> b)
{
  return lowHalves(interleaveLowLocal(a, b), interleaveHighLocal(a, b));
}
template <class T> inline Vec<T, 32> interleaveHigh(Vec<T, 32> a, Vec<T, 32> b)
{
  return highHalves(interleaveLowLocal(a, b), interleaveHighLocal(a, b));
}

// All lanes of a half, zero- or sign-extended to twice the width.
template <class T> inline Vec<WiderT<T>, 32> widened(Vec<T, 16> a)
{
  if constexpr (std::is_same_v<T, uint8_t>) return {_mm256_cvtepu8_epi16(a.v)};
  else if constexpr (std::is_same_v<T, int8_t>) return {_mm256_cvtepi8_epi16(a.v)};
  else if constexpr (std::is_same_v<T, uint16_t>) return {_mm256_cvtepu16_epi32(a.v)};
  else if constexpr (std::is_same_v<T, int16_t>) return {_mm256_cvtepi16_epi32(a.v)};
  else if constexpr (std::is_same_v<T, uint32_t>) return {_mm256_cvtepu32_epi64(a.v)};
  else return {_mm256_cvtepi32_epi64(a.v)};
}
template <class T> inline Vec<WiderT<T>, 32> widenLow(Vec<T, 32> a) { return widened(lowHalf(a)); }
template <class T> inline Vec<WiderT<T>, 32> widenHigh(Vec<T, 32> a) { return widened(highHalf(a)); }

template <class To, class W> inline Vec<To, 32> narrowSat(Vec<W, 32> low, Vec<W, 32> high)
{
  return shuffleQuarters<3, 1, 2, 0>(narrowSatLocal<To>(low, high));
}

// ---- Numbers ----

inline Vec<float, 32> toFloat(Vec<int32_t, 32> a) { return {_mm256_cvtepi32_ps(a.v)}; }
// Under the rounding field of the control register; 0x80000000 where it does not fit.
inline Vec<int32_t, 32> toInt(Vec<float, 32> a) { return {_mm256_cvtps_epi32(a.v)}; }
inline Vec<int32_t, 32> toIntTruncated(Vec<float, 32> a) { return {_mm256_cvttps_epi32(a.v)}; }
inline Vec<double, 32> toDoubleLow(Vec<float, 32> a) { return {_mm256_cvtps_pd(lowHalf(a).v)}; }
inline Vec<double, 32> widened(F32x4 a) { return {_mm256_cvtps_pd(a.v)}; }
inline Vec<double, 32> toDoubleHigh(Vec<float, 32> a) { return {_mm256_cvtps_pd(highHalf(a).v)}; }
inline Vec<double, 32> toDoubleLow(Vec<int32_t, 32> a) { return {_mm256_cvtepi32_pd(lowHalf(a).v)}; }
inline Vec<double, 32> toDoubleHigh(Vec<int32_t, 32> a) { return {_mm256_cvtepi32_pd(highHalf(a).v)}; }
inline Vec<float, 32> toFloat(Vec<double, 32> low, Vec<double, 32> high)
{
  return {_mm256_set_m128(_mm256_cvtpd_ps(high.v), _mm256_cvtpd_ps(low.v))};
}
inline Vec<int32_t, 32> toInt(Vec<double, 32> low, Vec<double, 32> high)
{
  return {_mm256_set_m128i(_mm256_cvtpd_epi32(high.v), _mm256_cvtpd_epi32(low.v))};
}
inline Vec<int32_t, 32> toIntTruncated(Vec<double, 32> low, Vec<double, 32> high)
{
  return {_mm256_set_m128i(_mm256_cvttpd_epi32(high.v), _mm256_cvttpd_epi32(low.v))};
}

inline Vec<float, 32> abs(Vec<float, 32> a) { return {_mm256_andnot_ps(_mm256_set1_ps(-0.0f), a.v)}; }

// Within each 16 bytes: lanes in the order D, C, B, A from the highest to the lowest, as _MM_SHUFFLE names them.
template <int D, int C, int B, int A> inline Vec<int32_t, 32> shuffleLocal(Vec<int32_t, 32> a)
{
  return {_mm256_shuffle_epi32(a.v, _MM_SHUFFLE(D, C, B, A))};
}
// Lanes A and B of a, then C and D of b.
template <int D, int C, int B, int A> inline Vec<float, 32> shuffleLocal(Vec<float, 32> a, Vec<float, 32> b)
{
  return {_mm256_shuffle_ps(a.v, b.v, _MM_SHUFFLE(D, C, B, A))};
}
// The four words of each 8 bytes, as shuffle orders lanes.
template <int D, int C, int B, int A, class T> inline Vec<T, 32> shuffleWords(Vec<T, 32> a)
{
  static_assert(isInt<T>);
  return {_mm256_shufflehi_epi16(_mm256_shufflelo_epi16(a.v, _MM_SHUFFLE(D, C, B, A)), _MM_SHUFFLE(D, C, B, A))};
}
// Byte i is byte index[i] of its 16 bytes, zero where the index has its top bit set.
inline Vec<uint8_t, 32> shuffleBytesLocal(Vec<uint8_t, 32> a, Vec<uint8_t, 32> index)
{
  return {_mm256_shuffle_epi8(a.v, index.v)};
}

// ---- Pairs of floats taken apart, and put together; a square of lanes turned over its diagonal ----

// See those of 16 bytes: pairs are in another order here, which inOrder takes back.
inline Vec<float, 32> evenLanes(Vec<float, 32> a, Vec<float, 32> b) { return shuffleLocal<2, 0, 2, 0>(a, b); }
inline Vec<float, 32> oddLanes(Vec<float, 32> a, Vec<float, 32> b) { return shuffleLocal<3, 1, 3, 1>(a, b); }
inline Vec<float, 32> inOrder(Vec<float, 32> a) { return as<float>(shuffleQuarters<3, 1, 2, 0>(as<uint64_t>(a))); }
inline Vec<float, 32> pairsLow(Vec<float, 32> even, Vec<float, 32> odd) { return interleaveLowLocal(even, odd); }
inline Vec<float, 32> pairsHigh(Vec<float, 32> even, Vec<float, 32> odd) { return interleaveHighLocal(even, odd); }

// Lane j of vector i becomes lane i of vector j.
inline void transposeLanes(Vec<float, 32> (&x)[8])
{
  Vec<float, 32> y[8];
  for (int i = 0; i < 8; i += 4) { // squares of four
    const auto a = as<double>(interleaveLowLocal(x[i], x[i + 1])),
               b = as<double>(interleaveLowLocal(x[i + 2], x[i + 3])),
               c = as<double>(interleaveHighLocal(x[i], x[i + 1])),
               d = as<double>(interleaveHighLocal(x[i + 2], x[i + 3]));
    y[i] = as<float>(interleaveLowLocal(a, b));
    y[i + 1] = as<float>(interleaveHighLocal(a, b));
    y[i + 2] = as<float>(interleaveLowLocal(c, d));
    y[i + 3] = as<float>(interleaveHighLocal(c, d));
  }
  for (int i = 0; i < 4; ++i) {
    x[i] = lowHalves(y[i], y[i + 4]);
    x[i + 4] = highHalves(y[i], y[i + 4]);
  }
}

} // namespace ZORI_WIDTH
} // namespace zori

#endif
