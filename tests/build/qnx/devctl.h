// SPDX-License-Identifier: Apache-2.0
// The documented part of the system's header that the updater uses.
#ifndef BBPFLASH_TESTS_BUILD_QNX_DEVCTL_H
#define BBPFLASH_TESTS_BUILD_QNX_DEVCTL_H

#include <cstddef>

extern "C" int devctl(int fd, int dcmd, void* data, size_t bytes, int* info);

// Commands carry the size of their data block and its direction.
#define __DIOT(class, command, data) \
    static_cast<int>((sizeof(data) << 16) + ((class) << 8) + (command) + 0x80000000U)
#define __DIOTF(class, command, data) \
    static_cast<int>((sizeof(data) << 16) + ((class) << 8) + (command) + 0xC0000000U)
#define __DION(class, command) (((class) << 8) + (command))

#endif
