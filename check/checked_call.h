// How a wrapper of the checking twin hands its call over: arguments as values of the function table.
#pragma once

#include "support/function_table.h"

#include <zori.h>

namespace zoricheck {

using zoritest::Function;
using zoritest::Value;

// A function of the library and what the catalogue knows of it.
struct Entry {
  explicit Entry(const char* name);
  const Function* function;
  void* real; // the library's
};

// Looks at a call before it is made; `values` are the arguments.
void before(const Entry& entry, const Value* values);
// Keeps a block that is to be released for a while, so that its memory is not soon another's.
bool heldBack(const Entry& entry, const Value* values);
// Takes notice of blocks and records that came and went, and of failures.
void after(const Entry& entry, const Value* values, int status, void* result);

template <class A> Value packed(A a)
{
  Value value;
  if constexpr (std::is_pointer_v<A>) {
    value.pointer = const_cast<void*>(static_cast<const void*>(a));
  } else if constexpr (std::is_arithmetic_v<A>) {
    value.numbers[0] = static_cast<double>(a);
  } else if constexpr (std::is_enum_v<A>) {
    int number;
    static_assert(sizeof number == sizeof a);
    std::memcpy(&number, &a, sizeof number);
    value.numbers[0] = number;
  } else if constexpr (std::is_same_v<A, ZorImgRect>) {
    value.numbers[0] = a.x, value.numbers[1] = a.y, value.numbers[2] = a.width, value.numbers[3] = a.height;
  } else {
    const auto& [first, second] = a;
    value.numbers[0] = static_cast<double>(first), value.numbers[1] = static_cast<double>(second);
  }
  return value;
}

template <class R, class... A> R call(const Entry& entry, R (*)(A...), A... a)
{
  const Value values[] = {packed(a)..., Value{}};
  const auto real = reinterpret_cast<R (*)(A...)>(entry.real);
  before(entry, values);
  if constexpr (std::is_void_v<R>) {
    if (!heldBack(entry, values)) real(a...);
    after(entry, values, 0, nullptr);
  } else if constexpr (std::is_pointer_v<R>) {
    const R result = real(a...);
    after(entry, values, 0, const_cast<void*>(static_cast<const void*>(result)));
    return result;
  } else {
    const R status = real(a...);
    after(entry, values, static_cast<int>(status), nullptr);
    return status;
  }
}

} // namespace zoricheck
