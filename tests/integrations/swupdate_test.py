#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
'''integrations/swupdate with the real swupdate, on simulated head units.'''

import hashlib
import os
import re
import signal
import socket
import struct
import subprocess
import unittest

from head_unit import (ROOT, EngineTests, HeadUnit, make_image, make_signer, temporary_folder,
                       tool, wait_until)

INTEGRATION = ROOT / 'integrations/swupdate'
SHORT_FORM = INTEGRATION / 'without-bbpwatch'
HARDWARE = '1.0'

# What the unit's shell does with the agent's command line.
ONCE = '"$@"'
# progress_ipc.h of SWUpdate: after five numbers the steps, the current step and its percentage.
PROGRESS = struct.Struct('@IIIQIII256s64sII2048s0Q')
KILLED = '''"$@" & echo $! >agent.pid; wait $!; echo "killed: $?"
"$@"; echo "at once: $?"
until "$@"; do sleep 0.2; done; echo "afterwards: $?"'''


class Bench:
    '''A signer, an image, an update made of it; and a unit that trusts the signer.'''

    def __init__(self, folder):
        self.folder = folder
        self.key, self.certificate = make_signer(folder, 'maker')
        self.image = make_image(folder / 'image.bin')
        self.update = self.make_update(self.image, self.key, self.certificate)

    def make_update(self, image, key, certificate):
        update = self.folder / 'update.swu'
        tool(INTEGRATION / 'make-swu', image, HARDWARE, key, certificate, update)
        return update

    def pack(self, image, signed):
        '''An update of any image, in the way of those who pack by hand.'''
        tool('bash', '-c', 'cd "$1" && cpio -iu --quiet <update.swu', 'bash', self.folder)
        self.image.write_bytes(image)
        description = self.folder / 'sw-description'
        description.write_text(re.sub('sha256 = ".*"', 'sha256 = "%s"' % hashlib.sha256(
            image).hexdigest(), description.read_text()))
        tool('openssl', 'cms', '-sign', '-in', description, '-out', str(description) + '.sig',
             '-signer', self.certificate, '-inkey', self.key, '-outform', 'DER', '-nosmimecap',
             '-binary')
        names = ['sw-description'] + ['sw-description.sig'] * signed + ['image.bin']
        tool('bash', '-c', 'cd "$1" && printf "%s\\n" "${@:2}" | cpio -o --quiet -H crc >update.swu',
             'bash', self.folder, *names)

    def install(self, unit, script=ONCE, handlers=INTEGRATION, start=HeadUnit.run):
        agent = ['swupdate', '-v', '-H', 'headunit:' + HARDWARE, '-k', self.certificate,
                 '-i', self.update]
        return start(unit, 'sh', '-c', 'cd "$TMPDIR"; ' + script, 'sh', *agent,
                     LUA_PATH='%s/?.lua;;' % handlers)


def listen(unit):
    '''Yields the percentages of the first step, as SWUpdate's progress socket tells them.'''
    with socket.socket(socket.AF_UNIX) as progress:
        progress.settimeout(100)
        path = str(unit.temporary / 'swupdateprog')
        wait_until(lambda: progress.connect_ex(path) == 0, 'SWUpdate listens')
        while True:
            message = progress.recv(PROGRESS.size, socket.MSG_WAITALL)
            if len(message) < PROGRESS.size:
                return
            step, percent = PROGRESS.unpack(message)[5:7]
            if step == 1:
                yield percent


class SwupdateTest(EngineTests, unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(temporary_folder())
        self.bench = Bench(self.folder)
        self.image = self.bench.image

    def install(self, unit):
        return self.bench.install(unit)

    def fails(self, says, handlers=INTEGRATION, **options):
        '''An update that fails and says why. Returns what the unit saw.'''
        status, output, report = self.bench.install(self.unit(**options), handlers=handlers)
        self.assertEqual(1, status, output)
        self.assertRegex(output, says)
        self.assertNotIn('SWUPDATE successful', output)
        return report

    def never_starts(self, says, **options):
        report = self.fails(says, **options)
        self.assertEqual((0, 0), (report['resets'], report['messages']))

    def test_shows_how_far_it_is(self):
        unit = self.unit()
        with self.bench.install(unit, start=HeadUnit.start) as process:
            shown = list(listen(unit))
            output, _ = process.communicate(timeout=100)
        self.assertEqual(0, process.returncode, output)
        # SWUpdate copies the image first, and shows that from 0 to 100 as well.
        falls = [at for at in range(1, len(shown)) if shown[at] < shown[at - 1]]
        self.assertLessEqual(len(falls), 1, shown)
        self.assertGreater(len(set(shown[sum(falls):])), 5, shown)
        self.assertEqual(100, shown[-1], shown)

    def test_fails_with_a_segment_that_the_chip_refuses(self):
        report = self.fails('the update failed', faults=['segment 5 refuse'])
        self.assertEqual((4, 0), (report['segments'], report['burns']))

    def test_fails_with_a_chip_that_never_answers(self):
        self.fails('the update failed', faults=['write 1+ nak'])

    def test_fails_when_the_chip_never_reports_the_label(self):
        report = self.fails('the update failed', reports='HD 9.9.9')
        self.assertEqual(3, report['burns'])

    def test_fails_when_the_chip_refuses_the_image(self):
        report = self.fails('(?s)the chip refuses the image.*status is 77', faults=['burn 1+ reject'])
        self.assertEqual((516, 1), (report['segments'], report['burns']))

    def test_sends_no_short_image_to_the_chip(self):
        self.bench.pack(self.image.read_bytes()[:5000], signed=True)
        self.never_starts('no update can succeed with this image')

    def test_makes_no_update_of_a_short_image(self):
        os.truncate(self.image, 5000)
        with self.assertRaises(subprocess.CalledProcessError):
            self.bench.make_update(self.image, self.bench.key, self.bench.certificate)

    def test_takes_nothing_that_was_tampered_with(self):
        packed = bytearray(self.bench.update.read_bytes())
        packed[packed.index(self.image.read_bytes()) + 500000] ^= 1
        self.bench.update.write_bytes(packed)
        self.never_starts('(?i)checksum|hash')

    def test_takes_nothing_that_another_signed(self):
        self.bench.make_update(self.image, *make_signer(self.folder, 'stranger'))
        self.never_starts('(?i)signature|verif')

    def test_takes_nothing_that_nobody_signed(self):
        self.bench.pack(self.image.read_bytes(), signed=False)
        self.never_starts('sw-description.sig')

    def kill_in_the_burn(self, handlers):
        '''Kills the agent while the chip burns, tries at once and until it works.'''
        unit = self.unit(burn='1,3,1')
        with self.bench.install(unit, KILLED, handlers, HeadUnit.start) as process:
            wait_until(unit.is_burning, 'the chip burns')
            os.kill(int((unit.temporary / 'agent.pid').read_text()), signal.SIGKILL)
            output, _ = process.communicate(timeout=100)
        self.assertRegex(output, '(?s)killed: 137.*at once: 1.*afterwards: 0')
        self.assertEqual(1, unit.report()['burns'])
        self.assertTrue(unit.holds(self.image))
        return output

    def test_a_killed_agent_does_not_end_the_burn(self):
        output = self.kill_in_the_burn(INTEGRATION)
        self.assertRegex(output, '(?s)killed: 137.*status is 75.*at once: 1')

    def test_a_killed_agent_does_not_end_the_burn_in_the_short_form(self):
        self.kill_in_the_burn(SHORT_FORM)

    def test_the_short_form_updates(self):
        unit = self.unit()
        status, output, report = self.bench.install(unit, handlers=SHORT_FORM)
        self.assertEqual((0, 1), (status, report['burns']), output)
        self.assertTrue(unit.holds(self.image))

    def test_the_short_form_fails(self):
        self.fails('ERROR', handlers=SHORT_FORM, faults=['segment 5 refuse'])


    def test_systemd_takes_the_drop_in(self):
        # The empty part at the end stands for systemd's own folders.
        environment = dict(os.environ, SYSTEMD_UNIT_PATH='%s:' % INTEGRATION)
        subprocess.run(['systemd-analyze', 'verify', '--man=no', '--recursive-errors=no',
                        'swupdate.service'], env=environment, check=True, timeout=60)


if __name__ == '__main__':
    unittest.main()
