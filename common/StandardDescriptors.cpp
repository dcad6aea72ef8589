// SPDX-License-Identifier: Apache-2.0
#include "common/StandardDescriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>
#include <initializer_list>

namespace common {

void OpenMissingStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(descriptor, F_GETFD) != -1) {
            continue;
        }
        // The lowest free number is this one, as those below are open.
        const int useless = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
        if (open("/dev/null", useless) != descriptor) {
            std::abort();
        }
    }
}

}  // namespace common
