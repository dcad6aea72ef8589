#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
'''Computes how long an update of 1 MiB takes, and compares what the pages say of it.

usage: figures.py
'''

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent

IMAGE = 1 << 20
PAYLOAD = 2035  # of a segment; the first one holds the function byte, too
MESSAGE, REPLY = 2048, 65
BUS_HZ = 400000
WAIT = 750e-6  # before the reply to a segment
RESET = 0.2 + 3.0  # the line low, and the wait until the chip is asked
POLL = 0.35


def transfer(size):
    '''Seconds on the bus: nine bits a byte, the address too, a start and a stop.'''
    return (9 * (size + 1) + 2) / BUS_HZ


def download():
    '''Seconds from the first segment to the reply to the last.'''
    full, rest = divmod(IMAGE + 1, PAYLOAD)
    seconds = full * (transfer(MESSAGE) + WAIT + transfer(REPLY))
    return seconds + transfer(rest + MESSAGE - PAYLOAD) + WAIT + transfer(REPLY)


def burn():
    '''Seconds of the simulated chip's burn, as long as a real one's.'''
    header = (ROOT / 'sim' / 'Burn.h').read_text()
    times = re.findall(r'^    Duration \w+ = std::chrono::seconds\((\d+)\);', header, re.MULTILINE)
    assert len(times) == 3, times
    return sum(map(int, times))


def update():
    '''Seconds of a run that updates: two resets, a download, a burn up to the poll that sees its end.'''
    return 2 * RESET + download() + burn() + POLL


# A page, the words around a figure, and what the figure is.
CLAIMS = [
    ('docs/performance.md', r'A download of 1 MiB takes ([\d.]+) s', '%.3f' % download()),
    ('docs/protocol.md', r'an image of 1 MiB ([\d.]+) s', '%.1f' % download()),
    ('docs/fleet.md', r'(\d+) s of download', '%.0f' % download()),
    ('docs/fleet.md', r'power lost in the download \((\d+) s\)', '%.0f' % download()),
    ('docs/fleet.md', r'(\d+) s of burn', '%.0f' % burn()),
    ('docs/fleet.md', r"A unit's update takes (\d+) s", '%.0f' % update()),
    ('docs/fleet.md', r'for \d+ of the (\d+) seconds', '%.0f' % update()),
    ('docs/fleet.md', r'time in which the radio is off \| (\d+) s', '%.0f' % update()),
    ('docs/bbpsim.md', r'An update takes (\d+) seconds', '%.0f' % update()),
    ('docs/testing.md', r'an update of 1 MiB, (\d+) seconds on a real bus', '%.0f' % update()),
    ('README.md', r'a real bus and a real chip: (\d+) seconds', '%.0f' % update()),
    ('scripts/demo.sh', r'a real bus and a real chip: (\d+) seconds', '%.0f' % update()),
    ('docs/bench.md', r'verified, 0:(\d+)', '%.0f' % update()),
]


def main():
    if len(sys.argv) != 1:
        raise SystemExit(__doc__)
    wrong = []
    for page, words, figure in CLAIMS:
        found = re.findall(words, (ROOT / page).read_text())
        if not found:
            wrong.append('%s no longer says: %s' % (page, words))
        wrong += ['%s says %s where it is %s: %s' % (page, said, figure, words)
                  for said in found if said != figure]
    print('\n'.join(wrong))
    return 1 if wrong else 0


if __name__ == '__main__':
    sys.exit(main())
