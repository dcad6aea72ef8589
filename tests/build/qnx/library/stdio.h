// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_BUILD_QNX_LIBRARY_STDIO_H
#define BBPFLASH_TESTS_BUILD_QNX_LIBRARY_STDIO_H

#include <cstdio>

using std::fclose;
using std::feof;
using std::fflush;
using std::FILE;
using std::fopen;
using std::fprintf;
using std::fread;
using std::fseek;
using std::ftell;
using std::perror;
using std::printf;
using std::size_t;
using std::vsnprintf;

#endif
