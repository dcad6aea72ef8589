#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""output_grammar.py OUTPUT.md PROGRAM...: matches the updater's outputs against their grammar.

Each PROGRAM is a test that runs the updater and leaves its outputs in the folder that
BBP_OUTPUT_SAMPLES names: a line "<mode> <status>", then the output. The grammar is the ABNF block of
the document. It is regular, so it becomes one regular expression.
"""

import os
import re
import subprocess
import sys
import tempfile

CORE = {
    "LF": rb"\n",
    "HTAB": rb"\t",
    "DQUOTE": rb'"',
    "DIGIT": rb"[0-9]",
    "ALPHA": rb"[A-Za-z]",
}

TOKEN = re.compile(
    r"\s*(?:(?P<string>(?:%s)?\"[^\"]*\")|(?P<range>%x[0-9A-F]{2}(?:-[0-9A-F]{2})?)"
    r"|(?P<repeat>\d*\*\d*|\d+)|(?P<name>[A-Za-z][A-Za-z0-9-]*)|(?P<sign>[()\[\]/]))"
)


def read_rules(text):
    """The ABNF blocks' rules by name, without comments and with continued lines joined."""
    rules = {}
    name = None
    for block in re.findall(r"```abnf\n(.*?)```", text, re.S):
        for line in block.splitlines():
            line = re.sub(r'^((?:[^;"]|"[^"]*")*);.*', r"\1", line)
            start = re.match(r"([A-Za-z][A-Za-z0-9-]*)\s*=\s*(.*)", line)
            if start:
                name = start.group(1)
                rules[name] = start.group(2)
            elif line.strip():
                rules[name] += " " + line.strip()
    return rules


class Grammar:
    """Rules, and the expressions that they become."""

    def __init__(self, rules):
        self.rules = rules

    def expression(self, name):
        # Texts from outside end where what follows them first stands.
        if name == "OUTSIDE":
            return rb"[^\x00]*?"
        if name in CORE and name not in self.rules:
            return CORE[name]
        tokens = []
        at = 0
        while at < len(self.rules[name].rstrip()):
            match = TOKEN.match(self.rules[name], at)
            if not match:
                raise SyntaxError(f"{name}: {self.rules[name][at:]}")
            tokens.append((match.lastgroup, match.group(match.lastgroup)))
            at = match.end()
        expression, rest = self.alternation(tokens)
        if rest:
            raise SyntaxError(f"{name}: {rest}")
        return expression

    def alternation(self, tokens):
        options = [b""]
        while tokens and tokens[0] not in (("sign", ")"), ("sign", "]")):
            if tokens[0] == ("sign", "/"):
                options.append(b"")
                tokens = tokens[1:]
                continue
            element, tokens = self.repetition(tokens)
            options[-1] += element
        # Once a line is taken for one kind it stays so.
        return (b"(?>" if len(options) > 1 else b"(?:") + b"|".join(options) + b")", tokens

    def repetition(self, tokens):
        count = b""
        kind, text = tokens[0]
        if kind == "repeat":
            low, star, high = text.partition("*")
            count = b"{%s,%s}" % (low.encode() or b"0", high.encode())
            if not star:
                count = b"{%s}" % text.encode()
            tokens = tokens[1:]
        element, is_bytes, tokens = self.element(tokens)
        if count and not is_bytes:
            # Not the shorter `count+`: Python before 3.11.5 goes wrong with it where an element can
            # be read in several ways.
            return b"(?>" + element + count + b")", tokens
        return element + count, tokens

    def element(self, tokens):
        (kind, text), rest = tokens[0], tokens[1:]
        if kind == "string":
            return b"(?:" + re.escape(text[text.index('"') + 1 : -1].encode()) + b")", False, rest
        if kind == "range":
            first, _, last = text[2:].partition("-")
            return b"[\\x%s-\\x%s]" % (first.encode(), (last or first).encode()), False, rest
        if kind == "name":
            return b"(?:" + self.expression(text) + b")", text == "BYTE", rest
        expression, rest = self.alternation(rest)
        if text == "[":
            expression += b"?"
        return expression, False, rest[1:]


def roots(mode, status):
    if status == 0:
        return [f"{mode}-success"]
    return [f"{mode}-failure", "hint"] if status == 1 else []


def main():
    with open(sys.argv[1], encoding="utf-8") as document:
        grammar = Grammar(read_rules(document.read()))
    matched = 0
    failed = 0
    with tempfile.TemporaryDirectory() as folder:
        for program in sys.argv[2:]:
            environment = dict(os.environ, BBP_OUTPUT_SAMPLES=folder)
            subprocess.run([program], env=environment, stdout=subprocess.DEVNULL, check=True)
        for name in sorted(os.listdir(folder)):
            with open(os.path.join(folder, name), "rb") as sample:
                mode, status = sample.readline().decode().split()
                output = sample.read()
            names = roots(mode, int(status))
            if not names:
                continue
            matched += 1
            if not any(re.fullmatch(grammar.expression(root), output) for root in names):
                failed += 1
                print(f"no output of {mode} mode with status {status}:\n{output.decode('latin-1')}")
    print(f"{matched} outputs, {failed} outside the grammar")
    # None at all would be a test that cannot fail.
    sys.exit(0 if matched > 20 and failed == 0 else 1)


if __name__ == "__main__":
    main()
