// SPDX-License-Identifier: Apache-2.0
// Numbers in messages and data blocks: low byte first, whatever the machine's own order is.
#ifndef BBPFLASH_PLATFORM_LITTLE_ENDIAN_H
#define BBPFLASH_PLATFORM_LITTLE_ENDIAN_H

namespace little_endian {

// The number in the 2 bytes at `at`, 0..65535.
inline int Get16(const unsigned char* at) {
    return at[0] | at[1] << 8;
}

// Writes the low 16 bits of `value` to the 2 bytes at `at`.
inline void Put16(unsigned char* at, int value) {
    at[0] = static_cast<unsigned char>(value & 0xFF);
    at[1] = static_cast<unsigned char>((value >> 8) & 0xFF);
}

// The number in the 4 bytes at `at`.
inline unsigned int Get32(const unsigned char* at) {
    return static_cast<unsigned int>(Get16(at)) | static_cast<unsigned int>(Get16(at + 2)) << 16;
}

// Writes `value`, of 32 bits, to the 4 bytes at `at`.
inline void Put32(unsigned char* at, unsigned int value) {
    Put16(at, static_cast<int>(value & 0xFFFF));
    Put16(at + 2, static_cast<int>(value >> 16));
}

}  // namespace little_endian

#endif
