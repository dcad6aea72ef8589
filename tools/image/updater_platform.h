// SPDX-License-Identifier: Apache-2.0
// The updater's platform where only its file work is wanted: no bus, no waits, and what it would
// log is kept.
#ifndef BBPFLASH_TOOLS_IMAGE_UPDATER_PLATFORM_H
#define BBPFLASH_TOOLS_IMAGE_UPDATER_PLATFORM_H

#include <string>
#include <vector>

namespace tools {

// What the updater has sent to the system's log so far, whole lines without their end.
const std::vector<std::string>& LoggedMessages();

}  // namespace tools

#endif
