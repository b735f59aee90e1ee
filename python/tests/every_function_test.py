"""Every function of the catalogue called through the binding, its results those of the C call (made by ctypes)."""
import ctypes
import functools
import pathlib
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
        self.makers = []  # (function, arguments) of the calls that made its record
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
        if m and m.element == "pointer":
            e = m.extent
            return [self.random.uniform(-100, 100, self.number(e.width, 1)).astype("f4")
                    for _ in range(self.number(e.height, 1))]
        if p.declaration.startswith("void*"):
            return zori.zoriMalloc_8u_C1(16, 16)
        if p.role == "record":
            return self.made(p)
        if p.role in ("in", "out") and "r" in m.access:
            example = self.function.example.get(p.name)
            arrays, e = [], m.extent
            for plane in range(m.planes or 1):
                n = self.number(e.width, region[0], plane) + self.number(e.left, 0) + self.number(e.right, 0)
                n *= self.number(e.height, 1, plane) * m.count
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
            self.makers.append((f, {name: copied(value) for name, value in arguments.items()}))
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


def in_c(library, f, arguments, made=None):
    """The same call without the binding, with a record that was made without it: (result, outputs, record)."""
    slots, kept, outputs, steps, record = {}, [], [], {}, ctypes.c_void_p(made)
    for p in f.parameters:
        value, m, kind = arguments.get(p.name), p.memory, python_binding.letter(p)
        if p.role == "image":
            planes = value if m.planes else [value]
            steps[m.step] = planes[0].strides[0]
            pointers = [a.ctypes.data for a in planes]
            left, top = margin_of(f, p)
            pointers = [a.ctypes.data + top * a.strides[0] + left * a.strides[1] for a in planes]
            slots[p.name] = (ctypes.c_void_p * len(planes))(*pointers) if m.planes else ctypes.c_void_p(pointers[0])
        elif p.role == "record" and not p.size:
            slots[p.name] = record
        elif p.role in ("record", "buffer"):
            block = np.zeros(1 << 22, "uint8")
            kept.append(block)
            slots[p.name] = ctypes.c_void_p((block.ctypes.data + 63) & ~63)
            if p.role == "record":
                record = (slots[p.name].value, block)
        elif p.role == "out" and m.element == "pointer":
            record = ctypes.c_void_p()
            slots[p.name] = ctypes.byref(record)
        elif p.role in ("in", "out"):
            arrays = value if m.planes or m.element == "pointer" else [value]
            if value is None:
                arrays = [np.zeros(1 << 20, "uint8") for _ in range(m.planes or 1)]
                outputs.append(arrays)
            pointers = [a.ctypes.data + margin_of(f, p)[0] * a.itemsize for a in arrays]
            several = m.planes or m.element == "pointer"
            slots[p.name] = (ctypes.c_void_p * len(arrays))(*pointers) if several else ctypes.c_void_p(pointers[0])
            kept.append(arrays)
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
    result = getattr(library, f.name)(*(slots[p.name] for p in f.parameters))
    return result, outputs, record


def margin_of(f, p):
    e, context = p.memory.extent, facts.Context(f, functions())
    return [int(context.number(side)) if side else 0 for side in (e.left, e.top)]


def c_record(library, makers):
    """(address, what must live as long) of the record that the same calls without the binding make."""
    record, kept = None, []
    for f, arguments in makers:
        status, _, made = in_c(library, f, arguments, record)
        assert status >= 0, (f.name, status)
        address, block = made if isinstance(made, tuple) else (made.value, None)
        record = address or record
        kept.append(block)
    return record, kept


def copied(value):
    if isinstance(value, np.ndarray):
        if value.ndim == 2 and value.strides[1] != value.itemsize:  # one channel of many
            return value.base.copy()[..., 0]
        return value.copy()
    return [copied(v) for v in value] if isinstance(value, list) else value


def as_bytes(value, room=None):
    return b"".join(np.ascontiguousarray(v).tobytes() for v in (value if isinstance(value, list) else [value]))


class EveryFunction(unittest.TestCase):

    def setUp(self):
        self.library = ctypes.CDLL("libzoriq7-5.3.so.5")

    def compare(self, f):
        example = Example(f)
        arguments = example.arguments
        twin = {name: copied(value) for name, value in arguments.items()}
        result = getattr(zori, f.name)(**arguments)
        record, _ = kept = c_record(self.library, example.makers)
        status, outputs, made = in_c(self.library, f, twin, record)
        self.assertGreaterEqual(status, 0)
        for p in f.parameters:
            if p.memory and "w" in p.memory.access and arguments.get(p.name) is not None:
                self.assertEqual(as_bytes(arguments[p.name]), as_bytes(twin[p.name]), p.name)
        results = [] if result is None else list(result) if isinstance(result, tuple) else [result]
        records = [r for r in results if isinstance(r, zori.Record)]
        self.assertEqual(len(records), sum(p.role == "record" and bool(p.size) or p.role == "out" and
                                           p.memory.element == "pointer" for p in f.parameters))
        results = [r for r in results if not isinstance(r, zori.Record)]
        outs = [p for p in f.parameters
                if p.role == "out" and p.memory.element != "pointer" and arguments.get(p.name) is None]
        self.assertEqual(len(results), len(outs))
        for p, ours, theirs in zip(outs, results, outputs):
            if isinstance(ours, (int, float)):
                ours = np.array(ours, DTYPES[p.memory.element])
            for a, b in zip(ours if p.memory.planes else [ours], theirs):
                self.assertEqual(as_bytes(a), b.tobytes()[:np.asarray(a).nbytes], p.name)
        del kept

    def compare_memory(self, f):
        """What zoriMalloc... gives: the shape that its name tells, the step of the C call, pixels that hold."""
        step = ctypes.c_int()
        call = getattr(self.library, f.name)
        call.restype = ctypes.c_void_p
        address = call(17, 5, ctypes.byref(step))
        self.assertTrue(address)
        self.library.zoriFree(ctypes.c_void_p(address))
        memory = getattr(zori, f.name)(17, 5)
        pixels = np.asarray(memory)
        m = facts_of_memory(f)
        self.assertEqual((pixels.shape, pixels.dtype.name), ((5,) + image_shape(m, 17, 5)[1:], dtype_of(m)))
        self.assertEqual(pixels.strides[0], step.value)
        pixels[...] = 3
        with self.assertRaises(BufferError):
            zori.zoriFree(memory)
        self.assertTrue((pixels == 3).all())
        del pixels
        zori.zoriFree(memory)

    def test_results_are_those_of_the_c_call(self):
        called = 0
        for f in functions().values():
            with self.subTest(f.name), warnings.catch_warnings():
                warnings.simplefilter("ignore", zori.StatusWarning)
                if f.name == "zoriGetLibVersion":
                    self.assertEqual(zori.zoriGetLibVersion()["version"].encode(), self.version())
                elif python_binding.makes_memory(f):
                    self.compare_memory(f)
                elif f.name == "zoriFree":
                    zori.zoriFree(zori.zoriMalloc_8u_C1(1, 1))
                else:
                    self.compare(f)
                called += 1
        print(f"{called} functions called, their results those of the C call", file=sys.stderr)
        self.assertEqual(called, len(functions()))

    def version(self):
        class Version(ctypes.Structure):
            _fields_ = [("numbers", ctypes.c_int * 4), ("cpu", ctypes.c_char * 4), ("name", ctypes.c_char_p),
                        ("version", ctypes.c_char_p), ("date", ctypes.c_char_p)]
        self.library.zoriGetLibVersion.restype = ctypes.POINTER(Version)
        return self.library.zoriGetLibVersion().contents.version


def facts_of_memory(f):
    """The pixels that a name like zoriMalloc_8u_C3 tells, as those of an image."""
    _, element, count = python_binding.catalogue.ELEMENTS[f.types["D"]]
    channels, planes, _ = python_binding.catalogue.LAYOUTS[f.layouts["D"]]
    return python_binding.catalogue.Memory(element, count, channels, planes)


if __name__ == "__main__":
    unittest.main()
