"""The condition of --where: it computes and compares columns, and can do nothing else.

The text is split into tokens and parsed into a tree of the few kinds below. There is no attribute,
no index, no call beyond FUNCTIONS, and no name but those of columns. Python's own parser and
`eval` are not used.
"""

from __future__ import annotations

import re
from collections.abc import Callable, Iterator, Mapping
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

import numpy as np

from vostrel.evaluate._errors import EvaluateError
from vostrel.evaluate._readers import data_of, mask_of

if TYPE_CHECKING:  # takes as long to import as this package
    from numpy.typing import NDArray

#: The functions, of one number each.
FUNCTIONS: dict[str, Callable[[Any], Any]] = {
    name: getattr(np, name)
    for name in ("abs", "sqrt", "exp", "log", "log10", "floor", "ceil", "isnan", "isfinite")
}

#: Binary operators by how strongly they bind: from | to *. A comparison binds more strongly than &.
LEVELS: tuple[tuple[str, ...], ...] = (
    ("|",), ("&",), ("==", "!=", "<=", ">=", "<", ">"), ("+", "-"), ("*", "/", "%")
)
COMPARISONS = LEVELS[2]
WORDS = {"and": "&", "or": "|", "not": "~", "&&": "&", "||": "|", "!": "~"}

OPERATIONS: dict[str, Callable[[Any, Any], Any]] = {
    "|": np.logical_or, "&": np.logical_and, "==": np.equal, "!=": np.not_equal,
    "<": np.less, ">": np.greater, "<=": np.less_equal, ">=": np.greater_equal,
    "+": np.add, "-": np.subtract, "*": np.multiply, "/": np.divide, "%": np.mod,
    "**": np.power,
}

LONGEST = 2000  # characters
MOST = 400  # names, numbers and operators
DEEPEST = 40  # parentheses, signs and powers within each other

TOKEN = re.compile(
    r"\s*(?:"
    r"(?P<number>(?:[0-9]+(?:\.[0-9]*)?|\.[0-9]+)(?:[eE][-+]?[0-9]+)?(?![\w.]))"
    r"|(?P<text>'[^']*'|\"[^\"]*\")"
    r"|(?P<quoted>`[^`]+`)"
    r"|(?P<name>[^\W\d]\w*)"
    r"|(?P<operator>\*\*|==|!=|<=|>=|&&|\|\||[-+*/%<>&|~!()])"
    r"|(?P<end>$))",
)


@dataclass(frozen=True)
class Number:
    """A number."""

    value: int | float


@dataclass(frozen=True)
class String:
    """Text in quotes."""

    value: str


@dataclass(frozen=True)
class Column:
    """A column by its name."""

    name: str


@dataclass(frozen=True)
class Operation:
    """An operator or a function, and what it is applied to."""

    operator: str
    operands: tuple[Node, ...]


Node = Number | String | Column | Operation


class Condition:
    """A condition that selects rows."""

    def __init__(self, text: str) -> None:
        if len(text) > LONGEST:
            raise EvaluateError(f"--where is longer than {LONGEST} characters")
        self.text = text
        self._tree = Parser(text).parse()
        nodes = list(_walk(self._tree))
        #: The columns of the condition, and those that are compared with text.
        self.names = list(dict.fromkeys(n.name for n in nodes if isinstance(n, Column)))
        self.texts = {
            operand.name
            for node in nodes
            if isinstance(node, Operation) and any(isinstance(o, String) for o in node.operands)
            for operand in node.operands
            if isinstance(operand, Column)
        }
        if not self.names:
            raise EvaluateError("--where names no column")

    def select(self, columns: Mapping[str, NDArray[Any]]) -> NDArray[np.bool_]:
        """Return which rows are selected. Rows with a masked entry are not."""
        with np.errstate(all="ignore"):
            chosen = _evaluate(self._tree, columns)
        if not _is_truth(chosen):
            raise EvaluateError("--where must be a condition, such as 'imag < 24'")
        result = np.array(chosen, np.bool_)
        for name in self.names:
            mask = mask_of(columns[name])
            if mask is not None:
                result &= ~mask
        return result


class Parser:
    """Makes a tree of the text."""

    def __init__(self, text: str) -> None:
        self._text = text
        self._tokens = self._split()
        self._at = 0
        self._depth = 0

    def parse(self) -> Node:
        """Return the tree."""
        tree = self._binary(0)
        if self._kind != "end":
            self._refuse()
        return tree

    def _split(self) -> list[tuple[str, str, int]]:
        """Return the kind, the text and the position of each token."""
        tokens = []
        at = 0
        while True:
            found = TOKEN.match(self._text, at)
            if found is None:
                at += len(self._text[at:]) - len(self._text[at:].lstrip())
                raise EvaluateError(f"--where: {self._text[at]!r} at character {at + 1} "
                                    "can't be used there")
            kind = str(found.lastgroup)
            token = found[kind]
            if kind == "name" and token in ("and", "or", "not"):
                kind, token = "operator", WORDS[token]
            tokens.append((kind, WORDS.get(token, token), found.start(kind)))
            at = found.end()
            if kind == "end":
                return tokens
            if len(tokens) > MOST:
                raise EvaluateError(f"--where has more than {MOST} names, numbers and operators")

    @property
    def _kind(self) -> str:
        return self._tokens[self._at][0]

    @property
    def _operator(self) -> str:
        kind, token, _ = self._tokens[self._at]
        return token if kind == "operator" else ""

    def _take(self) -> str:
        token = self._tokens[self._at][1]
        self._at += 1
        return token

    def _refuse(self) -> None:
        kind, token, at = self._tokens[self._at]
        if kind == "end":
            raise EvaluateError("--where ends too early")
        raise EvaluateError(f"--where: {token!r} at character {at + 1} can't be used there")

    def _deeper(self) -> None:
        self._depth += 1
        if self._depth > DEEPEST:
            raise EvaluateError(f"--where nests more than {DEEPEST} parentheses, signs and powers")

    def _binary(self, level: int) -> Node:
        """Parse what joins operands of the next level."""
        if level == len(LEVELS):
            return self._unary()
        if level == 2 and self._operator == "~":  # ~ a < b is ~ (a < b)
            self._deeper()
            self._take()
            inverted = Operation("~", (self._binary(2),))
            self._depth -= 1
            return inverted
        left = self._binary(level + 1)
        compared = False
        while self._operator in LEVELS[level]:
            if compared:
                raise EvaluateError("--where: join comparisons by &, as in 'a < b & b < c'")
            compared = level == 2
            operator = self._take()
            left = Operation(operator, (left, self._binary(level + 1)))
        return left

    def _unary(self) -> Node:
        """Parse a sign, or a power."""
        if self._operator in ("-", "+", "~"):
            self._deeper()
            sign = self._take()
            operand = self._unary()
            self._depth -= 1
            return Operation("+-" if sign == "-" else sign, (operand,))
        base = self._atom()
        if self._operator != "**":
            return base
        self._deeper()
        self._take()
        power = Operation("**", (base, self._unary()))
        self._depth -= 1
        return power

    def _atom(self) -> Node:
        """Parse a number, a name, a call or what is in parentheses."""
        kind, token, _ = self._tokens[self._at]
        if kind == "number":
            self._take()
            whole = token.isdigit() and len(token) < 19  # fits into 64 bits
            return Number(int(token) if whole else float(token))
        if kind == "text":
            return String(self._take()[1:-1])
        if kind == "quoted":
            return Column(self._take()[1:-1])
        if kind == "name":
            self._take()
            return self._call(token) if self._operator == "(" else Column(token)
        if token != "(" or kind != "operator":
            self._refuse()
        return self._parentheses()

    def _call(self, name: str) -> Node:
        if name not in FUNCTIONS:
            raise EvaluateError(f"--where: there is no function {name!r}; there are "
                                f"{', '.join(FUNCTIONS)}")
        return Operation(name, (self._parentheses(),))

    def _parentheses(self) -> Node:
        self._deeper()
        self._take()
        inside = self._binary(0)
        if self._operator != ")":
            self._refuse()
        self._take()
        self._depth -= 1
        return inside


def _walk(node: Node) -> Iterator[Node]:
    yield node
    if isinstance(node, Operation):
        for operand in node.operands:
            yield from _walk(operand)


def _evaluate(node: Node, columns: Mapping[str, NDArray[Any]]) -> Any:
    """Return the value of a node: booleans, numbers or text."""
    if isinstance(node, (Number, String)):
        return node.value
    if isinstance(node, Column):
        return _values(node.name, columns[node.name])
    operands = [_evaluate(operand, columns) for operand in node.operands]
    operator = node.operator
    if operator in ("&", "|", "~"):
        if not all(map(_is_truth, operands)):
            raise EvaluateError(f"--where: {operator} joins conditions, not numbers or text")
        return np.logical_not(operands[0]) if operator == "~" else OPERATIONS[operator](*operands)
    if operator in COMPARISONS:
        if any(map(_is_text, operands)) and not all(map(_is_text, operands)):
            raise EvaluateError(f"--where: {operator} compares text with numbers")
        return OPERATIONS[operator](*operands)
    if any(map(_is_text, operands)):
        raise EvaluateError(f"--where: {operator.strip('+') or '+'} can't be applied to text")
    numbers = [np.asarray(operand, np.float64) for operand in operands]
    if operator in FUNCTIONS:
        return FUNCTIONS[operator](*numbers)
    if len(numbers) == 1:
        return np.negative(numbers[0]) if operator == "+-" else numbers[0]
    return OPERATIONS[operator](*numbers)


def _values(name: str, values: NDArray[Any]) -> NDArray[Any]:
    """Return the values of a column: booleans, integers, doubles or text."""
    data = data_of(values)
    if data.ndim != 1:
        raise EvaluateError(f"--where: column {name!r} holds arrays")
    kind = data.dtype.kind
    if kind in "fi" or (kind == "u" and data.dtype.itemsize < 8):
        wide = data.astype(np.float64 if kind == "f" else np.int64, copy=False)
        return np.asarray(wide)
    if kind in "bu":
        return data
    if kind in "SOU":
        return as_text(data)
    raise EvaluateError(f"--where: column {name!r} holds neither numbers nor text")


def as_text(values: NDArray[Any]) -> NDArray[np.str_]:
    """Return text, from bytes or Python objects, without spaces at its ends."""
    texts = [
        value.decode("utf-8", "replace") if isinstance(value, bytes) else str(value)
        for value in values.tolist()
    ]
    return np.array([text.strip() for text in texts], np.str_)


def _is_text(value: Any) -> bool:
    return isinstance(value, str) or (isinstance(value, np.ndarray) and value.dtype.kind == "U")


def _is_truth(value: Any) -> bool:
    return isinstance(value, (np.ndarray, np.bool_)) and value.dtype.kind == "b"
