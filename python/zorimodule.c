/* The module: its functions, operations, types and constants, as the table tells them. */
#include "binding.h"
#include <omp.h>
#include <pthread.h>

static void entry_dealloc(PyObject* self)
{
  PyTypeObject* type = Py_TYPE(self);
  PyObject_Free(self);
  Py_DECREF(type);
}
static PyType_Slot entry_slots[] = {{Py_tp_dealloc, (void*)entry_dealloc}, {0, NULL}};
static PyType_Spec entry_spec = {"zori.function", sizeof(Entry), 0,
                                 Py_TPFLAGS_DEFAULT | Py_TPFLAGS_DISALLOW_INSTANTIATION, entry_slots};

static PyTypeObject* EntryType;
static PyMethodDef* methods; /* functions first, then operations */

/* Documentation is put together when it is asked for: doc(name). */
static PyObject* documentation(PyObject* module, PyObject* name)
{
  (void)module;
  for (int i = 0; i < function_count; i++)
    if (PyUnicode_CompareWithASCIIString(name, functions[i].name) == 0)
      return PyUnicode_FromFormat("%s\n\n%s", functions[i].signature, documents[functions[i].document]);
  for (int i = 0; i < operation_count; i++)
    if (PyUnicode_CompareWithASCIIString(name, operations[i].name) == 0)
      return PyUnicode_FromFormat("%s\n\n%s", operations[i].synopsis, documents[operations[i].document]);
  return PyErr_Format(PyExc_KeyError, "%R", name);
}

static PyMethodDef module_methods[] = {
  {"documentation", documentation, METH_O, "documentation(name): what a function or an operation does, as text."},
  {"margins", (PyCFunction)(void (*)(void))margins, METH_FASTCALL | METH_KEYWORDS,
   "margins(name, **arguments) -> (left, top, right, bottom)\n\n"
   "How many pixels a function or an operation reads beyond the region of its images, by name and by those of its\n"
   "arguments that tell it: margins('filter_box', mask_size=(5, 5), anchor=(2, 2)) is (2, 2, 2, 2)."},
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
  methods = calloc((size_t)(function_count + operation_count), sizeof *methods); /* as long as the module */
  if (!module || !name || !methods) return NULL;
  RecordType = (PyTypeObject*)PyType_FromSpec(&record_spec);
  EntryType = (PyTypeObject*)PyType_FromSpec(&entry_spec);
  Error = PyErr_NewExceptionWithDoc("zori.Error", "A call that failed: status, name, argument, function.", NULL, NULL);
  StatusWarning = PyErr_NewExceptionWithDoc("zori.StatusWarning", "A call that met a case which it defines.",
                                            PyExc_UserWarning, NULL);
  if (!RecordType || !EntryType || !Error || !StatusWarning) return NULL;
  int bad = PyModule_AddObjectRef(module, "Record", (PyObject*)RecordType) ||
            PyModule_AddObjectRef(module, "Error", Error) ||
            PyModule_AddObjectRef(module, "StatusWarning", StatusWarning);
  for (int i = 0; i < constant_count && !bad; i++)
    bad = PyModule_AddIntConstant(module, constants[i].name, constants[i].value);
  for (int i = 0; i < function_count && !bad; i++)
    bad = add_entry(module, name, i, functions[i].name, functions[i].signature, call_function);
  for (int i = 0; i < operation_count && !bad; i++) {
    const Operation* op = &operations[i];
    bad = add_entry(module, name, function_count + i, op->name, joined(op->synopsis, documents[op->document]),
                    call_operation);
  }
  Py_DECREF(name);
  pthread_atfork(NULL, NULL, in_child);
  return bad ? NULL : module;
}
