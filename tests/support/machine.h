// SPDX-License-Identifier: MIT
#pragma once

namespace orvo_test {

// Whether this machine can run the path of that name (as ORVO_FR_PATH takes it), by what the
// operating system says of the processor or by trying an instruction: found out in another way than
// the library does, so that a path which the library leaves out by mistake is noticed.
bool MachineHas(const char* path);

} // namespace orvo_test
