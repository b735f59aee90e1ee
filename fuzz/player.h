// Plays an input: bytes that stand for a handful of calls, one after the other, of any functions of the table. Each
// call has a size, steps, alignments, numbers, pixels, a team and a rounding field of its own, and may have faults;
// records are shared among calls, and some are of another kind, broken or released.
//
// Everything that C cannot check is as the catalogue wants it: operands have the memory that the numbers of the call
// ask for, and lie between pages without access.
#pragma once

#include "support/results.h"

namespace zoritest {

struct PlayRules {
  Build* build = nullptr; // whose functions are called; null: those that the program is linked with
  bool keepsResults = false;
  bool tells = false; // print each call, and what is told of a fault
};

struct Played {
  std::string fault; // what went wrong, or ""
  struct Move {
    const Function* function;
    Results results;
  };
  std::vector<Move> moves; // where results are kept
  int calls = 0;
};

Played play(const unsigned char* data, std::size_t size, const PlayRules& rules);

} // namespace zoritest
