// SPDX-License-Identifier: MIT
#include "cipher/forward_cipher.h"

#include <cstring>

#include "orvo/cipher.h"
#include "orvo/kova_mpi.h"

namespace orvo_test {
namespace {

AES_ctx forwardContext;
int forwardCalls = 0;

} // namespace

void SetForwardKey(const std::array<uint8_t, 16>& key) {
    AES_init_ctx(&forwardContext, key.data());
}

int ForwardCalls() { return forwardCalls; }

} // namespace orvo_test

extern "C" int32_t wb_aes_encrypt(const uint8_t in[16], uint8_t out[16]) {
    ++orvo_test::forwardCalls;
    std::memmove(out, in, 16);
    AES_ECB_encrypt(&orvo_test::forwardContext, out);
    return 0;
}
