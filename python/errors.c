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
