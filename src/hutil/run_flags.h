// SPDX-License-Identifier: Apache-2.0
// The flags of the command line: the driver sets them, the chip asks for one.
#ifndef BBPFLASH_HUTIL_RUN_FLAGS_H
#define BBPFLASH_HUTIL_RUN_FLAGS_H

enum {
    OPTION_FORCE = 0,      // -f: program once even when the versions match
    OPTION_INFO_ONLY = 1,  // -i: show the installed version and stop
    OPTION_STATUS = 2,     // -s: quiet but for the percentages
    OPTION_COUNT = 3
};

// Defined by the driver.
extern bool g_options[OPTION_COUNT];

#endif
