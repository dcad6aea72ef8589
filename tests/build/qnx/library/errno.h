// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_BUILD_QNX_LIBRARY_ERRNO_H
#define BBPFLASH_TESTS_BUILD_QNX_LIBRARY_ERRNO_H

#include <cerrno>

#endif
