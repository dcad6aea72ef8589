#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""every_source.py FOLDER: reads compile commands (JSON) and writes them with one more for each source
of FOLDER/tests that is in none of them: what only other builds compile, such as fuzz targets.

A source that CMake compiles together with others is in a source that it has made; those are read. So that
each folder of the programs can be read as one, too, such a source of it is made, with a command, in
FOLDER/build/together."""
import json
import os
import pathlib
import re
import shlex
import sys
import tempfile

# Compiled for the target alone, with stand-ins for its headers.
STAND_INS = "tests/build/qnx"

# Where the programs are that are not the core.
PROGRAMS = ("common", "sim", "tools")


def included(file):
    """The file and, when CMake has made it of others, those."""
    if file.suffix != ".cxx" or not file.exists():
        return [file]
    return [pathlib.Path(path) for path in re.findall(r'^#include "(.*)"', file.read_text(), re.M)]


def words_of(command):
    return command.get("arguments") or shlex.split(command["command"])


def together(root, commands):
    """A command for each folder of the programs: a source that includes all of its sources."""
    folders = {}
    for command in commands:
        source = pathlib.Path(command["directory"]) / command["file"]
        inner = source.relative_to(root) if source.is_relative_to(root) else source
        if inner.parts[0] in PROGRAMS:
            folders.setdefault(inner.parent, {})[source] = command
    made = root / "build/together"
    made.mkdir(parents=True, exist_ok=True)
    for folder, members in folders.items():
        one = made / f"{'-'.join(folder.parts)}.cxx"
        # Several checks do this at a time: nobody must read a half of it.
        with tempfile.NamedTemporaryFile("w", dir=made, delete=False) as new:
            new.writelines(f'#include "{source}"\n' for source in sorted(members))
        os.replace(new.name, one)
        words = [word for command in members.values() for word in words_of(command)
                 if word.startswith(("-D", "-I", "-std="))]
        yield {"directory": str(root), "file": str(one),
               "arguments": ["c++", *dict.fromkeys(words), "-c", str(one)]}


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    commands = json.load(sys.stdin)
    commands += together(root, commands)
    known = {source for command in commands
             for source in included(pathlib.Path(command["directory"]) / command["file"])}
    words = ["c++", "-std=c++17", f"-I{root}", f"-I{root}/src"]
    # Clang's header for those who take a fuzzer's bytes apart may come with another clang's package.
    words += [f"-idirafter{header.parents[1]}" for header in
              pathlib.Path("/usr/lib").glob("llvm-*/lib/clang/*/include/fuzzer/FuzzedDataProvider.h")]
    for source in sorted((root / "tests").rglob("*.cpp")):
        if source in known:
            continue
        own = [f"-isystem{source.parent}/{folder}" for folder in ("host", "platform")] \
            if source.parent == root / STAND_INS else []
        commands.append({"directory": str(root), "file": str(source),
                         "arguments": [*words, *own, "-c", str(source)]})
    json.dump(commands, sys.stdout, indent=1)


if __name__ == "__main__":
    main()
