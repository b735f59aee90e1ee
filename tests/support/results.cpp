#include "results.h"

#include <cstdio>
#include <dlfcn.h>
#include <xmmintrin.h>

namespace zoritest {

Build::Build(const char* path)
{
  if (!path) return;
  handle_ = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (!handle_) std::fprintf(stderr, "%s\n", dlerror());
}

const Function* Build::find(const Function& function)
{
  const Function*& known = found_[function.name];
  if (known) return known;
  Function own = function;
  if (handle_) own.callable.function = reinterpret_cast<AnyFunction>(dlsym(handle_, function.name));
  return known = own.callable.function ? &functions_.emplace_back(own) : nullptr;
}

RoundingField::RoundingField(unsigned field) : found_(_mm_getcsr()) { _mm_setcsr((found_ & ~0x6000u) | field << 13); }
RoundingField::~RoundingField() { _mm_setcsr(found_); }

Results resultsOf(Call& call, const Result& result)
{
  const Function& function = call.function();
  Results results;
  results.status = result.status;
  results.succeeded = call.succeeded(result);
  for (int i = 0; i < function.arguments.size; ++i) {
    const Argument& a = function.arguments[i];
    const bool isOutput = a.memory.written && a.memory.element != Element::Pointer &&
                          (a.role == Role::Image || a.role == Role::In || a.role == Role::Out);
    results.outputs.push_back(isOutput ? call.image(i).pixels() : std::vector<unsigned char>());
  }
  results.outside = call.changesOutside();
  return results;
}

// A NaN becomes the same one everywhere.
template <class F> static void unifyNans(std::vector<unsigned char>& bytes)
{
  for (std::size_t i = 0; i + sizeof(F) <= bytes.size(); i += sizeof(F)) {
    F x;
    std::memcpy(&x, &bytes[i], sizeof x);
    if (!std::isnan(x)) continue;
    x = std::numeric_limits<F>::quiet_NaN();
    std::memcpy(&bytes[i], &x, sizeof x);
  }
}

void unifyNans(const Function& function, Results& results)
{
  for (int i = 0; i < function.arguments.size; ++i) {
    const Element element = function.arguments[i].memory.element;
    if (element == Element::T32f) unifyNans<float>(results.outputs[i]);
    if (element == Element::T64f) unifyNans<double>(results.outputs[i]);
  }
}

std::string difference(const Function& function, const Results& a, const Results& b)
{
  if (a.status != b.status) return "status " + std::to_string(a.status) + ", other " + std::to_string(b.status);
  for (int i = 0; i < function.arguments.size; ++i) {
    if (a.outputs[i] == b.outputs[i]) continue;
    std::size_t at = 0;
    while (a.outputs[i][at] == b.outputs[i][at]) ++at;
    return std::string(function.arguments[i].name) + " differs in byte " + std::to_string(at) + " of " +
           std::to_string(a.outputs[i].size());
  }
  return b.outside;
}

} // namespace zoritest
