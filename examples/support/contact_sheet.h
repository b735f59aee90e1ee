// A sheet of pictures with captions.
#pragma once

#include "support/image.h"

#include <string>
#include <vector>

namespace example {

// What a tile shows of a picture that does not fit it: all of it, made smaller, or its middle, dot by dot.
enum class View { whole, detail };

class ContactSheet {
public:
  // All tiles have one size, which suits pictures of this shape.
  ContactSheet(std::string title, std::string subtitle, ZorImgSize shape);

  // The first line of a caption is its title.
  void add(const Picture& picture, View view, std::vector<std::string> caption);

  Picture drawn() const;

private:
  struct Tile {
    Picture picture;
    std::vector<std::string> caption;
  };
  std::string title_, subtitle_;
  ZorImgSize tileSize_;
  std::vector<Tile> tiles_;
};

} // namespace example
