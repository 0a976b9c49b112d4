// SPDX-License-Identifier: MIT
#include "tools/pack_models/random_stream.h"

namespace orvo::pack {

RandomStream::RandomStream(const std::array<uint8_t, 32>& seed, uint8_t purpose)
    : buffer_{}, position_(buffer_.size()) {
    AES_init_ctx_iv(&cipher_, seed.data(), seed.data() + 16);
    cipher_.iv[0] = static_cast<uint8_t>(cipher_.iv[0] + purpose);
}

uint8_t RandomStream::Byte() {
    if (position_ == buffer_.size()) {
        buffer_.fill(0);
        AES_CTR_xcrypt_buffer(&cipher_, buffer_.data(), static_cast<uint32_t>(buffer_.size()));
        position_ = 0;
    }
    return buffer_[position_++];
}

uint32_t RandomStream::Word() {
    uint32_t word = 0;
    for (int i = 0; i < 4; ++i) {
        word = word << 8 | Byte();
    }
    return word;
}

} // namespace orvo::pack
