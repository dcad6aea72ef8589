#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
'''What can be tried of the Yocto layer and the Buildroot tree without either: the recipe's options and
files, the package's as GNU make reads them, the licence's checksums, and a cross build with exactly
their options, whose updater runs under qemu.

usage: embedded.py SOURCES INSTALLED [--build]

INSTALLED has an installation of everything below usr/. Without --build nothing is compiled.
'''

import fnmatch
import hashlib
import pathlib
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

SOURCES = pathlib.Path()
INSTALLED = pathlib.Path()
BUILD = False
RUN = ['qemu-arm-static', '-L', '/usr/arm-linux-gnueabihf']
# What the recipe's names stand for on a target, below the root.
FOLDERS = {'bindir': 'usr/bin', 'libdir': 'usr/lib', 'datadir': 'usr/share',
           'nonarch_base_libdir': 'lib', 'nonarch_libdir': 'usr/lib'}


def recipe():
    '''The recipe's assignments, the name without operator to the words.'''
    path, = (SOURCES / 'packaging/yocto/meta-bbpflash/recipes-bbpflash/bbpflash').glob('*.bb')
    assigned = re.findall(r'^([\w:${}\[\]-]+) *(?:\?\?=|=\+|\+=|\?=|=) *"(.*)"$', path.read_text(), re.M)
    return path, dict(assigned)


def yocto_options(*features):
    '''What bitbake gives to CMake with these features.'''
    _, values = recipe()
    options = shlex.split(values['EXTRA_OECMAKE'])
    for feature in ('tools', 'sim'):
        on, off, _ = values['PACKAGECONFIG[%s]' % feature].split(',')
        options.append(on if feature in features else off)
    return options


def buildroot(variable, *selected):
    '''The value of a variable of the package, with these symbols selected, as make sees it.'''
    with tempfile.NamedTemporaryFile('w', suffix='.mk') as makefile:
        makefile.write('cmake-package = \n')
        makefile.write('BR2_EXTERNAL_BBPFLASH_PATH = %s\n' % (SOURCES / 'packaging/buildroot'))
        makefile.writelines('%s = y\n' % symbol for symbol in selected)
        makefile.write('include $(BR2_EXTERNAL_BBPFLASH_PATH)/external.mk\n')
        makefile.write('show: ; @echo $(%s)\n' % variable)
        makefile.flush()
        return subprocess.run(['make', '--silent', '-f', makefile.name, 'show'], check=True,
                              capture_output=True, text=True).stdout.split()


class Recipes(unittest.TestCase):
    def test_the_licence_is_the_one_that_was_read(self):
        text = (SOURCES / 'LICENSE').read_bytes()
        _, values = recipe()
        self.assertEqual(values['LIC_FILES_CHKSUM'],
                         'file://LICENSE;md5=' + hashlib.md5(text).hexdigest())
        hashes = (SOURCES / 'packaging/buildroot/package/bbpflash/bbpflash.hash').read_text()
        self.assertIn('sha256  %s  LICENSE\n' % hashlib.sha256(text).hexdigest(), hashes)
        self.assertEqual(buildroot('BBPFLASH_LICENSE_FILES'), ['LICENSE'])

    def test_the_version_is_the_project_s(self):
        version = re.search(r'^project\(bbpflash VERSION ([\d.]+)',
                            (SOURCES / 'CMakeLists.txt').read_text(), re.M)[1]
        self.assertEqual(recipe()[0].name, 'bbpflash_%s.bb' % version)
        self.assertEqual(buildroot('BBPFLASH_VERSION'), [version])

    def test_the_options_are_options_of_the_project(self):
        known = set(re.findall(r'^option\((\w+)', (SOURCES / 'cmake/BbpBuild.cmake').read_text(), re.M))
        tools = buildroot('BBPFLASH_CONF_OPTS', 'BR2_PACKAGE_BBPFLASH_TOOLS')
        for options in (yocto_options(), yocto_options('tools', 'sim'), tools,
                        buildroot('BBPFLASH_CONF_OPTS')):
            names = [re.fullmatch(r'-D(\w+)=(?:ON|OFF)', option)[1] for option in options]
            self.assertLessEqual(set(names), known)
            self.assertEqual(len(set(names)), len(names))
        self.assertIn('-DBBP_TOOLS=ON', tools)

    def test_every_file_is_in_a_package_of_the_layer(self):
        _, values = recipe()
        patterns = {}
        for name, words in values.items():
            if name.startswith('FILES:'):
                for folder, path in FOLDERS.items():
                    words = words.replace('${%s}' % folder, path)
                patterns[name[len('FILES:'):]] = words.split()
        # What bitbake gives to the main package, its -dev, -staticdev and -doc without being told.
        patterns['${PN}'] += ['usr/bin/bbpflash', 'usr/bin/use']
        patterns['${PN}-dev'] = ['usr/include', 'usr/lib/cmake', 'usr/lib/pkgconfig']
        patterns['${PN}-staticdev'] = ['usr/lib/*.a']
        patterns['${PN}-doc'] = ['usr/share/man', 'usr/share/doc']
        files = [path.relative_to(INSTALLED) for path in INSTALLED.rglob('*') if path.is_file()]
        self.assertGreater(len(files), 15)
        for file in files:
            # The folder of one architecture's libraries is Debian's way.
            path = re.sub('^usr/lib/[a-z0-9_]+-linux-[a-z]+/', 'usr/lib/', str(file))
            owners = {package for package, words in patterns.items() for word in words
                      if fnmatch.fnmatch(path, word) or path.startswith(word + '/')}
            self.assertEqual(len(owners), 1, '%s: %s' % (path, owners))

    def test_the_cross_build_with_these_options_runs(self):
        if not BUILD:
            return
        self.assertEqual(set(yocto_options()), set(buildroot('BBPFLASH_CONF_OPTS')))
        with tempfile.TemporaryDirectory() as work:
            root = pathlib.Path(work, 'root')
            commands = (
                ['cmake', '-G', 'Ninja', '-S', SOURCES, '-B', work + '/build', *yocto_options(),
                 '-DCMAKE_INSTALL_PREFIX=/usr', '-DCMAKE_BUILD_TYPE=Release',
                 '-DCMAKE_TOOLCHAIN_FILE=%s' % (SOURCES / 'cmake/toolchains/armhf.cmake')],
                ['cmake', '--build', work + '/build'],
                ['env', 'DESTDIR=%s' % root, 'cmake', '--install', work + '/build'])
            for command in commands:
                subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
            self.assertEqual({path.name for path in (root / 'usr/bin').iterdir()}, {'bbpflash', 'use'})
            updater = root / 'usr/bin/bbpflash'
            run = subprocess.run([*RUN, updater], capture_output=True, text=True)
            self.assertEqual(run.returncode, 1)
            self.assertIn('Please try "use bbpflash" to get usage details', run.stdout)
            used = subprocess.run([root / 'usr/bin/use', '-i', updater], check=True,
                                  capture_output=True, text=True).stdout
            self.assertIn('NAME=bbpflash\n', used)


if __name__ == '__main__':
    SOURCES, INSTALLED = (pathlib.Path(sys.argv.pop(1)).resolve() for _ in range(2))
    if '--build' in sys.argv:
        sys.argv.remove('--build')
        BUILD = True
    unittest.main()
