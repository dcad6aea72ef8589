// SPDX-License-Identifier: Apache-2.0
// The documented part of the system's header that the updater uses.
#ifndef BBPFLASH_TESTS_BUILD_QNX_SYS_SLOG_H
#define BBPFLASH_TESTS_BUILD_QNX_SYS_SLOG_H

extern "C" int slogf(int opcode, int severity, const char* format, ...);

#endif
