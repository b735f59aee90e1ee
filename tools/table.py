"""The function table: the catalogue as C++ text, for tests and benchmarks (tests/support/function_table.h)."""
import facts
from documentation import MARK


class Table:
    """The function table of one subsystem as C++ text; equal arrays are written once."""

    def __init__(self):
        self.arrays, self.known, self.formulas = [], {}, {}

    def array(self, c_type, stem, items):
        """A reference to a static array that holds the items."""
        if not items:
            return "{}"
        body = ", ".join(items)
        key = (c_type, body)
        if key not in self.known:
            self.known[key] = f"{stem}{len(self.known)}"
            self.arrays.append(f"constexpr {c_type} {self.known[key]}[] = {{{body}}};")
        return f"{{{self.known[key]}, {len(items)}}}"

    def values(self, texts):
        special = {"nan": "kNan", "inf": "kInfinity", "-inf": "-kInfinity", "null": "kNull", "bad": "kBadRecord"}
        return self.array("double", "values", [special.get(t, t) for t in texts or []])

    def formula(self, formula):
        """The name of a function for a formula; equal ones are written once."""
        if formula is None:
            return "nullptr"
        code = formula.code()
        if code not in self.formulas:
            self.formulas[code] = f"formula{len(self.formulas)}"
        return self.formulas[code]

    def argument(self, function, p):
        names = [q.name for q in function.parameters]
        m, memory = p.memory, "{}"
        if m:
            e = m.extent
            extent = ", ".join(map(self.formula, [e.width, e.height, e.left, e.top, e.right, e.bottom])) if e else ""
            base = "Pointer" if m.element == "pointer" else "T" + m.element
            step, bits = (names.index(n) if n else -1 for n in (m.step, m.bits))
            kept = {None: "None", "alpha": "Alpha", "other": "Other"}[m.kept]
            memory = (f"{{Element::{base}, {m.count}, {m.channels}, {m.planes}, {str('r' in m.access).lower()}, "
                      f"{str('w' in m.access).lower()}, {str(m.mask).lower()}, Kept::{kept}, {step}, {bits}, "
                      f"{{{extent}}}}}")
        ranges = self.array("Range", "ranges", [
            f"{{{r.part}, {self.formula(r.low)}, {self.formula(r.high)}, {self.values(r.choices)}}}"
            for r in function.ranges.get(p.name, [])])
        example = self.values(function.example.get(p.name) or function.example.get(p.item))
        any_step = str(p.role == "step" and p.name not in function.tested_steps()).lower()
        return (f'{{"{p.name}", "{p.item}", Role::{p.role.capitalize()}, {str(p.optional).lower()}, '
                f"Element::T{p.element}, {p.count}, {memory}, {example}, {ranges}, {any_step}, "
                f"{self.link(p.size)}, {p.alignment}}}")

    def link(self, link):
        if not link:
            return "{}"
        passing = self.array("Passing", "passing",
                             [f"{{{a}, {part}, {self.formula(f)}}}" for a, part, f in link.passing])
        return f'{{"{link.function}", {passing}, {link.output}}}'

    def faults(self, function, stage):
        """Ways to fail a stage, as initialisers of Fault."""
        names = [p.name for p in function.parameters]
        apart = {name for other in function.checks for name in other.names if name.endswith("[]")}
        for together in stage.faults:
            for name, value in together:
                yield f"{{{names.index(name)}, -1, FaultKind::Value, {self.values(value)}}}"
        for name in stage.names if not stage.faults else []:
            name, _, side = name.partition(".")
            at = names.index(name.removesuffix("[]"))
            if stage.kind == "null":
                if name not in apart:
                    yield f"{{{at}, -1, FaultKind::Null, {{}}}}"
                memory = function.parameters[at].memory
                for plane in range(memory.planes if memory and f"{name}[]" not in apart else 0):
                    yield f"{{{at}, {plane}, FaultKind::Null, {{}}}}"
            elif stage.kind == "step":
                yield f"{{{at}, -1, FaultKind::Step, {{}}}}"
            else:
                yield f"{{{at}, {int(side == 'height')}, FaultKind::Size, {{}}}}"

    def limit(self, function, index, stage):
        limit = stage.limit
        legal = self.values([facts.plain(n) for n in limit.legal])
        return (f"{{{function.parameters.index(limit.argument)}, {limit.part}, "
                f"Illegal::{facts.ILLEGAL[limit.relation]}, {self.formula(limit.bound)}, {legal}, {stage.status}, {index}}}")

    def partner(self, f, built):
        """The form that is not in place, when it takes the same other arguments."""
        other = built.get(f.partner()) if f.in_place and "inplace" not in f.exempt else None
        plain = [[p.declaration for p in g.parameters if p.role not in ("image", "step")] for g in (f, other) if g]
        images = [sum(p.role == "image" for p in g.parameters) for g in (f, other) if g]
        return other.name if other and plain[0] == plain[1] and images[0] + 1 == images[1] else ""

    def function(self, f, built, releases):
        stages = []
        for stage in f.checks:
            faults = self.array("Fault", "faults", list(self.faults(f, stage)))
            stages.append(f"{{{stage.status}, {str(stage.kind == 'value').lower()}, {faults}}}")
        arguments = self.array("Argument", "arguments", [self.argument(f, p) for p in f.parameters])
        partner = self.partner(f, built)
        exempt = list(f.exempt) + ["threads"] * (f.team == "contract")
        flags = " | ".join(f"k{name.capitalize()}Exempt" for name in exempt) or "0"
        makers = self.array("Link", "links", [self.link(m) for m in f.makers])
        limits = self.array("Limit", "limits", [
            self.limit(f, index, stage) for index, stage in enumerate(f.checks) if stage.limit])
        outcomes = self.array("Outcome", "outcomes", [
            f'{{{status}, {str(complete).lower()}, {self.array("int", "indices", list(map(str, written)))}}}'
            for status, complete, written in f.outcomes])
        aliases = self.array("Alias", "aliases", [f"{{{a}, {b}}}" for a, b in f.aliases])
        return (f'  {{"{f.name}", "{f.family.patterns[0]}", bind({f.name}), {arguments}, '
                f'{self.array("Stage", "stages", stages)}, {limits}, {outcomes}, {aliases}, {makers}, '
                f'"{f.release or ""}", "{partner}", "{f.one_channel_form or ""}", "{f.unmasked or ""}", '
                f"Team::{f.team.capitalize()}, RoundingRule::{f.rounding.capitalize()}, {flags}, "
                f'{str(not f.family.sweep and f.name not in releases).lower()}, "{f.accuracy}"}},')


def table(families, folder, wanted):
    """path -> text: a file a subsystem and one that lists them."""
    built = {f.name: f for family in families if family.built for f in family.functions}
    releases = {f.release for f in built.values()}
    subsystems = {}
    for family in families:
        if family.built and (not wanted or family.subsystem in wanted):
            subsystems.setdefault(family.subsystem, []).append(family)
    files = {}
    for name, members in subsystems.items():
        out = Table()
        rows = [out.function(f, built, releases) for family in members for f in family.functions]
        files[folder / f"functions_{name}.cpp"] = "\n".join(
            [f"// {MARK}{name}.txt.", '#include "support/function_table.h"', "", f'#include "zori/{name}.h"', "",
             "namespace zoritest {", "namespace {", ""]
            + [f"double {name}(const Context& c) {{ (void)c; return {code}; }}" for code, name in out.formulas.items()]
            + [""] + out.arrays + ["", "const Function functions[] = {"] + rows
            + ["};", "", "}  // namespace", "", f"extern const Span<Function> functions_{name};",
               f"const Span<Function> functions_{name} = {{functions, {len(rows)}}};", "",
               "}  // namespace zoritest", ""])
    names = sorted(subsystems)
    files[folder / "functions.cpp"] = "\n".join(
        [f"// {MARK}*.txt.", '#include "support/function_table.h"', "", "namespace zoritest {", ""]
        + [f"extern const Span<Function> functions_{n};" for n in names]
        + ["", "const std::vector<Subsystem>& subsystems() {", "  static const std::vector<Subsystem> all = {"]
        + [f'      {{"{n}", functions_{n}}},' for n in names] + ["  };", "  return all;", "}", "",
                                                               "}  // namespace zoritest", ""])
    return files
