// SPDX-License-Identifier: Apache-2.0
#include "common/UniqueFd.h"

#include <unistd.h>

#include <cerrno>

namespace common {

UniqueFd& UniqueFd::operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
        Reset(other.Release());
    }
    return *this;
}

int UniqueFd::Release() {
    const int descriptor = descriptor_;
    descriptor_ = -1;
    return descriptor;
}

void UniqueFd::Reset(int descriptor) {
    if (descriptor_ >= 0) {
        const int error = errno;
        close(descriptor_);
        errno = error;
    }
    descriptor_ = descriptor;
}

bool UniqueFd::Close() {
    // A descriptor is gone after close, whatever close says.
    return close(Release()) == 0 || errno == EINTR;
}

}  // namespace common
