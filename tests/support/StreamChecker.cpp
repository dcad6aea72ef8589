// SPDX-License-Identifier: Apache-2.0
#include "tests/support/StreamChecker.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "tools/stream/StreamParser.h"
#include "tools/stream/UpdaterOptions.h"

namespace {

std::string Describe(unsigned problems) {
    std::string text;
    for (unsigned bit = 1; bit != 0 && bit <= problems; bit <<= 1) {
        if ((problems & bit) != 0) {
            text += text.empty() ? "" : "; ";
            text += bbpflash_problem_text(static_cast<bbpflash_problem>(bit));
        }
    }
    return text;
}

// Where the test of the grammar wants outputs, one file for each.
void KeepSample(const std::string& output, bbpflash_mode mode, int exit_status) {
    static int number = 0;
    if (const char* const folder = std::getenv("BBP_OUTPUT_SAMPLES")) {
        const std::string name = std::to_string(getpid()) + "-" + std::to_string(++number);
        std::ofstream(std::string(folder) + "/" + name, std::ios::binary)
            << (mode == BBPFLASH_MODE_STATUS ? "status " : "narrating ") << exit_status << "\n"
            << output;
    }
}

}  // namespace

bbpflash_mode ModeOf(const std::vector<std::string>& arguments) {
    return tools::ParseUpdaterOptions(arguments).status ? BBPFLASH_MODE_STATUS
                                                        : BBPFLASH_MODE_NARRATING;
}

testing::AssertionResult ConformsToContract(const std::string& output, bbpflash_mode mode,
                                            int exit_status) {
    KeepSample(output, mode, exit_status);
    std::string complaints;
    int number = 0;
    tools::StreamParser parser(mode, [&complaints, &number](const bbpflash_event& event) {
        ++number;
        if (event.problems != 0) {
            complaints += "line " + std::to_string(number) + ", \"" +
                          std::string(event.text, event.size) + "\": " + Describe(event.problems) +
                          "\n";
        }
    });
    parser.Feed(output.data(), output.size());
    parser.Finish(exit_status);
    if (parser.Problems() == 0) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << complaints << "in all, with exit status " << exit_status
                                       << ": " << Describe(parser.Problems());
}
