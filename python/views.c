/* Images and arrays where they lie: through the buffer protocol, a buffer taken once a call. Nothing is copied, cast or
   rescaled; what is no operand as it stands is refused. New arrays are NumPy's. */
#include "binding.h"

const int element_bytes[] = {1, 1, 1, 2, 2, 4, 4, 8, 4, 8, 8};
const char* const element_names[] = {"uint8", "uint8", "int8",    "uint16",  "int16",  "uint32",
                                     "int32", "int64", "float32", "float64", "pointer"};

void begin_call(Call* call)
{
  call->view_count = call->block_count = 0;
  call->border = NULL;
  memset(call->results, 0, sizeof call->results);
}

void finish_call(Call* call)
{
  for (int i = 0; i < call->view_count; i++) PyBuffer_Release(&call->views[i].view);
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

/* The buffer of an object, taken once a call; writable when asked for. Null, with an exception: it has none. */
View* view_of(Call* call, PyObject* object, int writable)
{
  for (int i = 0; i < call->view_count; i++)
    if (call->views[i].object == object && (!writable || !call->views[i].view.readonly)) return &call->views[i];
  if (call->view_count == MAX_VIEWS) {
    PyErr_SetString(PyExc_TypeError, "too many arrays");
    return NULL;
  }
  View* v = &call->views[call->view_count];
  if (PyObject_GetBuffer(object, &v->view, PyBUF_STRIDED_RO | PyBUF_FORMAT | (writable ? PyBUF_WRITABLE : 0))) {
    return NULL;
  }
  v->object = object;
  read_format(v);
  call->view_count++;
  return v;
}

/* Sees a buffer as one plane of an image. */
static Sight see(const View* v, const Memory* m, Image* image)
{
  const Py_buffer* b = &v->view;
  if (v->is_foreign || (v->element != m->element && !(m->element == E1u && v->element == E8u)) ||
      (v->is_bool && !m->is_mask) || (v->is_complex && m->count != 2))
    return WRONG_TYPE;
  const int numbers = v->is_complex ? 1 : m->count; /* a complex element is one item, or two in a last axis */
  Py_ssize_t inner = b->itemsize;
  int dims = b->ndim;
  if (numbers > 1 && (m->element != E8u)) {
    if (dims < 3 || b->shape[dims - 1] != numbers || b->strides[dims - 1] != inner) return WRONG_SHAPE;
    dims--;
    inner *= numbers;
  }
  const int channels = m->planes ? 1 : m->channels * (m->element == E8u ? numbers : 1);
  const Py_ssize_t pixel = inner * channels;
  if (m->one_channel && dims == 2) {
    if (b->shape[1] > 1 && b->strides[1] != pixel) return WRONG_SHAPE;
  } else if (channels > 1 || (dims == 3 && !m->one_channel)) {
    if (dims != 3 || b->shape[2] != channels || (channels > 1 && b->strides[2] != inner)) return WRONG_SHAPE;
    if (b->shape[1] > 1 && b->strides[1] != pixel) return GAPS;
  } else {
    if (dims != 2) return WRONG_SHAPE;
    if (b->shape[1] > 1 && b->strides[1] != pixel) return GAPS;
  }
  if (b->strides[0] > INT32_MAX || b->strides[0] < INT32_MIN || b->shape[0] > INT32_MAX || b->shape[1] > INT32_MAX / 8)
    return GAPS;
  image->data = b->buf;
  image->height = b->shape[0];
  image->width = m->element == E1u ? b->shape[1] * 8 : b->shape[1];
  image->step = b->strides[0];
  image->pixel = pixel;
  return SEEN;
}

/* Splits (array, x, y), the array with the place of the region's first pixel. */
static PyObject* split_origin(PyObject* given, Image* image)
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
    if (m->is_written && v->view.readonly) return READ_ONLY;
  }
  return SEEN;
}

int refuse_image(const Function* f, const Parameter* p, Sight why)
{
  const Memory* m = p->memory;
  const int numbers = m->channels * m->count;
  char shape[48];
  if (m->planes) snprintf(shape, sizeof shape, "a list of %d arrays (h, w)", m->planes);
  else if (m->one_channel) snprintf(shape, sizeof shape, "one channel a[:, :, k] of an array (h, w, %d)", m->channels);
  else if (numbers > 1) snprintf(shape, sizeof shape, "shape (h, w, %d)", numbers);
  else snprintf(shape, sizeof shape, "shape (h, w)");
  if (why == READ_ONLY) {
    PyErr_Format(PyExc_ValueError, "%s: %s is read-only", f->name, p->name);
  } else if (why == GAPS) {
    PyErr_Format(PyExc_ValueError, "%s: the pixels of a row of %s do not adjoin; nothing is copied silently", f->name,
                 p->name);
  } else if (why == UNLIKE) {
    PyErr_Format(PyExc_ValueError, "%s: the planes of %s differ in size or step", f->name, p->name);
  } else {
    PyErr_Format(PyExc_TypeError, "%s: %s must be %s%s, %s; nothing is cast silently", f->name, p->name,
                 m->count == 2 && m->element != E8u ? "complex " : "", element_names[m->element], shape);
  }
  return -1;
}

/* ---- New arrays ---- */

PyObject* import_numpy(void)
{
  static PyObject* numpy;
  return numpy ? numpy : (numpy = PyImport_ImportModule("numpy"));
}

PyObject* new_array(Element e, int is_complex, int n, const Py_ssize_t* shape, int zeroed)
{
  static PyObject *makers[2], *dtypes[Ppointer + 2];
  PyObject* numpy = import_numpy();
  const int at = !is_complex ? (int)e : e == E32f ? Ppointer : Ppointer + 1;
  if (!numpy) return NULL;
  if (!makers[zeroed] && !(makers[zeroed] = PyObject_GetAttrString(numpy, zeroed ? "zeros" : "empty"))) return NULL;
  if (!dtypes[at]) {
    const char* name = !is_complex ? element_names[e] : e == E32f ? "complex64" : "complex128";
    PyObject* type = PyObject_GetAttrString(numpy, name);
    if (!type) return NULL;
    dtypes[at] = PyObject_CallMethod(numpy, "dtype", "O", type);
    Py_DECREF(type);
    if (!dtypes[at]) return NULL;
  }
  PyObject *sides = PyTuple_New(n), *arguments = PyTuple_New(2), *array = NULL;
  for (int i = 0; sides && i < n; i++) PyTuple_SetItem(sides, i, PyLong_FromSsize_t(shape[i]));
  if (sides && arguments) {
    PyTuple_SetItem(arguments, 0, sides);
    PyTuple_SetItem(arguments, 1, Py_NewRef(dtypes[at]));
    array = PyObject_Call(makers[zeroed], arguments, NULL);
  } else {
    Py_XDECREF(sides);
  }
  Py_XDECREF(arguments);
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
