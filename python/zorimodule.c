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

/* Whether all words of a text stand in another; both in small letters. */
static int has_words(const char* where, const char* words)
{
  while (*words) {
    char word[64];
    size_t n = 0;
    while (*words == ' ') words++;
    while (*words && *words != ' ' && n + 1 < sizeof word) word[n++] = *words++;
    word[n] = 0;
    if (!strstr(where, word)) return 0;
    while (*words && *words != ' ') words++;
  }
  return 1;
}

static PyObject* search(PyObject* module, PyObject* words)
{
  (void)module;
  PyObject *small = PyObject_CallMethod(words, "lower", NULL), *found = small ? PyDict_New() : NULL;
  const char* wanted = found ? PyUnicode_AsUTF8AndSize(small, NULL) : NULL;
  for (int i = 0; wanted && i < operation_count; i++) {
    char text[512];
    const char* title = titles[operations[i].document];
    snprintf(text, sizeof text, "%s %s", operations[i].name, title);
    for (char* p = text; *p; p++)
      if (*p >= 'A' && *p <= 'Z') *p = (char)(*p + ('a' - 'A'));
    PyObject* value = has_words(text, wanted) ? PyUnicode_FromString(title) : NULL;
    if (value) PyDict_SetItemString(found, operations[i].name, value);
    Py_XDECREF(value);
  }
  Py_XDECREF(small);
  if (wanted && !PyErr_Occurred()) return found;
  Py_XDECREF(found);
  return NULL;
}

static PyMethodDef module_methods[] = {
  {"documentation", documentation, METH_O, "documentation(name): what a function or an operation does, as text."},
  {"search", search, METH_O,
   "search(words) -> {operation: title}\n\n"
   "The operations whose names and titles have all of the words, or parts of words: search('threshold')."},
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

static int make_types(void)
{
  static int is_made; /* a module that is imported anew has the types of the first */
  if (is_made) return 0;
  methods = calloc((size_t)(function_count + operation_count), sizeof *methods); /* as long as the process */
  if (!methods) return PyErr_NoMemory(), -1;
  for (int i = 0; i < operation_count; i++) {
    methods[function_count + i].ml_doc = joined(operations[i].synopsis, documents[operations[i].document]);
    if (!methods[function_count + i].ml_doc) return PyErr_NoMemory(), -1;
  }
  RecordType = (PyTypeObject*)PyType_FromSpec(&record_spec);
  MemoryType = (PyTypeObject*)PyType_FromSpec(&memory_spec);
  EntryType = (PyTypeObject*)PyType_FromSpec(&entry_spec);
  Error = PyErr_NewExceptionWithDoc("zori.Error", "A call that failed: status, name, argument, function.", NULL, NULL);
  StatusWarning = PyErr_NewExceptionWithDoc("zori.StatusWarning", "A call that met a case which it defines.",
                                            PyExc_UserWarning, NULL);
  if (!RecordType || !MemoryType || !EntryType || !Error || !StatusWarning || learn_numpy()) return -1;
  pthread_atfork(NULL, NULL, in_child);
  is_made = 1;
  return 0;
}

static int fill_module(PyObject* module)
{
  if (PyInterpreterState_GetID(PyInterpreterState_Get()) != 0) {
    PyErr_SetString(PyExc_ImportError, "zori works in the main interpreter of a process, not in others beside it");
    return -1;
  }
  PyObject* name = PyUnicode_FromString("zori");
  int bad = !name || make_types() || PyModule_AddObjectRef(module, "Record", (PyObject*)RecordType) ||
            PyModule_AddObjectRef(module, "Memory", (PyObject*)MemoryType) ||
            PyModule_AddObjectRef(module, "Error", Error) ||
            PyModule_AddObjectRef(module, "StatusWarning", StatusWarning);
  for (int i = 0; i < constant_count && !bad; i++)
    bad = PyModule_AddIntConstant(module, constants[i].name, constants[i].value);
  for (int i = 0; i < function_count && !bad; i++)
    bad = add_entry(module, name, i, functions[i].name, functions[i].signature, call_function);
  for (int i = 0; i < operation_count && !bad; i++)
    bad = add_entry(module, name, function_count + i, operations[i].name, methods[function_count + i].ml_doc,
                    call_operation);
  Py_XDECREF(name);
  return bad ? -1 : 0;
}

static struct PyModuleDef_Slot module_slots[] = {{Py_mod_exec, (void*)fill_module}, {0, NULL}};

static struct PyModuleDef definition = {
  PyModuleDef_HEAD_INIT,
  "zori",
  "Image-processing primitives on arrays. zori.add(a, b): the operation by type and shape of the arrays;\n"
  "zori.zoriAdd_8u_C1RSfs(...): the function itself, without steps and work memory, which follow from the arrays.",
  0,
  module_methods,
  module_slots,
  NULL,
  NULL,
  NULL};

PyMODINIT_FUNC PyInit_zori(void) { return PyModuleDef_Init(&definition); }
