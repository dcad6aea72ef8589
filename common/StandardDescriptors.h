// SPDX-License-Identifier: Apache-2.0
#ifndef COMMON_STANDARD_DESCRIPTORS_H
#define COMMON_STANDARD_DESCRIPTORS_H

namespace common {

// The first call of a main: standard input, output and error that the program was started without
// are opened on /dev/null, so that no file that is opened later takes their place. Reading and
// writing them still fails with EBADF. Ends the process where even that cannot be done.
void OpenMissingStandardDescriptors();

}  // namespace common

#endif
