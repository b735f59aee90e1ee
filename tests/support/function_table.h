// The function table: what the catalogue knows of every built function, and a way to call each with generic arguments.
// tools/generate.py writes the tables, one a subsystem.
#pragma once

#include "zori/types.h"

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace zoritest {

template <class T> struct Span {
  const T* data = nullptr;
  int size = 0;
  const T* begin() const { return data; }
  const T* end() const { return data + size; }
  const T& operator[](int i) const { return data[i]; }
};

// An argument of a call: a pointer, or the numbers of a scalar or of a struct of numbers.
struct Value {
  void* pointer = nullptr;
  double numbers[4] = {};
};

struct Result {
  int status = 0;          // of functions that return one
  void* pointer = nullptr; // of functions that return a pointer
};

enum class Element : std::uint8_t { Pointer, T1u, T8u, T8s, T16u, T16s, T32u, T32s, T64s, T32f, T64f };

enum class Role : std::uint8_t { Image, Step, Region, Size, Scale, Value, Param, In, Out, Buffer, Record };

// What a function leaves alone inside an image: nothing, the fourth channel, all but the addressed channel.
enum class Kept : std::uint8_t { None, Alpha, Other };

struct Extent {
  int source = -1;           // index of the size argument; -1: the region, or width and height if set
  bool swap = false;         // width and height change places
  int width = 0, height = 0; // fixed size
  int left = 0, top = 0, right = 0, bottom = 0;
};

// What a pointer argument points to. An array is an image of one row.
struct Memory {
  Element element = Element::T8u;
  int count = 1;    // elements in one sample (2 in complex ones)
  int channels = 1; // samples in one pixel
  int planes = 0;   // number of plane pointers; 0: the pointer is that of the data
  bool read = false, written = false, mask = false;
  Kept kept = Kept::None;
  int step = -1; // index of the step argument
  Extent extent;
};

struct Argument {
  const char* name; // in C
  const char* item; // in the catalogue: images are known by their role
  Role role;
  bool optional;
  int count; // numbers that a value holds
  Memory memory;
  Span<double> example;
  double low, high; // other numbers that keep the example valid; none when low > high
};

// Numbers with a meaning of their own in example values and faults.
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNull = -1e300;      // a null pointer
constexpr double kBadRecord = -2e300; // a record of no kind

enum class FaultKind : std::uint8_t { Null, Size, Step, Value };

struct Fault {
  int argument;
  int part; // Null: plane, or -1 for the pointer itself; Size: 0 width, 1 height
  FaultKind kind;
  Span<double> values;
};

// One check of a function, in its order: any of the faults (or all of them together) gives the status.
struct Stage {
  ZorStatus status;
  bool together;
  Span<Fault> faults;
};

enum Exemption {
  kAlphaExempt = 1,
  kThreadsExempt = 2,
  kAlignmentExempt = 4,
  kStepsExempt = 8,
  kInplaceExempt = 16,
  kAllocationExempt = 32
};

using AnyFunction = void (*)();

struct Callable {
  AnyFunction function;
  Result (*invoke)(AnyFunction, const Value*);
  bool returnsPointer;
};

struct Function {
  const char* name;
  const char* family;
  Callable callable;
  Span<Argument> arguments;
  Span<Stage> stages;
  Span<const char*> makers; // functions that make the record argument
  const char* release;      // function that releases what this one makes, or ""
  const char* partner;      // the form that is not in place, or ""
  int exemptions;
  bool sweep; // the generic tests call it
};

struct Subsystem {
  const char* name;
  Span<Function> functions;
};

const std::vector<Subsystem>& subsystems();

// Null when the table has no function of that name.
const Function* findFunction(const std::string& name);

namespace detail {

template <class A> A argument(const Value& value)
{
  if constexpr (std::is_pointer_v<A>) {
    return reinterpret_cast<A>(const_cast<void*>(static_cast<const void*>(value.pointer)));
  } else if constexpr (std::is_floating_point_v<A>) {
    return static_cast<A>(value.numbers[0]);
  } else if constexpr (std::is_integral_v<A>) {
    return static_cast<A>(static_cast<std::int64_t>(value.numbers[0]));
  } else if constexpr (std::is_enum_v<A>) { // numbers outside the list are wanted, too
    const int number = static_cast<int>(value.numbers[0]);
    A a;
    static_assert(sizeof a == sizeof number);
    std::memcpy(&a, &number, sizeof a);
    return a;
  } else if constexpr (std::is_same_v<A, ZorImgRect>) {
    return {static_cast<int>(value.numbers[0]), static_cast<int>(value.numbers[1]), static_cast<int>(value.numbers[2]),
            static_cast<int>(value.numbers[3])};
  } else { // two numbers: sizes, points, complex numbers
    A a{};
    auto& [first, second] = a;
    first = static_cast<std::remove_reference_t<decltype(first)>>(value.numbers[0]);
    second = static_cast<std::remove_reference_t<decltype(second)>>(value.numbers[1]);
    return a;
  }
}

template <class R, class... A, std::size_t... I>
Result invoke(R (*function)(A...), const Value* values, std::index_sequence<I...>)
{
  (void)values;
  Result result;
  if constexpr (std::is_void_v<R>) {
    function(argument<A>(values[I])...);
  } else if constexpr (std::is_pointer_v<R>) {
    result.pointer = const_cast<void*>(static_cast<const void*>(function(argument<A>(values[I])...)));
  } else {
    result.status = static_cast<int>(function(argument<A>(values[I])...));
  }
  return result;
}

} // namespace detail

// One call path for all functions of a signature.
template <class R, class... A> Callable bind(R (*function)(A...))
{
  return {reinterpret_cast<AnyFunction>(function),
          [](AnyFunction any, const Value* values) {
            return detail::invoke(reinterpret_cast<R (*)(A...)>(any), values, std::index_sequence_for<A...>{});
          },
          std::is_pointer_v<R>};
}

} // namespace zoritest
