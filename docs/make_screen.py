#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
'''Makes docs/images/bbpwatch.svg: a terminal in which bbpwatch shows an update in mid-burn.

usage: make_screen.py PROGRAMS

PROGRAMS is the folder of the built programs. A simulated head unit is updated in a real terminal
(tmux), at the pace of a real bus, and the screen is taken while the chip programs its flash. This
needs Debian's packages tmux and python3-rich.
'''

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import time

import rich.console
import rich.terminal_theme
import rich.text

PICTURE = pathlib.Path(__file__).resolve().parent / 'images' / 'bbpwatch.svg'
WIDTH, HEIGHT = 96, 10
LONGEST = 120  # seconds
MOMENT = re.compile(r'program .* 8\d%')

# The frame of the picture. The font is the reader's own: a page must not fetch one.
FRAME = '''<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}">
<!-- SPDX-License-Identifier: Apache-2.0 -->
<title>bbpwatch in a terminal, while the chip programs its flash</title>
<style>
.{unique_id}-matrix {{ font-family: monospace; font-size: {char_height}px;
    line-height: {line_height}px; }}
{styles}
</style>
<rect fill="#292929" width="100%" height="100%" rx="8"/>
<g transform="translate({terminal_x}, {terminal_y})">
{backgrounds}
<g class="{unique_id}-matrix">
{matrix}
</g>
</g>
</svg>
'''


def tmux(*words):
    '''What a tmux command prints.'''
    return subprocess.run(['tmux', '-L', 'bbpwatch-picture', *words], check=True,
                          capture_output=True, text=True).stdout


def screen(programs, folder):
    '''The screen at the moment that is shown, with its colours as escape sequences.'''
    environment = {**os.environ, 'PATH': '%s:%s' % (programs, os.environ['PATH'])}
    subprocess.run(['bbpimage', 'make', '--version', 'HD 2.11.0', 'image.bin'], cwd=folder,
                   env=environment, check=True)
    shell = ("env PS1='$ ' PATH='%s' bash --norc --noprofile" % environment['PATH'])
    tmux('-f', '/dev/null', 'new-session', '-d', '-x', str(WIDTH), '-y', str(HEIGHT), '-c', folder,
         "bbpsim --installed 'HD 2.10.4' -- " + shell)
    try:
        tmux('send-keys', 'clear', 'Enter', 'bbpwatch image.bin', 'Enter')
        end = time.monotonic() + LONGEST
        while time.monotonic() < end:
            if MOMENT.search(tmux('capture-pane', '-p')):
                return tmux('capture-pane', '-p', '-e').rstrip()
            time.sleep(0.1)
        raise SystemExit('the moment did not come; the screen is\n' + tmux('capture-pane', '-p'))
    finally:
        tmux('kill-server')


def main():
    if len(sys.argv) != 2:
        raise SystemExit(__doc__)
    programs = pathlib.Path(sys.argv[1]).resolve()
    os.environ['PATH'] = '%s:%s' % (programs, os.environ['PATH'])
    with tempfile.TemporaryDirectory() as folder:
        text = screen(programs, folder)
    console = rich.console.Console(record=True, width=WIDTH, file=open(os.devnull, 'w'))
    console.print(rich.text.Text.from_ansi(text))
    made = console.export_svg(code_format=FRAME, theme=rich.terminal_theme.DIMMED_MONOKAI)
    PICTURE.write_text(re.sub(r' clip-path="[^"]*"', '', made))
    return 0


if __name__ == '__main__':
    sys.exit(main())
