/* Images in their places: sizes that follow from them, addresses and steps, made destinations. No call gets an operand
   that it could overrun. */
#include "binding.h"

Reach reach_by_formulas(const Memory* m, Context c, const Numbers* region)
{
  double n[6];
  for (int i = 0; i < 6; i++)
    n[i] = m->extent[i] >= 0 ? formulas[m->extent[i]](c) : i < 2 && region ? region->numbers[i] : 0;
  return (Reach){n[0], n[1], n[2], n[3], n[4], n[5]};
}

int read_images(Frame* x)
{
  for (int i = 0; i < x->f->count; i++) {
    const Parameter* p = &x->f->parameters[i];
    if (p->role != IMAGE || !is_given(x, i)) continue;
    const Sight sight = see_image(x->call, x->given[i], p->memory, x->images[i]);
    if (sight != SEEN) return refuse_image(x->f, p, sight);
  }
  return 0;
}

/* What must lie around the region in the array that was given: nothing where a border is made. */
static Reach room_of(const Frame* x, const Memory* m)
{
  Reach r = reach_of(m, context_of(x, 0), NULL);
  if (has_border(x, m)) r.left = r.top = r.right = r.bottom = 0;
  return r;
}

/* Sizes that were not told, from the images that have them. */
int deduce_sizes(Frame* x)
{
  const Function* f = x->f;
  for (int i = 0; i < f->count; i++) {
    const Parameter* p = &f->parameters[i];
    if (p->role != SIZE || p->image < 0 || is_given(x, i)) continue;
    int from = -1;
    for (int k = 0; k < f->count && from < 0; k++) { /* any image of that size will do */
      const Parameter* q = &f->parameters[k];
      const int alike = q->role == IMAGE && q->memory->extent[0] == f->parameters[p->image].memory->extent[0] &&
                        q->memory->extent[1] == f->parameters[p->image].memory->extent[1];
      if (alike && is_given(x, k) && (q->memory->element != E1u || k == p->image)) from = k;
    }
    if (from < 0) return missing(f, p);
    const Reach r = room_of(x, f->parameters[from].memory);
    const Image* image = &x->images[from][0];
    double* n = x->values[i].numbers;
    n[0] = (double)image->width - (image->has_origin ? (double)image->left : r.left) - r.right;
    n[1] = (double)image->height - (image->has_origin ? (double)image->top : r.top) - r.bottom;
    fill(&x->slots[i], 's', n);
    for (int k = 0; k < f->count && !image->has_origin; k++) { /* all agree, unless the caller says what is meant */
      const Parameter* q = &f->parameters[k];
      if (q->role != IMAGE || !is_given(x, k) || q->memory->extent[0] != f->parameters[from].memory->extent[0] ||
          q->memory->extent[1] != f->parameters[from].memory->extent[1] || x->images[k][0].has_origin ||
          q->memory->element == E1u)
        continue;
      const Reach s = room_of(x, q->memory);
      if ((double)x->images[k][0].width - s.left - s.right != n[0] ||
          (double)x->images[k][0].height - s.top - s.bottom != n[1]) {
        PyErr_Format(PyExc_ValueError, "%s: %s and %s differ in size; tell %s", f->name, f->parameters[from].name,
                     q->name, p->name);
        return -1;
      }
    }
  }
  for (int i = 0; i < f->count; i++) {
    const Parameter* p = &f->parameters[i];
    if (p->whole < 0 || is_given(x, i)) continue;
    x->values[i].numbers[2] = x->values[p->whole].numbers[0];
    x->values[i].numbers[3] = x->values[p->whole].numbers[1];
    fill(&x->slots[i], 'r', x->values[i].numbers);
  }
  return 0;
}

int place_image(Frame* x, int i, int make)
{
  const Function* f = x->f;
  const Parameter* p = &f->parameters[i];
  const Memory* m = p->memory;
  const int n = m->planes ? m->planes : 1;
  Image* planes = x->images[i];
  const Reach r = reach_of(m, context_of(x, 0), x->region);
  if (!is_given(x, i)) {
    if (p->optional) return 0;
    if (!make) return missing(f, p);
    if (r.width < 1 || r.height < 1 || r.width > 1e9 || r.height > 1e9) {
      const Py_ssize_t w = (Py_ssize_t)r.width, h = (Py_ssize_t)r.height;
      PyErr_Format(PyExc_ValueError, "%s: %s would have %zd x %zd pixels%s", f->name, p->name, w, h,
                   r.width < 1 || r.height < 1 ? ": no pixel is left for it" : "");
      return -1;
    }
    PyObject* image = new_image(m, (Py_ssize_t)(r.width + r.left + r.right), (Py_ssize_t)(r.height + r.top + r.bottom));
    if (!image) return -1;
    x->call->results[i] = image;
    const Sight sight = see_image(x->call, image, m, planes);
    if (sight != SEEN) return refuse_image(f, p, sight);
  }
  if (has_border(x, m) && frame_image(x, i, &r)) return -1;
  const double bits = m->bits >= 0 ? x->values[m->bits].numbers[0] : 0;
  for (int k = 0; k < n; k++) {
    Image* im = &planes[k];
    const double left = im->has_origin ? (double)im->left : r.left, top = im->has_origin ? (double)im->top : r.top;
    if (r.width > 0 && r.height > 0 &&
        (left < r.left || top < r.top || bits < 0 || left + r.width + r.right + bits > (double)im->width ||
         top + r.height + r.bottom > (double)im->height)) {
      PyErr_Format(PyExc_ValueError, "%s: %s is too small: %zd x %zd pixels, needed are %zd x %zd%s", f->name, p->name,
                   im->width, im->height, (Py_ssize_t)(r.width + left + r.right + bits),
                   (Py_ssize_t)(r.height + top + r.bottom),
                   left < r.left || top < r.top ? ", and the margin in front of the region" : "");
      return -1;
    }
    x->pointers[i][k] =
      im->data + (Py_ssize_t)top * im->step + (m->element == E1u ? (Py_ssize_t)left / 8 : (Py_ssize_t)left * im->pixel);
  }
  x->slots[i].p = m->planes ? (void*)x->pointers[i] : x->pointers[i][0];
  if (m->step >= 0) {
    const int taken = x->slots[m->step].i;
    if (taken && taken != (int)planes[0].step && x->values[m->step].numbers[1]) {
      PyErr_Format(PyExc_ValueError, "%s: %s must have the step of the other images", f->name, p->name);
      return -1;
    }
    x->slots[m->step].i = (int)planes[0].step;
    x->values[m->step].numbers[0] = (double)planes[0].step;
    x->values[m->step].numbers[1] = 1;
  } else if (planes[0].height > 1 && planes[0].step != planes[0].width * planes[0].pixel) {
    PyErr_Format(PyExc_ValueError, "%s: the rows of %s must adjoin", f->name, p->name);
    return -1;
  }
  return 0;
}
