// SPDX-License-Identifier: Apache-2.0
// The documented part of the system's header that the updater uses.
#ifndef BBPFLASH_TESTS_BUILD_QNX_PLATFORM_DEVCTL_H
#define BBPFLASH_TESTS_BUILD_QNX_PLATFORM_DEVCTL_H

#include <stddef.h>

extern "C" int devctl(int fd, int dcmd, void* data, size_t bytes, int* info);

// Which way a command's data block goes.
#define _POSIX_DEVDIR_NONE 0
#define _POSIX_DEVDIR_TO 0x80000000
#define _POSIX_DEVDIR_FROM 0x40000000
#define _POSIX_DEVDIR_TOFROM (_POSIX_DEVDIR_TO | _POSIX_DEVDIR_FROM)

// A command is its block's size, class, number and direction. The size makes it a size_t, though
// devctl takes an int: where a size_t is wider, the compiler sees the value change.
#define __DIOT(class, cmd, data) ((sizeof(data) << 16) + ((class) << 8) + (cmd) + _POSIX_DEVDIR_TO)
#define __DIOTF(class, cmd, data) \
    ((sizeof(data) << 16) + ((class) << 8) + (cmd) + _POSIX_DEVDIR_TOFROM)
#define __DION(class, cmd) (((class) << 8) + (cmd) + _POSIX_DEVDIR_NONE)

#endif
