// SPDX-License-Identifier: MIT
//
// What work on keys leaves behind outside the objects that hold them: compilers spill words of a
// key to the stack, and the dynamic linker saves whole vector registers there when it resolves a
// name for the first time.
#pragma once

namespace orvo {

// Zeroes the stack below the caller's frame, as deep as opening a model reaches, and the registers
// that a caller must not expect to be kept. To be called by the caller of what worked on keys.
void WipeTraces();

} // namespace orvo
