/* SPDX-License-Identifier: Apache-2.0 */
/* The least that a download can cost: for each segment the bus calls and the wait that the chip
 * demands, and one pass over the bytes for the checksum. No options, no messages, no checks beyond
 * the reply's status and sum. It is measured beside the updater, never shipped. */
#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <linux/i2c.h>
#include <stdio.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

enum { ADDRESS = 0x17, LM_SIZE = 2048, HEADER = 12, READ_SIZE = 65 };

static unsigned char lm[LM_SIZE];
static unsigned char reply[READ_SIZE];

static unsigned char sum(const unsigned char* bytes, int count) {
    unsigned char total = 0;
    for (int i = 0; i < count; ++i) {
        total = (unsigned char)(total + bytes[i]);
    }
    return total;
}

static int transfer(int bus, unsigned short flags, unsigned char* bytes, int size) {
    struct i2c_msg message = {ADDRESS, flags, (unsigned short)size, bytes};
    struct i2c_rdwr_ioctl_data data = {&message, 1};
    if (flock(bus, LOCK_EX) != 0 || ioctl(bus, I2C_RDWR, &data) < 0) {
        return -1;
    }
    return flock(bus, LOCK_UN);
}

static void put_half(unsigned char* at, int value) {
    at[0] = (unsigned char)value;
    at[1] = (unsigned char)(value >> 8);
}

int main(int argc, char** argv) {
    FILE* const file = argc > 1 ? fopen(argv[1], "r") : NULL;
    const int bus = open("/dev/i2c1", O_RDWR);
    if (file == NULL || bus < 0 || fseek(file, 0, SEEK_END) != 0) {
        return 1;
    }
    int remaining = (int)ftell(file);
    rewind(file);
    put_half(lm + 8, (remaining + 1) / (LM_SIZE - HEADER - 1) + 1);
    unsigned char count = 0;
    for (int segment = 0; remaining > 0; ++segment) {
        lm[0] = lm[1] = 0xA5;
        lm[2] = count++;
        lm[3] = 1;
        lm[6] = 0x84;
        put_half(lm + 10, segment);
        int filled = HEADER;
        if (segment == 0) {
            lm[filled++] = 0x04;
        }
        const int got = (int)fread(lm + filled, 1, (size_t)(LM_SIZE - 1 - filled), file);
        filled += got;
        remaining -= got;
        put_half(lm + 4, filled + 1);
        lm[filled] = sum(lm, filled);
        if (transfer(bus, 0, lm, filled + 1) != 0 || usleep(750) != 0 ||
            transfer(bus, I2C_M_RD, reply, READ_SIZE) != 0) {
            return 1;
        }
        if (reply[0] <= HEADER || reply[0] >= READ_SIZE || (reply[1 + 7] & 1) == 0 ||
            reply[reply[0]] != sum(reply + 1, reply[0] - 1) || memcmp(reply + 1, lm, 4) != 0) {
            return 1;
        }
    }
    return 0;
}
