// Compiled as users compile, with optimisation. A test looks at the object: beside the C functions it needs nothing.
#include "calls.h"

ZorStatus addDirectly(const Zor8u* a, int aStep, const Zor8u* b, int bStep, Zor8u* out, int outStep, ZorImgSize size)
{
  return zoriAdd_8u_C1RSfs(a, aStep, b, bStep, out, outStep, size, 0);
}
ZorStatus addViews(const Pixels& a, const Pixels& b, const Target& out) { return zori::add(a, b, out, 0).code(); }

ZorStatus smoothDirectly(const Zor8u* a, int aStep, Zor8u* out, int outStep, ZorImgSize size)
{
  return zoriFilterBox_8u_C1R(a, aStep, out, outStep, size, {3, 3}, {1, 1});
}
ZorStatus smoothViews(const Pixels& a, const Target& out) { return zori::filterBox(a, out, {3, 3}, {1, 1}).code(); }
