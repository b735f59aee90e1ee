// The function table: what the catalogue knows of every built function, and a way to call each with generic arguments.
// tools/generate.py writes the tables, one a subsystem.
#pragma once

#include "zori/types.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
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

// What a formula of the catalogue can look at.
struct Context {
  const Value* values;          // the arguments of the call; numbers of an array (its first four) are there, too
  const Value* maker = nullptr; // the arguments of the call that made the record
  int plane = 0;                // of an array with one number a plane, the one that is meant
};

// A number that follows from the arguments. Quotients are cut to whole numbers.
using Formula = double (*)(const Context&);

// How far an operand reaches. Without width and height it covers the region, and the margins (0 when null) widen it.
// The margin of an operand in place is only read where it covers the region, but written where it has its own size.
struct Extent {
  Formula width = nullptr, height = nullptr;
  Formula left = nullptr, top = nullptr, right = nullptr, bottom = nullptr;
};

// What a pointer argument points to. An array is an image of one row.
struct Memory {
  Element element = Element::T8u;
  int count = 1;                                    // elements in one sample (2 in complex ones)
  int channels = 1;                                 // samples in one pixel
  int planes = 0;                                   // number of plane pointers; 0: the pointer is that of the data
  bool read = false, written = false, mask = false; // an array that is read and written keeps a state (a seed)
  Kept kept = Kept::None;
  int step = -1;      // index of the step argument
  int bitOffset = -1; // index of the argument that tells the first bit of a row (1u)
  Extent extent;
};

// Numbers to draw from, for one number of an argument (part) or for each (-1): between low and high, or one of choices.
// They keep the call valid as long as the arguments in front of this one have been drawn before.
struct Range {
  int part;
  Formula low, high; // null with choices
  Span<double> choices;
};

// One number that an argument of another function gets from this call. Its other arguments keep their examples; a
// record argument gets the record of this call.
struct Passing {
  int argument, part;
  Formula number;
};

// A call of another function that goes with this one: it makes the record, or tells the size of a block.
struct Link {
  const char* function = nullptr;
  Span<Passing> passing;
  int output = -1; // query of a size: the argument that receives it
};

struct Argument {
  const char* name; // in C
  const char* item; // in the catalogue: images are known by their role
  Role role;
  bool optional;  // may be null
  Element number; // type of the numbers that a value holds (enumerations are T32s)
  int count;      // how many it holds
  Memory memory;
  Span<double> example;
  Span<Range> ranges; // free numbers (values, scale factors) need none
  bool anyStep;       // a step that may be zero, or negative to walk upward
  Link size;          // the query that tells the bytes of a work buffer, or of a record in the caller's memory
  int alignment;      // that such a block must have
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

// One check of a function, in its order: any of the faults (or all of them together) gives the status. The faults of a
// check that stands in `limits`, too, are values that are bad in every call, whatever has been drawn for the others.
struct Stage {
  ZorStatus status;
  bool together;
  Span<Fault> faults;
};

// When a number is not legal. The bound itself is legal with Below and Above, but not with AtMost and AtLeast.
enum class Illegal : std::uint8_t { Below, Above, AtMost, AtLeast, NoneOf };

// What a check says of one number: bound and selectors are formulas of the other arguments, or lists.
struct Limit {
  int argument;
  int part; // of a struct or an array; -1: each of them
  Illegal illegal;
  Formula bound;      // null with NoneOf
  Span<double> legal; // NoneOf: the legal numbers
  ZorStatus status;
  int stage; // the check's place in the order of all
};

// A status that a call with valid arguments may give. After an error nothing is written, after a warning the output is
// complete, but for the arguments in `written`: only these have been written, or may have been.
struct Outcome {
  ZorStatus status;
  bool complete;
  Span<int> written;
};

// Two image arguments that may be the same region: equal pointers and steps. Sources may always be the same.
struct Alias {
  int source, destination;
};

// Whether a function shares its work among a team of threads. Contract: its result depends on the team's size.
enum class Team : std::uint8_t { No, Yes, Contract };

// Under which rounding a function computes. Kept: to nearest, and a failed call leaves the field at nearest.
enum class RoundingRule : std::uint8_t { Nearest, Callers, Kept };

enum Exemption {
  kAlphaExempt = 1,
  kThreadsExempt = 2, // the team's size is part of the contract
  kAlignmentExempt = 4,
  kStepsExempt = 8,
  kInplaceExempt = 16,
  kAllocationExempt = 32,
  kLayoutExempt = 64,
  kFallbackExempt = 128
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
  Span<Limit> limits;
  Span<Outcome> outcomes;
  Span<Alias> aliases;
  Span<Link> makers;      // calls that make the record argument: the first makes it, the others fill it
  const char* release;    // function that releases what this one makes, or ""
  const char* partner;    // the form that is not in place, or ""
  const char* oneChannel; // the C1 form that this one equals channel by channel (or plane by plane), or ""
  const char* unmasked;   // the form without the mask, or ""
  Team team;
  RoundingRule rounding;
  int exemptions;
  bool sweep;           // the generic tests call it
  const char* accuracy; // how far results may be from exact arithmetic, in words
};

struct Subsystem {
  const char* name;
  Span<Function> functions;
};

const std::vector<Subsystem>& subsystems();

// Null when the table has no function of that name.
const Function* findFunction(std::string_view name);

// What formulas are made of, beside + - *.
inline double quotient(double a, double b) { return std::floor(a / b); }
inline double modulo(double a, double b) { return a - b * std::floor(a / b); }
inline double shifted(double a, double bits) { return std::ldexp(a, static_cast<int>(bits)); }
inline double least(double a, double b) { return a < b ? a : b; }
inline double greatest(double a, double b) { return a < b ? b : a; }

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
