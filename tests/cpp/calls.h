// The same calls in C and through views, each a function of its own that callers cannot see into.
#pragma once
#include "zori.hpp"

using Pixels = zori::View<const Zor8u, zori::C1>;
using Target = zori::View<Zor8u, zori::C1>;

ZorStatus addDirectly(const Zor8u* a, int aStep, const Zor8u* b, int bStep, Zor8u* out, int outStep, ZorImgSize size);
ZorStatus addViews(const Pixels& a, const Pixels& b, const Target& out);
ZorStatus smoothDirectly(const Zor8u* a, int aStep, Zor8u* out, int outStep, ZorImgSize size);
ZorStatus smoothViews(const Pixels& a, const Target& out);
