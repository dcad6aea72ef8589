// SPDX-License-Identifier: Apache-2.0
// The update driver: one run of the program as a state machine of four steps.
#ifndef BBPFLASH_DRIVER_BBPFLASH_H
#define BBPFLASH_DRIVER_BBPFLASH_H

#include <string>

#include "chip/HdChip.h"
#include "hutil/run_flags.h"

// What `state` holds and every step returns: what is to be done next.
enum State {
    STATE_INIT = 0,
    STATE_RESET = 1,
    STATE_CHECK_VERSION = 2,
    STATE_PROGRAM = 3,
    STATE_DONE = 4,
    STATE_FAILED = 5
};

extern std::string installed_version;  // as the chip reports it
extern std::string file_version;       // the label of the image file
extern std::string filename;           // path of the image file, the last argument
extern HdChip* p_ischip;               // owned; null until bbpflash_init
extern int state;                      // a State

// Makes the chip object and opens the bus. Returns STATE_RESET or STATE_FAILED.
int bbpflash_init();

// Pulses the chip's reset line, waits until its firmware has started, and restarts the message
// count. Returns STATE_CHECK_VERSION or STATE_FAILED.
int bbpflash_reset();

// Reads the installed version; shows it in info-only mode, else compares it with the image's label.
// Returns STATE_DONE, STATE_PROGRAM when they differ, or STATE_FAILED.
int bbpflash_check_version();

// Downloads and programs the image. Returns STATE_RESET or STATE_FAILED.
int bbpflash_program();

// Reads the label of the image at the path `filename`, whatever `file` says, into `version`: the
// field at a fixed place in the image, without surrounding blanks and without its last two
// characters. Returns false, reported, when it cannot be read; `version` is then as it was.
// Kept: a field of blanks alone ends in std::out_of_range, with the blanks in `version`; an image
// without a label is then never taken for the installed one.
bool get_bin_file_version(std::string& version, std::string& file);

#endif
