// SPDX-License-Identifier: Apache-2.0
#include "hutil/HutilOptions.h"

#include <stdio.h>

#include "hutil/HutilMsg.h"
#include "platform/platform.h"

HutilOptions::HutilOptions(int argc, char** argv) : verbosity(0), progName(argv[0]) {
    parseOptions(argc, argv);
    optind = 1;
}

HutilOptions::HutilOptions() : verbosity(0), progName("hutil_default") {}

HutilOptions::~HutilOptions() = default;

int HutilOptions::parseOptions(int argc, char** argv) {
    int option;
    while ((option = getopt(argc, argv, PLATFORM_GETOPT_STOP ":l:t:v")) != -1) {
        switch (option) {
            case 'l':
                // Kept: the built name never outlives the next line; it is where a log without a
                // name would go.
                logFile = "/var/log/" + progName + ".log";
                logFile = optarg;
                break;
            case 't':
                // Kept: overwritten at once; it is where a trace without a name would go.
                traceFile = "/var/trace/" + progName + ".trc";
                traceFile = optarg;
                break;
            case 'v':
                verbosity += 1;
                break;
            default:
                break;
        }
    }

    if (verbosity > HutilMsg::INFO_VERBOSITY) {
        fprintf(stdout,
                "%s INF: == options start ===========\n"
                " (l = %s)\n"
                " (t = %s)\n"
                " (v = %d)\n"
                "%s INF: == options end =============\n",
                progName.c_str(), logFile.c_str(), traceFile.c_str(), verbosity, progName.c_str());
    }
    return optind;
}
