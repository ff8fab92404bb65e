"""Sums and products of symbolic scalars, in which equal subexpressions are one object.

A value is a `Signed` node: a sign and a node of a graph without signs. With the sign outside,
a - b and b - a share a node, and a minus sign can merge with a sum or a difference. Nodes are
hash-consed: building the same operation on the same operands gives the same node. Zeros, ones and
operations on constants never become nodes.
"""

SNAP = 1e-9  # constants this close to 0, 1 or -1 are rounded to it


class Node:
    """A constant, a variable, or an operation ("+", "-", "*") on two other nodes."""

    __slots__ = ("kind", "payload", "operands", "number")

    def __init__(self, kind, payload, operands, number):
        self.kind = kind
        self.payload = payload  # a constant's value, a variable's C++ text
        self.operands = operands
        self.number = number  # in the order of creation: operands come first


class Signed:
    """A node with a sign, the operand of the arithmetic."""

    __slots__ = ("sign", "node")

    def __init__(self, sign, node):
        self.sign = sign
        self.node = node

    def is_zero(self):
        return self.node.kind == "constant" and self.node.payload == 0.0

    def constant(self):
        """The value of a constant, None of anything else."""
        return self.sign * self.node.payload if self.node.kind == "constant" else None

    def __neg__(self):
        return self if self.is_zero() else Signed(-self.sign, self.node)

    def __add__(self, other):
        return _add(self, _lift(other))

    def __radd__(self, other):
        return _add(_lift(other), self)

    def __sub__(self, other):
        return _add(self, -_lift(other))

    def __rsub__(self, other):
        return _add(_lift(other), -self)

    def __mul__(self, other):
        return _multiply(self, _lift(other))

    __rmul__ = __mul__


_nodes = {}


def _node(kind, payload=None, operands=()):
    key = (kind, payload, tuple(operand.number for operand in operands))
    if key not in _nodes:
        _nodes[key] = Node(kind, payload, operands, len(_nodes))
    return _nodes[key]


def node_count():
    return len(_nodes)


def constant(value):
    nearest = round(value)
    if nearest in (-1, 0, 1) and abs(value - nearest) < SNAP:
        value = float(nearest)
    return Signed(-1 if value < 0.0 else 1, _node("constant", abs(value)))


def variable(text):
    return Signed(1, _node("variable", text))


def _lift(value):
    return value if isinstance(value, Signed) else constant(value)


def _add(a, b):
    if a.is_zero():
        return b
    if b.is_zero():
        return a
    if a.constant() is not None and b.constant() is not None:
        return constant(a.constant() + b.constant())
    if a.node is b.node:
        return 2.0 * a if a.sign == b.sign else constant(0.0)
    if a.node.number > b.node.number:
        a, b = b, a
    return Signed(a.sign, _node("+" if a.sign == b.sign else "-", None, (a.node, b.node)))


def _multiply(a, b):
    if b.constant() is not None:
        a, b = b, a
    factor = a.constant()
    if factor is not None:
        if factor == 0.0:
            return a
        if abs(factor) == 1.0:
            return b if factor > 0.0 else -b
        if b.constant() is not None:
            return constant(factor * b.constant())
        if b.node.kind == "*" and b.node.operands[0].kind == "constant":
            inner, rest = b.node.operands
            return constant(factor * b.sign * inner.payload) * Signed(1, rest)
    elif a.node.number > b.node.number:
        a, b = b, a
    return Signed(a.sign * b.sign, _node("*", None, (a.node, b.node)))


# ---- Vectors of three, and matrices as lists of rows ------------------------------------------


def dot(a, b):
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]


def cross(a, b):
    return [
        a[1] * b[2] - a[2] * b[1],
        a[2] * b[0] - a[0] * b[2],
        a[0] * b[1] - a[1] * b[0],
    ]


def add(a, b):
    return [x + y for x, y in zip(a, b)]


def scale(factor, a):
    return [factor * x for x in a]


def transpose(matrix):
    return [list(column) for column in zip(*matrix)]


def times(matrix, a):
    return [dot(row, a) for row in matrix]


def product(A, B):
    columns = transpose(B)
    return [[dot(row, column) for column in columns] for row in A]
