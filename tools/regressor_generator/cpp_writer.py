"""C++ statements of expressions: an operation that is used more than once becomes a numbered term.

A first set of statements computes the terms; a second one computes the entries of the result from
the terms alone. Operations that are used once are written inside the statement that uses them.
"""

import textwrap

from expressions import Signed


class CppWriter:
    def __init__(self, entries):
        self.entries = entries
        self._uses = {}
        for entry in entries:
            self._count(entry.node)
        read_by_entries = self._variables_read_by_entries()
        terms = [
            node
            for node in self._uses
            if node in read_by_entries or (node.operands and self._uses[node] > 1)
        ]
        self.terms = sorted(terms, key=lambda node: node.number)
        self._index = {node: index for index, node in enumerate(self.terms)}

    def _count(self, node):
        self._uses[node] = self._uses.get(node, 0) + 1
        if self._uses[node] == 1:
            for operand in node.operands:
                self._count(operand)

    def _variables_read_by_entries(self):
        """The variables that entries use outside of every term."""
        variables = set()
        waiting = [entry.node for entry in self.entries]
        while waiting:
            node = waiting.pop()
            if node.kind == "variable":
                variables.add(node)
            elif self._uses[node] == 1:
                waiting.extend(node.operands)
        return variables

    def term_statement(self, node):
        text = node.payload if node.kind == "variable" else self._sum(Signed(1, node), node)
        return _statement(f"terms[{self._index[node]}]", text)

    def entry_statement(self, index):
        entry = self.entries[index]
        return _statement(f"Y[{index}]", "0.0" if entry.is_zero() else self._sum(entry))

    # ---- Text of expressions; `defined` is the term that the statement assigns ----

    def _sum(self, value, defined=None):
        parts = self._summands(value, defined)
        first = next((part for part in parts if part[0] > 0), parts[0])
        parts.remove(first)
        text = ("-" if first[0] < 0 else "") + first[1]
        return text + "".join((" + " if sign > 0 else " - ") + part for sign, part in parts)

    def _summands(self, value, defined=None):
        node = value.node
        if node.kind not in ("+", "-") or (node in self._index and node is not defined):
            return [(value.sign, self._product(node, defined))]
        a, b = node.operands
        sign_of_b = value.sign if node.kind == "+" else -value.sign
        return self._summands(Signed(value.sign, a)) + self._summands(Signed(sign_of_b, b))

    def _product(self, node, defined=None):
        if node in self._index and node is not defined:
            return f"terms[{self._index[node]}]"
        if node.kind == "*":
            return " * ".join(self._product(operand) for operand in node.operands)
        if node.operands:
            return f"({self._sum(Signed(1, node))})"
        return repr(node.payload) if node.kind == "constant" else node.payload


def _statement(target, text):
    return "\n".join(
        textwrap.wrap(
            f"{target} = {text};",
            width=98,
            initial_indent="  ",
            subsequent_indent="      ",
            break_long_words=False,
            break_on_hyphens=False,
        )
    )
