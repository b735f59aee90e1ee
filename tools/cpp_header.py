"""include/zori.hpp: the C++ layer over the C functions; and a test program that calls each of its overloads once.

An image argument becomes a view, a size that an image tells is taken from its view, small arrays become references. What
is generic (views, statuses, owners) is written out in cpp_frame.hpp.in; this file adds an overload a function.
"""
import pathlib
import re

from catalogue import ELEMENTS, ROOT
from documentation import MARK
from facts import PARTS, Context

FRAME = pathlib.Path(__file__).with_name("cpp_frame.hpp.in")
TAKEN = {"and", "or", "xor", "not", "free"}  # keywords, and a function of C
_TAIL = re.compile(r"^zori(\w*?)(?:_?((?:\d+[usf]c?)+))?(?:_((?:A0C|AC|AP|C|P)\d\w*?))?(I?M?C?R?(?:Sfs)?)$")
_ARRAY = re.compile(r"(const )?(\w+)(\* const)? (\w+)((?:\[\d+\])+)$")
_POINTER = re.compile(r"(\w+)\* (\w+)$")


def lowered(name):
    """Operation -> name in C++: filterBox, lut_Linear, fftFwd_RToPack, and_."""
    head = re.match(r"[A-Z]+(?![a-z])|[A-Z]", name)
    name = name[:head.end()].lower() + name[head.end():] if head else name
    return name + "_" if name in TAKEN else name


def operation(function):
    return lowered(_TAIL.match(function.name)[1])


def whole_name(function):
    return lowered(function.name.removeprefix("zori"))


def joined(head, parts, tail, indent):
    """head + parts, separated by commas + tail, in lines of at most 120 columns."""
    lines, line = [], head
    for i, part in enumerate(parts):
        part += tail if i + 1 == len(parts) else ", "
        if len(line) + len(part.rstrip()) > 118:
            lines.append(line.rstrip())
            line = " " * indent
        line += part
    return lines + [line if parts else line + tail]


class Image:
    """An image of a call: what type of view it is, and how much of it the function wants."""

    def __init__(self, function, p):
        self.parameter, self.memory = p, p.memory
        self.name = p.name[1].lower() + p.name[2:]
        self.const = p.memory.access == "r"
        self.element = re.match(r"(?:const )?(\w+)\*", p.declaration)[1]
        planes, channels = p.memory.planes, p.memory.channels
        if planes:
            self.layout = "AP4" if "_AP4" in function.name else f"P{planes}"
        elif p.memory.mask or p.memory.kept == "alpha":
            self.layout = "C1" if p.memory.mask else "A0C4" if "A0C4" in function.name else "AC4"
        elif channels == 4 and p.memory.access == "r" and self._token(function, p) == "AC4":
            self.layout = "AC4"
        else:
            channels *= p.memory.count if self.element == "Zor8u" else 1  # 24u: three bytes
            self.layout = "AC1" if "_AC1" in function.name and p.item != "mask" else f"C{channels}"
        self.kind = "Channel" if p.memory.kept == "other" else "Bits" if p.memory.bits else "View"
        self.contiguous = False

    @staticmethod
    def _token(function, p):
        return function.layouts["S" if p.item.startswith("src") and p.item != "srcDst" else "D"]

    def view(self, const=None):
        const = self.const if const is None else const
        element = ("const " if const else "") + self.element
        if self.kind == "Bits":
            return f"Bits<{element}>"
        kind = "Planes" if self.memory.planes else self.kind
        return f"{kind}<{element}, {self.layout}>"

    def type(self):
        if self.kind == "Bits":
            return f"const {self.view()}&"
        side = "In" if self.const else "Out"
        return f"{side}{'Channel' if self.kind == 'Channel' else ''}<{self.element}, {self.layout}>"


class Overload:
    """One function of the header: name, parameters, checks and the C call."""

    def __init__(self, function, family, name):
        self.function, self.family, self.name = function, family, name
        self.parameters, self.arguments, self.checks = [], [], []  # (type, name); C arguments; conditions
        f = function
        self.images = {p.name: Image(f, p) for p in f.parameters if p.role == "image"}
        self.sizes = {}  # size argument: the image that tells it
        for p in f.parameters:
            if p.role in ("region", "size"):
                tells = next((i for i in self.images.values() if self._tells(i.memory.extent, p)), None)
                if tells:
                    self.sizes[p.name] = tells
        bits = {i.memory.bits: i for i in self.images.values() if i.memory.bits}
        steps = {i.memory.step or i.name + "Step": i for i in self.images.values()}
        for i in self.images.values():
            i.contiguous = not any(p.name in (i.memory.step, i.name + "Step") for p in f.parameters)
        for p in f.parameters:
            if p.role == "image":
                i = self.images[p.name]
                self.parameters.append((i.type(), i.name))
                self.arguments.append(f"{i.name}.data()")
            elif p.role == "step":
                self.arguments.append(f"{steps[p.name].name}.step()")
            elif p.name in bits:
                self.arguments.append(f"{bits[p.name].name}.firstBit()")
            elif p.name in self.sizes:
                self.arguments.append(f"{self.sizes[p.name].name}.size()")
            else:
                self._plain(p)
        self._conditions()

    @staticmethod
    def _tells(extent, p):
        """The size is that of the image: no other extent, or this size by name."""
        if not extent or extent.width is None and extent.height is None:
            return p.role == "region"
        return extent.width.text == p.name + ".width" and extent.height is not None \
            and extent.height.text == p.name + ".height"

    def _plain(self, p):
        array, pointer = _ARRAY.match(p.declaration), _POINTER.match(p.declaration)
        if array:
            const, base, star, name, dims = array.groups()
            counts = re.findall(r"\d+", dims)
            if len(counts) == 2:
                self.parameters.append((f"{const or ''}{base} (&{name}){dims}", None))
                self.arguments.append(name)
                return
            held = f"{const or ''}{base}*" if star else base
            reference = "const " if star or const else ""
            self.parameters.append((f"{reference}std::array<{held}, {counts[0]}>&", name))
            self.arguments.append(f"{name}.data()")
        elif pointer and p.role == "out" and not p.optional and self._single(p):
            name = pointer[2][1].lower() + pointer[2][2:] if re.match(r"p[A-Zx]", pointer[2]) else pointer[2]
            self.parameters.append((f"{pointer[1]}&", name))
            self.arguments.append(f"&{name}")
        else:
            kind, name = re.match(r"(.*?[ *])(\w+)$", p.declaration).groups()
            self.parameters.append((kind.strip(), name))
            self.arguments.append(name)

    @staticmethod
    def _single(p):
        e = p.memory.extent
        return e and e.width is not None and e.width.constant() == 1 and (e.height is None or e.height.constant() == 1)

    def _code(self, formula):
        """A formula as C++; None where it speaks of what the call does not have."""
        def text(node):
            head, *rest = node
            if head == "number":
                return str(rest[0])
            if head == "maker":
                raise KeyError
            if head == "values":
                p = self.function.parameters[rest[0]]
                parts = PARTS.get(p.declaration.split()[0], [])
                if p.name in self.sizes:
                    return f"{self.sizes[p.name].name}.{parts[rest[1]]}()"
                return f"detail::wide({p.name}{'.' + parts[rest[1]] if parts else ''})"
            a, b = map(text, rest)
            if head in ("min", "max"):
                return f"detail::{'least' if head == 'min' else 'greatest'}({a}, {b})"
            return f"({a} {head} {b})"
        try:
            found = text(formula.tree)
        except KeyError:
            return None
        return found[1:-1] if re.fullmatch(r"\([^()]*\)", found) else found

    def _conditions(self):
        """Sizes that must agree, and room that a neighbourhood needs."""
        region = next((i for s, i in self.sizes.items() if self.function.parameter(s).role == "region"), None)
        same = [i.name for i in self.images.values() if region and i.memory.extent.width is None] if region else []
        if len(same) > 1:
            self.checks.append(f"detail::same({', '.join(same)})")
        rectangle = any(p.name == "dstRoi" for p in self.function.parameters)
        unknown = []
        for i in self.images.values():
            e = i.memory.extent
            if e.width is not None and i not in self.sizes.values():
                w, h = self._code(e.width), self._code(e.height)
                if rectangle and i.name == "dst":  # the image that the rectangle is a part of
                    self.checks.append("detail::holds(dst, dstRoi)")
                elif None in (w, h):  # the record tells
                    unknown.append(i.name)
                else:
                    self.checks.append(f"detail::measures({i.name}, {w}, {h})")
            if i in self.sizes.values():  # one that tells a size which another tells too
                for s, other in self.sizes.items():
                    if other is not i and self._tells(e, self.function.parameter(s)):
                        self.checks.append(f"detail::same({other.name}, {i.name})")
            sides = [e.left, e.top, e.right, e.bottom]
            if any(s is not None for s in sides) and i.name not in unknown:
                codes = ["0" if s is None else self._code(s) for s in sides]
                if None not in codes:
                    self.checks.append(f"detail::room({i.name}, {', '.join(codes)})")
            if i.contiguous:
                self.checks.append(f"detail::adjoins({i.name})")
        if len(unknown) > 1 and not any("Round" in u for u in unknown) and self._equal(unknown):
            self.checks.append(f"detail::same({', '.join(unknown)})")

    def _equal(self, names):
        extents = {(i.memory.extent.width.text, i.memory.extent.height.text)
                   for i in self.images.values() if i.name in names}
        return len(extents) == 1

    def key(self):
        return self.name, tuple(t.replace("InChannel", "Channel").replace("OutChannel", "Channel")
                                .replace("In<", "<").replace("Out<", "<") for t, _ in self.parameters)

    def lines(self):
        parameters = [t if n is None else f"{t} {n}" for t, n in self.parameters]
        head = f"inline Status {self.name}("
        lines = joined(head, parameters, ")", len(head) if len(head) < 60 else 4) + ["{"]
        if self.checks:
            lines += ("  if (!(" + " &&\n        ".join(self.checks) + "))").split("\n")
            lines.append("    return detail::given(ZorErrSize);")
        head = f"  return detail::given({self.function.name}("
        return lines + joined(head, self.arguments, "));", 6) + ["}"]


def overloads(families):
    """The overloads in order, and the functions whose result is no status."""
    made, bare = [], []
    for family in families:
        if family.built:
            for f in family.functions:
                if family.returns != "ZorStatus":
                    bare.append(f)
                    continue
                named = operation(f) if any(p.role == "image" for p in f.parameters) else whole_name(f)
                made.append(Overload(f, family, named))
    names = {}
    for o in made:
        names.setdefault(o.key(), []).append(o)
    for several in names.values():
        if len(several) > 1:
            for o in several:
                o.name = whole_name(o.function)
    return made, bare


def bare_lines(functions):
    """Functions whose result is no status, as they are but for references."""
    lines = ["// ---- Library and image memory as C has them (zori/core.h); Image and Buffer release theirs by themselves"]
    for f in functions:
        names = [p.name.replace("pStep", "step") for p in f.parameters]
        parameters = [p.declaration.replace("int* pStep", "int& step") for p in f.parameters]
        arguments = [("&" if "int* p" in p.declaration else "") + n for n, p in zip(names, f.parameters)]
        lines += [f"inline {f.c_type(f.family.returns)} {whole_name(f)}({', '.join(parameters)})", "{",
                  f"  {'' if f.family.returns == 'void' else 'return '}{f.name}({', '.join(arguments)});", "}"]
    return lines + [""]


def owners(families):
    """(type, record, maker, release) of the records that a function makes."""
    every = {f.name: f for family in families if family.built for f in family.functions}
    for f in every.values():
        made = next((p for p in f.parameters if re.match(r"Zor\w+\*\* ", p.declaration)), None)
        if f.release and made:
            name = f.release.removeprefix("zori").replace("Free", "", 1)
            yield name, made.declaration.split("*")[0], f, f.release, made


def owner_lines(families):
    lines, seen = [], set()
    for name, record, maker, release, made in owners(families):
        if name not in seen:
            lines += [f"/// Owner of a {record}; given back by {release}.",
                      f"using {name} = Record<{record}, {release}>;"]
        seen.add(name)
        parameters, arguments = [f"{name}& record"], []
        for p in maker.parameters:
            arguments.append("&made" if p is made else p.name)
            parameters += [] if p is made else [p.declaration]
        lines += joined("inline Status make(", parameters, ")", 19)
        lines += ["{", f"  {record}* made = nullptr;"]
        lines += joined(f"  const ZorStatus code = {maker.name}(", arguments, ");", 6)
        lines += ["  if (code >= 0) record.reset(made);", "  return detail::given(code);", "}", ""]
    return lines


def cpp_header(families):
    """path -> text of the C++ header."""
    made, bare = overloads(families)
    images = sum(1 for o in made if o.images)
    total = sum(len(family.functions) for family in families if family.built)
    unique = {f.name for _, _, f, _, _ in owners(families)}
    plain = [o for o in made if o.function.name not in unique]
    if len(made) + len(bare) != total:
        raise AssertionError("a function is left out")
    words = [f"// All {total} C functions stand behind it: {images} that take images, {total - images} others."]
    body, last = bare_lines(bare), None
    for o in plain:
        if o.family is not last:
            body += ["", f"// ---- {o.family.title} (zori/{o.family.subsystem}.h)"]
            last = o.family
        body += o.lines()
    text = FRAME.read_text()
    for mark, lines in (("MARK", [f"// {MARK}*.txt and tools/{FRAME.name}."]), ("COUNTS", words),
                        ("OWNERS", owner_lines(families)[:-1]), ("FUNCTIONS", body)):
        text = text.replace(f"@{mark}@", "\n".join(lines))
    return {ROOT / "include/zori.hpp": text}


def _literal(context, p, kind):
    """The example's value of an argument as C++ of that type."""
    numbers = [n if n == n else 0 for n in context.value(p)]
    if kind in PARTS:
        return f"{kind}{{{', '.join(str(int(numbers[i % len(numbers)])) for i in range(len(PARTS[kind])))}}}"
    return f"{kind}{{}}" if kind in ELEMENTS_OF_TWO else f"static_cast<{kind}>({numbers[0]!r})"


ELEMENTS_OF_TWO = {c for c, _, count in ELEMENTS.values() if count == 2}


def _call(o, known):
    """A C function that notes what it gets, and a call of the overload with what it ought to get."""
    f, context = o.function, Context(o.function, known)
    images = {i.name: i for i in o.images.values()}
    lines = []
    for number, i in enumerate(images.values()):
        e = i.memory.extent
        if e.width is None:
            region = next(p for p in f.parameters if p.role == "region")
            w, h = context.value(region)
        else:
            w, h = context.number(e.width), context.number(e.height)
        sample = f"sample<zori::{i.view(const=False)}>({number}, {int(w)}, {int(h)}, {str(i.contiguous).lower()})"
        lines.append(f"  const auto {i.name} = {sample};".replace(", C", ", zori::C")
                     .replace(", A", ", zori::A").replace(", P", ", zori::P"))
    arguments = []
    for t, n in o.parameters:
        name = n or re.search(r"\(&(\w+)\)", t)[1]
        arguments.append(name)
        if name in images:
            continue
        p = next(p for p in f.parameters if p.name == name or p.name.lower() == "p" + name.lower())
        if n is None:
            lines.append(f"  {t.removeprefix('const ').replace('(&', '').replace(')', '', 1)} = {{}};")
        elif t.endswith("&"):
            lines.append(f"  {t[:-1].removeprefix('const ')} {name}{{}};")
        elif t.endswith("*"):
            lines.append(f"  {t} {name} = somewhere<{t}>({len(lines)});")
        else:
            lines.append(f"  const {t} {name} = {_literal(context, p, t)};")
    wanted, noted = [], []
    for p in f.parameters:
        i = o.images.get(p.name)
        step = next((j for j in images.values() if p.role == "step" and p.name == (j.memory.step or j.name + "Step")),
                    None)
        bits = next((j for j in images.values() if j.memory.bits == p.name), None)
        n = p.memory.planes if p.memory else 0
        noted.append(f"pointers({p.name}, {n})" if n else f"bytes({p.name})")
        if i:
            wanted.append(f"pointers({i.name}.data(), {n})" if n else f"address({i.name}.data())")
        elif step:
            wanted.append(f"bytes({step.name}.step())")
        elif bits:
            wanted.append(f"bytes({bits.name}.firstBit())")
        elif p.name in o.sizes:
            wanted.append(f"bytes({_literal(context, p, 'ZorImgSize')})")
        else:
            t, name = next((t, m or re.search(r"\(&(\w+)\)", t)[1]) for t, m in o.parameters
                           if p.name in (m, re.sub(r".*\(&(\w+)\).*", r"\1", t))
                           or m and p.name.lower() == "p" + m.lower() and m not in images)
            data = f"{name}.data()" if "std::array" in t else name if t.endswith("*") or "(&" in t else \
                f"&{name}" if t.endswith("&") else None
            wanted.append(f"pointers({data}, {n})" if n else f"address({data})" if data else f"bytes({name})")
    declared = ", ".join(p.declaration for p in f.parameters)
    stub = ['extern "C" ZorStatus ' + f"{f.name}({declared})", "{",
            f'  return note("{f.name}", {{{", ".join(noted)}}});', "}"]
    return stub + [f"static void call_{f.name}()", "{", *lines,
                   f"  judge(zori::{o.name}({', '.join(arguments)}), \"{f.name}\", {{{', '.join(wanted)}}});", "}",
                   f"static const Listed listed_{f.name}(call_{f.name});"]


def calls(families, folder):
    """path -> text: a program that calls every overload once, on functions that note their arguments."""
    known = {f.name: f for family in families for f in family.functions}
    makers = {f.name for _, _, f, _, _ in owners(families)}
    files = {}
    for o in overloads(families)[0]:
        if o.function.name not in makers:
            path = folder / f"overloads_{o.family.subsystem}.cpp"
            files.setdefault(path, [f"// {MARK}{o.family.subsystem}.txt.", '#include "overloads.h"'])
            files[path] += _call(o, known)
    return {path: "\n".join(lines + [""]) for path, lines in files.items()}
