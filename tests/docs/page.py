# SPDX-License-Identifier: Apache-2.0
'''The commands that a page shows, and what the page says that they print.'''

import dataclasses
import pathlib
import re
import subprocess

PROGRAMS = ('bbpflash', 'bbpimage', 'bbpsim', 'bbpwatch')
OUTSIDE, INSIDE = '$ ', '(head unit) $ '
NOT_RUN = re.compile(r'<!-- not run: (.+) -->')


@dataclasses.dataclass
class Command:
    '''A command as it is shown, and the lines below it.'''
    text: str
    line: int  # in the page
    inside: bool = False  # typed in the shell of a simulated head unit
    shown: list = dataclasses.field(default_factory=list)
    is_session: bool = False  # its output is shown, too
    left_out: str = ''  # why it is not run


def blocks(text):
    '''The code blocks of a page in Markdown: (number of the first line, lines, reason not to run).'''
    reason, block, start, fence = '', [], 0, False
    for number, line in enumerate([*text.splitlines(), 'The end.'], 1):
        is_code = fence or line.startswith('    ') or (block and not line.strip())
        if line.strip().startswith('```'):
            is_code, fence = fence, not fence
        if is_code and not line.strip().startswith('```'):
            start = start if block else number
            block.append(line if fence else line[4:])
            continue
        if any(part.strip() for part in block):
            yield start, block, reason
            reason = ''
        block = []
        found = NOT_RUN.match(line.strip())
        if found:
            reason = found[1]
        elif line.strip() and not line.strip().startswith('```'):
            reason = ''


def session_of(start, block, reason):
    '''The commands of a block in which prompts are shown.'''
    commands = []
    for number, line in enumerate(block, start):
        prompt = next((p for p in (INSIDE, OUTSIDE) if line.startswith(p)), None)
        if prompt:
            commands.append(Command(line[len(prompt):], number, prompt == INSIDE, is_session=True,
                                    left_out=reason))
        elif commands:
            commands[-1].shown.append(line.rstrip())
    return commands


def commands_of_block(start, block, reason):
    '''The commands of a block, with prompts or without.'''
    if any(line.startswith((OUTSIDE, INSIDE)) for line in block):
        return session_of(start, block, reason)
    first_words = (*PROGRAMS, './dev', 'cmake', 'ctest', 'sudo', 'apt')
    return [Command(line.split('  #')[0].strip(), number, left_out=reason)
            for number, line in enumerate(block, start)
            if line.split(' ')[0] in first_words and '[' not in line]


def commands_of_manual(path):
    '''The lines of a manual page's section EXAMPLES that begin with one of the programs.'''
    plain = subprocess.run(['man', '-l', str(path)], check=True, capture_output=True, text=True,
                           env={'PATH': '/usr/bin:/bin', 'MANWIDTH': '200', 'LC_ALL': 'C.UTF-8',
                                'MAN_KEEP_FORMATTING': ''}).stdout
    plain = re.sub('.\b', '', plain)
    examples = re.search(r'^EXAMPLES\n(.*?)^\S', plain, re.MULTILINE | re.DOTALL)
    if not examples:
        return []
    return [Command(line.strip(), 0) for line in examples[1].splitlines()
            if line.strip().split(' ')[0] in PROGRAMS and not line.strip().endswith(('.', ','))]


def commands_of(path):
    '''All commands of a page, in order.'''
    path = pathlib.Path(path)
    if path.suffix == '.1':
        return commands_of_manual(path)
    return [command for block in blocks(path.read_text()) for command in commands_of_block(*block)]
