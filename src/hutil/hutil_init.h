// SPDX-License-Identifier: Apache-2.0
// Reporting, for every room: the message macros, the failing end of a run, the hex dump, and the
// two objects behind them.
#ifndef BBPFLASH_HUTIL_HUTIL_INIT_H
#define BBPFLASH_HUTIL_HUTIL_INIT_H

#include <stdio.h>

#include "hutil/HutilMsg.h"
#include "hutil/HutilOptions.h"

// The two process-wide objects: null until hutil_init has run, never deleted.
extern HutilOptions* g_p_hutil_opt;
extern HutilMsg* g_p_hutil_msg;

// Creates both objects, the options from the command line. Ends the process with status -1, without
// a word, when either cannot be created.
void hutil_init(int argc, char** argv);

// Writes `count` bytes to `stream` in hexadecimal: a line break, rows of at most 16 bytes indented
// by two tabs, an empty line. Nothing for a null stream or a count below 1.
void hutil_print16(FILE* stream, unsigned char* bytes, int count);

// The end of a run that failed: writes the protocol line "ERROR" to standard output and ends the
// process with status 1. The message that says why comes first, from the caller.
void hutil_fail() __attribute__((noreturn));

// Report at a level from the caller's own place in the source: a printf format and its arguments.
#define HUTIL_REPORT(level, ...) \
    g_p_hutil_msg->displayMessage((level), __FILE__, __LINE__, __VA_ARGS__)
#define HUTIL_PLAIN(...) HUTIL_REPORT(HutilMsg::PLAIN, __VA_ARGS__)
#define HUTIL_CRITICAL(...) HUTIL_REPORT(HutilMsg::CRITICAL, __VA_ARGS__)
#define HUTIL_ERROR(...) HUTIL_REPORT(HutilMsg::ERROR, __VA_ARGS__)
#define HUTIL_WARNING(...) HUTIL_REPORT(HutilMsg::WARNING, __VA_ARGS__)
#define HUTIL_INFO(...) HUTIL_REPORT(HutilMsg::INFO, __VA_ARGS__)

#endif
