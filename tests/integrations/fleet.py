#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
'''A fleet of simulated head units, and a campaign of integrations/ansible on it.

Each unit has an SSH server of its own, on a loopback address of its own. The units hold several
versions, and some have a fault. Afterwards each unit's flash is compared with what the report says.
'''

import argparse
import contextlib
import dataclasses
import json
import os
import pathlib
import resource
import shutil
import signal
import socket
import subprocess
import sys
import time

from head_unit import NEW, PROGRAMS, ROOT, make_image, temporary_folder, tool, wait_until

PLAYBOOKS = ROOT / 'integrations/ansible'
UNIT = pathlib.Path(__file__).resolve().parent / 'unit_sshd.sh'
PORT = 2222

# By what a unit suffers from, bbpsim's options. The unit that is off has none: it does not run.
FAULTS = {
    'a segment is refused': ['--fault', 'segment 300 refuse'],
    'the image is refused': ['--fault', 'burn 1+ reject'],
    'the chip is dead': ['--fault', 'write 1+ nak'],
    'the unit is switched off': None,
    'another version is reported': ['--reports', 'HD 0.0.0'],
    'the reset line is stuck': ['--fault', 'reset 1+ dead-line'],
    'the bus fails in the download': ['--fault', 'segment 77 fail EIO'],
    'the flash is worn out': ['--fault', 'burn 1+ verify-fails'],
}
# Of the engine, for this fleet.
CONFIGURATION = '''
[defaults]
home = {folder}/ansible
forks = {forks}
host_key_checking = False
interpreter_python = /usr/bin/python3
inventory = {folder}/inventory
nocolor = True
private_key_file = {folder}/key
remote_port = {port}
timeout = 60
[ssh_connection]
control_path_dir = {folder}/ssh
pipelining = True
'''
# What sound units hold before the campaign.
BEFORE = ['HD 2.10.4', 'HD 2.9.0', NEW, 'LOADER ONLY']


@dataclasses.dataclass
class Unit:
    name: str
    address: str
    folder: pathlib.Path
    before: str
    fault: str = None
    process: subprocess.Popen = None

    def prepare(self, image, key):
        self.folder.mkdir()
        if self.before == NEW:
            shutil.copy(image, self.folder / 'flash.bin')
        elif self.before == 'LOADER ONLY':
            (self.folder / 'flash.bin').write_bytes(b'\xff' * image.stat().st_size)
        shutil.copy(key, self.folder / 'host_key')
        shutil.copy(str(key) + '.pub', self.folder / 'authorized_keys')

    def start(self, pace):
        if self.fault and FAULTS[self.fault] is None:
            return
        words = [PROGRAMS / 'bbpsim', '--pace', pace, '--installed', self.before,
                 '--flash', self.folder / 'flash.bin', '--json', self.folder / 'seen.json']
        if pace == 'none':
            words += ['--burn', '1,1,1']
        words += FAULTS.get(self.fault, []) + ['--', UNIT, self.folder, self.address, PORT]
        with (self.folder / 'sshd.log').open('w') as log:
            self.process = subprocess.Popen(
                [str(word) for word in words], stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                env=dict(os.environ, PATH='/usr/bin:/bin:/usr/sbin'))

    def answers(self):
        with socket.socket() as connection:
            return connection.connect_ex((self.address, PORT)) == 0

    def stop(self):
        if self.process:
            self.process.terminate()
            try:
                self.process.wait(timeout=60)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()

    def seen(self):
        '''What the head unit saw, or an empty account when it never ran.'''
        path = self.folder / 'seen.json'
        return json.loads(path.read_text()) if path.exists() else {}

    def contradiction(self, claim, image):
        '''What in `claim`, the report's about this unit, is not so; or nothing.'''
        seen = self.seen()
        is_new = (self.folder / 'flash.bin').exists() and (
            self.folder / 'flash.bin').read_bytes() == image.read_bytes()
        if claim is None:
            return 'was touched, but is not reported' if seen.get('resets') else ''
        burns = {'success': 1, 'current': 0}.get(claim['result'])
        if claim['good'] and not (is_new and seen['burns'] == burns and claim['version'] == NEW):
            return 'is reported as good, but saw %s' % seen
        if claim['good'] and self.fault:
            return 'is reported as good, although ' + self.fault
        if not claim['good'] and not self.fault:
            return 'is sound, but is reported as %s' % claim
        return ''


class Fleet:
    '''Units in `folder`, running while the context lasts.'''

    def __init__(self, folder, size, faulty_every, pace):
        self.folder = folder
        self.results = folder / 'results'
        self.key = folder / 'key'
        self.pace = pace
        self.image = make_image(folder / 'image.bin')
        self.units = [self.make_unit(at, faulty_every) for at in range(size)]

    def make_unit(self, at, faulty_every):
        # The last of each group is the faulty one: the first wave, a single unit, is sound.
        is_faulty = faulty_every and at % faulty_every == faulty_every - 1
        fault = list(FAULTS)[at // faulty_every % len(FAULTS)] if is_faulty else None
        return Unit('unit%03d' % (at + 1), '127.0.%d.%d' % (2 + at // 250, 1 + at % 250),
                    self.folder / ('unit%03d' % (at + 1)),
                    BEFORE[0] if is_faulty else BEFORE[at % len(BEFORE)], fault)

    def __enter__(self):
        tool('ssh-keygen', '-q', '-t', 'ed25519', '-N', '', '-f', self.key)
        self.results.mkdir()
        lines = ['[headunits]']
        with contextlib.ExitStack() as started:
            for unit in self.units:
                started.callback(unit.stop)
                unit.prepare(self.image, self.key)
                unit.start(self.pace)
                lines.append('%s ansible_host=%s bbp_folder=%s' % (
                    unit.name, unit.address, unit.folder))
            (self.folder / 'ansible.cfg').write_text(CONFIGURATION.format(
                folder=self.folder, forks=min(25, len(self.units)), port=PORT))
            (self.folder / 'inventory').write_text('\n'.join(lines) + '\n')
            for unit in self.units:
                wait_until(lambda: not unit.process or unit.answers(), unit.name + ' listens')
            self.started = started.pop_all()
        return self

    def __exit__(self, *_):
        # A connection that is kept open would outlive its unit.
        for path in (self.folder / 'ssh').glob('*'):
            subprocess.run(['ssh', '-o', 'ControlPath=%s' % path, '-O', 'exit', 'unit'],
                           capture_output=True, timeout=60)
        self.started.close()

    def play(self, playbook, **variables):
        '''Returns ansible-playbook's status; its output goes to a log.'''
        words = ['ansible-playbook', PLAYBOOKS / playbook, '-e',
                 json.dumps(dict(variables, bbp_results=str(self.results)))]
        environment = dict(os.environ, PATH='%s:%s' % (PROGRAMS, os.environ['PATH']),
                           ANSIBLE_CONFIG=str(self.folder / 'ansible.cfg'))
        with (self.folder / 'ansible.log').open('a') as log, subprocess.Popen(
                [str(word) for word in words], env=environment, stdout=log, stderr=log,
                stdin=subprocess.DEVNULL, start_new_session=True) as engine:
            try:
                return engine.wait(timeout=7200)
            except BaseException:
                os.killpg(engine.pid, signal.SIGTERM)
                raise

    def claims(self):
        '''The reported units, by name.'''
        return {path.stem: json.loads(path.read_text()) for path in self.results.glob('*.json')}

    def contradictions(self):
        '''To be asked when the units have stopped.'''
        claims = self.claims()
        found = ((unit, unit.contradiction(claims.get(unit.name), self.image))
                 for unit in self.units)
        return ['%s %s' % (unit.name, text) for unit, text in found if text]


def run_campaign(fleet, most_failures):
    '''Returns (status, seconds) of the campaign; the report is made as well.'''
    begin = time.monotonic()
    status = fleet.play('update.yml', bbp_image=str(fleet.image), bbp_poll=5, bbp_seconds=600,
                        bbp_max_fail_percentage=most_failures)
    seconds = time.monotonic() - begin
    if fleet.play('report.yml') != 0:
        raise RuntimeError('no report; see %s/ansible.log' % fleet.folder)
    return status, seconds


@contextlib.contextmanager
def working_folder(kept):
    if kept:
        kept.mkdir(parents=True)
        yield kept.resolve()
    else:
        with temporary_folder() as folder:
            yield folder


def parse(words):
    parser = argparse.ArgumentParser(prog='fleet', description=__doc__.splitlines()[0])
    parser.add_argument('size', type=int, nargs='?', default=12, help='units (12)')
    parser.add_argument('--faulty-every', type=int, default=8, metavar='K',
                        help='each K-th unit has a fault (8); 0: none')
    parser.add_argument('--most-failures', type=int, default=20, metavar='PERCENT',
                        help='of a wave, beyond which the campaign stops (20)')
    parser.add_argument('--pace', choices=['wire', 'none'], default='none',
                        help="the bus's and the chip's time, or as fast as it goes (none)")
    parser.add_argument('--keep', type=pathlib.Path, metavar='FOLDER',
                        help='work in this new folder and leave all there')
    return parser.parse_args(words)


def main():
    options = parse(sys.argv[1:])
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    with working_folder(options.keep) as folder:
        print('starting %d units' % options.size, flush=True)
        with Fleet(folder, options.size, options.faulty_every, options.pace) as fleet:
            print('the campaign begins', flush=True)
            status, seconds = run_campaign(fleet, options.most_failures)
            # Those of processes that have ended: of the units none has.
            usage = resource.getrusage(resource.RUSAGE_CHILDREN)
        print((fleet.results / 'report.txt').read_text())
        print('ansible-playbook ended with status %d after %.0f seconds, %.1f CPU seconds a unit' % (
            status, seconds, (usage.ru_utime + usage.ru_stime) / max(1, len(fleet.claims()))))
        contradictions = fleet.contradictions()
        print('\n'.join(contradictions) or
              'all %d flashes hold what the report says' % options.size)
    return 1 if contradictions else 0


if __name__ == '__main__':
    sys.exit(main())
