// SPDX-License-Identifier: MIT
// The library's AES against another implementation, on many random blocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "orvo/cipher.h"
#include "slow_aes.h"
#include "support/random.h"

#ifdef ORVO_HAVE_OPENSSL
#include <openssl/evp.h>
#endif

namespace {

using orvo_test::Random;
using orvo_test::SlowAes;
using Bytes = std::vector<uint8_t>;

constexpr size_t kBlocks = ORVO_TEST_BLOCKS;

enum class Mode { kEcbEncrypt, kEcbDecrypt, kCbcEncrypt, kCbcDecrypt, kCtr };

#ifdef ORVO_HAVE_OPENSSL
Bytes Reference(Mode mode, const Bytes& key, const Bytes& iv, const Bytes& text) {
    const EVP_CIPHER* cipher = mode == Mode::kCtr ? EVP_aes_128_ctr()
                               : mode == Mode::kCbcEncrypt || mode == Mode::kCbcDecrypt
                                   ? EVP_aes_128_cbc()
                                   : EVP_aes_128_ecb();
    const bool encrypt = mode != Mode::kEcbDecrypt && mode != Mode::kCbcDecrypt;
    EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
    Bytes out(text.size());
    int length = 0;
    EXPECT_EQ(EVP_CipherInit_ex(ctx, cipher, nullptr, key.data(), iv.data(), encrypt), 1);
    EXPECT_EQ(EVP_CIPHER_CTX_set_padding(ctx, 0), 1);
    EXPECT_EQ(
        EVP_CipherUpdate(ctx, out.data(), &length, text.data(), static_cast<int>(text.size())), 1);
    EXPECT_EQ(static_cast<size_t>(length), text.size());
    EVP_CIPHER_CTX_free(ctx);
    return out;
}
#else
Bytes Reference(Mode mode, const Bytes& key, const Bytes& iv, const Bytes& text) {
    const SlowAes aes(key.data());
    SlowAes::Block chain;
    std::ranges::copy(iv, chain.begin());
    Bytes out(text.size());
    for (size_t at = 0; at < text.size(); at += 16) {
        SlowAes::Block in;
        std::copy_n(text.begin() + static_cast<ptrdiff_t>(at), 16, in.begin());
        SlowAes::Block result = in;
        const auto add = [&result](const SlowAes::Block& other) {
            std::ranges::transform(result, other, result.begin(), std::bit_xor<uint8_t>());
        };
        switch (mode) {
            case Mode::kEcbEncrypt:
                result = aes.Encrypt(in);
                break;
            case Mode::kEcbDecrypt:
                result = aes.Decrypt(in);
                break;
            case Mode::kCbcEncrypt:
                add(chain);
                result = chain = aes.Encrypt(result);
                break;
            case Mode::kCbcDecrypt:
                result = aes.Decrypt(in);
                add(chain);
                chain = in;
                break;
            case Mode::kCtr:
                add(aes.Encrypt(chain));
                for (size_t i = 16; i-- > 0 && ++chain[i] == 0;) {
                }
                break;
        }
        std::ranges::copy(result, out.begin() + static_cast<ptrdiff_t>(at));
    }
    return out;
}
#endif

Bytes Library(Mode mode, const Bytes& key, const Bytes& iv, Bytes text) {
    AES_ctx ctx;
    AES_init_ctx_iv(&ctx, key.data(), iv.data());
    const auto length = static_cast<uint32_t>(text.size());
    switch (mode) {
        case Mode::kEcbEncrypt:
        case Mode::kEcbDecrypt:
            for (size_t at = 0; at < text.size(); at += 16) {
                (mode == Mode::kEcbEncrypt ? AES_ECB_encrypt : AES_ECB_decrypt)(&ctx, &text[at]);
            }
            break;
        case Mode::kCbcEncrypt:
            AES_CBC_encrypt_buffer(&ctx, text.data(), length);
            break;
        case Mode::kCbcDecrypt:
            AES_CBC_decrypt_buffer(&ctx, text.data(), length);
            break;
        case Mode::kCtr:
            AES_CTR_xcrypt_buffer(&ctx, text.data(), length);
            break;
    }
    return text;
}

// Many keys, and text of different lengths, kBlocks blocks in all.
void Compare(Mode mode, uint64_t seed) {
    Random random(seed);
    const size_t perKey = kBlocks / 100;
    for (size_t done = 0; done < kBlocks; done += perKey) {
        Bytes key(16);
        Bytes iv(16);
        Bytes text(16 * perKey);
        random.Fill(key.data(), key.size());
        random.Fill(iv.data(), iv.size());
        random.Fill(text.data(), text.size());
        ASSERT_TRUE(Library(mode, key, iv, text) == Reference(mode, key, iv, text))
            << "seed " << seed << ", after " << done << " blocks";
    }
}

TEST(AesComparison, EcbEncryption) { Compare(Mode::kEcbEncrypt, 1); }

TEST(AesComparison, EcbDecryption) { Compare(Mode::kEcbDecrypt, 2); }

TEST(AesComparison, CbcEncryption) { Compare(Mode::kCbcEncrypt, 3); }

TEST(AesComparison, CbcDecryption) { Compare(Mode::kCbcDecrypt, 4); }

TEST(AesComparison, Ctr) { Compare(Mode::kCtr, 5); }

#ifdef ORVO_HAVE_OPENSSL
// What stands in for the other implementation under an emulator is held against it here.
TEST(AesComparison, SlowAesAgrees) {
    Random random(6);
    for (int n = 0; n < 200; ++n) {
        Bytes key(16);
        Bytes text(16);
        random.Fill(key.data(), key.size());
        random.Fill(text.data(), text.size());
        SlowAes::Block block;
        std::ranges::copy(text, block.begin());
        const SlowAes aes(key.data());
        const SlowAes::Block encrypted = aes.Encrypt(block);
        const SlowAes::Block decrypted = aes.Decrypt(block);
        EXPECT_EQ(Bytes(encrypted.begin(), encrypted.end()),
                  Reference(Mode::kEcbEncrypt, key, Bytes(16), text));
        EXPECT_EQ(Bytes(decrypted.begin(), decrypted.end()),
                  Reference(Mode::kEcbDecrypt, key, Bytes(16), text));
    }
}
#endif

} // namespace
