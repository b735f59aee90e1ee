/* Statuses as exceptions that name the argument, and as warnings. */
#include "binding.h"

PyObject *Error, *StatusWarning;

int missing(const Function* f, const Parameter* p)
{
  PyErr_Format(PyExc_TypeError, "%s: argument %s is missing", f->name, p->name);
  return -1;
}

/* Names the argument in front of a conversion's message. */
int in_argument(const Function* f, const Parameter* p)
{
  PyObject *type, *value, *trace;
  PyErr_Fetch(&type, &value, &trace);
  PyErr_Format(type ? type : PyExc_TypeError, "%s: %s: %S", f->name, p->name, value ? value : Py_None);
  Py_XDECREF(type);
  Py_XDECREF(value);
  Py_XDECREF(trace);
  return -1;
}

static const char* status_name(int status, const char** sentence)
{
  for (int i = 0; i < status_count; i++)
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

void raise_error(const Frame* x, int status)
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

int warn(const Function* f, int status)
{
  const char *sentence, *name = status_name(status, &sentence);
  return PyErr_WarnFormat(StatusWarning, 1, "%s: %s: %s", f->name, name, sentence);
}

static int is_of_word(char c)
{
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

/* A text with whole words exchanged. */
static PyObject* renamed(PyObject* text, const char* const* from, const char* const* to, int count)
{
  PyObject* result = PyUnicode_FromString("");
  const char* p = PyUnicode_AsUTF8AndSize(text, NULL);
  while (p && *p && result) {
    size_t word = 0;
    while (is_of_word(p[word])) word++;
    const char* said = NULL;
    for (int i = 0; i < count && word && !said; i++)
      if (strlen(from[i]) == word && !strncmp(from[i], p, word)) said = to[i];
    size_t rest = word; /* up to the next word */
    while (p[rest] && !is_of_word(p[rest])) rest++;
    PyObject* head = said ? PyUnicode_FromString(said) : PyUnicode_FromStringAndSize(p, (Py_ssize_t)word);
    PyObject* tail = PyUnicode_FromStringAndSize(p + word, (Py_ssize_t)(rest - word));
    PyUnicode_Append(&result, head);
    PyUnicode_Append(&result, tail);
    Py_XDECREF(head);
    Py_XDECREF(tail);
    p += rest;
  }
  return result;
}

/* Exchanges names in the exception that is on its way; `argument` of an Error, too. */
void rename_in_error(const char* const* from, const char* const* to, int count)
{
  PyObject *type, *value, *trace;
  PyErr_Fetch(&type, &value, &trace);
  PyErr_NormalizeException(&type, &value, &trace);
  PyObject* old = value ? PyObject_Str(value) : NULL;
  PyObject* text =
    old && (type == Error || type == PyExc_TypeError || type == PyExc_ValueError || type == PyExc_OverflowError)
      ? renamed(old, from, to, count)
      : NULL;
  PyObject* arguments = text ? PyTuple_Pack(1, text) : NULL;
  if (arguments) PyObject_SetAttrString(value, "args", arguments);
  PyObject* argument = arguments && type == Error ? PyObject_GetAttrString(value, "argument") : NULL;
  if (argument && PyUnicode_Check(argument)) {
    PyObject* name = renamed(argument, from, to, count);
    if (name) PyObject_SetAttrString(value, "argument", name);
    Py_XDECREF(name);
  }
  Py_XDECREF(argument);
  Py_XDECREF(arguments);
  Py_XDECREF(text);
  Py_XDECREF(old);
  PyErr_Clear();
  PyErr_Restore(type, value, trace);
}
