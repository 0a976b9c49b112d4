// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "hex.h"
#include "orvo/cipher.h"
#include "support/guarded_buffer.h"
#include "support/random.h"

namespace {

using orvo_test::GuardedBuffer;
using orvo_test::Hex;
using Bytes = std::vector<uint8_t>;

AES_ctx Context(const std::string& key) {
    AES_ctx ctx;
    AES_init_ctx(&ctx, Hex(key).data());
    return ctx;
}

AES_ctx Context(const std::string& key, const std::string& iv) {
    AES_ctx ctx;
    AES_init_ctx_iv(&ctx, Hex(key).data(), Hex(iv).data());
    return ctx;
}

Bytes Iv(const AES_ctx& ctx) { return {ctx.iv, ctx.iv + 16}; }

Bytes Join(const std::vector<std::string>& lines) {
    std::string all;
    for (const std::string& line : lines) {
        all += line;
    }
    return Hex(all);
}

uint32_t Length(const Bytes& bytes) { return static_cast<uint32_t>(bytes.size()); }

// The example message and key that the modes' recommendation uses throughout.
const char* const kKey = "2b7e151628aed2a6abf7158809cf4f3c";
const char* const kIv = "000102030405060708090a0b0c0d0e0f";
const char* const kCounter = "f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff";
const std::vector<std::string> kPlain = {
    "6bc1bee22e409f96e93d7e117393172a", "ae2d8a571e03ac9c9eb76fac45af8e51",
    "30c81c46a35ce411e5fbc1191a0a52ef", "f69f2445df4f9b17ad2b417be66c3710"};
const std::vector<std::string> kEcb = {
    "3ad77bb40d7a3660a89ecaf32466ef97", "f5d3d58503b9699de785895a96fdbaaf",
    "43b1cd7f598ece23881b00e3ed030688", "7b0c785e27e8ad3f8223207104725dd4"};
const std::vector<std::string> kCbc = {
    "7649abac8119b246cee98e9b12e9197d", "5086cb9b507219ee95db113a917678b2",
    "73bed6b8e3c1743b7116e69e22229516", "3ff1caa1681fac09120eca307586e1a7"};
const std::vector<std::string> kCtr = {
    "874d6191b620e3261bef6864990db6ce", "9806f66b7970fdff8617187bb9fffdff",
    "5ae4df3edbd5d35e5b4f09020db03eab", "1e031dda2fbe03d1792170a0f3009cee"};

TEST(AesKeyExpansion, MatchesTheStandardsExample) {
    const AES_ctx ctx = Context(kKey);
    EXPECT_EQ(Bytes(ctx.roundKeys, ctx.roundKeys + 16), Hex(kKey));
    EXPECT_EQ(Bytes(ctx.roundKeys + 16, ctx.roundKeys + 32),
              Hex("a0fafe1788542cb123a339392a6c7605"));
    EXPECT_EQ(Bytes(ctx.roundKeys + 160, ctx.roundKeys + 176),
              Hex("d014f9a8c9ee2589e13f0cc8b6630ca6"));
}

TEST(AesContext, Has192BytesWithTheRoundKeysFirstAndTheIvLast) {
    EXPECT_EQ(sizeof(AES_ctx), 192u);
    EXPECT_EQ(offsetof(AES_ctx, roundKeys), 0u);
    EXPECT_EQ(offsetof(AES_ctx, iv), 176u);
}

TEST(AesContext, ExpandingAKeyLeavesTheIv) {
    AES_ctx ctx = Context(kKey, kIv);
    AES_init_ctx(&ctx, Hex(kCounter).data());
    EXPECT_EQ(Iv(ctx), Hex(kIv));
}

TEST(AesContext, SettingTheIvLeavesTheKey) {
    AES_ctx ctx = Context(kKey, kIv);
    const Bytes keys(ctx.roundKeys, ctx.roundKeys + 176);
    AES_ctx_set_iv(&ctx, Hex(kCounter).data());
    EXPECT_EQ(Iv(ctx), Hex(kCounter));
    EXPECT_EQ(Bytes(ctx.roundKeys, ctx.roundKeys + 176), keys);
}

TEST(AesEcb, MatchesTheStandardsAppendixC1) {
    const AES_ctx ctx = Context("000102030405060708090a0b0c0d0e0f");
    Bytes block = Hex("00112233445566778899aabbccddeeff");
    AES_ECB_encrypt(&ctx, block.data());
    EXPECT_EQ(block, Hex("69c4e0d86a7b0430d8cdb78070b4c55a"));
    AES_ECB_decrypt(&ctx, block.data());
    EXPECT_EQ(block, Hex("00112233445566778899aabbccddeeff"));
}

TEST(AesEcb, MatchesTheStandardsAppendixB) {
    const AES_ctx ctx = Context(kKey);
    Bytes block = Hex("3243f6a8885a308d313198a2e0370734");
    AES_ECB_encrypt(&ctx, block.data());
    EXPECT_EQ(block, Hex("3925841d02dc09fbdc118597196a0b32"));
}

TEST(AesEcb, MatchesTheModesVectors) {
    const AES_ctx ctx = Context(kKey);
    for (size_t i = 0; i < kPlain.size(); ++i) {
        Bytes block = Hex(kPlain[i]);
        AES_ECB_encrypt(&ctx, block.data());
        EXPECT_EQ(block, Hex(kEcb[i]));
        AES_ECB_decrypt(&ctx, block.data());
        EXPECT_EQ(block, Hex(kPlain[i]));
    }
}

TEST(AesEcb, TouchesItsBlockOnly) {
    const AES_ctx ctx = Context(kKey);
    for (const auto place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
        GuardedBuffer block(16, place);
        std::ranges::copy(Hex(kPlain[0]), block.bytes());
        AES_ECB_encrypt(&ctx, block.bytes());
        EXPECT_EQ(Bytes(block.bytes(), block.bytes() + 16), Hex(kEcb[0]));
        AES_ECB_decrypt(&ctx, block.bytes());
        EXPECT_EQ(Bytes(block.bytes(), block.bytes() + 16), Hex(kPlain[0]));
    }
}

TEST(AesCbc, EncryptionMatchesTheModesVectors) {
    AES_ctx ctx = Context(kKey, kIv);
    Bytes text = Join(kPlain);
    AES_CBC_encrypt_buffer(&ctx, text.data(), Length(text));
    EXPECT_EQ(text, Join(kCbc));
    EXPECT_EQ(Iv(ctx), Hex(kCbc[3]));
}

TEST(AesCbc, DecryptionMatchesTheModesVectors) {
    AES_ctx ctx = Context(kKey, kIv);
    Bytes text = Join(kCbc);
    AES_CBC_decrypt_buffer(&ctx, text.data(), Length(text));
    EXPECT_EQ(text, Join(kPlain));
    EXPECT_EQ(Iv(ctx), Hex(kCbc[3]));
}

TEST(AesCbc, TheChainContinuesInTheNextCall) {
    for (uint32_t first = 16; first < 64; first += 16) {
        AES_ctx ctx = Context(kKey, kIv);
        Bytes text = Join(kPlain);
        AES_CBC_encrypt_buffer(&ctx, text.data(), first);
        AES_CBC_encrypt_buffer(&ctx, text.data() + first, 64 - first);
        EXPECT_EQ(text, Join(kCbc));
        AES_ctx_set_iv(&ctx, Hex(kIv).data());
        AES_CBC_decrypt_buffer(&ctx, text.data(), first);
        AES_CBC_decrypt_buffer(&ctx, text.data() + first, 64 - first);
        EXPECT_EQ(text, Join(kPlain));
    }
}

// Several blocks may be on their way at a time, so every number of them is a case of its own.
TEST(AesCbc, DecryptionOfAnyNumberOfBlocksIsThatOfEachBlock) {
    orvo_test::Random random(1);
    for (uint32_t blocks = 1; blocks <= 70; ++blocks) {
        Bytes text(16 * blocks);
        random.Fill(text.data(), text.size());
        AES_ctx ctx = Context(kKey, kIv);
        Bytes expected = text;
        Bytes chain = Hex(kIv);
        for (size_t at = 0; at < text.size(); at += 16) {
            AES_ECB_decrypt(&ctx, &expected[at]);
            for (size_t i = 0; i < 16; ++i) {
                expected[at + i] = static_cast<uint8_t>(expected[at + i] ^ chain[i]);
                chain[i] = text[at + i];
            }
        }
        for (const auto place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
            GuardedBuffer buffer(text.size(), place);
            std::copy(text.begin(), text.end(), buffer.bytes());
            AES_ctx_set_iv(&ctx, Hex(kIv).data());
            AES_CBC_decrypt_buffer(&ctx, buffer.bytes(), Length(text));
            EXPECT_EQ(Bytes(buffer.bytes(), buffer.bytes() + text.size()), expected) << blocks;
            EXPECT_EQ(Iv(ctx), chain) << blocks;
        }
    }
}

TEST(AesCbc, ALengthOfZeroDoesNothing) {
    AES_ctx ctx = Context(kKey, kIv);
    AES_CBC_encrypt_buffer(&ctx, nullptr, 0);
    AES_CBC_decrypt_buffer(&ctx, nullptr, 0);
    EXPECT_EQ(Iv(ctx), Hex(kIv));
}

TEST(AesCbc, APartialBlockIsProcessedWhole) {
    for (const uint32_t length : {17u, 31u}) {
        AES_ctx ctx = Context(kKey, kIv);
        GuardedBuffer text(32);
        std::ranges::copy(Hex(kPlain[0] + kPlain[1]), text.bytes());
        AES_CBC_encrypt_buffer(&ctx, text.bytes(), length);
        EXPECT_EQ(Bytes(text.bytes(), text.bytes() + 32), Hex(kCbc[0] + kCbc[1]));
        AES_ctx_set_iv(&ctx, Hex(kIv).data());
        AES_CBC_decrypt_buffer(&ctx, text.bytes(), length);
        EXPECT_EQ(Bytes(text.bytes(), text.bytes() + 32), Hex(kPlain[0] + kPlain[1]));
    }
}

TEST(AesCtr, MatchesTheModesVectorsBothWays) {
    AES_ctx ctx = Context(kKey, kCounter);
    Bytes text = Join(kPlain);
    AES_CTR_xcrypt_buffer(&ctx, text.data(), Length(text));
    EXPECT_EQ(text, Join(kCtr));
    AES_ctx_set_iv(&ctx, Hex(kCounter).data());
    AES_CTR_xcrypt_buffer(&ctx, text.data(), Length(text));
    EXPECT_EQ(text, Join(kPlain));
}

TEST(AesCtr, TheNextCallStartsOnTheNextCounterValue) {
    AES_ctx ctx = Context(kKey, kCounter);
    Bytes text = Join(kPlain);
    AES_CTR_xcrypt_buffer(&ctx, text.data(), 5);
    AES_CTR_xcrypt_buffer(&ctx, text.data() + 16, 48);
    Bytes expected = Join(kCtr);
    std::copy_n(Hex(kPlain[0]).begin() + 5, 11, expected.begin() + 5);
    EXPECT_EQ(text, expected);
}

TEST(AesCtr, EveryLengthEnciphersExactlySoManyBytes) {
    for (uint32_t length = 0; length <= 64; ++length) {
        AES_ctx ctx = Context(kKey, kCounter);
        GuardedBuffer text(length);
        std::copy_n(Join(kPlain).begin(), length, text.bytes());
        AES_CTR_xcrypt_buffer(&ctx, text.bytes(), length);
        const Bytes expected = Join(kCtr);
        EXPECT_TRUE(std::equal(text.bytes(), text.bytes() + length, expected.begin())) << length;
    }
}

TEST(AesCtr, ALengthOfZeroLeavesTheCounter) {
    AES_ctx ctx = Context(kKey, kCounter);
    AES_CTR_xcrypt_buffer(&ctx, nullptr, 0);
    EXPECT_EQ(Iv(ctx), Hex(kCounter));
}

TEST(AesCtr, ACounterOfAllOnesWrapsToZero) {
    AES_ctx ctx = Context(kKey, "ffffffffffffffffffffffffffffffff");
    Bytes stream(32, 0);
    AES_CTR_xcrypt_buffer(&ctx, stream.data(), 16);
    EXPECT_EQ(Iv(ctx), Bytes(16, 0));
    AES_CTR_xcrypt_buffer(&ctx, stream.data() + 16, 16);
    Bytes zero(16, 0);
    AES_ECB_encrypt(&ctx, zero.data());
    EXPECT_EQ(Bytes(stream.begin() + 16, stream.end()), zero);
}

TEST(AesCtr, TheCounterCarriesIntoEveryByte) {
    for (size_t carries = 1; carries < 16; ++carries) {
        Bytes counter(16, 0x41);
        std::fill(counter.end() - static_cast<ptrdiff_t>(carries), counter.end(), 0xff);
        AES_ctx ctx = Context(kKey);
        AES_ctx_set_iv(&ctx, counter.data());
        uint8_t byte = 0;
        AES_CTR_xcrypt_buffer(&ctx, &byte, 1);
        Bytes next(16, 0x41);
        std::fill(next.end() - static_cast<ptrdiff_t>(carries), next.end(), 0);
        next[15 - carries] = 0x42;
        EXPECT_EQ(Iv(ctx), next);
    }
}

} // namespace
