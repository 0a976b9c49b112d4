// SPDX-License-Identifier: MIT
#include "cipher/plain_gcm.h"

#include <algorithm>
#include <bitset>
#include <cstddef>

#include "orvo/kova_mpi.h"

namespace orvo_reference {
namespace {

using Polynomial = std::bitset<256>; // bit i is the coefficient of x^i

// The first bit of a block, the highest of its first byte, is the coefficient of x^0.
Polynomial ToPolynomial(const Block& block) {
    Polynomial p;
    for (size_t i = 0; i < 128; ++i) {
        p[i] = (block[i / 8] >> (7 - i % 8) & 1) != 0;
    }
    return p;
}

Block ToBlock(const Polynomial& p) {
    Block block = {};
    for (size_t i = 0; i < 128; ++i) {
        block[i / 8] = static_cast<uint8_t>(block[i / 8] | (p[i] ? 0x80 >> i % 8 : 0));
    }
    return block;
}

Polynomial Times(const Polynomial& a, const Polynomial& b) {
    Polynomial product;
    for (size_t i = 0; i < 128; ++i) {
        if (a[i]) {
            product ^= b << i;
        }
    }
    const Polynomial modulus = Polynomial(0x87) | Polynomial(1) << 128;
    for (size_t degree = 255; degree >= 128; --degree) {
        if (product[degree]) {
            product ^= modulus << (degree - 128);
        }
    }
    return product;
}

// a^(2^128 - 2), the exponent's bits all ones but the last.
Polynomial Inverse(const Polynomial& a) {
    Polynomial result(1);
    Polynomial power = a;
    for (int i = 1; i < 128; ++i) {
        power = Times(power, power);
        result = Times(result, power);
    }
    return result;
}

Block Encipher(const Block& block) {
    Block out;
    wb_aes_encrypt(block.data(), out.data());
    return out;
}

Polynomial HashKey() { return ToPolynomial(Encipher(Block{})); }

void AppendPadded(Bytes& text, const Bytes& part) {
    text.insert(text.end(), part.begin(), part.end());
    text.resize((text.size() + 15) / 16 * 16);
}

void AppendBitLength(Bytes& text, size_t byteCount) {
    const uint64_t bits = uint64_t{byteCount} * 8;
    for (int shift = 56; shift >= 0; shift -= 8) {
        text.push_back(static_cast<uint8_t>(bits >> shift));
    }
}

Block Hash(const Bytes& blocks) {
    const Polynomial key = HashKey();
    Polynomial sum;
    for (size_t at = 0; at < blocks.size(); at += 16) {
        Block block;
        std::copy_n(blocks.begin() + static_cast<ptrdiff_t>(at), 16, block.begin());
        sum = Times(sum ^ ToPolynomial(block), key);
    }
    return ToBlock(sum);
}

Block PreCounter(const Bytes& iv) {
    if (iv.size() == 12) {
        Block block = {};
        std::copy(iv.begin(), iv.end(), block.begin());
        block[15] = 1;
        return block;
    }
    Bytes text;
    AppendPadded(text, iv);
    AppendBitLength(text, 0);
    AppendBitLength(text, iv.size());
    return Hash(text);
}

// The last 32 bits, modulo 2^32.
Block CounterAfter(const Block& start, uint32_t steps) {
    uint32_t low = 0;
    for (size_t i = 12; i < 16; ++i) {
        low = low << 8 | start[i];
    }
    low += steps;
    Block counter = start;
    for (size_t i = 16; i-- > 12; low >>= 8) {
        counter[i] = static_cast<uint8_t>(low);
    }
    return counter;
}

} // namespace

Sealed SealGcm(const Bytes& iv, const Bytes& plaintext, const Bytes& additional) {
    const Block start = PreCounter(iv);
    Sealed sealed;
    for (size_t i = 0; i < plaintext.size(); ++i) {
        const Block stream = Encipher(CounterAfter(start, static_cast<uint32_t>(i / 16 + 1)));
        sealed.ciphertext.push_back(plaintext[i] ^ stream[i % 16]);
    }
    Bytes text;
    AppendPadded(text, additional);
    AppendPadded(text, sealed.ciphertext);
    AppendBitLength(text, additional.size());
    AppendBitLength(text, plaintext.size());
    const Block hash = Hash(text);
    const Block mask = Encipher(start);
    for (size_t i = 0; i < 16; ++i) {
        sealed.tag[i] = hash[i] ^ mask[i];
    }
    return sealed;
}

Bytes IvForPreCounter(const Block& preCounter) {
    // preCounter = ((iv * H) + length block) * H
    Block length = {};
    length[15] = 128;
    const Polynomial inverse = Inverse(HashKey());
    const Polynomial hashed = Times(ToPolynomial(preCounter), inverse) ^ ToPolynomial(length);
    const Block iv = ToBlock(Times(hashed, inverse));
    return Bytes(iv.begin(), iv.end());
}

} // namespace orvo_reference
