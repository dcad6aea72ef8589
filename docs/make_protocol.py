#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
'''Makes the listings and pictures of protocol.md from captures of simulated updates.

usage: make_protocol.py CAPTURES            write them
       make_protocol.py --check CAPTURES    only compare; the status is 1 if any is out of date

CAPTURES is the folder that wire_capture has written.
'''

import html
import pathlib
import re
import subprocess
import sys

DOCS = pathlib.Path(__file__).resolve().parent
DISSECTOR = DOCS.parent / 'tools' / 'wireshark' / 'bbp.lua'
PAGE = DOCS / 'protocol.md'

REQUEST = 1  # frame number of the exchange that is shown in full
REPLY = 2

LICENCE = '<!-- SPDX-License-Identifier: Apache-2.0 -->'


def tshark(capture, *arguments):
    command = ['tshark', '-X', 'lua_script:%s' % DISSECTOR, '-r', str(capture), *arguments]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def frames(capture):
    '''The rows of a listing: number, time, direction, bytes, information, warnings.'''
    fields = ('frame.number', 'frame.time_relative', 'i2c.flags', 'frame.len', '_ws.col.Info',
              '_ws.expert.message')
    options = [option for field in fields for option in ('-e', field)]
    rows = []
    for line in tshark(capture, '-T', 'fields', '-E', 'aggregator=;', *options).splitlines():
        number, time, flags, size, text, warnings = line.split('\t')
        direction = 'read' if int(flags, 16) & 1 else 'write'
        warnings = '; '.join(dict.fromkeys(warnings.split(';'))) if warnings else ''
        rows.append((int(number), float(time), direction, int(size) - 1, text, warnings))
    return rows


def without_repeats(rows):
    '''Leaves out the middle of the download, and polls that bring nothing new.'''
    kept, left_out, last_status = [], 0, None
    exchanges = [rows[i:i + 2] for i in range(0, len(rows), 2)]
    for request, reply in exchanges:
        segment = re.search(r'segment (\d+)/(\d+)', request[4])
        in_the_middle = segment and 2 < int(segment[1]) < int(segment[2])
        is_poll = request[4].startswith('Programming status')
        if in_the_middle or (is_poll and reply[4] == last_status):
            left_out += 2
            continue
        last_status = reply[4] if is_poll else None
        if left_out:
            kept.append(left_out)
            left_out = 0
        kept += [request, reply]
    return kept


def listing_picture(rows):
    '''A listing as a picture; a number among the rows is that many frames left out.'''
    height, width = 18, 900
    colours = {'write': '#e7f0fb', 'read': '#f4f8ea'}
    total = height * (len(rows) + 1) + 8
    out = ['<svg xmlns="http://www.w3.org/2000/svg" width="%d" height="%d" '
           'font-family="monospace" font-size="12">' % (width, total),
           LICENCE,
           '<rect width="100%" height="100%" fill="white"/>']

    def row(y, fill, cells, weight='normal'):
        out.append('<rect x="0" y="%d" width="%d" height="%d" fill="%s"/>'
                   % (y, width, height, fill))
        for x, text in zip((10, 60, 170, 230, 290), cells):
            out.append('<text x="%d" y="%d" font-weight="%s" xml:space="preserve">%s</text>'
                       % (x, y + 13, weight, html.escape(text)))

    row(0, '#d0d4da', ('No.', 'Time [s]', 'Dir', 'Bytes', 'Info'), 'bold')
    for i, frame in enumerate(rows, 1):
        if isinstance(frame, int):
            row(i * height, '#ffffff', ('', '', '', '', '... %d frames ...' % frame))
        else:
            number, time, direction, size, text, _ = frame
            row(i * height, colours[direction],
                (str(number), '%.6f' % time, direction, str(size), text))
    return '\n'.join(out + ['</svg>', ''])


def vcd_changes(path):
    '''The changes of each wire: lists of (time in ns, level).'''
    names = {'d': 'SDA', 'c': 'SCL', 'r': 'RESET'}
    changes = {name: [] for name in names.values()}
    time = 0
    for line in path.read_text().splitlines():
        if line.startswith('#'):
            time = int(line[1:])
        elif line[:1] in ('0', '1'):
            changes[names[line[1]]].append((time, int(line[0])))
    return changes


def wire_line(changes, begin, end, x_of, high, low):
    level = [level for time, level in changes if time <= begin][-1]
    points = [(x_of(begin), level)]
    for time, new_level in changes:
        if begin < time < end:
            points += [(x_of(time), level), (x_of(time), new_level)]
            level = new_level
    points.append((x_of(end), level))
    text = ' '.join('%.1f,%.1f' % (x, high if on else low) for x, on in points)
    return '<polyline points="%s" fill="none" stroke="#204a87" stroke-width="1.2"/>' % text


def text_at(x, y, text, anchor='middle'):
    return '<text x="%.1f" y="%.1f" text-anchor="%s">%s</text>' % (x, y, anchor, html.escape(text))


def waveform_picture(path, rows):
    '''One exchange: its three parts in proportion, and its first bytes bit by bit.'''
    changes = vcd_changes(path)
    width, left, right = 960, 60, 20
    out = ['<svg xmlns="http://www.w3.org/2000/svg" width="%d" height="330" '
           'font-family="sans-serif" font-size="12">' % width,
           LICENCE,
           '<rect width="100%" height="100%" fill="white"/>']

    # The exchange in proportion, from the capture's times; a byte takes 22.5 us at 400 kHz.
    request, reply = rows[REQUEST - 1], rows[REPLY - 1]
    request_ms = (9 * (request[3] + 1) + 2) * 0.0025
    reply_start_ms = (reply[1] - request[1]) * 1000
    reply_ms = (9 * (reply[3] + 1) + 2) * 0.0025
    scale = (width - left - right) / (reply_start_ms + reply_ms)
    out.append(text_at(left, 24, 'One exchange, in proportion: %s' % reply[4], 'start'))
    for start, length, fill, label in (
            (0, request_ms, '#9dc3f0', ''),
            (request_ms, reply_start_ms - request_ms, '#eeeeee',
             'the chip works: %.3f ms' % (reply_start_ms - request_ms)),
            (reply_start_ms, reply_ms, '#c5dd9a', 'read %.3f ms' % reply_ms)):
        x = left + start * scale
        out.append('<rect x="%.1f" y="36" width="%.1f" height="30" fill="%s" stroke="#666"/>'
                   % (x, length * scale, fill))
        out.append(text_at(x + length * scale / 2, 56, label))
    out.append(text_at(left, 84, 'write %.3f ms: %d bytes' % (request_ms, request[3]), 'start'))
    out.append(text_at(width - right, 84, '%d bytes' % reply[3], 'end'))

    # The first bytes of the write: start condition, address, sync, count.
    falls = [time for time, level in changes['SDA'] if level == 0]
    begin = falls[0] - 2500
    bit, labels = 2500, ('address 0x17, write', 'sync 0xA5', 'sync 0xA5', 'count 0x00')
    end = falls[0] + bit // 2 + len(labels) * 9 * bit + bit
    scale_bits = (width - left - right) / (end - begin)

    def x_of(time):
        return left + (time - begin) * scale_bits

    out.append(text_at(left, 124, 'The first bytes of the write, bit by bit', 'start'))
    first_bit = falls[0] + bit // 2
    for i, label in enumerate(labels):
        x, span = x_of(first_bit + i * 9 * bit), 9 * bit * scale_bits
        ack = span / 9
        out.append('<rect x="%.1f" y="136" width="%.1f" height="22" fill="#9dc3f0" '
                   'stroke="#666"/>' % (x, span - ack))
        out.append('<rect x="%.1f" y="136" width="%.1f" height="22" fill="#f6d9a0" '
                   'stroke="#666"/>' % (x + span - ack, ack))
        out.append(text_at(x + (span - ack) / 2, 151, label))
        out.append(text_at(x + span - ack / 2, 151, 'A'))
    for name, high in (('SCL', 180), ('SDA', 230), ('RESET', 280)):
        out.append(text_at(left - 10, high + 20, name, 'end'))
        out.append(wire_line(changes[name], begin, end, x_of, high, high + 30))
    return '\n'.join(out + ['</svg>', ''])


def fault_listing(rows):
    lines = ['%4s  %-55s %s' % ('No.', 'Info', 'Warnings')]
    for number, _, _, _, text, warnings in rows:
        if warnings:
            lines.append('%4d  %-55s %s' % (number, text, warnings))
    return lines


def details(capture, number):
    lines = tshark(capture, '-V', '-Y', 'frame.number == %d' % number).splitlines()
    start = next(i for i, line in enumerate(lines) if line.startswith('BBP'))
    return [line for line in lines[start:] if line.strip()]


def fenced(lines):
    return '\n'.join(['```text', *(line.rstrip() for line in lines), '```'])


def with_block(page, name, content):
    pattern = r'(<!-- %s: begin -->\n).*?(<!-- %s: end -->)' % (name, name)
    page, count = re.subn(pattern, lambda m: m[1] + content + '\n' + m[2], page, flags=re.DOTALL)
    if count != 1:
        raise SystemExit('protocol.md has no block "%s"' % name)
    return page


def main():
    arguments = sys.argv[1:]
    check = arguments[:1] == ['--check']
    if len(arguments) != 1 + check:
        raise SystemExit(__doc__)
    captures = pathlib.Path(arguments[-1])
    update = captures / 'update.pcap'
    rows = frames(update)

    page = PAGE.read_text()
    page = with_block(page, 'exchange', fenced(details(update, REQUEST) + details(update, REPLY)))
    page = with_block(page, 'faults', fenced(fault_listing(frames(captures / 'faults.pcap'))))
    made = {
        PAGE: page,
        DOCS / 'images' / 'exchange.svg': waveform_picture(captures / 'update.vcd', rows),
        DOCS / 'images' / 'update.svg': listing_picture(without_repeats(rows)),
    }
    out_of_date = [path for path, text in made.items()
                   if not path.exists() or path.read_text() != text]
    if check:
        for path in out_of_date:
            print('%s is out of date: make it again with ./dev protocol' % path.name)
        return 1 if out_of_date else 0
    for path, text in made.items():
        path.write_text(text)
    return 0


if __name__ == '__main__':
    sys.exit(main())
