// PNG files in and out, by the simplified interface of libpng: every form of file becomes rows of the form asked for,
// and errors come back as a text instead of a long jump.
#include "support/png_io.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <png.h>

namespace example {

namespace {

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// The record of libpng with its release.
struct Png : png_image {
  Png()
  {
    std::memset(static_cast<png_image*>(this), 0, sizeof(png_image));
    version = PNG_IMAGE_VERSION;
  }
  ~Png() { png_image_free(this); }
};

[[noreturn]] void fail(const std::string& path, const std::string& why) { throw std::runtime_error(path + ": " + why); }

constexpr long long mostPixels = 100'000'000;

} // namespace

Picture readPng(const std::string& path)
{
  const File file(std::fopen(path.c_str(), "rb"));
  if (!file) fail(path, errno == ENOENT ? "no such file" : std::strerror(errno));
  unsigned char head[8];
  const std::size_t got = std::fread(head, 1, sizeof head, file.get());
  if (std::ferror(file.get())) fail(path, std::strerror(errno)); // a folder, for example
  if (got == 0) fail(path, "the file is empty");
  if (got < sizeof head || png_sig_cmp(head, 0, sizeof head) != 0) fail(path, "not a PNG file");
  std::rewind(file.get());

  Png png;
  if (!png_image_begin_read_from_stdio(&png, file.get())) fail(path, std::string("broken PNG file: ") + png.message);
  if (static_cast<long long>(png.width) * png.height > mostPixels)
    fail(path, std::to_string(png.width) + " x " + std::to_string(png.height) + " pixels are too many");
  png.format = PNG_FORMAT_RGB;
  png.flags |= PNG_IMAGE_FLAG_16BIT_sRGB;

  Picture picture(static_cast<int>(png.width), static_cast<int>(png.height));
  const png_color white = {255, 255, 255};
  if (!png_image_finish_read(&png, &white, picture.data(), picture.step(), nullptr))
    fail(path, std::string("broken PNG file: ") + png.message);
  return picture;
}

void writePng(const std::string& path, const Picture& picture)
{
  File file(std::fopen(path.c_str(), "wb"));
  if (!file) fail(path, std::string("cannot be written: ") + std::strerror(errno));
  Png png;
  png.width = static_cast<png_uint_32>(picture.width());
  png.height = static_cast<png_uint_32>(picture.height());
  png.format = PNG_FORMAT_RGB;
  if (!png_image_write_to_stdio(&png, file.get(), 0, picture.data(), picture.step(), nullptr)) fail(path, png.message);
  if (std::fclose(file.release()) != 0) fail(path, std::strerror(errno));
}

} // namespace example
