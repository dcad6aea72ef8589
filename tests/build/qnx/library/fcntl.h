// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_BUILD_QNX_LIBRARY_FCNTL_H
#define BBPFLASH_TESTS_BUILD_QNX_LIBRARY_FCNTL_H

#define O_RDWR 2

extern "C" int open(const char* path, int flags, ...);

#endif
