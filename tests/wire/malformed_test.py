#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
'''Malformed captures and waveforms, drawn at random: the decoders take all of them without an error
of their own, and show every transfer.

usage: malformed_test.py [FRAMES [SEED]]
'''

import os
import pathlib
import random
import struct
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
FRAMES = 4000
SEED = 1

LINK_TYPE_I2C_LINUX = 209
ADDRESS = 0x17
OPCODES = (0x80, 0x83, 0x84)
TICK = 10  # ns of a waveform


def message(draw):
    '''A sound message with any payload.'''
    payload = bytes(draw.choices(range(256), k=draw.choice((0, 1, 2, 50, 2035))))
    if payload and draw.random() < 0.7:
        payload = bytes([draw.choice((1, 4, 5, 9, 0x0B, 0x0C))]) + payload[1:]
    head = struct.pack('<BBBBHBBHH', 0xA5, 0xA5, draw.randrange(256), 1, len(payload) + 13,
                       draw.choice(OPCODES), draw.choice((0, 1, 2, 0x0F, 0xFF)),
                       draw.choice((0, 1, 2, 516)), draw.choice((0, 0, 1, 515)))
    return head + payload + bytes([sum(head + payload) % 256])


def spoilt(draw, data):
    '''The bytes as they are, or with something wrong.'''
    data = bytearray(data)
    for _ in range(draw.choice((0, 1, 1, 2, 5))):
        how = draw.randrange(5)
        at = draw.randrange(len(data) + 1)
        if how == 0:
            del data[at:]
        elif how == 1 and at < len(data):
            data[at] ^= 1 << draw.randrange(8)
        elif how == 2 and at < len(data):
            data[at] = draw.choice((0, 0xFF, 0x7F, 0x80))
        elif how == 3:
            del data[:at]
        else:
            data[at:at] = bytes(draw.choices(range(256), k=draw.randrange(20)))
    return bytes(data)


def transfers(draw, count):
    '''(is a read, address, bytes); most reads follow a write and answer it in some manner.'''
    for _ in range(count):
        is_read = draw.random() < 0.5
        data = message(draw)
        if is_read:
            data = bytes([draw.choice((min(len(data), 64), 0, 1, 13, 65, 255))]) + data
            data = data[:65].ljust(65, b'\0')
        address = ADDRESS if draw.random() < 0.9 else draw.randrange(128)
        yield is_read, address, spoilt(draw, data)


def write_capture(path, draw, count):
    with path.open('wb') as file:
        file.write(struct.pack('<IHHiIII', 0xA1B2C3D4, 2, 4, 0, 0, 65535, LINK_TYPE_I2C_LINUX))
        for number, (is_read, address, data) in enumerate(transfers(draw, count)):
            frame = struct.pack('>BI', 1, is_read) + bytes([address << 1 | is_read]) + data
            if draw.random() < 0.05:
                frame = frame[:draw.randrange(5, len(frame) + 1)]  # perhaps without an address
            file.write(struct.pack('<IIII', number, 0, len(frame), len(frame)) + frame)


class Waveform:
    '''Draws SCL and SDA, each change a tick later than the one before it.'''

    def __init__(self, file):
        self.file, self.time = file, 0
        file.write('$timescale 1 ns $end\n$scope module x $end\n$var wire 1 d SDA $end\n'
                   '$var wire 1 c SCL $end\n$upscope $end\n$enddefinitions $end\n#0\n1d\n1c\n')

    def set(self, wire, level):
        self.time += TICK
        self.file.write(f'#{self.time}\n{int(level)}{wire}\n')

    def bits(self, value, count):
        for bit in reversed(range(count)):
            self.set('d', value >> bit & 1)
            self.set('c', 1)
            self.set('c', 0)

    def transfer(self, draw, is_read, address, data):
        self.set('d', 0)
        self.set('c', 0)
        for byte in bytes([address << 1 | is_read]) + data:
            self.bits(byte << 1 | (draw.random() < 0.01), 9)
            if draw.random() < 0.002:
                self.bits(draw.randrange(256), draw.randrange(9))  # bits too many
        if draw.random() < 0.9:  # or a repeated start
            self.set('d', 0)
            self.set('c', 1)
            self.set('d', 1)
        else:
            self.set('d', 1)
            self.set('c', 1)


class Malformed(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.folder = pathlib.Path(holder.name)

    def run_decoder(self, *command, **variables):
        result = subprocess.run(command, capture_output=True, check=False,
                                env=dict(os.environ, **variables))
        said = result.stderr.decode(errors='replace')
        self.assertEqual(result.returncode, 0, said)
        for word in ('Lua', 'Traceback', 'rror'):
            self.assertNotIn(word, said)
        return result.stdout.decode(errors='replace')

    def test_wireshark(self):
        capture = self.folder / 'x.pcap'
        write_capture(capture, random.Random(SEED), FRAMES)
        output = self.run_decoder(
            'tshark', '-X', f'lua_script:{ROOT / "tools/wireshark/bbp.lua"}', '-2', '-r',
            str(capture), '-T', 'fields', '-e', 'frame.number', '-e', '_ws.lua.error', '-e',
            'bbp.checksum')
        rows = [line.split('\t') for line in output.splitlines()]
        self.assertEqual(len(rows), FRAMES)
        self.assertEqual([row for row in rows if row[1]], [])
        self.assertGreater(sum(row[2] != '' for row in rows), FRAMES // 2)

    def test_sigrok(self):
        waveform = self.folder / 'x.vcd'
        draw = random.Random(SEED)
        with waveform.open('w') as file:
            wave = Waveform(file)
            for one in transfers(draw, FRAMES // 20):
                wave.transfer(draw, *one)
        output = self.run_decoder(
            'sigrok-cli', '-i', str(waveform), '-I', 'vcd', '-P', 'i2c:scl=SCL:sda=SDA,bbp', '-A',
            'bbp', SIGROKDECODE_DIR=str(ROOT / 'tools/sigrok'), PYTHONDONTWRITEBYTECODE='1')
        self.assertGreater(len(output.splitlines()), FRAMES // 20)


if __name__ == '__main__':
    if len(sys.argv) > 1:
        FRAMES = int(sys.argv.pop(1))
    if len(sys.argv) > 1:
        SEED = int(sys.argv.pop(1))
    unittest.main()
