// SPDX-License-Identifier: Apache-2.0
// The documented part of the system's header that the updater uses.
#ifndef BBPFLASH_TESTS_BUILD_QNX_PLATFORM_SYS_SLOG_H
#define BBPFLASH_TESTS_BUILD_QNX_PLATFORM_SYS_SLOG_H

extern "C" int slogf(int opcode, int severity, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

#endif
