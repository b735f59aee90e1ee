// tour [picture.png] [-o sheet.png] [--pictures folder]: what the library does, on one picture.
//
// Runs the stages of every subject (examples/tour/), prints a table of their times, and writes a contact sheet of their
// results, and into the folder each result by itself. Without a picture it works on a scene that it draws itself.
#include "tour/tour.h"
#include "support/png_io.h"

#include <cstdio>
#include <string>

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

void run(const Arguments& arguments)
{
  const bool own = arguments.picture.empty();
  tour::Tour tour(own ? tour::drawnScene() : example::readPng(arguments.picture));
  const std::string subject = own ? "a drawn scene" : arguments.picture.substr(arguments.picture.find_last_of('/') + 1);
  const std::string about =
    subject + ", " + std::to_string(tour.size().width) + " x " + std::to_string(tour.size().height) + " pixels";

  tour.stage("The picture").note(about).show(tour.picture());
  tour::dataStages(tour);
  tour::arithStages(tour);
  tour::pointStages(tour);
  tour::filterStages(tour);
  tour::rankFilterStages(tour);
  tour::edgeKeepingStages(tour);
  tour::restorationStages(tour);
  tour::resizeStages(tour);
  tour::warpStages(tour);
  tour::syntheticStages(tour);
  tour::statsStages(tour);
  tour::spectralStages(tour);
  tour::codecStages(tour);
  tour::correlationStages(tour);

  std::printf("%s; each time is the least of several runs\n\n", about.c_str());
  tour.printTable();
  const std::string version = zoriGetLibVersion()->version;
  example::writePng(arguments.sheet, tour.sheet("Image-processing primitives, version " + version + " - " + about));
  std::printf("\ncontact sheet: %s\n", arguments.sheet.c_str());
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
