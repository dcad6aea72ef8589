#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
'''Runs every command that a page shows and compares what it prints with what the page says.

usage: commands.py PROGRAMS PAGE...

PROGRAMS is the folder of the built programs. Commands for a unit run in a simulated head unit that
lasts for the whole page. A block with <!-- not run: REASON --> above it is left out and counted.
'''

import os
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile

import page as pages

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
QUICK = ['--pace', 'none', '--burn', '1,1,1']
LONGEST = 120  # seconds for one command

# What differs from run to run, or with the pace.
VARYING = [(re.compile(r'@(\w+)\.cpp:\d+'), r'@\1.cpp:N'),
           (re.compile(r'\b\d+\.\d{6}\b'), 'SECONDS'), (re.compile(r'\b\d+:\d\d\b'), 'M:SS'),
           (re.compile(r'^(polls|messages) +\d+'), r'\1 N'), (re.compile(r'\bpid \d+'), 'pid N'),
           (re.compile(r' +'), ' ')]


def masked(line):
    for pattern, name in VARYING:
        line = pattern.sub(name, line)
    return line.rstrip()


def pattern_of(line):
    '''What a shown line stands for: "..." for any lines, and at a line's end for its rest.'''
    if line.strip() == '...':
        return '(?:.*\n)*?'
    if line.endswith(' ...'):
        return re.escape(line[:-3]) + '.*\n'
    return re.escape(line) + '\n'


def differs(shown, printed):
    '''How the printed lines differ from the shown ones. None if they do not.'''
    shown = [masked(line) for line in shown if line.strip()]
    printed = [masked(line) for line in printed if line.strip()]
    if re.fullmatch(''.join(map(pattern_of, shown)), ''.join(line + '\n' for line in printed)):
        return None
    return 'it shows\n  %s\nand the program prints\n  %s' % ('\n  '.join(shown),
                                                             '\n  '.join(printed))


class Desk:
    '''A folder with what the pages take for granted, and the programs in reach.'''

    def __init__(self, folder, programs):
        self.folder = pathlib.Path(folder)
        self.environment = {**os.environ, 'PATH': '%s:%s' % (programs, os.environ['PATH']),
                            'TERM': 'dumb', 'LC_ALL': 'C.UTF-8', 'TMPDIR': str(folder)}
        for name, version in (('image.bin', 'HD 2.11.0'), ('new.bin', '2.0.0'),
                              ('newer.bin', '3.0.0')):
            self.run('bbpimage make --version %s %s' % (shlex.quote(version), name))

    def run(self, text):
        return subprocess.run(['bash', '-c', text], cwd=self.folder, env=self.environment,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, timeout=LONGEST, check=False)


def quick(text):
    '''A command as it is run: quickly, and in a simulated head unit if it is for a unit.'''
    words = text.split(' ')
    if words[:2] == ['bbpimage', 'make']:
        # It overwrites nothing, and the desk has the page's images already.
        return 'rm -f %s; %s' % (words[-1], text)
    if words[0] == 'bbpsim' and '--pace' not in words:
        return ' '.join(['bbpsim', *QUICK, *words[1:]])
    if words[0] in ('bbpflash', 'bbpwatch'):
        return 'bbpsim %s --installed "HD 2.10.4" --flash .unit -- %s' % (' '.join(QUICK), text)
    return text


def unit_session(desk, opening, inside):
    '''A shell of a simulated head unit: the output of each command in it, and of bbpsim itself.'''
    mark = '<<< end of a command >>>'
    script = desk.folder / '.session'
    script.write_text(''.join('%s\necho "%s"\n' % (command.text, mark) for command in inside
                              if command.text != 'exit'))
    result = desk.run('%s -- bash %s' % (quick(opening.text), script.name))
    parts = result.stdout.split(mark + '\n')
    shown = inside if inside[-1].text == 'exit' else [*inside, None]
    return [(command, part.splitlines()) for command, part in zip(shown, parts) if command]


def groups(commands):
    '''Each command outside with those that are typed in the shell which it opens.'''
    found, is_open = [], False
    for command in commands:
        if command.inside:
            if not is_open:
                found.append((pages.Command('bbpsim --flash .unit', command.line), []))
            found[-1][1].append(command)
            is_open = command.text != 'exit'
        else:
            found.append((command, []))
            is_open = command.text.startswith('bbpsim')
    return found


def what_is_wrong(desk, command):
    '''What is wrong with one command outside. None if nothing is.'''
    if command.text.startswith('./dev'):
        helped = subprocess.run([ROOT / 'dev', 'help'], capture_output=True, text=True, check=True)
        word = [*command.text.split(), 'help'][1]
        is_known = re.search(r'^ +%s\b' % re.escape(word), helped.stdout, re.MULTILINE)
        return None if is_known else './dev help does not know it'
    result = desk.run(quick(command.text))
    if command.is_session:
        return differs(command.shown, result.stdout.splitlines())
    return None if result.returncode == 0 else 'status %d: %s' % (result.returncode, result.stdout)


def run_page(desk, commands):
    '''Pairs of a command and what is wrong with it.'''
    pairs = []
    for command, inside in groups([command for command in commands if not command.left_out]):
        if inside:
            pairs += [(each, differs(each.shown, printed))
                      for each, printed in unit_session(desk, command, inside)]
        else:
            pairs.append((command, what_is_wrong(desk, command)))
    return [(command, text) for command, text in pairs if text]


def main():
    if len(sys.argv) < 3:
        raise SystemExit(__doc__)
    programs, failed = pathlib.Path(sys.argv[1]).resolve(), 0
    for path in sys.argv[2:]:
        commands = pages.commands_of(path)
        left_out = [command for command in commands if command.left_out]
        with tempfile.TemporaryDirectory() as folder:
            wrong = run_page(Desk(folder, programs), commands)
        print('%s: %d commands run, %d left out' % (path, len(commands) - len(left_out),
                                                    len(left_out)))
        for command, text in wrong:
            print('%s:%d: %s\n%s' % (path, command.line, command.text, text))
        failed += len(wrong) + (not commands)
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())
