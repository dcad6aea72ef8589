#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""every_source.py FOLDER: reads compile commands (JSON) and writes them with one more for each source
of FOLDER/tests that is in none of them: what only other builds compile, such as fuzz targets.

A source that CMake compiles together with others is in a source that it has made; those are read."""
import json
import pathlib
import re
import sys

# Compiled for the target alone, with stand-ins for its headers.
STAND_INS = "tests/build/qnx"


def included(file):
    """The file and, when CMake has made it of others, those."""
    if file.suffix != ".cxx" or not file.exists():
        return [file]
    return [pathlib.Path(path) for path in re.findall(r'^#include "(.*)"', file.read_text(), re.M)]


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    commands = json.load(sys.stdin)
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
