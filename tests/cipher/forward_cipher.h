// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

namespace orvo_test {

// A test that links forward_cipher.cpp supplies wb_aes_encrypt itself, as an application may: a
// plain AES-128 whose key the test sets, and which counts its calls.
void SetForwardKey(const std::array<uint8_t, 16>& key);
int ForwardCalls();

} // namespace orvo_test
