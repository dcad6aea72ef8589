// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_HUTIL_HUTILMSG_H
#define BBPFLASH_HUTIL_HUTILMSG_H

#include "hutil/HutilOptions.h"

// The one way out for every message: a levelled line on standard output, and the same text to the
// system logger.
class HutilMsg {
  public:
    // The system logger's severities. Level 4 is not used and prints nothing.
    enum Level { PLAIN = 0, CRITICAL = 1, ERROR = 2, WARNING = 3, INFO = 5 };

    enum {
        INFO_VERBOSITY = 5,    // above it, information and every message's source position show
        ERROR_VERBOSITY = 10,  // what the verbosity becomes after a critical or an error message
        TEXT_SIZE = 752        // longest text with its closing NUL; a longer one is cut
    };

    // Reads and raises the verbosity of `opts`, which stays the caller's and must live as long.
    explicit HutilMsg(HutilOptions* opts);

    // Makes its own options from the command line, or default ones; they are never deleted.
    HutilMsg(int argc, char** argv);
    HutilMsg();

    virtual ~HutilMsg();

    // Writes "<program> <LEVEL>: <text>" as one line to standard output and to the system logger.
    // `level` is one of Level, any other prints nothing; INFO shows only above INFO_VERBOSITY.
    // " @<base name of file>:<line>" follows for CRITICAL, ERROR and INFO always, for the others
    // above INFO_VERBOSITY. CRITICAL and ERROR raise the verbosity to ERROR_VERBOSITY for the rest
    // of the run. When the text cannot be formatted, only perror's line goes to standard error.
    void displayMessage(int level, const char* file, int line, const char* format, ...)
        __attribute__((format(printf, 5, 6)));

    HutilOptions* options;  // not owned
};

#endif
