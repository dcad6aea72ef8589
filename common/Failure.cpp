// SPDX-License-Identifier: Apache-2.0
#include "common/Failure.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <system_error>

namespace common {

namespace {

// Another thread may warn while the program begins again with a part of it.
std::atomic<const char*> running = nullptr;

}  // namespace

Failure ErrnoFailure(const std::string& what, int error, std::optional<int> status) {
    Failure failure(what + ": " + std::generic_category().message(error), status);
    failure.error_ = error;
    return failure;
}

void Warn(const std::string& text) {
    const char* const program = running;
    const std::string before = program == nullptr ? "" : std::string(program) + ": ";
    std::fprintf(stderr, "%s%s\n", before.c_str(), text.c_str());
}

int RunProgram(const char* program, int usual_status, const std::function<int()>& body) {
    running = program;
    std::signal(SIGCHLD, SIG_DFL);
    try {
        return body();
    } catch (const Failure& failure) {
        Warn(failure.what());
        return failure.Status().value_or(usual_status);
    } catch (const std::exception& error) {
        Warn(error.what());
        return usual_status;
    }
}

}  // namespace common
