// tour [picture.png] [-o sheet.png] [--pictures folder]: what the library does, on one picture.
//
// Runs the stages of every subject (examples/tour/), prints a table of their times, and writes contact sheets of their
// results: of the highlights (sheet.png), and of every subsystem beside it (sheet-data.png...). Into the folder goes
// each result by itself. Without a picture it works on a scene that it draws itself.
#include "tour/tour.h"
#include "support/png_io.h"

#include <cstdio>
#include <string>
#include <vector>

namespace {

struct Arguments {
  std::string picture, sheet = "tour.png", folder;
  bool understood = true;

  Arguments(int count, char** values)
  {
    for (int i = 1; i < count; ++i) {
      const std::string value = values[i];
      if (value == "-o" && i + 1 < count) sheet = values[++i];
      else if (value == "--pictures" && i + 1 < count) folder = values[++i];
      else if (picture.empty() && !value.empty() && value[0] != '-') picture = value;
      else understood = false;
    }
  }
};

// The subsystems, in the order of the sheets.
struct Part {
  const char *name, *title;
  std::vector<void (*)(tour::Tour&)> stages;
};
const Part parts[] = {
  {"data", "Data movement", {tour::dataStages}},
  {"arith", "Arithmetic", {tour::arithStages}},
  {"point", "Point decisions", {tour::pointStages}},
  {"filter", "Filters", {tour::filterStages, tour::rankFilterStages, tour::edgeKeepingStages, tour::restorationStages}},
  {"geometry", "Geometry", {tour::resizeStages, tour::warpStages}},
  {"synthetic", "Synthetic data", {tour::syntheticStages}},
  {"stats", "Statistics", {tour::statsStages}},
  {"spectral", "Spectral transforms", {tour::spectralStages, tour::codecStages}},
  {"correlation", "Correlation", {tour::correlationStages}},
};

void run(const Arguments& arguments)
{
  const bool own = arguments.picture.empty();
  tour::Tour tour(own ? tour::drawnScene() : example::readPng(arguments.picture));
  const std::string subject = own ? "a drawn scene" : arguments.picture.substr(arguments.picture.find_last_of('/') + 1);
  const std::string about =
    subject + ", " + std::to_string(tour.size().width) + " x " + std::to_string(tour.size().height) + " pixels";

  tour.subsystem("", "The picture");
  tour.stage("The picture").note(about).show(tour.picture()).highlight();
  std::printf("%s; each time is the least of several runs\n\n", about.c_str());
  tour::Tour::printHead();
  for (const Part& part : parts) {
    tour.subsystem(part.name, part.title);
    for (const auto stages : part.stages) stages(tour);
    tour.printTable();
  }

  std::printf("\n");
  for (const std::string& path :
       tour.writeSheets(arguments.sheet, "Image-processing primitives, version " ZORI_VERSION " - " + about))
    std::printf("contact sheet: %s\n", path.c_str());
  if (!arguments.folder.empty()) tour.writePictures(arguments.folder);
}

} // namespace

int main(int count, char** values)
{
  const Arguments arguments(count, values);
  if (!arguments.understood) {
    std::fprintf(stderr, "usage: tour [picture.png] [-o sheet.png] [--pictures folder]\n");
    return 2;
  }
  try {
    run(arguments);
    return 0;
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "tour: out of memory\n");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tour: %s\n", error.what());
  }
  return 1;
}
