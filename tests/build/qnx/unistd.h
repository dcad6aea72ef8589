// SPDX-License-Identifier: Apache-2.0
// POSIX's header, and what the system's own declares besides.
#ifndef BBPFLASH_TESTS_BUILD_QNX_UNISTD_H
#define BBPFLASH_TESTS_BUILD_QNX_UNISTD_H

#include_next <unistd.h>

extern "C" unsigned int delay(unsigned int milliseconds);

#endif
