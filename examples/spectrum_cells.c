/* spectrum_cells: where the frequencies of a real image stand in its packed spectrum.
 *
 * cellFrequency says which frequency a cell belongs to, for weights; spectrumAt reads any frequency. Both are held
 * against the sums that define the transform, for sides even and odd. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <zori.h>

/* Columns whose frequencies repeat from the middle on, so that one half of them fills the column. */
static int isFolded(int column, int width) { return column == 0 || (width % 2 == 0 && column == width - 1); }

/* The frequency (u, v) that the cell in this column and row belongs to: u is at most width / 2. */
static void cellFrequency(int column, int row, int width, int* u, int* v)
{
  *u = (column + 1) / 2;
  *v = isFolded(column, width) ? (row + 1) / 2 : row;
}

/* A(u, v) for any u below width and v below height. */
static Zor32fc spectrumAt(const Zor32f* packed, int step, int width, int height, int u, int v)
{
  const int column = u == 0 ? 0 : 2 * u - 1, isMirrored = 2 * u > width || (isFolded(column, width) && 2 * v > height);
  if (isMirrored) { /* the other half follows: A(u, v) is the conjugate of A(-u, -v) */
    Zor32fc value = spectrumAt(packed, step, width, height, (width - u) % width, (height - v) % height);
    value.im = -value.im;
    return value;
  }
  const int isColumn = isFolded(column, width), row = !isColumn ? v : v == 0 ? 0 : 2 * v - 1;
  const Zor32f* real = (const Zor32f*)((const Zor8u*)packed + row * step) + column;
  Zor32fc value = {*real, 0};
  if (!isColumn) value.im = real[1];                                                          /* beside it */
  else if (v != 0 && 2 * v != height) value.im = *(const Zor32f*)((const Zor8u*)real + step); /* below it */
  return value;
}

static int isTrueFor(int width, int height)
{
  int step, spectrumStep, wrong = 0;
  Zor32f* image = zoriMalloc_32f_C1(width, height, &step);
  Zor32f* packed = zoriMalloc_32f_C1(width, height, &spectrumStep);
  ZorDftImgRecord* record = NULL;
  if (!image || !packed || zoriDFTInitAlloc_R_32f(&record, width, height, ZorFftDivInvByN, ZorHintNone) != ZorOk)
    exit(1);
  unsigned seed = 1;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      ((Zor32f*)((Zor8u*)image + y * step))[x] = (Zor32f)((seed = seed * 1664525u + 1013904223u) >> 24);
  if (zoriDFTFwd_RToPack_32f_C1R(image, step, packed, spectrumStep, record, NULL) != ZorOk) exit(1);

  for (int v = 0; v < height; ++v)
    for (int u = 0; u < width; ++u) {
      double re = 0, im = 0;
      for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
          const double angle = 2 * acos(-1) * ((double)u * x / width + (double)v * y / height);
          const double value = ((Zor32f*)((Zor8u*)image + y * step))[x];
          re += value * cos(angle), im -= value * sin(angle);
        }
      const Zor32fc found = spectrumAt(packed, spectrumStep, width, height, u, v);
      wrong += fabs(found.re - re) > 0.01 || fabs(found.im - im) > 0.01;
    }
  for (int row = 0; row < height; ++row) /* each cell is a part of the frequency that it is said to belong to */
    for (int column = 0; column < width; ++column) {
      int u, v;
      cellFrequency(column, row, width, &u, &v);
      const Zor32f cell = ((const Zor32f*)((const Zor8u*)packed + row * spectrumStep))[column];
      const Zor32fc value = spectrumAt(packed, spectrumStep, width, height, u, v);
      wrong += cell != value.re && cell != value.im;
    }
  zoriDFTFree_R_32f(record);
  zoriFree(image), zoriFree(packed);
  return wrong == 0;
}

int main(void)
{
  static const int sides[][2] = {{8, 6}, {7, 5}, {8, 5}, {7, 6}, {4, 2}, {3, 9}, {12, 10}};
  for (size_t i = 0; i < sizeof sides / sizeof *sides; ++i)
    if (!isTrueFor(sides[i][0], sides[i][1])) {
      printf("%d x %d: the cells are not where they are said to be\n", sides[i][0], sides[i][1]);
      return 1;
    }
  printf("every frequency is where it is said to be\n");
  return 0;
}
