// SPDX-License-Identifier: MIT
// The library's white-box decryption and the stand-in's encryption, under the key that the library
// was packed with.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "orvo/cipher.h"
#include "orvo/kova_mpi.h"
#include "support/guarded_buffer.h"
#include "support/random.h"
#include "test_keys.h"

namespace {

using orvo_test::GuardedBuffer;
using orvo_test::Hex;
using orvo_test::PackingKey;
using orvo_test::Random;
using Bytes = std::vector<uint8_t>;

constexpr int kBlocks = ORVO_TEST_BLOCKS;
const char* const kIv = "000102030405060708090a0b0c0d0e0f";

AES_ctx PackingContext() {
    const Bytes key = PackingKey("white_box_key");
    EXPECT_EQ(key.size(), 16u) << "no key in " ORVO_KEY_FILE;
    AES_ctx ctx;
    AES_init_ctx_iv(&ctx, key.data(), Hex(kIv).data());
    return ctx;
}

Bytes Enciphered(Bytes text) {
    AES_ctx ctx = PackingContext();
    AES_CBC_encrypt_buffer(&ctx, text.data(), static_cast<uint32_t>(text.size()));
    return text;
}

// `length` bytes that end in those of `tail`.
Bytes TextEndingIn(size_t length, const Bytes& tail) {
    Bytes text(length);
    Random random(77);
    for (uint8_t& byte : text) {
        byte = static_cast<uint8_t>(random.Byte() | 0x80); // never a padding byte by chance
    }
    std::copy(tail.begin(), tail.end(), text.end() - static_cast<ptrdiff_t>(tail.size()));
    return text;
}

struct Unwrapped {
    int32_t status;
    uint32_t length;
    Bytes bytes; // of the output buffer, which is 0xA5 before
};

Unwrapped Unwrap(const Bytes& plain) {
    const Bytes in = Enciphered(plain);
    Unwrapped result = {0, 0xdeadbeef, Bytes(plain.size(), 0xa5)};
    result.status = wb_aes_decrypt_cbc(Hex(kIv).data(), in.data(), static_cast<uint32_t>(in.size()),
                                       result.bytes.data(), &result.length);
    return result;
}

// The text's first bytes, and the buffer as it was behind them.
Bytes Kept(const Bytes& plain, size_t kept) {
    Bytes expected(plain.size(), 0xa5);
    std::copy_n(plain.begin(), kept, expected.begin());
    return expected;
}

TEST(WhiteBoxDecrypt, EqualsAesUnderThePackingKey) {
    const AES_ctx ctx = PackingContext();
    Random random(1);
    for (int n = 0; n < kBlocks; ++n) {
        uint8_t block[16];
        random.Fill(block, 16);
        uint8_t out[16];
        ASSERT_EQ(wb_aes_decrypt(block, out), 0);
        AES_ECB_decrypt(&ctx, block);
        ASSERT_TRUE(std::equal(block, block + 16, out)) << "block " << n;
    }
}

TEST(WhiteBoxDecrypt, WorksInPlace) {
    const AES_ctx ctx = PackingContext();
    Bytes block = Hex("00112233445566778899aabbccddeeff");
    Bytes expected = block;
    AES_ECB_decrypt(&ctx, expected.data());
    EXPECT_EQ(wb_aes_decrypt(block.data(), block.data()), 0);
    EXPECT_EQ(block, expected);
}

TEST(WhiteBoxDecrypt, TouchesItsBlocksOnly) {
    for (const auto place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
        GuardedBuffer in(16, place);
        GuardedBuffer out(16, place);
        std::fill_n(in.bytes(), 16, uint8_t{0});
        in.MakeReadOnly();
        EXPECT_EQ(wb_aes_decrypt(in.bytes(), out.bytes()), 0);
        const AES_ctx ctx = PackingContext();
        Bytes expected(16, 0);
        AES_ECB_decrypt(&ctx, expected.data());
        EXPECT_EQ(Bytes(out.bytes(), out.bytes() + 16), expected);
    }
}

TEST(WhiteBoxEncrypt, EqualsAesUnderThePackingKey) {
    const AES_ctx ctx = PackingContext();
    Random random(2);
    for (int n = 0; n < kBlocks; ++n) {
        uint8_t block[16];
        random.Fill(block, 16);
        uint8_t out[16];
        ASSERT_EQ(wb_aes_encrypt(block, out), 0);
        AES_ECB_encrypt(&ctx, block);
        ASSERT_TRUE(std::equal(block, block + 16, out)) << "block " << n;
    }
}

TEST(WhiteBoxEncrypt, UndoesWhiteBoxDecryption) {
    Random random(3);
    for (int n = 0; n < kBlocks / 10; ++n) {
        uint8_t block[16];
        random.Fill(block, 16);
        uint8_t there[16];
        uint8_t back[16];
        wb_aes_decrypt(block, there);
        wb_aes_encrypt(there, back);
        ASSERT_TRUE(std::equal(block, block + 16, back)) << "block " << n;
    }
}

TEST(WhiteBoxCbc, AFullBlockOfPaddingAloneYieldsNothing) {
    const Bytes plain(16, 16);
    const Unwrapped result = Unwrap(plain);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.length, 0u);
    EXPECT_EQ(result.bytes, Bytes(16, 0xa5));
}

TEST(WhiteBoxCbc, AFullBlockOfPaddingIsRemoved) {
    const Bytes plain = TextEndingIn(32, Bytes(16, 16));
    const Unwrapped result = Unwrap(plain);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.length, 16u);
    EXPECT_EQ(result.bytes, Kept(plain, 16));
}

TEST(WhiteBoxCbc, EveryPaddingIsRemoved) {
    for (uint8_t padding = 1; padding <= 16; ++padding) {
        for (const size_t length : {16u, 32u, 80u}) {
            const Bytes plain = TextEndingIn(length, Bytes(padding, padding));
            const Unwrapped result = Unwrap(plain);
            EXPECT_EQ(result.status, 0) << int{padding};
            EXPECT_EQ(result.length, length - padding);
            EXPECT_EQ(result.bytes, Kept(plain, length - padding));
        }
    }
}

TEST(WhiteBoxCbc, ALastByteAbove16Fails) {
    for (unsigned last = 17; last < 256; ++last) {
        const Bytes plain = TextEndingIn(32, Bytes(17, static_cast<uint8_t>(last)));
        EXPECT_EQ(Unwrap(plain).status, -1) << last;
    }
}

TEST(WhiteBoxCbc, PaddingBytesThatDisagreeFail) {
    for (uint8_t padding = 2; padding <= 16; ++padding) {
        for (size_t wrong = 0; wrong + 1 < padding; ++wrong) {
            Bytes tail(padding, padding);
            tail[wrong] ^= 1;
            EXPECT_EQ(Unwrap(TextEndingIn(32, tail)).status, -1) << int{padding} << " " << wrong;
        }
    }
}

TEST(WhiteBoxCbc, TheByteBeforeThePaddingIsNotLookedAt) {
    for (uint8_t padding = 1; padding < 16; ++padding) {
        const Bytes plain = TextEndingIn(16, Bytes(padding + 1u, padding));
        const Unwrapped result = Unwrap(plain);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.length, 16u - padding);
    }
}

TEST(WhiteBoxCbc, ALastByteOf0KeepsEverything) {
    const Bytes plain = TextEndingIn(32, {0});
    const Unwrapped result = Unwrap(plain);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.length, 32u);
    EXPECT_EQ(result.bytes, plain);
}

TEST(WhiteBoxCbc, ALastByteOf1RemovesItUnseen) {
    const Bytes plain = TextEndingIn(32, {9, 1});
    const Unwrapped result = Unwrap(plain);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.length, 31u);
    EXPECT_EQ(result.bytes, Kept(plain, 31));
}

TEST(WhiteBoxCbc, ABadLengthFailsBeforeAnythingIsRead) {
    for (const uint32_t length : {0u, 1u, 15u, 17u, 24u, 31u, 0xffffffffu}) {
        uint32_t outLength = 4711;
        EXPECT_EQ(wb_aes_decrypt_cbc(nullptr, nullptr, length, nullptr, &outLength), -1) << length;
        EXPECT_EQ(outLength, 4711u);
        EXPECT_EQ(wb_aes_decrypt_cbc_no_pad(nullptr, nullptr, length, nullptr), -1) << length;
    }
}

TEST(WhiteBoxCbc, ReadsAndWritesNothingOutsideItsBuffers) {
    const Bytes plain = TextEndingIn(48, Bytes(5, 5));
    const Bytes cipher = Enciphered(plain);
    for (const auto place : {GuardedBuffer::kAtEnd, GuardedBuffer::kAtStart}) {
        GuardedBuffer in(48, place);
        std::ranges::copy(cipher, in.bytes());
        in.MakeReadOnly();
        GuardedBuffer out(43, place); // exactly the bytes without padding
        uint32_t length = 0;
        EXPECT_EQ(wb_aes_decrypt_cbc(Hex(kIv).data(), in.bytes(), 48, out.bytes(), &length), 0);
        EXPECT_EQ(length, 43u);
        EXPECT_TRUE(std::equal(out.bytes(), out.bytes() + 43, plain.begin()));
    }
}

TEST(WhiteBoxCbc, NoPadKeepsEveryByte) {
    for (const uint8_t last : {0, 1, 5, 16, 17, 255}) {
        const Bytes plain = TextEndingIn(80, {last});
        const Bytes in = Enciphered(plain);
        Bytes out(80, 0xa5);
        EXPECT_EQ(wb_aes_decrypt_cbc_no_pad(Hex(kIv).data(), in.data(), 80, out.data()), 0);
        EXPECT_EQ(out, plain);
    }
}

} // namespace
