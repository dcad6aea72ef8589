#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""image_schema.py BBPIMAGE SCHEMA: what `info --json` prints follows its schema, whatever the image."""
import json
import pathlib
import subprocess
import sys
import tempfile

import jsonschema

PROGRAM, SCHEMA = sys.argv[1], json.loads(pathlib.Path(sys.argv[2]).read_text(encoding='utf-8'))
LABEL_OFFSET, LABEL_END = 925630, 925667


def images(folder):
    """Images, each under the code of the finding that it has to have."""
    sound = folder / 'clean'
    subprocess.run([PROGRAM, 'make', '--version', '1.0', sound], check=True)
    data = sound.read_bytes()

    def with_field(field):
        return data[:LABEL_OFFSET] + field.ljust(37) + data[LABEL_OFFSET + 37:]

    contents = {
        'too-short': data[:LABEL_OFFSET], 'cut-label': data[:LABEL_OFFSET + 9],
        'blank-label': with_field(b''), 'one-character-label': with_field(b'x'),
        'two-character-label': with_field(b'xy'), 'control-characters': with_field(b'1\n2__'),
        'non-ascii-characters': with_field(b'v\xe9\xff__'), 'unwritten-label': with_field(bytes(37)),
        'erased': b'\xff' * len(data), 'half-written': data + bytes(70000),
        'full-last-segment': data[:2034 + 2035 * 460],
        # The file's size is all that counts: there is nothing in it.
        'percentage': data + bytes(27000000), 'too-many-segments': bytes(0),
    }
    for code, content in contents.items():
        (folder / code).write_bytes(content)
    with (folder / 'too-many-segments').open('wb') as sparse:
        sparse.truncate(133363724)
    return [sound, *(folder / code for code in contents), folder / 'unreadable']


def inspect(*words):
    run = subprocess.run([PROGRAM, 'info', '--json', *words], stdout=subprocess.PIPE, check=False)
    report = json.loads(run.stdout)
    VALIDATOR.validate(report)
    assert run.returncode == ['clean', 'warning', 'unusable'].index(report['grade'])
    return report['images']


jsonschema.Draft202012Validator.check_schema(SCHEMA)
VALIDATOR = jsonschema.Draft202012Validator(SCHEMA)
with tempfile.TemporaryDirectory() as name:
    paths = images(pathlib.Path(name))
    seen = set()
    for path, image in zip(paths, inspect(*paths), strict=True):
        codes = {finding['code'] for finding in image['findings']}
        assert path.name in (codes or {'clean'}), f'{path.name}: {codes}'
        seen |= codes
    seen |= {finding['code'] for finding in inspect('--expect', '2.0', paths[0])[0]['findings']}
    known = set(SCHEMA['$defs']['finding']['properties']['code']['enum'])
    # No file can be made whose label the updater refuses though it is long enough.
    assert known - seen == {'label-unreadable'}, known ^ seen
    broken = inspect(paths[0])
    broken[0]['grade'] = 'warning'
    assert not VALIDATOR.is_valid({'images': broken, 'grade': 'warning'})
print(f'{len(paths)} images, {len(seen)} findings: all as the schema says')
