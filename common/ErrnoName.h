// SPDX-License-Identifier: Apache-2.0
// The names of errno values, as <errno.h> has them.
#ifndef COMMON_ERRNO_NAME_H
#define COMMON_ERRNO_NAME_H

#include <optional>
#include <string>

namespace common {

// Such as "EIO"; for a value without a name its digits.
std::string ErrnoName(int error);

// The value of a name; some values have two (EAGAIN and EWOULDBLOCK). Nothing for no name.
std::optional<int> ErrnoValue(const std::string& name);

}  // namespace common

#endif
