// SPDX-License-Identifier: MIT
//
// AES-128 by words: a column of the state is one 32-bit word, row 0 in its low byte. Substitution
// goes through the two 256-byte boxes, column mixing works on the four bytes of a word at once.
#include <atomic>
#include <bit>
#include <cstdlib>
#include <cstring>

#include "cipher/aes_routines.h"
#include "cipher/aes_tables.h"
#include "cipher/blocks.h"
#include "cipher/wipe.h"
#include "orvo/cipher.h"

#if defined(ORVO_HAVE_AES_INSTRUCTIONS)
#include <cpuid.h>
#endif

namespace orvo {
namespace {

static_assert(sizeof(AES_ctx) == 192);

struct State {
    uint32_t column[4];
};

// TimesX() on the four bytes of a word.
uint32_t TimesX4(uint32_t word) {
    return ((word & 0x7f7f7f7fu) << 1) ^ (((word >> 7) & 0x01010101u) * 0x1bu);
}

uint32_t MixColumn(uint32_t a) {
    const uint32_t b = std::rotr(a, 8);
    return TimesX4(a ^ b) ^ b ^ std::rotr(a, 16) ^ std::rotr(a, 24);
}

// The inverse matrix is the forward one times a matrix that only adds 4 * (a[i] + a[i + 2]).
uint32_t InverseMixColumn(uint32_t a) {
    return MixColumn(a ^ TimesX4(TimesX4(a ^ std::rotr(a, 16))));
}

uint32_t Substitute(const uint8_t box[256], uint32_t row0, uint32_t row1, uint32_t row2,
                    uint32_t row3) {
    return box[row0 & 0xff] | static_cast<uint32_t>(box[(row1 >> 8) & 0xff]) << 8 |
           static_cast<uint32_t>(box[(row2 >> 16) & 0xff]) << 16 |
           static_cast<uint32_t>(box[row3 >> 24]) << 24;
}

// Substitution and row shift: row k of a column comes from the k-th column to the right.
State SubstituteShift(const State& s) {
    const uint8_t* box = kAesSboxes.forward;
    const uint32_t* c = s.column;
    return {{Substitute(box, c[0], c[1], c[2], c[3]), Substitute(box, c[1], c[2], c[3], c[0]),
             Substitute(box, c[2], c[3], c[0], c[1]), Substitute(box, c[3], c[0], c[1], c[2])}};
}

// The inverse of both: row k of a column comes from the k-th column to the left.
State InverseSubstituteShift(const State& s) {
    const uint8_t* box = kAesSboxes.inverse;
    const uint32_t* c = s.column;
    return {{Substitute(box, c[0], c[3], c[2], c[1]), Substitute(box, c[1], c[0], c[3], c[2]),
             Substitute(box, c[2], c[1], c[0], c[3]), Substitute(box, c[3], c[2], c[1], c[0])}};
}

void AddRoundKey(State* s, const uint8_t* roundKeys, int round) {
    const uint8_t* key = roundKeys + 16 * round;
    for (uint32_t& column : s->column) {
        column ^= LoadWord(key);
        key += 4;
    }
}

State LoadBlock(const uint8_t* block) {
    return {{LoadWord(block), LoadWord(block + 4), LoadWord(block + 8), LoadWord(block + 12)}};
}

void StoreBlock(uint8_t* block, const State& s) {
    for (int i = 0; i < 4; ++i) {
        StoreWord(block + 4 * i, s.column[i]);
    }
}

void EncryptBlock(const uint8_t* roundKeys, uint8_t* block) {
    State s = LoadBlock(block);
    AddRoundKey(&s, roundKeys, 0);
    for (int round = 1; round < kAesRounds; ++round) {
        s = SubstituteShift(s);
        for (uint32_t& column : s.column) {
            column = MixColumn(column);
        }
        AddRoundKey(&s, roundKeys, round);
    }
    s = SubstituteShift(s);
    AddRoundKey(&s, roundKeys, kAesRounds);
    StoreBlock(block, s);
    Wipe(&s, sizeof s);
}

void DecryptBlock(const uint8_t* roundKeys, uint8_t* block) {
    State s = LoadBlock(block);
    AddRoundKey(&s, roundKeys, kAesRounds);
    for (int round = kAesRounds - 1; round > 0; --round) {
        s = InverseSubstituteShift(s);
        AddRoundKey(&s, roundKeys, round);
        for (uint32_t& column : s.column) {
            column = InverseMixColumn(column);
        }
    }
    s = InverseSubstituteShift(s);
    AddRoundKey(&s, roundKeys, 0);
    StoreBlock(block, s);
    Wipe(&s, sizeof s);
}

void ExpandKey(uint8_t* roundKeys, const uint8_t* key) {
    std::memcpy(roundKeys, key, kBlockSize);
    uint8_t roundConstant = 1;
    for (int i = 4; i < 4 * (kAesRounds + 1); ++i) {
        uint32_t word = LoadWord(roundKeys + 4 * (i - 1));
        if (i % 4 == 0) {
            word = std::rotr(word, 8);
            word = Substitute(kAesSboxes.forward, word, word, word, word) ^ roundConstant;
            roundConstant = TimesX(roundConstant);
        }
        StoreWord(roundKeys + 4 * i, word ^ LoadWord(roundKeys + 4 * (i - 4)));
    }
}

// Adds 1 to the 128-bit big-endian counter.
void Increment(uint8_t* counter) {
    for (int i = 15; i >= 0 && ++counter[i] == 0; --i) {
    }
}

void DecryptCbc(const uint8_t* roundKeys, uint8_t* iv, uint8_t* buffer, size_t blocks) {
    for (; blocks > 0; --blocks, buffer += kBlockSize) {
        uint8_t cipherText[kBlockSize];
        std::memcpy(cipherText, buffer, sizeof cipherText);
        DecryptBlock(roundKeys, buffer);
        XorBlock(buffer, iv);
        std::memcpy(iv, cipherText, sizeof cipherText);
    }
}

constexpr AesRoutines kPlainRoutines{EncryptBlock, DecryptBlock, DecryptCbc};

constexpr AesRoutines kLookUpRoutines{EncryptBlock, DecryptBlockByLookUp, DecryptCbcByLookUp};

#if defined(ORVO_HAVE_AES_INSTRUCTIONS)
constexpr AesRoutines kInstructions{instructions::EncryptBlock, instructions::DecryptBlock,
                                    instructions::DecryptCbc};
constexpr AesRoutines kWideInstructions{instructions::EncryptBlock, instructions::DecryptBlock,
                                        wide_instructions::DecryptCbc};

bool HasInstructions() { return __builtin_cpu_supports("aes"); }
bool HasWideInstructions() {
    constexpr unsigned kVaes = 1u << 9; // CPUID 7; not every compiler knows it by name
    unsigned a, b, c, d;
    return HasInstructions() && __builtin_cpu_supports("avx512f") &&
           __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (c & kVaes) != 0;
}
#endif

bool Always() { return true; }

struct Cipher {
    const char* name;
    const AesRoutines& routines;
    bool (*available)();
};

// Best first. The plain one is the definition, for tests to compare with and measurements to start
// from; the look-ups are what other processors run.
constexpr Cipher kCiphers[] = {
#if defined(ORVO_HAVE_AES_INSTRUCTIONS)
    {"wide_instructions", kWideInstructions, HasWideInstructions},
    {"instructions", kInstructions, HasInstructions},
#endif
    {"look_up", kLookUpRoutines, Always},
    {"plain", kPlainRoutines, Always},
};

// The one that the environment names, so that each can be measured and tested on one machine, or
// else the best.
const AesRoutines* Choose() {
    const char* wanted = std::getenv("ORVO_FR_CIPHER");
    const AesRoutines* best = nullptr;
    for (const Cipher& cipher : kCiphers) {
        if (!cipher.available()) {
            continue;
        }
        if (wanted != nullptr && std::strcmp(cipher.name, wanted) == 0) {
            return &cipher.routines;
        }
        best = best == nullptr ? &cipher.routines : best;
    }
    return best;
}

const AesRoutines& Routines() {
    // Two threads may both find nothing and choose; they choose the same.
    static std::atomic<const AesRoutines*> chosen{nullptr};
    const AesRoutines* routines = chosen.load(std::memory_order_acquire);
    if (routines == nullptr) {
        routines = Choose();
        chosen.store(routines, std::memory_order_release);
    }
    return *routines;
}

} // namespace
} // namespace orvo

void AES_init_ctx(AES_ctx* ctx, const uint8_t key[16]) { orvo::ExpandKey(ctx->roundKeys, key); }

void AES_init_ctx_iv(AES_ctx* ctx, const uint8_t key[16], const uint8_t iv[16]) {
    orvo::ExpandKey(ctx->roundKeys, key);
    std::memcpy(ctx->iv, iv, sizeof ctx->iv);
}

void AES_ctx_set_iv(AES_ctx* ctx, const uint8_t iv[16]) {
    std::memcpy(ctx->iv, iv, sizeof ctx->iv);
}

void AES_ECB_encrypt(const AES_ctx* ctx, uint8_t block[16]) {
    orvo::Routines().encryptBlock(ctx->roundKeys, block);
}

void AES_ECB_decrypt(const AES_ctx* ctx, uint8_t block[16]) {
    orvo::Routines().decryptBlock(ctx->roundKeys, block);
}

void AES_CBC_encrypt_buffer(AES_ctx* ctx, uint8_t* buffer, uint32_t length) {
    const uint8_t* chain = ctx->iv;
    // 64-bit, since the step behind the last block may lie beyond 2^32.
    for (uint64_t i = 0; i < length; i += orvo::kBlockSize) {
        uint8_t* block = buffer + i;
        orvo::XorBlock(block, chain);
        orvo::Routines().encryptBlock(ctx->roundKeys, block);
        chain = block;
    }
    if (chain != ctx->iv) {
        std::memcpy(ctx->iv, chain, sizeof ctx->iv);
    }
}

void AES_CBC_decrypt_buffer(AES_ctx* ctx, uint8_t* buffer, uint32_t length) {
    const uint64_t blocks = (uint64_t{length} + orvo::kBlockSize - 1) / orvo::kBlockSize;
    orvo::Routines().decryptCbc(ctx->roundKeys, ctx->iv, buffer, static_cast<size_t>(blocks));
}

void AES_CTR_xcrypt_buffer(AES_ctx* ctx, uint8_t* buffer, uint32_t length) {
    uint8_t keyStream[orvo::kBlockSize];
    uint32_t position = orvo::kBlockSize;
    for (uint32_t i = 0; i < length; ++i) {
        if (position == orvo::kBlockSize) {
            std::memcpy(keyStream, ctx->iv, sizeof keyStream);
            orvo::Routines().encryptBlock(ctx->roundKeys, keyStream);
            orvo::Increment(ctx->iv);
            position = 0;
        }
        buffer[i] = static_cast<uint8_t>(buffer[i] ^ keyStream[position]);
        ++position;
    }
    orvo::Wipe(keyStream, sizeof keyStream);
}
