// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_TESTS_BUILD_QNX_LIBRARY_UNISTD_H
#define BBPFLASH_TESTS_BUILD_QNX_LIBRARY_UNISTD_H

typedef __PTRDIFF_TYPE__ ssize_t;
typedef unsigned int useconds_t;

extern "C" {
extern char* optarg;
extern int optind;
int close(int descriptor);
int getopt(int count, char* const words[], const char* options);
int usleep(useconds_t microseconds);
ssize_t write(int descriptor, const void* bytes, __SIZE_TYPE__ size);

// QNX's own.
unsigned int delay(unsigned int milliseconds);
}

#endif
