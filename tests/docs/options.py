#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
'''Compares the options that pages, manual pages, usage texts and the programs themselves name.

usage: options.py PROGRAMS

PROGRAMS is the folder of the built programs.
'''

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
OPTION = re.compile(r'(?<![\w-])--?[A-Za-z][\w-]*')
PROGRAMS = {'bbpimage': ('info', 'label', 'make', 'pad'), 'bbpsim': (), 'bbpwatch': ()}
EVERYWHERE = {'-h', '--help', '--version'}


def of_table(page, heading):
    '''The options in the first column of the table below a heading.'''
    part = (ROOT / page).read_text().split('\n' + heading + '\n', 1)[1]
    part = re.split(r'\n#+ ', part)[0]
    rows = re.findall(r'^\| (`-[^|]*)\|', part, re.MULTILINE)
    return {option for row in rows for option in OPTION.findall(row)}


def of_manual(program):
    '''The options that a manual page explains: those of its tagged paragraphs.'''
    text = (ROOT / 'docs' / 'man' / (program + '.1')).read_text().replace('\\-', '-')
    tags = re.findall(r'^\.TP\n\.[BIR]+ "?(-.*)$', text, re.MULTILINE)
    return {option for tag in tags for option in OPTION.findall(tag)}


def of_usage_record():
    '''The options of the updater's usage text.'''
    text = (ROOT / 'src' / 'driver' / 'bbpflash.use').read_text()
    return set(re.findall(r'^  (-\w) ', text, re.MULTILINE))


def of_help(folder, program, commands):
    '''The options that a program's own help names.'''
    found = set()
    for words in ([], *([command] for command in commands)):
        run = subprocess.run([pathlib.Path(folder) / program, *words, '--help'], check=True,
                             capture_output=True, text=True)
        found |= {option for line in run.stdout.splitlines() if re.match(r' +-', line)
                  for option in OPTION.findall(line.split('  ', 2)[1].split(' ', 1)[0])}
    return found


def compare(one, other, names):
    '''Lines about options that only one of two sets has.'''
    return (['%s is in %s only' % (option, names[0]) for option in sorted(one - other)]
            + ['%s is in %s only' % (option, names[1]) for option in sorted(other - one)])


def main():
    if len(sys.argv) != 2:
        raise SystemExit(__doc__)
    readme = of_table('README.md', '## Command line')
    wrong = compare(readme, of_manual('bbpflash'), ('README.md', 'bbpflash.1'))
    wrong += ['%s is in the usage record only' % option for option in of_usage_record() - readme]
    for program, commands in PROGRAMS.items():
        helped = of_help(sys.argv[1], program, commands)
        wrong += compare(helped - EVERYWHERE, of_manual(program) - EVERYWHERE,
                         ('the help of ' + program, program + '.1'))
        wrong += ['%s has no %s' % (program, option) for option in {'--help', '--version'} - helped]
    table = of_table('docs/bbpsim.md', '## Running it')
    helped = of_help(sys.argv[1], 'bbpsim', ()) - EVERYWHERE
    wrong += compare(helped, table, ('the help of bbpsim', 'docs/bbpsim.md'))
    if not readme or not table:
        wrong.append('a table of options was not found')
    print('\n'.join(wrong))
    return 1 if wrong else 0


if __name__ == '__main__':
    sys.exit(main())
