// SPDX-License-Identifier: MIT
#pragma once

namespace orvo {

// Whether memcpy_s and memset_s are the library's own, as opposed to a platform's or a test's. The
// own ones fail for no other reason than a wrong size or a null address, so a caller that knows its
// sizes to be right may do the work of such a copy another way.
bool BoundedMemoryIsOwn();

} // namespace orvo
