#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
'''The decoders for Wireshark and sigrok against captures of simulated updates.

usage: wire_test.py CAPTURES, the folder that wire_capture has written
'''

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
CAPTURES = None
DISSECTOR = ROOT / 'tools/wireshark/bbp.lua'

# The replies with one bit of the reception status, or none.
BITS = range(10, 17)

# By filter, which of the faulty replies it finds, in their order, from 0.
FAULTS_BY_FILTER = {
    'bbp.status_ok == 0': [1, *BITS],
    'bbp.checksum_ok == 0': [0, 4],
    'bbp.status_count_mismatch == 1': [2],
    'bbp.status_header_missing == 1': [1, 10],
    'bbp.status_checksum_mismatch == 1': [1, 11],
    'bbp.status_overflow == 1': [12],
    'bbp.status_unknown_opcode != 0': [13, 14, 15],
    'bbp.rx_count == 12': [3],
    'bbp.rx_count > 64': [4],
    'bbp.sync != 0xa5a5': [5],
    'bbp.expert.count': [6],
    'bbp.expert.opcode': [7],
    'bbp.expert.curr_seg': [8],
    'bbp.pgm_write_status == 7': [9],
    'bbp.expert.pgm_status': [9],
    # What the updater would reject, and the status that it reports as an error.
    '_ws.expert.severity == "Error"': [0, 1, 3, 4, 5, 6, 7, 8, 9, *BITS],
    '_ws.expert.severity == "Warning"': [2],
    '_ws.expert': list(range(17)),
}


def listed(name):
    '''The transfers as the simulator saw them: (direction, faulty, bytes).'''
    transfers = []
    for line in (CAPTURES / (name + '.txt')).read_text().splitlines():
        direction, soundness, *data = line.split(' ')
        transfers.append((direction, soundness == 'faulty', bytes.fromhex(data[0] if data else '')))
    return transfers


def tshark(name, *arguments, script=DISSECTOR):
    command = ['tshark', '-X', 'lua_script:%s' % script,
               '-r', str(CAPTURES / (name + '.pcap')), *arguments]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def found(name, display_filter, script=DISSECTOR):
    output = tshark(name, '-Y', display_filter, '-T', 'fields', '-e', 'frame.number',
                    script=script)
    return [int(number) for number in output.split()]


def sigrok(name, *arguments):
    command = ['sigrok-cli', '-i', str(CAPTURES / (name + '.vcd')), '-I', 'vcd',
               '-P', 'i2c:scl=SCL:sda=SDA,bbp', *arguments]
    environment = dict(os.environ, SIGROKDECODE_DIR=str(ROOT / 'tools/sigrok'),
                       PYTHONDONTWRITEBYTECODE='1')
    return subprocess.run(command, check=True, capture_output=True, env=environment).stdout


class LaterLua(unittest.TestCase):
    def test_is_not_missed_by_the_dissector(self):
        # Lua 5.4 has none of these any more; what Wireshark offers with 5.2 remains.
        with tempfile.TemporaryDirectory() as folder:
            script = pathlib.Path(folder) / 'later.lua'
            script.write_text('local bit32, unpack, setfenv = nil, nil, nil\n' +
                              DISSECTOR.read_text(encoding='utf-8'))
            for display_filter in ('bbp.status_count_mismatch == 1', '_ws.lua.error', 'bbp'):
                with self.subTest(filter=display_filter):
                    self.assertEqual(found('faults', display_filter, script),
                                     found('faults', display_filter))
            self.assertNotEqual(found('faults', 'bbp', script), [])


class Wireshark(unittest.TestCase):
    def test_finds_exactly_the_injected_faults(self):
        faulty = [number for number, transfer in enumerate(listed('faults'), 1) if transfer[1]]
        self.assertEqual(len(faulty), 17)
        for display_filter, which in FAULTS_BY_FILTER.items():
            with self.subTest(filter=display_filter):
                self.assertEqual(found('faults', display_filter), [faulty[i] for i in which])

    def test_finds_nothing_wrong_with_a_sound_update(self):
        self.assertEqual(found('update', '_ws.expert || _ws.lua.error'), [])

    def test_has_no_error_of_its_own_in_a_faulty_update(self):
        self.assertEqual(found('faults', '_ws.lua.error'), [])

    def test_shows_every_byte_of_every_transfer(self):
        output = tshark('update', '-T', 'fields', '-e', 'i2c.flags', '-e', 'data.data')
        shown = []
        for line in output.splitlines():
            flags, data = line.split('\t')
            # The capture's bytes begin with the address byte.
            shown.append(('R' if int(flags, 16) & 1 else 'W', bytes.fromhex(data)[1:]))
        self.assertEqual(shown, [(direction, data) for direction, _, data in listed('update')])

    def test_links_each_reply_with_its_request(self):
        # Only a second look, as at a frame that a person selects, knows a request's reply.
        output = tshark('update', '-2', '-R', 'bbp', '-T', 'fields', '-e', 'frame.number',
                        '-e', 'bbp.response_to', '-e', 'bbp.response_in')
        rows = [line.split('\t') for line in output.splitlines()]
        for request, reply in zip(rows[0::2], rows[1::2]):
            self.assertEqual(request, [request[0], '', reply[0]])
            self.assertEqual(reply, [reply[0], request[0], ''])

    def test_measures_the_time_to_each_reply(self):
        # A full segment: 2048 bytes and the address byte on the wire, and a wait of 750 us.
        output = tshark('update', '-Y', 'bbp.response_to && bbp.curr_seg == 5',
                        '-T', 'fields', '-e', 'bbp.response_time')
        self.assertAlmostEqual(float(output), (9 * 2049 + 2) / 400e3 + 750e-6, places=9)

    def test_numbers_the_segments(self):
        output = tshark('update', '-Y', 'bbp.function_name == "Program" && !bbp.response_to',
                        '-T', 'fields', '-e', 'bbp.curr_seg', '-e', 'bbp.num_segs')
        rows = [tuple(map(int, line.split('\t'))) for line in output.splitlines()]
        self.assertEqual(rows, [(segment, 516) for segment in range(516)])


class Sigrok(unittest.TestCase):
    def assert_decodes_what_was_sent(self, name, first, count):
        transfers = listed(name)[first:first + count]
        for direction, output in (('W', 'request'), ('R', 'reply')):
            sent = b''.join(data for kind, _, data in transfers if kind == direction)
            self.assertNotEqual(sent, b'')
            self.assertEqual(sigrok(name, '-B', 'bbp=' + output), sent)

    def test_decodes_every_byte_of_a_download(self):
        self.assert_decodes_what_was_sent('segment', 0, 20)

    def test_decodes_every_byte_of_faulty_replies(self):
        self.assert_decodes_what_was_sent('faults', 8, 90)

    def test_finds_nothing_wrong_with_sound_transfers(self):
        self.assertEqual(sigrok('segment', '-A', 'bbp=warning'), b'')

    def test_warns_of_exactly_the_injected_faults(self):
        warnings = sigrok('faults', '-A', 'bbp=warning').decode().splitlines()
        self.assertEqual([line.split(': ', 1)[1] for line in warnings], [
            'checksum does not match',
            'not received: header missing, checksum mismatch',
            'a message was missed (not fatal)',
            'no data: the count byte promises no more than a header',
            'the count byte promises more than the read brings',
            'checksum does not match',
            'sync bytes are wrong',
            'count is not the request\'s',
            'opcode is not the request\'s',
            'segment is not the request\'s',
            'not received: header missing',
            'not received: checksum mismatch',
            'not received: overflow',
            'not received: unknown opcode',
            'not received: unknown opcode',
            'not received: unknown opcode',
            'not received: no cause given',
        ])

    def test_names_the_messages(self):
        messages = sigrok('update', '-A', 'bbp=message').decode().splitlines()
        self.assertEqual([line.split(': ', 1)[1] for line in messages], [
            'Read version', 'Reply: Read version, 1.0.0',
            'Unprotect flash', 'Reply: Unprotect flash, received',
        ])


class Page(unittest.TestCase):
    def test_shows_what_the_captures_show(self):
        result = subprocess.run([sys.executable, str(ROOT / 'docs/make_protocol.py'), '--check',
                                 str(CAPTURES)], capture_output=True, text=True, check=False)
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, '', ''))


if __name__ == '__main__':
    CAPTURES = pathlib.Path(sys.argv.pop(1))
    unittest.main()
