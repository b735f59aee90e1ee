// What the library asks of the compiler: code that stays in one copy, and conditions that hold by construction.
#pragma once

// A function that is not inlined, for the size of the library: one copy serves all its callers. Arithmetic that must
// not leave its function for another reason goes through underRounding (numeric_mode.h).
#define ZORI_ONE_COPY [[gnu::noinline]]

// What the library's own sizes and bounds promise, tested in debug builds and under the sanitizers. No argument of a
// caller is tested by it: those have their statuses.
#if !defined NDEBUG || defined ZORI_ASSERTIONS
#define ZORI_ASSERT(condition) ((condition) ? static_cast<void>(0) : __builtin_trap())
#else
#define ZORI_ASSERT(condition) static_cast<void>(sizeof((condition) ? 1 : 0))
#endif
