// SPDX-License-Identifier: MIT
//
// Galois/Counter Mode (NIST SP 800-38D) over the white-box forward cipher.
#include <algorithm>
#include <cstddef>

#include "cipher/blocks.h"
#include "cipher/wipe.h"
#include "orvo/bounded_memory.h"
#include "orvo/cipher.h"
#include "orvo/kova_mpi.h"

namespace {

using orvo::kBlockSize;
using orvo::XorBlock;
using orvo::XorBytes;

constexpr uint32_t kMinTagLength = 4;
constexpr uint32_t kDirectIvLength = 12;
constexpr uint8_t kReduction = 0xE1; // x^128 = x^7 + x^2 + x + 1, bits reflected

// A block that may hold key material; it is wiped when its scope ends.
struct Block {
    uint8_t bytes[kBlockSize] = {};
    ~Block() { orvo::Wipe(bytes, sizeof bytes); }
};

struct Message {
    const uint8_t* text; // enciphered
    uint32_t length;
    const uint8_t* additional;
    uint32_t additionalLength;
};

// Ones where the bit is set, else zeros. The empty statement hides that there are no others: a compiler that
// knows makes a branch on the bit out of a mask.
uint8_t MaskOf(uint32_t bit) {
    uint32_t mask = 0u - bit;
    __asm__("" : "+r"(mask));
    return static_cast<uint8_t>(mask);
}

// Multiplies by x in the field: a right shift, because the standard reflects the bits.
void TimesXReflected(uint8_t* block) {
    const uint8_t reduction = kReduction & MaskOf(block[kBlockSize - 1] & 1u);
    for (size_t i = kBlockSize - 1; i > 0; --i) {
        block[i] = static_cast<uint8_t>(block[i] >> 1 | block[i - 1] << 7);
    }
    // A mask instead of a branch: the bit depends on the key.
    block[0] = static_cast<uint8_t>(block[0] >> 1 ^ reduction);
}

// hash := (hash XOR block) * key in GF(2^128).
void GhashStep(uint8_t* hash, const uint8_t* block, const uint8_t* key) {
    Block product;
    Block operand;
    XorBlock(operand.bytes, hash);
    XorBlock(operand.bytes, block);
    for (size_t i = 0; i < 8 * kBlockSize; ++i) {
        const uint8_t mask = MaskOf(key[i / 8] >> (7 - i % 8) & 1u);
        for (size_t k = 0; k < kBlockSize; ++k) {
            product.bytes[k] = static_cast<uint8_t>(product.bytes[k] ^ (operand.bytes[k] & mask));
        }
        TimesXReflected(operand.bytes);
    }
    for (size_t k = 0; k < kBlockSize; ++k) {
        hash[k] = product.bytes[k];
    }
}

// Continues a hash over a buffer, the last block zero-padded. A block whose copy is refused is
// skipped.
void Ghash(uint8_t* hash, const uint8_t* data, uint32_t length, const uint8_t* key) {
    for (uint32_t at = 0; at < length;) {
        const uint32_t count = std::min(length - at, uint32_t{kBlockSize});
        Block block;
        if (memcpy_s(block.bytes, kBlockSize, data + at, count) == 0) {
            GhashStep(hash, block.bytes, key);
        }
        at += count;
    }
}

void PutBitLength(uint8_t* to, uint32_t byteLength) {
    const uint32_t bits = byteLength * 8;
    for (uint32_t i = 0; i < 4; ++i) {
        to[4 + i] = static_cast<uint8_t>(bits >> (24 - 8 * i));
    }
}

// One step over two 64-bit lengths, whose upper halves are 0.
void GhashLengths(uint8_t* hash, uint32_t first, uint32_t second, const uint8_t* key) {
    Block lengths;
    PutBitLength(lengths.bytes, first);
    PutBitLength(lengths.bytes + 8, second);
    GhashStep(hash, lengths.bytes, key);
}

// A carry is added, not asked for: where the IV has other than 12 bytes, the counter depends on the key.
void Inc32(uint8_t* counter) {
    uint32_t sum = 1;
    for (size_t i = kBlockSize; i > kBlockSize - 4; --i) {
        sum += counter[i - 1];
        counter[i - 1] = static_cast<uint8_t>(sum);
        sum >>= 8;
    }
}

// Enciphers or deciphers. Output may be the input itself.
void Gctr(const Block& firstCounter, const uint8_t* in, uint32_t length, uint8_t* out) {
    Block counter = firstCounter;
    for (uint32_t at = 0; at < length;) {
        const uint32_t count = std::min(length - at, uint32_t{kBlockSize});
        Block keyStream;
        (void)wb_aes_encrypt(counter.bytes, keyStream.bytes);
        for (uint32_t i = 0; i < count; ++i) {
            out[at + i] = static_cast<uint8_t>(in[at + i] ^ keyStream.bytes[i]);
        }
        Inc32(counter.bytes);
        at += count;
    }
}

// What both directions start from.
struct Gcm {
    Block hashKey;
    Block preCounter;
    Block firstCounter;
};

void DerivePreCounter(const uint8_t* iv, uint32_t ivLength, Gcm& gcm) {
    uint8_t* const preCounter = gcm.preCounter.bytes;
    if (ivLength == kDirectIvLength) {
        XorBytes(preCounter, iv, kDirectIvLength);
        preCounter[kBlockSize - 1] = 1;
        return;
    }
    Ghash(preCounter, iv, ivLength, gcm.hashKey.bytes);
    GhashLengths(preCounter, 0, ivLength, gcm.hashKey.bytes);
}

bool Start(const uint8_t* iv, uint32_t ivLength, uint32_t tagLength, Gcm& gcm) {
    if (tagLength < kMinTagLength || tagLength > kBlockSize) {
        return false;
    }
    const Block zero;
    (void)wb_aes_encrypt(zero.bytes, gcm.hashKey.bytes);
    DerivePreCounter(iv, ivLength, gcm);
    if (memcpy_s(gcm.firstCounter.bytes, kBlockSize, gcm.preCounter.bytes, kBlockSize) != 0) {
        return false;
    }
    Inc32(gcm.firstCounter.bytes);
    return true;
}

void ComputeTag(const Gcm& gcm, const Message& message, Block& tag) {
    Block hash;
    const uint8_t* key = gcm.hashKey.bytes;
    Ghash(hash.bytes, message.additional, message.additionalLength, key);
    Ghash(hash.bytes, message.text, message.length, key);
    GhashLengths(hash.bytes, message.additionalLength, message.length, key);
    (void)wb_aes_encrypt(gcm.preCounter.bytes, tag.bytes);
    XorBlock(tag.bytes, hash.bytes);
}

// Takes the same time wherever the tags differ, so that a forger learns nothing from it.
bool TagsEqual(const uint8_t* a, const uint8_t* b, uint32_t length) {
    uint32_t difference = 0;
    for (uint32_t i = 0; i < length; ++i) {
        difference |= static_cast<uint32_t>(a[i] ^ b[i]);
    }
    return difference == 0;
}

} // namespace

int32_t wb_aes_encrypt_gcm(const uint8_t* iv, uint32_t ivLength, const uint8_t* plaintext,
                           uint32_t length, uint8_t* ciphertext, const uint8_t* additional,
                           uint32_t additionalLength, uint8_t* tag, uint32_t tagLength) {
    Gcm gcm;
    if (!Start(iv, ivLength, tagLength, gcm)) {
        return -1;
    }
    Gctr(gcm.firstCounter, plaintext, length, ciphertext);
    Block fullTag;
    ComputeTag(gcm, {ciphertext, length, additional, additionalLength}, fullTag);
    return memcpy_s(tag, tagLength, fullTag.bytes, tagLength) == 0 ? 0 : -1;
}

int32_t wb_aes_decrypt_gcm(const uint8_t* iv, uint32_t ivLength, const uint8_t* ciphertext,
                           uint32_t length, uint8_t* plaintext, const uint8_t* additional,
                           uint32_t additionalLength, const uint8_t* tag, uint32_t tagLength) {
    Gcm gcm;
    if (!Start(iv, ivLength, tagLength, gcm)) {
        return -1;
    }
    Block fullTag;
    ComputeTag(gcm, {ciphertext, length, additional, additionalLength}, fullTag);
    if (!TagsEqual(fullTag.bytes, tag, tagLength)) {
        return -1;
    }
    Gctr(gcm.firstCounter, ciphertext, length, plaintext);
    return 0;
}
