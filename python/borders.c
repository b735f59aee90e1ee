/* Borders: `border=` frames an image with what the caller says lies around it, and the call works on the frame. All
   pixels are moved by the library's own copies. The names are those of numpy.pad, and those of scipy.ndimage that do
   not mean something else there. */
#include "binding.h"

typedef enum { CONSTANT, EDGE, WRAP, REFLECT, SYMMETRIC } Kind;

static const struct {
  const char* name;
  Kind kind;
} kinds[] = {{"edge", EDGE},           {"nearest", EDGE}, {"reflect", REFLECT}, {"mirror", REFLECT},
             {"symmetric", SYMMETRIC}, {"wrap", WRAP},    {"grid-wrap", WRAP},  {"constant", CONSTANT}};

/* The pixel of n that stands at place i of a row that goes on without end. */
static Py_ssize_t source_of(Py_ssize_t i, Py_ssize_t n, Kind kind)
{
  if (kind == EDGE || n == 1) return i < 0 ? 0 : i < n ? i : n - 1;
  const Py_ssize_t period = kind == WRAP ? n : kind == REFLECT ? 2 * n - 2 : 2 * n;
  i = (i % period + period) % period;
  return i < n ? i : kind == REFLECT ? period - i : period - 1 - i;
}

typedef struct { /* the picture in its frame, in bytes across */
  Zor8u* first;  /* its own first pixel */
  int step;
  Py_ssize_t width, height, left, top, right, bottom, pixel;
} Framed;

static void copy_block(const Zor8u* from, int from_step, Zor8u* to, int step, Py_ssize_t bytes, Py_ssize_t rows)
{
  const ZorImgSize size = {(int)bytes, (int)rows};
  if (bytes > 0 && rows > 0) zoriCopy_8u_C1R(from, from_step, to, step, size);
}

/* Repeats the edge by the function for pixels of this size; 0: there is none. */
static int surround_by_edge(const Framed* f)
{
  const ZorImgSize inner = {(int)(f->width / f->pixel), (int)f->height};
  const ZorImgSize outer = {(int)((f->left + f->width + f->right) / f->pixel), (int)(f->top + f->height + f->bottom)};
  const int top = (int)f->top, left = (int)(f->left / f->pixel);
  void* p = f->first;
  switch (f->pixel) {
  case 1: return zoriCopyReplicateBorder_8u_C1IR(p, f->step, inner, outer, top, left) == ZorOk;
  case 2: return zoriCopyReplicateBorder_16s_C1IR(p, f->step, inner, outer, top, left) == ZorOk;
  case 3: return zoriCopyReplicateBorder_8u_C3IR(p, f->step, inner, outer, top, left) == ZorOk;
  case 4: return zoriCopyReplicateBorder_32s_C1IR(p, f->step, inner, outer, top, left) == ZorOk;
  case 6: return zoriCopyReplicateBorder_16s_C3IR(p, f->step, inner, outer, top, left) == ZorOk;
  case 8: return zoriCopyReplicateBorder_16s_C4IR(p, f->step, inner, outer, top, left) == ZorOk;
  case 12: return zoriCopyReplicateBorder_32s_C3IR(p, f->step, inner, outer, top, left) == ZorOk;
  case 16: return zoriCopyReplicateBorder_32s_C4IR(p, f->step, inner, outer, top, left) == ZorOk;
  default: return 0;
  }
}

/* A step of 0 repeats the row of constants. */
static void surround_by_constants(const Framed* f, const Zor8u* constants)
{
  const Py_ssize_t row = f->width + f->left + f->right;
  copy_block(constants, 0, f->first - f->left - f->top * f->step, f->step, row, f->top);
  copy_block(constants, 0, f->first - f->left, f->step, f->left, f->height);
  copy_block(constants, 0, f->first + f->width, f->step, f->right, f->height);
  copy_block(constants, 0, f->first - f->left + f->height * f->step, f->step, row, f->bottom);
}

/* Columns first, runs of neighbours at once, then whole rows. */
static void surround_by_own(const Framed* f, Kind kind)
{
  const Py_ssize_t columns = f->width / f->pixel, last = (f->width + f->right) / f->pixel;
  for (Py_ssize_t x = -f->left / f->pixel, run; x < last; x += run) {
    if (x == 0) x = columns;
    if (x == last) break;
    const Py_ssize_t from = source_of(x, columns, kind), end = x < 0 ? 0 : last;
    for (run = 1; x + run < end && source_of(x + run, columns, kind) == from + run; run++) continue;
    copy_block(f->first + from * f->pixel, f->step, f->first + x * f->pixel, f->step, run * f->pixel, f->height);
  }
  for (Py_ssize_t y = -f->top; y < f->height + f->bottom; y++)
    if (y < 0 || y >= f->height)
      copy_block(f->first - f->left + source_of(y, f->height, kind) * f->step, f->step,
                 f->first - f->left + y * f->step, f->step, f->width + f->left + f->right, 1);
}

/* What the caller says: a name, a number or a sequence of numbers, which are written to a pixel's worth of `value`. */
static int read_border(const Frame* x, const Parameter* p, Kind* kind, char* value)
{
  PyObject* border = x->call->border;
  const Memory* m = p->memory;
  const int size = element_bytes[m->element], numbers = (m->planes ? 1 : m->channels) * m->count;
  *kind = CONSTANT;
  if (PyUnicode_Check(border)) {
    for (size_t i = 0; i < sizeof kinds / sizeof kinds[0]; i++)
      if (PyUnicode_CompareWithASCIIString(border, kinds[i].name) == 0) {
        *kind = kinds[i].kind;
        return 0;
      }
    PyErr_Format(
      PyExc_ValueError,
      "%s: border must be 'edge', 'reflect', 'symmetric', 'wrap', 'constant' (zeros), or the constant, not %R",
      x->f->name, border);
    return -1;
  }
  const Py_ssize_t have = flatten(border, m, value, 0, numbers);
  if (have < 0)
    return PyErr_Format(PyExc_TypeError, "%s: border %R is no number of the image's type", x->f->name, border), -1;
  if (have != numbers && have != m->count)
    return PyErr_Format(PyExc_ValueError, "%s: border must hold a number, or one for each of %d channels", x->f->name,
                        numbers / m->count),
           -1;
  for (Py_ssize_t i = have; i < numbers; i++) memcpy(value + i * size, value + (i - have) * size, (size_t)size);
  return 0;
}

/* Puts a frame in the place of an image: its planes with the margin around them that the call reads. */
int frame_image(Frame* x, int i, const Reach* r)
{
  const Parameter* p = &x->f->parameters[i];
  const int n = p->memory->planes ? p->memory->planes : 1;
  char value[16 * sizeof(double)] = {0};
  Kind kind;
  if (p->memory->element == E1u) return PyErr_Format(PyExc_TypeError, "%s: no border around bits", x->f->name), -1;
  if (read_border(x, p, &kind, value)) return -1;
  for (int k = 0; k < n; k++) {
    Image* im = &x->images[i][k];
    const double sides[4] = {r->left, r->top, r->right, r->bottom};
    Py_ssize_t side[4];
    for (int s = 0; s < 4; s++) side[s] = sides[s] < 1 ? 0 : sides[s] > INT32_MAX ? INT32_MAX : (Py_ssize_t)sides[s];
    const Py_ssize_t row = ((im->width + side[0] + side[2]) * im->pixel + 63) / 64 * 64;
    const Py_ssize_t rows = im->height + side[1] + side[3];
    if (im->width < 1 || im->height < 1 || row > INT32_MAX - 63 || rows > INT32_MAX)
      return PyErr_Format(PyExc_ValueError, "%s: no room for a border around %s", x->f->name, p->name), -1;
    Zor8u* memory = new_block(x->call, (size_t)row * (size_t)rows, 64);
    Zor8u* constants = kind == CONSTANT ? new_block(x->call, (size_t)row, 64) : NULL;
    if (!memory || (kind == CONSTANT && !constants)) return -1;
    for (Py_ssize_t j = 0; constants && j < row; j++) constants[j] = (Zor8u)value[j % im->pixel];
    const Framed f = {memory + side[1] * row + side[0] * im->pixel,
                      (int)row,
                      im->width * im->pixel,
                      im->height,
                      side[0] * im->pixel,
                      side[1],
                      side[2] * im->pixel,
                      side[3],
                      im->pixel};
    Py_BEGIN_ALLOW_THREADS;
    copy_block((const Zor8u*)im->data, (int)im->step, f.first, f.step, f.width, f.height);
    if (kind == CONSTANT) surround_by_constants(&f, constants);
    else if (kind != EDGE || !surround_by_edge(&f)) surround_by_own(&f, kind);
    Py_END_ALLOW_THREADS;
    im->data = (char*)memory;
    im->width += side[0] + side[2];
    im->height = rows;
    im->step = row;
    im->left += side[0]; /* 0, or what the caller told */
    im->top += side[1];
    im->has_origin = 1;
  }
  return 0;
}
