// SPDX-License-Identifier: Apache-2.0
// Pipes, and all that is read from or written to a descriptor or a file.
#ifndef COMMON_PIPE_H
#define COMMON_PIPE_H

#include <string>
#include <string_view>

#include "common/UniqueFd.h"

namespace common {

// No program that is started later inherits its ends.
struct Pipe {
    UniqueFd read_end;
    UniqueFd write_end;
};

// Throws Failure.
Pipe MakePipe();

// Everything up to the end. Throws Failure, about "reading `what`".
std::string ReadAll(int descriptor, const std::string& what);

// All that the file at `path` holds. Throws Failure, about "opening `what`" or "reading `what`".
std::string ReadFile(const std::string& path, const std::string& what);

// Writes all of it. Throws Failure, about "writing `what`".
void WriteAll(int descriptor, std::string_view bytes, const std::string& what);

}  // namespace common

#endif
