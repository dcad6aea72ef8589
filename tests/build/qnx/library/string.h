// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_BUILD_QNX_LIBRARY_STRING_H
#define BBPFLASH_TESTS_BUILD_QNX_LIBRARY_STRING_H

#include <cstring>

using std::memcpy;
using std::memset;
using std::size_t;
using std::strerror;
using std::strlen;
using std::strrchr;

#endif
