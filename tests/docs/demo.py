#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
'''Runs the demo and compares what it prints with what README.md shows of it.

usage: demo.py PROGRAMS
'''

import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BEGIN = '== the simulated head unit before the update'
END = '== the demo succeeded'
NUMBERS = set('0123456789 ')


def part(lines):
    '''The lines that README.md shows. Numbers are broken into lines there: they become one.'''
    lines = [line.strip() for line in lines]
    lines = lines[lines.index(BEGIN):lines.index(END) + 1]
    joined = []
    for line in lines:
        if line and joined and set(line) <= NUMBERS and set(joined[-1]) <= NUMBERS and joined[-1]:
            joined[-1] += ' ' + line
        elif line:
            joined.append(line)
    return joined


def main():
    if len(sys.argv) != 2:
        raise SystemExit(__doc__)
    with tempfile.TemporaryDirectory() as folder:
        demo = pathlib.Path(folder) / 'demo'
        run = subprocess.run([ROOT / 'scripts' / 'demo.sh', sys.argv[1], demo], text=True,
                             capture_output=True, check=False, timeout=240)
        printed = run.stdout.replace(str(demo), 'build/demo')
    if run.returncode != 0:
        raise SystemExit('status %d\n%s%s' % (run.returncode, run.stdout, run.stderr))
    shown, printed = part((ROOT / 'README.md').read_text().splitlines()), part(printed.splitlines())
    for one, other in zip(shown, printed):
        if one != other:
            raise SystemExit('README.md shows\n  %s\nand the demo prints\n  %s' % (one, other))
    if len(shown) != len(printed):
        raise SystemExit('README.md shows %d lines, the demo %d' % (len(shown), len(printed)))
    return 0


if __name__ == '__main__':
    sys.exit(main())
