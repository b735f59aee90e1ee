"""Every function of the catalogue called through the binding, its results those of the C call (made by ctypes)."""
import ctypes
import functools
import pathlib
import re
import sys
import unittest
import warnings
import zlib

import numpy as np
import zori

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools"))
sys.dont_write_bytecode = True
import facts           # noqa: E402
import python_binding  # noqa: E402

# What Python does otherwise: image memory is arrays; and what cannot be called safely.
LEFT_OUT = re.compile(r"zori(Malloc_.*|Free)$|" + python_binding.LEFT_OUT.pattern)
DTYPES = python_binding.DTYPES


@functools.lru_cache(None)
def functions():
    return {f.name: f for family in python_binding.load() for f in family.functions if f.family.built}


def image_shape(m, width, height):
    shape = [height, (width + 7) // 8 + 1 if m.element == "1u" else width]
    channels = 1 if m.planes else m.channels
    if m.element == "8u" and m.count > 1:
        channels *= m.count
    if channels > 1:
        shape.append(channels)
    if m.count == 2 and m.element not in ("32f", "64f"):
        shape.append(2)
    return tuple(shape)


def dtype_of(m):
    if m.count == 2 and m.element in ("32f", "64f"):
        return {"32f": "complex64", "64f": "complex128"}[m.element]
    return DTYPES[m.element]


class Example:
    """The arguments of a valid call, as the catalogue tells them."""

    def __init__(self, function):
        self.function = function
        self.random = np.random.default_rng(zlib.crc32(function.name.encode()))
        self.context = facts.Context(function, functions())
        self.arguments = {p.name: self.argument(p) for p in python_binding.visible(function)}

    def lookup(self, plane):
        def of(kind, index, part):
            return self.context.lookup(kind, index, plane if part is None else part)
        return of

    def number(self, formula, otherwise, plane=0):
        return otherwise if formula is None else int(formula.evaluate(self.lookup(plane)))

    def samples(self, p, shape, dtype):
        real = np.dtype(dtype).type(0).real.dtype
        low, high = (0, 200) if real.kind == "u" else (-100, 100)
        for r in self.function.ranges.get(p.name, []):
            low, high = ((self.context.number(r.low), self.context.number(r.high)) if r.low else
                         (float(min(r.choices, key=float)), float(max(r.choices, key=float))))
        if real.kind == "f":
            numbers = self.random.uniform(low, high, shape).astype(real)
            return numbers + 1j * self.random.uniform(low, high, shape).astype(real) if dtype.startswith("c") else numbers
        return self.random.integers(int(low), int(high) + 1, shape).astype(real)

    def argument(self, p):
        m, region = p.memory, facts.REGION
        region = [int(float(n)) for n in self.function.example.get("roiSize", region)]
        if p.role == "image":
            e = p.memory.extent
            width = self.number(e.width, region[0]) + self.number(e.left, 0) + self.number(e.right, 0)
            height = self.number(e.height, region[1]) + self.number(e.top, 0) + self.number(e.bottom, 0)
            planes = [self.samples(p, image_shape(m, width, height), dtype_of(m)).astype(dtype_of(m))
                      for _ in range(m.planes or 1)]
            planes = [plane[..., 0] if m.kept == "other" and plane.ndim > 2 else plane for plane in planes]
            return planes if m.planes else planes[0]
        if p.role == "record":
            return self.made(p)
        if p.role in ("in", "out") and m.element != "pointer" and "r" in m.access:
            example = self.function.example.get(p.name)
            arrays = []
            for plane in range(m.planes or 1):
                n = self.number(m.extent.width, region[0], plane) * self.number(m.extent.height, 1, plane) * m.count
                if example:
                    array = np.resize([float(v) for v in example], n).astype(DTYPES[m.element])
                else:
                    array = self.samples(p, n, DTYPES[m.element])
                    if self.function.ranges.get(p.name) is None and array.dtype.kind == "i" and n > 1:
                        array = np.sort(array)
                arrays.append(np.ascontiguousarray(array))
            return arrays if m.planes else arrays[0]
        if p.role == "out":
            return None
        values = list(self.context.value(p)) * 4
        if p.role in ("region", "size") and p.name == "roiSize":
            values = list(region)
        kind = python_binding.letter(p)
        if kind in "fd":
            return float(values[0])
        if kind in "cCF":
            return complex(values[0], values[1])
        whole = tuple(int(v) for v in values)
        return whole[:2] if kind == "s" else whole[:4] if kind == "r" else whole[0]

    def made(self, p):
        """The record that the function wants."""
        record = None
        makers = self.function.makers or [facts.Link(f.name) for f in functions().values()
                                          if f.release == self.function.name][:1]
        for maker in makers:
            example = Example.__new__(Example)
            f = functions()[maker.function]
            passed = {}
            for index, part, formula in maker.passing:
                passed.setdefault(f.parameters[index].name, {})[part] = self.context.number(formula)
            example.function, example.random = f, self.random
            example.context = facts.Context(f, functions())
            arguments = {}
            for q in python_binding.visible(f):
                if q.role == "record":
                    arguments[q.name] = record
                    continue
                value = example.argument(q)
                if q.name in passed:
                    numbers = list(value) if isinstance(value, tuple) else [value]
                    for part, number in passed[q.name].items():
                        numbers[part] = type(numbers[part])(number)
                    value = tuple(numbers) if isinstance(value, tuple) else numbers[0]
                arguments[q.name] = value
            result = getattr(zori, f.name)(**arguments)
            made = result[0] if isinstance(result, tuple) else result
            record = made if isinstance(made, zori.Record) else record
        return record


STRUCTS = {"s": 2, "r": 4}
C_NUMBERS = {"i": ctypes.c_int, "b": ctypes.c_uint8, "h": ctypes.c_int16, "H": ctypes.c_uint16, "I": ctypes.c_uint32,
             "f": ctypes.c_float, "d": ctypes.c_double}


@functools.lru_cache(None)
def struct(element, count):
    return type("Struct", (ctypes.Structure,), {"_fields_": [(f"f{i}", element) for i in range(count)]})


def call_in_c(library, f, arguments):
    """The same call without the binding; None where it needs a record. Returns the outputs that it made."""
    if any(p.role == "record" or p.memory and p.memory.element == "pointer" for p in f.parameters):
        return None
    slots, kept, made, steps = {}, [], [], {}
    for p in f.parameters:
        value, m, kind = arguments.get(p.name), p.memory, python_binding.letter(p)
        if p.role == "image":
            planes = value if m.planes else [value]
            steps[m.step] = planes[0].strides[0]
            e = p.memory.extent
            example = Example.__new__(Example)
            example.function, example.context = f, facts.Context(f, functions())
            left, top = example.number(e.left, 0), example.number(e.top, 0)
            pointers = [a.ctypes.data + top * a.strides[0] + left * a.strides[1] for a in planes]
            slots[p.name] = (ctypes.c_void_p * len(planes))(*pointers) if m.planes else ctypes.c_void_p(pointers[0])
        elif p.role in ("in", "out"):
            arrays = value if m.planes else [value]
            if value is None:
                arrays = [np.zeros(1 << 20, "uint8") for _ in range(m.planes or 1)]
                made.append(arrays)
            pointers = [a.ctypes.data for a in arrays]
            slots[p.name] = (ctypes.c_void_p * len(arrays))(*pointers) if m.planes else ctypes.c_void_p(pointers[0])
            kept.append(arrays)
        elif p.role == "buffer":
            block = np.zeros(1 << 22, "uint8")
            kept.append(block)
            slots[p.name] = ctypes.c_void_p((block.ctypes.data + 63) & ~63)
        elif kind in "sr":
            slots[p.name] = struct(ctypes.c_int, STRUCTS[kind])(*value)
        elif kind in "cCF":
            element = {"c": ctypes.c_int16, "C": ctypes.c_int32, "F": ctypes.c_float}[kind]
            numbers = [value.real, value.imag]
            slots[p.name] = struct(element, 2)(*(numbers if kind == "F" else map(int, numbers)))
        elif value is not None:
            slots[p.name] = C_NUMBERS[kind](value)
    for p in f.parameters:
        if p.name in steps:
            slots[p.name] = ctypes.c_int(steps[p.name])
    status = getattr(library, f.name)(*(slots[p.name] for p in f.parameters))
    return status, made


def copied(value):
    if isinstance(value, np.ndarray):
        if value.ndim == 2 and value.strides[1] != value.itemsize:  # one channel of many
            return value.base.copy()[..., 0]
        return value.copy()
    return [copied(v) for v in value] if isinstance(value, list) else value


def as_bytes(value, room=None):
    return b"".join(np.ascontiguousarray(v).tobytes() for v in (value if isinstance(value, list) else [value]))


class EveryFunction(unittest.TestCase):

    def test_results_are_those_of_the_c_call(self):
        library = ctypes.CDLL("libzoriq7-5.3.so.5")
        called = compared = 0
        for f in functions().values():
            if LEFT_OUT.match(f.name):
                continue
            with self.subTest(f.name), warnings.catch_warnings():
                warnings.simplefilter("ignore", zori.StatusWarning)
                arguments = Example(f).arguments
                twin = {name: copied(value) for name, value in arguments.items()}
                result = getattr(zori, f.name)(**arguments)
                called += 1
                if f.c_type(f.family.returns) != "ZorStatus":
                    continue
                direct = call_in_c(library, f, twin)
                if direct is None:
                    continue
                compared += 1
                status, made = direct
                self.assertGreaterEqual(status, 0)
                for p in f.parameters:
                    if p.memory and "w" in p.memory.access and arguments.get(p.name) is not None:
                        self.assertEqual(as_bytes(arguments[p.name]), as_bytes(twin[p.name]), p.name)
                results = [] if result is None else list(result) if isinstance(result, tuple) else [result]
                outs = [p for p in f.parameters if p.role == "out" and arguments.get(p.name) is None]
                self.assertEqual(len(results), len(outs))
                for p, ours, theirs in zip(outs, results, made):
                    if isinstance(ours, (int, float)):
                        ours = np.array(ours, DTYPES[p.memory.element])
                    for a, b in zip(ours if p.memory.planes else [ours], theirs):
                        self.assertEqual(as_bytes(a), b.tobytes()[:a.nbytes], p.name)
        print(f"{called} functions called, {compared} compared with the C call", file=sys.stderr)
        self.assertGreater(called, 3000)
        self.assertGreater(compared, 2900)


if __name__ == "__main__":
    unittest.main()
