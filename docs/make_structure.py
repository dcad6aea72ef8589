#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
'''Draws which folder of the project includes which: docs/images/structure.svg.

usage: make_structure.py            write the picture (this needs Debian's package graphviz)
       make_structure.py --check    only compare; the status is 1 if it is out of date, or if a room of
                                    the updater includes one that stands above it

An arrow that follows from two others is left out: who includes the driver may include what the
driver includes. The picture carries the graph that it was made from, and that is what is compared.
'''

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
PICTURE = ROOT / 'docs' / 'images' / 'structure.svg'

# The updater's rooms from the top down. hutil and platform may be called from every room.
ROOMS = ('src/driver', 'src/chip', 'src/lm', 'src/i2c', 'src/hutil', 'src/platform')

SHIPPED = ('src', 'sim', 'tools', 'common')
COLOURS = {'src': '#9dc3f0', 'sim': '#c5dd9a', 'tools': '#f6d9a0', 'common': '#e0e0e0'}
INCLUDE = re.compile(r'^\s*#include "([^"]+)"', re.MULTILINE)


def sources():
    '''The C and C++ files that are shipped, relative to the root.'''
    return sorted(pathlib.PurePosixPath(path.relative_to(ROOT))
                  for folder in SHIPPED for path in (ROOT / folder).rglob('*')
                  if path.suffix in ('.h', '.cpp'))


def folder_of(path):
    '''The folder of a file. The systems below src/platform are one room with it.'''
    name = str(path.parent)
    return 'src/platform' if name.startswith('src/platform/') else name


def edges(files):
    '''Pairs of folders: the first includes the second.'''
    known = {str(path): folder_of(path) for path in files}
    found = set()
    for path in files:
        for name in INCLUDE.findall((ROOT / path).read_text()):
            target = known.get(name) or known.get('src/' + name)
            if target and target != known[str(path)]:
                found.add((known[str(path)], target))
    return found


def follows(pairs, pair):
    '''Whether the arrow follows from others: its goal can be reached without it.'''
    seen, waiting = set(), [pair[0]]
    while waiting:
        folder = waiting.pop()
        for origin, target in pairs - {pair}:
            if origin == folder and target not in seen:
                seen.add(target)
                waiting.append(target)
    return pair[1] in seen


def arrows_up(pairs):
    '''The arrows between the updater's rooms that do not go down.'''
    return sorted(pair for pair in pairs if pair[0] in ROOMS and pair[1] in ROOMS
                  and ROOMS.index(pair[0]) >= ROOMS.index(pair[1]))


def graph(folders, pairs):
    '''The picture in graphviz's language. Every box has the same size, whatever the fonts are.'''
    lines = ['digraph structure {',
             'node [shape=box style="rounded,filled" fixedsize=true width=1.4 height=0.4 '
             'fontname="sans-serif" fontsize=12]',
             'edge [color="#204a87"]']
    for folder in folders:
        lines.append('"%s" [fillcolor="%s"]' % (folder, COLOURS[folder.split('/')[0]]))
    for pair in sorted(pairs):
        if not follows(pairs, pair):
            lines.append('"%s" to "%s"' % pair)
    return '\n'.join(lines + ['}', ''])


def picture(text):
    '''The graph as SVG, with the text that it was made from.'''
    drawn = subprocess.run(['dot', '-Tsvg'], input=text.replace('" to "', '" -> "'), check=True,
                           capture_output=True, text=True).stdout
    return ('<!-- SPDX-License-Identifier: Apache-2.0 -->\n<!-- Made by make_structure.py from this:\n'
            + text + '-->\n' + drawn[drawn.index('<svg'):])


def main():
    if sys.argv[1:] not in ([], ['--check']):
        raise SystemExit(__doc__)
    files = sources()
    pairs = edges(files)
    text = graph(sorted({folder_of(path) for path in files}), pairs)
    if not sys.argv[1:]:
        PICTURE.write_text(picture(text))
        return 0
    problems = ['%s includes %s, which stands above it' % pair for pair in arrows_up(pairs)]
    if not PICTURE.exists() or text not in PICTURE.read_text():
        problems.append('docs/images/structure.svg is out of date: run docs/make_structure.py')
    print('\n'.join(problems))
    return 1 if problems else 0


if __name__ == '__main__':
    sys.exit(main())
