/* One call of a function, its arguments in their places: numbers, sizes, operands, what is made for the call; then the
   call without the interpreter lock, and its results as objects. */
#include "binding.h"

int read_numbers(Frame* x)
{
  const Function* f = x->f;
  for (int i = 0; i < f->count; i++) {
    const Parameter* p = &f->parameters[i];
    double* n = x->values[i].numbers;
    if (p->role == NUMBER || p->role == SIZE) {
      if (p->is_region) x->region = &x->values[i];
      if (is_given(x, i)) {
        if (scalar(x->given[i], p->letter, n)) return in_argument(f, p);
      } else if (!p->is_zero && p->image < 0 && p->whole < 0 && !p->optional && !p->count) {
        return missing(f, p);
      }
      fill(&x->slots[i], p->letter, n);
    } else if (p->role == RECORD && !p->size) {
      if (!is_given(x, i)) return missing(f, p);
      Record* record = (Record*)x->given[i];
      if (Py_TYPE(x->given[i]) != RecordType || strcmp(record->kind, p->record))
        return PyErr_Format(PyExc_TypeError, "%s: %s must be a record %s", f->name, p->name, p->record), -1;
      if (!record->pointer) return PyErr_Format(PyExc_ValueError, "%s: %s has been released", f->name, p->name), -1;
      x->slots[i].p = record->pointer;
      x->maker = record->made;
    } else if (p->role == IN && is_given(x, i) && p->memory->element != Ppointer && !p->memory->planes &&
               (PyTuple_Check(x->given[i]) || PyList_Check(x->given[i]))) {
      /* small arrays may take part in formulas */
      const Py_ssize_t items = PySequence_Size(x->given[i]);
      for (Py_ssize_t k = 0; k < items && k < MAX_NUMBERS; k++) {
        PyObject* item = PySequence_GetItem(x->given[i], k);
        if (item && PyLong_Check(item)) n[k] = PyLong_AsDouble(item);
        Py_XDECREF(item);
        PyErr_Clear();
      }
    } else if (p->role == IN && is_given(x, i) && p->memory->element != Ppointer && !p->memory->planes) {
      View* v = view_of(x->call, x->given[i], 0);
      if (!v) PyErr_Clear();
      for (Py_ssize_t k = 0; v && !v->is_foreign && v->ndim == 1 && k < v->shape[0] && k < MAX_NUMBERS; k++)
        n[k] = load(v->data + k * v->strides[0], v->element);
    }
  }
  return deduce_counts(x);
}

/* Asks the function that tells the size of a block; below 0: exception, or the query's error in `status`. */
static long long ask_size(Frame* x, const Link* link, int* status)
{
  const Function* q = &functions[link->function];
  Slot slots[MAX_PARAMETERS], result;
  Numbers values[MAX_PARAMETERS];
  double outputs[MAX_PARAMETERS];
  memset(values, 0, sizeof values);
  memset(slots, 0, sizeof slots);
  memset(outputs, 0, sizeof outputs);
  for (int i = 0; i < q->count; i++) {
    const Parameter* p = &q->parameters[i];
    if (p->example) memcpy(values[i].numbers, p->example, sizeof values[i].numbers);
    if (p->role == OUT) slots[i].p = &outputs[i];
    if (p->role == RECORD)
      for (int k = 0; k < x->f->count; k++)
        if (x->f->parameters[k].role == RECORD) slots[i].p = x->slots[k].p;
  }
  for (int i = 0; i < link->passings; i++)
    values[link->passing[i].argument].numbers[link->passing[i].part] =
      formulas[link->passing[i].formula](context_of(x, 0));
  for (int i = 0; i < q->count; i++)
    if (q->parameters[i].role == NUMBER || q->parameters[i].role == SIZE)
      fill(&slots[i], q->parameters[i].letter, values[i].numbers);
  trampolines[q->trampoline](q->call, slots, &result);
  *status = result.i;
  int bytes;
  memcpy(&bytes, &outputs[link->output], sizeof bytes);
  return bytes;
}

static int place_operands(Frame* x, int make)
{
  const Function* f = x->f;
  for (int i = 0; i < f->count; i++)
    if (f->parameters[i].role == IMAGE && place_image(x, i, make)) return -1;
  for (int i = 0; i < f->count; i++) {
    const Parameter* p = &f->parameters[i];
    if ((p->role == IN || p->role == OUT) && place_array(x, i)) return -1;
    if (p->role == MADE) {
      x->pointers[i][0] = NULL;
      x->slots[i].p = &x->pointers[i][0];
    }
  }
  for (int i = 0; i < f->count; i++) { /* queries look at everything else */
    const Parameter* p = &f->parameters[i];
    if (!p->size) continue;
    int status = 0;
    long long bytes = ask_size(x, p->size, &status);
    /* where the query refuses, so does the call: it gets a small block and says why */
    if (status < 0 || bytes < 0) bytes = 64;
    if (!(x->slots[i].p = new_block(x->call, (size_t)bytes, 64))) return -1;
    if (p->role == RECORD) memset(x->slots[i].p, 0, (size_t)bytes);
    if (p->role == RECORD) x->pointers[i][0] = x->slots[i].p;
  }
  return 0;
}

/* ---- What comes of it ---- */

static PyObject* made_record(Frame* x, int i)
{
  const Parameter* p = &x->f->parameters[i];
  void* block = NULL;
  if (p->role == RECORD) { /* the block is the record's from now on */
    for (int k = 0; k < x->call->block_count; k++)
      if (x->call->blocks[k] == x->pointers[i][0]) block = x->call->blocks[k];
  }
  Record* record = new_record(p->record, x->pointers[i][0], NULL, p->role == MADE ? x->f->release : -1);
  if (!record) return NULL;
  memcpy(record->made, x->values, sizeof record->made);
  for (int k = 0; k < x->call->block_count && block; k++)
    if (x->call->blocks[k] == block) x->call->blocks[k] = NULL;
  record->block = block;
  return (PyObject*)record;
}

static PyObject* collect(Frame* x)
{
  const Function* f = x->f;
  PyObject* found[MAX_PARAMETERS];
  int n = 0;
  for (int i = 0; i < f->count; i++) {
    const Parameter* p = &f->parameters[i];
    PyObject* o = x->call->results[i];
    x->call->results[i] = NULL;
    if (p->role == MADE || (p->role == RECORD && p->size)) {
      o = made_record(x, i);
    } else if (p->role == OUT && !o && (!is_given(x, i) || (p->memory->is_read && is_number(x->given[i])))) {
      const Py_ssize_t total = numbers_in(x, p->memory, 0);
      const int size = element_bytes[p->memory->element];
      if (total == 1) {
        o = number_object(x->pointers[i][0], p->memory->element);
      } else if ((o = PyTuple_New(total))) {
        for (Py_ssize_t k = 0; k < total; k++)
          PyTuple_SetItem(o, k, number_object((char*)x->pointers[i][0] + k * size, p->memory->element));
      }
    } else if (!o) {
      continue;
    }
    if (!o) {
      while (n) Py_DECREF(found[--n]);
      return NULL;
    }
    found[n++] = o;
  }
  if (n == 0) return Py_NewRef(Py_None);
  if (n == 1) return found[0];
  PyObject* tuple = PyTuple_New(n);
  for (int i = 0; i < n; i++) {
    if (tuple) PyTuple_SetItem(tuple, i, found[i]);
    else Py_DECREF(found[i]);
  }
  return tuple;
}

static PyObject* version_record(const ZorVersionRecord* v)
{
  return Py_BuildValue("{s:i,s:i,s:i,s:i,s:s#,s:s,s:s,s:s}", "major", v->major, "minor", v->minor, "majorBuild",
                       v->majorBuild, "build", v->build, "targetCpu", v->targetCpu,
                       (Py_ssize_t)strnlen(v->targetCpu, 4), "name", v->name, "version", v->version, "buildDate",
                       v->buildDate);
}

/* The call with its arguments in their places. `make`: destinations that were not given are made. */
PyObject* invoke(const Function* f, Call* call, PyObject** given, int make)
{
  Frame x;
  x.f = f;
  x.call = call;
  x.given = given;
  x.region = x.maker = NULL;
  memset(x.slots, 0, sizeof(Slot) * (size_t)(f->count ? f->count : 1));
  memset(x.values, 0, sizeof(Numbers) * (size_t)(f->count ? f->count : 1));
  memset(x.pointers, 0, sizeof x.pointers[0] * (size_t)(f->count ? f->count : 1));
  const char result_kind = returned[f->trampoline];
  if (result_kind == 'p' && f->count == 0) return version_record(zoriGetLibVersion());
  if (result_kind == 'v') return free_memory(f, given[0]);
  if (result_kind == 'p') return read_numbers(&x) ? NULL : make_memory(&x);
  if (read_numbers(&x) || read_images(&x) || deduce_sizes(&x) || place_operands(&x, make)) return NULL;
  Slot result = {0};
  Py_BEGIN_ALLOW_THREADS trampolines[f->trampoline](f->call, x.slots, &result);
  Py_END_ALLOW_THREADS if (f->releases && f->count == 1 && f->parameters[0].role == RECORD && result.i == 0)
  {
    Record* record = (Record*)given[0];
    record->pointer = NULL;
  }
  if (result.i < 0) {
    raise_error(&x, result.i);
    return NULL;
  }
  if (result.i > 0 && warn(f, result.i)) return NULL;
  return collect(&x);
}
