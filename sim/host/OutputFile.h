// SPDX-License-Identifier: Apache-2.0
// Files that the simulator writes.
#ifndef SIM_HOST_OUTPUT_FILE_H
#define SIM_HOST_OUTPUT_FILE_H

#include <string>

namespace sim {

// Throws common::Failure, about `what` and the path, unless `path` is a regular file, or no file
// yet, that can be replaced by one of the same name.
void CheckReplaceable(const std::string& path, const std::string& what);

// Replaces the regular file `path` whole; writes to anything else that there is by this name.
// Throws common::Failure.
void WriteFile(const std::string& path, const std::string& what, const std::string& text);

// As CheckReplaceable, for WriteFile.
void CheckWritable(const std::string& path, const std::string& what);

}  // namespace sim

#endif
