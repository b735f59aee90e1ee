/* Images and arrays where they lie: NumPy's arrays by their fields, all else through the buffer protocol, a buffer
   taken once a call. Nothing is copied, cast or rescaled; what is no operand as it stands is refused. New arrays are
   NumPy's.
   */
#include "binding.h"

const int element_bytes[] = {1, 1, 1, 2, 2, 4, 4, 8, 4, 8, 8};
const char* const element_names[] = {"uint8", "uint8", "int8",    "uint16",  "int16",  "uint32",
                                     "int32", "int64", "float32", "float64", "pointer"};

/* The fields of NumPy's arrays are the same in all its versions (1 and 2); learn_numpy() looks whether they are. */
typedef struct {
  PyObject_HEAD char* data;
  int nd;
  Py_ssize_t *dimensions, *strides;
  PyObject *base, *descr;
  int flags;
} Array;

enum { OWN_TYPES = 13, WRITEABLE = 0x400 };
static PyTypeObject* ArrayType; /* null: arrays are seen through their buffers, like all else */
static PyObject *numpy, *makers[2];
static struct {
  PyObject* descr;
  Element element;
  char is_complex, is_bool;
} types[OWN_TYPES];

PyObject* import_numpy(void) { return numpy ? numpy : (numpy = PyImport_ImportModule("numpy")); }

/* The arrays' type and the types of elements; without NumPy nothing, -1 with an exception. */
int learn_numpy(void)
{
  static const char* const more[] = {"complex64", "complex128", "bool"};
  if (!import_numpy()) {
    PyErr_Clear();
    return 0;
  }
  for (int i = 0; i < OWN_TYPES; i++) {
    const int extra = i - (int)E64f;
    types[i].element = extra <= 0 ? (Element)i : extra == 1 ? E32f : extra == 2 ? E64f : E8u;
    types[i].is_complex = extra == 1 || extra == 2;
    types[i].is_bool = extra == 3;
    types[i].descr = PyObject_CallMethod(numpy, "dtype", "s", extra <= 0 ? element_names[i] : more[extra - 1]);
    if (!types[i].descr) return -1;
  }
  for (int i = 0; i < 2; i++)
    if (!(makers[i] = PyObject_GetAttrString(numpy, i ? "zeros" : "empty"))) return -1;
  const Py_ssize_t shape[2] = {3, 5};
  Py_buffer b;
  PyObject *whole = new_array(E16s, 0, 2, shape, 1), *a = whole ? PyObject_GetAttrString(whole, "T") : NULL;
  int alike = a && !PyObject_GetBuffer(a, &b, PyBUF_STRIDED);
  if (!alike) return -1;
  const Array* fields = (const Array*)a;
  alike = fields->data == b.buf && fields->nd == 2 && fields->dimensions[0] == 5 && fields->dimensions[1] == 3 &&
          fields->strides[0] == 2 && fields->strides[1] == 10 && fields->base == whole &&
          fields->descr == types[E16s].descr && fields->flags & WRITEABLE;
  PyBuffer_Release(&b);
  PyObject* frozen = alike ? PyObject_CallMethod(a, "setflags", "i", 0) : NULL;
  if (frozen && !(fields->flags & WRITEABLE)) ArrayType = (PyTypeObject*)Py_NewRef((PyObject*)Py_TYPE(a));
  Py_XDECREF(frozen);
  Py_DECREF(a);
  Py_DECREF(whole);
  PyErr_Clear();
  return 0;
}

void begin_call(Call* call)
{
  call->view_count = call->block_count = 0;
  call->views = call->few;
  call->view_room = FEW_VIEWS;
  call->border = NULL;
  memset(call->results, 0, sizeof call->results);
}

void finish_call(Call* call)
{
  for (int i = 0; i < call->view_count; i++) {
    if (call->views[i].is_held) PyBuffer_Release(&call->views[i].buffer);
    Py_DECREF(call->views[i].object);
  }
  if (call->views != call->few) free(call->views);
  for (int i = 0; i < call->block_count; i++) free(call->blocks[i]);
  for (int i = 0; i < MAX_PARAMETERS; i++)
    if (call->results[i]) Py_DECREF(call->results[i]);
}

/* Memory for the length of the call, as malloc gives it. */
void* new_block(Call* call, size_t bytes, size_t alignment)
{
  void* block = NULL;
  if (call->block_count == MAX_BLOCKS || posix_memalign(&block, alignment, bytes ? bytes : 1)) {
    PyErr_NoMemory();
    return NULL;
  }
  return call->blocks[call->block_count++] = block;
}

static void read_format(View* v)
{
  const char* f = v->buffer.format ? v->buffer.format : "B";
  if (*f == '<' || *f == '=' || *f == '@' || *f == '|') f++;
  v->is_complex = *f == 'Z';
  v->is_bool = v->is_foreign = 0;
  f += v->is_complex;
  Py_ssize_t bytes = v->buffer.itemsize >> v->is_complex;
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
  default: v->element = E8u; v->is_foreign = 1;
  }
}

/* By the fields of an array; 0: it is of no type of ours, its buffer tells. */
static int see_array(View* v)
{
  const Array* a = (const Array*)v->object;
  int i = E8u;
  while (i < OWN_TYPES && types[i].descr != a->descr) i++;
  if (i == OWN_TYPES || a->nd > MAX_DIMENSIONS) return 0;
  v->element = types[i].element;
  v->is_complex = types[i].is_complex;
  v->is_bool = types[i].is_bool;
  v->is_foreign = v->is_held = 0;
  v->is_readonly = !(a->flags & WRITEABLE);
  v->data = a->data;
  v->ndim = a->nd;
  v->itemsize = (Py_ssize_t)element_bytes[v->element] << v->is_complex;
  for (int k = 0; k < a->nd; k++) {
    v->shape[k] = a->dimensions[k];
    v->strides[k] = a->strides[k];
  }
  return 1;
}

static int see_buffer(View* v, int writable)
{
  Py_buffer* b = &v->buffer;
  if (PyObject_GetBuffer(v->object, b, PyBUF_STRIDED_RO | PyBUF_FORMAT | (writable ? PyBUF_WRITABLE : 0))) return 0;
  v->is_held = 1;
  read_format(v);
  v->is_readonly = (char)b->readonly;
  v->data = b->buf;
  v->itemsize = b->itemsize;
  v->ndim = b->ndim;
  v->is_foreign |= b->ndim > MAX_DIMENSIONS;
  for (int k = 0; k < b->ndim && k < MAX_DIMENSIONS; k++) {
    v->shape[k] = b->shape[k];
    v->strides[k] = b->strides[k];
  }
  return 1;
}

/* The memory of an object, seen once a call; writable when asked for. Null, with an exception: it has none. It is to be
   used before the next is asked for. */
View* view_of(Call* call, PyObject* object, int writable)
{
  for (int i = 0; i < call->view_count && i < FEW_VIEWS; i++)
    if (call->views[i].object == object && (!writable || !call->views[i].is_readonly)) return &call->views[i];
  if (call->view_count == call->view_room) {
    View* more = malloc(2 * (size_t)call->view_room * sizeof *more);
    if (!more) return PyErr_NoMemory(), NULL;
    memcpy(more, call->views, (size_t)call->view_count * sizeof *more);
    if (call->views != call->few) free(call->views);
    call->views = more;
    call->view_room *= 2;
  }
  View* v = &call->views[call->view_count];
  v->object = object;
  if (Py_TYPE(object) != ArrayType || !see_array(v)) {
    if (!see_buffer(v, writable)) return NULL;
  } else if (writable && v->is_readonly) {
    PyErr_SetString(PyExc_ValueError, "the array is read-only");
    return NULL;
  }
  Py_INCREF(object);
  call->view_count++;
  return v;
}

Py_ssize_t items_in(const View* v)
{
  Py_ssize_t n = 1;
  for (int k = 0; k < v->ndim; k++) n *= v->shape[k];
  return n;
}

/* Whether the items adjoin, the last index running fastest. */
int is_contiguous(const View* v)
{
  Py_ssize_t stride = v->itemsize;
  for (int k = v->ndim - 1; k >= 0; k--) {
    if (v->shape[k] > 1 && v->strides[k] != stride) return 0;
    stride *= v->shape[k];
  }
  return 1;
}

/* Sees a buffer as one plane of an image. */
static Sight see(const View* v, const Memory* m, Image* image)
{
  if (v->is_foreign || (v->element != m->element && !(m->element == E1u && v->element == E8u)) ||
      (v->is_bool && !m->is_mask) || (v->is_complex && m->count != 2))
    return WRONG_TYPE;
  const int numbers = v->is_complex ? 1 : m->count; /* a complex element is one item, or two in a last axis */
  Py_ssize_t inner = v->itemsize;
  int dims = v->ndim;
  if (numbers > 1 && (m->element != E8u)) {
    if (dims < 3 || v->shape[dims - 1] != numbers || v->strides[dims - 1] != inner) return WRONG_SHAPE;
    dims--;
    inner *= numbers;
  }
  const int is_empty = dims >= 2 && (v->shape[0] == 0 || v->shape[1] == 0); /* whose strides are anything */
  const int channels = m->planes ? 1 : m->channels * (m->element == E8u ? numbers : 1);
  const Py_ssize_t pixel = inner * channels;
  if (m->one_channel && dims == 2) {
    if (v->shape[1] > 1 && v->strides[1] != pixel) return WRONG_SHAPE;
  } else if (channels > 1 || (dims == 3 && !m->one_channel)) {
    if (dims != 3 || v->shape[2] != channels || (channels > 1 && v->strides[2] != inner && !is_empty))
      return WRONG_SHAPE;
    if (v->shape[1] > 1 && v->strides[1] != pixel && !is_empty) return GAPS;
  } else {
    if (dims != 2) return WRONG_SHAPE;
    if (v->shape[1] > 1 && v->strides[1] != pixel && !is_empty) return GAPS;
  }
  if (v->strides[0] > INT32_MAX || v->strides[0] < INT32_MIN || v->shape[0] > INT32_MAX || v->shape[1] > INT32_MAX / 8)
    return GAPS;
  image->data = v->data;
  image->height = v->shape[0];
  image->width = m->element == E1u ? v->shape[1] * 8 : v->shape[1];
  image->step = v->shape[0] == 1 ? v->shape[1] * pixel : v->strides[0]; /* that of one row is anything */
  image->pixel = pixel;
  return SEEN;
}

/* Splits (array, x, y), the array with the place of the region's first pixel. */
PyObject* split_origin(PyObject* given, Image* image)
{
  image->left = image->top = image->has_origin = 0;
  if (!PyTuple_Check(given) || PyTuple_Size(given) != 3 || !PyLong_Check(PyTuple_GetItem(given, 1)) ||
      !PyLong_Check(PyTuple_GetItem(given, 2)))
    return given;
  int too_large = 0;
  const long x = PyLong_AsLongAndOverflow(PyTuple_GetItem(given, 1), &too_large);
  image->left = too_large || x > INT32_MAX || x < 0 ? INT32_MAX : x;
  const long y = PyLong_AsLongAndOverflow(PyTuple_GetItem(given, 2), &too_large);
  image->top = too_large || y > INT32_MAX || y < 0 ? INT32_MAX : y;
  image->has_origin = 1;
  return PyTuple_GetItem(given, 0);
}

/* Sees an image argument, all its planes; leaves no exception. */
Sight see_image(Call* call, PyObject* given, const Memory* m, Image* planes)
{
  const int n = m->planes ? m->planes : 1;
  Image origin;
  given = split_origin(given, &origin);
  const unsigned long is_sequence =
    PyType_GetFlags(Py_TYPE(given)) & (Py_TPFLAGS_TUPLE_SUBCLASS | Py_TPFLAGS_LIST_SUBCLASS);
  if (m->planes) {
    if (!is_sequence || PySequence_Size(given) != n) return WRONG_PLANES;
  } else if (is_sequence) {
    return WRONG_TYPE;
  }
  for (int k = 0; k < n; k++) {
    PyObject* object = given;
    if (m->planes) object = PyList_Check(given) ? PyList_GetItem(given, k) : PyTuple_GetItem(given, k);
    View* v = object ? view_of(call, object, 0) : NULL;
    if (!v) {
      PyErr_Clear();
      return NO_BUFFER;
    }
    planes[k].left = origin.left;
    planes[k].top = origin.top;
    planes[k].has_origin = origin.has_origin;
    const Sight sight = see(v, m, &planes[k]);
    if (sight != SEEN) return sight;
    if (k && (planes[k].width != planes[0].width || planes[k].height != planes[0].height ||
              planes[k].step != planes[0].step))
      return UNLIKE;
    if (m->is_written && v->is_readonly) return READ_ONLY;
  }
  return SEEN;
}

const char* type_as_text(const Memory* m, char* text, size_t room)
{
  if (m->element == Ppointer) return "rows of float32";
  const int is_float = m->element == E32f || m->element == E64f;
  if (m->count == 2 && is_float) return m->element == E32f ? "complex64" : "complex128";
  snprintf(text, room, "%s%s", m->count == 2 && m->element != E8u ? "complex " : "", element_names[m->element]);
  return text;
}

const char* shape_as_text(const Memory* m, char* text, size_t room)
{
  const int numbers = m->channels * (m->element == E8u ? m->count : 1);
  const char* last = m->count == 2 && m->element < E32f && m->element != E8u ? ", 2" : "";
  if (m->planes) snprintf(text, room, "a list of %d arrays (h, w%s)", m->planes, last);
  else if (m->one_channel) snprintf(text, room, "one channel a[:, :, k] of (h, w, %d)", m->channels);
  else if (numbers > 1) snprintf(text, room, "(h, w, %d%s)", numbers, last);
  else snprintf(text, room, "(h, w%s)", last);
  return text;
}

int refuse_image(const Function* f, const Parameter* p, Sight why)
{
  const Memory* m = p->memory;
  char type[32], shape[64];
  if (why == READ_ONLY) {
    PyErr_Format(PyExc_ValueError, "%s: %s is read-only", f->name, p->name);
  } else if (why == GAPS) {
    PyErr_Format(PyExc_ValueError, "%s: the pixels of a row of %s do not adjoin; nothing is copied silently", f->name,
                 p->name);
  } else if (why == UNLIKE) {
    PyErr_Format(PyExc_ValueError, "%s: the planes of %s differ in size or step", f->name, p->name);
  } else {
    PyErr_Format(PyExc_TypeError, "%s: %s must be %s, shape %s; nothing is cast silently", f->name, p->name,
                 type_as_text(m, type, sizeof type), shape_as_text(m, shape, sizeof shape));
  }
  return -1;
}

/* ---- New arrays ---- */

/* What makes it gets the tuples of the last call where they are the same. */
PyObject* new_array(Element e, int is_complex, int n, const Py_ssize_t* shape, int zeroed)
{
  static PyObject *last, *last_descr;
  static Py_ssize_t last_shape[MAX_DIMENSIONS];
  static int last_n;
  if (!makers[zeroed]) {
    if (import_numpy()) PyErr_SetString(PyExc_ImportError, "numpy was not there when zori was imported");
    return NULL;
  }
  PyObject* descr = types[!is_complex ? (int)e : e == E32f ? E64f + 1 : E64f + 2].descr;
  if (!last || descr != last_descr || n != last_n || memcmp(shape, last_shape, (size_t)n * sizeof *shape)) {
    PyObject *sides = PyTuple_New(n), *arguments = PyTuple_New(2);
    for (int i = 0; sides && i < n; i++) PyTuple_SetItem(sides, i, PyLong_FromSsize_t(shape[i]));
    if (!sides || !arguments) {
      Py_XDECREF(sides);
      Py_XDECREF(arguments);
      return NULL;
    }
    PyTuple_SetItem(arguments, 0, sides);
    PyTuple_SetItem(arguments, 1, Py_NewRef(descr));
    Py_XDECREF(last);
    last = arguments;
    last_descr = descr;
    last_n = n;
    memcpy(last_shape, shape, (size_t)n * sizeof *shape);
  }
  PyObject* arguments = Py_NewRef(last); /* another thread may replace it */
  PyObject* array = PyObject_Call(makers[zeroed], arguments, NULL);
  Py_DECREF(arguments);
  return array;
}

/* A destination for the call: an array, or a list of planes. */
PyObject* new_image(const Memory* m, Py_ssize_t width, Py_ssize_t height)
{
  const int is_complex = m->count == 2 && (m->element == E32f || m->element == E64f);
  const int numbers = m->planes ? 1 : m->channels;
  Py_ssize_t shape[4] = {height, m->element == E1u ? (width + 7) / 8 : width};
  int n = 2;
  if (m->element == E8u && m->count > 1) shape[n++] = numbers * m->count;
  else if (numbers > 1) shape[n++] = numbers;
  if (m->element != E8u && m->count == 2 && !is_complex) shape[n++] = 2;
  const int zeroed = m->keeps_alpha || m->is_partly || m->element == E1u; /* what the call leaves is 0 */
  if (!m->planes) return new_array(m->element, is_complex, n, shape, zeroed);
  PyObject* list = PyList_New(m->planes);
  for (int k = 0; list && k < m->planes; k++) {
    PyObject* plane = new_array(m->element, is_complex, n, shape, zeroed);
    if (!plane) Py_CLEAR(list);
    else PyList_SetItem(list, k, plane);
  }
  return list;
}
