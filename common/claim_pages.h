// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace orvo {

// Tells the system that all pages which hold these bytes are about to be written. A page of a
// library's data becomes the process's own at the first write to it, by a fault that costs more
// than deciphering the page does; told beforehand, Linux (from 5.14) copies all of them at once.
// Elsewhere nothing happens, and every page has its fault.
void ClaimPages(void* data, size_t size);

} // namespace orvo
