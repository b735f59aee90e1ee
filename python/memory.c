/* Image memory of the library: what zoriMalloc... makes, as an object that any array operand may be, and whose pixels
   numpy.asarray() sees. It goes back when nothing refers to it, or by zoriFree. */
#include "binding.h"

typedef struct {
  PyObject_HEAD void* block; /* null: given back */
  Py_ssize_t shape[MAX_DIMENSIONS], strides[MAX_DIMENSIONS], itemsize;
  int ndim, views;
  const char* format;
} Block;

static int get_view(PyObject* object, Py_buffer* view, int flags)
{
  Block* self = (Block*)object;
  view->obj = NULL;
  if (!self->block) return PyErr_SetString(PyExc_BufferError, "the memory has been released"), -1;
  if ((flags & PyBUF_STRIDES) != PyBUF_STRIDES)
    return PyErr_SetString(PyExc_BufferError, "the rows of the memory have a step"), -1;
  view->buf = self->block;
  view->obj = Py_NewRef(object);
  view->len = self->itemsize;
  for (int k = 0; k < self->ndim; k++) view->len *= self->shape[k];
  view->itemsize = self->itemsize;
  view->readonly = 0;
  view->ndim = self->ndim;
  view->format = flags & PyBUF_FORMAT ? (char*)self->format : NULL;
  view->shape = self->shape;
  view->strides = self->strides;
  view->suboffsets = NULL;
  view->internal = NULL;
  self->views++;
  return 0;
}

static void end_view(PyObject* object, Py_buffer* view)
{
  (void)view;
  ((Block*)object)->views--;
}

static int release(Block* self)
{
  if (self->views) return PyErr_SetString(PyExc_BufferError, "arrays still look at the memory"), -1;
  zoriFree(self->block);
  self->block = NULL;
  return 0;
}

static void dealloc(PyObject* object)
{
  PyTypeObject* type = Py_TYPE(object);
  zoriFree(((Block*)object)->block);
  PyObject_Free(object);
  Py_DECREF(type);
}

static PyObject* release_now(PyObject* self, PyObject* ignored)
{
  (void)ignored;
  return release((Block*)self) ? NULL : Py_NewRef(Py_None);
}

static PyObject* enter(PyObject* self, PyObject* ignored)
{
  (void)ignored;
  return Py_NewRef(self);
}

static PyObject* shape(PyObject* object, void* closure)
{
  const Block* self = (const Block*)object;
  const Py_ssize_t* numbers = closure ? self->strides : self->shape;
  PyObject* tuple = PyTuple_New(self->ndim);
  for (int k = 0; tuple && k < self->ndim; k++) PyTuple_SetItem(tuple, k, PyLong_FromSsize_t(numbers[k]));
  return tuple;
}

static PyMethodDef methods[] = {
  {"release", release_now, METH_NOARGS, "Gives the memory back now; an error while arrays look at it."},
  {"__enter__", enter, METH_NOARGS, NULL},
  {"__exit__", release_now, METH_VARARGS, NULL},
  {NULL, NULL, 0, NULL}};
static PyGetSetDef members[] = {{"shape", shape, NULL, "As that of an array.", NULL},
                                {"strides", shape, NULL, "Bytes from row to row, from pixel to pixel...", (void*)1},
                                {NULL, NULL, NULL, NULL, NULL}};
static PyType_Slot slots[] = {
  {Py_tp_dealloc, (void*)dealloc},
  {Py_tp_methods, methods},
  {Py_tp_getset, members},
  {Py_bf_getbuffer, (void*)get_view},
  {Py_bf_releasebuffer, (void*)end_view},
  {Py_tp_doc, "Image memory that zoriMalloc... made: an image operand; numpy.asarray(memory) sees its pixels."},
  {0, NULL}};
PyTypeObject* MemoryType;
PyType_Spec memory_spec = {"zori.Memory", sizeof(Block), 0, Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION,
                           slots};

/* A call of zoriMalloc...: its width and height are in their places. */
PyObject* make_memory(const Frame* x)
{
  static const char* const formats[][2] = {
    [E8u] = {"B", "B"}, [E16u] = {"H", "H"}, [E16s] = {"h", "h"}, [E32s] = {"i", "i"}, [E32f] = {"f", "Zf"}};
  const Memory* m = x->f->makes;
  Slot slots[3] = {x->slots[0], x->slots[1]}, result = {0};
  int step = 0;
  slots[2].p = &step;
  if (slots[0].i < 1 || slots[1].i < 1)
    return PyErr_Format(PyExc_ValueError, "%s: %s must be at least 1", x->f->name,
                        x->f->parameters[slots[0].i < 1 ? 0 : 1].name);
  trampolines[x->f->trampoline](x->f->call, slots, &result);
  if (!result.p) return PyErr_Format(PyExc_MemoryError, "%s: no memory of that size", x->f->name);
  Block* self = PyObject_New(Block, MemoryType);
  if (!self) return zoriFree(result.p), NULL;
  const int is_complex = m->count == 2 && m->element == E32f;
  self->block = result.p;
  self->views = 0;
  self->format = formats[m->element][is_complex];
  self->itemsize = (Py_ssize_t)element_bytes[m->element] << is_complex;
  Py_ssize_t pixel = (Py_ssize_t)element_bytes[m->element] * m->count * m->channels;
  int n = 0;
  self->shape[n] = slots[1].i;
  self->strides[n++] = step;
  self->shape[n] = slots[0].i;
  self->strides[n++] = pixel;
  if (m->channels > 1) {
    self->shape[n] = m->channels;
    self->strides[n++] = pixel / m->channels;
  }
  if (m->count == 2 && !is_complex) {
    self->shape[n] = 2;
    self->strides[n++] = self->itemsize;
  }
  self->ndim = n;
  return (PyObject*)self;
}

/* A call of zoriFree. */
PyObject* free_memory(const Function* f, PyObject* given)
{
  if (!given || given == Py_None) return Py_NewRef(Py_None);
  if (Py_TYPE(given) != MemoryType)
    return PyErr_Format(PyExc_TypeError, "%s: %s must be memory that zoriMalloc... made", f->name,
                        f->parameters[0].name);
  if (!((Block*)given)->block)
    return PyErr_Format(PyExc_ValueError, "%s: %s has been released", f->name, f->parameters[0].name);
  if (release((Block*)given)) return in_argument(f, &f->parameters[0]), NULL;
  return Py_NewRef(Py_None);
}
