# SPDX-License-Identifier: Apache-2.0
'''A simulated head unit for tests of the engines that drive the updater.'''

import contextlib
import json
import os
import pathlib
import signal
import subprocess
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
PROGRAMS = pathlib.Path(os.environ.get('BBP_PROGRAMS', ROOT / 'build/release/bin'))

OLD = 'HD 2.10.4'
NEW = 'HD 2.11.0'
PATIENCE = 120  # seconds that no command in a test ever needs


def tool(*words):
    '''Runs a tool that must succeed, and returns what it writes.'''
    path = '%s:%s' % (PROGRAMS, os.environ['PATH'])
    return subprocess.run([str(word) for word in words], check=True, text=True, timeout=PATIENCE,
                          stdin=subprocess.DEVNULL, capture_output=True,
                          env=dict(os.environ, PATH=path)).stdout


def make_image(path, version=NEW, size=1048576):
    tool(PROGRAMS / 'bbpimage', 'make', '--version', version, '--size', size, path)
    return path


def make_signer(folder, name):
    '''Returns the files of a new key and its certificate.'''
    key, certificate = folder / (name + '.key'), folder / (name + '.crt')
    tool('openssl', 'req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:P-256',
         '-nodes', '-keyout', key, '-out', certificate, '-days', '1', '-subj', '/CN=' + name,
         '-addext', 'extendedKeyUsage=emailProtection')
    return key, certificate


@contextlib.contextmanager
def temporary_folder():
    with tempfile.TemporaryDirectory(prefix='engine-') as folder:
        yield pathlib.Path(folder)


def wait_until(condition, what):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError('waited in vain until ' + what)
        time.sleep(0.02)


class HeadUnit:
    '''One unit with its chip, its flash and its temporary files in `folder`.

    Commands run in it one after the other; the flash stays between them.
    '''

    def __init__(self, folder, faults=(), reports=None, burn='1,1,1'):
        self.folder = folder
        self.flash = folder / 'flash.bin'
        self.temporary = folder / 'tmp'
        self.temporary.mkdir(parents=True)
        self.log = folder / 'transfers.txt'
        self.options = ['--pace', 'none', '--burn', burn, '--installed', OLD,
                        '--flash', self.flash, '--log-file', self.log,
                        '--json', folder / 'report.json']
        for fault in faults:
            self.options += ['--fault', fault]
        if reports:
            self.options += ['--reports', reports]

    def start(self, *command, output=subprocess.PIPE, **environment):
        words = [PROGRAMS / 'bbpsim', *self.options, '--', *command]
        return subprocess.Popen(
            [str(word) for word in words], text=True, stdin=subprocess.DEVNULL, stdout=output,
            stderr=subprocess.STDOUT,
            env=dict(os.environ, TMPDIR=str(self.temporary), **environment))

    def run(self, *command, **environment):
        '''Returns (status, output, what the head unit saw).'''
        with self.start(*command, **environment) as process:
            try:
                output, _ = process.communicate(timeout=PATIENCE)
            except subprocess.TimeoutExpired:
                process.send_signal(signal.SIGTERM)
                output, _ = process.communicate(timeout=PATIENCE)
                raise AssertionError('%s takes too long:\n%s' % (command, output)) from None
        return process.returncode, output, self.report()

    def report(self):
        return json.loads((self.folder / 'report.json').read_text())

    def holds(self, image):
        return self.flash.exists() and self.flash.read_bytes() == image.read_bytes()

    def is_burning(self):
        return self.log.exists() and ' programming (' in self.log.read_text()


class EngineTests:
    '''What holds for every engine.

    A test case of one gives the folder, the image, and install(unit), which returns as run does.
    '''

    def unit(self, **options):
        return HeadUnit(self.folder / 'unit', **options)

    def test_updates(self):
        unit = self.unit()
        status, output, report = self.install(unit)
        self.assertEqual((0, 1, NEW), (status, report['burns'], report['version']), output)
        self.assertTrue(unit.holds(self.image))
        self.installed(output)

    def installed(self, output):
        '''For what else an engine says after an update.'''

    def test_finds_nothing_to_do_the_second_time(self):
        unit = self.unit()
        self.install(unit)
        status, output, report = self.install(unit)
        self.assertEqual((0, 0, 0), (status, report['segments'], report['burns']), output)
