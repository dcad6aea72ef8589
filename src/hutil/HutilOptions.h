// SPDX-License-Identifier: Apache-2.0
#ifndef BBPFLASH_HUTIL_HUTILOPTIONS_H
#define BBPFLASH_HUTIL_HUTILOPTIONS_H

#include <string>

// The settings of the utility layer, taken once from the command line: how talkative the program is
// and under which name it speaks.
class HutilOptions {
  public:
    // Takes argv[0] as the program's name, parses the options, and sets getopt's optind back to 1
    // so that the driver's own scan starts at the first argument again. `argv` is not kept.
    HutilOptions(int argc, char** argv);

    // Parses nothing; the program's name is "hutil_default".
    HutilOptions();

    virtual ~HutilOptions();

    // Parses -l NAME, -t NAME and -v from wherever getopt's state stands, up to the first argument
    // that is no option; any other option is skipped without a word. With more than five -v it
    // writes the settings to standard output. Returns optind after the last call of getopt.
    int parseOptions(int argc, char** argv);

    int verbosity;          // number of -v; HutilMsg sets it to 10 after an error
    std::string logFile;    // argument of the last -l; shown, never opened
    std::string traceFile;  // argument of the last -t; shown, never opened
    std::string progName;   // argv[0] as typed, the prefix of every message
};

#endif
