/* margins(): how far a call would read beyond its region, from the arguments that tell it. */
#include "binding.h"

/* The function of a name, or the first of an operation, and which of its arguments the keywords are; -1: there is none,
   -2: it has no such arguments. */
static int known_function(PyObject* name, PyObject* names, signed char* place, const Signature** by)
{
  const Py_ssize_t keys = names ? PyTuple_Size(names) : 0;
  const char* text = PyUnicode_AsUTF8AndSize(name, NULL);
  for (int i = 0; text && i < function_count; i++) {
    if (strcmp(functions[i].name, text)) continue;
    for (Py_ssize_t k = 0; k < keys; k++) {
      place[k] = 0;
      while (place[k] < functions[i].count &&
             PyUnicode_CompareWithASCIIString(PyTuple_GetItem(names, k), functions[i].parameters[place[k]].name))
        place[k]++;
      if (place[k] == functions[i].count) return -2;
    }
    return i;
  }
  for (int i = 0; text && i < operation_count; i++) {
    if (strcmp(operations[i].name, text)) continue;
    for (int s = 0; s < operations[i].count; s++) {
      const Signature* signature = &operations[i].signatures[s];
      const Candidate* c = &signature->candidates[0];
      Py_ssize_t k = 0;
      for (; k < keys; k++) {
        int a = 0;
        while (a < signature->count &&
               PyUnicode_CompareWithASCIIString(PyTuple_GetItem(names, k), signature->named[a].name))
          a++;
        if (a == signature->count) break;
        place[k] = c->map[a];
      }
      *by = signature;
      if (k == keys) return c->function;
    }
    return -2;
  }
  return -1;
}

PyObject* margins(PyObject* module, PyObject* const* args, Py_ssize_t n, PyObject* names)
{
  (void)module;
  const Py_ssize_t keys = names ? PyTuple_Size(names) : 0;
  if (n != 1 || keys > MAX_PARAMETERS) return PyErr_Format(PyExc_TypeError, "margins(name, **arguments)");
  PyObject* name = PyUnicode_Check(args[0]) ? Py_NewRef(args[0]) : PyObject_GetAttrString(args[0], "__name__");
  signed char place[MAX_PARAMETERS];
  Numbers values[MAX_PARAMETERS];
  Context context = {values, NULL, 0};
  const Signature* signature = NULL; /* of an operation, that of its first function */
  int told = 0, sides[4] = {0};
  if (!name) return NULL;
  const int index = known_function(name, names, place, &signature);
  Py_DECREF(name);
  if (index < 0)
    return index == -1 ? PyErr_Format(PyExc_KeyError, "%R", args[0])
                       : PyErr_Format(PyExc_TypeError, "%S has no such arguments", args[0]);
  const Function* f = &functions[index];
  memset(values, 0, sizeof values);
  for (Py_ssize_t k = 0; k < keys; k++) {
    const Parameter* p = &f->parameters[place[k]];
    if (p->role == RECORD && Py_TYPE(args[1 + k]) == RecordType) {
      context.maker = ((Record*)args[1 + k])->made;
    } else if (p->role == NUMBER || p->role == SIZE) {
      if (scalar(args[1 + k], p->letter, values[place[k]].numbers)) return in_argument(f, p), NULL;
    } else {
      continue;
    }
    told |= 1 << place[k];
  }
  for (int i = 0; i < f->count; i++) {
    const Memory* m = f->parameters[i].role == IMAGE ? f->parameters[i].memory : NULL;
    if (!m || !m->has_margin) continue;
    for (int a = 0; a < f->count; a++)
      if (m->margin_arguments & ~told & 1 << a) {
        const char* wanted = f->parameters[a].name;
        for (int k = 0; signature && k < signature->count; k++)
          if (signature->candidates[0].map[k] == a) wanted = signature->named[k].name;
        return PyErr_Format(PyExc_TypeError, "the margins of %S follow from %s: tell it", args[0], wanted);
      }
    const Reach r = reach_of(m, context, NULL);
    const double reach[4] = {r.left, r.top, r.right, r.bottom};
    for (int s = 0; s < 4; s++)
      if (reach[s] > sides[s]) sides[s] = reach[s] < INT32_MAX ? (int)reach[s] : INT32_MAX;
  }
  return Py_BuildValue("(iiii)", sides[0], sides[1], sides[2], sides[3]);
}
