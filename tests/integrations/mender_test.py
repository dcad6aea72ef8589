#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
'''integrations/mender with the real Mender client, on simulated head units.'''

import os
import shutil
import unittest

from head_unit import NEW, ROOT, EngineTests, make_image, temporary_folder, tool

INTEGRATION = ROOT / 'integrations/mender'

# The client's folders are fixed: the test's own stand in their place. After the installation,
# what the client takes for installed.
INSTALL = '''
mount --bind "$1/etc" /etc/mender && mount --bind "$1/modules" /usr/share/mender/modules/v3 || exit
mender --no-syslog --data "$1/data" install "$2"; status=$?
mender --no-syslog --data "$1/data" show-provides 2>/dev/null
exit $status'''


class MenderTest(EngineTests, unittest.TestCase):
    def setUp(self):
        self.folder = self.enterContext(temporary_folder())
        for name, text in (('etc/artifact_info', 'artifact_name=factory'),
                           ('etc/mender.conf', '{}'),
                           ('data/device_type', 'device_type=headunit')):
            (self.folder / name).parent.mkdir(exist_ok=True)
            (self.folder / name).write_text(text + '\n')
        (self.folder / 'modules').mkdir()
        shutil.copy(INTEGRATION / 'bbpflash', self.folder / 'modules')
        self.image = make_image(self.folder / 'image.bin')
        self.artifact = self.make_artifact('headunit')

    def make_artifact(self, device):
        artifact = self.folder / (device + '.mender')
        tool(INTEGRATION / 'bbpflash-artifact-gen', self.image, device, artifact)
        return artifact

    def install(self, unit, artifact=None):
        rights = '--mount' if os.geteuid() == 0 else '--mount --map-root-user'
        return unit.run('unshare', *rights.split(), 'sh', '-c', INSTALL, 'sh', self.folder,
                        artifact or self.artifact)

    def installed(self, output):
        self.assertIn('artifact_name=bbp ' + NEW + '\n', output)
        self.assertIn('rootfs-image.bbp.version=%s\n' % NEW, output)

    def test_fails_and_knows_it(self):
        status, output, report = self.install(self.unit(faults=['segment 5 refuse']))
        self.assertEqual((1, 0), (status, report['burns']), output)
        self.assertIn('bbpwatch: failed', output)
        self.assertIn('artifact_name=bbp %s_INCONSISTENT\n' % NEW, output)

    def test_touches_no_chip_of_another_device(self):
        status, output, report = self.install(self.unit(), self.make_artifact('other'))
        self.assertEqual((1, 0, 0), (status, report['resets'], report['messages']), output)


if __name__ == '__main__':
    unittest.main()
