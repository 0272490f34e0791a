// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace vexil {

// First thing in a program: a descriptor below 3 that the caller left closed would be taken by the next file or socket
// opened, the database say, and be written to as if it were the output.
void occupyStandardDescriptors();

} // namespace vexil
