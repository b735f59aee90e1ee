// What a call gave, in a form that can be held against what another build of the library gives.
#pragma once

#include "call.h"

#include <deque>
#include <map>

namespace zoritest {

// The functions of the table as a shared library has them; those that the program is linked with where there is none.
class Build {
public:
  explicit Build(const char* path);
  bool isLoaded() const { return handle_ != nullptr; }
  // Null when the library has no function of that name.
  const Function* find(const Function& function);

private:
  void* handle_ = nullptr;
  std::deque<Function> functions_;
  std::map<std::string, const Function*> found_;
};

struct Results {
  int status = 0;
  bool succeeded = false;
  std::vector<std::vector<unsigned char>> outputs; // of each argument
  std::string outside;                             // what changed that no function may write
};

// Of a call that has been made.
Results resultsOf(Call& call, const Result& result);

// Makes each NaN the same: where both operands of a sum or product are NaN, which of them comes out is the compiler's
// choice.
void unifyNans(const Function& function, Results& results);

// Where b differs from a, or what is wrong with b, or "".
std::string difference(const Function& function, const Results& a, const Results& b);

// The rounding field of this thread for a scope.
class RoundingField {
public:
  explicit RoundingField(unsigned field);
  ~RoundingField();

private:
  unsigned found_;
};

} // namespace zoritest
