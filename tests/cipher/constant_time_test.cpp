// SPDX-License-Identifier: MIT
//
// No branch and no address depends on a secret. Secrets are bytes that valgrind takes for undefined: it follows
// them through all arithmetic and reports every jump and every address that is made of them. The library's
// own cipher looks secrets up in tables, so the program has one of its own that only computes.
//
// Run by itself the program has nothing to count with and skips its tests.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "cipher/wipe.h"
#include "orvo/bounded_memory.h"
#include "orvo/cipher.h"
#include "orvo/kova_mpi.h"

#if __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#define ORVO_HAVE_MEMCHECK 1
#else
#define ORVO_HAVE_MEMCHECK 0
#endif

namespace {

bool IsWatched() {
#if ORVO_HAVE_MEMCHECK
    return RUNNING_ON_VALGRIND != 0;
#else
    return false;
#endif
}

void MakeSecret(void* data, size_t size) {
#if ORVO_HAVE_MEMCHECK
    VALGRIND_MAKE_MEM_UNDEFINED(data, size);
#else
    (void)data;
    (void)size;
#endif
}

void MakePublic(void* data, size_t size) {
#if ORVO_HAVE_MEMCHECK
    VALGRIND_MAKE_MEM_DEFINED(data, size);
#else
    (void)data;
    (void)size;
#endif
}

// How many of the bytes depend on a secret.
size_t SecretBytes(const void* data, size_t size) {
    std::vector<uint8_t> bits(size);
#if ORVO_HAVE_MEMCHECK
    EXPECT_EQ(VALGRIND_GET_VBITS(data, bits.data(), size), 1u);
#else
    (void)data;
#endif
    size_t count = 0;
    for (const uint8_t byte : bits) {
        count += byte != 0;
    }
    return count;
}

// How often a jump or an address depended on a secret while the body ran.
template <typename Body>
unsigned Reports(const Body& body) {
#if ORVO_HAVE_MEMCHECK
    const unsigned before = VALGRIND_COUNT_ERRORS;
    body();
    return VALGRIND_COUNT_ERRORS - before;
#else
    body();
    return 0;
#endif
}

volatile uint8_t lookedAt; // so that no compiler leaves out what has no other use

// Not inlined, so that the compiler knows no value of theirs.
__attribute__((noinline)) bool EqualWithBranches(const uint8_t* a, const uint8_t* b, size_t size) {
    for (size_t i = 0; i < size; ++i) {
        if (a[i] != b[i]) {
            return false;
        }
    }
    return true;
}

__attribute__((noinline)) uint8_t LookedUp(const uint8_t* table, uint8_t secret) {
    return table[secret];
}

using Block = std::array<uint8_t, 16>;

class ConstantTime : public testing::Test {
  protected:
    void SetUp() override {
        if (!IsWatched()) {
            GTEST_SKIP()
                << "nobody follows the secrets; run under valgrind, compiled with its header";
        }
    }
};

// A message with everything about it secret but its sizes.
struct Message {
    std::vector<uint8_t> iv;
    std::vector<uint8_t> additional;
    std::vector<uint8_t> plain;
    std::vector<uint8_t> enciphered;
    Block tag = {};

    Message(size_t ivSize, size_t additionalSize, size_t size)
        : iv(ivSize, 0xFF), additional(additionalSize, 2), plain(size, 3), enciphered(size) {
        MakeSecret(additional.data(), additionalSize);
        MakeSecret(plain.data(), size);
    }
    int32_t Encipher() {
        return wb_aes_encrypt_gcm(iv.data(), static_cast<uint32_t>(iv.size()), plain.data(),
                                  static_cast<uint32_t>(plain.size()), enciphered.data(),
                                  additional.data(), static_cast<uint32_t>(additional.size()),
                                  tag.data(), 16);
    }
    int32_t Decipher(const Block& expected, uint32_t tagSize) {
        return wb_aes_decrypt_gcm(iv.data(), static_cast<uint32_t>(iv.size()), enciphered.data(),
                                  static_cast<uint32_t>(enciphered.size()), plain.data(),
                                  additional.data(), static_cast<uint32_t>(additional.size()),
                                  expected.data(), tagSize);
    }
};

// ---- That the method finds what it looks for

TEST_F(ConstantTime, AComparisonWithBranchesIsFound) {
    Block a = {1, 2, 3};
    const Block b = a;
    MakeSecret(a.data(), a.size());
    EXPECT_EQ(Reports([&] { lookedAt = EqualWithBranches(a.data(), b.data(), 16); }), 16u);
}

TEST_F(ConstantTime, ALookUpIsFound) {
    const std::array<uint8_t, 256> table = {};
    Block secret = {1};
    MakeSecret(secret.data(), 1);
    EXPECT_EQ(Reports([&] { lookedAt = LookedUp(table.data(), secret[0]); }), 1u);
}

// The key expansion looks bytes of the key up, which is what docs/SECURITY.md says of it.
TEST_F(ConstantTime, TheKeyExpansionIsNot) {
    Block key = {1, 2, 3};
    AES_ctx context;
    MakeSecret(key.data(), key.size());
    EXPECT_GT(Reports([&] { AES_init_ctx(&context, key.data()); }), 0u);
}

// ---- What is promised

// The rounds, once the keys are expanded; without the processor's instructions they look bytes up.
TEST_F(ConstantTime, TheRoundsAreWhereTheProcessorHasInstructionsForThem) {
#if defined(__x86_64__)
    const bool hasInstructions = __builtin_cpu_supports("aes") != 0;
#else
    const bool hasInstructions = false;
#endif
    Block key = {1, 2, 3};
    AES_ctx context;
    AES_init_ctx_iv(&context, key.data(), key.data());
    MakeSecret(context.roundKeys, sizeof context.roundKeys);
    std::vector<uint8_t> text(320, 5);
    MakeSecret(text.data(), text.size());
    const unsigned reports = Reports([&] {
        AES_ECB_encrypt(&context, text.data());
        AES_ECB_decrypt(&context, text.data());
        AES_CBC_encrypt_buffer(&context, text.data(), 320);
        AES_CBC_decrypt_buffer(&context, text.data(), 320);
    });
    EXPECT_EQ(reports == 0, hasInstructions) << reports << " reports";
    EXPECT_EQ(SecretBytes(text.data(), text.size()), text.size());
}

TEST_F(ConstantTime, HashCounterAndTagHaveNoBranchesOnSecrets) {
    for (const size_t ivSize : {12u, 1u, 8u, 16u, 60u}) {
        for (const size_t size : {0u, 1u, 16u, 100u}) {
            Message message(ivSize, size / 2, size);
            int32_t status = -1;
            EXPECT_EQ(Reports([&] { status = message.Encipher(); }), 0u)
                << "IV of " << ivSize << ", text of " << size;
            MakePublic(&status, sizeof status);
            EXPECT_EQ(status, 0);
            EXPECT_EQ(SecretBytes(message.tag.data(), 16), 16u);
            EXPECT_EQ(SecretBytes(message.enciphered.data(), size), size);
        }
    }
}

// The one jump is on the answer, whichever byte is the one that differs, and if none is.
TEST_F(ConstantTime, TagsAreComparedWithoutBranchesOnTheirBytes) {
    Message message(12, 20, 40);
    ASSERT_EQ(message.Encipher(), 0);
    for (const uint32_t tagSize : {4u, 12u, 16u}) {
        for (uint32_t wrong = 0; wrong <= tagSize; ++wrong) {
            Block expected = message.tag;
            if (wrong < tagSize) {
                expected[wrong] = static_cast<uint8_t>(expected[wrong] ^ 1);
            }
            int32_t status = 5;
            EXPECT_EQ(Reports([&] { status = message.Decipher(expected, tagSize); }), 1u)
                << "byte " << wrong << " of " << tagSize;
            MakePublic(&status, sizeof status);
            EXPECT_EQ(status, wrong < tagSize ? -1 : 0);
        }
    }
}

TEST_F(ConstantTime, WipingDoesNotLookAtWhatItWipes) {
    for (const size_t size : {1u, 15u, 16u, 64u, 176u, 1000u}) {
        std::vector<uint8_t> secret(size, 7);
        MakeSecret(secret.data(), size);
        EXPECT_EQ(Reports([&] { orvo::Wipe(secret.data(), size); }), 0u);
        EXPECT_EQ(SecretBytes(secret.data(), size), 0u);
        EXPECT_EQ(secret, std::vector<uint8_t>(size));
        MakeSecret(secret.data(), size);
        EXPECT_EQ(Reports([&] { ASSERT_EQ(memset_s(secret.data(), size, 0, size), 0); }), 0u);
        EXPECT_EQ(SecretBytes(secret.data(), size), 0u);
    }
}

TEST_F(ConstantTime, CopyingDoesNotLookAtWhatItCopies) {
    std::vector<uint8_t> from(100, 7);
    std::vector<uint8_t> to(100);
    MakeSecret(from.data(), from.size());
    EXPECT_EQ(Reports([&] { ASSERT_EQ(memcpy_s(to.data(), 100, from.data(), 100), 0); }), 0u);
    EXPECT_EQ(SecretBytes(to.data(), to.size()), 100u);
}

} // namespace

// Stands for the platform's: what it makes of any block is secret, and it looks nothing up.
extern "C" int32_t wb_aes_encrypt(const uint8_t in[16], uint8_t out[16]) {
    Block block;
    std::memcpy(block.data(), in, 16);
    for (size_t round = 0; round < 4; ++round) {
        for (size_t i = 0; i < 16; ++i) {
            const unsigned mixed = block[i] * 0x9Du + block[(i + 5) % 16] * 0x2Fu + 0x63u + i;
            block[i] = static_cast<uint8_t>(mixed ^ (mixed >> 3));
        }
    }
    MakeSecret(block.data(), 16);
    std::memcpy(out, block.data(), 16);
    return 0;
}
