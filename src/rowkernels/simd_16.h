// Operations on vectors of 16 bytes, at the level of SSE3: byte shuffles, 32-bit products, unsigned 16-bit minima and
// the like do not exist and are composed. Files built for newer processors use what there is.
#pragma once

#include "simd_types.h"

namespace zori {
inline namespace ZORI_WIDTH {

template <class T, int Bytes = vectorBytes> inline Vec<T, Bytes> zero();
template <class T, int Bytes = vectorBytes> inline Vec<T, Bytes> topBits();
template <class T, int Bytes> inline Vec<T, Bytes> signs(Vec<T, Bytes> a);
template <class T, int Bytes> inline Vec<T, Bytes> select(Vec<T, Bytes> mask, Vec<T, Bytes> a, Vec<T, Bytes> b);

// ---- Memory ----

template <class T> inline Vec<T, 16> load16(const void* p)
{
  if constexpr (std::is_same_v<T, float>) return {_mm_loadu_ps(static_cast<const float*>(p))};
  else if constexpr (std::is_same_v<T, double>) return {_mm_loadu_pd(static_cast<const double*>(p))};
  else return {_mm_loadu_si128(static_cast<const __m128i*>(p))};
}

template <class T> inline Vec<T, 16> loadAligned16(const void* p)
{
  if constexpr (std::is_same_v<T, float>) return {_mm_load_ps(static_cast<const float*>(p))};
  else if constexpr (std::is_same_v<T, double>) return {_mm_load_pd(static_cast<const double*>(p))};
  else return {_mm_load_si128(static_cast<const __m128i*>(p))};
}

template <class T> inline void store(void* p, Vec<T, 16> x)
{
  if constexpr (std::is_same_v<T, float>) _mm_storeu_ps(static_cast<float*>(p), x.v);
  else if constexpr (std::is_same_v<T, double>) _mm_storeu_pd(static_cast<double*>(p), x.v);
  else _mm_storeu_si128(static_cast<__m128i*>(p), x.v);
}

template <class T> inline void storeAligned(void* p, Vec<T, 16> x)
{
  if constexpr (std::is_same_v<T, float>) _mm_store_ps(static_cast<float*>(p), x.v);
  else if constexpr (std::is_same_v<T, double>) _mm_store_pd(static_cast<double*>(p), x.v);
  else _mm_store_si128(static_cast<__m128i*>(p), x.v);
}

// Non-temporal store to an aligned address; the writer ends with streamFence().
template <class T> inline void stream(void* p, Vec<T, 16> x)
{
  if constexpr (std::is_same_v<T, float>) _mm_stream_ps(static_cast<float*>(p), x.v);
  else if constexpr (std::is_same_v<T, double>) _mm_stream_pd(static_cast<double*>(p), x.v);
  else _mm_stream_si128(static_cast<__m128i*>(p), x.v);
}

// The low 4 or 8 bytes alone; the other lanes are zero.
template <class T> inline Vec<T, 16> loadLow8(const void* p)
{
  const __m128i x = _mm_loadl_epi64(static_cast<const __m128i*>(p));
  if constexpr (std::is_same_v<T, float>) return {_mm_castsi128_ps(x)};
  else return {x};
}

// A vector of two words of 8 bytes.
inline Vec<uint64_t, 16> ofHalves(uint64_t low, uint64_t high)
{
  return {_mm_set_epi64x(static_cast<long long>(high), static_cast<long long>(low))};
}

template <class T> inline Vec<T, 16> loadLow4(const void* p)
{
  const __m128i x = _mm_cvtsi32_si128(get<int>(p));
  if constexpr (std::is_same_v<T, float>) return {_mm_castsi128_ps(x)};
  else return {x};
}

template <class T> inline void storeLow8(void* p, Vec<T, 16> x)
{
  if constexpr (std::is_same_v<T, float>) _mm_storel_pi(static_cast<__m64*>(p), x.v);
  else _mm_storel_epi64(static_cast<__m128i*>(p), x.v);
}

template <class T> inline void storeLow4(void* p, Vec<T, 16> x)
{
  if constexpr (std::is_same_v<T, float>) put(p, _mm_cvtss_f32(x.v));
  else put(p, _mm_cvtsi128_si32(x.v));
}

// Four floats, two floats from each of two places, one float four times: at every vector width.
inline F32x4 loadFour(const float* p) { return {_mm_loadu_ps(p)}; }
inline F32x4 loadHalves(const float* low, const float* high)
{
  const __m128d x = _mm_load_sd(reinterpret_cast<const double*>(low));
  return {_mm_castpd_ps(_mm_loadh_pd(x, reinterpret_cast<const double*>(high)))};
}
inline F32x4 splatFour(float x) { return {_mm_set1_ps(x)}; }

// A vector of lanes from Scale * at[0], Scale * at[1]... bytes behind p.
template <int Scale> inline Vec<uint32_t, 16> gatherFour(const void* p, const int32_t* at)
{
  const auto lane = [=](int k) {
    return _mm_cvtsi32_si128(get<int>(static_cast<const char*>(p) + std::ptrdiff_t{Scale} * at[k]));
  };
  return {_mm_unpacklo_epi64(_mm_unpacklo_epi32(lane(0), lane(1)), _mm_unpacklo_epi32(lane(2), lane(3)))};
}

// Eight bytes from each of two places.
template <class T> inline Vec<T, 16> loadTwo(const void* p, const void* q)
{
  static_assert(isInt<T>);
  return {_mm_castpd_si128(_mm_loadh_pd(_mm_load_sd(static_cast<const double*>(p)), static_cast<const double*>(q)))};
}

// The words at base + offset[i], of which there are as many as lanes.
inline Vec<uint16_t, 16> gatherWords(const void* base, const int32_t* offset)
{
  const char* const p = static_cast<const char*>(base);
  __m128i x = _mm_cvtsi32_si128(get<uint16_t>(p + offset[0]));
  x = _mm_insert_epi16(x, get<int16_t>(p + offset[1]), 1);
  x = _mm_insert_epi16(x, get<int16_t>(p + offset[2]), 2);
  x = _mm_insert_epi16(x, get<int16_t>(p + offset[3]), 3);
  x = _mm_insert_epi16(x, get<int16_t>(p + offset[4]), 4);
  x = _mm_insert_epi16(x, get<int16_t>(p + offset[5]), 5);
  x = _mm_insert_epi16(x, get<int16_t>(p + offset[6]), 6);
  return {_mm_insert_epi16(x, get<int16_t>(p + offset[7]), 7)};
}

// ---- Making and viewing ----

template <class T> inline Vec<T, 16> splat16(T x)
{
  if constexpr (std::is_same_v<T, float>) return {_mm_set1_ps(x)};
  else if constexpr (std::is_same_v<T, double>) return {_mm_set1_pd(x)};
  else if constexpr (sizeof(T) == 1) return {_mm_set1_epi8(static_cast<char>(x))};
  else if constexpr (sizeof(T) == 2) return {_mm_set1_epi16(static_cast<short>(x))};
  else if constexpr (sizeof(T) == 4) return {_mm_set1_epi32(static_cast<int>(x))};
  else return {_mm_set1_epi64x(static_cast<long long>(x))};
}

// The same bits as lanes of another type.
template <class To, class From> inline Vec<To, 16> as(Vec<From, 16> x)
{
  if constexpr (std::is_same_v<To, From>) return x;
  else if constexpr (std::is_same_v<To, float>) {
    if constexpr (std::is_same_v<From, double>) return {_mm_castpd_ps(x.v)};
    else return {_mm_castsi128_ps(x.v)};
  } else if constexpr (std::is_same_v<To, double>) {
    if constexpr (std::is_same_v<From, float>) return {_mm_castps_pd(x.v)};
    else return {_mm_castsi128_pd(x.v)};
  } else if constexpr (std::is_same_v<From, float>) return {_mm_castps_si128(x.v)};
  else if constexpr (std::is_same_v<From, double>) return {_mm_castpd_si128(x.v)};
  else return {x.v};
}

template <class T> inline T firstLane(Vec<T, 16> x)
{
  if constexpr (std::is_same_v<T, float>) return _mm_cvtss_f32(x.v);
  else if constexpr (std::is_same_v<T, double>) return _mm_cvtsd_f64(x.v);
  else if constexpr (sizeof(T) == 8) return get<T>(&x.v);
  else return static_cast<T>(_mm_cvtsi128_si32(x.v));
}

// ---- Bits ----

template <class T> inline Vec<T, 16> operator&(Vec<T, 16> a, Vec<T, 16> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm_and_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm_and_pd(a.v, b.v)};
  else return {_mm_and_si128(a.v, b.v)};
}
template <class T> inline Vec<T, 16> operator|(Vec<T, 16> a, Vec<T, 16> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm_or_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm_or_pd(a.v, b.v)};
  else return {_mm_or_si128(a.v, b.v)};
}
template <class T> inline Vec<T, 16> operator^(Vec<T, 16> a, Vec<T, 16> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm_xor_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm_xor_pd(a.v, b.v)};
  else return {_mm_xor_si128(a.v, b.v)};
}
// a with the bits of mask cleared
template <class T> inline Vec<T, 16> without(Vec<T, 16> a, Vec<T, 16> mask)
{
  if constexpr (std::is_same_v<T, float>) return {_mm_andnot_ps(mask.v, a.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm_andnot_pd(mask.v, a.v)};
  else return {_mm_andnot_si128(mask.v, a.v)};
}

// One bit a byte (integers) or a lane (floats) from the sign bits.
template <class T> inline int moveMask(Vec<T, 16> x)
{
  if constexpr (std::is_same_v<T, float>) return _mm_movemask_ps(x.v);
  else if constexpr (std::is_same_v<T, double>) return _mm_movemask_pd(x.v);
  else return _mm_movemask_epi8(x.v);
}

// ---- Sums and differences: wrapping for integers ----

template <class T> inline Vec<T, 16> operator+(Vec<T, 16> a, Vec<T, 16> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm_add_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm_add_pd(a.v, b.v)};
  else if constexpr (sizeof(T) == 1) return {_mm_add_epi8(a.v, b.v)};
  else if constexpr (sizeof(T) == 2) return {_mm_add_epi16(a.v, b.v)};
  else if constexpr (sizeof(T) == 4) return {_mm_add_epi32(a.v, b.v)};
  else return {_mm_add_epi64(a.v, b.v)};
}
template <class T> inline Vec<T, 16> operator-(Vec<T, 16> a, Vec<T, 16> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm_sub_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm_sub_pd(a.v, b.v)};
  else if constexpr (sizeof(T) == 1) return {_mm_sub_epi8(a.v, b.v)};
  else if constexpr (sizeof(T) == 2) return {_mm_sub_epi16(a.v, b.v)};
  else if constexpr (sizeof(T) == 4) return {_mm_sub_epi32(a.v, b.v)};
  else return {_mm_sub_epi64(a.v, b.v)};
}
inline F32x4 operator*(F32x4 a, F32x4 b) { return {_mm_mul_ps(a.v, b.v)}; }
inline F64x2 operator*(F64x2 a, F64x2 b) { return {_mm_mul_pd(a.v, b.v)}; }
inline F32x4 operator/(F32x4 a, F32x4 b) { return {_mm_div_ps(a.v, b.v)}; }
inline F64x2 operator/(F64x2 a, F64x2 b) { return {_mm_div_pd(a.v, b.v)}; }
inline F32x4 sqrt(F32x4 a) { return {_mm_sqrt_ps(a.v)}; }
inline F64x2 sqrt(F64x2 a) { return {_mm_sqrt_pd(a.v)}; }
inline F32x4 reciprocalEstimate(F32x4 a) { return {_mm_rcp_ps(a.v)}; }
inline F32x4 rsqrtEstimate(F32x4 a) { return {_mm_rsqrt_ps(a.v)}; }

template <class T> inline Vec<T, 16> addSat(Vec<T, 16> a, Vec<T, 16> b)
{
  static_assert(isInt<T> && sizeof(T) <= 2);
  if constexpr (std::is_same_v<T, uint8_t>) return {_mm_adds_epu8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, int8_t>) return {_mm_adds_epi8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, uint16_t>) return {_mm_adds_epu16(a.v, b.v)};
  else return {_mm_adds_epi16(a.v, b.v)};
}
template <class T> inline Vec<T, 16> subSat(Vec<T, 16> a, Vec<T, 16> b)
{
  static_assert(isInt<T> && sizeof(T) <= 2);
  if constexpr (std::is_same_v<T, uint8_t>) return {_mm_subs_epu8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, int8_t>) return {_mm_subs_epi8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, uint16_t>) return {_mm_subs_epu16(a.v, b.v)};
  else return {_mm_subs_epi16(a.v, b.v)};
}
// (a + b + 1) >> 1
inline Vec<uint8_t, 16> average(Vec<uint8_t, 16> a, Vec<uint8_t, 16> b) { return {_mm_avg_epu8(a.v, b.v)}; }
inline Vec<uint16_t, 16> average(Vec<uint16_t, 16> a, Vec<uint16_t, 16> b) { return {_mm_avg_epu16(a.v, b.v)}; }
// Sums of absolute differences of each eight bytes, in 64-bit lanes.
inline Vec<uint64_t, 16> sumAbsDiff(Vec<uint8_t, 16> a, Vec<uint8_t, 16> b) { return {_mm_sad_epu8(a.v, b.v)}; }

// ---- Products ----

// Low and high halves of the 16-bit products.
template <class T> inline Vec<T, 16> mulLow(Vec<T, 16> a, Vec<T, 16> b)
{
  static_assert(sizeof(T) == 2);
  return {_mm_mullo_epi16(a.v, b.v)};
}
inline Vec<int16_t, 16> mulHigh(Vec<int16_t, 16> a, Vec<int16_t, 16> b) { return {_mm_mulhi_epi16(a.v, b.v)}; }
inline Vec<uint16_t, 16> mulHigh(Vec<uint16_t, 16> a, Vec<uint16_t, 16> b) { return {_mm_mulhi_epu16(a.v, b.v)}; }
// a0*b0 + a1*b1 of each pair of 16-bit lanes.
inline Vec<int32_t, 16> mulAddPairs(Vec<int16_t, 16> a, Vec<int16_t, 16> b) { return {_mm_madd_epi16(a.v, b.v)}; }
// Low halves of the 32-bit products.
inline I32x4 mulLow(I32x4 a, I32x4 b)
{
  const __m128i even = _mm_mul_epu32(a.v, b.v), odd = _mm_mul_epu32(_mm_srli_epi64(a.v, 32), _mm_srli_epi64(b.v, 32));
  return {_mm_unpacklo_epi32(_mm_shuffle_epi32(even, _MM_SHUFFLE(0, 0, 2, 0)),
                             _mm_shuffle_epi32(odd, _MM_SHUFFLE(0, 0, 2, 0)))};
}
// 64-bit products of the even 32-bit lanes.
inline Vec<uint64_t, 16> mulEven(Vec<uint32_t, 16> a, Vec<uint32_t, 16> b) { return {_mm_mul_epu32(a.v, b.v)}; }

// ---- Shifts: arithmetic to the right for signed lanes; a count beyond the lane gives 0 or the sign. ----

template <class T> inline Vec<T, 16> shiftLeft(Vec<T, 16> a, int n)
{
  const __m128i c = _mm_cvtsi32_si128(n);
  static_assert(isInt<T> && sizeof(T) > 1);
  if constexpr (sizeof(T) == 2) return {_mm_sll_epi16(a.v, c)};
  else if constexpr (sizeof(T) == 4) return {_mm_sll_epi32(a.v, c)};
  else return {_mm_sll_epi64(a.v, c)};
}
template <class T> inline Vec<T, 16> shiftRight(Vec<T, 16> a, int n)
{
  const __m128i c = _mm_cvtsi32_si128(n);
  static_assert(isInt<T> && sizeof(T) > 1 && !(isSigned<T> && sizeof(T) == 8));
  if constexpr (isSigned<T>) {
    if constexpr (sizeof(T) == 2) return {_mm_sra_epi16(a.v, c)};
    else return {_mm_sra_epi32(a.v, c)};
  } else {
    if constexpr (sizeof(T) == 2) return {_mm_srl_epi16(a.v, c)};
    else if constexpr (sizeof(T) == 4) return {_mm_srl_epi32(a.v, c)};
    else return {_mm_srl_epi64(a.v, c)};
  }
}
template <int N, class T> inline Vec<T, 16> shiftLeft(Vec<T, 16> a)
{
  if constexpr (sizeof(T) == 2) return {_mm_slli_epi16(a.v, N)};
  else if constexpr (sizeof(T) == 4) return {_mm_slli_epi32(a.v, N)};
  else return {_mm_slli_epi64(a.v, N)};
}
template <int N, class T> inline Vec<T, 16> shiftRight(Vec<T, 16> a)
{
  if constexpr (isSigned<T>) {
    if constexpr (sizeof(T) == 2) return {_mm_srai_epi16(a.v, N)};
    else return {_mm_srai_epi32(a.v, N)};
  } else {
    if constexpr (sizeof(T) == 2) return {_mm_srli_epi16(a.v, N)};
    else if constexpr (sizeof(T) == 4) return {_mm_srli_epi32(a.v, N)};
    else return {_mm_srli_epi64(a.v, N)};
  }
}
// The whole vector moved by N bytes towards higher (up) or lower (down) addresses; zeros come in.
template <int N, class T> inline Vec<T, 16> bytesUp(Vec<T, 16> a)
{
  return as<T>(Vec<uint8_t, 16>{_mm_slli_si128(as<uint8_t>(a).v, N)});
}
template <int N, class T> inline Vec<T, 16> bytesDown(Vec<T, 16> a)
{
  return as<T>(Vec<uint8_t, 16>{_mm_srli_si128(as<uint8_t>(a).v, N)});
}

// ---- Comparison: lanes of all ones where it holds ----

template <class T> inline Vec<T, 16> equal(Vec<T, 16> a, Vec<T, 16> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm_cmpeq_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm_cmpeq_pd(a.v, b.v)};
  else if constexpr (sizeof(T) == 1) return {_mm_cmpeq_epi8(a.v, b.v)};
  else if constexpr (sizeof(T) == 2) return {_mm_cmpeq_epi16(a.v, b.v)};
  else {
    static_assert(sizeof(T) == 4);
    return {_mm_cmpeq_epi32(a.v, b.v)};
  }
}

template <class T> inline Vec<T, 16> greater(Vec<T, 16> a, Vec<T, 16> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm_cmpgt_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm_cmpgt_pd(a.v, b.v)};
  else {
    static_assert(sizeof(T) <= 4);
    if constexpr (!isSigned<T>) { // compare with the top bit flipped
      a = a ^ topBits<T, 16>();
      b = b ^ topBits<T, 16>();
    }
    if constexpr (sizeof(T) == 1) return {_mm_cmpgt_epi8(a.v, b.v)};
    else if constexpr (sizeof(T) == 2) return {_mm_cmpgt_epi16(a.v, b.v)};
    else return {_mm_cmpgt_epi32(a.v, b.v)};
  }
}
inline F32x4 greaterEqual(F32x4 a, F32x4 b) { return {_mm_cmpge_ps(a.v, b.v)}; }
inline F32x4 lessEqual(F32x4 a, F32x4 b) { return {_mm_cmple_ps(a.v, b.v)}; }
inline F32x4 less(F32x4 a, F32x4 b) { return {_mm_cmplt_ps(a.v, b.v)}; }
inline F32x4 notLess(F32x4 a, F32x4 b) { return {_mm_cmpnlt_ps(a.v, b.v)}; } // holds for a NaN too
inline F32x4 unordered(F32x4 a, F32x4 b) { return {_mm_cmpunord_ps(a.v, b.v)}; }

// For floats, as the processor does: the second operand where either is a NaN (or both are zeros).
template <class T> inline Vec<T, 16> min(Vec<T, 16> a, Vec<T, 16> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm_min_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm_min_pd(a.v, b.v)};
  else if constexpr (std::is_same_v<T, uint8_t>) return {_mm_min_epu8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, int16_t>) return {_mm_min_epi16(a.v, b.v)};
#ifdef __AVX2__
  else if constexpr (std::is_same_v<T, int8_t>) return {_mm_min_epi8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, uint16_t>) return {_mm_min_epu16(a.v, b.v)};
  else if constexpr (std::is_same_v<T, int32_t>) return {_mm_min_epi32(a.v, b.v)};
  else if constexpr (std::is_same_v<T, uint32_t>) return {_mm_min_epu32(a.v, b.v)};
#endif
  else if constexpr (std::is_same_v<T, uint16_t>) return a - subSat(a, b);
  else return select(greater(a, b), b, a);
}
template <class T> inline Vec<T, 16> max(Vec<T, 16> a, Vec<T, 16> b)
{
  if constexpr (std::is_same_v<T, float>) return {_mm_max_ps(a.v, b.v)};
  else if constexpr (std::is_same_v<T, double>) return {_mm_max_pd(a.v, b.v)};
  else if constexpr (std::is_same_v<T, uint8_t>) return {_mm_max_epu8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, int16_t>) return {_mm_max_epi16(a.v, b.v)};
#ifdef __AVX2__
  else if constexpr (std::is_same_v<T, int8_t>) return {_mm_max_epi8(a.v, b.v)};
  else if constexpr (std::is_same_v<T, uint16_t>) return {_mm_max_epu16(a.v, b.v)};
  else if constexpr (std::is_same_v<T, int32_t>) return {_mm_max_epi32(a.v, b.v)};
  else if constexpr (std::is_same_v<T, uint32_t>) return {_mm_max_epu32(a.v, b.v)};
#endif
  else if constexpr (std::is_same_v<T, uint16_t>) return b + subSat(a, b);
  else return select(greater(a, b), a, b);
}

// ---- Interleaving and widths ----

// a0 b0 a1 b1 ... from the low (high) halves, in lanes of T. Floats go as whole numbers, of which newer processors
// interleave two vectors a cycle.
template <class T> inline Vec<T, 16> interleaveLow(Vec<T, 16> a, Vec<T, 16> b)
{
  if constexpr (!isInt<T>) return as<T>(interleaveLow(as<SameBits<T>>(a), as<SameBits<T>>(b)));
  else if constexpr (sizeof(T) == 1) return {_mm_unpacklo_epi8(a.v, b.v)};
  else if constexpr (sizeof(T) == 2) return {_mm_unpacklo_epi16(a.v, b.v)};
  else if constexpr (sizeof(T) == 4) return {_mm_unpacklo_epi32(a.v, b.v)};
  else return {_mm_unpacklo_epi64(a.v, b.v)};
}
template <class T> inline Vec<T, 16> interleaveHigh(Vec<T, 16> a, Vec<T, 16> b)
{
  if constexpr (!isInt<T>) return as<T>(interleaveHigh(as<SameBits<T>>(a), as<SameBits<T>>(b)));
  else if constexpr (sizeof(T) == 1) return {_mm_unpackhi_epi8(a.v, b.v)};
  else if constexpr (sizeof(T) == 2) return {_mm_unpackhi_epi16(a.v, b.v)};
  else if constexpr (sizeof(T) == 4) return {_mm_unpackhi_epi32(a.v, b.v)};
  else return {_mm_unpackhi_epi64(a.v, b.v)};
}

// The low (high) half of the lanes, zero- or sign-extended to twice the width.
template <class T> inline Vec<WiderT<T>, 16> widenLow(Vec<T, 16> a)
{
  if constexpr (isSigned<T>) return as<WiderT<T>>(interleaveLow(a, signs(a)));
  else return as<WiderT<T>>(interleaveLow(a, zero<T, 16>()));
}
template <class T> inline Vec<WiderT<T>, 16> widenHigh(Vec<T, 16> a)
{
  if constexpr (isSigned<T>) return as<WiderT<T>>(interleaveHigh(a, signs(a)));
  else return as<WiderT<T>>(interleaveHigh(a, zero<T, 16>()));
}

// Two vectors of signed lanes into one of half the width, saturated to To.
template <class To> inline Vec<To, 16> narrowSat(Vec<int16_t, 16> low, Vec<int16_t, 16> high)
{
  static_assert(sizeof(To) == 1);
  if constexpr (isSigned<To>) return {_mm_packs_epi16(low.v, high.v)};
  else return {_mm_packus_epi16(low.v, high.v)};
}
template <class To> inline Vec<To, 16> narrowSat(Vec<int32_t, 16> low, Vec<int32_t, 16> high)
{
  static_assert(sizeof(To) == 2);
  if constexpr (isSigned<To>) return {_mm_packs_epi32(low.v, high.v)};
  else {
#ifdef __AVX2__
    return {_mm_packus_epi32(low.v, high.v)};
#else // clamp below at 0, then pack with the range moved to the signed one
    const __m128i bias = _mm_set1_epi32(32768), back = _mm_set1_epi16(-32768);
    const __m128i l = _mm_andnot_si128(_mm_srai_epi32(low.v, 31), low.v);
    const __m128i h = _mm_andnot_si128(_mm_srai_epi32(high.v, 31), high.v);
    return {_mm_xor_si128(_mm_packs_epi32(_mm_sub_epi32(l, bias), _mm_sub_epi32(h, bias)), back)};
#endif
  }
}

// ---- Numbers ----

inline F32x4 toFloat(Vec<int32_t, 16> a) { return {_mm_cvtepi32_ps(a.v)}; }
// Under the rounding field of the control register; 0x80000000 where it does not fit.
inline Vec<int32_t, 16> toInt(F32x4 a) { return {_mm_cvtps_epi32(a.v)}; }
inline Vec<int32_t, 16> toIntTruncated(F32x4 a) { return {_mm_cvttps_epi32(a.v)}; }
inline F64x2 toDoubleLow(F32x4 a) { return {_mm_cvtps_pd(a.v)}; }
inline F64x2 toDoubleHigh(F32x4 a) { return {_mm_cvtps_pd(_mm_movehl_ps(a.v, a.v))}; }
inline F64x2 toDoubleLow(Vec<int32_t, 16> a) { return {_mm_cvtepi32_pd(a.v)}; }
inline F64x2 toDoubleHigh(Vec<int32_t, 16> a) { return {_mm_cvtepi32_pd(_mm_unpackhi_epi64(a.v, a.v))}; }
inline F32x4 toFloat(F64x2 low, F64x2 high) { return {_mm_movelh_ps(_mm_cvtpd_ps(low.v), _mm_cvtpd_ps(high.v))}; }
inline Vec<int32_t, 16> toInt(F64x2 low, F64x2 high)
{
  return {_mm_unpacklo_epi64(_mm_cvtpd_epi32(low.v), _mm_cvtpd_epi32(high.v))};
}
inline Vec<int32_t, 16> toIntTruncated(F64x2 low, F64x2 high)
{
  return {_mm_unpacklo_epi64(_mm_cvttpd_epi32(low.v), _mm_cvttpd_epi32(high.v))};
}

inline F32x4 abs(F32x4 a) { return {_mm_andnot_ps(_mm_set1_ps(-0.0f), a.v)}; }

#ifdef __AVX2__
// Byte i is byte index[i], zero where the index has its top bit set.
inline Vec<uint8_t, 16> shuffleBytesLocal(Vec<uint8_t, 16> a, Vec<uint8_t, 16> index)
{
  return {_mm_shuffle_epi8(a.v, index.v)};
}
#endif

// Lanes in the order D, C, B, A from the highest to the lowest, as _MM_SHUFFLE names them.
template <int D, int C, int B, int A> inline Vec<int32_t, 16> shuffle(Vec<int32_t, 16> a)
{
  return {_mm_shuffle_epi32(a.v, _MM_SHUFFLE(D, C, B, A))};
}
// The four words of each half, as shuffle orders lanes.
template <int D, int C, int B, int A, class T> inline Vec<T, 16> shuffleWords(Vec<T, 16> a)
{
  static_assert(isInt<T>);
  return {_mm_shufflehi_epi16(_mm_shufflelo_epi16(a.v, _MM_SHUFFLE(D, C, B, A)), _MM_SHUFFLE(D, C, B, A))};
}
// The four words of the upper half alone.
template <int D, int C, int B, int A, class T> inline Vec<T, 16> shuffleWordsHigh(Vec<T, 16> a)
{
  static_assert(isInt<T>);
  return {_mm_shufflehi_epi16(a.v, _MM_SHUFFLE(D, C, B, A))};
}
// Lanes A and B of a, then C and D of b.
template <int D, int C, int B, int A> inline F32x4 shuffle(F32x4 a, F32x4 b)
{
  return {_mm_shuffle_ps(a.v, b.v, _MM_SHUFFLE(D, C, B, A))};
}

// ---- Pairs of floats taken apart, and put together; a square of lanes turned over its diagonal ----

// The first (second) of each pair in a and b. Both keep the same order of pairs, which pairsLow and pairsHigh take
// back; inOrder brings the pairs into the order of memory.
inline F32x4 evenLanes(F32x4 a, F32x4 b) { return shuffle<2, 0, 2, 0>(a, b); }
inline F32x4 oddLanes(F32x4 a, F32x4 b) { return shuffle<3, 1, 3, 1>(a, b); }
inline F32x4 inOrder(F32x4 a) { return a; }
inline F32x4 pairsLow(F32x4 even, F32x4 odd) { return interleaveLow(even, odd); }
inline F32x4 pairsHigh(F32x4 even, F32x4 odd) { return interleaveHigh(even, odd); }

// Lane j of vector i becomes lane i of vector j.
inline void transposeLanes(F32x4 (&x)[4])
{
  const F64x2 a = as<double>(interleaveLow(x[0], x[1])), b = as<double>(interleaveLow(x[2], x[3]));
  const F64x2 c = as<double>(interleaveHigh(x[0], x[1])), d = as<double>(interleaveHigh(x[2], x[3]));
  x[0] = as<float>(interleaveLow(a, b));
  x[1] = as<float>(interleaveHigh(a, b));
  x[2] = as<float>(interleaveLow(c, d));
  x[3] = as<float>(interleaveHigh(c, d));
}

} // namespace ZORI_WIDTH
} // namespace zori
