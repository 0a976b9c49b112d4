// SPDX-License-Identifier: MIT
#pragma once

namespace orvo_test {

// A test that links refusing_memory.cpp supplies memcpy_s and memset_s, which use the stack no more than the library's
// own and keep nothing of what goes through them. The n-th call from now on is refused.
void RefuseBoundedCall(int n);

} // namespace orvo_test
