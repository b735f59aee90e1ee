// What the checking twin looks at: steps, overlaps, blocks, work buffers and records of a call.
#include "checked_call.h"
#include "zori_check.h"

#include <zori/status.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <map>
#include <mutex>
#include <string_view>
#include <unordered_map>

#include <dlfcn.h>

namespace zoritest {

const Function* findFunction(std::string_view name)
{
  static const auto* const all = [] {
    auto* map = new std::unordered_map<std::string_view, const Function*>; // never released: calls come until the end
    for (const Subsystem& subsystem : subsystems())
      for (const Function& function : subsystem.functions) (*map)[function.name] = &function;
    return map;
  }();
  const auto found = all->find(name);
  return found == all->end() ? nullptr : found->second;
}

} // namespace zoritest

namespace zoricheck {
namespace {

using namespace zoritest;
using Address = std::uintptr_t;

int bytesOf(Element element)
{
  switch (element) {
  case Element::T16u:
  case Element::T16s: return 2;
  case Element::T32u:
  case Element::T32s:
  case Element::T32f: return 4;
  case Element::T64s:
  case Element::T64f:
  case Element::Pointer: return 8;
  default: return 1;
  }
}

// Blocks that the library handed out and records that it made, and those released of late.
struct Known {
  struct Block {
    std::size_t bytes;
    const Function* maker;
    std::vector<Value> values; // of the call that made a record
  };
  std::mutex mutex;
  std::map<Address, Block> blocks, records, released;

  void add(std::map<Address, Block>& map, const void* p, Block block)
  {
    const std::lock_guard<std::mutex> lock(mutex);
    released.erase(reinterpret_cast<Address>(p));
    map[reinterpret_cast<Address>(p)] = block;
  }
  void drop(std::map<Address, Block>& map, const void* p)
  {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = map.find(reinterpret_cast<Address>(p));
    if (found == map.end()) return;
    if (released.size() > 1000) released.erase(released.begin());
    released[found->first] = found->second;
    map.erase(found);
  }
  // The block that holds an address, and where it starts; bytes 0 when there is none.
  std::pair<Address, Block> holding(const std::map<Address, Block>& map, Address at)
  {
    const std::lock_guard<std::mutex> lock(mutex);
    auto next = map.upper_bound(at);
    if (next == map.begin()) return {0, {0, nullptr, {}}};
    --next;
    return at < next->first + std::max<std::size_t>(next->second.bytes, 1) ? *next : std::pair<const Address, Block>{};
  }
};

Known& known()
{
  static Known* const all = new Known; // lives as long as any thread may call
  return *all;
}

thread_local std::string lastComplaint, lastReason;
std::atomic<long> complaints{0};

// Rows of an operand in memory, the lowest first.
struct Placed {
  int argument;
  Address low = 0;
  std::size_t rowBytes = 0, step = 0;
  long long rows = 0;
  Address high() const { return low + static_cast<std::size_t>(rows - 1) * step + rowBytes; }
};

class Call {
public:
  Call(const Function& function, const Value* given)
    : function_(function), values_(given, given + function.arguments.size)
  {
    findMaker();
    for (int i = 0; i < function.arguments.size && !lacksMaker_; ++i) { // formulas look at the first numbers of arrays
      const Argument& a = function.arguments[i];
      if (a.role != Role::In && a.role != Role::Value) continue;
      const void* const p = values_[at(i)].pointer;
      if (!p || a.memory.planes || a.memory.element == Element::Pointer) continue;
      const Context context = contextOf();
      const double length = a.memory.extent.width ? a.memory.extent.width(context) : 1;
      for (int k = 0; k < std::min(4.0, length * a.memory.count); ++k)
        values_[at(i)].numbers[k] = number(p, a.memory.element, k);
    }
  }

  std::string fault()
  {
    for (const Argument& a : function_.arguments)
      if ((a.role == Role::Region || a.role == Role::Size) && (valueOf(a).numbers[0] < 1 || valueOf(a).numbers[1] < 1))
        return ""; // the library says so itself
    std::string found = records();
    if (found.empty()) found = place();
    for (int i = 0; i < static_cast<int>(placed_.size()) && found.empty(); ++i) found = stepFault(placed_[at(i)]);
    for (int i = 0; i < static_cast<int>(placed_.size()) && found.empty(); ++i) found = blockFault(placed_[at(i)]);
    for (std::size_t i = 0; i < placed_.size() && found.empty(); ++i)
      for (std::size_t j = 0; j < placed_.size() && found.empty(); ++j)
        if (i != j) found = overlapFault(placed_[i], placed_[j]);
    if (found.empty()) found = bufferFault();
    return found;
  }

  // Which check gives this status first.
  std::string reason(int status) const
  {
    for (const Limit& limit : function_.limits)
      if (limit.status == status)
        if (const std::string text = broken(limit); !text.empty()) return text;
    for (const Stage& stage : function_.stages)
      if (stage.status == status)
        for (const Fault& f : stage.faults) {
          const Argument& a = function_.arguments[f.argument];
          const Value& v = valueOf(a);
          if (f.kind == FaultKind::Null && f.part < 0 && !v.pointer) return std::string(a.name) + " is null";
          if (f.kind == FaultKind::Null && f.part >= 0 && v.pointer && !static_cast<void* const*>(v.pointer)[f.part])
            return std::string(a.name) + "[" + std::to_string(f.part) + "] is null";
          if (f.kind == FaultKind::Size && v.numbers[f.part] < 1)
            return std::string(a.name) + (f.part ? ".height is " : ".width is ") + text(v.numbers[f.part]) +
                   ", and must be at least 1";
          if (f.kind == FaultKind::Step && v.numbers[0] < 1)
            return std::string(a.name) + " is " + text(v.numbers[0]) + ", and must be at least 1";
        }
    for (const Outcome& outcome : function_.outcomes)
      if (outcome.status == status) return "the arguments are valid; this comes from pixels or memory";
    return "";
  }

  // The call as C, with operands of the bytes that it touches.
  std::string snippet()
  {
    std::string before, arguments;
    for (int i = 0; i < function_.arguments.size; ++i) {
      const Argument& a = function_.arguments[i];
      const Value& v = values_[at(i)];
      std::string word;
      const auto operand =
        std::find_if(placed_.begin(), placed_.end(), [&](const Placed& p) { return p.argument == i; });
      if (v.pointer && operand != placed_.end() && !a.memory.planes) {
        before += "  static unsigned char " + std::string(a.name) + "_[" +
                  std::to_string(operand->high() - operand->low) + "];\n";
        word = "(void*)(" + std::string(a.name) + "_ + " +
               std::to_string(reinterpret_cast<Address>(v.pointer) - operand->low) + ")";
      } else if (a.role == Role::Image || a.role == Role::In || a.role == Role::Out || a.role == Role::Buffer ||
                 a.role == Role::Record || a.memory.element == Element::Pointer)
        word = v.pointer ? a.name : "0";
      else if (v.pointer) word = a.name;
      else if (a.count > 1) {
        for (int k = 0; k < a.count && k < 4; ++k) word += (k ? ", " : "") + text(v.numbers[k]);
        word = (a.role == Role::Region || a.role == Role::Size ? "(ZorImgSize){"
                : a.count == 4                                 ? "(ZorImgRect){"
                : std::strstr(a.name, "Size")                  ? "(ZorImgSize){"
                                                               : "(ZorImgPoint){") +
               word + "}";
      } else word = text(v.numbers[0]);
      arguments += (i ? ", " : "") + word;
    }
    return before + "  " + function_.name + "(" + arguments + ");\n";
  }

private:
  static std::size_t at(int i) { return static_cast<std::size_t>(i); }
  const Value& valueOf(const Argument& a) const { return values_[at(static_cast<int>(&a - function_.arguments.data))]; }

  static std::string text(double number)
  {
    char words[40];
    std::snprintf(words, sizeof words, "%.9g", number);
    return words;
  }

  static double number(const void* p, Element element, int i)
  {
    switch (element) {
    case Element::T8u: return static_cast<const Zor8u*>(p)[i];
    case Element::T8s: return static_cast<const Zor8s*>(p)[i];
    case Element::T16u: return static_cast<const Zor16u*>(p)[i];
    case Element::T16s: return static_cast<const Zor16s*>(p)[i];
    case Element::T32u: return static_cast<const Zor32u*>(p)[i];
    case Element::T32s: return static_cast<const Zor32s*>(p)[i];
    case Element::T64s: return static_cast<double>(static_cast<const Zor64s*>(p)[i]);
    case Element::T32f: return static_cast<const Zor32f*>(p)[i];
    case Element::T64f: return static_cast<const Zor64f*>(p)[i];
    default: return 0;
    }
  }

  std::string broken(const Limit& limit) const
  {
    const Argument& a = function_.arguments[limit.argument];
    if (lacksMaker_) return "";
    const Context context = contextOf();
    for (int k = limit.part < 0 ? 0 : limit.part; k < (limit.part < 0 ? std::min(a.count, 4) : limit.part + 1); ++k) {
      const double v = valueOf(a).numbers[k], bound = limit.bound ? limit.bound(context) : 0;
      const std::string name =
        std::string(a.name) + (a.count > 1 ? " (number " + std::to_string(k + 1) + ")" : "") + " is " + text(v);
      switch (limit.illegal) {
      case Illegal::Below:
        if (v < bound) return name + ", and must be at least " + text(bound);
        break;
      case Illegal::Above:
        if (v > bound) return name + ", and must be at most " + text(bound);
        break;
      case Illegal::AtMost:
        if (!(v > bound)) return name + ", and must be above " + text(bound);
        break;
      case Illegal::AtLeast:
        if (!(v < bound)) return name + ", and must be below " + text(bound);
        break;
      case Illegal::NoneOf:
        if (std::find(limit.legal.begin(), limit.legal.end(), v) == limit.legal.end()) {
          std::string legal;
          for (double l : limit.legal) legal += (legal.empty() ? "" : ", ") + text(l);
          return name + ", and must be one of " + legal;
        }
      }
    }
    return "";
  }

  // Where operands lie.
  std::string place()
  {
    if (lacksMaker_) return "";
    const Argument* region = nullptr;
    for (const Argument& a : function_.arguments)
      if (a.role == Role::Region) region = &a;
    for (int i = 0; i < function_.arguments.size; ++i) {
      const Argument& a = function_.arguments[i];
      const Memory& m = a.memory;
      if (a.role != Role::Image || !values_[at(i)].pointer || m.element == Element::Pointer) continue;
      for (int plane = 0; plane < std::max(m.planes, 1); ++plane) {
        const Context context = contextOf(plane);
        const auto of = [&](Formula f, double other) { return f ? f(context) : other; };
        if (!m.extent.width && !region) continue;
        const double width = of(m.extent.width, region ? valueOf(*region).numbers[0] : 0),
                     height = of(m.extent.height, region ? valueOf(*region).numbers[1] : 0);
        const double left = of(m.extent.left, 0), top = of(m.extent.top, 0), right = of(m.extent.right, 0),
                     bottom = of(m.extent.bottom, 0);
        const long long rows = static_cast<long long>(height + top + bottom);
        const double pixel = m.element == Element::T1u ? 0.125 : bytesOf(m.element) * m.count * m.channels;
        const double bits = m.bitOffset >= 0 ? values_[at(m.bitOffset)].numbers[0] : 0;
        if (!(width >= 1) || rows < 1 || !(left >= 0) || !(width < 1e9)) continue;
        Placed p;
        p.argument = i;
        // of one channel nothing is touched behind the last sample
        const double last = m.kept == Kept::Other ? (m.channels - 1.0) * bytesOf(m.element) * m.count : 0;
        p.rowBytes = static_cast<std::size_t>(std::ceil((width + left + right + bits) * pixel - last));
        p.rows = rows;
        const long long step =
          m.step >= 0 ? static_cast<long long>(values_[at(m.step)].numbers[0]) : static_cast<long long>(p.rowBytes);
        void* const first =
          m.planes ? static_cast<void* const*>(values_[at(i)].pointer)[plane] : values_[at(i)].pointer;
        if (!first) continue;
        const long long topRow = step >= 0 ? -static_cast<long long>(top) : rows - 1 - static_cast<long long>(top);
        p.low =
          reinterpret_cast<Address>(first) + static_cast<Address>(topRow * step) - static_cast<Address>(left * pixel);
        p.step = static_cast<std::size_t>(step < 0 ? -step : step);
        placed_.push_back(p);
      }
    }
    return "";
  }

  std::string stepFault(const Placed& p) const
  {
    const Argument& a = function_.arguments[p.argument];
    if (p.rows < 2 || p.step >= p.rowBytes || (!a.memory.written && (p.step == 0 || a.memory.step < 0))) return "";
    if (a.memory.step < 0) return "";
    return "rows of " + std::string(a.name) + " overlap: a row has " + std::to_string(p.rowBytes) + " bytes, and " +
           function_.arguments[a.memory.step].name + " is " + text(values_[at(a.memory.step)].numbers[0]);
  }

  std::string blockFault(const Placed& p) const
  {
    const Argument& a = function_.arguments[p.argument];
    const Address first = reinterpret_cast<Address>(a.memory.planes ? nullptr : valueOf(a).pointer);
    const Address inside = first ? first : p.low;
    const auto [start, block] = known().holding(known().blocks, inside);
    if (!block.bytes) {
      if (known().holding(known().released, inside).second.bytes)
        return std::string(a.name) + " lies in a block that zoriFree has released";
      return "";
    }
    const Address end = start + block.bytes;
    if (p.low < start)
      return std::string(a.name) + " begins " + std::to_string(start - p.low) + " bytes before its block";
    if (p.high() > end)
      return std::string(a.name) + " reaches " + std::to_string(p.high() - end) + " bytes beyond its block of " +
             std::to_string(block.bytes);
    return "";
  }

  static bool meet(const Placed& p, const Placed& q)
  {
    if (p.high() <= q.low || q.high() <= p.low) return false;
    for (long long i = 0, j = 0; i < p.rows && j < q.rows;) {
      const Address a = p.low + static_cast<std::size_t>(i) * p.step, b = q.low + static_cast<std::size_t>(j) * q.step;
      if (a < b + q.rowBytes && b < a + p.rowBytes) return true;
      if (a < b) {
        ++i;
        if (!p.step) return false;
      } else {
        ++j;
        if (!q.step) return false;
      }
    }
    return false;
  }

  std::string overlapFault(const Placed& p, const Placed& q) const
  {
    const Argument &a = function_.arguments[p.argument], &b = function_.arguments[q.argument];
    if (!a.memory.written || (b.memory.written && q.argument < p.argument) || p.argument == q.argument) return "";
    if (a.memory.kept == Kept::Other || b.memory.kept == Kept::Other || !meet(p, q)) return "";
    for (const Alias& alias : function_.aliases)
      if (alias.source == q.argument && alias.destination == p.argument && p.low == q.low && p.step == q.step)
        return "";
    return std::string(a.name) + " and " + b.name + " overlap" +
           (p.low == q.low ? ", and may not even be the same" : " by a part");
  }

  // The bytes that a work buffer or a record in the caller's memory needs, or -1.
  double needed(const Argument& a) const
  {
    const Function* const query = findFunction(a.size.function);
    const Entry entry(a.size.function);
    if (!query || !entry.real || lacksMaker_) return -1;
    std::vector<Value> values(at(query->arguments.size));
    int bytes = -1;
    std::vector<std::vector<double>> unused;
    for (int i = 0; i < query->arguments.size; ++i) {
      const Argument& q = query->arguments[i];
      for (int k = 0; k < q.example.size && k < 4; ++k) values[at(i)].numbers[k] = q.example[k];
      if (q.role == Role::Record)
        for (const Argument& own : function_.arguments)
          if (own.role == Role::Record) values[at(i)].pointer = valueOf(own).pointer;
    }
    const Context context = contextOf();
    for (const Passing& passing : a.size.passing)
      values[at(passing.argument)].numbers[passing.part] = passing.number(context);
    values[at(a.size.output)].pointer = &bytes;
    for (int i = 0; i < query->arguments.size; ++i)
      if (i != a.size.output && query->arguments[i].memory.written && !values[at(i)].pointer) return -1;
    const Result result = query->callable.invoke(reinterpret_cast<AnyFunction>(entry.real), values.data());
    return result.status < 0 ? -1 : bytes;
  }

  std::string bufferFault() const
  {
    for (const Argument& a : function_.arguments) {
      const Address p = reinterpret_cast<Address>(valueOf(a).pointer);
      if (!a.size.function || !p) continue;
      if (a.alignment > 1 && p % static_cast<Address>(a.alignment))
        return std::string(a.name) + " must be aligned to " + std::to_string(a.alignment) + " bytes";
      const auto [start, block] = known().holding(known().blocks, p);
      if (!block.bytes) continue;
      const double bytes = needed(a), room = static_cast<double>(start + block.bytes - p);
      if (bytes > room)
        return std::string(a.name) + " has room for " + text(room) + " bytes, and " + a.size.function + " tells " +
               text(bytes);
    }
    return "";
  }

  std::string records() const
  {
    for (const Argument& a : function_.arguments) {
      const void* const p = valueOf(a).pointer;
      if (a.role != Role::Record || !p || !function_.makers.size) continue;
      Known& all = known();
      const std::lock_guard<std::mutex> lock(all.mutex);
      const auto live = all.records.find(reinterpret_cast<Address>(p));
      if (live == all.records.end()) {
        if (all.released.count(reinterpret_cast<Address>(p))) return std::string(a.name) + " has been released";
        continue; // in the caller's memory
      }
      for (const Link& maker : function_.makers)
        if (live->second.maker->name == std::string(maker.function)) return "";
      const std::string wanted = function_.makers[0].function;
      if (findFunction(wanted)->release == std::string(live->second.maker->release)) return ""; // of one kind
      return std::string(a.name) + " was made by " + live->second.maker->name + ", and must come from " + wanted;
    }
    return "";
  }

  // Operands that follow a record follow the call that made it. Of one in the caller's memory that call is not known.
  void findMaker()
  {
    if (!function_.makers.size || std::any_of(function_.makers.begin(), function_.makers.end(),
                                              [](const Link& maker) { return maker.passing.size > 0; }))
      return;
    lacksMaker_ = true;
    for (const Argument& a : function_.arguments) {
      if (a.role != Role::Record) continue;
      Known& all = known();
      const std::lock_guard<std::mutex> lock(all.mutex);
      const auto live = all.records.find(reinterpret_cast<Address>(valueOf(a).pointer));
      if (live == all.records.end() || live->second.maker->name != std::string(function_.makers[0].function)) continue;
      maker_ = live->second.values;
      lacksMaker_ = false;
    }
  }
  Context contextOf(int plane = 0) const
  {
    return {values_.data(), maker_.empty() ? nullptr : maker_.data(), plane};
  }

  const Function& function_;
  std::vector<Value> values_, maker_; // those of the call that made the record
  bool lacksMaker_ = false;
  std::vector<Placed> placed_;
};

void complain(const Function& function, const std::string& sentence, const std::string& snippet)
{
  lastComplaint = std::string(function.name) + ": " + sentence;
  ++complaints;
  std::fprintf(stderr, "zori-check: %s\n%s", lastComplaint.c_str(), snippet.c_str());
  const char* const wish = std::getenv("ZORI_CHECK");
  if (wish && !std::strcmp(wish, "abort")) std::abort();
}

} // namespace

Entry::Entry(const char* name) : function(findFunction(name)), real(dlsym(RTLD_NEXT, name))
{
  if (!real) {
    std::fprintf(stderr, "zori-check: the library that is loaded has no %s\n", name);
    std::abort();
  }
}

void before(const Entry& entry, const Value* values)
{
  if (!entry.function) return;
  Call call(*entry.function, values);
  const std::string fault = call.fault();
  if (!fault.empty()) complain(*entry.function, fault, call.snippet());
}

bool heldBack(const Entry& entry, const Value* values)
{
  if (!entry.function || std::strcmp(entry.function->name, "zoriFree")) return false;
  constexpr std::size_t most = 64 << 20;
  static auto* const held = new std::deque<std::pair<void*, std::size_t>>;
  static std::size_t total = 0;
  static std::mutex mutex;
  Known& all = known();
  void* const p = values[0].pointer;
  const std::size_t bytes = all.holding(all.blocks, reinterpret_cast<Address>(p)).second.bytes;
  if (!bytes) return false;
  all.drop(all.blocks, p);
  const std::lock_guard<std::mutex> lock(mutex);
  held->emplace_back(p, bytes);
  total += bytes;
  for (; total > most; held->pop_front()) {
    total -= held->front().second;
    {
      const std::lock_guard<std::mutex> released(all.mutex);
      all.released.erase(reinterpret_cast<Address>(held->front().first));
    }
    reinterpret_cast<void (*)(void*)>(entry.real)(held->front().first);
  }
  return true;
}

void after(const Entry& entry, const Value* values, int status, void* result)
{
  const Function* const f = entry.function;
  if (!f) return;
  if (status < 0) {
    const std::string why = Call(*f, values).reason(status);
    lastReason = std::string(f->name) + " gave " + zori_status_name(status) + ": " +
                 (why.empty() ? zori_status_text(status) : why);
    return;
  }
  if (result && !std::strncmp(f->name, "zoriMalloc", 10))
    known().add(
      known().blocks, result,
      {static_cast<std::size_t>(*static_cast<int*>(values[2].pointer)) * static_cast<std::size_t>(values[1].numbers[0]),
       f,
       {}});
  if (f->release && *f->release && values[0].pointer && f->arguments[0].role == Role::Out)
    known().add(known().records, *static_cast<void**>(values[0].pointer),
                {1, f, std::vector<Value>(values, values + f->arguments.size)});
  if (std::strstr(f->name, "Free") && f->arguments.size == 1 && std::strcmp(f->name, "zoriFree"))
    known().drop(known().records, values[0].pointer);
}

} // namespace zoricheck

extern "C" {
const char* zori_explain(void) { return zoricheck::lastReason.c_str(); }
const char* zori_check_last(void) { return zoricheck::lastComplaint.c_str(); }
long zori_check_count(void) { return zoricheck::complaints; }
}
