/* Arrays in their places: numbers that are read or made, rows behind pointers, rows with a margin; and the counts that
   their shapes tell. */
#include "binding.h"

static int holds_numbers(const View* v, const Memory* m)
{
  const Element e = m->element == Ppointer ? E32f : m->element; /* rows are of one type in all functions */
  return !v->is_foreign && v->element == e && (!v->is_complex || m->count == 2);
}

static int refuse_numbers(const Function* f, const Parameter* p)
{
  const Memory* m = p->memory;
  if (m->element == Ppointer)
    PyErr_Format(PyExc_TypeError, "%s: %s must be rows of float32, or an array (h, w) of it; nothing is cast silently",
                 f->name, p->name);
  else
    PyErr_Format(PyExc_TypeError, "%s: %s must hold %s%s; nothing is cast silently", f->name, p->name,
                 element_names[m->element], m->has_margin ? " in a row" : "");
  return -1;
}

/* An array of numbers that is read: a buffer of its type whose items adjoin, or a sequence. */
static int place_input(Frame* x, int i, int plane, PyObject* object, Py_ssize_t total)
{
  const Function* f = x->f;
  const Parameter* p = &f->parameters[i];
  const Memory* m = p->memory;
  const int size = element_bytes[m->element];
  if (PyTuple_Check(object) || PyList_Check(object) || is_number(object) || Py_TYPE(object) == &PyRange_Type) {
    char* block = new_block(x->call, (size_t)total * size, 16);
    if (!block) return -1;
    memset(block, 0, (size_t)total * size);
    const Py_ssize_t have = flatten(object, m, block, 0, total);
    if (have < 0) return in_argument(f, p);
    if (have != total)
      return PyErr_Format(PyExc_ValueError, "%s: %s must hold %zd numbers", f->name, p->name, total), -1;
    x->pointers[i][plane] = block;
    return 0;
  }
  View* v = view_of(x->call, object, m->is_written);
  if (!v) return in_argument(f, p);
  if (!holds_numbers(v, m)) return refuse_numbers(f, p);
  if (!is_contiguous(v))
    return PyErr_Format(PyExc_ValueError, "%s: the numbers of %s must adjoin", f->name, p->name), -1;
  if (items_in(v) * v->itemsize < total * size)
    return PyErr_Format(PyExc_ValueError, "%s: %s must hold %zd numbers", f->name, p->name, total), -1;
  x->pointers[i][plane] = v->data;
  return 0;
}

Py_ssize_t numbers_in(const Frame* x, const Memory* m, int plane)
{
  const Reach r = reach_of(m, context_of(x, plane), x->region);
  const double total = (r.width + r.left + r.right) * (r.height < 1 ? 1 : r.height + r.top + r.bottom) * m->count;
  return total < 0 || total > 1e10 ? 0 : (Py_ssize_t)total;
}

/* An array of row pointers: a 2-D array, or (array, x, y) for the part of it that begins there, or a sequence of rows.
 */
static int place_rows(Frame* x, int i)
{
  const Function* f = x->f;
  const Parameter* p = &f->parameters[i];
  const Memory* m = p->memory;
  const Reach r = reach_of(m, context_of(x, 0), NULL);
  Image place;
  PyObject* object = split_origin(x->given[i], &place);
  const int is_sequence = PyTuple_Check(object) || PyList_Check(object);
  const double have = is_sequence ? (double)PySequence_Size(object) : r.height;
  if (is_sequence && (place.has_origin || have < r.height))
    return PyErr_Format(PyExc_ValueError, "%s: %s must be %zd rows, or a 2-D array", f->name, p->name,
                        (Py_ssize_t)r.height),
           -1;
  const char** rows = new_block(x->call, r.height < 1 ? 0 : (size_t)r.height * sizeof *rows, sizeof *rows);
  if (!rows) return -1;
  for (Py_ssize_t k = 0; k < (Py_ssize_t)r.height && r.width >= 1; k++) { /* of nothing the call says what is amiss */
    PyObject* row = is_sequence ? PySequence_GetItem(object, k) : Py_NewRef(object);
    View* v = row ? view_of(x->call, row, 0) : NULL;
    Py_XDECREF(row); /* the view has it */
    if (!v) return in_argument(f, p);
    const int last = v->ndim - 1;
    if (last != !is_sequence) return refuse_numbers(f, p);
    if (!holds_numbers(v, m)) return refuse_numbers(f, p);
    if (v->shape[last] > 1 && v->strides[last] != v->itemsize)
      return PyErr_Format(PyExc_ValueError, "%s: the numbers of a row of %s must adjoin", f->name, p->name), -1;
    if ((double)v->shape[last] - (double)place.left < r.width ||
        (!is_sequence && (double)v->shape[0] - (double)place.top < r.height))
      return PyErr_Format(PyExc_ValueError, "%s: %s is too small: %zd rows of %zd numbers are needed", f->name, p->name,
                          (Py_ssize_t)r.height, (Py_ssize_t)r.width),
             -1;
    if (is_sequence) rows[k] = v->data;
    for (; !is_sequence && k < (Py_ssize_t)r.height; k++)
      rows[k] = v->data + (place.top + k) * v->strides[0] + place.left * v->itemsize;
  }
  x->slots[i].p = (void*)rows;
  return 0;
}

/* A row that is read beyond its ends: an array that begins with the margin, or (array, x) with the place of the row. */
static int place_row(Frame* x, int i)
{
  const Function* f = x->f;
  const Parameter* p = &f->parameters[i];
  const Reach r = reach_of(p->memory, context_of(x, 0), NULL);
  PyObject* object = x->given[i];
  double left = r.left;
  if (PyTuple_Check(object) && PyTuple_Size(object) == 2 && PyLong_Check(PyTuple_GetItem(object, 1))) {
    left = PyLong_AsDouble(PyTuple_GetItem(object, 1));
    if (left == -1 && PyErr_Occurred()) return in_argument(f, p);
    object = PyTuple_GetItem(object, 0);
  }
  View* v = view_of(x->call, object, 0);
  if (!v) return in_argument(f, p);
  if (!holds_numbers(v, p->memory) || v->ndim != 1) return refuse_numbers(f, p);
  if (!is_contiguous(v))
    return PyErr_Format(PyExc_ValueError, "%s: the numbers of %s must adjoin", f->name, p->name), -1;
  const double have = (double)v->shape[0];
  if (left < r.left || left + r.width + r.right > have)
    return PyErr_Format(PyExc_ValueError,
                        "%s: %s must have %zd numbers in front of the row, and %zd from its first on; it has %zd "
                        "and %zd",
                        f->name, p->name, (Py_ssize_t)r.left, (Py_ssize_t)(r.width + r.right),
                        (Py_ssize_t)(left < have ? left : have), (Py_ssize_t)(left < have ? have - left : 0)),
           -1;
  x->slots[i].p = x->pointers[i][0] = v->data + (Py_ssize_t)left * v->itemsize;
  return 0;
}

/* ---- Counts that arrays tell ---- */

typedef struct { /* what an array has: its items; rows and columns where it is one of two dimensions */
  Py_ssize_t items, rows, columns;
} Shape;

static int has_items(PyObject* o) { return PyTuple_Check(o) || PyList_Check(o); }

static int shape_of(Frame* x, PyObject* object, Shape* shape)
{
  *shape = (Shape){0, 0, 0};
  if (has_items(object) || Py_TYPE(object) == &PyRange_Type) {
    shape->items = PySequence_Size(object);
    PyObject* first = has_items(object) && shape->items ? PySequence_GetItem(object, 0) : NULL;
    Shape inner = {0, 0, 0};
    if (first && !is_number(first) && PySequence_Check(first) && shape_of(x, first, &inner)) PyErr_Clear();
    Py_XDECREF(first);
    if (inner.items) {
      shape->rows = shape->items;
      shape->columns = inner.items;
      shape->items *= inner.items;
    }
    return 0;
  }
  View* v = view_of(x->call, object, 0);
  if (!v) return -1;
  shape->items = items_in(v);
  if (v->ndim == 2) {
    shape->rows = v->shape[0];
    shape->columns = v->shape[1];
  }
  return 0;
}

/* What one array tells of an argument: how many numbers; 0: nothing, -1: an exception. */
static int told_by(Frame* x, const Count* c, double* n)
{
  PyObject* object = x->given[c->array];
  const Parameter* q = &x->f->parameters[c->array];
  const Memory* m = q->memory;
  Image place = {0};
  Shape shape;
  if (m->element == Ppointer) object = split_origin(object, &place);
  if (m->planes) {
    if (!has_items(object) || PySequence_Size(object) != m->planes) return 0; /* refused where it is placed */
    for (int k = 0; k < (c->telling == LENGTHS ? m->planes : 1); k++) {
      PyObject* plane = PySequence_GetItem(object, k);
      const int bad = !plane || shape_of(x, plane, &shape);
      Py_XDECREF(plane);
      if (bad) return in_argument(x->f, q);
      n[k] = (double)shape.items;
    }
    if (c->telling == LENGTHS) return m->planes;
  } else if (shape_of(x, object, &shape)) {
    return in_argument(x->f, q);
  }
  switch (c->telling) {
  case SIDES:
    n[0] = (double)shape.columns;
    n[1] = (double)shape.rows;
    return shape.rows ? 2 : 0;
  case ROWS: /* of a part, the weights tell it */ n[0] = (double)shape.rows; return shape.rows > 0 && !place.has_origin;
  case ROW_LENGTH: n[0] = (double)(shape.columns - place.left); return shape.columns > place.left;
  case SQUARE:
    n[0] = 0;
    while (n[0] * n[0] < (double)shape.items) n[0]++;
    return n[0] * n[0] == (double)shape.items;
  case BITS:
    n[0] = 0;
    while (n[0] < 31 && (double)c->times * (double)(1u << (int)n[0]) < (double)shape.items) n[0]++;
    return (double)c->times * (double)(1u << (int)n[0]) == (double)shape.items;
  default: n[0] = (double)shape.items; return 1;
  }
}

int deduce_counts(Frame* x)
{
  const Function* f = x->f;
  for (int i = 0; i < f->count; i++) {
    const Parameter* p = &f->parameters[i];
    double* n = x->values[i].numbers;
    int from = -1;
    if (!p->count || is_given(x, i)) continue;
    for (int k = 0; k < p->count; k++) {
      const Count* c = &p->counts[k];
      double told[MAX_NUMBERS];
      if (!is_given(x, c->array)) continue;
      const int numbers = told_by(x, c, told);
      if (numbers < 0) return -1;
      if (!numbers) continue;
      if (from >= 0 && memcmp(n, told, (size_t)numbers * sizeof *n))
        return PyErr_Format(PyExc_ValueError, "%s: %s and %s tell different numbers for %s", f->name,
                            f->parameters[from].name, f->parameters[c->array].name, p->name),
               -1;
      memcpy(n, told, (size_t)numbers * sizeof *n);
      from = c->array;
    }
    if (from < 0) {
      const Count* c = &p->counts[0];
      const char* of = f->parameters[c->array].name;
      if (!is_given(x, c->array)) return missing(f, p);
      return PyErr_Format(PyExc_TypeError, "%s: argument %s is missing: %s tells it only %s", f->name, p->name, of,
                          c->telling == SIDES     ? "as a 2-D array or as rows"
                          : c->telling == BITS    ? "with a power of two of entries"
                          : c->telling == SQUARE  ? "with as many rows as columns"
                          : c->telling == LENGTHS ? "as a list with an array a channel"
                                                  : "when it holds something"),
             -1;
    }
    for (int k = 0; k < MAX_NUMBERS; k++)
      if (n[k] > INT32_MAX)
        return PyErr_Format(PyExc_OverflowError, "%s: %s is too long", f->name, f->parameters[from].name), -1;
    if (p->role != IN) fill(&x->slots[i], p->letter, n);
  }
  return 0;
}

/* Counts that arrays told, as an array. */
static int place_counts(Frame* x, int i)
{
  int32_t* block = new_block(x->call, MAX_NUMBERS * sizeof *block, 16);
  if (!block) return -1;
  for (int k = 0; k < MAX_NUMBERS; k++) block[k] = (int32_t)x->values[i].numbers[k];
  x->slots[i].p = x->pointers[i][0] = block;
  return 0;
}

/* ---- Any array ---- */

int place_array(Frame* x, int i)
{
  const Parameter* p = &x->f->parameters[i];
  const Memory* m = p->memory;
  if (!is_given(x, i) && p->optional) return 0;
  if (!is_given(x, i) && p->count) return place_counts(x, i);
  if (!is_given(x, i) && p->role == IN) return missing(x->f, p);
  if (m->element == Ppointer) return place_rows(x, i);
  if (is_given(x, i) && p->role == IN && m->has_margin) return place_row(x, i);
  const int n = m->planes ? m->planes : 1;
  if (m->planes && is_given(x, i) && (!PySequence_Check(x->given[i]) || PySequence_Size(x->given[i]) != n))
    return PyErr_Format(PyExc_TypeError, "%s: %s must be a sequence of %d arrays", x->f->name, p->name, n), -1;
  PyObject* made = NULL;
  if (!is_given(x, i) && m->planes && !(made = x->call->results[i] = PyList_New(n))) return -1;
  for (int k = 0; k < n; k++) {
    const Py_ssize_t total = numbers_in(x, m, k);
    PyObject* object = x->given[i];
    if (is_given(x, i) && p->role == OUT && m->is_read && is_number(object)) { /* a seed */
      double number;
      if (number_of(object, m->element, &number)) return in_argument(x->f, p);
      if (!(x->pointers[i][k] = new_block(x->call, (size_t)total * element_bytes[m->element], 16))) return -1;
      for (Py_ssize_t j = 0; j < total; j++)
        store((char*)x->pointers[i][k] + j * element_bytes[m->element], m->element, number);
      continue;
    }
    if (is_given(x, i)) {
      PyObject* own = m->planes ? PySequence_GetItem(object, k) : Py_NewRef(object);
      if (!own) return -1;
      const int bad = place_input(x, i, k, own, total);
      Py_DECREF(own); /* its sequence keeps it */
      if (bad) return -1;
      continue;
    }
    if (m->is_read) return missing(x->f, p);
    if (total == 1 && !m->planes) { /* a number to return */
      if (!(x->pointers[i][k] = new_block(x->call, 16, 16))) return -1;
      memset(x->pointers[i][k], 0, 16);
      continue;
    }
    const int is_complex = m->count == 2 && (m->element == E32f || m->element == E64f);
    Py_ssize_t shape[2] = {m->dimensions[0], m->dimensions[1]};
    const int dims = m->dimensions[1] ? 2 : 1;
    if (dims == 1) shape[0] = is_complex ? total / 2 : total;
    PyObject* array = new_array(m->element, is_complex, dims, shape, 1);
    if (!array) return -1;
    View* v = view_of(x->call, array, 1);
    if (v) x->pointers[i][k] = v->data;
    if (made) PyList_SetItem(made, k, array);
    else x->call->results[i] = array;
    if (!v) return -1;
  }
  x->slots[i].p = m->planes ? (void*)x->pointers[i] : x->pointers[i][0];
  return 0;
}
