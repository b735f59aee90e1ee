/* Which function a call means: by C name the one, by operation the one whose types and layouts the operands have. What
   was chosen is remembered with the kinds of the operands, so that a call like an earlier one need not choose. */
#include "binding.h"

enum { OPTIONS = 3, REMEMBERED = 4 };

static int same_name(PyObject* key, const char* name)
{
  Py_ssize_t length;
  const char* text = PyUnicode_AsUTF8AndSize(key, &length);
  return text && !strcmp(text, name);
}

static int is_hidden(const Parameter* p)
{
  return p->role == STEP || p->role == BUFFER || p->role == MADE || (p->role == RECORD && p->size);
}

PyObject* call_function(PyObject* self, PyObject* const* args, Py_ssize_t n, PyObject* names)
{
  const Function* f = &functions[((Entry*)self)->index];
  PyObject* given[MAX_PARAMETERS] = {NULL};
  int at = 0;
  for (int i = 0; i < f->count; i++)
    if (!is_hidden(&f->parameters[i]) && at < n) given[i] = args[at++];
  if (at < n) return PyErr_Format(PyExc_TypeError, "too many arguments: %s", f->signature);
  const Py_ssize_t keys = names ? PyTuple_Size(names) : 0;
  for (Py_ssize_t k = 0; k < keys; k++) {
    PyObject* key = PyTuple_GetItem(names, k);
    int i = 0;
    while (i < f->count && (is_hidden(&f->parameters[i]) || !same_name(key, f->parameters[i].name))) i++;
    if (i == f->count || given[i])
      return PyErr_Format(PyExc_TypeError, "no argument %R, or twice: %s", key, f->signature);
    given[i] = args[n + k];
  }
  Call call;
  begin_call(&call);
  PyObject* result = invoke(f, &call, given, 0);
  finish_call(&call);
  return result;
}

/* ---- An operation's arguments ---- */

typedef struct { /* keywords that choose, and are no argument of a function */
  int skip_alpha;
  PyObject *border, *dtype;
} Options;

typedef enum { BOUND, UNKNOWN, TWICE, TOO_MANY, MISSING } Binding; /* the later, the nearer to a call */
typedef struct {
  Binding what;
  PyObject* key; /* borrowed */
  const char* name;
} Amiss;

/* Binds the arguments to a signature's names, or tells what is amiss. `place`: where each argument went. */
static Amiss bind_arguments(const Operation* op, const Signature* s, PyObject* const* args, Py_ssize_t n,
                            PyObject* names, PyObject** bound, signed char* place, Options* options)
{
  int at = 0;
  *options = (Options){0, NULL, NULL};
  for (int i = 0; i < s->count; i++) {
    bound[i] = NULL;
    if (s->named[i].positional && at < n) {
      place[at] = (signed char)i;
      bound[i] = args[at++];
    }
  }
  if (at < n) return (Amiss){TOO_MANY, NULL, NULL};
  const Py_ssize_t keys = names ? PyTuple_Size(names) : 0;
  for (Py_ssize_t k = 0; k < keys; k++) {
    PyObject *key = PyTuple_GetItem(names, k), *value = args[n + k];
    int i = 0;
    while (i < s->count && !same_name(key, s->named[i].name)) i++;
    place[n + k] = i < s->count ? (signed char)i : -1;
    if (i < s->count && !bound[i]) bound[i] = value;
    else if (i < s->count) return (Amiss){TWICE, key, NULL};
    else if (same_name(key, "skip_alpha")) options->skip_alpha = PyObject_IsTrue(value) == 1;
    else if (op->takes_border && same_name(key, "border")) options->border = value == Py_None ? NULL : value;
    else if (op->takes_dtype && same_name(key, "dtype")) options->dtype = value == Py_None ? NULL : value;
    else if (value != Py_None) return (Amiss){UNKNOWN, key, NULL};
  }
  for (int i = 0; i < s->count; i++)
    if (s->named[i].required && (!bound[i] || bound[i] == Py_None)) return (Amiss){MISSING, NULL, s->named[i].name};
  return (Amiss){BOUND, NULL, NULL};
}

/* The element type that `dtype` names; -1 with an exception. */
static int element_of(PyObject* dtype, int* is_complex)
{
  PyObject* numpy = import_numpy();
  PyObject* type = numpy ? PyObject_CallMethod(numpy, "dtype", "O", dtype) : NULL;
  PyObject* name = type ? PyObject_GetAttrString(type, "name") : NULL;
  int found = -1;
  if (name) {
    *is_complex = same_name(name, "complex64") || same_name(name, "complex128");
    if (*is_complex) found = same_name(name, "complex64") ? E32f : E64f;
    for (int e = E8u; e <= E64f && found < 0; e++)
      if (same_name(name, element_names[e])) found = e;
    if (found < 0) PyErr_Format(PyExc_TypeError, "no image has elements of dtype %R", dtype);
  }
  Py_XDECREF(type);
  Py_XDECREF(name);
  return found;
}

/* Whether the images (and constants, where they tell) are a function's; 2: of its type, but not to be used so. `at`:
   the first argument that is none of its. */
static int fits(Call* call, const Function* f, PyObject** given, int* image_count, int* at)
{
  Image planes[MAX_PLANES];
  int loosely = 0;
  *image_count = 0;
  for (int i = 0; i < f->count; i++) {
    const Parameter* p = &f->parameters[i];
    PyObject* o = given[i];
    *at = i;
    if (!o || o == Py_None) continue;
    if (p->role == IMAGE) {
      const Sight sight = see_image(call, o, p->memory, planes);
      if (sight != SEEN && sight != GAPS && sight != READ_ONLY && sight != UNLIKE) return 0;
      loosely |= sight != SEEN;
      if (sight != SEEN && p->memory->one_channel) return 0;
      ++*image_count;
    } else if (p->role == IN || p->role == OUT) {
      const Memory* m = p->memory;
      if (is_number(o) && m->is_read && !m->is_written) return 0;
      if (!m->planes && m->element != Ppointer && !PyTuple_Check(o) && !PyList_Check(o) && !is_number(o)) {
        View* v = view_of(call, o, 0);
        if (!v) PyErr_Clear();
        else if (v->is_foreign || v->element != m->element) return 0;
      }
    } else if (p->role == NUMBER && p->letter != 'p' && (PyTuple_Check(o) || PyList_Check(o)) &&
               !strchr("srcCF", p->letter)) {
      return 0;
    } else if (p->role == RECORD) {
      if (Py_TYPE(o) != RecordType || strcmp(((Record*)o)->kind, p->record)) return 0;
    }
  }
  return loosely ? 2 : 1;
}

/* ---- What is remembered ---- */

typedef struct {
  const Candidate* candidate; /* null: empty */
  const Signature* signature;
  PyObject *names, *dtype; /* owned */
  int count;
  uint64_t kinds[MAX_PARAMETERS + OPTIONS];
  signed char place[MAX_PARAMETERS + OPTIONS]; /* argument of the call -> parameter; -1: none */
  signed char border;                          /* argument of the call, -1: none */
} Remembered;
typedef struct {
  Remembered calls[REMEMBERED];
  int next;
} Memo;
static Memo** memos; /* an operation each, made when it is called first */

enum { NOTHING = 1, NUMERIC, TEXT, BOOLEAN, TYPE, NUMBERS = 8, ARRAY = 16, WITH_PLACE = 32 };

/* All of an operand that the choice looks at, in a word; 0: it looks at more. */
static uint64_t kind_of(Call* call, PyObject* o)
{
  PyTypeObject* type = Py_TYPE(o);
  if (o == Py_None) return NOTHING;
  if (type == &PyLong_Type || type == &PyFloat_Type || type == &PyComplex_Type) return NUMERIC;
  if (type == &PyUnicode_Type) return TEXT;
  if (type == &PyBool_Type) return o == Py_True ? BOOLEAN | 1ull << 32 : BOOLEAN;
  if (PyType_GetFlags(type) & Py_TPFLAGS_TYPE_SUBCLASS) return TYPE;
  if (type == RecordType) return 1ull << 63 | (uintptr_t)((Record*)o)->kind;
  if (type == &PyTuple_Type || type == &PyList_Type) {
    const Py_ssize_t n = PySequence_Size(o);
    if (n < 1) return 0;
    PyObject* first = type == &PyTuple_Type ? PyTuple_GetItem(o, 0) : PyList_GetItem(o, 0);
    if (Py_TYPE(first) == &PyLong_Type || Py_TYPE(first) == &PyFloat_Type) return NUMBERS | (uint64_t)n << 32;
    if (type != &PyTuple_Type || n != 3 || Py_TYPE(PyTuple_GetItem(o, 1)) != &PyLong_Type ||
        Py_TYPE(PyTuple_GetItem(o, 2)) != &PyLong_Type)
      return 0;
    const uint64_t kind = kind_of(call, first);
    return kind & ARRAY && !(kind & WITH_PLACE || kind >> 63) ? kind | WITH_PLACE : 0;
  }
  View* v = view_of(call, o, 0);
  if (!v) {
    PyErr_Clear();
    return 0;
  }
  const uint64_t type_of_items = ARRAY | (uint64_t)v->element << 8 | (uint64_t)v->is_complex << 12 |
                                 (uint64_t)v->is_bool << 13 | (uint64_t)v->is_readonly << 14 | (uint64_t)v->ndim << 16;
  if (v->ndim == 1 && !v->is_foreign) return type_of_items; /* no image */
  const Py_ssize_t last = v->ndim == 3 ? v->shape[2] : 0;
  if (v->is_foreign || v->ndim < 2 || v->ndim > 3 || v->strides[v->ndim - 1] < 0 || v->strides[1] < 0 ||
      v->strides[1] > 0xffff || last > 0xff || (last && v->strides[2] != v->itemsize) || v->strides[0] > INT32_MAX ||
      v->strides[0] < INT32_MIN || v->shape[0] > INT32_MAX || v->shape[1] > INT32_MAX / 8 || v->shape[1] < 2)
    return 0;
  return type_of_items | (uint64_t)last << 24 | (uint64_t)v->strides[1] << 32;
}

static const Remembered* recalled(const Memo* memo, PyObject* const* args, int count, PyObject* names,
                                  const uint64_t* kinds)
{
  for (int i = 0; memo && i < REMEMBERED; i++) {
    const Remembered* r = &memo->calls[i];
    if (!r->candidate || r->names != names || r->count != count ||
        memcmp(r->kinds, kinds, (size_t)count * sizeof *kinds))
      continue;
    if (!r->dtype) return r;
    for (int k = 0; k < count; k++)
      if (args[k] == r->dtype) return r;
  }
  return NULL;
}

static void remember(int operation, const Candidate* c, const Signature* s, const signed char* place,
                     PyObject* const* args, int count, PyObject* names, const uint64_t* kinds, const Options* options)
{
  if (!memos && !(memos = calloc((size_t)operation_count, sizeof *memos))) return;
  if (!memos[operation] && !(memos[operation] = calloc(1, sizeof(Memo)))) return;
  Memo* memo = memos[operation];
  Remembered* r = &memo->calls[memo->next];
  PyObject *old_names = r->names, *old_dtype = r->dtype;
  memo->next = (memo->next + 1) % REMEMBERED;
  r->candidate = c;
  r->signature = s;
  Py_XINCREF(r->names = names);
  Py_XINCREF(r->dtype = options->dtype);
  r->count = count;
  r->border = -1;
  for (int k = 0; k < count; k++) {
    r->kinds[k] = kinds[k];
    r->place[k] = place[k] < 0 ? -1 : c->map[place[k]];
    if (options->border && args[k] == options->border && place[k] < 0) r->border = (signed char)k;
  }
  Py_XDECREF(old_names);
  Py_XDECREF(old_dtype);
}

/* ---- Operands that no function takes ---- */

enum { WANTED = 64 };
typedef struct { /* the argument that the functions stumbled over which came farthest, and what they wanted there */
  int at, count;
  const char* name;
  PyObject* object; /* borrowed */
  const Parameter* wanted[WANTED];
} Misfit;

static void note_misfit(Misfit* m, const Signature* s, const Candidate* c, int at, PyObject* object)
{
  if (at < m->at) return;
  if (at > m->at) {
    m->at = at;
    m->count = 0;
    for (int i = 0; i < s->count; i++)
      if (c->map[i] == at) m->name = s->named[i].name;
    m->object = object;
  }
  if (m->count < WANTED) m->wanted[m->count++] = &functions[c->function].parameters[at];
}

/* "uint8 (480, 640)", "list" */
static PyObject* kind_as_text(PyObject* o)
{
  PyObject *dtype = PyObject_GetAttrString(o, "dtype"), *shape = dtype ? PyObject_GetAttrString(o, "shape") : NULL;
  PyErr_Clear();
  PyObject* type = dtype && shape ? NULL : PyObject_GetAttrString((PyObject*)Py_TYPE(o), "__name__");
  PyObject* text = dtype && shape ? PyUnicode_FromFormat("%S %S", dtype, shape) : type;
  Py_XDECREF(dtype);
  Py_XDECREF(shape);
  return text;
}

/* Adds a word to a list of words that differ. */
static void add_word(char* list, size_t room, const char* word)
{
  const size_t length = strlen(word);
  for (const char* p = list; (p = strstr(p, word)); p += length)
    if ((p == list || p[-2] == ',') && (p[length] == ',' || !p[length])) return;
  const size_t used = strlen(list);
  if (used + length + 3 < room) snprintf(list + used, room - used, "%s%s", used ? ", " : "", word);
}

static void refuse_misfit(const Operation* op, const Misfit* m)
{
  char types[256] = "", shapes[256] = "", word[64];
  for (int i = 0; i < m->count; i++) {
    const Parameter* p = m->wanted[i];
    if (p->role == RECORD) {
      add_word(types, sizeof types, p->record);
    } else if (p->memory) {
      add_word(types, sizeof types, type_as_text(p->memory, word, sizeof word));
      if (p->role == IMAGE) add_word(shapes, sizeof shapes, shape_as_text(p->memory, word, sizeof word));
    } else {
      add_word(types, sizeof types, "a number");
    }
  }
  PyObject* kind = m->object ? kind_as_text(m->object) : NULL;
  if (!kind) {
    PyErr_Clear();
    PyErr_Format(PyExc_TypeError, "%s: no form of it takes these operands:\n%s", op->name, op->synopsis);
    return;
  }
  const int is_first = m->at == 0;
  PyErr_Format(PyExc_TypeError, "%s: %s is %U; %s takes %s%s%s; nothing is cast silently%s%s", op->name, m->name, kind,
               is_first ? "it" : "with the other operands it", types, *shapes ? ", shape " : "", shapes,
               op->count > 1 ? "\n" : "", op->count > 1 ? op->synopsis : "");
  Py_DECREF(kind);
}

/* Errors of a call by operation speak of its arguments by the names that they have there. */
static void name_by_operation(const Operation* op, const Signature* s, const Candidate* c)
{
  const char *from[MAX_PARAMETERS + 1], *to[MAX_PARAMETERS + 1];
  char whole[128];
  const Function* f = &functions[c->function];
  for (int i = 0; i < s->count; i++) {
    from[i] = f->parameters[c->map[i]].name;
    to[i] = s->named[i].name;
  }
  snprintf(whole, sizeof whole, "%s (%s)", op->name, f->name);
  from[s->count] = f->name;
  to[s->count] = whole;
  rename_in_error(from, to, s->count + 1);
}

/* ---- The choice ---- */

typedef struct {
  const Candidate* candidate;
  const Signature* signature;
  PyObject* given[MAX_PARAMETERS];
  signed char place[MAX_PARAMETERS + OPTIONS];
  Options options;
} Choice;

/* The function that the operands mean; 0: there is none, with an exception. */
static int choose(const Operation* op, Call* call, PyObject* const* args, Py_ssize_t n, PyObject* names, Choice* best)
{
  PyObject* bound[MAX_PARAMETERS];
  Choice loose = {0}, now = {0};
  const Memory* best_out = NULL;
  Amiss amiss = {BOUND, NULL, NULL};
  Misfit misfit = {.at = -1};
  int any_bound = 0, ambiguous = 0;
  best->candidate = NULL;
  for (int s = 0; s < op->count && !(best->candidate && best->candidate->same); s++) {
    const Signature* signature = &op->signatures[s];
    const Amiss here = bind_arguments(op, signature, args, n, names, bound, now.place, &now.options);
    if (here.what > amiss.what) amiss = here;
    if (here.what != BOUND) continue;
    any_bound = 1;
    int is_complex = 0, element = -1;
    if (now.options.dtype && (element = element_of(now.options.dtype, &is_complex)) < 0) return 0;
    for (int k = 0; k < signature->candidate_count; k++) {
      const Candidate* c = &signature->candidates[k];
      const Function* f = &functions[c->function];
      const Memory* out = c->out < 0 ? NULL : f->parameters[c->out].memory;
      int images;
      if (c->skips_alpha != now.options.skip_alpha) continue;
      if (element >= 0 && (!out || (int)out->element != element || is_complex != (element >= E32f && out->count == 2)))
        continue;
      now.candidate = c;
      now.signature = signature;
      memset(now.given, 0, sizeof now.given);
      for (int i = 0; i < signature->count; i++) now.given[c->map[i]] = bound[i];
      int at;
      const int fit = fits(call, f, now.given, &images, &at);
      if (!fit) note_misfit(&misfit, signature, c, at, now.given[at]);
      if (fit == 2 && !loose.candidate) loose = now;
      if (fit != 1) continue;
      const int told = c->out < 0 || (now.given[c->out] && now.given[c->out] != Py_None);
      if (told) out = NULL;
      /* what is made from nothing has one channel */
      if (element >= 0 && out && !images && (out->channels > 1 || out->planes)) continue;
      if (!best->candidate) {
        *best = now;
        best_out = out;
        if (told || (c->same && images)) return 1;
      } else if (out && best_out && out != best_out) {
        ambiguous = 1;
      }
    }
  }
  if (!best->candidate && loose.candidate) *best = loose; /* its call says what is amiss */
  if (best->candidate && !ambiguous) return 1;
  if (best->candidate) {
    PyErr_Format(PyExc_TypeError, "%s: several types or layouts of the result are possible; tell `%s`", op->name,
                 op->takes_dtype && !best->options.dtype ? "dtype` or `out" : "out");
  } else if (any_bound) {
    refuse_misfit(op, &misfit);
  } else if (amiss.what == MISSING) {
    PyErr_Format(PyExc_TypeError, "%s: argument %s is missing:\n%s", op->name, amiss.name, op->synopsis);
  } else if (amiss.what == TOO_MANY) {
    PyErr_Format(PyExc_TypeError, "%s: too many arguments by position:\n%s", op->name, op->synopsis);
  } else {
    PyErr_Format(PyExc_TypeError, "%s: %s argument %R:\n%s", op->name, amiss.what == TWICE ? "two values for" : "no",
                 amiss.key, op->synopsis);
  }
  return 0;
}

static PyObject* call_candidate(const Operation* op, const Signature* s, const Candidate* c, Call* call,
                                PyObject** given)
{
  PyObject* result = invoke(&functions[c->function], call, given, 1);
  if (!result) name_by_operation(op, s, c);
  if (result == Py_None && c->out >= 0 && given[c->out] && given[c->out] != Py_None) {
    Py_DECREF(result);
    result = Py_NewRef(given[c->out]);
  }
  return result;
}

PyObject* call_operation(PyObject* self, PyObject* const* args, Py_ssize_t n, PyObject* names)
{
  const int operation = ((Entry*)self)->index - function_count;
  const Operation* op = &operations[operation];
  const Py_ssize_t all = n + (names ? PyTuple_Size(names) : 0);
  const int count = all <= MAX_PARAMETERS + OPTIONS ? (int)all : 0;
  uint64_t kinds[MAX_PARAMETERS + OPTIONS];
  int is_plain = count > 0;
  PyObject* result = NULL;
  Call call;
  begin_call(&call);
  if (all > MAX_PARAMETERS + OPTIONS)
    return PyErr_Format(PyExc_TypeError, "%s: too many arguments:\n%s", op->name, op->synopsis);
  for (int k = 0; k < count && is_plain; k++) is_plain = (kinds[k] = kind_of(&call, args[k])) != 0;
  const Remembered* r = is_plain && memos ? recalled(memos[operation], args, count, names, kinds) : NULL;
  if (r) {
    PyObject* given[MAX_PARAMETERS] = {NULL};
    for (int k = 0; k < count; k++)
      if (r->place[k] >= 0) given[r->place[k]] = args[k];
    if (r->border >= 0) call.border = args[r->border];
    result = call_candidate(op, r->signature, r->candidate, &call, given);
  } else {
    Choice choice;
    if (choose(op, &call, args, n, names, &choice)) {
      call.border = choice.options.border;
      if (is_plain)
        remember(operation, choice.candidate, choice.signature, choice.place, args, count, names, kinds,
                 &choice.options);
      result = call_candidate(op, choice.signature, choice.candidate, &call, choice.given);
    }
  }
  finish_call(&call);
  return result;
}
