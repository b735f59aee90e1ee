"""The catalogue of the library's functions: reads api/*.txt into families and functions (format: api/README.md).

What is read twice, what serves no function and what contradicts itself is refused with file and line; facts.py reads
what is known of a function beyond its arguments.
"""
import fnmatch
import itertools
import pathlib
import re

import facts

ROOT = pathlib.Path(__file__).resolve().parent.parent

ELEMENTS = {  # type token: C type, base element, elements in one
    "1u": ("Zor8u", "1u", 1), "8u": ("Zor8u", "8u", 1), "8s": ("Zor8s", "8s", 1), "16u": ("Zor16u", "16u", 1),
    "16s": ("Zor16s", "16s", 1), "24u": ("Zor8u", "8u", 3), "32u": ("Zor32u", "32u", 1), "32s": ("Zor32s", "32s", 1),
    "64s": ("Zor64s", "64s", 1), "32f": ("Zor32f", "32f", 1), "64f": ("Zor64f", "64f", 1),
    "16sc": ("Zor16sc", "16s", 2), "16uc": ("Zor16uc", "16u", 2), "32sc": ("Zor32sc", "32s", 2),
    "32fc": ("Zor32fc", "32f", 2), "64fc": ("Zor64fc", "64f", 2),
}
C_TYPES = {c: (base, count) for c, base, count in ELEMENTS.values() if c != "Zor8u"} | {
    "Zor8u": ("8u", 1), "void": ("8u", 1), "char": ("8s", 1), "int": ("32s", 1), "unsigned": ("32u", 1),
    "unsigned int": ("32u", 1), "float": ("32f", 1), "double": ("64f", 1), "ZorImgSize": ("32s", 2),
    "ZorImgPoint": ("32s", 2), "ZorImgRect": ("32s", 4)}
LAYOUTS = {  # token: channels a pixel, planes (0: interleaved), processed channels
    "C1": (1, 0, 1), "C2": (2, 0, 2), "C3": (3, 0, 3), "C4": (4, 0, 4), "AC1": (1, 0, 1), "AC4": (4, 0, 3),
    "A0C4": (4, 0, 3), "P2": (1, 2, 2), "P3": (1, 3, 3), "P4": (1, 4, 4), "AP4": (1, 4, 4),
}
_TYPE = "1u|8u|8s|16uc|16sc|16u|16s|24u|32u|32sc|32s|32fc|32f|64s|64fc|64f"
_LAYOUT = "AC1|AC4|AP4|A0C4|C[1-4]|P[2-4]"
_NAME = re.compile(rf"(?:.*?_({_TYPE})({_TYPE})?)?(?:_({_LAYOUT})({_LAYOUT})?(I?M?C?R?)(Sfs)?)?$")
_IMAGE = re.compile(r"(src\d?|dst|srcDst|mask)(?::(\w+))?(?:\(([^)]*)\))?(?:@(\S+))?$")
_CTYPE = re.compile(r"(const )?([A-Za-z]\w*(?: int)?)((?: ?\*(?: ?const)?)*)((?:\[\w+\])*)$")
ROLES = "param in out inout size step bits buffer record value".split()
ONCE = "title returns built sweep text".split()  # keys that a family tells once, for all its functions
KEYS = ("family args checks example range record bytes release alias status team rounding accuracy exempt".split()) + ONCE


class CatalogueError(Exception):
    """A fault in a catalogue file; the text starts with file:line."""


def _declared():
    """Types that the shared header declares."""
    header = (ROOT / "include/zori/types.h").read_text()
    return set(re.findall(r"^(?:typedef .*?|} )(\w+);", header, re.M))


DECLARED = _declared()


def fault_at(path, line, fault):
    return CatalogueError(f"{path.relative_to(ROOT) if path.is_relative_to(ROOT) else path}:{line}: {fault}")


def expand(pattern):
    """All names of a brace pattern, in order."""
    pieces = [p[1:-1].split(",") if p[0] == "{" else [p] for p in re.findall(r"\{[^}]*\}|[^{]+", pattern)]
    return ["".join(choice) for choice in itertools.product(*pieces)]


def split_outside_braces(text, separator=","):
    return re.split(separator + r"(?![^{]*\})", text)


class Memory:
    """What a pointer argument points to: an image, or an array (one row)."""

    def __init__(self, element, count=1, channels=1, planes=0, access="r", extent=None):
        self.element, self.count = element, count      # base element; elements in one sample
        self.channels, self.planes = channels, planes  # samples in one pixel; 0 planes: one pointer
        self.access, self.extent = access, extent
        self.kept = None      # "alpha": the fourth channel is not touched, "other": only the addressed channel is
        self.step = None      # name of the step argument
        self.bits = None      # name of the argument that tells the first bit of a row
        self.mask = False

    def pixel_bytes(self):
        return max(int(self.element.rstrip("usf")) // 8, 1) * self.count * self.channels


class Parameter:
    """One parameter of the C prototype."""

    def __init__(self, role, name, declaration, memory=None, optional=False, item=None, count=1, element="32s"):
        self.role, self.name, self.declaration = role, name, declaration
        self.memory, self.optional = memory, optional
        self.item = item or name  # the catalogue's name for it: images are known by their role, too
        self.count = count        # numbers in a value
        self.element = element    # type of its numbers
        self.size, self.alignment = None, 1  # Link to the query of a block's size


class Function:
    """One exported function: parameters, checks, example values."""

    def __init__(self, name, family):
        self.name, self.family = name, family
        match = _NAME.match(name)
        source, dest, layout, dst_layout, suffix, _ = match.groups() if match else (None,) * 6
        self.types = {"S": source, "D": dest or source}
        self.layouts = {"S": layout, "D": dst_layout or layout}
        self.one_channel = "C" in (suffix or "")
        self.in_place = "I" in (suffix or "")
        self.parameters, self.checks, self.checks_glob, self.example = [], [], "", {}
        self.ranges, self.makers, self.release, self.exempt = {}, [], None, {}
        self.limits, self.outcomes, self.aliases = [], [], []
        self.one_channel_form = self.unmasked = None
        self.team = self.rounding = None
        self.accuracy = ""

    def partner(self):
        """Name of the form that is not in place."""
        return re.sub(r"(_(?:AC4|AP4|C\d|P\d))I(M?C?R?(?:Sfs)?)$", r"\1\2", self.name)

    def _renamed(self, change):
        """The name with another layout and suffix: change(layout, suffix) gives both."""
        match = re.fullmatch(rf"(.*_)({_LAYOUT})({_LAYOUT})?(I?M?C?R?)((?:Sfs)?)", self.name)
        return match[1] + "".join(change(match[2] + (match[3] or ""), match[4])) + match[5] if match else None

    def one_channel_name(self):
        return self._renamed(lambda layout, suffix: ("C1", suffix.replace("C", "")))

    def unmasked_name(self):
        name = self._renamed(lambda layout, suffix: (layout, suffix.replace("M", "")))
        return name if name != self.name else None

    def parameter(self, name):
        return next((p for p in self.parameters if name in (p.name, p.item)), None)

    def checkable(self):
        """What the checks of each kind can look at."""
        regions = [p.name for p in self.parameters if p.role in ("region", "size")]
        return {"null": [p.name for p in self.parameters
                         if (p.memory or p.role in ("buffer", "record")) and not p.optional],
                "size": [f"{r}.{side}" for r in regions for side in ("width", "height")],
                "step": [p.name for p in self.parameters if p.role == "step"]}

    def tested_steps(self):
        return {name for stage in self.checks if stage.kind == "step" for name in stage.names}

    def processed(self):
        layout = self.layouts["D"]
        return 1 if self.one_channel or not layout else LAYOUTS[layout][2]

    def prototype(self):
        arguments = ", ".join(p.declaration for p in self.parameters) or "void"
        return f"{self.c_type(self.family.returns)} {self.name}({arguments});"

    def c_type(self, text):
        """Replaces S, D, [n] and `?` of a catalogue type by what they stand for in this function."""
        for side in "SD":
            if re.search(rf"\b{side}\b", text):
                if not self.types[side]:
                    raise ValueError(f"{self.name} has no type token for {side}")
                text = re.sub(rf"\b{side}\b", ELEMENTS[self.types[side]][0], text)
        if text.endswith("?"):
            text = text[:-1] if self.processed() == 1 else f"const {text[:-1]}[n]"
        return text.replace("[n]", f"[{self.processed()}]")

    def add(self, argument):
        """Adds the C parameters of one catalogue argument."""
        parts = argument.split("=", 1)
        image = _IMAGE.match(argument) if len(parts) == 1 else None
        if image:
            self._add_image(*image.groups())
        elif len(parts) == 1:
            role, _, name = argument.partition(":")
            if role == "roi":
                name = name or "roiSize"
                self.parameters.append(Parameter("region", name, f"ZorImgSize {name}", item="roi", count=2))
            elif role == "scale":
                name = name or "scaleFactor"
                self.parameters.append(Parameter("scale", name, f"int {name}", item="scale"))
            elif role == "value":
                self._add_other("value", name or "value", "D?", False)
            else:
                raise ValueError(f"unknown argument '{argument}'")
        else:
            *roles, name = parts[0].split(":")
            optional = "optional" in roles
            roles = [r for r in roles if r != "optional"]
            if len(roles) > 1 or (roles and roles[0] not in ROLES):
                raise ValueError(f"unknown role in '{argument}'")
            self._add_other(roles[0] if roles else None, name, parts[1], optional)

    def _add_image(self, role, name, override, extent):
        side = "S" if role.startswith("src") and role != "srcDst" else "D"
        token, layout, *options = f"{override or ''},,".split(",")
        token = self.types.get(token, token) if token else "8u" if role == "mask" else self.types[side]
        layout = layout or ("C1" if role == "mask" else self.layouts[side] or "C1")
        if token not in ELEMENTS or layout not in LAYOUTS or set(options) - {"", "nostep", "one"}:
            raise ValueError(f"{self.name}: '{role}' has no known type and layout ({token}, {layout})")
        c_type, element, count = ELEMENTS[token]
        channels, planes, _ = LAYOUTS[layout]
        stem = name or role
        stem = stem[1].lower() + stem[2:] if re.match(r"p[A-Z]", stem) else stem
        name = "p" + stem[0].upper() + stem[1:]
        access = {"srcDst": "rw", "dst": "w"}.get(role, "r")
        memory = Memory(element, count, channels, planes, access, extent)
        memory.mask = role == "mask"
        memory.kept = "alpha" if layout in ("AC4", "A0C4") else None
        if "one" in options or (self.one_channel and role != "mask" and not override):
            memory.kept = "other"
        const = "const " if access == "r" else ""
        declaration = f"{const}{c_type}* const {name}[{planes}]" if planes else f"{const}{c_type}* {name}"
        self.parameters.append(Parameter("image", name, declaration, memory, item=role))
        if "nostep" not in options:
            memory.step = stem + "Step"
            self.parameters.append(Parameter("step", memory.step, f"int {memory.step}", item=role))

    def _add_other(self, role, name, text, optional):
        text, _, extent = text.partition("@")
        text = self.c_type(text)
        match = _CTYPE.match(text)
        if not match:
            raise ValueError(f"{self.name}: type '{text}' of {name} is not understood")
        const, base, stars, dims = match.groups()
        if base not in C_TYPES and base not in DECLARED:
            raise ValueError(f"{self.name}: no type '{base}' is declared")
        bracket = text.find("[")
        declaration = f"{text} {name}" if bracket < 0 else f"{text[:bracket]} {name}{text[bracket:]}"
        element, count = C_TYPES.get(base, ("32s" if base.startswith("Zor") else "8u", 1))
        stars, dims = stars.count("*"), [int(d) for d in re.findall(r"\d+", dims)]
        if not stars and not dims:  # by value
            if role == "bits":  # of the packed image in front of it
                if not self.parameters[-2:] or self.parameters[-2].role != "image":
                    raise ValueError(f"{self.name}: no image stands in front of the bit offset {name}")
                self.parameters[-2].memory.bits, role = name, "param"
            role = role or ("size" if base == "ZorImgSize" else "param")
            self.parameters.append(Parameter(role, name, declaration, None, optional, None, count, element))
            return
        read_too = role == "inout"
        role = "out" if read_too else role
        opaque = base not in C_TYPES and stars == 1 and not dims
        item = role if role == "value" else None
        role = "in" if item else role or ("record" if opaque else "in" if const else "out")
        memory = None
        if role in ("in", "out"):
            total = 1
            for d in dims:
                total *= d
            planes = total if stars and dims else 0
            memory = Memory("pointer" if stars > 1 else element, 1 if stars > 1 else count, 1, planes,
                            "r" if role == "in" else "rw" if const or read_too else "w",
                            extent or f"{1 if planes else total}x1")
            count *= 1 if planes else total
        self.parameters.append(Parameter(role, name, declaration, memory, optional, item, count, element))


class Family:
    """One block of the catalogue. `lines` holds the key lines: key -> [(line number, text)]."""

    def __init__(self, path):
        self.path, self.lines, self.functions, self.paragraphs = path, {}, [], []
        self.used = set()                              # (key, line) that serve a function
        self.assignments, self.served = set(), set()   # (line, key, name=value) of examples and ranges

    def at(self, key, fault, line=None):
        return fault_at(self.path, line or (self.lines.get(key) or self.lines["family"])[0][0], fault)

    def texts(self, key):
        return [text for _, text in self.lines.get(key, [])]

    @property
    def subsystem(self):
        return self.path.stem

    @property
    def patterns(self):
        return [p for text in self.texts("family") for p in text.split()]

    title = property(lambda self: self.texts("title")[0])
    returns = property(lambda self: (self.texts("returns") or ["ZorStatus"])[0])
    built = property(lambda self: self.texts("built") == ["yes"])
    sweep = property(lambda self: (self.texts("sweep") or [None])[0])

    def matching(self, key, name):
        """(line, text without its glob, glob) of the lines that serve a name."""
        for line, text in self.lines.get(key, []):
            first, _, rest = text.partition(" ")
            if "*" in first and not re.search(r"[=:(<>]", first):
                glob = next((g for g in expand(first) if fnmatch.fnmatchcase(name, g)), None)
                if glob:
                    yield line, rest.strip(), first, glob
            else:
                yield line, text, "", ""

    def first(self, key, name):
        """The first line that serves a name; it has a use from now on."""
        for line, text, first, glob in self.matching(key, name):
            self.used.add((key, line))
            return line, text, first, glob
        return None, "", "", ""

    def each(self, key, name):
        for line, text, first, glob in self.matching(key, name):
            self.used.add((key, line))
            yield line, text, glob

    def declare(self):
        """Builds the functions with their arguments."""
        for key in ("title", "args", "text"):
            if key not in self.lines or key == "text" and not any(map(any, self.paragraphs)):
                raise self.at(key, f"family without '{key}'")
        for key in ONCE:
            if len(self.lines.get(key, [])) > 1:
                raise self.at(key, f"a second '{key}'", self.lines[key][1][0])
        if self.title.endswith(".") or not self.title:
            raise self.at("title", "a title is a line without full stop")
        if self.sweep and not re.match(r"no \S", self.sweep):
            raise self.at("sweep", "'sweep' must be 'no' and a reason")
        if self.texts("built") not in ([], ["yes"], ["no"]):
            raise self.at("built", "'built' must be yes or no")
        for line, pattern in [(n, p) for n, text in self.lines["family"] for p in text.split()]:
            for name in expand(pattern):
                if not re.fullmatch(r"zori[A-Z]\w*", name):
                    raise self.at("family", f"'{name}' is not a name", line)
                self.functions.append(self._function(name))
        if not self.functions:
            raise self.at("family", "family without names")

    def _function(self, name):
        function = Function(name, self)
        line, text, _, _ = self.first("args", name)
        if line is None:
            raise self.at("args", f"no 'args' line serves {name}")
        try:
            for argument in join_types(text.split()):
                function.add(argument)
            attach_steps(function)
            names = [p.name for p in function.parameters]
            if len(set(names)) < len(names):
                raise ValueError(f"{name} has two arguments of one name")
        except (ValueError, KeyError) as fault:
            raise self.at("args", fault, line) from None
        return function

    def read_links(self, known):
        for function in self.functions:
            facts.links(function, self, known)

    def complete(self, known, statuses):
        """Reads the facts of all functions; every line must serve one."""
        for function in self.functions:
            facts.complete(function, self, known, statuses)
        for key in set(self.lines) - {"family", *ONCE}:
            for line, text in self.lines[key]:
                if (key, line) not in self.used:
                    raise self.at(key, f"'{key} {text}' serves no function", line)
        for line, key, assignment in sorted(self.assignments - self.served):
            raise self.at(key, f"'{assignment}' serves no function", line)


def join_types(tokens):
    """Arguments whose type holds blanks (const int[3]) come as several tokens."""
    arguments = []
    for token in tokens:
        if arguments and (re.search(r"(^|=|\s)(const|unsigned)$", arguments[-1]) or re.match(r"const\b|\*", token)):
            arguments[-1] += " " + token
        else:
            arguments.append(token)
    return arguments


def attach_steps(function):
    """An image without a step of its own takes the step argument that bears its name."""
    for p in function.parameters:
        if p.role == "image" and not p.memory.step:
            stem = p.name[1].lower() + p.name[2:]
            own = [q for q in function.parameters if q.role == "step" and q.name == stem + "Step"]
            p.memory.step = own[0].name if own else None


def read_file(path):
    families, family, in_text = [], None, False
    for number, raw in enumerate(path.read_text().splitlines(), 1):
        line = raw.rstrip()
        if line.startswith("#") or not line:
            continue
        if line[0] == " " and not in_text:  # continues the line above
            if family is None:
                raise fault_at(path, number, "indented line before the first 'family'")
            at, text = family.lines[key][-1]
            family.lines[key][-1] = at, f"{text} {line.strip()}"
            continue
        if line[0] == " ":
            body = line[4:] if line.startswith("    ") else line.lstrip()
            if "/*" in body or "*/" in body:
                raise fault_at(path, number, "comment marks cannot stand in a text")
            if body == ".":
                family.paragraphs.append([])
            else:
                family.paragraphs[-1].append(body)
            continue
        key, _, text = line.partition(" ")
        if key not in KEYS:
            raise fault_at(path, number, f"unknown key '{key}'")
        if key == "family" and (family is None or set(family.lines) != {"family"}):
            family = Family(path)
            families.append(family)
        if family is None:
            raise fault_at(path, number, f"'{key}' before the first 'family'")
        in_text = key == "text"
        if in_text:
            family.paragraphs = [[text.strip()]] if text.strip() else [[]]
        family.lines.setdefault(key, []).append((number, text.strip()))
    for family in families:
        family.declare()
    return families


def load(folder=ROOT / "api"):
    """All families of all catalogue files; names are unique."""
    families, known = [], {}
    for path in sorted(pathlib.Path(folder).glob("*.txt")):
        families += read_file(path)
    for family in families:
        for function in family.functions:
            if function.name in known:
                raise family.at("family", f"{function.name} stands in the catalogue twice")
            known[function.name] = function
    statuses = {name for name in facts.ENUMERATORS if re.match("Zor(Err|Warn)", name)}
    for family in families:
        for function in family.functions:
            facts.examples(function, family)
    for family in families:
        family.read_links(known)
    for family in families:
        family.complete(known, statuses)
    return families
