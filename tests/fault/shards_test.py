#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
'''The fault engine's shards: together they are the whole, and none is left out by mistake.

usage: shards_test.py ENGINE
'''

import collections
import re
import subprocess
import sys
import unittest

ENGINE = None
SAMPLE = ['--every', '997']
SHARDS = 3


def run(*options):
    return subprocess.run([ENGINE, *SAMPLE, *options], capture_output=True, text=True, timeout=600)


def tally(*options):
    '''The figures of a run by their names.'''
    output = run(*options).stdout
    figures = collections.Counter()
    for name, count in re.findall(r'(?m)^  (\S.*?) +(\d+) +[\d.]+ %$', output):
        figures[name] = int(count)
    total = re.search(r'(\d+) distinct runs, in (\d+) the fault has struck, (\d+) failed', output)
    figures.update(dict(zip(('runs', 'struck', 'failed'), map(int, total.groups()))))
    return figures


def shard(number, *options):
    return tally('--shard', str(number), '--shards', str(SHARDS), *options)


class ShardsTest(unittest.TestCase):
    def test_add_up_to_the_whole(self):
        whole = tally()
        self.assertGreater(whole['runs'], 300)
        parts = [shard(number) for number in range(SHARDS)]
        for part in parts:
            self.assertGreater(part['runs'], whole['runs'] // SHARDS // 2)
        self.assertEqual(whole, sum(parts, collections.Counter()))

    def test_add_up_when_each_has_several_processes(self):
        # Machines with different numbers of cores share the work.
        self.assertEqual(shard(1), shard(1, '--jobs', '2'))

    def test_that_do_not_exist_are_refused(self):
        # An array of jobs that counts from 1 would leave the first shard out.
        for options in (['--shard', '3', '--shards', '3'], ['--shards', '0'], ['--shard', '1']):
            refused = run(*options)
            self.assertNotEqual(0, refused.returncode, options)
            self.assertEqual('', refused.stdout, options)


if __name__ == '__main__':
    ENGINE = sys.argv.pop(1)
    unittest.main()
