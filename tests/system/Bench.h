// SPDX-License-Identifier: Apache-2.0
// Runs of bbpsim.
#ifndef TESTS_SYSTEM_BENCH_H
#define TESTS_SYSTEM_BENCH_H

#include <chrono>
#include <string>
#include <thread>

#include "tests/system/Process.h"

namespace system_test {

inline std::string BbpSim() {
    return ProgramFolder() + "/bbpsim";
}

inline Words Bench(const Words& words) {
    return Words{BbpSim(), "--pace", "none"} + words;
}

inline Words Shell(const std::string& script) {
    return {"--", "sh", "-c", script};
}

inline void PauseBriefly() {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

// Waits until a program has said the text.
inline void AwaitOutput(const Process& process, const std::string& text) {
    while (process.Output().find(text) == std::string::npos) {
        PauseBriefly();
    }
}

}  // namespace system_test

#endif
