"""The one-line mutants of a C++ source as clang-format leaves it: binary operators stand between
spaces, the brackets of templates do not. Comments, strings and directives are left alone."""

import re
from typing import NamedTuple

TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
      | (?P<directive>^[ \t]*\#(?:[^\n]*\\\n)*[^\n]*)
      | (?P<string>R"\((?:.*?)\)"|"(?:\\.|[^"\\\n])*")
      | (?P<char>'(?:\\.[^'\n]*|[^'\\\n])')
      | (?P<number>\d[\w']*(?:\.[\w']*)?(?:(?<=[eE])[+-]?\d+)?)
      | (?P<word>[A-Za-z_]\w*)
      | (?P<operator><=>|<<=|>>=|->|\+\+|--|&&|\|\||[-+*/%&|^<>=!]=|<<|>>|::|\S)""",
    re.VERBOSE | re.MULTILINE | re.DOTALL)

OPERATORS = {"<": ["<="], "<=": ["<"], ">": [">="], ">=": [">"], "==": ["!="], "!=": ["=="],
             "&&": ["||"], "||": ["&&"], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"],
             "%": ["/"], "&": ["|"], "|": ["&"], "^": ["&"], "<<": [">>"], ">>": ["<<"],
             "+=": ["-="], "-=": ["+="]}
STEPS = {"++": "--", "--": "++"}
CALLS = {"min": "max", "max": "min", "front": "back", "back": "front", "begin": "end",
         "end": "begin", "lower_bound": "upper_bound", "upper_bound": "lower_bound",
         "pop_front": "pop_back", "pop_back": "pop_front", "push_back": "push_front",
         "push_front": "push_back", "find": "rfind", "rfind": "find", "any_of": "all_of",
         "all_of": "any_of", "floor": "ceil", "ceil": "floor", "bids": "asks", "asks": "bids",
         "steady_ms": "system_ns", "first": "last", "last": "first"}
ESCAPES = {r"'\0'": r"'\1'", r"'\1'": r"'\2'", r"'\n'": "' '"}
NOT_CHANGED = re.compile(r"\s*(static_assert|assert|using|template|requires|friend)\b"
                         r"|.*(\)|const|noexcept) = 0;$|.*= (default|delete);$")

JUMP = re.compile(r"(return|continue|break);")
DECLARES = re.compile(r"(const|auto|static|constexpr|using|return|delete|throw|goto|case|default|"
                      r"struct|class|template|friend|extern|typedef|public|private|if|for|while|do|"
                      r"switch|else|static_assert|assert|explicit|virtual)\b"
                      r"|[\w:]+(<[^=]*>)?[ &*]+\w+ *[=({;\[]")
ACTS = re.compile(r"(\*|\+\+|--|::)?\w[^=]*\)|[*\w(][^ ]* (=|\+=|-=|\|=|&=|\^=|<<=|>>=|\*=|/=) .+"
                  r"|(\+\+|--)\w.*|\w[^ ]*(\+\+|--)", re.DOTALL)


class Mutant(NamedTuple):
    """`after` stands in place of the line `before`, both without the spaces around them; `swallows`
    says that it stands for the next line too."""
    file: str
    line: int
    before: str
    after: str
    swallows: bool = False

    def name(self):
        return self.file, self.before, self.after


class Line:
    def __init__(self, text):
        self.text = text
        self.code = text  # with blanks for comments, and x for what strings and characters say
        self.in_function = False  # where it begins
        self.tokens = []  # (kind, column, text)

    def blank(self, begin, end, filler):
        self.code = self.code[:begin] + filler * (end - begin) + self.code[end:]


class Braces:
    """Which of the open braces hold statements."""

    def __init__(self):
        self.open, self.head = [], []

    def in_function(self):
        return "function" in self.open

    def kind(self):
        before = self.head[-1] if self.head else ""
        if "namespace" in self.head:
            return "namespace"
        if self.open[-1:] == ["initializer"] and before != ")":
            return "initializer"
        if before in ("else", "do", "try", "}") or not before:
            return "function" if self.in_function() or self.head else "initializer"
        if {"struct", "class", "enum", "union"} & set(self.head) and "(" not in self.head:
            return "type"
        if before == ")" or before in ("const", "noexcept", "override", "mutable"):
            return "function"
        if "->" in self.head and ")" in self.head[:self.head.index("->")] and before != "return":
            return "function" if "return" not in self.head or "[" in self.head else "initializer"
        return "initializer"

    def take(self, token):
        if token == "{":
            self.open.append(self.kind())
            self.head = []
        elif token == "}":
            self.head = ["}"] if self.open and self.open.pop() == "initializer" else []
        elif token == ";":
            self.head = []
        else:
            self.head.append(token)


def read(text):
    lines = [Line(line) for line in text.split("\n")]
    starts = [0]
    for line in lines:
        starts.append(starts[-1] + len(line.text) + 1)
    braces, number, marked = Braces(), 0, 0
    for token in TOKEN.finditer(text):
        while starts[number + 1] <= token.start():
            number += 1
        while marked <= number:
            lines[marked].in_function = braces.in_function()
            marked += 1
        if token.lastgroup in ("comment", "directive", "string", "char"):
            filler = " " if token.lastgroup in ("comment", "directive") else "x"
            edge = 0 if filler == " " else 1
            for at in range(number, len(lines)):
                begin = max(token.start() + edge - starts[at], 0)
                end = min(token.end() - edge - starts[at], len(lines[at].text))
                if begin >= end:
                    break
                lines[at].blank(begin, end, filler)
        if token.lastgroup not in ("comment", "directive"):
            lines[number].tokens.append(
                (token.lastgroup, token.start() - starts[number], token.group()))
            braces.take(token.group())
    return lines


def other_numbers(text):
    digits = re.match(r"0[xX][0-9a-fA-F']+|[\d'.]+", text)[0]
    suffix = text[len(digits):]
    if re.search(r"[eE][+-]?\d", suffix):
        return ["1.0"]
    if "." in digits:
        value = float(digits.replace("'", ""))
        return [f"{value + 1}{suffix}"] + ([f"0.0{suffix}"] if value else [])
    digits = digits.replace("'", "")
    value = int(digits, 8 if re.fullmatch("0[0-7]+", digits) else 0)
    if digits[0] == "0" and value > 0:  # of the machine, and not to be counted from
        return [f"{value ^ 1}{suffix}"]
    return [f"{other}{suffix}" for other in (value + 1, value - 1) if other >= 0]


def other_characters(text):
    if len(text) == 3:
        return ["'" + ("!" if text[1] in "~'\\[&" else chr(ord(text[1]) + 1)) + "'"]
    return [ESCAPES.get(text, "' '")]


def other_tokens(line):
    """(begin, end, replacement)"""
    for at, (kind, begin, text) in enumerate(line.tokens):
        end = begin + len(text)
        behind = line.tokens[at + 1][2] if at + 1 < len(line.tokens) else ""
        ahead = line.text[begin - 1:begin] or " "
        others = []
        if kind == "number":
            others = other_numbers(text)
        elif kind == "char":
            others = other_characters(text)
        elif text in ("true", "false"):
            others = ["false" if text == "true" else "true"]
        elif text in CALLS and behind == "(":
            others = [CALLS[text]]
        elif text in ("continue", "break") and behind == ";":
            others = ["break" if text == "continue" else "continue"]
        elif text in STEPS:
            others = [STEPS[text]]
        elif text == "!" and (behind == "(" or re.match(r"\w", behind)):
            others = [""]
        elif text in OPERATORS and ahead == " " and line.code[end:end + 1] in ("", " "):
            others = OPERATORS[text]
        for other in others:
            yield begin, end, other


def closing(code, opening):
    """Where the bracket that opens there closes, or None if not on this line."""
    depth = 0
    for at in range(opening, len(code)):
        depth += (code[at] in "([{") - (code[at] in ")]}")
        if depth == 0:
            return at
    return None


def balanced(code):
    depth = 0
    for character in code:
        depth += (character in "([{") - (character in ")]}")
        if depth < 0:
            return False
    return depth == 0


def is_action(code):
    """A statement that can be left out: no declaration, and it gives no value back."""
    return (code.endswith(";") and code.count(";") == 1 and balanced(code) and
            (JUMP.fullmatch(code) or not DECLARES.match(code) and ACTS.fullmatch(code[:-1])))


def begins_statement(lines, at):
    while at > 0:
        at -= 1
        code = lines[at].code.strip()
        if code:
            return (code[-1] in ";{}:" or code.endswith("else") or
                    re.match(r"(\} else )?(if|for|while) \(", code) and balanced(code))
    return False


def other_conditions(line):
    for word in re.finditer(r"\b(if|while) \(", line.code):
        opening = word.end() - 1
        end = closing(line.code, opening)
        inside = line.code[opening + 1:end] if end else ""
        if end is None or ";" in inside or re.search(r"[^=!<>]=[^=]", inside) or inside == "true":
            continue
        for other in ("true", "false") if word[1] == "if" else ("false",):
            yield opening + 1, end, other
        yield opening + 1, end, "!(" + line.text[opening + 1:end] + ")"


def arguments(code, opening, end):
    """Where each begins and ends."""
    found, depth, begin = [], 0, opening + 1
    for at in range(opening + 1, end):
        depth += (code[at] in "([{<") - (code[at] in ")]}>")
        if code[at] == "," and depth == 0:
            found.append((begin, at))
            begin = at + 2
    return [*found, (begin, end)]


def swapped_arguments(line):
    for word in re.finditer(r"\b(?!(?:if|for|while|switch|catch|sizeof)\b)\w+\(", line.code):
        end = closing(line.code, word.end() - 1)
        if end is None or re.search(r"[;{]|[^-]>|<", line.code[word.end():end]):
            continue
        found = arguments(line.code, word.end() - 1, end)
        for (a, b), (c, d) in zip(found, found[1:]):
            first, second = line.text[a:b], line.text[c:d]
            if first != second:
                yield a, d, second + ", " + first


def other_statements(lines, at):
    line = lines[at]
    code = line.code.rstrip()
    indent = len(code) - len(code.lstrip())
    header = re.match(r"\s*(?:\} )?(?:else )?(?:(?:if|for|while) (?=\())?", code).end()
    if code[header - 1:header] == " " and code[header:header + 1] == "(" and header > indent:
        end = closing(code, header)
        header = end + 2 if end else len(code)
    if is_action(code[header:]) and begins_statement(lines, at):
        yield header, len(code), ";"
    value = re.match(r"return (?!\{\}|true;|false;|\*this|nullptr;)(.+);$", code[header:])
    if value and balanced(value[1]):
        yield header, len(code), "return {};"


def swapped_with_the_next(lines, at):
    """Two statements in a row, each of them the whole of its line."""
    if at + 1 == len(lines) or not begins_statement(lines, at):
        return None
    one, other = lines[at], lines[at + 1]
    first, second = one.code.strip(), other.code.strip()
    if (first == second or JUMP.match(first) or JUMP.match(second) or
            not is_action(first) or not is_action(second) or
            one.code.index(first) != other.code.index(second)):
        return None
    return other.text[:len(other.code.rstrip())].strip() + " " + \
        one.text[:len(one.code.rstrip())].strip()


def mutants_of(file, text):
    """One list for each line that has any, each in the order of the line."""
    lines = read(text)
    for at, line in enumerate(lines):
        if not line.tokens or NOT_CHANGED.match(line.code.rstrip()):
            continue
        changes = list(other_tokens(line))
        if line.in_function or re.search(r"\{ .*\}", line.code):
            changes += other_conditions(line)
            changes += swapped_arguments(line)
        found = {}
        if line.in_function:
            changes += other_statements(lines, at)
            swapped = swapped_with_the_next(lines, at)
            if swapped:
                found[swapped] = Mutant(file, at + 1, line.text.strip(), swapped, True)
        for begin, end, other in changes:
            after = (line.text[:begin] + other + line.text[end:]).strip()
            if after != line.text.strip():
                found[after] = Mutant(file, at + 1, line.text.strip(), after)
        if found:
            yield list(found.values())


def apply(mutant, text):
    lines = text.split("\n")
    lines[mutant.line - 1] = mutant.after
    if mutant.swallows:
        lines[mutant.line] = ""
    return "\n".join(lines)
