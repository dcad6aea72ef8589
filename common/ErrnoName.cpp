// SPDX-License-Identifier: Apache-2.0
#include "common/ErrnoName.h"

#include <cerrno>
#include <cstring>

namespace common {

namespace {

constexpr int HIGHEST_ERRNO = 4095;  // of a Linux system call

struct OtherName {
    const char* name;
    int error;
};

// The second names of values that have two.
constexpr OtherName OTHER_NAMES[] = {
    {"EWOULDBLOCK", EWOULDBLOCK}, {"ENOTSUP", ENOTSUP}, {"EDEADLOCK", EDEADLK}};

}  // namespace

std::string ErrnoName(int error) {
    const char* const name = strerrorname_np(error);
    return name != nullptr ? name : std::to_string(error);
}

std::optional<int> ErrnoValue(const std::string& name) {
    for (const OtherName& other : OTHER_NAMES) {
        if (name == other.name) {
            return other.error;
        }
    }
    for (int error = 1; error <= HIGHEST_ERRNO; ++error) {
        const char* const its_name = strerrorname_np(error);
        if (its_name != nullptr && name == its_name) {
            return error;
        }
    }
    return std::nullopt;
}

}  // namespace common
