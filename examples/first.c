/* first [picture.ppm]: a first program, in C99. Fills an image and a region of it, swaps the channels of a smaller
   region, and writes the result as a picture file.

     cc first.c $(pkg-config --cflags --libs zori) -o first */
#include <zori.h>

#include <stdio.h>

static int writePicture(const char* path, const Zor8u* image, int step, ZorImgSize size)
{
  FILE* file = fopen(path, "wb");
  if (!file) return 0;
  fprintf(file, "P6 %d %d 255\n", size.width, size.height);
  for (int y = 0; y < size.height; ++y) fwrite(image + y * step, 3, (size_t)size.width, file);
  const int failed = ferror(file);
  return fclose(file) == 0 && !failed;
}

int main(int count, char** values)
{
  const char* path = count > 1 ? values[1] : "first.ppm";
  const ZorImgSize size = {320, 200}, square = {120, 120}, half = {60, 120};
  const Zor8u paper[3] = {245, 238, 220}, ink[3] = {196, 64, 44};
  const int reverse[3] = {2, 1, 0};

  /* the library chooses the step: the bytes from one row to the next */
  int step;
  Zor8u* image = zoriMalloc_8u_C3(size.width, size.height, &step);
  if (!image) return 1;

  /* a region is the address of its first pixel, the step of its image, and a size */
  ZorStatus status = zoriSet_8u_C3R(paper, image, step, size);
  if (status == ZorOk) status = zoriSet_8u_C3R(ink, image + 40 * step + 100 * 3, step, square);
  if (status == ZorOk) status = zoriSwapChannels_8u_C3IR(image + 40 * step + 160 * 3, step, half, reverse);

  const int written = status == ZorOk && writePicture(path, image, step, size);
  zoriFree(image);
  if (written) printf("%s written with zori %s\n", path, zoriGetLibVersion()->version);
  else fprintf(stderr, "%s not written, status %d\n", path, (int)status);
  return written ? 0 : 1;
}
