"""The changes that script/mutate makes: each one replaces a few characters of one line."""
import re
from dataclasses import dataclass


@dataclass(frozen=True)
class Mutation:
    """Characters [start, end) of a line (from 1) of a file become the text new."""

    kind: str
    file: str
    line: int
    start: int
    end: int
    new: str

    def apply(self, text):
        lines = text.split("\n")
        line = lines[self.line - 1]
        lines[self.line - 1] = line[: self.start] + self.new + line[self.end :]
        return "\n".join(lines)

    def describe(self, text):
        line = text.split("\n")[self.line - 1]
        changed = line[: self.start] + self.new + line[self.end :]
        return f"{self.file}:{self.line}: {self.kind}: {line.strip()} -> {changed.strip()}"


SWAPPED = {
    "swap the comparison's border": {"<": "<=", "<=": "<", ">": ">=", ">=": ">"},
    "negate the comparison": {"==": "!=", "!=": "=="},
    "swap && and ||": {"&&": "||", "||": "&&"},
}
OPERATOR = re.compile(r"(?<= )(<=|>=|==|!=|&&|\|\||<|>)(?= )")
CONSTANT = re.compile(r"(?<![\w.'])(0[xX][0-9a-fA-F]+|\d+)([uUlL]*)(?![\w.'])")
CONDITION = re.compile(r"\b(?:if|while) \(")
RETURNED = re.compile(r"\breturn (-?\d+|true|false);")
OTHER_RESULTS = {"true": "false", "false": "true", "0": "1"}
ARGUMENTS = re.compile(r"\w\(([^(),{}]+), ([^(),{}]+)(?=[,)])")
STATEMENT = re.compile(r"^\s+(?:[\w.>*\[\]&:-]+(?:\(.*\)| (?:[-+|&^]|<<|>>)?= .*)|(?:\+\+|--)\w.*|break|continue|return);$")
DECLARATION = re.compile(r"^\s+(?:return|using|typedef|delete|case|goto|throw|extern|va_end)\b.+|.*= (?:delete|default);$")
LITERAL = re.compile(r"\"(?:[^\"\\]|\\.)*\"|'(?:[^'\\]|\\.)*'")
NO_CODE = re.compile(r"^\s*(#|\[\[|static_assert|template|using|case .*:$|extern)")
# Changes here change nothing: a parameter's array bound, the order that min and max look in, and the
# one that two texts are compared in when only their being equal counts.
BOUND_OF_PARAMETER = re.compile(r"\b(?:char|int|unsigned|u?int\d+_t) \w+\[\w+\](?=[,)])")
SYMMETRIC = re.compile(r"\b(?:min|max)(?:<[^<>]*>)?$")
COMPARES = re.compile(r"\b(?:mem|str|strn|strcase|strncase)cmp$")
FOR_EQUALITY = re.compile(r"[^()]*\) [!=]= 0")
PARAMETER = re.compile(r"\b(?!sizeof\b)\w+[ *&]+\w")


def masked(text):
    """The text with as many characters, but none in comments and literals that look like code."""
    blank = lambda match: re.sub(r"[^\n]", "_", match.group())
    text = re.sub(r'R"\((?:.|\n)*?\)"', blank, text)
    text = LITERAL.sub(blank, text)
    return re.sub(r"//[^\n]*|/\*(?:.|\n)*?\*/", lambda match: re.sub(r"[^\n]", " ", match.group()), text)


def closing(line, opening):
    """The place of the parenthesis that closes the one at opening, or None."""
    depth = 0
    for place in range(opening, len(line)):
        depth += {"(": 1, ")": -1}.get(line[place], 0)
        if depth == 0:
            return place
    return None


def of_operators(line):
    for match in OPERATOR.finditer(line):
        for kind, others in SWAPPED.items():
            if match.group() in others:
                yield kind, match.start(), match.end(), others[match.group()]


def of_conditions(line, source):
    for match in CONDITION.finditer(line):
        first = match.end()
        last = closing(line, first - 1)
        if last is not None and ";" not in line[first:last]:
            yield "negate the condition", first, last, f"!({source[first:last]})"


def of_constants(line):
    line = BOUND_OF_PARAMETER.sub(lambda bound: " " * len(bound.group()), line)
    for match in CONSTANT.finditer(line):
        digits, suffix = match.groups()
        value = int(digits, 16) if digits[:2] in ("0x", "0X") else int(digits, 8 if digits[0] == "0" else 10)
        yield "add one", match.start(), match.end(), f"{value + 1}{suffix}"
        if value > 0:
            yield "take one", match.start(), match.end(), f"{value - 1}{suffix}"


def of_results(line):
    for match in RETURNED.finditer(line):
        other = OTHER_RESULTS.get(match.group(1), "0")
        yield "return another constant", match.start(1), match.end(1), other


def of_arguments(line, source):
    for match in ARGUMENTS.finditer(line):
        (a, b), (c, d) = match.span(1), match.span(2)
        declares = PARAMETER.search(line[a:b]) or PARAMETER.search(line[c:d])
        function = line[: match.start() + 1]
        symmetric = SYMMETRIC.search(function) or (
            COMPARES.search(function) and FOR_EQUALITY.match(line, match.end()))
        if source[a:b] != source[c:d] and not declares and not symmetric:
            yield "swap the arguments", a, d, source[c:d] + source[b:c] + source[a:b]


def of_statements(line, before):
    ended = before.rstrip().endswith((";", "{", "}", ":", ")", "else"))
    balanced = line.count("(") == line.count(")") and "{" not in line
    if ended and balanced and STATEMENT.match(line) and not DECLARATION.match(line):
        start = len(line) - len(line.lstrip())
        yield "drop the statement", start, len(line), ";"


def mutations_of(file, text):
    """All mutations of one source file, in the order of its lines."""
    before = ""
    for number, (line, source) in enumerate(zip(masked(text).split("\n"), text.split("\n")), 1):
        if not line.strip() or NO_CODE.match(line):
            continue
        found = [
            *of_operators(line),
            *of_conditions(line, source),
            *of_constants(line),
            *of_results(line),
            *of_arguments(line, source),
            *of_statements(line, before),
        ]
        for kind, start, end, new in found:
            yield Mutation(kind, file, number, start, end, new)
        before = line
