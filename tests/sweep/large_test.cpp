// Images of more than 2^31 bytes, 64-bit: rows that adjoin give what rows with gaps give. One function of a handful of
// families, of those that work pixel by pixel: they share their walks over the rows, and a call takes its time.
#include "sweep.h"

#include "support/repeated_rows.h"

#include <algorithm>
#include <map>

using namespace zoritest;

ZORI_SWEEP_SUITE(LargeSweep);

namespace {

constexpr int width = 1 << 20; // a row of any type is whole pages

int pixelBytes(const Argument& a) { return elementBytes(a.memory.element) * a.memory.count * a.memory.channels; }

// Pixel by pixel, of any region, and from one image into another: a row that is mapped again and again must not be its
// own source.
bool isEligible(const Function& function)
{
  if (!takesAnyRegion(function) || function.makers.size || function.exemptions & kThreadsExempt) return false;
  int sources = 0; // what makes images of nothing takes its time for each pixel
  for (const Argument& a : function.arguments) {
    if (a.role != Role::Image) continue;
    sources += a.memory.read;
    const Extent& e = a.memory.extent;
    if (e.width || e.left || e.top || e.right || e.bottom || a.memory.planes || a.memory.step < 0) return false;
    if ((a.memory.read && a.memory.written) || a.memory.element == Element::T1u || pixelBytes(a) > 4) return false;
  }
  return sources > 0;
}

// What a call gives for `height` equal rows, with so many bytes between them: outputs, and the row of each image that
// is written.
std::vector<unsigned char> outcome(const Function& function, int height, int gap)
{
  Plan plan;
  plan.region = {width, 1};
  plan.placement = Placement::Begin;
  Call call(function, plan);
  std::vector<Value> values = call.values();
  std::map<int, std::unique_ptr<RepeatedRows>> images;
  for (int i = 0; i < function.arguments.size; ++i) {
    const Argument& a = function.arguments[i];
    if (a.role == Role::Region) values[i].numbers[1] = height;
    if (a.role != Role::Image) continue;
    const int rowBytes = width * pixelBytes(a), step = rowBytes + gap;
    images[i] = std::make_unique<RepeatedRows>(step, height);
    std::memcpy(images[i]->row(), call.image(i).pointer(), static_cast<std::size_t>(rowBytes));
    values[i].pointer = images[i]->row();
    values[a.memory.step].numbers[0] = step;
  }
  const Result result = call.run(values);
  std::vector<unsigned char> bytes = call.output(); // numbers that are no image
  bytes.push_back(call.mayGive(result.status) ? 1 : 0);
  for (const auto& [i, image] : images)
    if (function.arguments[i].memory.written)
      bytes.insert(bytes.end(), image->row(), image->row() + width * pixelBytes(function.arguments[i]));
  return bytes;
}

} // namespace

TEST_P(LargeSweep, RowsThatAdjoinBeyondTwoGigabytes)
{
  bool isDone = false;
  eachFunction([&](const Function& function) -> std::string {
    if (isDone || !isEligible(function)) return "";
    const bool givesNumbers = std::none_of(function.arguments.begin(), function.arguments.end(),
                                           [](const Argument& a) { return a.role == Role::Image && a.memory.written; });
    const auto one = outcome(function, 1, 0);
    if (!givesNumbers && outcome(function, 3, 0) != one) return ""; // its rows depend on each other
    isDone = true;
    int widest = 1;
    for (const Argument& a : function.arguments)
      if (a.role == Role::Image) widest = std::max(widest, pixelBytes(a));
    const int height = static_cast<int>((1LL << 31) / (1LL * width * widest)) + 3;
    // an image of equal rows is known from one of them; numbers from rows that do not adjoin
    const auto wanted = givesNumbers ? outcome(function, height, 4096) : one;
    return outcome(function, height, 0) == wanted ? "" : std::string(function.name) + " differs beyond 2^31 bytes";
  });
}
