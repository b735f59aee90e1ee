/* PNG files through libpng's simple interface, and the drawn scene. */
#include "picture.h"

#include <png.h>
#include <string.h>

static void stop(const char* what, const char* why)
{
  fprintf(stderr, "%s: %s\n", what, why);
  exit(1);
}

Picture pictureNew(int width, int height, int channels)
{
  Picture p = {NULL, 0, {width, height}};
  p.data = channels == 1 ? zoriMalloc_8u_C1(width, height, &p.step) : zoriMalloc_8u_C3(width, height, &p.step);
  if (!p.data) stop("picture", "no memory");
  memset(p.data, 0, (size_t)p.step * (size_t)height);
  return p;
}

void pictureFree(Picture* picture)
{
  zoriFree(picture->data);
  picture->data = NULL;
}

static void disc(const Picture* p, int x0, int y0, int radius, const Zor8u colour[3])
{
  for (int y = -radius; y <= radius; ++y)
    for (int x = -radius; x <= radius; ++x)
      if (x * x + y * y <= radius * radius) memcpy(p->data + (y0 + y) * p->step + (x0 + x) * 3, colour, 3);
}

static Picture scene(void)
{
  static const Zor8u paper[3] = {236, 230, 214}, ink[3] = {44, 40, 60}, red[3] = {200, 60, 44}, blue[3] = {40, 90, 190},
                     green[3] = {60, 150, 80};
  Picture p = pictureNew(320, 240, 3);
  for (int y = 0; y < p.size.height; ++y)
    for (int x = 0; x < p.size.width; ++x) {
      Zor8u* at = p.data + y * p.step + x * 3;
      at[0] = (Zor8u)(70 + x / 4), at[1] = (Zor8u)(90 + y / 4), at[2] = (Zor8u)(120 + (x + y) / 8);
    }
  const ZorImgSize sheet = {160, 170};
  CALL(zoriSet_8u_C3R(paper, p.data + 30 * p.step + 30 * 3, p.step, sheet));
  for (int line = 0; line < 9; ++line)
    for (int word = 0; word < 4; ++word) {
      const ZorImgSize size = {20 + (line * 7 + word * 11) % 12, 5};
      CALL(zoriSet_8u_C3R(ink, p.data + (45 + 16 * line) * p.step + (40 + 36 * word) * 3, p.step, size));
    }
  disc(&p, 245, 70, 34, red);
  disc(&p, 270, 150, 26, blue);
  disc(&p, 220, 190, 18, green);
  return p;
}

static Picture grey(Picture* colour)
{
  Picture p = pictureNew(colour->size.width, colour->size.height, 1);
  CALL(zoriCopy_8u_C3C1R(colour->data + 1, colour->step, p.data, p.step, p.size));
  pictureFree(colour);
  return p;
}

Picture pictureOpen(int argc, char** argv, int channels)
{
  Picture p;
  if (argc < 2) {
    p = scene();
    return channels == 1 ? grey(&p) : p;
  }
  png_image image = {.version = PNG_IMAGE_VERSION};
  if (!png_image_begin_read_from_file(&image, argv[1])) stop(argv[1], image.message);
  if (image.width > 20000 || image.height > 20000) stop(argv[1], "too large for a recipe");
  image.format = channels == 1 ? PNG_FORMAT_GRAY : PNG_FORMAT_RGB;
  p = pictureNew((int)image.width, (int)image.height, channels);
  if (!png_image_finish_read(&image, NULL, p.data, p.step, NULL)) stop(argv[1], image.message);
  return p;
}

void pictureSave(const Picture* picture, int channels, int argc, char** argv, const char* name)
{
  char path[256];
  snprintf(path, sizeof path, "%s.png", name);
  const char* file = argc > 2 ? argv[2] : path;
  png_image image = {.version = PNG_IMAGE_VERSION,
                     .width = (png_uint_32)picture->size.width,
                     .height = (png_uint_32)picture->size.height,
                     .format = channels == 1 ? PNG_FORMAT_GRAY : PNG_FORMAT_RGB};
  if (!png_image_write_to_file(&image, file, 0, picture->data, picture->step, NULL)) stop(file, image.message);
}
