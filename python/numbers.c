/* Numbers: from Python to the arguments and arrays of C, and back. Nothing is rounded or cut: what does not fit is an
   exception. */
#include "binding.h"
#include <math.h>

int is_number(PyObject* o) { return PyLong_Check(o) || PyFloat_Check(o) || PyComplex_Check(o); }

static int whole_number(PyObject* o, double low, double high, double* out)
{
  int overflow = 0;
  long long n;
  if (PyLong_CheckExact(o)) {
    n = PyLong_AsLongLongAndOverflow(o, &overflow);
  } else {
    PyObject* index = PyNumber_Index(o);
    if (!index) return -1;
    n = PyLong_AsLongLongAndOverflow(index, &overflow);
    Py_DECREF(index);
  }
  if (n == -1 && PyErr_Occurred()) return -1;
  if (overflow || n < low || n > high) {
    PyErr_Format(PyExc_OverflowError, "%R is not of the argument's type", o);
    return -1;
  }
  *out = (double)n;
  return 0;
}

static const double lows[] = {0, 0, -128, 0, -32768, 0, -2147483648.0, -9223372036854775808.0};
static const double highs[] = {255, 255, 127, 65535, 32767, 4294967295.0, 2147483647, 9223372036854774784.0};

int number_of(PyObject* o, Element e, double* out)
{
  if (e == E32f || e == E64f) {
    *out = PyFloat_AsDouble(o);
    return *out == -1 && PyErr_Occurred() ? -1 : 0;
  }
  return whole_number(o, lows[e], highs[e], out);
}

void store(void* to, Element e, double n)
{
  switch (e) {
  case E1u:
  case E8u: *(uint8_t*)to = (uint8_t)n; break;
  case E8s: *(int8_t*)to = (int8_t)n; break;
  case E16u: *(uint16_t*)to = (uint16_t)n; break;
  case E16s: *(int16_t*)to = (int16_t)n; break;
  case E32u: *(uint32_t*)to = (uint32_t)n; break;
  case E32s: *(int32_t*)to = (int32_t)n; break;
  case E64s: *(int64_t*)to = (int64_t)n; break;
  case E32f: *(float*)to = (float)n; break;
  default: *(double*)to = n;
  }
}

double load(const void* from, Element e)
{
  switch (e) {
  case E1u:
  case E8u: return *(const uint8_t*)from;
  case E8s: return *(const int8_t*)from;
  case E16u: return *(const uint16_t*)from;
  case E16s: return *(const int16_t*)from;
  case E32u: return *(const uint32_t*)from;
  case E32s: return *(const int32_t*)from;
  case E64s: return (double)*(const int64_t*)from;
  case E32f: return *(const float*)from;
  default: return *(const double*)from;
  }
}

PyObject* number_object(const void* from, Element e)
{
  if (e == E64s) return PyLong_FromLongLong(*(const int64_t*)from);
  return e == E32f || e == E64f ? PyFloat_FromDouble(load(from, e)) : PyLong_FromLongLong((long long)load(from, e));
}

/* n whole numbers of a tuple or list */
static int whole_numbers(PyObject* o, int n, double* out)
{
  if (!(PyTuple_Check(o) || PyList_Check(o)) || PySequence_Size(o) != n) {
    PyErr_Format(PyExc_TypeError, "%R is no tuple of %d whole numbers", o, n);
    return -1;
  }
  for (int i = 0; i < n; i++) {
    PyObject* item = PyTuple_Check(o) ? PyTuple_GetItem(o, i) : PyList_GetItem(o, i);
    if (!item || whole_number(item, lows[E32s], highs[E32s], &out[i])) return -1;
  }
  return 0;
}

static int complex_of(PyObject* o, Element e, double* out)
{
  if (PyTuple_Check(o) && PyTuple_Size(o) == 2)
    return number_of(PyTuple_GetItem(o, 0), e, &out[0]) || number_of(PyTuple_GetItem(o, 1), e, &out[1]) ? -1 : 0;
  out[0] = PyComplex_RealAsDouble(o);
  out[1] = PyComplex_ImagAsDouble(o);
  if (PyErr_Occurred()) return -1;
  for (int i = 0; i < 2 && e < E32f; i++)
    if (out[i] != floor(out[i]) || out[i] < lows[e] || out[i] > highs[e]) {
      PyErr_Format(PyExc_OverflowError, "%R is not of the argument's type", o);
      return -1;
    }
  return 0;
}

int scalar(PyObject* o, char letter, double* n)
{
  switch (letter) {
  case 'b': return number_of(o, E8u, n);
  case 'h': return number_of(o, E16s, n);
  case 'H': return number_of(o, E16u, n);
  case 'I': return number_of(o, E32u, n);
  case 'f': return number_of(o, E32f, n);
  case 'd': return number_of(o, E64f, n);
  case 's': return whole_numbers(o, 2, n);
  case 'r': return whole_numbers(o, 4, n);
  case 'c': return complex_of(o, E16s, n);
  case 'C': return complex_of(o, E32s, n);
  case 'F': return complex_of(o, E32f, n);
  default: return number_of(o, E32s, n);
  }
}

void fill(Slot* slot, char letter, const double* n)
{
  switch (letter) {
  case 'b': slot->b = (Zor8u)n[0]; break;
  case 'h': slot->h = (Zor16s)n[0]; break;
  case 'H': slot->H = (Zor16u)n[0]; break;
  case 'I': slot->I = (Zor32u)n[0]; break;
  case 'f': slot->f = (float)n[0]; break;
  case 'd': slot->d = n[0]; break;
  case 's': slot->s = (ZorImgSize){(int)n[0], (int)n[1]}; break;
  case 'r': slot->r = (ZorImgRect){(int)n[0], (int)n[1], (int)n[2], (int)n[3]}; break;
  case 'c': slot->c = (Zor16sc){(Zor16s)n[0], (Zor16s)n[1]}; break;
  case 'C': slot->C = (Zor32sc){(Zor32s)n[0], (Zor32s)n[1]}; break;
  case 'F': slot->F = (Zor32fc){(float)n[0], (float)n[1]}; break;
  default: slot->i = (int)n[0];
  }
}

/* The items of a sequence, nested ones too, into an array of `room` numbers; -1 with an exception when they are others.
 */
Py_ssize_t flatten(PyObject* o, const Memory* m, char* to, Py_ssize_t at, Py_ssize_t room)
{
  const int size = element_bytes[m->element];
  double n[2];
  if (m->count == 2 && m->element != E8u &&
      (PyComplex_Check(o) || is_number(o) || (PyTuple_Check(o) && PyTuple_Size(o) == 2))) {
    if (at + 2 > room) return room + 1;
    if (complex_of(o, m->element, n)) return -1;
    for (int i = 0; i < 2; i++) store(to + (at + i) * size, m->element, n[i]);
    return at + 2;
  }
  if (PySequence_Check(o) && !PyUnicode_Check(o)) {
    const Py_ssize_t items = PySequence_Size(o);
    for (Py_ssize_t i = 0; i < items && at >= 0 && at <= room; i++) {
      PyObject* item = PySequence_GetItem(o, i);
      if (!item) return -1;
      at = flatten(item, m, to, at, room);
      Py_DECREF(item);
    }
    return items < 0 ? -1 : at;
  }
  if (at >= room) return room + 1;
  if (number_of(o, m->element, n)) return -1;
  store(to + at * size, m->element, n[0]);
  return at + 1;
}
