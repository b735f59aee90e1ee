// Radices of a length, and the tables of turns, positions and chirps.
#include "lane_plan.h"

#include "lane_transform.h"

#include <cmath>
#include <initializer_list>
#include <utility>

namespace zori {
namespace {

constexpr int greatestDivisor = 150; // primes below it are worked by the definition

// ---- Radices ----

// What an element of a level costs, in tenths of an addition: butterfly, turn, load and store.
constexpr int butterflyCost(int radix)
{
  switch (radix) {
  case 2: return 80;
  case 3: return 115;
  case 4: return 105;
  case 5: return 150;
  case 6: return 130;
  case 8: return 125;
  case 9: return 190;
  case 10: return 175;
  case 12: return 160;
  case 16: return 190;
  default: return 60 + 30 * radix;
  }
}

constexpr int butterflies[] = {2, 3, 4, 5, 6, 8, 9, 10, 12, 16};

struct Choice {
  int cost = 1 << 30;
  RadixList list;
};

// The cheapest radices whose product is what is left of the length, none above `above`.
void choose(int left, int above, int cost, const RadixList& soFar, Choice& best)
{
  if (cost >= best.cost) return;
  if (left == 1) {
    best = {cost, soFar};
    return;
  }
  for (int i = 9; i >= 0; --i) {
    const int r = butterflies[i];
    if (r > above || left % r != 0) continue;
    RadixList with = soFar;
    with.radix[with.levels++] = r;
    choose(left / r, r, cost + butterflyCost(r), with, best);
  }
}

bool isPowerOfTwo(int length) { return (length & (length - 1)) == 0; }

// From the least to the greatest, so that the widest strides meet the fewest values.
RadixList radicesOf(int length)
{
  RadixList list;
  list.length = length;
  int small = length; // without its primes from 7 on
  for (const int p : {2, 3, 5})
    while (small % p == 0) small /= p;
  int primes[RadixList::most], count = 0;
  for (int p = 7; small > 1; p += 2)
    while (small % p == 0) primes[count++] = p, small /= p;
  int left = length;
  for (int i = 0; i < count; ++i) left /= primes[i];
  Choice best;
  choose(left, 16, 0, RadixList{}, best);
  for (int i = best.list.levels - 1; i >= 0; --i) list.radix[list.levels++] = best.list.radix[i];
  for (int i = 0; i < count; ++i) list.radix[list.levels++] = primes[i];
  // lanes along a row want eight blocks at least
  if (isPowerOfTwo(length) && list.levels > 2 && list.radix[0] < 8) std::swap(list.radix[0], list.radix[1]);
  return list;
}

// Whether the length splits: fours, a two, odd divisors below 150 in ascending order; what then is left must be small
// and something must have been found.
bool isSplit(int length)
{
  int left = length;
  bool found = false;
  while (left % 2 == 0) left /= 2, found = true;
  for (int d = 3; d < greatestDivisor && d < length; d += 2)
    while (left % d == 0) left /= d, found = true;
  return found && left <= greatestDivisor;
}

bool needsConvolution(int length) { return length > greatestDivisor && !isSplit(length); }

// The cheapest length for a cyclic convolution of at least so many elements.
int convolutionLength(long long least)
{
  long long best = 0;
  for (const int odd : {1, 3, 5, 9}) {
    long long m = odd;
    while (m < least) m *= 2;
    // 1 / 8 for the better butterflies of powers of two
    if (best == 0 || m + m / 8 < best) best = m;
  }
  return best > INT32_MAX ? 0 : static_cast<int>(best);
}

// ---- Tables ----

long long countOfTurns(const RadixList& list)
{
  long long count = 0, left = list.length;
  for (int i = 0; i < list.levels; ++i) {
    const int r = list.radix[i];
    left /= r;
    if (!RadixList::isButterfly(r)) count += 2 * r;
    if (left > 1) count += 2 * (r - 1) * left;
  }
  return count;
}

// e^(-2 pi i k / n)
void putTurn(float* p, long long k, long long n)
{
  const double angle = 6.283185307179586477 * static_cast<double>(k % n) / static_cast<double>(n);
  p[0] = static_cast<float>(std::cos(angle));
  p[1] = static_cast<float>(-std::sin(angle));
}

void fillTurns(const RadixList& list, float* p)
{
  long long length = list.length;
  for (int i = 0; i < list.levels; ++i) {
    const int r = list.radix[i];
    const long long left = length / r;
    if (!RadixList::isButterfly(r))
      for (int k = 0; k < r; ++k, p += 2) {
        putTurn(p, k, r);
        p[1] = -p[1];
      }
    if (left > 1)
      for (long long j = 0; j < left; ++j)
        for (int k = 1; k < r; ++k, p += 2) putTurn(p, j * k, length);
    length = left;
  }
}

// Lanes along the elements: levels of 4, 8 and 16, the first and the last of eights of them.
bool canGoAlong(const RadixList& list)
{
  for (int i = 0; i < list.levels; ++i)
    if (list.radix[i] != 4 && list.radix[i] != 8 && list.radix[i] != 16) return false;
  return list.levels > 1 && list.radix[0] >= 8 && list.radix[list.levels - 1] >= 8;
}

long long countOfTurnsAlong(const RadixList& list)
{
  long long count = 0, left = list.length;
  for (int i = 0; i + 1 < list.levels; ++i) {
    left /= list.radix[i];
    count += 2 * (list.radix[i] - 1) * left;
  }
  return count;
}

void fillTurnsAlong(const RadixList& list, float* p)
{
  long long length = list.length;
  for (int i = 0; i + 1 < list.levels; ++i) {
    const int r = list.radix[i];
    const long long left = length / r;
    for (long long j = 0; j < left; j += 8)
      for (int k = 1; k < r; ++k, p += 16)
        for (int lane = 0; lane < 8; ++lane) {
          float turn[2];
          putTurn(turn, (j + lane) * k, length);
          p[lane] = turn[0];
          p[lane + 8] = turn[1];
        }
    length = left;
  }
}

void fillPositions(const RadixList& list, std::int32_t* position)
{
  for (std::int32_t k = 0; k < list.length; ++k) {
    std::int32_t digits = k, place = 0, left = list.length;
    for (int i = 0; i < list.levels; ++i) {
      left /= list.radix[i];
      place += digits % list.radix[i] * left;
      digits /= list.radix[i];
    }
    position[k] = place;
  }
}

} // namespace

LanePlan::LanePlan(int length, BlockPlan& block, bool along) : length_(length)
{
  const bool convolves = needsConvolution(length);
  const int worked = static_cast<int>(laneWorkLength(length));
  if (worked == 0) {
    block.add<float>(-1); // there is no such block
    return;
  }
  radices_ = radicesOf(worked);
  addTables(block);
  if (along && !convolves && canGoAlong(radices_)) turnsAlong_ = block.add<float>(countOfTurnsAlong(radices_));
  if (convolves) {
    chirp_ = block.add<float>(2LL * length);
    spectrum_ = block.add<float>(2LL * worked);
  }
}

LanePlan::LanePlan(const RadixList& radices, BlockPlan& block) : length_(radices.length), radices_(radices)
{
  addTables(block);
}

void LanePlan::addTables(BlockPlan& block)
{
  turns_ = block.add<float>(countOfTurns(radices_));
  position_ = block.add<std::int32_t>(length_);
}

[[gnu::noinline]] void LanePlan::fill(void* block) const
{
  fillTurns(radices_, turns_.in(block));
  if (isAlong()) fillTurnsAlong(radices_, turnsAlong_.in(block));
  if (!isConvolution()) {
    fillPositions(radices_, position_.in(block));
    return;
  }
  for (std::int32_t k = 0; k < length_; ++k) position_.in(block)[k] = k;
  // The chirp e^(-pi i k^2 / n), and the spectrum of its conjugate, periodic in the work length and divided by it.
  float *chirp = chirp_.in(block), *spectrum = spectrum_.in(block);
  const long long m = radices_.length, n = length_;
  for (long long k = 0; k < 2 * m; ++k) spectrum[k] = 0;
  for (long long k = 0; k < n; ++k) {
    putTurn(chirp + 2 * k, k * k, 2 * n);
    for (const long long at : {k, (m - k) % m}) {
      spectrum[2 * at] = chirp[2 * k];
      spectrum[2 * at + 1] = -chirp[2 * k + 1];
    }
  }
  transformChirp(*this, block, spectrum);
  const float by = 1.0f / static_cast<float>(m);
  for (long long k = 0; k < 2 * m; ++k) spectrum[k] *= by;
}

long long laneWorkLength(int length) { return needsConvolution(length) ? convolutionLength(2LL * length - 1) : length; }

} // namespace zori
