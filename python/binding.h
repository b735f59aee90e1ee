/* The Python module `zori`: one dispatcher over the table of all functions.

   A call goes down through these files: dispatch.c chooses the function, invoke.c makes the call in four passes
   (numbers, sizes that follow from images, operands in memory, what is made for the call), operands.c, arrays.c and
   borders.c place the operands, views.c sees them where they lie, numbers.c converts, errors.c, records.c and memory.c
   return what came of it. The module needs nothing but the stable ABI of Python, and of NumPy the layout of its arrays;
   results that are arrays are made by NumPy, through its Python interface. */
#ifndef ZORI_PYTHON_BINDING_H
#define ZORI_PYTHON_BINDING_H
#define Py_LIMITED_API 0x030B0000
#define PY_SSIZE_T_CLEAN
#include <Python.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "table.h"

enum { FEW_VIEWS = 32, MAX_BLOCKS = 24, MAX_DIMENSIONS = 4 };

/* ---- views.c: operands where they lie ---- */

typedef struct {    /* an operand's memory */
  PyObject* object; /* owned */
  char* data;
  Py_ssize_t itemsize, shape[MAX_DIMENSIONS], strides[MAX_DIMENSIONS];
  int ndim;
  Element element;
  char is_complex, is_bool, is_foreign, is_readonly; /* foreign: of no element of ours */
  char is_held;                                      /* its buffer was taken */
  Py_buffer buffer;
} View;

typedef struct {               /* one call */
  View few[FEW_VIEWS], *views; /* more than a few: of the heap */
  int view_count, view_room;
  void* blocks[MAX_BLOCKS];
  int block_count;
  PyObject* results[MAX_PARAMETERS]; /* owned */
  PyObject* border;                  /* what lies around the images, as the caller says; borrowed, null: nothing */
} Call;

typedef struct { /* an image operand, seen through its buffer */
  char* data;
  Py_ssize_t width, height, step, left, top, pixel;
  int has_origin;
} Image;

typedef enum { SEEN, WRONG_TYPE, WRONG_SHAPE, WRONG_PLANES, NO_BUFFER, GAPS, UNLIKE, READ_ONLY } Sight;

extern const int element_bytes[];
extern const char* const element_names[];

int learn_numpy(void);
void begin_call(Call* call);
void finish_call(Call* call);
View* view_of(Call* call, PyObject* object, int writable);
int is_contiguous(const View* v);
Py_ssize_t items_in(const View* v);
void* new_block(Call* call, size_t bytes, size_t alignment);
Sight see_image(Call* call, PyObject* given, const Memory* m, Image* planes);
const char* type_as_text(const Memory* m, char* text, size_t room);
const char* shape_as_text(const Memory* m, char* text, size_t room);
int refuse_image(const Function* f, const Parameter* p, Sight why);
PyObject* new_array(Element e, int is_complex, int n, const Py_ssize_t* shape, int zeroed);
PyObject* split_origin(PyObject* given, Image* image);
PyObject* new_image(const Memory* m, Py_ssize_t width, Py_ssize_t height);
PyObject* import_numpy(void);

/* ---- numbers.c ---- */

int is_number(PyObject* o);
int number_of(PyObject* o, Element e, double* out);
void store(void* to, Element e, double n);
double load(const void* from, Element e);
PyObject* number_object(const void* from, Element e);
int scalar(PyObject* o, char letter, double* n);
void fill(Slot* slot, char letter, const double* n);
Py_ssize_t flatten(PyObject* o, const Memory* m, char* to, Py_ssize_t at, Py_ssize_t room);

/* ---- operands.c, arrays.c, borders.c, invoke.c ---- */

typedef struct { /* a call on its way */
  const Function* f;
  Call* call;
  PyObject** given; /* by argument, borrowed; null or None: not given */
  const Numbers *region, *maker;
  Slot slots[MAX_PARAMETERS];
  Numbers values[MAX_PARAMETERS];
  void* pointers[MAX_PARAMETERS][MAX_PLANES];
  Image images[MAX_PARAMETERS][MAX_PLANES];
} Frame;

typedef struct {
  double width, height, left, top, right, bottom;
} Reach;

static inline int is_given(const Frame* x, int i) { return x->given[i] && x->given[i] != Py_None; }
static inline Context context_of(const Frame* x, int plane) { return (Context){x->values, x->maker, plane}; }

Reach reach_by_formulas(const Memory* m, Context c, const Numbers* region);
/* How far an operand reaches around the region's first pixel. */
static inline Reach reach_of(const Memory* m, Context c, const Numbers* region)
{
  if (!m->is_plain) return reach_by_formulas(m, c, region);
  return (Reach){region ? region->numbers[0] : 0, region ? region->numbers[1] : 0, 0, 0, 0, 0};
}
int read_images(Frame* x);
int deduce_sizes(Frame* x);
int deduce_counts(Frame* x);
int place_image(Frame* x, int i, int make);
int place_array(Frame* x, int i);
Py_ssize_t numbers_in(const Frame* x, const Memory* m, int plane);

static inline int has_border(const Frame* x, const Memory* m)
{
  return x->call->border && m->has_margin && !m->is_written;
}
int frame_image(Frame* x, int i, const Reach* r);

int read_numbers(Frame* x);
PyObject* invoke(const Function* f, Call* call, PyObject** given, int make);

/* ---- errors.c ---- */

extern PyObject *Error, *StatusWarning;
int missing(const Function* f, const Parameter* p);
int in_argument(const Function* f, const Parameter* p);
void raise_error(const Frame* x, int status);
int warn(const Function* f, int status);
void rename_in_error(const char* const* from, const char* const* to, int count);

/* ---- records.c ---- */

typedef struct {
  PyObject_HEAD void* pointer;
  void* block; /* when it lies in memory of ours */
  const char* kind;
  int release;
  Numbers made[MAX_PARAMETERS]; /* arguments of the call that made it */
} Record;

extern PyTypeObject* RecordType;
extern PyType_Spec record_spec;
Record* new_record(const char* kind, void* pointer, void* block, int release);

/* ---- memory.c ---- */

extern PyTypeObject* MemoryType;
extern PyType_Spec memory_spec;
PyObject* make_memory(const Frame* x);
PyObject* free_memory(const Function* f, PyObject* given);

/* ---- dispatch.c ---- */

typedef struct {
  PyObject_HEAD int index; /* functions first, then operations */
} Entry;

PyObject* call_function(PyObject* self, PyObject* const* args, Py_ssize_t n, PyObject* names);
PyObject* call_operation(PyObject* self, PyObject* const* args, Py_ssize_t n, PyObject* names);

/* ---- margins.c ---- */

PyObject* margins(PyObject* module, PyObject* const* args, Py_ssize_t n, PyObject* names);

#endif
