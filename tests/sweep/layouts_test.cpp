// Layouts: what a function does to several channels or planes is what its C1 form does to each of them; what it does
// under a mask is what it does without one where the mask is set, and nothing elsewhere.
#include "sweep.h"

#include <cmath>

using namespace zoritest;

ZORI_SWEEP_SUITE(LayoutsSweep);

namespace {

constexpr ZorImgSize regions[] = {{1, 1}, {5, 3}, {17, 5}, {33, 2}, {64, 9}, {1100, 2}};

// Channels or planes that a function works on.
int channelsOf(const Function& function)
{
  if (std::strstr(function.name, "_AP4")) return 3; // the fourth plane is alpha
  int most = 1;
  for (const Argument& a : function.arguments) {
    if (a.role != Role::Image || a.memory.mask) continue;
    const int channels = a.memory.kept == Kept::Other   ? 1
                         : a.memory.kept == Kept::Alpha ? a.memory.channels - 1
                                                        : a.memory.channels;
    most = std::max({most, a.memory.planes, channels});
  }
  return most;
}

// The samples that one channel of an argument has in the whole call, seen as those of the argument of its C1 form.
class ChannelOf {
public:
  ChannelOf(GuardedImage& whole, GuardedImage& one, int channel) : whole_(whole), one_(one)
  {
    if (whole.memory().planes > one.memory().planes) plane_ = channel;
    else if (whole.memory().channels > one.memory().channels) channel_ = channel;
    else if (whole.columns() > one.columns()) first_ = channel * one.columns();
  }
  // Calls visit(sample of the whole, sample of the one, bytes) for each.
  template <class Visit> void each(Visit visit) const
  {
    const int planes = std::max(one_.memory().planes, 1);
    for (int p = 0; p < planes; ++p)
      for (int y = 0; y < one_.rows(); ++y)
        for (int x = 0; x < one_.columns(); ++x)
          for (int c = 0; c < one_.memory().channels; ++c)
            if (one_.memory().kept != Kept::Other || c == 0)
              visit(whole_.sample(p + plane_, y, x + first_, c + channel_), one_.sample(p, y, x, c),
                    one_.sampleBytes());
  }

private:
  GuardedImage &whole_, &one_;
  int plane_ = 0, channel_ = 0, first_ = 0;
};

double numberAt(const unsigned char* p, Element element)
{
  if (element == Element::T32f) {
    float number;
    std::memcpy(&number, p, sizeof number);
    return number;
  }
  if (element == Element::T64f) {
    double number;
    std::memcpy(&number, p, sizeof number);
    return number;
  }
  const bool isSigned =
    element == Element::T8s || element == Element::T16s || element == Element::T32s || element == Element::T64s;
  std::int64_t number = 0;
  const int bytes = elementBytes(element);
  std::memcpy(&number, p, static_cast<std::size_t>(bytes));
  if (isSigned && bytes < 8 && number >> (8 * bytes - 1)) number -= std::int64_t{1} << 8 * bytes;
  return static_cast<double>(number);
}

bool equal(const unsigned char* a, const unsigned char* b, int bytes, const Memory& memory)
{
  if (std::memcmp(a, b, static_cast<std::size_t>(bytes)) == 0) return true;
  if (memory.element != Element::T32f && memory.element != Element::T64f) return false;
  const int size = elementBytes(memory.element);
  for (int i = 0; i < bytes; i += size)
    if (std::memcmp(a + i, b + i, static_cast<std::size_t>(size)) != 0 &&
        !(std::isnan(numberAt(a + i, memory.element)) && std::isnan(numberAt(b + i, memory.element))))
      return false;
  return true;
}

bool hasImage(const Argument& a) { return a.role == Role::Image || a.role == Role::In || a.role == Role::Out; }

// Gives the one-channel call the operands of one channel of the whole.
void takeChannel(Call& whole, Call& one, int channel)
{
  for (int i = 0; i < one.function().arguments.size; ++i) {
    const Argument &a = whole.function().arguments[i], &b = one.function().arguments[i];
    if (hasImage(a) && hasImage(b)) {
      ChannelOf(whole.image(i), one.image(i), channel).each([](unsigned char* from, unsigned char* to, int bytes) {
        std::memcpy(to, from, static_cast<std::size_t>(bytes));
      });
    } else if (hasImage(a)) { // an array of constants and a constant
      GuardedImage& array = whole.image(i);
      for (int k = 0; k < b.count; ++k)
        one.values()[i].numbers[k] =
          numberAt(array.sample(0, 0, channel, 0) + k * elementBytes(a.memory.element), a.memory.element);
    } else if (b.role != Role::Step) {
      for (int k = 0; k < 4; ++k) one.values()[i].numbers[k] = whole.values()[i].numbers[k];
    }
  }
  one.remember();
}

// An array with a number for each channel, which the C1 form takes as a number.
bool isPerChannel(const Argument& a, const Argument& b) { return hasImage(a) && a.role != Role::Image && !hasImage(b); }

// Functions whose numbers may be drawn: a record would have been made for the drawn ones of one call alone.
bool isDrawn(const Function& function)
{
  bool draws = false;
  for (const Argument& a : function.arguments)
    draws =
      draws || a.ranges.size > 0 || a.role == Role::Scale || a.role == Role::Value || !std::strcmp(a.item, "value");
  return draws && function.makers.size == 0;
}

// The plan of the call for one channel, with the numbers of the whole.
Plan planOfOne(const Plan& plan, Call& whole, const Function& form, int channel)
{
  Plan one = plan;
  one.vary = false;
  for (int i = 0; i < form.arguments.size; ++i) {
    const Argument &a = whole.function().arguments[i], &b = form.arguments[i];
    if (isPerChannel(a, b)) {
      one.settings.push_back({i, 0, numberAt(whole.image(i).sample(0, 0, channel, 0), a.memory.element)});
      continue;
    }
    for (int part = 0; !hasImage(a) && b.role != Role::Step && part < std::min(b.count, 4); ++part)
      one.settings.push_back({i, part, whole.values()[i].numbers[part]});
  }
  return one;
}

// Sums are formed in orders of their own where a hint lets them: it stays as it is.
void keepHints(const Function& function, Plan& plan)
{
  for (int i = 0; i < function.arguments.size; ++i)
    if (const Argument& a = function.arguments[i]; !std::strcmp(a.item, "hint"))
      plan.settings.push_back({i, 0, a.example.size ? a.example[0] : 1});
}

// In the channels of a set, each array of constants gets what the first of its type holds, or 1 if it is the first
// itself: functions that take a shorter way where constants coincide may do so if they do in all channels.
void letConstantsCoincide(Call& whole, const Function& form, unsigned channelsOfSet)
{
  for (int i = 0; i < form.arguments.size; ++i) {
    const Argument& a = whole.function().arguments[i];
    if (!isPerChannel(a, form.arguments[i])) continue;
    int first = 0;
    const auto isAlike = [&](const Argument& x) {
      return isPerChannel(x, form.arguments[first]) && x.memory.element == a.memory.element;
    };
    while (!isAlike(whole.function().arguments[first])) ++first;
    GuardedImage &to = whole.image(i), &from = whole.image(first);
    for (int c = 0; c < std::min(to.columns(), from.columns()); ++c) {
      if (!(channelsOfSet >> c & 1) || (first == i && a.memory.element != Element::T8u)) continue;
      if (first == i) *to.sample(0, 0, c, 0) = 1;
      else std::memcpy(to.sample(0, 0, c, 0), from.sample(0, 0, c, 0), static_cast<std::size_t>(to.sampleBytes()));
    }
  }
  whole.remember();
}

std::string differs(Call& whole, Call& one, int channel)
{
  for (int i = 0; i < one.function().arguments.size; ++i) {
    const Argument& a = whole.function().arguments[i];
    if (!a.memory.written || !hasImage(a) || a.memory.element == Element::Pointer) continue;
    bool same = true;
    ChannelOf(whole.image(i), one.image(i), channel).each([&](unsigned char* x, unsigned char* y, int bytes) {
      same = same && equal(x, y, bytes, a.memory);
    });
    if (!same)
      return whole.describe() + " differs in channel " + std::to_string(channel) + " of " + a.name + " from " +
             one.function().name;
  }
  return "";
}

} // namespace

TEST_P(LayoutsSweep, EachChannelIsThatOfTheFormForOne)
{
  eachFunction([](const Function& function) -> std::string {
    const Function* form = findFunction(function.oneChannel);
    if (!form || function.exemptions & kLayoutExempt) return "";
    const int channels = channelsOf(function);
    // the example's numbers on every region, then drawn ones, then some that coincide in a few channels alone
    struct Variant {
      ZorImgSize region;
      Fill fill;
      bool isDrawn;
      unsigned coincide; // channels of a set
    };
    std::vector<Variant> variants;
    for (const ZorImgSize region : regions)
      for (const Fill fill : {Fill::Ordinary, Fill::Special})
        if (fill == Fill::Ordinary || hasFloats(function)) variants.push_back({region, fill, false, 0});
    if (isDrawn(function))
      for (const unsigned coincide : {0u, 0u, 1u, 2u, 4u, 6u, 8u})
        if (!coincide || !(coincide >> channels)) variants.push_back({{35, 3}, Fill::Ordinary, true, coincide});
    for (std::size_t v = 0; v < variants.size(); ++v) {
      const auto& [region, fill, draws, coincide] = variants[v];
      Plan plan;
      plan.region = region, plan.fill = fill;
      plan.vary = draws;
      if (draws) keepHints(function, plan);
      plan.seed = static_cast<std::uint64_t>(region.width) + (draws ? v : 0);
      Call whole(function, plan);
      if (coincide) letConstantsCoincide(whole, *form, coincide);
      std::vector<std::unique_ptr<Call>> ones;
      for (int c = 0; c < channels; ++c) {
        ones.push_back(std::make_unique<Call>(*form, draws ? planOfOne(plan, whole, *form, c) : plan));
        takeChannel(whole, *ones.back(), c);
      }
      const Result result = whole.run();
      if (!whole.mayGive(result.status)) return whole.describe() + " gives " + std::to_string(result.status);
      const std::string change = whole.changesOutside();
      if (!change.empty()) return whole.describe() + ": " + change;
      bool warned = false;
      for (int c = 0; c < channels; ++c) {
        warned = ones[c]->run().status != ZorOk || warned;
        const std::string difference = differs(whole, *ones[c], c);
        if (!difference.empty()) return difference;
      }
      if (warned != (result.status != ZorOk))
        return whole.describe() + " gives " + std::to_string(result.status) + ", unlike " + form->name;
    }
    return "";
  });
}

TEST_P(LayoutsSweep, MasksChooseFromTheFormWithoutOne)
{
  eachFunction([](const Function& function) -> std::string {
    const Function* form = findFunction(function.unmasked);
    if (!form) return "";
    for (const ZorImgSize region : regions) {
      Plan plan;
      plan.region = region;
      Call masked(function, plan), plain(*form, plan);
      GuardedImage* mask = nullptr;
      std::vector<int> at; // arguments of the masked form for those of the plain one
      for (int i = 0; i < function.arguments.size; ++i) {
        const Argument& a = function.arguments[i];
        if (a.memory.mask) mask = &masked.image(i);
        else if (std::strcmp(a.item, "mask") != 0) at.push_back(i);
      }
      if (!mask || static_cast<int>(at.size()) != form->arguments.size) return masked.describe() + " has no mask";
      const auto eachSample = [&](auto visit) {
        for (int i = 0; i < form->arguments.size; ++i)
          if (hasImage(form->arguments[i]))
            ChannelOf(masked.image(at[static_cast<std::size_t>(i)]), plain.image(i), 0)
              .each([&](unsigned char* x, unsigned char* y, int bytes) { visit(i, x, y, bytes); });
      };
      eachSample(
        [](int, unsigned char* x, unsigned char* y, int bytes) { std::memcpy(y, x, static_cast<std::size_t>(bytes)); });
      Call before(function, plan);
      masked.run();
      plain.run();
      const std::string change = masked.changesOutside();
      if (!change.empty()) return masked.describe() + ": " + change;
      for (int i = 0; i < form->arguments.size; ++i) {
        const Argument& a = form->arguments[i];
        if (a.role != Role::Image || !a.memory.written) continue;
        const int own = at[static_cast<std::size_t>(i)];
        GuardedImage &now = masked.image(own), &then = before.image(own), &all = plain.image(i);
        for (int y = 0; y < now.rows(); ++y)
          for (int x = 0; x < now.columns(); ++x)
            for (int c = 0; c < a.memory.channels; ++c) {
              if (a.memory.kept == Kept::Other && c > 0) continue;
              GuardedImage& wanted = *mask->sample(0, y, x, 0) ? all : then;
              if (!equal(now.sample(0, y, x, c), wanted.sample(0, y, x, c), now.sampleBytes(), a.memory))
                return masked.describe() + " does not follow its mask";
            }
      }
    }
    return "";
  });
}
