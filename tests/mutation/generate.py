# SPDX-License-Identifier: Apache-2.0
"""Mutants of a C++ source in the project's layout: one small change each, made from its text."""

import collections
import re

# `where` is the offset in the text, `old` what stands there, `new` what it becomes.
Mutant = collections.namedtuple("Mutant", "kind where old new")

TOKEN = re.compile(r"""
    (?P<comment>//[^\n]*|/\*.*?\*/) |
    (?P<attribute>__attribute__\(\(.*?\)\)) |
    (?P<directive>^[ ]*\#(?:[^\n]*\\\n)*[^\n]*) |
    (?P<string>"(?:[^"\\\n]|\\.)*") |
    (?P<character>'(?:[^'\\\n]|\\.)+') |
    (?P<number>\b(?:0[xX][0-9A-Fa-f]+|[0-9]+)[uUlL]*\b) |
    (?P<word>[A-Za-z_]\w*) |
    (?P<operator><<=|>>=|<=|>=|==|!=|&&|\|\||\+\+|--|\+=|-=|\*=|/=|<<|>>|->|::|[-+*/%&|!<>=?:;,.(){}\[\]~^])
    """, re.VERBOSE | re.MULTILINE | re.DOTALL)

# A binary operator stands between blanks, a template's bracket or a pointer's star does not.
BINARY = {"<": ["<="], "<=": ["<"], ">": [">="], ">=": [">"], "==": ["!="], "!=": ["=="],
          "+": ["-"], "-": ["+"], "*": ["+"], "/": ["*"], "%": ["*"], "&": ["|"], "|": ["&"],
          "<<": [">>"], ">>": ["<<"], "&&": ["||"], "||": ["&&"], "+=": ["-="], "-=": ["+="]}
KINDS = {"&&": "logic", "||": "logic", "<": "comparison", "<=": "comparison", ">": "comparison",
         ">=": "comparison", "==": "comparison", "!=": "comparison"}
NOT_A_CALL = {"return", "if", "while", "for", "switch", "else", "case", "default", "using",
              "static", "const", "extern", "public", "private", "class", "struct", "enum", "new",
              "namespace", "typedef", "static_assert", "goto", "int", "bool", "unsigned", "char",
              "va_list", "timespec", "virtual", "explicit", "void"}


def tokens(text):
    return [(match.lastgroup, match.group(), match.start()) for match in TOKEN.finditer(text)
            if match.lastgroup not in ("comment", "attribute", "directive")]


def of_number(literal):
    """The neighbours of an integer literal, in its own notation."""
    digits = literal.rstrip("uUlL")
    suffix = literal[len(digits):]
    value = int(digits, 0) if not re.fullmatch(r"0[0-9]+", digits) else int(digits, 8)
    write = (lambda number: f"0x{number:X}") if digits[:2].lower() == "0x" else str
    neighbours = [value + 1] + ([value - 1] if value > 0 else [])
    return [write(number) + suffix for number in neighbours]


def of_token(text, kind, token, at):
    if kind == "number":
        return [("constant", new) for new in of_number(token)]
    if kind == "string":
        return [("text", '"X' + token[1:])]
    if kind == "character" and len(token) == 3:
        return [("constant", f"'{chr(ord(token[1]) ^ 1)}'")]
    if kind == "word" and token in ("true", "false"):
        return [("constant", "false" if token == "true" else "true")]
    if kind == "operator" and token == "!" and text[at - 1] in "( ":
        return [("logic", "")]
    if kind == "operator" and token in ("++", "--"):
        return [("arithmetic", "--" if token == "++" else "++")]
    around = (text[at - 1:at] + text[at + len(token):at + len(token) + 1]).split()
    if kind == "operator" and not around:
        return [(KINDS.get(token, "arithmetic"), new) for new in BINARY.get(token, [])]
    return []


def conditions(text, found):
    """Each condition of an if, while or choice by `if (`, the other way round."""
    for index, (_, token, _) in enumerate(found):
        if token not in ("if", "while") or found[index + 1][1] != "(":
            continue
        depth = 0
        for kind, other, at in found[index + 1:]:
            depth += {"(": 1, ")": -1}.get(other, 0) if kind == "operator" else 0
            if depth == 0:
                start = found[index + 1][2]
                old = text[start:at + 1]
                # A comparison is turned round by its own mutant.
                if not re.search(r" (<=?|>=?|==|!=) |!", old):
                    yield Mutant("condition", start, old, "(!" + old + ")")
                break


def deletions(text, found):
    """Each statement that calls or assigns, and each break and continue, gone."""
    previous = ";"
    for index, (kind, token, start) in enumerate(found):
        begins = previous in (";", "{", "}", ":") and kind == "word"
        previous = token
        if token == "break" and [word for _, word, _ in found[max(index - 2, 0):index]] == \
                ["default", ":"]:
            continue
        if not begins or token in NOT_A_CALL:
            continue
        end = next((at for _, other, at in found[index:] if other == ";"), None)
        follows = found[index + 1]
        declares = follows[0] == "word" and token != "delete"
        declares = declares or (follows[1] in ("*", "&") and token[0].isupper())
        statement = text[start:end + 1] if end else ""
        if declares or not statement or "{" in statement or statement.endswith("= default;"):
            continue
        if token not in ("break", "continue", "delete") and not re.search(r"[(=]|\+\+", statement):
            continue
        yield Mutant("deletion", start, statement, ";")


def mutants_of(text):
    """All mutants of a source, in the order of their places."""
    found = tokens(text)
    made = [Mutant(kind, at, token, new) for group, token, at in found
            for kind, new in of_token(text, group, token, at)]
    made += list(conditions(text, found)) + list(deletions(text, found))
    return sorted(made, key=lambda mutant: (mutant.where, mutant.kind, mutant.new))


def apply(text, mutant):
    return text[:mutant.where] + mutant.new + text[mutant.where + len(mutant.old):]


def line_of(text, where):
    """The number of the line at an offset, and the line without its indentation."""
    return text.count("\n", 0, where) + 1, text.split("\n")[text.count("\n", 0, where)].strip()
