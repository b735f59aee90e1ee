// Networks that order samples: which lesser and greater values of which others lead to the ranks that are wanted.
//
// A network is described by a constexpr function that draws it (merges of sorted lists, ranks of two of them) on a
// Network::Drawing, and run over whole vectors: straight code, no branch, every lane on its own. What leads to no
// output is left out, so a description may merge whole lists and use their middle.
//
// A network that is right for zeros and ones in all orders is right for all samples: the tests run these on bits.
#pragma once

#include <type_traits>
#include <utility>

namespace zori {
namespace network {

// What happens next. Values are known by the step that they come from.
struct Step {
  enum Kind { Load, Lesser, Greater, Store };
  Kind kind = Load;
  short a = 0, b = 0; // Load: a = input. Lesser, Greater: of the values a and b. Store: a = output, b = its value
};

// Values in ascending order, or in none if just taken in.
struct List {
  static constexpr int most = 240;
  int size = 0;
  short at[most] = {};

  constexpr void push(int value) { at[size++] = static_cast<short>(value); }
  // Every second one, from 0 or 1 on.
  constexpr List half(int from) const
  {
    List x;
    for (int i = from; i < size; i += 2) x.push(at[i]);
    return x;
  }
  constexpr List part(int from, int to) const
  {
    List x;
    for (int i = from; i < to; ++i) x.push(at[i]);
    return x;
  }
};

class Drawing {
public:
  // The next inputs.
  constexpr List inputs(int count)
  {
    List x;
    for (int i = 0; i < count; ++i) x.push(add({Step::Load, static_cast<short>(inputs_++), 0}));
    return x;
  }
  constexpr int lesser(int a, int b) { return add({Step::Lesser, static_cast<short>(a), static_cast<short>(b)}); }
  constexpr int greater(int a, int b) { return add({Step::Greater, static_cast<short>(a), static_cast<short>(b)}); }

  // Two sorted lists as one: the odd-even merge, which takes lists of any lengths.
  constexpr List merged(const List& a, const List& b)
  {
    if (a.size == 0) return b;
    if (b.size == 0) return a;
    List x;
    if (a.size == 1 && b.size == 1) {
      x.push(lesser(a.at[0], b.at[0]));
      x.push(greater(a.at[0], b.at[0]));
      return x;
    }
    const List even = merged(a.half(0), b.half(0)), odd = merged(a.half(1), b.half(1));
    x.push(even.at[0]);
    for (int i = 0; i < odd.size || i + 1 < even.size; ++i) {
      if (i >= odd.size) x.push(even.at[i + 1]);
      else if (i + 1 >= even.size) x.push(odd.at[i]);
      else {
        x.push(lesser(odd.at[i], even.at[i + 1]));
        x.push(greater(odd.at[i], even.at[i + 1]));
      }
    }
    return x;
  }
  constexpr List sorted(const List& a)
  {
    if (a.size <= 1) return a;
    return merged(sorted(a.part(0, a.size / 2)), sorted(a.part(a.size / 2, a.size)));
  }
  // The value of the given rank among two sorted lists: i of one and rank + 1 - i of the other stand at or below it,
  // for some i, and it is the greatest of them.
  constexpr int ranked(const List& a, const List& b, int rank)
  {
    int value = -1;
    for (int i = 0; i <= a.size; ++i) {
      const int j = rank + 1 - i;
      if (j < 0 || j > b.size) continue;
      const int bound = i == 0 ? b.at[j - 1] : j == 0 ? a.at[i - 1] : greater(a.at[i - 1], b.at[j - 1]);
      value = value < 0 ? bound : lesser(value, bound);
    }
    return value;
  }

  constexpr void output(int value)
  {
    outputs_.push(value);
    live_[value] = true;
  }
  constexpr void output(const List& values)
  {
    for (int i = 0; i < values.size; ++i) output(values.at[i]);
  }

  // The network: what leads to an output, inputs just before their first use, outputs as soon as they are there.
  struct Length {
    int steps, exchangeHalves;
  };
  constexpr Length length() const
  {
    bool live[most] = {};
    const int halves = spread(live);
    int loads = 0;
    for (int i = 0; i < size_; ++i) loads += live[i] && steps_[i].kind == Step::Load;
    return {halves + loads + outputs_.size, halves};
  }
  template <int N> struct Schedule {
    Step step[N] = {};
  };
  template <int N> constexpr Schedule<N> schedule() const
  {
    bool live[most] = {};
    spread(live);
    Schedule<N> x;
    short place[most] = {};
    int n = 0;
    const auto emit = [&](int value) {
      place[value] = static_cast<short>(n);
      x.step[n++] = steps_[value];
      for (int k = 0; k < outputs_.size; ++k)
        if (outputs_.at[k] == value) x.step[n++] = {Step::Store, static_cast<short>(k), place[value]};
    };
    bool loaded[most] = {};
    const auto load = [&](int value) {
      if (steps_[value].kind != Step::Load || loaded[value]) return;
      loaded[value] = true;
      emit(value);
    };
    for (int i = 0; i < size_; ++i) {
      if (!live[i] || steps_[i].kind == Step::Load) continue;
      load(steps_[i].a);
      load(steps_[i].b);
      Step& step = x.step[n];
      const short a = place[steps_[i].a], b = place[steps_[i].b];
      emit(i);
      step.a = a;
      step.b = b;
    }
    for (int i = 0; i < size_; ++i)
      if (live[i]) load(i); // inputs that are outputs
    return x;
  }

private:
  static constexpr int most = 4800;

  constexpr int add(Step s)
  {
    steps_[size_] = s;
    return size_++;
  }
  constexpr int spread(bool (&live)[most]) const
  {
    int halves = 0;
    for (int i = 0; i < size_; ++i) live[i] = live_[i];
    for (int i = size_ - 1; i >= 0; --i) {
      if (!live[i] || steps_[i].kind == Step::Load) continue;
      ++halves;
      live[steps_[i].a] = live[steps_[i].b] = true;
    }
    return halves;
  }

  Step steps_[most] = {};
  int size_ = 0, inputs_ = 0;
  bool live_[most] = {};
  List outputs_;
};

// Two sorted lists of so many values as one.
template <int First, int Second> constexpr Drawing twoMerged()
{
  Drawing d;
  const List a = d.inputs(First), b = d.inputs(Second);
  d.output(d.merged(a, b));
  return d;
}

// A sorted list that holds the ranks from `from` on of `count` samples of a window, of which half come in front of the
// median. Those that are too many samples away from either end to be the median, whatever is still to come, go.
template <int Half> struct MiddleRanks {
  List list = {};
  int from = 0, count = 0;

  constexpr MiddleRanks possible() const
  {
    const int low = count - 1 - Half, high = Half + 1; // ranks low to high - 1
    const int first = low > from ? low - from : 0;
    const int end = high - from < list.size ? high - from : list.size;
    return {list.part(first, end), from + first, count};
  }
  constexpr MiddleRanks with(Drawing& d, const List& sorted) const
  {
    const MiddleRanks other = MiddleRanks{sorted, 0, sorted.size}.possible();
    return MiddleRanks{d.merged(list, other.list), from + other.from, count + sorted.size}.possible();
  }
};

template <int K> using Index = std::integral_constant<int, K>;

// Builds that watch every step of a program go through the network in a loop: they take minutes to compile a thousand
// steps of straight code.
#if defined(__SANITIZE_ADDRESS__) || !defined(__OPTIMIZE__)
inline constexpr bool isStraight = false;
#else
inline constexpr bool isStraight = true;
#endif

// The network that Draw (a constexpr function that returns a Drawing) describes.
template <auto Draw> class Network {
  static constexpr Drawing drawing = Draw();
  static constexpr int size = drawing.length().steps;
  static constexpr auto plan = drawing.template schedule<size>();

  template <int I, class V, class Load, class Store>
  [[gnu::always_inline]] static inline void step(V* value, const Load& load, const Store& store)
  {
    constexpr Step s = plan.step[I];
    if constexpr (s.kind == Step::Load) value[I] = load(Index<s.a>{});
    else if constexpr (s.kind == Step::Lesser) value[I] = min(value[s.a], value[s.b]);
    else if constexpr (s.kind == Step::Greater) value[I] = max(value[s.a], value[s.b]);
    else store(Index<s.a>{}, value[s.b]);
  }
  template <int From, class V, class Load, class Store, int... I>
  [[gnu::always_inline]] static inline void stretch(V* value, const Load& load, const Store& store,
                                                    std::integer_sequence<int, I...>)
  {
    (step<From + I>(value, load, store), ...);
  }
  static constexpr int atOnce = 64;
  template <int From, class V, class Load, class Store>
  [[gnu::always_inline]] static inline void from(V* value, const Load& load, const Store& store)
  {
    constexpr int count = size - From < atOnce ? size - From : atOnce;
    stretch<From>(value, load, store, std::make_integer_sequence<int, count>{});
    if constexpr (From + count < size) from<From + count>(value, load, store);
  }

public:
  static constexpr int exchangeHalves = drawing.length().exchangeHalves;

  // V load(k): input k. store(k, V): output k. Each k is a constant, if of the type Index<k>.
  template <class V, class Load, class Store>
  [[gnu::always_inline]] static inline void run(const Load& load, const Store& store)
  {
    V value[size];
    if constexpr (isStraight) from<0>(value, load, store);
    else
      for (int i = 0; i < size; ++i) {
        const Step s = plan.step[i];
        if (s.kind == Step::Load) value[i] = load(s.a);
        else if (s.kind == Step::Lesser) value[i] = min(value[s.a], value[s.b]);
        else if (s.kind == Step::Greater) value[i] = max(value[s.a], value[s.b]);
        else store(s.a, value[s.b]);
      }
  }
};

} // namespace network
} // namespace zori
