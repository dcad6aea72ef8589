// SPDX-License-Identifier: Apache-2.0
// What the updater asks of its operating system beyond the C++ standard library and POSIX.
//
// On QNX Neutrino everything here is the system's own. Elsewhere the few missing names are declared
// below, and a library in a folder beside this file defines the functions.
#ifndef BBPFLASH_PLATFORM_PLATFORM_H
#define BBPFLASH_PLATFORM_PLATFORM_H

#include <unistd.h>

#ifdef __QNX__

// The commands there have the type of a sizeof: the caller makes an int of one that carries a size.
#include <devctl.h>
#include <hw/i2c.h>
#include <sys/slog.h>

// QNX's getopt stops at the first argument that is no option.
#define PLATFORM_GETOPT_STOP ""

#else

#include <stddef.h>

// glibc's getopt reorders the arguments unless its option string begins with a plus sign.
#define PLATFORM_GETOPT_STOP "+"

// The commands of the I2C resource manager, with QNX's values.
static const int DCMD_I2C_LOCK = 0x508;
static const int DCMD_I2C_UNLOCK = 0x509;
static const int DCMD_I2C_SET_BUS_SPEED = static_cast<int>(0x80040502u);
static const int DCMD_I2C_SEND = static_cast<int>(0x80100505u);
static const int DCMD_I2C_RECV = static_cast<int>(0xC0100506u);

extern "C" {

// Issues the device command `dcmd` on the open device `fd`. `data` is the command's data block of
// `nbytes` bytes, read and, by DCMD_I2C_RECV, written in place; it stays the caller's. `info` is
// QNX's extra result, set to 0 when not null. Returns 0 or an errno value.
int devctl(int fd, int dcmd, void* data, size_t nbytes, int* info);

// Sleeps for `milliseconds`. Returns 0 when the full time has passed, else the milliseconds left.
unsigned int delay(unsigned int milliseconds);

// Sends a printf-style text to the system's log. `opcode` tells the place in the program,
// `severity` is 0 plain, 1 critical, 2 error, 3 warning, 5 information. The result is 0, or -1 on
// failure.
int slogf(int opcode, int severity, const char* format, ...) __attribute__((format(printf, 3, 4)));
}

#endif

#endif
