#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
'''The completions at work, in a real bash and a real zsh at a terminal.

usage: completions_test.py INSTALLED [bash|zsh]

INSTALLED is a folder with an installation of everything, below usr/. The updater there is never to be
run by a completion: one that tells on it stands in its place.
'''

import os
import pathlib
import pty
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

INSTALLED = pathlib.Path()
WARNING = 'every run with an argument resets the chip'
DEADLINE = 60  # seconds, for a machine that does much else

# What a shell reads first: the prompt, no pager, no questions about long lists.
STARTS = {
    'bash': '''PS1='READY> '
        bind 'set page-completions off' 'set completion-query-items 0' 'set bell-style none'
        bind 'set enable-bracketed-paste off'
        XDG_DATA_DIRS=%(usr)s/share:/usr/share
        . /usr/share/bash-completion/bash_completion
        ''',
    'zsh': '''PROMPT='READY> '
        unsetopt prompt_cr prompt_sp beep
        unset zle_bracketed_paste
        LISTMAX=10000
        fpath=(%(usr)s/share/zsh/site-functions $fpath)
        autoload -U compinit && compinit -u -D
        ''',
}
COMMANDS = {'bash': ['bash', '--noprofile', '--rcfile'], 'zsh': ['zsh', '-f', '-i']}


class Shell:
    '''An interactive shell on a terminal of its own, in a folder with one image.'''

    def __init__(self, name):
        self.folder = tempfile.TemporaryDirectory()
        work = pathlib.Path(self.folder.name)
        (work / 'firmware.bin').write_bytes(b'image')
        self.told = work.parent / (work.name + '.told')
        programs = work / '.programs'
        programs.mkdir()
        (programs / 'bbpflash').write_text('#!/bin/sh\n: >"%s"\n' % self.told)
        (programs / 'bbpflash').chmod(0o755)
        start = work / '.start'
        start.write_text(STARTS[name] % {'usr': INSTALLED / 'usr'})
        command = list(COMMANDS[name])
        if name == 'bash':
            command += [str(start), '-i']
        environment = {
            'PATH': '%s:%s:/usr/bin:/bin' % (programs, INSTALLED / 'usr/bin'),
            'TERM': 'xterm', 'HOME': str(work), 'LC_ALL': 'C',
            'COLUMNS': '200', 'LINES': '400'}
        self.child, self.terminal = pty.fork()
        if self.child == 0:
            os.chdir(work)
            os.execvpe(command[0], command, environment)
        subprocess.run(['stty', 'rows', '400', 'cols', '200'], stdin=self.terminal, check=True)
        if name == 'zsh':
            os.write(self.terminal, b". ./.start\n")
        os.write(self.terminal, b"echo be''gin\n")
        self.expect(r'\nbegin\s+READY> ')

    def expect(self, pattern):
        '''What the terminal shows until it matches.'''
        shown, end = '', time.monotonic() + DEADLINE
        while not re.search(pattern, shown):
            left = end - time.monotonic()
            if left <= 0 or not select.select([self.terminal], [], [], left)[0]:
                raise AssertionError('no %r in %r' % (pattern, shown))
            try:
                read = os.read(self.terminal, 65536)
            except OSError:
                raise AssertionError('the shell has ended: %r' % shown)
            shown += read.decode(errors='replace')
            shown = re.sub(r'\x1b\[[0-9;?]*[A-Za-z]|\x1b\(B|\x1b[=>]|\x07|\0', '', shown)
            shown = re.sub(r'\r+\n', '\n', shown)
        return shown

    def completed(self, typed):
        '''What `typed` and a tab become.'''
        os.write(self.terminal, typed.encode() + b'\t')
        self.expect(re.escape(typed))
        # The line as the shell understands it: shown by a key that keeps it.
        os.write(self.terminal, b"\x01echo 'LINE \x05|'\n")
        line = re.findall(r'^LINE (.*)\|$', self.expect(r'\nLINE [^\n]*\|\n[^\n]*READY> '), re.M)
        return line[-1].rstrip()

    def choices(self, typed):
        '''What is shown for `typed` and two tabs, the line being dropped afterwards.'''
        os.write(self.terminal, typed.encode() + b'\t\t')
        os.write(self.terminal, b"\x15echo list''ed\n")
        return self.expect(r'\nlisted\s+READY> ')

    def close(self):
        '''Ends the shell; tells whether the updater was run.'''
        os.write(self.terminal, b'\x15exit\n')
        os.close(self.terminal)
        os.waitpid(self.child, 0)
        self.folder.cleanup()
        ran = self.told.exists()
        if ran:
            self.told.unlink()
        return ran


def options_of(*command):
    '''The long options that a program's help tells.'''
    help_text = subprocess.run([INSTALLED / 'usr/bin' / command[0], *command[1:], '--help'],
                               check=True, capture_output=True, text=True).stdout
    return re.findall(r'^ +(?:-\w,)?(--[a-z-]+)', help_text, re.M)


class InAShell:
    name = None

    def setUp(self):
        self.shell = Shell(self.name)
        self.addCleanup(lambda: self.assertFalse(self.shell.close(), 'the updater was run'))

    def test_the_updater_is_completed_with_a_warning(self):
        shown = self.shell.choices('bbpflash ')
        self.assertIn(WARNING, shown)
        self.assertIn('firmware.bin', shown)
        shown = self.shell.choices('bbpflash -')
        self.assertIn(WARNING, shown)
        for option in ('-f', '-i', '-s', '-v', '-l', '-t'):
            self.assertRegex(shown, r'\s%s\s' % option)
        self.assertEqual(self.shell.completed('bbpflash -s fi'), 'bbpflash -s firmware.bin')

    def test_all_options_are_offered(self):
        for command in (('bbpwatch',), ('bbpsim',), ('bbpimage', 'info'), ('bbpimage', 'make')):
            options = options_of(*command)
            self.assertGreater(len(options), 1)
            shown = self.shell.choices(' '.join(command) + ' --')
            for option in options:
                self.assertRegex(shown, r'\s%s\s' % option)

    def test_words_become_whole(self):
        for typed, whole in (
                ('bbpimage la', 'bbpimage label'),
                ('bbpimage info fi', 'bbpimage info firmware.bin'),
                ('bbpimage info --js', 'bbpimage info --json'),
                ('bbpimage make --size fi', 'bbpimage make --size fi'),
                ('bbpsim --pace w', 'bbpsim --pace wire'),
                ('bbpsim --flash fi', 'bbpsim --flash firmware.bin'),
                ('bbpsim --list', 'bbpsim --list-faults'),
                ('bbpwatch --sta', 'bbpwatch --stall'),
                ('bbpwatch --log fi', 'bbpwatch --log firmware.bin'),
                ('bbpwatch -- bbpfl', 'bbpwatch -- bbpflash'),
                ('bbpwatch --json -- bbpimage la', 'bbpwatch --json -- bbpimage label')):
            self.assertEqual(self.shell.completed(typed), whole)


class InBash(InAShell, unittest.TestCase):
    name = 'bash'


class InZsh(InAShell, unittest.TestCase):
    name = 'zsh'


if __name__ == '__main__':
    INSTALLED = pathlib.Path(sys.argv.pop(1)).resolve()
    for shell in COMMANDS:
        if shutil.which(shell) is None:
            raise SystemExit('there is no %s here' % shell)
    unittest.main()
