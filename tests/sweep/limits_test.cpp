// Limits of parameters: the bound that the catalogue tells is legal, the next number is not; each selector of its list
// is legal, the numbers beside them are not.
#include "sweep.h"

#include <algorithm>
#include <climits>
#include <cmath>

using namespace zoritest;

ZORI_SWEEP_SUITE(LimitsSweep);

namespace {

constexpr double mostToAllocate = 1 << 16; // greater bounds are tried from their illegal side alone

struct Trial {
  double number;
  bool legal;
};

std::vector<Trial> trials(const Limit& limit, Element element, const Context& context)
{
  std::vector<Trial> all;
  if (limit.illegal == Illegal::NoneOf) {
    const auto known = [&](double x) {
      return std::find(limit.legal.begin(), limit.legal.end(), x) != limit.legal.end();
    };
    for (const double x : limit.legal) all.push_back({x, true});
    for (const double x : limit.legal)
      for (const double beside : {x - 1, x + 1})
        if (!known(beside)) all.push_back({beside, false});
    return all;
  }
  const double bound = limit.bound(context);
  const auto next = [&](double direction) {
    if (element == Element::T32f)
      return static_cast<double>(std::nextafter(static_cast<float>(bound), static_cast<float>(direction)));
    if (element == Element::T64f) return std::nextafter(bound, direction);
    return bound + (direction > bound ? 1 : -1);
  };
  const double less = next(-INFINITY), more = next(INFINITY);
  switch (limit.illegal) {
  case Illegal::Below: return {{bound, true}, {less, false}};
  case Illegal::Above: return {{bound, true}, {more, false}};
  case Illegal::AtMost: return {{bound, false}, {more, true}};
  default: return {{bound, false}, {less, true}};
  }
}

bool fitsInt(double x) { return x >= INT_MIN && x <= INT_MAX; }

} // namespace

TEST_P(LimitsSweep, BoundsAreLegalAndNothingBeyond)
{
  eachFunction([](const Function& function) -> std::string {
    const Plan plan;
    Call valid(function, plan);
    for (const Limit& limit : function.limits) {
      const Argument& a = function.arguments[limit.argument];
      const int first = std::max(limit.part, 0), end = limit.part < 0 ? std::min(a.count, 4) : limit.part + 1;
      for (int part = first; part < end; ++part)
        for (const Trial& trial : trials(limit, a.number, valid.context(part))) {
          if (!fitsInt(trial.number) && a.number != Element::T32f && a.number != Element::T64f) continue;
          const std::string where = std::string(function.name) + " with " + a.name +
                                    (a.count > 1 ? "[" + std::to_string(part) + "]" : "") + " " +
                                    std::to_string(trial.number);
          Plan changed = plan;
          if (trial.legal) {
            if (std::fabs(trial.number) > mostToAllocate) continue;
            changed.settings = {{limit.argument, part, trial.number}};
            Call call(function, changed);
            const Result result = call.run();
            if (!call.mayGive(result.status)) return where + " gives " + std::to_string(result.status);
            const std::string change = call.changesOutside();
            if (!change.empty()) return where + ": " + change;
            continue;
          }
          valid.remember();
          Spoiled spoiled(valid);
          spoiled.put(limit.argument, part, trial.number);
          const Result result = valid.run(spoiled.values);
          if (result.status != limit.status)
            return where + " gives " + std::to_string(result.status) + " instead of " + std::to_string(limit.status);
          const std::string change = valid.changesAfterFailure();
          if (!change.empty()) return where + " wrote: " + change;
        }
    }
    return "";
  });
}
