"""What the catalogue knows of a function beyond its arguments: examples and ranges, the checks in their order with the
bounds of legal numbers, records and blocks of other functions, statuses, operands that may be the same, team, rounding.
"""
import pathlib
import re

from formula import Formula

PARTS = {"ZorImgSize": ["width", "height"], "ZorImgPoint": ["x", "y"], "ZorImgRect": ["x", "y", "width", "height"]}
EXEMPTIONS = "alpha alignment steps inplace allocation layout fallback".split()
REGION = (17, 5)  # of the example
ILLEGAL = {"<": "Below", ">": "Above", "<=": "AtMost", ">=": "AtLeast", "!=": "NoneOf"}
EXTREMES = {"8u": (-1, 255), "8s": (-128, 127), "16u": (-1, 65535), "16s": (-2 ** 15, 2 ** 15 - 1),
            "32s": (-2 ** 31, 2 ** 31 - 1), "32f": (-1e38, 1e38)}
_VALUE = re.compile(r"-?\d+(\.\d*)?(e-?\d+)?$|nan$|-?inf$|null$|bad$")
_LIMIT = re.compile(r"(\w+)(?:\.(\w+))?(<=|>=|!=|<|>)(.+)$")
_LINK = re.compile(r"([\w*]+)(?::(\w+))?(?:\((.*)\))?$")


def _enumerators():
    """The numbers that the shared header names: statuses, selectors."""
    header = (pathlib.Path(__file__).resolve().parent.parent / "include/zori/types.h").read_text()
    named = {name: int(number) for name, number in re.findall(r"\b(Z\w+) = (-?\d+)", header)}
    return named | {name: int(number, 16) - 2 ** 32
                    for name, number in re.findall(r"#define (ZORI_\w+) \(\(int\)(0x[89a-f]\w+)u\)", header)}


ENUMERATORS = _enumerators()


def numbers(text):
    """A value of the catalogue as a list of number texts: 3, {1,2}, 3x4, nan, null, bad, ZorCmpLess."""
    parts = text[1:-1].split(",") if text.startswith("{") else re.split(r"(?<=\d)x(?=-?\d)", text)
    parts = [str(ENUMERATORS.get(p.strip(), p.strip())) for p in parts]
    if not all(_VALUE.match(p) for p in parts):
        raise ValueError(f"'{text}' is not a value")
    return parts


def split_outside(text, separator=","):
    """Splits at a separator that stands in no braces or parentheses."""
    parts, depth = [""], 0
    for c in text:
        depth += (c in "({") - (c in ")}")
        if c == separator and not depth:
            parts.append("")
        else:
            parts[-1] += c
    return parts


def assignments(text):
    for part in text.split():
        name, equals, value = part.partition("=")
        if not equals or not value:
            raise ValueError(f"'{part}' is not name=value")
        yield name, value, part


class Range:
    """Numbers that an argument may take: low to high, or one of choices; part -1 stands for each of its numbers."""

    def __init__(self, part, low=None, high=None, choices=()):
        self.part, self.low, self.high, self.choices = part, low, high, choices


class Link:
    """A function that is called with this one: (argument, part, formula) of what it gets, and its output."""

    def __init__(self, function, passing=(), output=-1):
        self.function, self.passing, self.output = function, passing, output


class Extent:
    """How far an operand reaches: formulas, None where it covers the region or has no margin."""

    def __init__(self, width=None, height=None, left=None, top=None, right=None, bottom=None):
        self.width, self.height, self.left, self.top = width, height, left, top
        self.right, self.bottom = right, bottom


class Limit:
    """When a number is not legal."""

    def __init__(self, argument, part, relation, bound, legal, text):
        self.argument, self.part, self.relation, self.bound, self.legal = argument, part, relation, bound, legal
        self.text = text

    def breaks(self, number, bound):
        return {"<": lambda: number < bound, ">": lambda: number > bound, "<=": lambda: number <= bound,
                ">=": lambda: number >= bound, "!=": lambda: number not in self.legal}[self.relation]()


class Stage:
    """One check: status, kind (null, size, width, height, step, value, limit) and what it looks at."""

    def __init__(self, kind, status, names, faults=(), limit=None):
        self.kind, self.status, self.names, self.faults, self.limit = kind, status, names, faults, limit


def resolver(function, known):
    """What a dotted name of a formula stands for: a number, ("values" or "maker", index, part), or None."""
    def of(f, path):
        p = f.parameter(path[0])
        if not p:
            return ENUMERATORS.get(path[0]) if len(path) == 1 else None
        if p.role == "record" and f is function and f.makers and len(path) > 1:
            found = of(known[f.makers[0].function], path[1:])
            return ("maker", *found[1:]) if isinstance(found, tuple) else found
        if p.role == "image":
            return {"pixel": p.memory.pixel_bytes(), "channels": p.memory.channels}.get(".".join(path[1:]))
        parts = PARTS.get(p.declaration.split()[0], [])
        if len(path) == 2 and path[1] in parts and not p.memory:
            return "values", f.parameters.index(p), parts.index(path[1])
        if len(path) > 1 or parts or p.role in ("record", "buffer") or p.memory and "*" in p.declaration:
            return None
        return "values", f.parameters.index(p), None if p.memory else 0
    return lambda path: of(function, path)


class Context:
    """The numbers of a function's example, for formulas."""

    def __init__(self, function, known, region=REGION):
        self.function, self.known, self.region = function, known, region

    def value(self, p):
        given = self.function.example.get(p.name)
        if given:
            return [float(n) if n not in ("null", "bad") else 0 for n in given]
        if p.role in ("region", "size") and p.count == 2:
            return list(self.region)
        return [0 if p.role == "scale" else 1]

    def lookup(self, kind, index, part):
        f = self.function if kind == "values" else self.known[self.function.makers[0].function]
        values = Context(f, self.known, self.region).value(f.parameters[index])
        return values[(part or 0) % len(values)]

    def number(self, formula):
        return formula.evaluate(self.lookup)


def is_size(function, name):
    p = function.parameter(name)
    return bool(p and p.declaration.startswith("ZorImgSize "))


def extent(function, text, formula):
    """Reads what stands behind @."""
    if not text:
        return Extent()
    size, margins = text, []
    if len(split_outside(text)) == 4:
        first = re.match(r"(swap|\d+x\d+|\w+|.*\))\+", text)
        sized = first and (first[1] == "swap" or re.search(r"[\d)]x[\d(]", first[1]) or is_size(function, first[1]))
        size, margins = (first[1], text[first.end():]) if sized else ("", text)
        margins = [None if m == "0" else formula(m) for m in split_outside(margins)]
    sides = re.fullmatch(r"(\d+|\(.*\))x(\d+|\(.*\))", size)
    if size == "swap":
        return Extent(formula("roiSize.height"), formula("roiSize.width"), *margins)
    if sides:
        return Extent(formula(sides[1]), formula(sides[2]), *margins)
    if is_size(function, size):
        return Extent(formula(size + ".width"), formula(size + ".height"), *margins)
    if size:
        return Extent(formula(size), formula("1"), *margins)
    return Extent(None, None, *margins)


def examples(function, family):
    """Values of a valid call, the later lines over the earlier."""
    origin = {}
    for line, text, _ in family.each("example", function.name):
        try:
            for name, value, whole in assignments(text):
                family.assignments.add((line, "example", whole))
                p = function.parameter(name)
                if not p:
                    continue
                if p.role in ("image", "step", "buffer", "record"):
                    raise ValueError(f"'{whole}': an example is no value for {p.role} arguments")
                values = numbers(value)
                sized = p.count if not p.memory or "*" not in p.declaration else 0
                if sized and len(values) > 1 and len(values) != sized:
                    raise ValueError(f"'{whole}': {name} holds {sized} numbers")
                function.example[p.name] = values
                origin[p.name] = (line, "example", whole)
        except ValueError as fault:
            raise family.at("example", fault, line) from None
    family.served.update(origin.values())


def complete(function, family, known, statuses):
    """Everything that may look at other functions, whose examples are known by now."""
    resolve = resolver(function, known)
    context = Context(function, known)
    def formula(text):
        return Formula(text, resolve)

    region = any(p.role == "region" for p in function.parameters)
    try:
        for p in function.parameters:
            if p.memory:
                p.memory.extent = e = extent(function, p.memory.extent, formula)
                for f, least in [(e.width, 1), (e.height, 1), (e.left, 0), (e.top, 0), (e.right, 0), (e.bottom, 0)]:
                    if f and context.number(f) < least:
                        raise ValueError(f"{function.name}: '{f.text}' is {context.number(f)} for the example")
                if p.role == "image" and not region and not e.width and not family.sweep:
                    raise ValueError(f"{function.name} has no region that {p.name} could cover: give it an extent")
    except ValueError as fault:
        raise family.at("args", fault, family.first("args", function.name)[0]) from None

    line, text, function.checks_glob, _ = family.first("checks", function.name)
    try:
        function.checks = checks(function, text, statuses, formula, context)
        function.limits = [(stage.limit, stage.status) for stage in function.checks if stage.limit]
    except (ValueError, IndexError) as fault:
        raise family.at("checks", fault, line) from None
    _ranges(function, family, formula, context)
    _other_facts(function, family, known, statuses)


def _ranges(function, family, formula, context):
    origin = {}
    for line, text, _ in family.each("range", function.name):
        try:
            for name, value, whole in assignments(text):
                family.assignments.add((line, "range", whole))
                name, _, part = name.partition(".")
                p = function.parameter(name)
                if not p:
                    continue
                part = PARTS.get(p.declaration.split()[0], []).index(part) if part else -1
                if p.role in ("step", "buffer", "record") or p.memory and "r" not in p.memory.access or (
                        p.role == "image" and "w" in p.memory.access):
                    raise ValueError(f"'{whole}': no range for {p.role} arguments")
                low, dots, high = value.partition("..")
                drawn = (Range(part, formula(low), formula(high)) if dots else
                         Range(part, choices=[str(ENUMERATORS.get(v, v)) for v in value.split("|")]))
                if dots and context.number(drawn.low) > context.number(drawn.high):
                    raise ValueError(f"'{whole}' holds no number")
                _require_legal(function, p, part, whole, context,
                               [context.number(drawn.low), context.number(drawn.high)] if dots
                               else [float(c) for c in drawn.choices])
                earlier = [r for r in function.ranges.get(p.name, []) if r.part != part]
                function.ranges[p.name] = earlier + [drawn]
                origin[p.name, part] = (line, "range", whole)
        except ValueError as fault:
            raise family.at("range", fault, line) from None
    family.served.update(origin.values())


def _require_legal(function, p, part, whole, context, values):
    for limit, status in function.limits:
        if limit.argument is p and (limit.part in (part, -1) or part == -1):
            bound = context.number(limit.bound) if limit.bound else None
            for value in values:
                if limit.breaks(value, bound):
                    raise ValueError(f"{function.name}: '{whole}' gives {status} ({limit.text})")


def links(function, family, known):
    """Makers of the record, the query of each block, the function that releases."""
    line, text, _, glob = family.first("record", function.name)
    records = [p for p in function.parameters if p.role == "record"]
    try:
        function.makers = [link(function, t, glob, known, records[0] if records else None) for t in text.split()]
        if function.makers and not records:
            raise ValueError(f"{function.name} has no record argument")
        if records and not function.makers and not family.sweep:
            raise ValueError(f"{function.name} has a record argument, but no 'record' line tells who makes it")
    except ValueError as fault:
        raise family.at("record", fault, line) from None
    for line, text, glob in family.each("bytes", function.name):
        try:
            for name, value, whole in assignments(text):
                p = function.parameter(name)
                if name == "aligned":
                    block.alignment = int(value)
                    continue
                if not p or p.role not in ("buffer", "record"):
                    raise ValueError(f"{function.name} has no block '{name}'")
                block = p
                p.size = link(function, value, glob, known, records[0] if records else None, query=True)
        except ValueError as fault:
            raise family.at("bytes", fault, line) from None
    for p in function.parameters:
        if p.role == "buffer" and not p.size:
            raise family.at("bytes", f"no 'bytes' line tells the size of {p.name} of {function.name}")
    line, text, _, _ = family.first("release", function.name)
    if text and text not in known:
        raise family.at("release", f"{text} is not in the catalogue", line)
    released = function.name.replace("InitAlloc", "Free")
    function.release = text or (released if released != function.name and released in known else None)


def link(function, text, glob, known, record, query=False):
    """Reads NAME[:OUTPUT][(argument=formula,...)]; * in NAME is what the last * of the glob stands for."""
    match = _LINK.match(text)
    if not match:
        raise ValueError(f"'{text}' is not a call of a function")
    name, output, passing = match.groups()
    if "*" in name:
        pattern = "".join("(.*)" if c == "*" else re.escape(c) for c in glob)
        stars = re.fullmatch(pattern, function.name)
        if not glob or not stars:
            raise ValueError(f"'{name}': there is no * to take the place of *")
        name = name.replace("*", stars.groups()[-1])
    if name not in known:
        raise ValueError(f"{name} is not in the catalogue")
    other = known[name]
    result = Link(name, [])
    given = dict(part.split("=", 1) for part in split_outside(passing) if part) if passing else {}
    for argument in given:
        if not other.parameter(argument):
            raise ValueError(f"{name} has no argument '{argument}'")
    # a formula of the record's maker is one of this call, too
    resolve = resolver(function, known)
    for index, p in enumerate(other.parameters):
        source = given.get(p.name, given.get(p.item, p.name if query else None))
        if p.memory or p.role in ("record", "buffer"):
            if query and p.role == "record" and not record:
                raise ValueError(f"{name} wants a record, and {function.name} has none")
            continue
        own = function.parameter(source) if source else None
        if own and not own.memory and own.declaration.split()[0] == p.declaration.split()[0]:
            at = function.parameters.index(own)
            result.passing += [(index, part, Formula(text, resolve_number("values", at, part)))
                               for part, text in enumerate([source] * p.count)]
        elif source and (p.name in given or p.item in given):
            result.passing.append((index, 0, Formula(source, resolve)))
        elif query and not other.example.get(p.name):
            raise ValueError(f"nothing tells what {name} gets as {p.name}")
    if query:
        outputs = [i for i, p in enumerate(other.parameters) if p.role == "out" and output in (None, p.name)]
        if len(outputs) != 1:
            raise ValueError(f"'{text}' does not tell which argument of {name} receives the size")
        result.output = outputs[0]
    return result


def resolve_number(kind, index, part):
    return lambda path: (kind, index, part)


def _other_facts(function, family, known, statuses):
    name = function.name
    for line, text, _ in family.each("status", name):
        for word in text.split():
            status, colon, written = word.partition(":")
            if status not in statuses:
                raise family.at("status", f"unknown status '{status}'", line)
            where = [function.parameter(w) for w in written.split(",")] if written not in ("", "none") else []
            if None in where or any(not p.memory or "w" not in p.memory.access for p in where):
                raise family.at("status", f"{name} writes nothing to '{written}'", line)
            function.outcomes.append((status, status.startswith("ZorWarn") and not colon,
                                      [function.parameters.index(p) for p in where]))
    for line, text, _, _ in family.matching("alias", name):
        for word in text.split():
            pair = [function.parameter(n) for n in word.split("=")]
            if len(pair) == 2 and None in pair:
                continue  # a form in place has one
            family.used.add(("alias", line))
            if len(pair) != 2 or any(p.role != "image" for p in pair):
                raise family.at("alias", f"{name} has no images '{word}'", line)
            source, dest = (p.memory for p in pair)
            if source.access != "r" or "w" not in dest.access or source.pixel_bytes() != dest.pixel_bytes():
                raise family.at("alias", f"{name}: '{word}' is not source=destination with pixels of one size", line)
            function.aliases.append(tuple(function.parameters.index(p) for p in pair))
    line, text, _, _ = family.first("team", name)
    function.team, _, reason = text.partition(" ")
    if function.team not in ("no", "yes", "contract") or (function.team == "contract") != bool(reason):
        raise family.at("team", f"{name}: 'team' must be yes, no, or contract and a reason", line)
    line, function.rounding, _, _ = family.first("rounding", name)
    if function.rounding not in ("nearest", "callers", "kept"):
        raise family.at("rounding", f"{name}: 'rounding' must be nearest, callers or kept", line)
    line, function.accuracy, _, _ = family.first("accuracy", name)
    writes_numbers = any(p.memory and "w" in p.memory.access and p.memory.element != "pointer"
                         for p in function.parameters)
    if family.built and writes_numbers and not function.accuracy:
        raise family.at("accuracy", f"{name}: nothing tells how far its results are from exact ones", line)
    if '"' in function.accuracy:
        raise family.at("accuracy", f"{name}: no quotation marks", line)
    for line, text, _ in family.each("exempt", name):
        what, _, reason = text.partition(" ")
        if what not in EXEMPTIONS or not reason:
            raise family.at("exempt", f"'exempt' takes one of {', '.join(EXEMPTIONS)} and a reason", line)
        if what in function.exempt:
            raise family.at("exempt", f"{name} is exempt from '{what}' twice", line)
        function.exempt[what] = reason
    function.one_channel_form = _equal_form(function, known, function.one_channel_name())
    function.unmasked = known[function.unmasked_name()].name if function.unmasked_name() in known else None
    if "layout" in function.exempt:
        if not function.one_channel_form:
            raise family.at("exempt", f"{name} has no one-channel form to be exempt from", line)
        function.one_channel_form = None
    if "inplace" in function.exempt and function.partner() not in known:
        raise family.at("exempt", f"{name} has no partner to be exempt from", line)


def _equal_form(function, known, name):
    """The function of that name, when its arguments correspond one by one."""
    other = known.get(name)
    images = [p for p in function.parameters if p.role == "image"]
    if not other or not images or name == function.name or len(other.parameters) != len(function.parameters):
        return None
    kinds = {"value": "in", "param": "in"}
    for p, q in zip(function.parameters, other.parameters):
        if kinds.get(p.role, p.role) != kinds.get(q.role, q.role) and not {p.role, q.role} <= {"in", "value", "param"}:
            return None
        if p.role == "image" and (p.memory.element, p.memory.count) != (q.memory.element, q.memory.count):
            return None
    return name


def checks(function, text, statuses, formula, context):
    """The stages of a 'checks' line."""
    stages, named = [], {"null": set(), "size": set(), "step": set()}
    kinds = {"null": "ZorErrNullPtr", "size": "ZorErrSize", "width": "ZorErrSize", "height": "ZorErrSize",
             "step": "ZorErrStep"}
    everything = function.checkable()
    words = text.split()
    for word in words:
        if words.count(word) > 1 and ":" in word:
            raise ValueError(f"the check '{word}' stands there twice")
        kind, _, rest = word.partition(":")
        if kind in ("width", "height"):
            names = [n for n in everything["size"] if n.endswith("." + kind)][:1]
            if not names or rest:
                raise ValueError(f"{function.name} has no region for the check '{word}'")
            named["size"] |= set(names)
            stages.append(Stage(kind, "ZorErrSize", names))
        elif kind in kinds:
            names = _named(function, kind, rest, everything) if rest else everything[kind]
            names = [n for n in names if n not in named[kind]]
            if not names:
                raise ValueError(f"{function.name} has nothing left for the check '{word}'")
            named[kind] |= set(names)
            stages.append(Stage(kind, kinds[kind], names))
        else:
            if kind not in statuses or not rest:
                raise ValueError(f"unknown check '{word}'")
            limit = _LIMIT.match(rest)
            stages.append(_limited(function, kind, limit, rest, formula, context) if limit else
                          _spoiled(function, kind, rest, context))
    return stages


def _named(function, kind, rest, everything):
    names = []
    for item in rest.split(","):
        stem = item.removesuffix("[]")  # pTable[]: the pointers in an array, not that of the array
        hits = [p for p in function.parameters if stem in (p.name, p.item)]
        if stem != item:
            hits = [p for p in hits if p.memory and p.memory.planes]
        hits = [n + item[len(stem):] for p in hits for n in everything[kind] if n.split(".")[0] == p.name]
        if not hits:
            raise ValueError(f"{function.name} has no argument '{item}' for '{kind}'")
        names += hits
    return names


def _checked(function, name):
    p = function.parameter(name)
    if not p:
        raise ValueError(f"{function.name} has no argument '{name}'")
    return p


def _spoiled(function, status, rest, context):
    """STATUS:a=v[,b=w]: these values together are bad."""
    faults = []
    for assignment in split_outside(rest):
        name, _, value = assignment.partition("=")
        p = _checked(function, name)
        faults.append((p.name, numbers(value)))
    if all(function.example.get(name) == value for name, value in faults):
        raise ValueError(f"{function.name}: the bad value '{rest}' is that of the example")
    return Stage("value", status, [n for n, _ in faults], [faults])


def _limited(function, status, match, text, formula, context):
    """STATUS:a<bound: the number is bad where that holds. The faults are numbers that are bad in every call."""
    name, part, relation, bound = match.groups()
    p = _checked(function, name)
    part = PARTS.get(p.declaration.split()[0], []).index(part) if part else -1
    if p.role not in ("param", "size", "region", "in", "step", "value", "scale"):
        raise ValueError(f"{function.name}: {name} has no number to compare")
    values, legal, at = [], [], None
    if relation == "!=":
        legal = [float(ENUMERATORS.get(v, v)) for v in bound.split("|")]
        values = [max(legal) + 1, min(legal) - 1] + [v + 1 for v in sorted(legal)[:-1] if v + 1 not in legal][:1]
    else:
        at = formula(bound)
        number = context.number(at)
        outside = -1 if relation in ("<", "<=") else 1
        values = [EXTREMES.get(p.element, EXTREMES["32f"])[outside > 0]]
        if at.constant() is not None:  # else another call has another bound
            values.insert(0, number if "=" in relation else number + outside)
        if p.role == "step":  # too small for every row of more than a pixel
            values = [1]
    limit = Limit(p, part, relation, at, legal, text)
    own = [float(n) for n in function.example.get(p.name, []) if n not in ("null", "bad")]
    if p.role != "step" and own:
        checked = own if part < 0 else own[part:part + 1]
        if any(limit.breaks(n, number if at else None) for n in checked):
            raise ValueError(f"{function.name}: the example breaks its own check '{text}'")
    faults = []
    for value in dict.fromkeys(values):
        whole = context.value(p)
        size = p.count
        if p.role == "in" and "*" in p.declaration:
            e = p.memory.extent
            size = int(context.number(e.width) * (context.number(e.height) if e.height else 1))
        whole = [whole[i % len(whole)] for i in range(size)]
        # in the last of several: a family may test its channels one by one
        whole[part if part >= 0 else size - 1] = value
        faults.append([(p.name, [plain(n) for n in whole])])
    return Stage("limit", status, [p.name], faults, limit)


def plain(number):
    return str(int(number)) if abs(number) < 2 ** 53 and number == int(number) else repr(number)
