/* The Python module `zori`: one dispatcher over the table that tools/python_binding.py writes from the catalogue.

   A call has four passes: numbers, sizes that follow from images, operands in memory, what is made for the call
   (results, work memory, records). Operands are used where they lie, through the buffer protocol: nothing is copied,
   cast or rescaled, and no call reaches beyond a buffer. The module needs nothing but the stable ABI; results that are
   arrays are made by NumPy, through its Python interface. */
#define Py_LIMITED_API 0x030B0000
#define PY_SSIZE_T_CLEAN
#include <Python.h>
#include <math.h>
#include <omp.h>
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <zori.h>

enum { MAX_PARAMETERS = 16, MAX_PLANES = 4, MAX_VIEWS = 32, MAX_NUMBERS = 4, MAX_BLOCKS = 24 };

/* ---- The table's columns ---- */

typedef union { /* an argument as C passes it; the letters are those of the signatures */
  void* p;
  int i;
  Zor8u b;
  Zor16s h;
  Zor16u H;
  Zor32u I;
  float f;
  double d;
  ZorImgSize s;
  ZorImgRect r;
  Zor16sc c;
  Zor32sc C;
  Zor32fc F;
} Slot;

typedef struct {
  double numbers[MAX_NUMBERS];
} Numbers;
typedef struct { /* what formulas look at: the arguments of the call, those of the call that made its record */
  const Numbers *values, *maker;
  int plane;
} Context;

typedef enum { NUMBER, SIZE, STEP, IMAGE, IN, OUT, MADE, RECORD, BUFFER } Role;
typedef enum { E1u, E8u, E8s, E16u, E16s, E32u, E32s, E64s, E32f, E64f, Ppointer } Element;
typedef struct {
  Element element;
  int count, channels, planes; /* numbers in an element, elements in a pixel, planes (0: interleaved) */
  int is_read, is_written, is_mask;
  int one_channel, keeps_alpha;
  int step, bits;    /* arguments */
  short extent[6];   /* formulas of width, height, left, top, right, bottom; -1: the region's, or none */
  int dimensions[2]; /* of a small array */
} Memory;
typedef struct {
  int argument, part, formula;
} Passing;
typedef struct { /* a query of a size */
  int function;
  const Passing* passing;
  int passings, output;
} Link;
typedef struct {
  const char* name;
  Role role;
  char letter;
  char optional, is_scale, is_region;
  const Memory* memory;
  const Link* size;
  int alignment;
  int image, whole; /* the image that tells a size; the size that a rectangle fills unless told otherwise */
  const double* example;
  const char* record;
} Parameter;
typedef enum { LESS, MORE, ATMOST, ATLEAST } Relation;
typedef struct {
  int argument, part;
  Relation relation;
  int bound;
} Condition;
typedef struct {
  int status;
  const char *argument, *words; /* empty when several may be meant */
  const Condition* conditions;
  int count;
} Blame;
typedef struct {
  const char* name;
  void (*call)(void);
  int trampoline;
  const Parameter* parameters;
  int count;
  int release;  /* function that releases what this one makes */
  int releases; /* it is one */
  const Blame* blame;
  int blames, document;
  const char* signature;
} Function;
typedef struct {
  const char* name;
  char required, positional;
} Named;
typedef struct {
  int function;
  const signed char* map; /* named argument -> argument */
  char skips_alpha, same; /* same: source and destination are of one type and layout */
  int out;
} Candidate;
typedef struct {
  const Named* named;
  int count;
  const Candidate* candidates;
  int candidate_count;
} Signature;
typedef struct {
  const char* name;
  const Signature* signatures;
  int count, document;
  const char* synopsis;
} Operation;
typedef struct {
  const char* name;
  int value;
} Constant;
typedef struct {
  int status;
  const char *name, *text;
} StatusText;

static double quotient(double a, double b) { return floor(a / b); }
static double modulo(double a, double b) { return a - b * floor(a / b); }
static double shifted(double a, double b) { return ldexp(a, (int)b); }
static double least(double a, double b) { return a < b ? a : b; }
static double greatest(double a, double b) { return a > b ? a : b; }

#include "zori_table.h"

enum { FUNCTIONS = sizeof functions / sizeof functions[0], OPERATIONS = sizeof operations / sizeof operations[0] };

static const int element_bytes[] = {1, 1, 1, 2, 2, 4, 4, 8, 4, 8, 8};
static const char* const element_names[] = {"uint8", "uint8", "int8",    "uint16",  "int16",  "uint32",
                                            "int32", "int64", "float32", "float64", "pointer"};

static PyObject *Error, *StatusWarning, *numpy;
static PyObject* dtypes[Ppointer + 2];
static PyTypeObject *RecordType, *EntryType;
static PyObject* named_strings[256]; /* interned names of arguments, to compare by address */
static const char* named_texts[256];
static int named_count;

/* ---- Records ---- */

typedef struct {
  PyObject_HEAD void* pointer;
  void* block; /* when it lies in memory of ours */
  const char* kind;
  int release;
  Numbers made[MAX_PARAMETERS]; /* arguments of the call that made it */
} Record;

static void release_record(Record* self)
{
  if (self->pointer && self->release >= 0) {
    Slot slot, result;
    slot.p = self->pointer;
    trampolines[functions[self->release].trampoline](functions[self->release].call, &slot, &result);
  }
  free(self->block);
  self->pointer = self->block = NULL;
}

static void record_dealloc(PyObject* object)
{
  PyTypeObject* type = Py_TYPE(object);
  release_record((Record*)object);
  PyObject_Free(object);
  Py_DECREF(type);
}

static PyObject* record_release(PyObject* self, PyObject* ignored)
{
  (void)ignored;
  release_record((Record*)self);
  Py_RETURN_NONE;
}

static PyObject* record_enter(PyObject* self, PyObject* ignored)
{
  (void)ignored;
  return Py_NewRef(self);
}

static PyObject* record_repr(PyObject* self)
{
  const Record* record = (Record*)self;
  return PyUnicode_FromFormat("<zori.Record %s%s>", record->kind, record->pointer ? "" : ", released");
}

static PyObject* record_kind(PyObject* self, void* closure)
{
  (void)closure;
  return PyUnicode_FromString(((Record*)self)->kind);
}

static PyMethodDef record_methods[] = {
  {"release", record_release, METH_NOARGS, "Releases the record now; it does so itself when nothing refers to it."},
  {"__enter__", record_enter, METH_NOARGS, NULL},
  {"__exit__", record_release, METH_VARARGS, NULL},
  {NULL, NULL, 0, NULL}};
static PyGetSetDef record_members[] = {{"kind", record_kind, NULL, "C type of the record.", NULL},
                                       {NULL, NULL, NULL, NULL, NULL}};
static PyType_Slot record_slots[] = {{Py_tp_dealloc, (void*)record_dealloc},
                                     {Py_tp_repr, (void*)record_repr},
                                     {Py_tp_methods, record_methods},
                                     {Py_tp_getset, record_members},
                                     {Py_tp_doc, "A spec or state that a function made. It releases itself."},
                                     {0, NULL}};
static PyType_Spec record_spec = {"zori.Record", sizeof(Record), 0,
                                  Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, record_slots};

static Record* new_record(const char* kind, void* pointer, void* block, int release)
{
  Record* record = PyObject_New(Record, RecordType);
  if (!record) return NULL;
  record->pointer = pointer;
  record->block = block;
  record->kind = kind;
  record->release = release;
  memset(record->made, 0, sizeof record->made);
  return record;
}

/* ---- Buffers ---- */

typedef struct {
  PyObject* object; /* borrowed */
  Py_buffer view;
  Element element;
  char is_complex, is_bool, is_foreign; /* foreign: of no element of ours */
} View;

typedef struct { /* one call */
  View views[MAX_VIEWS];
  int view_count;
  void* blocks[MAX_BLOCKS];
  int block_count;
  PyObject* results[MAX_PARAMETERS]; /* owned */
} Call;

static void read_format(View* v)
{
  const char* f = v->view.format ? v->view.format : "B";
  if (*f == '<' || *f == '=' || *f == '@' || *f == '|') f++;
  v->is_complex = *f == 'Z';
  v->is_bool = v->is_foreign = 0;
  f += v->is_complex;
  Py_ssize_t bytes = v->view.itemsize >> v->is_complex;
  switch (*f && !f[1] ? *f : 0) {
  case 'B': v->element = E8u; break;
  case '?':
    v->element = E8u;
    v->is_bool = 1;
    break;
  case 'b': v->element = E8s; break;
  case 'H': v->element = E16u; break;
  case 'h': v->element = E16s; break;
  case 'I':
  case 'L':
    v->element = E32u;
    v->is_foreign = bytes != 4;
    break;
  case 'i':
  case 'l':
  case 'q': v->element = bytes == 8 ? E64s : E32s; break;
  case 'f': v->element = E32f; break;
  case 'd': v->element = E64f; break;
  default: v->is_foreign = 1;
  }
}

/* The buffer of an object, taken once a call; writable when asked for. Null without an exception: it has none. */
static View* view_of(Call* call, PyObject* object, int writable)
{
  for (int i = 0; i < call->view_count; i++)
    if (call->views[i].object == object && (!writable || !call->views[i].view.readonly)) return &call->views[i];
  if (call->view_count == MAX_VIEWS) return NULL;
  View* v = &call->views[call->view_count];
  if (PyObject_GetBuffer(object, &v->view, PyBUF_STRIDED_RO | PyBUF_FORMAT | (writable ? PyBUF_WRITABLE : 0))) {
    return NULL;
  }
  v->object = object;
  read_format(v);
  call->view_count++;
  return v;
}

static void finish(Call* call)
{
  for (int i = 0; i < call->view_count; i++) PyBuffer_Release(&call->views[i].view);
  for (int i = 0; i < call->block_count; i++) free(call->blocks[i]);
  for (int i = 0; i < MAX_PARAMETERS; i++) Py_CLEAR(call->results[i]);
}

static void* new_block(Call* call, size_t bytes, size_t alignment)
{
  void* block = NULL;
  if (call->block_count == MAX_BLOCKS || posix_memalign(&block, alignment, bytes ? bytes : 1)) {
    PyErr_NoMemory();
    return NULL;
  }
  memset(block, 0, bytes);
  return call->blocks[call->block_count++] = block;
}

typedef struct { /* an image operand, seen through its buffer */
  char* data;
  Py_ssize_t width, height, step, left, top, pixel;
  int has_origin;
} Image;

/* Sees a buffer as one plane of an image. 0: it is one; else a sentence says why not (a format with %s for the name).
 */
static const char* see(const View* v, const Memory* m, Image* image)
{
  const Py_buffer* b = &v->view;
  const int size = element_bytes[m->element];
  if (v->is_foreign || (v->element != m->element && !(m->element == E1u && v->element == E8u)) ||
      (v->is_bool && !m->is_mask) || (v->is_complex && m->count != 2))
    return "type";
  const int numbers = v->is_complex ? 1 : m->count; /* a complex element is one item, or two in a last axis */
  Py_ssize_t inner = b->itemsize;
  int dims = b->ndim;
  if (numbers > 1 && (m->element != E8u)) {
    if (dims < 3 || b->shape[dims - 1] != numbers || b->strides[dims - 1] != inner) return "shape";
    dims--;
    inner *= numbers;
  }
  const int channels = m->planes ? 1 : m->channels * (m->element == E8u ? numbers : 1);
  const Py_ssize_t pixel = inner * channels;
  if (m->one_channel && dims == 2) {
    if (b->shape[1] > 1 && b->strides[1] != pixel) return "shape";
  } else if (channels > 1 || (dims == 3 && !m->one_channel)) {
    if (dims != 3 || b->shape[2] != channels || (channels > 1 && b->strides[2] != inner)) return "shape";
    if (b->shape[1] > 1 && b->strides[1] != pixel) return "stride";
  } else {
    if (dims != 2) return "shape";
    if (b->shape[1] > 1 && b->strides[1] != pixel) return "stride";
  }
  (void)size;
  if (b->strides[0] > INT32_MAX || b->strides[0] < INT32_MIN || b->shape[0] > INT32_MAX || b->shape[1] > INT32_MAX / 8)
    return "stride";
  image->data = b->buf;
  image->height = b->shape[0];
  image->width = m->element == E1u ? b->shape[1] * 8 : b->shape[1];
  image->step = b->strides[0];
  image->pixel = pixel;
  return NULL;
}

static int is_number(PyObject* o) { return PyLong_Check(o) || PyFloat_Check(o) || PyComplex_Check(o); }

/* Splits (array, x, y), the array with the place of the region's first pixel. */
static PyObject* split_origin(PyObject* given, Image* image)
{
  image->left = image->top = image->has_origin = 0;
  if (!PyTuple_Check(given) || PyTuple_Size(given) != 3 || !PyLong_Check(PyTuple_GetItem(given, 1))) return given;
  image->left = PyLong_AsSsize_t(PyTuple_GetItem(given, 1));
  image->top = PyLong_AsSsize_t(PyTuple_GetItem(given, 2));
  image->has_origin = 1;
  return PyTuple_GetItem(given, 0);
}

/* Sees an image argument, all its planes. 1: it is one. 0: it is not, `why` says what is amiss. -1: exception. */
static int see_image(Call* call, PyObject* given, const Memory* m, Image* planes, const char** why)
{
  const int n = m->planes ? m->planes : 1;
  Image origin = {0};
  *why = "type";
  given = split_origin(given, &origin);
  if (PyErr_Occurred()) return -1;
  if (m->planes) {
    *why = "planes";
    if (!(PyList_Check(given) || PyTuple_Check(given)) || PySequence_Size(given) != n) return 0;
  } else if (PyList_Check(given) || PyTuple_Check(given) || is_number(given)) {
    return 0;
  }
  for (int k = 0; k < n; k++) {
    PyObject* object = given;
    if (m->planes) object = PyList_Check(given) ? PyList_GetItem(given, k) : PyTuple_GetItem(given, k);
    View* v = view_of(call, object, 0);
    if (!v) {
      PyErr_Clear();
      *why = "buffer";
      return 0;
    }
    planes[k] = origin;
    if ((*why = see(v, m, &planes[k]))) return 0;
    if (k && (planes[k].width != planes[0].width || planes[k].height != planes[0].height ||
              planes[k].step != planes[0].step)) {
      *why = "alike";
      return 0;
    }
    if (m->is_written && v->view.readonly) {
      *why = "readonly";
      return 0;
    }
  }
  return 1;
}

static int refuse_image(const Function* f, const Parameter* p, const char* why)
{
  const Memory* m = p->memory;
  const int numbers = m->channels * m->count;
  char shape[48];
  if (m->planes) snprintf(shape, sizeof shape, "a list of %d arrays (h, w)", m->planes);
  else if (m->one_channel) snprintf(shape, sizeof shape, "one channel a[:, :, k] of an array (h, w, %d)", m->channels);
  else if (numbers > 1) snprintf(shape, sizeof shape, "shape (h, w, %d)", numbers);
  else snprintf(shape, sizeof shape, "shape (h, w)");
  if (!strcmp(why, "readonly")) {
    PyErr_Format(PyExc_ValueError, "%s: %s is read-only", f->name, p->name);
  } else if (!strcmp(why, "stride")) {
    PyErr_Format(PyExc_ValueError, "%s: the pixels of a row of %s do not adjoin; nothing is copied silently", f->name,
                 p->name);
  } else if (!strcmp(why, "alike")) {
    PyErr_Format(PyExc_ValueError, "%s: the planes of %s differ in size or step", f->name, p->name);
  } else {
    PyErr_Format(PyExc_TypeError, "%s: %s must be %s%s, %s; nothing is cast silently", f->name, p->name,
                 m->count == 2 && m->element != E8u ? "complex " : "", element_names[m->element], shape);
  }
  return -1;
}

/* ---- Numbers ---- */

static int whole_number(PyObject* o, double low, double high, double* out)
{
  PyObject* index = PyNumber_Index(o);
  if (!index) return -1;
  int overflow = 0;
  long long n = PyLong_AsLongLongAndOverflow(index, &overflow);
  Py_DECREF(index);
  if (n == -1 && PyErr_Occurred()) return -1;
  if (overflow || n < low || n > high) {
    PyErr_Format(PyExc_OverflowError, "%R is not of the argument's type", o);
    return -1;
  }
  *out = (double)n;
  return 0;
}

static const double lows[] = {0, 0, -128, 0, -32768, 0, -2147483648.0, -9223372036854775808.0};
static const double highs[] = {255, 255, 127, 65535, 32767, 4294967295.0, 2147483647, 9223372036854774784.0};

static int number_of(PyObject* o, Element e, double* out)
{
  if (e == E32f || e == E64f) {
    *out = PyFloat_AsDouble(o);
    return *out == -1 && PyErr_Occurred() ? -1 : 0;
  }
  return whole_number(o, lows[e], highs[e], out);
}

static void store(void* to, Element e, double n)
{
  switch (e) {
  case E1u:
  case E8u: *(uint8_t*)to = (uint8_t)n; break;
  case E8s: *(int8_t*)to = (int8_t)n; break;
  case E16u: *(uint16_t*)to = (uint16_t)n; break;
  case E16s: *(int16_t*)to = (int16_t)n; break;
  case E32u: *(uint32_t*)to = (uint32_t)n; break;
  case E32s: *(int32_t*)to = (int32_t)n; break;
  case E64s: *(int64_t*)to = (int64_t)n; break;
  case E32f: *(float*)to = (float)n; break;
  default: *(double*)to = n;
  }
}

static double load(const void* from, Element e)
{
  switch (e) {
  case E1u:
  case E8u: return *(const uint8_t*)from;
  case E8s: return *(const int8_t*)from;
  case E16u: return *(const uint16_t*)from;
  case E16s: return *(const int16_t*)from;
  case E32u: return *(const uint32_t*)from;
  case E32s: return *(const int32_t*)from;
  case E64s: return (double)*(const int64_t*)from;
  case E32f: return *(const float*)from;
  default: return *(const double*)from;
  }
}

static PyObject* number_object(const void* from, Element e)
{
  if (e == E64s) return PyLong_FromLongLong(*(const int64_t*)from);
  return e == E32f || e == E64f ? PyFloat_FromDouble(load(from, e)) : PyLong_FromLongLong((long long)load(from, e));
}

/* n whole numbers of a tuple or list */
static int whole_numbers(PyObject* o, int n, double* out)
{
  if (!(PyTuple_Check(o) || PyList_Check(o)) || PySequence_Size(o) != n) {
    PyErr_Format(PyExc_TypeError, "%R is no tuple of %d whole numbers", o, n);
    return -1;
  }
  for (int i = 0; i < n; i++) {
    PyObject* item = PyTuple_Check(o) ? PyTuple_GetItem(o, i) : PyList_GetItem(o, i);
    if (whole_number(item, lows[E32s], highs[E32s], &out[i])) return -1;
  }
  return 0;
}

static int complex_of(PyObject* o, Element e, double* out)
{
  if (PyTuple_Check(o) && PyTuple_Size(o) == 2)
    return number_of(PyTuple_GetItem(o, 0), e, &out[0]) || number_of(PyTuple_GetItem(o, 1), e, &out[1]) ? -1 : 0;
  out[0] = PyComplex_RealAsDouble(o);
  out[1] = PyComplex_ImagAsDouble(o);
  if (PyErr_Occurred()) return -1;
  for (int i = 0; i < 2 && e < E32f; i++)
    if (out[i] != floor(out[i]) || out[i] < lows[e] || out[i] > highs[e]) {
      PyErr_Format(PyExc_OverflowError, "%R is not of the argument's type", o);
      return -1;
    }
  return 0;
}

static int scalar(PyObject* o, char letter, double* n)
{
  switch (letter) {
  case 'b': return number_of(o, E8u, n);
  case 'h': return number_of(o, E16s, n);
  case 'H': return number_of(o, E16u, n);
  case 'I': return number_of(o, E32u, n);
  case 'f': return number_of(o, E32f, n);
  case 'd': return number_of(o, E64f, n);
  case 's': return whole_numbers(o, 2, n);
  case 'r': return whole_numbers(o, 4, n);
  case 'c': return complex_of(o, E16s, n);
  case 'C': return complex_of(o, E32s, n);
  case 'F': return complex_of(o, E32f, n);
  default: return number_of(o, E32s, n);
  }
}

static void fill(Slot* slot, char letter, const double* n)
{
  switch (letter) {
  case 'b': slot->b = (Zor8u)n[0]; break;
  case 'h': slot->h = (Zor16s)n[0]; break;
  case 'H': slot->H = (Zor16u)n[0]; break;
  case 'I': slot->I = (Zor32u)n[0]; break;
  case 'f': slot->f = (float)n[0]; break;
  case 'd': slot->d = n[0]; break;
  case 's': slot->s = (ZorImgSize){(int)n[0], (int)n[1]}; break;
  case 'r': slot->r = (ZorImgRect){(int)n[0], (int)n[1], (int)n[2], (int)n[3]}; break;
  case 'c': slot->c = (Zor16sc){(Zor16s)n[0], (Zor16s)n[1]}; break;
  case 'C': slot->C = (Zor32sc){(Zor32s)n[0], (Zor32s)n[1]}; break;
  case 'F': slot->F = (Zor32fc){(float)n[0], (float)n[1]}; break;
  default: slot->i = (int)n[0];
  }
}

/* The items of a sequence, nested ones too, into an array of `room` numbers; -1 with an exception when they are others.
 */
static Py_ssize_t flatten(PyObject* o, const Memory* m, char* to, Py_ssize_t at, Py_ssize_t room)
{
  const int size = element_bytes[m->element];
  double n[2];
  if (m->count == 2 && m->element != E8u &&
      (PyComplex_Check(o) || is_number(o) || (PyTuple_Check(o) && PyTuple_Size(o) == 2))) {
    if (at + 2 > room) return room + 1;
    if (complex_of(o, m->element, n)) return -1;
    for (int i = 0; i < 2; i++) store(to + (at + i) * size, m->element, n[i]);
    return at + 2;
  }
  if (PySequence_Check(o) && !PyUnicode_Check(o)) {
    const Py_ssize_t items = PySequence_Size(o);
    for (Py_ssize_t i = 0; i < items && at >= 0 && at <= room; i++) {
      PyObject* item = PySequence_GetItem(o, i);
      if (!item) return -1;
      at = flatten(item, m, to, at, room);
      Py_DECREF(item);
    }
    return items < 0 ? -1 : at;
  }
  if (at >= room) return room + 1;
  if (number_of(o, m->element, n)) return -1;
  store(to + at * size, m->element, n[0]);
  return at + 1;
}

/* ---- The call ---- */

static int missing(const Function* f, const Parameter* p)
{
  PyErr_Format(PyExc_TypeError, "%s: argument %s is missing", f->name, p->name);
  return -1;
}

/* Names the argument in front of a conversion's message. */
static int in_argument(const Function* f, const Parameter* p)
{
  PyObject *type, *value, *trace;
  PyErr_Fetch(&type, &value, &trace);
  PyErr_Format(type ? type : PyExc_TypeError, "%s: %s: %S", f->name, p->name, value ? value : Py_None);
  Py_XDECREF(type);
  Py_XDECREF(value);
  Py_XDECREF(trace);
  return -1;
}

typedef struct {
  double width, height, left, top, right, bottom;
} Reach;

static Reach reach_of(const Memory* m, Context c, const Numbers* region)
{
  double n[6];
  for (int i = 0; i < 6; i++)
    n[i] = m->extent[i] >= 0 ? formulas[m->extent[i]](c) : i < 2 && region ? region->numbers[i] : 0;
  return (Reach){n[0], n[1], n[2], n[3], n[4], n[5]};
}

static PyObject* new_array(Element e, int is_complex, int n, const Py_ssize_t* shape, int zeroed)
{
  if (!numpy && !(numpy = PyImport_ImportModule("numpy"))) return NULL;
  const int at = is_complex ? (e == E32f ? Ppointer : Ppointer + 1) : e;
  if (!dtypes[at]) {
    const char* name = !is_complex ? element_names[e] : e == E32f ? "complex64" : "complex128";
    if (!(dtypes[at] = PyObject_GetAttrString(numpy, name))) return NULL;
  }
  PyObject* sides = PyTuple_New(n);
  for (int i = 0; sides && i < n; i++) PyTuple_SetItem(sides, i, PyLong_FromSsize_t(shape[i]));
  if (!sides) return NULL;
  PyObject* array = PyObject_CallMethod(numpy, zeroed ? "zeros" : "empty", "OO", sides, dtypes[at]);
  Py_DECREF(sides);
  return array;
}

/* A destination for the call: an array, or a list of planes. */
static PyObject* new_image(const Memory* m, Py_ssize_t width, Py_ssize_t height)
{
  const int is_complex = m->count == 2 && (m->element == E32f || m->element == E64f);
  const int numbers = m->planes ? 1 : m->channels;
  Py_ssize_t shape[4] = {height, m->element == E1u ? (width + 7) / 8 : width};
  int n = 2;
  if (m->element == E8u && m->count > 1) shape[n++] = numbers * m->count;
  else if (numbers > 1) shape[n++] = numbers;
  if (m->element != E8u && m->count == 2 && !is_complex) shape[n++] = 2;
  const int zeroed = m->keeps_alpha || m->element == E1u;
  if (!m->planes) return new_array(m->element, is_complex, n, shape, zeroed);
  PyObject* list = PyList_New(m->planes);
  for (int k = 0; list && k < m->planes; k++) {
    PyObject* plane = new_array(m->element, is_complex, n, shape, zeroed);
    if (!plane) Py_CLEAR(list);
    else PyList_SetItem(list, k, plane);
  }
  return list;
}

typedef struct {
  const Function* f;
  Call* call;
  PyObject** given; /* by argument, borrowed; null or None: not given */
  Slot slots[MAX_PARAMETERS];
  Numbers values[MAX_PARAMETERS];
  Image images[MAX_PARAMETERS][MAX_PLANES];
  const Numbers *region, *maker;
  void* pointers[MAX_PARAMETERS][MAX_PLANES];
} Frame;

static int is_given(const Frame* x, int i) { return x->given[i] && x->given[i] != Py_None; }
static Context context_of(const Frame* x, int plane) { return (Context){x->values, x->maker, plane}; }

static int read_numbers(Frame* x)
{
  const Function* f = x->f;
  for (int i = 0; i < f->count; i++) {
    const Parameter* p = &f->parameters[i];
    double* n = x->values[i].numbers;
    if (p->role == NUMBER || p->role == SIZE) {
      if (p->is_region) x->region = &x->values[i];
      if (is_given(x, i)) {
        if (p->letter == 'p') return PyErr_Format(PyExc_NotImplementedError, "%s: %s", f->name, p->name), -1;
        if (scalar(x->given[i], p->letter, n)) return in_argument(f, p);
      } else if (!p->is_scale && p->image < 0 && p->whole < 0 && !p->optional) {
        return missing(f, p);
      }
      fill(&x->slots[i], p->letter, n);
    } else if (p->role == RECORD && !p->size) {
      if (!is_given(x, i)) return missing(f, p);
      Record* record = (Record*)x->given[i];
      if (Py_TYPE(x->given[i]) != RecordType || strcmp(record->kind, p->record))
        return PyErr_Format(PyExc_TypeError, "%s: %s must be a record %s", f->name, p->name, p->record), -1;
      if (!record->pointer) return PyErr_Format(PyExc_ValueError, "%s: %s has been released", f->name, p->name), -1;
      x->slots[i].p = record->pointer;
      x->maker = record->made;
    } else if (p->role == IN && is_given(x, i) && p->memory->element != Ppointer && !p->memory->planes &&
               (PyTuple_Check(x->given[i]) || PyList_Check(x->given[i]))) {
      /* small arrays may take part in formulas */
      const Py_ssize_t items = PySequence_Size(x->given[i]);
      for (Py_ssize_t k = 0; k < items && k < MAX_NUMBERS; k++) {
        PyObject* item = PySequence_GetItem(x->given[i], k);
        if (item && PyLong_Check(item)) n[k] = PyLong_AsDouble(item);
        Py_XDECREF(item);
        PyErr_Clear();
      }
    } else if (p->role == IN && is_given(x, i) && p->memory->element != Ppointer && !p->memory->planes) {
      View* v = view_of(x->call, x->given[i], 0);
      if (!v) PyErr_Clear();
      for (Py_ssize_t k = 0; v && !v->is_foreign && v->view.ndim == 1 && k < v->view.shape[0] && k < MAX_NUMBERS; k++)
        n[k] = load((char*)v->view.buf + k * v->view.strides[0], v->element);
    }
  }
  return 0;
}

static int read_images(Frame* x)
{
  for (int i = 0; i < x->f->count; i++) {
    const Parameter* p = &x->f->parameters[i];
    const char* why = "";
    if (p->role != IMAGE || !is_given(x, i)) continue;
    const int seen = see_image(x->call, x->given[i], p->memory, x->images[i], &why);
    if (seen < 0) return -1;
    if (!seen) return refuse_image(x->f, p, why);
  }
  return 0;
}

/* Sizes that were not told, from the images that have them. */
static int deduce_sizes(Frame* x)
{
  const Function* f = x->f;
  for (int i = 0; i < f->count; i++) {
    const Parameter* p = &f->parameters[i];
    if (p->role != SIZE || p->image < 0 || is_given(x, i)) continue;
    int from = -1;
    for (int k = 0; k < f->count && from < 0; k++) { /* any image of that size will do */
      const Parameter* q = &f->parameters[k];
      const int alike = q->role == IMAGE && q->memory->extent[0] == f->parameters[p->image].memory->extent[0] &&
                        q->memory->extent[1] == f->parameters[p->image].memory->extent[1];
      if (alike && is_given(x, k) && (q->memory->element != E1u || k == p->image)) from = k;
    }
    if (from < 0) return missing(f, p);
    const Reach r = reach_of(f->parameters[from].memory, context_of(x, 0), NULL);
    const Image* image = &x->images[from][0];
    double* n = x->values[i].numbers;
    n[0] = (double)image->width - (image->has_origin ? (double)image->left : r.left) - r.right;
    n[1] = (double)image->height - (image->has_origin ? (double)image->top : r.top) - r.bottom;
    fill(&x->slots[i], 's', n);
    for (int k = 0; k < f->count && !image->has_origin; k++) { /* all agree, unless the caller says what is meant */
      const Parameter* q = &f->parameters[k];
      if (q->role != IMAGE || !is_given(x, k) || q->memory->extent[0] != f->parameters[from].memory->extent[0] ||
          q->memory->extent[1] != f->parameters[from].memory->extent[1] || x->images[k][0].has_origin ||
          q->memory->element == E1u)
        continue;
      const Reach s = reach_of(q->memory, context_of(x, 0), NULL);
      if ((double)x->images[k][0].width - s.left - s.right != n[0] ||
          (double)x->images[k][0].height - s.top - s.bottom != n[1]) {
        PyErr_Format(PyExc_ValueError, "%s: %s and %s differ in size; tell %s", f->name, f->parameters[from].name,
                     q->name, p->name);
        return -1;
      }
    }
  }
  for (int i = 0; i < f->count; i++) {
    const Parameter* p = &f->parameters[i];
    if (p->whole < 0 || is_given(x, i)) continue;
    x->values[i].numbers[2] = x->values[p->whole].numbers[0];
    x->values[i].numbers[3] = x->values[p->whole].numbers[1];
    fill(&x->slots[i], 'r', x->values[i].numbers);
  }
  return 0;
}

static int place_image(Frame* x, int i, int make)
{
  const Function* f = x->f;
  const Parameter* p = &f->parameters[i];
  const Memory* m = p->memory;
  const int n = m->planes ? m->planes : 1;
  Image* planes = x->images[i];
  const Reach r = reach_of(m, context_of(x, 0), x->region);
  if (!is_given(x, i)) {
    if (p->optional) return 0;
    if (!make) return missing(f, p);
    if (r.width < 1 || r.height < 1 || r.width > 1e9 || r.height > 1e9) {
      PyErr_Format(PyExc_ValueError, "%s: no size for %s", f->name, p->name);
      return -1;
    }
    PyObject* image = new_image(m, (Py_ssize_t)(r.width + r.left + r.right), (Py_ssize_t)(r.height + r.top + r.bottom));
    if (!image) return -1;
    x->call->results[i] = image;
    const char* why;
    if (see_image(x->call, image, m, planes, &why) != 1) return refuse_image(f, p, why);
  }
  const double bits = m->bits >= 0 ? x->values[m->bits].numbers[0] : 0;
  for (int k = 0; k < n; k++) {
    Image* im = &planes[k];
    const double left = im->has_origin ? (double)im->left : r.left, top = im->has_origin ? (double)im->top : r.top;
    if (r.width > 0 && r.height > 0 &&
        (left < r.left || top < r.top || bits < 0 || left + r.width + r.right + bits > (double)im->width ||
         top + r.height + r.bottom > (double)im->height)) {
      PyErr_Format(PyExc_ValueError, "%s: %s is too small: %zd x %zd pixels, needed are %zd x %zd%s", f->name, p->name,
                   im->width, im->height, (Py_ssize_t)(r.width + left + r.right + bits),
                   (Py_ssize_t)(r.height + top + r.bottom),
                   left < r.left || top < r.top ? ", and the margin in front of the region" : "");
      return -1;
    }
    x->pointers[i][k] =
      im->data + (Py_ssize_t)top * im->step + (m->element == E1u ? (Py_ssize_t)left / 8 : (Py_ssize_t)left * im->pixel);
  }
  x->slots[i].p = m->planes ? (void*)x->pointers[i] : x->pointers[i][0];
  if (m->step >= 0) {
    const int taken = x->slots[m->step].i;
    if (taken && taken != (int)planes[0].step && x->values[m->step].numbers[1]) {
      PyErr_Format(PyExc_ValueError, "%s: %s must have the step of the other images", f->name, p->name);
      return -1;
    }
    x->slots[m->step].i = (int)planes[0].step;
    x->values[m->step].numbers[0] = (double)planes[0].step;
    x->values[m->step].numbers[1] = 1;
  } else if (planes[0].height > 1 && planes[0].step != planes[0].width * planes[0].pixel) {
    PyErr_Format(PyExc_ValueError, "%s: the rows of %s must adjoin", f->name, p->name);
    return -1;
  }
  return 0;
}

/* An array of numbers that is read: a buffer of its type whose items adjoin, or a sequence. */
static int place_input(Frame* x, int i, int plane, PyObject* object, Py_ssize_t total)
{
  const Function* f = x->f;
  const Parameter* p = &f->parameters[i];
  const Memory* m = p->memory;
  const int size = element_bytes[m->element];
  if (PyTuple_Check(object) || PyList_Check(object) || is_number(object)) {
    char* block = new_block(x->call, (size_t)total * size, 16);
    if (!block) return -1;
    const Py_ssize_t have = flatten(object, m, block, 0, total);
    if (have < 0) return in_argument(f, p);
    if (have != total)
      return PyErr_Format(PyExc_ValueError, "%s: %s must hold %zd numbers", f->name, p->name, total), -1;
    x->pointers[i][plane] = block;
    return 0;
  }
  View* v = view_of(x->call, object, m->is_written);
  if (!v) return in_argument(f, p);
  if (v->is_foreign || v->element != m->element || (v->is_complex && m->count != 2))
    return PyErr_Format(PyExc_TypeError, "%s: %s must hold %s; nothing is cast silently", f->name, p->name,
                        element_names[m->element]),
           -1;
  if (!PyBuffer_IsContiguous(&v->view, 'C'))
    return PyErr_Format(PyExc_ValueError, "%s: the numbers of %s must adjoin", f->name, p->name), -1;
  if (v->view.len < total * size)
    return PyErr_Format(PyExc_ValueError, "%s: %s must hold %zd numbers", f->name, p->name, total), -1;
  x->pointers[i][plane] = v->view.buf;
  return 0;
}

static Py_ssize_t numbers_in(const Frame* x, const Memory* m, int plane)
{
  const Reach r = reach_of(m, context_of(x, plane), x->region);
  const double total = (r.width + r.left + r.right) * (r.height < 1 ? 1 : r.height + r.top + r.bottom) * m->count;
  return total < 0 || total > 1e10 ? 0 : (Py_ssize_t)total;
}

static int place_array(Frame* x, int i)
{
  const Parameter* p = &x->f->parameters[i];
  const Memory* m = p->memory;
  if (m->element == Ppointer)
    return PyErr_Format(PyExc_NotImplementedError, "%s: arrays of row pointers are not for Python", x->f->name), -1;
  if (!is_given(x, i) && p->optional) return 0;
  if (!is_given(x, i) && p->role == IN) return missing(x->f, p);
  const int n = m->planes ? m->planes : 1;
  if (m->planes && is_given(x, i) && (!PySequence_Check(x->given[i]) || PySequence_Size(x->given[i]) != n))
    return PyErr_Format(PyExc_TypeError, "%s: %s must be a sequence of %d arrays", x->f->name, p->name, n), -1;
  PyObject* made = NULL;
  if (!is_given(x, i) && m->planes && !(made = x->call->results[i] = PyList_New(n))) return -1;
  for (int k = 0; k < n; k++) {
    const Py_ssize_t total = numbers_in(x, m, k);
    PyObject* object = x->given[i];
    if (is_given(x, i) && p->role == OUT && m->is_read && is_number(object)) { /* a seed */
      double number;
      if (number_of(object, m->element, &number)) return in_argument(x->f, p);
      if (!(x->pointers[i][k] = new_block(x->call, (size_t)total * element_bytes[m->element], 16))) return -1;
      for (Py_ssize_t j = 0; j < total; j++)
        store((char*)x->pointers[i][k] + j * element_bytes[m->element], m->element, number);
      continue;
    }
    if (is_given(x, i)) {
      PyObject* own = m->planes ? PySequence_GetItem(object, k) : Py_NewRef(object);
      if (!own) return -1;
      const int bad = place_input(x, i, k, own, total);
      Py_DECREF(own); /* its sequence keeps it */
      if (bad) return -1;
      continue;
    }
    if (m->is_read) return missing(x->f, p);
    if (total == 1 && !m->planes) { /* a number to return */
      if (!(x->pointers[i][k] = new_block(x->call, 16, 16))) return -1;
      continue;
    }
    const int is_complex = m->count == 2 && (m->element == E32f || m->element == E64f);
    Py_ssize_t shape[2] = {m->dimensions[0], m->dimensions[1]};
    const int dims = m->dimensions[1] ? 2 : 1;
    if (dims == 1) shape[0] = is_complex ? total / 2 : total;
    PyObject* array = new_array(m->element, is_complex, dims, shape, 1);
    if (!array) return -1;
    View* v = view_of(x->call, array, 1);
    if (v) x->pointers[i][k] = v->view.buf;
    if (made) PyList_SetItem(made, k, array);
    else x->call->results[i] = array;
    if (!v) return -1;
  }
  x->slots[i].p = m->planes ? (void*)x->pointers[i] : x->pointers[i][0];
  return 0;
}

/* Asks the function that tells the size of a block; below 0: exception, or the query's error in `status`. */
static long long ask_size(Frame* x, const Link* link, int* status)
{
  const Function* q = &functions[link->function];
  Slot slots[MAX_PARAMETERS], result;
  Numbers values[MAX_PARAMETERS];
  double outputs[MAX_PARAMETERS];
  memset(values, 0, sizeof values);
  memset(slots, 0, sizeof slots);
  memset(outputs, 0, sizeof outputs);
  for (int i = 0; i < q->count; i++) {
    const Parameter* p = &q->parameters[i];
    if (p->example) memcpy(values[i].numbers, p->example, sizeof values[i].numbers);
    if (p->role == OUT) slots[i].p = &outputs[i];
    if (p->role == RECORD)
      for (int k = 0; k < x->f->count; k++)
        if (x->f->parameters[k].role == RECORD) slots[i].p = x->slots[k].p;
  }
  for (int i = 0; i < link->passings; i++)
    values[link->passing[i].argument].numbers[link->passing[i].part] =
      formulas[link->passing[i].formula](context_of(x, 0));
  for (int i = 0; i < q->count; i++)
    if (q->parameters[i].role == NUMBER || q->parameters[i].role == SIZE)
      fill(&slots[i], q->parameters[i].letter, values[i].numbers);
  trampolines[q->trampoline](q->call, slots, &result);
  *status = result.i;
  int bytes;
  memcpy(&bytes, &outputs[link->output], sizeof bytes);
  return bytes;
}

static const char* status_name(int status, const char** sentence)
{
  for (size_t i = 0; i < sizeof statuses / sizeof statuses[0]; i++)
    if (statuses[i].status == status) {
      *sentence = statuses[i].text;
      return statuses[i].name;
    }
  *sentence = "not a status of this library";
  return "unknown status";
}

static int holds(const Frame* x, const Condition* c)
{
  const double n = x->values[c->argument].numbers[c->part], bound = formulas[c->bound](context_of(x, 0));
  switch (c->relation) {
  case LESS: return n < bound;
  case MORE: return n > bound;
  case ATMOST: return n <= bound;
  default: return n >= bound;
  }
}

static void raise_error(const Frame* x, int status)
{
  const Function* f = x->f;
  const char *sentence, *name = status_name(status, &sentence), *argument = NULL, *words = NULL;
  for (int i = 0; i < f->blames; i++) {
    const Blame* b = &f->blame[i];
    if (b->status != status) continue;
    words = b->words;
    if (*b->argument) argument = b->argument;
    for (int k = 0; k < b->count && !argument; k++)
      if (holds(x, &b->conditions[k])) argument = f->parameters[b->conditions[k].argument].name;
  }
  if (!argument && status == ZorErrSize)
    for (int i = 0; i < f->count && !argument; i++)
      if (f->parameters[i].role == SIZE && (x->values[i].numbers[0] < 1 || x->values[i].numbers[1] < 1))
        argument = f->parameters[i].name;
  if (!argument && status == ZorErrStep)
    for (int i = 0; i < f->count && !argument; i++)
      if (f->parameters[i].role == STEP && x->slots[i].i < 1) argument = f->parameters[i].name;
  PyObject* message = words ? PyUnicode_FromFormat("%s: %s: %s (%s)", f->name, name, sentence, words)
                            : PyUnicode_FromFormat("%s: %s: %s", f->name, name, sentence);
  PyObject* error = message ? PyObject_CallFunctionObjArgs(Error, message, NULL) : NULL;
  Py_XDECREF(message);
  if (!error) return;
  PyObject* items[4] = {PyLong_FromLong(status), PyUnicode_FromString(name),
                        argument ? PyUnicode_FromString(argument) : Py_NewRef(Py_None), PyUnicode_FromString(f->name)};
  static const char* const keys[4] = {"status", "name", "argument", "function"};
  for (int i = 0; i < 4; i++) {
    if (items[i]) PyObject_SetAttrString(error, keys[i], items[i]);
    Py_XDECREF(items[i]);
  }
  PyErr_SetObject(Error, error);
  Py_DECREF(error);
}

static int place_operands(Frame* x, int make)
{
  const Function* f = x->f;
  for (int i = 0; i < f->count; i++)
    if (f->parameters[i].role == IMAGE && place_image(x, i, make)) return -1;
  for (int i = 0; i < f->count; i++) {
    const Parameter* p = &f->parameters[i];
    if ((p->role == IN || p->role == OUT) && place_array(x, i)) return -1;
    if (p->role == MADE) {
      x->pointers[i][0] = NULL;
      x->slots[i].p = &x->pointers[i][0];
    }
  }
  for (int i = 0; i < f->count; i++) { /* queries look at everything else */
    const Parameter* p = &f->parameters[i];
    if (!p->size) continue;
    int status = 0;
    long long bytes = ask_size(x, p->size, &status);
    /* where the query refuses, so does the call: it gets a small block and says why */
    if (status < 0 || bytes < 0) bytes = 64;
    if (!(x->slots[i].p = new_block(x->call, (size_t)bytes, 64))) return -1;
    if (p->role == RECORD) x->pointers[i][0] = x->slots[i].p;
  }
  return 0;
}

static PyObject* made_record(Frame* x, int i)
{
  const Parameter* p = &x->f->parameters[i];
  void* block = NULL;
  if (p->role == RECORD) { /* the block is the record's from now on */
    for (int k = 0; k < x->call->block_count; k++)
      if (x->call->blocks[k] == x->pointers[i][0]) block = x->call->blocks[k];
  }
  Record* record = new_record(p->record, x->pointers[i][0], NULL, p->role == MADE ? x->f->release : -1);
  if (!record) return NULL;
  memcpy(record->made, x->values, sizeof record->made);
  for (int k = 0; k < x->call->block_count && block; k++)
    if (x->call->blocks[k] == block) x->call->blocks[k] = NULL;
  record->block = block;
  return (PyObject*)record;
}

static PyObject* collect(Frame* x)
{
  const Function* f = x->f;
  PyObject* found[MAX_PARAMETERS];
  int n = 0;
  for (int i = 0; i < f->count; i++) {
    const Parameter* p = &f->parameters[i];
    PyObject* o = x->call->results[i];
    x->call->results[i] = NULL;
    if (p->role == MADE || (p->role == RECORD && p->size)) {
      o = made_record(x, i);
    } else if (p->role == OUT && !o && (!is_given(x, i) || (p->memory->is_read && is_number(x->given[i])))) {
      const Py_ssize_t total = numbers_in(x, p->memory, 0);
      const int size = element_bytes[p->memory->element];
      if (total == 1) {
        o = number_object(x->pointers[i][0], p->memory->element);
      } else if ((o = PyTuple_New(total))) {
        for (Py_ssize_t k = 0; k < total; k++)
          PyTuple_SetItem(o, k, number_object((char*)x->pointers[i][0] + k * size, p->memory->element));
      }
    } else if (!o) {
      continue;
    }
    if (!o) {
      while (n) Py_DECREF(found[--n]);
      return NULL;
    }
    found[n++] = o;
  }
  if (n == 0) return Py_NewRef(Py_None);
  if (n == 1) return found[0];
  PyObject* tuple = PyTuple_New(n);
  for (int i = 0; i < n; i++) {
    if (tuple) PyTuple_SetItem(tuple, i, found[i]);
    else Py_DECREF(found[i]);
  }
  return tuple;
}

static PyObject* version_record(const ZorVersionRecord* v)
{
  return Py_BuildValue("{s:i,s:i,s:i,s:i,s:s#,s:s,s:s,s:s}", "major", v->major, "minor", v->minor, "majorBuild",
                       v->majorBuild, "build", v->build, "targetCpu", v->targetCpu,
                       (Py_ssize_t)strnlen(v->targetCpu, 4), "name", v->name, "version", v->version, "buildDate",
                       v->buildDate);
}

/* The call with its arguments in their places. `make`: destinations that were not given are made. */
static PyObject* invoke(const Function* f, Call* call, PyObject** given, int make)
{
  Frame x;
  x.f = f;
  x.call = call;
  x.given = given;
  x.region = x.maker = NULL;
  memset(x.slots, 0, sizeof(Slot) * (size_t)(f->count ? f->count : 1));
  memset(x.values, 0, sizeof(Numbers) * (size_t)(f->count ? f->count : 1));
  memset(x.pointers, 0, sizeof x.pointers[0] * (size_t)(f->count ? f->count : 1));
  if (!f->call) return PyErr_Format(PyExc_NotImplementedError, "%s is not for Python", f->name);
  if (returned[f->trampoline] == 'p' && f->count == 0) return version_record(zoriGetLibVersion());
  if (returned[f->trampoline] == 'p' ||
      (f->count == 1 && f->parameters[0].role == NUMBER && returned[f->trampoline] == 'v'))
    return PyErr_Format(PyExc_NotImplementedError, "%s: in Python, arrays hold the images", f->name);
  if (read_numbers(&x) || read_images(&x) || deduce_sizes(&x) || place_operands(&x, make)) return NULL;
  Slot result = {0};
  Py_BEGIN_ALLOW_THREADS trampolines[f->trampoline](f->call, x.slots, &result);
  Py_END_ALLOW_THREADS if (f->releases && f->count == 1 && f->parameters[0].role == RECORD && result.i == 0)
  {
    Record* record = (Record*)given[0];
    record->pointer = NULL;
  }
  if (result.i < 0) {
    raise_error(&x, result.i);
    return NULL;
  }
  if (result.i > 0) {
    const char *sentence, *name = status_name(result.i, &sentence);
    if (PyErr_WarnFormat(StatusWarning, 1, "%s: %s: %s", f->name, name, sentence)) return NULL;
  }
  return collect(&x);
}

/* ---- Calls by C name and by operation ---- */

typedef struct {
  PyObject_HEAD int index; /* functions first, then operations */
} Entry;

static int same_name(PyObject* key, const char* name)
{
  for (int i = 0; i < named_count; i++)
    if (named_strings[i] == key) return !strcmp(named_texts[i], name);
  return PyUnicode_CompareWithASCIIString(key, name) == 0;
}

static int is_hidden(const Parameter* p)
{
  return p->role == STEP || p->role == BUFFER || p->role == MADE || (p->role == RECORD && p->size);
}

static PyObject* call_function(PyObject* self, PyObject* const* args, Py_ssize_t n, PyObject* names)
{
  const Function* f = &functions[((Entry*)self)->index];
  PyObject* given[MAX_PARAMETERS] = {NULL};
  int at = 0;
  for (int i = 0; i < f->count; i++)
    if (!is_hidden(&f->parameters[i]) && at < n) given[i] = args[at++];
  if (at < n) return PyErr_Format(PyExc_TypeError, "too many arguments: %s", f->signature);
  const Py_ssize_t keys = names ? PyTuple_Size(names) : 0;
  for (Py_ssize_t k = 0; k < keys; k++) {
    PyObject* key = PyTuple_GetItem(names, k);
    int i = 0;
    while (i < f->count && (is_hidden(&f->parameters[i]) || !same_name(key, f->parameters[i].name))) i++;
    if (i == f->count || given[i])
      return PyErr_Format(PyExc_TypeError, "no argument %R, or twice: %s", key, f->signature);
    given[i] = args[n + k];
  }
  Call call;
  call.view_count = call.block_count = 0;
  memset(call.results, 0, sizeof call.results);
  PyObject* result = invoke(f, &call, given, 0);
  finish(&call);
  return result;
}

/* Binds the arguments to a signature's names; 0 when they are not its own. */
static int bind_arguments(const Signature* s, PyObject* const* args, Py_ssize_t n, PyObject* names, PyObject** bound,
                          int* skip_alpha)
{
  int at = 0;
  *skip_alpha = 0;
  for (int i = 0; i < s->count; i++) bound[i] = s->named[i].positional && at < n ? args[at++] : NULL;
  if (at < n) return 0;
  const Py_ssize_t keys = names ? PyTuple_Size(names) : 0;
  for (Py_ssize_t k = 0; k < keys; k++) {
    PyObject* key = PyTuple_GetItem(names, k);
    int i = 0;
    while (i < s->count && !same_name(key, s->named[i].name)) i++;
    if (i < s->count && !bound[i]) bound[i] = args[n + k];
    else if (i == s->count && same_name(key, "skip_alpha")) *skip_alpha = PyObject_IsTrue(args[n + k]) == 1;
    else if (i < s->count || args[n + k] != Py_None) return 0;
  }
  for (int i = 0; i < s->count; i++)
    if (s->named[i].required && (!bound[i] || bound[i] == Py_None)) return 0;
  return 1;
}

/* Whether the images (and constants, where they tell) are a function's; 2: of its type, but not to be used so. */
static int fits(Call* call, const Function* f, PyObject** given, int* image_count)
{
  Image planes[MAX_PLANES];
  const char* why;
  int loosely = 0;
  *image_count = 0;
  for (int i = 0; i < f->count; i++) {
    const Parameter* p = &f->parameters[i];
    PyObject* o = given[i];
    if (!o || o == Py_None) continue;
    if (p->role == IMAGE) {
      const int seen = see_image(call, o, p->memory, planes, &why);
      if (seen < 0) return -1;
      if (!seen && strcmp(why, "stride") && strcmp(why, "readonly") && strcmp(why, "alike")) return 0;
      loosely |= !seen;
      if (!seen && p->memory->one_channel) return 0;
      ++*image_count;
    } else if (p->role == IN || p->role == OUT) {
      const Memory* m = p->memory;
      if (is_number(o) && m->is_read && !m->is_written) return 0;
      if (!m->planes && !PyTuple_Check(o) && !PyList_Check(o) && !is_number(o)) {
        View* v = view_of(call, o, 0);
        if (!v) PyErr_Clear();
        else if (v->is_foreign || v->element != m->element) return 0;
      }
    } else if (p->role == NUMBER && p->letter != 'p' && (PyTuple_Check(o) || PyList_Check(o)) &&
               !strchr("srcCF", p->letter)) {
      return 0;
    } else if (p->role == RECORD) {
      if (Py_TYPE(o) != RecordType || strcmp(((Record*)o)->kind, p->record)) return 0;
    }
  }
  return loosely ? 2 : 1;
}

static PyObject* call_operation(PyObject* self, PyObject* const* args, Py_ssize_t n, PyObject* names)
{
  const Operation* op = &operations[((Entry*)self)->index - FUNCTIONS];
  PyObject *given[MAX_PARAMETERS], *best_given[MAX_PARAMETERS], *loose_given[MAX_PARAMETERS], *bound[MAX_PARAMETERS];
  const Candidate *best = NULL, *loose = NULL;
  const Memory* best_out = NULL;
  int any_bound = 0, ambiguous = 0;
  Call call;
  call.view_count = call.block_count = 0;
  memset(call.results, 0, sizeof call.results);
  for (int s = 0; s < op->count && !(best && best->same); s++) {
    const Signature* signature = &op->signatures[s];
    int skip_alpha;
    if (!bind_arguments(signature, args, n, names, bound, &skip_alpha)) continue;
    any_bound = 1;
    for (int k = 0; k < signature->candidate_count; k++) {
      const Candidate* c = &signature->candidates[k];
      const Function* f = &functions[c->function];
      int images;
      if (c->skips_alpha != skip_alpha) continue;
      memset(given, 0, sizeof(PyObject*) * (size_t)(f->count ? f->count : 1));
      for (int i = 0; i < signature->count; i++) given[c->map[i]] = bound[i];
      const int fit = fits(&call, f, given, &images);
      if (fit < 0) goto failed;
      if (fit == 2 && !loose) {
        loose = c;
        memcpy(loose_given, given, sizeof given);
      }
      if (fit != 1) continue;
      const int told = c->out < 0 || (given[c->out] && given[c->out] != Py_None);
      const Memory* out = told ? NULL : f->parameters[c->out].memory;
      if (!best) {
        best = c;
        best_out = out;
        memcpy(best_given, given, sizeof given);
        if (told || (c->same && images)) goto found;
      } else if (out && best_out && out != best_out) {
        ambiguous = 1;
      }
    }
  }
  if (!best && loose) { /* its call says what is amiss */
    best = loose;
    memcpy(best_given, loose_given, sizeof best_given);
  }
  if (best && !ambiguous) goto found;
  if (best) {
    PyErr_Format(PyExc_TypeError, "%s: several types or layouts of the result are possible; give it as `out`",
                 op->name);
  } else if (any_bound) {
    PyErr_Format(PyExc_TypeError, "%s: no form of it takes these types and shapes; nothing is cast silently:\n%s",
                 op->name, op->synopsis);
  } else {
    PyErr_Format(PyExc_TypeError, "%s: arguments are missing, or too many:\n%s", op->name, op->synopsis);
  }
failed:
  finish(&call);
  return NULL;
found:;
  PyObject* result = invoke(&functions[best->function], &call, best_given, 1);
  if (result == Py_None && best->out >= 0 && best_given[best->out] && best_given[best->out] != Py_None) {
    Py_DECREF(result);
    result = Py_NewRef(best_given[best->out]);
  }
  finish(&call);
  return result;
}

/* ---- The module ---- */

static void entry_dealloc(PyObject* self)
{
  PyTypeObject* type = Py_TYPE(self);
  PyObject_Free(self);
  Py_DECREF(type);
}
static PyType_Slot entry_slots[] = {{Py_tp_dealloc, (void*)entry_dealloc}, {0, NULL}};
static PyType_Spec entry_spec = {"zori.function", sizeof(Entry), 0,
                                 Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, entry_slots};

static PyMethodDef methods[FUNCTIONS + OPERATIONS];

/* Documentation is put together when it is asked for: doc(name). */
static PyObject* documentation(PyObject* module, PyObject* name)
{
  (void)module;
  for (int i = 0; i < FUNCTIONS; i++)
    if (PyUnicode_CompareWithASCIIString(name, functions[i].name) == 0)
      return PyUnicode_FromFormat("%s\n\n%s", functions[i].signature, documents[functions[i].document]);
  for (int i = 0; i < OPERATIONS; i++)
    if (PyUnicode_CompareWithASCIIString(name, operations[i].name) == 0)
      return PyUnicode_FromFormat("%s\n\n%s", operations[i].synopsis, documents[operations[i].document]);
  return PyErr_Format(PyExc_KeyError, "%R", name);
}

static PyMethodDef module_methods[] = {
  {"documentation", documentation, METH_O, "documentation(name): what a function or an operation does, as text."},
  {NULL, NULL, 0, NULL}};

/* The team of the thread that forked is not in the child: it goes on alone there. */
static void in_child(void) { omp_set_num_threads(1); }

static int add_entry(PyObject* module, PyObject* module_name, int index, const char* name, const char* doc,
                     _PyCFunctionFastWithKeywords call)
{
  Entry* entry = PyObject_New(Entry, EntryType);
  if (!entry) return -1;
  entry->index = index;
  methods[index] = (PyMethodDef){name, (PyCFunction)(void (*)(void))call, METH_FASTCALL | METH_KEYWORDS, doc};
  PyObject* function = PyCFunction_NewEx(&methods[index], (PyObject*)entry, module_name);
  Py_DECREF(entry);
  if (!function) return -1;
  const int bad = PyModule_AddObjectRef(module, name, function);
  Py_DECREF(function);
  return bad;
}

static void intern(const char* name)
{
  for (int i = 0; i < named_count; i++)
    if (!strcmp(named_texts[i], name)) return;
  if (named_count == 256) return; /* the others are compared letter by letter */
  named_texts[named_count] = name;
  named_strings[named_count++] = PyUnicode_InternFromString(name);
}

static char* joined(const char* head, const char* body)
{
  char* text = malloc(strlen(head) + strlen(body) + 3);
  if (text) sprintf(text, "%s\n\n%s", head, body);
  return text; /* as long as the module */
}

static struct PyModuleDef definition = {
  PyModuleDef_HEAD_INIT,
  "zori",
  "Image-processing primitives on arrays. zori.add(a, b): the operation by type and shape of the arrays;\n"
  "zori.zoriAdd_8u_C1RSfs(...): the function itself, without steps and work memory, which follow from the arrays.",
  -1,
  module_methods,
  NULL,
  NULL,
  NULL,
  NULL};

PyMODINIT_FUNC PyInit_zori(void)
{
  PyObject* module = PyModule_Create(&definition);
  PyObject* name = PyUnicode_FromString("zori");
  if (!module || !name) return NULL;
  RecordType = (PyTypeObject*)PyType_FromSpec(&record_spec);
  EntryType = (PyTypeObject*)PyType_FromSpec(&entry_spec);
  Error = PyErr_NewExceptionWithDoc("zori.Error", "A call that failed: status, name, argument, function.", NULL, NULL);
  StatusWarning = PyErr_NewExceptionWithDoc("zori.StatusWarning", "A call that met a case which it defines.",
                                            PyExc_UserWarning, NULL);
  if (!RecordType || !EntryType || !Error || !StatusWarning) return NULL;
  int bad = PyModule_AddObjectRef(module, "Record", (PyObject*)RecordType) ||
            PyModule_AddObjectRef(module, "Error", Error) ||
            PyModule_AddObjectRef(module, "StatusWarning", StatusWarning);
  for (size_t i = 0; i < sizeof constants / sizeof constants[0] && !bad; i++)
    bad = PyModule_AddIntConstant(module, constants[i].name, constants[i].value);
  for (int i = 0; i < FUNCTIONS && !bad; i++)
    bad = add_entry(module, name, i, functions[i].name, functions[i].signature, call_function);
  for (int i = 0; i < OPERATIONS && !bad; i++) {
    const Operation* op = &operations[i];
    for (int s = 0; s < op->count; s++)
      for (int k = 0; k < op->signatures[s].count; k++) intern(op->signatures[s].named[k].name);
    bad =
      add_entry(module, name, FUNCTIONS + i, op->name, joined(op->synopsis, documents[op->document]), call_operation);
  }
  Py_DECREF(name);
  pthread_atfork(NULL, NULL, in_child);
  return bad ? NULL : module;
}
