#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
'''integrations/rauc with the real RAUC, on simulated head units.

RAUC mounts its bundles, so this needs root and a loop device. Without them it ends with status 77,
which CTest counts as skipped, and says so.
'''

import os
import pathlib
import subprocess
import sys
import unittest

from head_unit import ROOT, EngineTests, make_image, make_signer, temporary_folder, tool

INTEGRATION = ROOT / 'integrations/rauc'
SKIPPED = 77

# RAUC asks the kernel for a loop device, which the simulated unit's catch-all for devices hides.
# `rauc install` finds the service on a message bus of the test's own.
INSTALL = '''
export DBUS_STARTER_BUS_TYPE=session
rm -f "$UMOCKDEV_DIR/ioctl/_default"
rauc -c "$1" --override-boot-slot=A service & service=$!
until rauc -c "$1" status >/dev/null 2>&1; do kill -0 $service || exit 9; sleep 0.1; done
rauc -c "$1" install "$2"; status=$?
kill $service
exit $status'''


def missing():
    '''Why RAUC cannot run here, or nothing.'''
    if os.geteuid() != 0:
        return 'it needs root'
    if not pathlib.Path('/dev/loop-control').exists():
        return 'it needs loop devices'
    found = subprocess.run(['losetup', '--find'], capture_output=True, text=True, timeout=60)
    return found.stderr.strip()


class RaucTest(EngineTests, unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(temporary_folder())
        self.key, self.certificate = make_signer(self.folder, 'maker')
        self.image = make_image(self.folder / 'image.bin')
        self.bundle = self.make_bundle(self.key, self.certificate)
        self.configuration = self.folder / 'system.conf'
        (self.folder / 'mnt').mkdir()
        (self.folder / 'root').touch()
        text = (INTEGRATION / 'system.conf').read_text()
        text = text.replace('/etc/rauc/maker.crt', str(self.certificate))
        text = text.replace('[system]', '[system]\nmountprefix=%s/mnt' % self.folder)
        self.configuration.write_text(
            text + '\n[slot.rootfs.0]\ndevice=%s/root\ntype=raw\nbootname=A\n' % self.folder)

    def make_bundle(self, key, certificate):
        bundle = self.folder / (key.stem + '.raucb')
        tool(INTEGRATION / 'make-bundle', self.image, 'headunit', key, certificate, bundle)
        return bundle

    def install(self, unit, bundle=None):
        return unit.run('dbus-run-session', '--', 'sh', '-c', INSTALL, 'sh', self.configuration,
                        bundle or self.bundle)

    def test_fails_and_says_so(self):
        status, output, report = self.install(self.unit(faults=['segment 5 refuse']))
        self.assertEqual((1, 0), (status, report['burns']), output)
        self.assertIn('failed to run slot hook: Child process exited with code 1', output)

    def test_takes_nothing_that_another_signed(self):
        stranger = self.make_bundle(*make_signer(self.folder, 'stranger'))
        status, output, report = self.install(self.unit(), stranger)
        self.assertEqual((1, 0, 0), (status, report['resets'], report['messages']), output)


if __name__ == '__main__':
    REASON = missing()
    if REASON:
        print('SKIPPED: the test of RAUC did not run: ' + REASON)
        sys.exit(SKIPPED)
    unittest.main()
