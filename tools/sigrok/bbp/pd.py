# SPDX-License-Identifier: Apache-2.0
'''Protocol decoder for the BBP's logical messages, stacked on the I2C decoder.'''

import sigrokdecode as srd

SYNC = 0xA5
HEADER_SIZE = 12
OVERHEAD = HEADER_SIZE + 1  # header and checksum
RX_LM_SIZE = 64             # the most that one read brings behind its count byte
PROGRAM = 0x04

OPCODES = {0x80: 'Version', 0x83: 'Configuration', 0x84: 'Flash'}
FUNCTIONS = {
    (0x80, 0x01): 'Read version',
    (0x83, 0x09): 'Read configuration',
    (0x84, PROGRAM): 'Program',
    (0x84, 0x05): 'Programming status',
    (0x84, 0x0B): 'Unprotect flash',
    (0x84, 0x0C): 'Flash status',
}
PGM_WRITE_STATUS = {
    1: 'complete', 2: 'verification failed', 3: 'idle', 4: 'erasing', 5: 'programming',
    6: 'verifying', 7: 'security mismatch', 8: 'single tuner image on dual tuner flash',
    9: 'dual tuner image on single tuner flash',
}
# Where a status reply keeps its code, by function.
PGM_STATUS_POSITION = {(0x84, 0x05): 1, (0x84, 0x0C): 0}

# Reception status bits that say what went wrong.
STATUS_BITS = ((0x04, 'header missing'), (0x08, 'checksum mismatch'), (0x10, 'overflow'),
               (0xE0, 'unknown opcode'))

# The fields that a reply repeats: name, offset, width in bytes.
ECHOED = (('count', 2, 1), ('instance', 3, 1), ('opcode', 6, 1), ('number of segments', 8, 2),
          ('segment', 10, 2))

ANN_FIELD, ANN_OPCODE, ANN_PAYLOAD, ANN_CHECKSUM, ANN_MESSAGE, ANN_WARNING = range(6)


class Decoder(srd.Decoder):
    api_version = 3
    id = 'bbp'
    name = 'BBP'
    longname = 'HD Radio baseband processor, logical messages'
    desc = 'Commands to and replies from the HD Radio baseband processor.'
    license = 'apache-2.0'
    inputs = ['i2c']
    outputs = []
    tags = ['Embedded/industrial', 'Automotive']
    options = (
        {'id': 'address', 'desc': 'Slave address, 7-bit form', 'default': 0x17},
    )
    annotations = (
        ('field', 'Header field'),
        ('opcode', 'Opcode'),
        ('payload', 'Payload'),
        ('checksum', 'Checksum'),
        ('message', 'Message'),
        ('warning', 'Warning'),
    )
    annotation_rows = (
        ('fields', 'Fields', (ANN_FIELD, ANN_OPCODE, ANN_PAYLOAD, ANN_CHECKSUM)),
        ('messages', 'Messages', (ANN_MESSAGE,)),
        ('warnings', 'Warnings', (ANN_WARNING,)),
    )
    binary = (('request', 'Bytes of requests'), ('reply', 'Bytes of reads'))

    def __init__(self):
        self.reset()

    def reset(self):
        self.transfer = None   # bytes of the transfer going on as (start, end, value)
        self.is_read = False
        self.began = 0
        self.request = None    # bytes of the last request
        self.function = None   # function byte of the transfer that goes on over segments

    def start(self):
        self.out_ann = self.register(srd.OUTPUT_ANN)
        self.out_binary = self.register(srd.OUTPUT_BINARY)

    def decode(self, ss, es, data):
        kind, value = data
        if kind in ('START', 'START REPEAT'):
            self.finish(ss)
            self.began = ss
        elif kind in ('ADDRESS READ', 'ADDRESS WRITE'):
            self.is_read = kind == 'ADDRESS READ'
            self.transfer = [] if value == self.options['address'] else None
        elif kind in ('DATA READ', 'DATA WRITE') and self.transfer is not None:
            self.transfer.append((ss, es, value))
        elif kind == 'STOP':
            self.finish(es)

    def finish(self, end):
        '''Decodes the transfer that has just ended.'''
        transfer, self.transfer = self.transfer, None
        if not transfer:
            return
        values = bytes(value for _, _, value in transfer)
        self.put(transfer[0][0], transfer[-1][1], self.out_binary, [int(self.is_read), values])
        if self.is_read:
            text = self.decode_reply(transfer, values)
        else:
            text = self.decode_request(transfer, values)
        self.put(self.began, end, self.out_ann, [ANN_MESSAGE, [text]])

    def annotate(self, transfer, first, count, kind, texts):
        self.put(transfer[first][0], transfer[first + count - 1][1], self.out_ann, [kind, texts])

    def warn(self, transfer, text):
        self.annotate(transfer, 0, len(transfer), ANN_WARNING, [text])

    def annotate_header(self, transfer, lm, offset, byte_7):
        '''Annotates the header of the LM at `offset`; `byte_7` is what its byte 7 means.'''
        self.annotate(transfer, offset, 2, ANN_FIELD, ['Sync', 'S'])
        if lm[0] != SYNC or lm[1] != SYNC:
            self.warn(transfer, 'sync bytes are wrong')
        self.annotate(transfer, offset + 2, 1, ANN_FIELD, ['Count: %d' % lm[2], str(lm[2])])
        self.annotate(transfer, offset + 3, 1, ANN_FIELD, ['Instance: %d' % lm[3], str(lm[3])])
        length = int.from_bytes(lm[4:6], 'little')
        self.annotate(transfer, offset + 4, 2, ANN_FIELD, ['Length: %d' % length, str(length)])
        self.annotate(transfer, offset + 6, 1, ANN_OPCODE,
                      ['Opcode: 0x%02X (%s)' % (lm[6], OPCODES.get(lm[6], 'unknown')),
                       '%02X' % lm[6]])
        self.annotate(transfer, offset + 7, 1, ANN_FIELD,
                      ['%s: 0x%02X' % (byte_7, lm[7]), '%02X' % lm[7]])
        for position, name in ((8, 'Segments'), (10, 'Segment')):
            number = int.from_bytes(lm[position:position + 2], 'little')
            self.annotate(transfer, offset + position, 2, ANN_FIELD,
                          ['%s: %d' % (name, number), str(number)])

    def annotate_checksum(self, transfer, lm, offset, size):
        stop = min(int.from_bytes(lm[4:6], 'little') - 1, len(lm))
        expected = sum(lm[:max(stop, 0)]) & 0xFF
        found = lm[size - 1]
        verdict = 'OK' if found == expected else 'expected 0x%02X' % expected
        self.annotate(transfer, offset + size - 1, 1, ANN_CHECKSUM,
                      ['Checksum: 0x%02X (%s)' % (found, verdict), '%02X' % found])
        if found != expected:
            self.warn(transfer, 'checksum does not match')

    def name_of(self, lm):
        name = FUNCTIONS.get((lm[6], self.function), 'Unknown function')
        segments = int.from_bytes(lm[8:10], 'little')
        if segments > 1:
            name += ', segment %d/%d' % (int.from_bytes(lm[10:12], 'little') + 1, segments)
        return name

    def decode_request(self, transfer, lm):
        if len(lm) < OVERHEAD:
            self.warn(transfer, 'shorter than a message')
            return 'Request, cut short'
        self.request = lm
        payload = len(lm) - OVERHEAD
        first_segment = int.from_bytes(lm[10:12], 'little') == 0
        if first_segment and payload:
            self.function = lm[HEADER_SIZE]
        self.annotate_header(transfer, lm, 0, 'Abort')
        if payload:
            self.annotate(transfer, HEADER_SIZE, payload, ANN_PAYLOAD,
                          ['Payload: %d bytes' % payload, str(payload)])
        self.annotate_checksum(transfer, lm, 0, len(lm))
        # A download's first segment leaves its function byte out of the length.
        short_by_one = first_segment and self.function == PROGRAM
        missing = len(lm) - int.from_bytes(lm[4:6], 'little')
        if missing and not (short_by_one and missing == 1):
            self.warn(transfer, 'length field is not the length sent')
        return self.name_of(lm)

    def decode_reply(self, transfer, values):
        count, lm = values[0], values[1:]
        self.annotate(transfer, 0, 1, ANN_FIELD, ['Follow: %d' % count, str(count)])
        if count <= HEADER_SIZE or len(lm) < OVERHEAD:
            self.warn(transfer, 'no data: the count byte promises no more than a header')
            return 'No reply'
        size = count
        if count > min(RX_LM_SIZE, len(lm)):
            self.warn(transfer, 'the count byte promises more than the read brings')
            size = min(RX_LM_SIZE, len(lm))
        self.annotate_header(transfer, lm, 1, 'Status')
        status = lm[7]
        if size > OVERHEAD:
            self.annotate(transfer, 1 + HEADER_SIZE, size - OVERHEAD, ANN_PAYLOAD,
                          ['Payload: %d bytes' % (size - OVERHEAD), str(size - OVERHEAD)])
        self.annotate_checksum(transfer, lm, 1, size)
        if not status & 0x01:
            causes = [text for mask, text in STATUS_BITS if status & mask]
            self.warn(transfer, 'not received: ' + (', '.join(causes) or 'no cause given'))
        if status & 0x02:
            self.warn(transfer, 'a message was missed (not fatal)')
        if self.request is None:
            return 'Reply without a request'
        for name, offset, width in ECHOED:
            if lm[offset:offset + width] != self.request[offset:offset + width]:
                self.warn(transfer, '%s is not the request\'s' % name)
        return 'Reply: %s%s' % (self.name_of(self.request), self.meaning(lm, size, status))

    def meaning(self, lm, size, status):
        payload = lm[HEADER_SIZE:size - 1]
        kind = (self.request[6], self.function)
        position = PGM_STATUS_POSITION.get(kind)
        if not status & 0x01:
            return ', NOT received'
        if position is not None and position < len(payload):
            return ', ' + PGM_WRITE_STATUS.get(payload[position], 'reserved status')
        if kind == (0x80, 0x01):
            return ', ' + payload[1:].split(b'\0')[0].decode('latin-1')
        return ', received'
