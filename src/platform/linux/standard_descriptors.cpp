// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/standard_descriptors.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

namespace vexil {

void occupyStandardDescriptors() {
    for (const int wanted : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        const bool isOpen = ::fcntl(wanted, F_GETFD) != -1;
        // Opened for the other direction it fails as a closed one does.
        if (!isOpen && ::open("/dev/null", wanted == STDIN_FILENO ? O_WRONLY : O_RDONLY) != wanted)
            return; // without /dev/null there is nothing to put there
    }
}

} // namespace vexil
