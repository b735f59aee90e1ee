// The tour: stages that each run some calls of the library on the picture, time them, and show what came out.
//
//   tour.stage("Channels in reverse")
//     .time("SwapChannels_8u_C3R", [&] { return zoriSwapChannels_8u_C3R(...); })
//     .show(result);
//
// Each subject has a file of its own with one function, named below and called by examples/tour.cpp.
#pragma once

#include "support/contact_sheet.h"
#include "support/image.h"

#include <deque>
#include <functional>
#include <string>
#include <vector>

namespace tour {

using example::Grey;
using example::Image;
using example::Picture;
using example::View;

// Anything as a picture that can be looked at. Floats and wide integers must be brought to 8u first.
Picture displayed(const Picture& picture);
Picture displayed(const Grey& grey);
Picture displayed(const Image<Zor8u, 4>& picture);

class Stage {
public:
  Stage(std::string title, long long pixels) : title_(std::move(title)), pixels_(pixels) {}

  // Runs the call some times and keeps the least time. It must give the same result each time. What works on other
  // than all pixels of the picture says on how many.
  Stage& time(std::string call, const std::function<ZorStatus()>& work, long long pixels = 0);
  // A remark for the caption.
  Stage& note(std::string text);
  // Puts it on the sheet of the whole library, too.
  Stage& highlight();
  // Puts a picture on the contact sheet; a stage without one stands in the table alone.
  template <class T, int N> Stage& show(const Image<T, N>& picture, View view = View::whole)
  {
    shown_ = displayed(picture);
    view_ = view;
    return *this;
  }

private:
  friend class Tour;
  struct Call {
    std::string name;
    long long pixels;
    double ms;
  };
  double ms() const;
  std::string title_, note_;
  long long pixels_;
  std::vector<Call> calls_;
  Picture shown_;
  View view_ = View::whole;
  bool isHighlight_ = false;
};

class Tour {
public:
  explicit Tour(Picture picture);

  const Picture& picture() const { return picture_; }
  // Its green channel, the one nearest to brightness.
  const Grey& grey() const { return grey_; }
  ZorImgSize size() const { return picture_.size(); }
  long long pixels() const { return static_cast<long long>(size().width) * size().height; }

  // Stages from here on show this subsystem; the name is one for files.
  void subsystem(std::string name, std::string title);
  Stage& stage(std::string title);

  static void printHead();
  // The stages of the last subsystem.
  void printTable() const;
  // One sheet of highlights, and one a subsystem: "tour.png", "tour-data.png"... Returns their paths.
  std::vector<std::string> writeSheets(const std::string& path, const std::string& subtitle) const;
  // Each stage's picture as a file, and stages.json, which tells their titles, remarks and calls.
  void writePictures(const std::string& folder) const;

private:
  struct Subsystem {
    std::string name, title;
    std::deque<Stage> stages;
  };
  void addTo(example::ContactSheet& sheet, const Stage& stage) const;
  Picture picture_;
  Grey grey_;
  std::deque<Subsystem> subsystems_;
};

// The subjects.
void dataStages(Tour& tour);
void arithStages(Tour& tour);
void pointStages(Tour& tour);
void filterStages(Tour& tour);
void rankFilterStages(Tour& tour);
void edgeKeepingStages(Tour& tour);
void restorationStages(Tour& tour);
void syntheticStages(Tour& tour);
void statsStages(Tour& tour);
void resizeStages(Tour& tour);
void spectralStages(Tour& tour);
void codecStages(Tour& tour);
void correlationStages(Tour& tour);
void warpStages(Tour& tour);

// What the tour looks at when it gets no picture.
Picture drawnScene();

} // namespace tour
