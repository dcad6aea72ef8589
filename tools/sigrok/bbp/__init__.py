# SPDX-License-Identifier: Apache-2.0
'''
Decodes the logical messages between the updater and the HD Radio baseband processor (BBP) from the
I2C bus: header fields, opcodes and functions by name, payload, checksum verdict, and warnings for
whatever the updater would reject.
'''

from .pd import Decoder
