// Running, timing and showing of stages.
#include "tour/tour.h"
#include "support/png_io.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <stdexcept>

namespace tour {

Picture displayed(const Picture& picture)
{
  Picture out(picture.size());
  ZORI_CHECK(zoriCopy_8u_C3R(picture.data(), picture.step(), out.data(), out.step(), out.size()));
  return out;
}

Picture displayed(const Grey& grey)
{
  Picture out(grey.size());
  ZORI_CHECK(zoriDup_8u_C1C3R(grey.data(), grey.step(), out.data(), out.step(), out.size()));
  return out;
}

Picture displayed(const Image<Zor8u, 4>& picture)
{
  Picture out(picture.size());
  ZORI_CHECK(zoriCopy_8u_AC4C3R(picture.data(), picture.step(), out.data(), out.step(), out.size()));
  return out;
}

namespace {

std::string formatted(const char* format, double value)
{
  char text[64];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

double megapixelsPerSecond(long long pixels, double ms) { return pixels / 1e3 / std::max(ms, 1e-6); }

} // namespace

Stage& Stage::time(std::string call, const std::function<ZorStatus()>& work, long long pixels)
{
  using Clock = std::chrono::steady_clock;
  using Milliseconds = std::chrono::duration<double, std::milli>;
  example::check(work(), ("zori" + call).c_str()); // warms caches and pages
  static const Clock::time_point begin = Clock::now();
  const bool isLate = Clock::now() - begin > std::chrono::seconds(4); // on a busy machine: the tour is to take seconds
  double least = 1e30, total = 0;
  for (int run = 0; run < (isLate ? 1 : 3) || (run < 200 && total < (isLate ? 1 : 8)); ++run) {
    const auto start = Clock::now();
    work();
    const double ms = Milliseconds(Clock::now() - start).count();
    least = std::min(least, ms);
    total += ms;
  }
  calls_.push_back({std::move(call), pixels ? pixels : pixels_, least});
  return *this;
}

Stage& Stage::note(std::string text)
{
  note_ = std::move(text);
  return *this;
}

Stage& Stage::highlight()
{
  isHighlight_ = true;
  return *this;
}

double Stage::ms() const
{
  double sum = 0;
  for (const Call& call : calls_) sum += call.ms;
  return sum;
}

Tour::Tour(Picture picture) : picture_(std::move(picture)), grey_(picture_.size())
{
  ZORI_CHECK(zoriCopy_8u_C3C1R(picture_.data() + 1, picture_.step(), grey_.data(), grey_.step(), size()));
}

void Tour::subsystem(std::string name, std::string title)
{
  subsystems_.push_back({std::move(name), std::move(title), {}});
}

Stage& Tour::stage(std::string title) { return subsystems_.back().stages.emplace_back(std::move(title), pixels()); }

void Tour::printHead() { std::printf("%-29s %-28s %9s %12s\n", "stage", "call", "ms", "Mpixel/s"); }

void Tour::printTable() const
{
  std::printf("%s\n", subsystems_.back().title.c_str());
  for (const Stage& stage : subsystems_.back().stages) {
    const char* title = stage.title_.c_str();
    for (const Stage::Call& call : stage.calls_) {
      std::printf("  %-27s %-28s %9.3f %12.0f", title, call.name.c_str(), call.ms,
                  megapixelsPerSecond(call.pixels, call.ms));
      if (&call == &stage.calls_.back() && !stage.note_.empty()) std::printf("  %s", stage.note_.c_str());
      std::printf("\n");
      title = "";
    }
  }
  std::fflush(stdout);
}

void Tour::addTo(example::ContactSheet& sheet, const Stage& stage) const
{
  if (!stage.shown_) return;
  std::string calls;
  for (const Stage::Call& call : stage.calls_) calls += (calls.empty() ? "" : ", ") + call.name;
  std::string result;
  if (!stage.calls_.empty())
    result =
      formatted("%.3f ms", stage.ms()) + formatted(", %.0f Mpixel/s", megapixelsPerSecond(stage.pixels_, stage.ms()));
  if (!stage.note_.empty()) result += (result.empty() ? "" : " - ") + stage.note_;
  sheet.add(stage.shown_, stage.view_, {stage.title_, calls.empty() ? result : calls, calls.empty() ? "" : result});
}

std::vector<std::string> Tour::writeSheets(const std::string& path, const std::string& subtitle) const
{
  const std::size_t dot = path.rfind('.'), slash = path.rfind('/');
  const bool hasEnding = dot != path.npos && (slash == path.npos || dot > slash);
  const std::string stem = hasEnding ? path.substr(0, dot) : path, ending = hasEnding ? path.substr(dot) : "";
  std::vector<std::string> paths = {path};
  example::ContactSheet all("zori", subtitle, size());
  for (const Subsystem& subsystem : subsystems_) {
    example::ContactSheet own(subsystem.title, subtitle, size());
    for (const Stage& stage : subsystem.stages) {
      if (stage.isHighlight_) addTo(all, stage);
      addTo(own, stage);
    }
    if (subsystem.name.empty()) continue;
    paths.push_back(stem + "-" + subsystem.name + ending);
    example::writePng(paths.back(), own.drawn());
  }
  example::writePng(path, all.drawn());
  return paths;
}

namespace {

std::string inQuotes(const std::string& text)
{
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

} // namespace

void Tour::writePictures(const std::string& folder) const
{
  const std::string path = folder + "/stages.json";
  std::FILE* file = std::fopen(path.c_str(), "w");
  if (!file) throw std::runtime_error(path + " cannot be written");
  const char* before = "[\n";
  int number = 0;
  for (const Subsystem& subsystem : subsystems_)
    for (const Stage& stage : subsystem.stages) {
      if (!stage.shown_) continue;
      const std::string name = "stage-" + std::to_string(++number) + ".png";
      example::writePng(folder + "/" + name, stage.shown_);
      std::string calls;
      for (const Stage::Call& call : stage.calls_) calls += (calls.empty() ? "" : ", ") + inQuotes(call.name);
      std::fprintf(file, "%s  {\"file\": %s, \"title\": %s, \"note\": %s, \"calls\": [%s]}", before,
                   inQuotes(name).c_str(), inQuotes(stage.title_).c_str(), inQuotes(stage.note_).c_str(),
                   calls.c_str());
      before = ",\n";
    }
  std::fprintf(file, "\n]\n");
  if (std::fclose(file) != 0) throw std::runtime_error(path + " cannot be written");
}

} // namespace tour
