// SPDX-License-Identifier: Apache-2.0
#include "common/Failure.h"

#include <csignal>
#include <cstdio>
#include <system_error>

namespace common {

Failure ErrnoFailure(const std::string& what, int error, std::optional<int> status) {
    Failure failure(what + ": " + std::generic_category().message(error), status);
    failure.error_ = error;
    return failure;
}

int RunProgram(const char* program, int usual_status, const std::function<int()>& body) {
    std::signal(SIGCHLD, SIG_DFL);
    try {
        return body();
    } catch (const Failure& failure) {
        std::fprintf(stderr, "%s: %s\n", program, failure.what());
        return failure.Status().value_or(usual_status);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", program, error.what());
        return usual_status;
    }
}

}  // namespace common
