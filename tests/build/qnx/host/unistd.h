// SPDX-License-Identifier: Apache-2.0
// The header of the machine that compiles, and what QNX declares there besides.
#ifndef BBPFLASH_TESTS_BUILD_QNX_HOST_UNISTD_H
#define BBPFLASH_TESTS_BUILD_QNX_HOST_UNISTD_H

#include_next <unistd.h>

extern "C" unsigned int delay(unsigned int milliseconds);

#endif
