"""Formulas of the catalogue: numbers that follow from the arguments of a call (syntax: api/README.md)."""
import ast
import math

_OPERATORS = {ast.Add: "+", ast.Sub: "-", ast.Mult: "*", ast.Div: "/", ast.Mod: "%", ast.LShift: "<<"}
_FUNCTIONS = ("min", "max")


class Formula:
    """`resolve` gets a dotted name as a list and returns a number, or ("values" or "maker", index, part); part None
    stands for the number of the plane in question."""

    def __init__(self, text, resolve):
        self.text = text
        try:
            tree = ast.parse(text, mode="eval").body
        except SyntaxError:
            raise ValueError(f"'{text}' is not a formula") from None
        self.tree = self._resolved(tree, resolve)

    def _resolved(self, node, resolve):
        """The tree as tuples: ("number", n), (operator, a, b), (function, a, b), ("values", index, part)."""
        if isinstance(node, ast.Constant) and isinstance(node.value, (int, float)):
            return "number", node.value
        if isinstance(node, ast.UnaryOp) and isinstance(node.op, ast.USub):
            return "-", ("number", 0), self._resolved(node.operand, resolve)
        if isinstance(node, ast.BinOp) and type(node.op) in _OPERATORS:
            return (_OPERATORS[type(node.op)], self._resolved(node.left, resolve), self._resolved(node.right, resolve))
        if isinstance(node, ast.Call) and getattr(node.func, "id", "") in _FUNCTIONS and len(node.args) == 2:
            return (node.func.id, *(self._resolved(a, resolve) for a in node.args))
        path = []
        while isinstance(node, ast.Attribute):
            path.insert(0, node.attr)
            node = node.value
        if not isinstance(node, ast.Name):
            raise ValueError(f"'{self.text}' is not a formula")
        found = resolve([node.id] + path)
        if found is None:
            raise ValueError(f"formula '{self.text}' names no number '{'.'.join([node.id] + path)}'")
        return found if isinstance(found, tuple) else ("number", found)

    def evaluate(self, lookup):
        """The number; lookup(kind, index, part) gives those of the arguments."""
        def value(node):
            head, *rest = node
            if head == "number":
                return rest[0]
            if head in ("values", "maker"):
                return lookup(head, *rest)
            a, b = map(value, rest)
            return {"+": lambda: a + b, "-": lambda: a - b, "*": lambda: a * b, "/": lambda: math.floor(a / b),
                    "%": lambda: a % b, "<<": lambda: a * 2 ** b, "min": lambda: min(a, b),
                    "max": lambda: max(a, b)}[head]()
        return value(self.tree)

    def constant(self):
        """The number of a formula without arguments, else None."""
        try:
            return self.evaluate(None)
        except TypeError:
            return None

    def code(self):
        """The formula as a C++ expression over a Context `c`."""
        def text(node):
            head, *rest = node
            if head == "number":
                return str(rest[0])
            if head in ("values", "maker"):
                return f"c.{head}[{rest[0]}].numbers[{'c.plane' if rest[1] is None else rest[1]}]"
            a, b = map(text, rest)
            call = {"/": "quotient", "%": "modulo", "<<": "shifted", "min": "least", "max": "greatest"}.get(head)
            return f"{call}({a}, {b})" if call else f"({a} {head} {b})"
        return text(self.tree)
