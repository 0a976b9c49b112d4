// SPDX-License-Identifier: MIT
// AES-128 decryption in which the key exists only folded into table2. Every round has one shape:
// each byte of the state selects a word in its sub-table, and four words XOR into a column.
#include "cipher/blocks.h"
#include "cipher/white_box_rounds.h"
#include "cipher/wipe.h"
#include "orvo/bounded_memory.h"
#include "orvo/cipher.h"

namespace {

using orvo::kBlockSize;
using orvo::XorBlock;

bool IsWholeBlocks(uint32_t length) { return length != 0 && length % kBlockSize == 0; }

// A last byte of 0 or 1 needs no look at the bytes before it.
bool IsPaddingValid(const uint8_t* block) {
    const uint32_t padding = block[kBlockSize - 1];
    if (padding > kBlockSize) {
        return false;
    }
    for (size_t i = kBlockSize - padding; i + 1 < kBlockSize; ++i) {
        if (block[i] != padding) {
            return false;
        }
    }
    return true;
}

// Deciphers the last block and writes it without its padding.
int32_t DecryptLastBlock(const uint8_t* chain, const uint8_t* in, uint32_t length, uint8_t* out,
                         uint32_t* outLength) {
    uint8_t block[kBlockSize];
    (void)wb_aes_decrypt(in, block);
    XorBlock(block, chain);
    int32_t status = -1;
    if (IsPaddingValid(block)) {
        const uint32_t padding = block[kBlockSize - 1];
        *outLength = length - padding;
        if (memcpy_s(out, kBlockSize, block, kBlockSize - padding) == 0) {
            status = 0;
        }
    }
    orvo::Wipe(block, sizeof block);
    return status;
}

} // namespace

int32_t wb_aes_decrypt(const uint8_t in[16], uint8_t out[16]) {
    orvo::RunTableCipher<orvo::kColumnsToTheLeft>(table2, in, out);
    return 0;
}

int32_t wb_aes_decrypt_cbc(const uint8_t iv[16], const uint8_t* in, uint32_t length, uint8_t* out,
                           uint32_t* outLength) {
    if (!IsWholeBlocks(length)) {
        return -1;
    }
    uint8_t chain[kBlockSize];
    if (memcpy_s(chain, sizeof chain, iv, kBlockSize) != 0) {
        return -1;
    }
    const size_t blocks = length / kBlockSize;
    for (size_t i = 0; i < blocks; ++i, in += kBlockSize, out += kBlockSize) {
        if (i + 1 < blocks) {
            (void)wb_aes_decrypt(in, out);
            XorBlock(out, chain);
        } else if (DecryptLastBlock(chain, in, length, out, outLength) != 0) {
            return -1;
        }
        if (memcpy_s(chain, sizeof chain, in, kBlockSize) != 0) {
            return -1;
        }
    }
    return 0;
}

int32_t wb_aes_decrypt_cbc_no_pad(const uint8_t iv[16], const uint8_t* in, uint32_t length,
                                  uint8_t* out) {
    if (!IsWholeBlocks(length)) {
        return -1;
    }
    uint8_t chain[kBlockSize];
    if (memcpy_s(chain, sizeof chain, iv, kBlockSize) != 0) {
        return -1;
    }
    const size_t blocks = length / kBlockSize;
    for (size_t i = 0; i < blocks; ++i, in += kBlockSize, out += kBlockSize) {
        (void)wb_aes_decrypt(in, out);
        XorBlock(out, chain);
        if (memcpy_s(chain, sizeof chain, in, kBlockSize) != 0) {
            return -1;
        }
    }
    return 0;
}
