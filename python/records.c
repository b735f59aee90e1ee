/* Records: the specs and states that functions make, as objects that release themselves. */
#include "binding.h"

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
PyTypeObject* RecordType;
PyType_Spec record_spec = {"zori.Record", sizeof(Record), 0, Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION,
                           record_slots};

Record* new_record(const char* kind, void* pointer, void* block, int release)
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
