// Transforms of a few complex values in registers: butterfly<R> replaces x[0..R-1] by its forward transform, in natural
// order. Real and imaginary parts are vectors of their own, each lane a transform of its own; a plain float is one
// lane.
#pragma once

#include "rowkernels/simd.h"

namespace zori {

// ---- One lane or a vector of them ----

template <class V> inline constexpr int laneCount = V::size;
template <> inline constexpr int laneCount<float> = 1;

// From an aligned address, from any.
template <class V> inline V loadLanes(const float* p)
{
  if constexpr (std::is_same_v<V, float>) return *p;
  else return loadAligned<float, V::bytes>(p);
}
template <class V> inline V loadAnywhere(const float* p) { return load<float, V::bytes>(p); }
inline void storeLanes(float* p, float x) { *p = x; }
template <class V> inline void storeLanes(float* p, V x) { storeAligned(p, x); }

template <class V> inline V allLanes(float x)
{
  if constexpr (std::is_same_v<V, float>) return x;
  else return splat<float, V::bytes>(x);
}

template <class V> struct Complex {
  V re, im;
};

template <class V> inline Complex<V> operator+(Complex<V> a, Complex<V> b) { return {a.re + b.re, a.im + b.im}; }
template <class V> inline Complex<V> operator-(Complex<V> a, Complex<V> b) { return {a.re - b.re, a.im - b.im}; }
template <class V> inline Complex<V> operator*(Complex<V> a, Complex<V> b)
{
  return {a.re * b.re - a.im * b.im, a.re * b.im + a.im * b.re};
}
template <class V> inline Complex<V> scaled(Complex<V> a, V by) { return {a.re * by, a.im * by}; }
template <class V> inline Complex<V> timesMinusI(Complex<V> a) { return {a.im, allLanes<V>(0) - a.re}; }
// a - i b, a + i b
template <class V> inline Complex<V> lessI(Complex<V> a, Complex<V> b) { return {a.re + b.im, a.im - b.re}; }
template <class V> inline Complex<V> plusI(Complex<V> a, Complex<V> b) { return {a.re - b.im, a.im + b.re}; }
// x times c - i s
template <class V> inline Complex<V> turned(Complex<V> x, double c, double s)
{
  const V vc = allLanes<V>(static_cast<float>(c)), vs = allLanes<V>(static_cast<float>(s));
  return {x.re * vc + x.im * vs, x.im * vc - x.re * vs};
}

// ---- Butterflies: part of the loop that calls them, whatever their size ----

template <int R, class V> [[gnu::always_inline]] inline void butterfly(Complex<V> (&x)[R]);

template <class V> [[gnu::always_inline]] inline void butterfly2(Complex<V>& a, Complex<V>& b)
{
  const Complex<V> d = a - b;
  a = a + b;
  b = d;
}

// In natural order of a, b, c, d.
template <class V>
[[gnu::always_inline]] inline void butterfly4(Complex<V>& a, Complex<V>& b, Complex<V>& c, Complex<V>& d)
{
  const Complex<V> s0 = a + c, d0 = a - c, s1 = b + d, d1 = b - d;
  a = s0 + s1;
  b = lessI(d0, d1);
  c = s0 - s1;
  d = plusI(d0, d1);
}

template <class V> [[gnu::always_inline]] inline void butterfly3(Complex<V>& a, Complex<V>& b, Complex<V>& c)
{
  const V half = allLanes<V>(0.5f), root = allLanes<V>(0.866025403784438647f);
  const Complex<V> sum = b + c, turn = scaled(b - c, root), middle = a - scaled(sum, half);
  a = a + sum;
  b = lessI(middle, turn);
  c = plusI(middle, turn);
}

template <class V> [[gnu::always_inline]] inline void butterfly5(Complex<V> (&x)[5])
{
  const V c1 = allLanes<V>(0.309016994374947424f), c2 = allLanes<V>(-0.809016994374947424f);
  const V s1 = allLanes<V>(0.951056516295153572f), s2 = allLanes<V>(0.587785252292473129f);
  const Complex<V> a1 = x[1] + x[4], a2 = x[2] + x[3], b1 = x[1] - x[4], b2 = x[2] - x[3];
  const Complex<V> m1 = x[0] + scaled(a1, c1) + scaled(a2, c2), m2 = x[0] + scaled(a1, c2) + scaled(a2, c1);
  const Complex<V> n1 = scaled(b1, s1) + scaled(b2, s2), n2 = scaled(b1, s2) - scaled(b2, s1);
  x[0] = x[0] + a1 + a2;
  x[1] = lessI(m1, n1);
  x[2] = lessI(m2, n2);
  x[3] = plusI(m2, n2);
  x[4] = plusI(m1, n1);
}

template <class V> [[gnu::always_inline]] inline void butterfly8(Complex<V> (&x)[8])
{
  const V root = allLanes<V>(0.707106781186547524f);
  butterfly4(x[0], x[2], x[4], x[6]);
  butterfly4(x[1], x[3], x[5], x[7]);
  const Complex<V> o1 = {(x[3].re + x[3].im) * root, (x[3].im - x[3].re) * root};
  const Complex<V> o3 = {(x[7].im - x[7].re) * root, (x[7].im + x[7].re) * root}; // negated real sum below
  const Complex<V> e0 = x[0], e1 = x[2], e2 = x[4], e3 = x[6], o0 = x[1], o2 = x[5];
  x[0] = e0 + o0;
  x[4] = e0 - o0;
  x[1] = e1 + o1;
  x[5] = e1 - o1;
  x[2] = lessI(e2, o2);
  x[6] = plusI(e2, o2);
  x[3] = {e3.re + o3.re, e3.im - o3.im};
  x[7] = {e3.re - o3.re, e3.im + o3.im};
}

// 4 x 4 and 3 x 3: transforms down the columns, a turn each, transforms along the rows.
template <class V> [[gnu::always_inline]] inline void butterfly16(Complex<V> (&x)[16])
{
  constexpr double c1 = 0.923879532511286756, s1 = 0.382683432365089772, h = 0.707106781186547524;
#pragma GCC unroll 4
  for (int i = 0; i < 4; ++i) butterfly4(x[i], x[i + 4], x[i + 8], x[i + 12]);
  const V root = allLanes<V>(static_cast<float>(h));
  const auto eighth = [root](Complex<V> z) { return Complex<V>{(z.re + z.im) * root, (z.im - z.re) * root}; };
  x[5] = turned(x[5], c1, s1);
  x[6] = eighth(x[6]);
  x[7] = turned(x[7], s1, c1);
  x[9] = eighth(x[9]);
  x[10] = timesMinusI(x[10]);
  x[11] = timesMinusI(eighth(x[11]));
  x[13] = turned(x[13], s1, c1);
  x[14] = timesMinusI(eighth(x[14]));
  x[15] = turned(x[15], -c1, -s1);
#pragma GCC unroll 4
  for (int i = 0; i < 16; i += 4) butterfly4(x[i], x[i + 1], x[i + 2], x[i + 3]);
#pragma GCC unroll 4
  for (int i = 0; i < 4; ++i)
#pragma GCC unroll 4
    for (int k = i + 1; k < 4; ++k) {
      const Complex<V> t = x[4 * i + k];
      x[4 * i + k] = x[4 * k + i];
      x[4 * k + i] = t;
    }
}

template <class V> [[gnu::always_inline]] inline void butterfly9(Complex<V> (&x)[9])
{
  constexpr double c1 = 0.766044443118978035, s1 = 0.642787609686539326, c2 = 0.173648177666930348,
                   s2 = 0.984807753012208059, c4 = -0.939692620785908384, s4 = 0.342020143325668733;
#pragma GCC unroll 3
  for (int i = 0; i < 3; ++i) butterfly3(x[i], x[i + 3], x[i + 6]);
  x[4] = turned(x[4], c1, s1);
  x[5] = turned(x[5], c2, s2);
  x[7] = turned(x[7], c2, s2);
  x[8] = turned(x[8], c4, s4);
#pragma GCC unroll 3
  for (int i = 0; i < 9; i += 3) butterfly3(x[i], x[i + 1], x[i + 2]);
#pragma GCC unroll 3
  for (int i = 0; i < 3; ++i)
#pragma GCC unroll 3
    for (int k = i + 1; k < 3; ++k) {
      const Complex<V> t = x[3 * i + k];
      x[3 * i + k] = x[3 * k + i];
      x[3 * k + i] = t;
    }
}

// R = A * B without a common factor: no turns between the two, only places. Value (B a + A b) mod R comes in at (a, b),
// the frequency that is k mod A and l mod B goes out at (k, l).
template <int A, int B, class V> [[gnu::always_inline]] inline void butterflyOfCoprimes(Complex<V> (&x)[A * B])
{
  constexpr int R = A * B;
  constexpr int fromA = [] {
    int m = B;
    while (m % A != 1) m += B;
    return m;
  }();
  Complex<V> t[A][B];
#pragma GCC unroll 4
  for (int a = 0; a < A; ++a) {
#pragma GCC unroll 5
    for (int b = 0; b < B; ++b) t[a][b] = x[(B * a + A * b) % R];
    butterfly<B>(t[a]);
  }
#pragma GCC unroll 5
  for (int b = 0; b < B; ++b) {
    Complex<V> u[A];
#pragma GCC unroll 4
    for (int a = 0; a < A; ++a) u[a] = t[a][b];
    butterfly<A>(u);
#pragma GCC unroll 4
    for (int a = 0; a < A; ++a) x[(fromA * a + (R + 1 - fromA) * b) % R] = u[a];
  }
}

template <int R, class V> [[gnu::always_inline]] inline void butterfly(Complex<V> (&x)[R])
{
  if constexpr (R == 2) butterfly2(x[0], x[1]);
  else if constexpr (R == 3) butterfly3(x[0], x[1], x[2]);
  else if constexpr (R == 4) butterfly4(x[0], x[1], x[2], x[3]);
  else if constexpr (R == 5) butterfly5(x);
  else if constexpr (R == 6) butterflyOfCoprimes<2, 3>(x);
  else if constexpr (R == 8) butterfly8(x);
  else if constexpr (R == 9) butterfly9(x);
  else if constexpr (R == 10) butterflyOfCoprimes<2, 5>(x);
  else if constexpr (R == 12) butterflyOfCoprimes<4, 3>(x);
  else {
    static_assert(R == 16);
    butterfly16(x);
  }
}

} // namespace zori
