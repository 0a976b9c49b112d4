# SPDX-License-Identifier: MIT
"""What may be wrong in a source: every small change of it, one at a time."""

import dataclasses
import hashlib
import re

# clang-format sets spaces around operators with two operands and none around pointers and templates.
_OPERATORS = {
    "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"], "==": ["!="], "!=": ["=="],
    "+": ["-"], "-": ["+"], "*": ["+"], "/": ["*"], "%": ["/"], "&&": ["||"], "||": ["&&"],
    "&": ["|"], "|": ["&"], "^": ["|"], "<<": [">>"], ">>": ["<<"],
    "+=": ["-="], "-=": ["+="], "*=": ["+="], "<<=": [">>="], ">>=": ["<<="], "&=": ["|="], "|=": ["&="], "^=": ["|="],
}
_OPERATOR = re.compile(r"(?<= )(" + "|".join(re.escape(o) for o in sorted(_OPERATORS, key=len, reverse=True)) + r")(?=[ \n])")
_STEP = re.compile(r"\+\+|--")
_NOT = re.compile(r"(?<=[( ])!(?=[\w(])")
_NUMBER = re.compile(r"(?<![\w.\"'])(0[xX][0-9a-fA-F]+|\d+)(?=[uUlL]*(?![\w.']))")
_TRUTH = re.compile(r"\b(true|false)\b")
_EXTREME = re.compile(r"\bstd::(min|max)\b")
# A call or an assignment on lines of its own, and the statements that leave a loop or a function.
_STATEMENT = re.compile(
    r"(?:(?<=[;{}])[\0\s]+|(?<=[:)])[\0\s]+(?=\w))"
    r"(?P<code>(?:(?:[\w:]+(?:<[^;<>]*>)?(?:\(|\.|->|\[| [-+*/%&|^]?=| <<=| >>=)|\*|\+\+|--)[^;{}]*|break|continue|return));")
_DECLARES = re.compile(r"^(?:const|constexpr|static|auto|using|typedef|return|delete|goto|case|default|static_assert|namespace|"
                       r"template|struct|class|enum|extern|inline|if|for|while|switch|do|else|alignas|explicit)\b")
# Words after which numbers and signs say how the compiler is to see the program, not what it does.
_STILL = re.compile(r"^\s*(#|static_assert|template|using |alignas|extern|namespace)")


@dataclasses.dataclass(frozen=True)
class Change:
    file: str
    line: int
    kind: str
    start: int
    end: int
    new: str
    shown: str  # the changed line
    key: str  # the same while the line stays as it is, wherever it moves

    def apply(self, text):
        return text[:self.start] + self.new + text[self.end:]


def code_alone(text):
    """The text with comments, strings and preprocessor lines blank, each at its place."""
    blank = lambda match: re.sub(r"[^\n]", "\0", match.group())
    text = re.sub(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|(?<!\w)\'(?:\\.|[^\'\\\n])+\'', blank, text, flags=re.S)
    return re.sub(r"^[ \t]*#(?:[^\n]*\\\n)*[^\n]*", blank, text, flags=re.M)


def _spots(code):
    """Yields (kind, start, end, replacement)."""
    for match in _OPERATOR.finditer(code):
        kind = "shift" if match.group(1).rstrip("=") in ("<<", ">>") else \
            "bound" if match.group(1)[0] in "<>" else "operator"
        for new in _OPERATORS[match.group(1)]:
            yield kind, *match.span(1), new
    for match in _STEP.finditer(code):
        yield "operator", *match.span(), "--" if match.group() == "++" else "++"
    for match in _NOT.finditer(code):
        yield "operator", *match.span(), ""
    for match in _NUMBER.finditer(code):
        value = int(match.group(1), 0) if not re.fullmatch(r"0\d+", match.group(1)) else int(match.group(1), 8)
        yield "constant", *match.span(1), str(value + 1)
        if value > 0:
            yield "constant", *match.span(1), str(value - 1)
    for match in _TRUTH.finditer(code):
        yield "constant", *match.span(), "false" if match.group() == "true" else "true"
    for match in _EXTREME.finditer(code):
        yield "operator", *match.span(1), "max" if match.group(1) == "min" else "min"
    for match in _STATEMENT.finditer(code):
        if not _DECLARES.match(match["code"]) or match["code"] == "return":
            yield "statement", *match.span("code"), ""


def changes(file, text):
    """All changes of a text, in the order of their places."""
    code = code_alone(text)
    found, seen = [], {}
    for kind, start, end, new in sorted(_spots(code), key=lambda spot: (spot[1], spot[2], spot[3])):
        begin = text.rfind("\n", 0, start) + 1
        stop = text.find("\n", end)
        line = text[begin:stop]
        if _STILL.match(code[begin:]):
            continue
        identity = f"{file}|{line.strip()}|{start - begin - (len(line) - len(line.lstrip()))}|{new}"
        seen[identity] = seen.get(identity, 0) + 1
        key = hashlib.sha256(f"{identity}|{seen[identity]}".encode()).hexdigest()[:16]
        shown = " ".join((text[begin:start] + f"[{text[start:end]} -> {new}]" + text[end:stop]).split())
        found.append(Change(file, text.count("\n", 0, start) + 1, kind, start, end, new, shown, key))
    return found
