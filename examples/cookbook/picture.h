/* Pictures for the recipes: PNG files in and out, a scene where no file is given, and CALL, which stops at an error. */
#ifndef COOKBOOK_PICTURE_H
#define COOKBOOK_PICTURE_H

#include <stdio.h>
#include <stdlib.h>
#include <zori.h>

/* Stops with the name of the call and the status in words. */
#define CALL(call)                                                                                                     \
  do {                                                                                                                 \
    const ZorStatus callStatus = (call);                                                                               \
    if (callStatus < 0) {                                                                                              \
      fprintf(stderr, "%s: %s: %s\n", #call, zori_status_name(callStatus), zori_status_text(callStatus));              \
      exit(1);                                                                                                         \
    }                                                                                                                  \
  } while (0)

/* Stops when a result is not what the recipe promises. */
#define EXPECT(truth)                                                                                                  \
  do {                                                                                                                 \
    if (!(truth)) {                                                                                                    \
      fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #truth);                                              \
      exit(1);                                                                                                         \
    }                                                                                                                  \
  } while (0)

typedef struct {
  Zor8u* data;
  int step;
  ZorImgSize size;
} Picture;

/* Memory for one or three channels of bytes, all 0. */
Picture pictureNew(int width, int height, int channels);
void pictureFree(Picture* picture);
/* argv[1] as a picture of one or three channels; without it a scene of 320 x 240 pixels: a sheet with lines of writing,
 * discs of several colours, a shaded ground. */
Picture pictureOpen(int argc, char** argv, int channels);
/* Writes argv[2], or NAME.png. */
void pictureSave(const Picture* picture, int channels, int argc, char** argv, const char* name);

#endif
