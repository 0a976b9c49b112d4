// SPDX-License-Identifier: MIT
// What is known to have been tried on CBC and its padding, against OpenSSL: the unwrapping by the white box,
// with padding, and AES-128 under a key, without. CBC has no tag: a change that leaves a padding is no
// error, but must give what CBC gives.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cipher/test_keys.h"
#include "orvo/cipher.h"
#include "support/random.h"

namespace {

using orvo_test::Random;
using Bytes = std::vector<uint8_t>;

constexpr uint8_t kMark = 0xa5;
constexpr uint32_t kNoLength = 0xdeadbeef;

Bytes RandomBytes(Random& random, size_t length) {
    Bytes bytes(length);
    random.Fill(bytes.data(), length);
    return bytes;
}

struct Wrapped {
    Bytes iv, text;
};

class CbcAttacks : public testing::Test {
  protected:
    CbcAttacks() : context_(EVP_CIPHER_CTX_new(), EVP_CIPHER_CTX_free) {
        EXPECT_EQ(key_.size(), 16u) << "no key in " ORVO_KEY_FILE;
    }

    // Nothing where OpenSSL refuses the padding.
    std::optional<Bytes> OpenSsl(bool encrypt, bool padding, const Bytes& key, const Bytes& iv,
                                 const Bytes& in) {
        Bytes out(in.size() + 16);
        int written = 0;
        int rest = 0;
        EXPECT_EQ(EVP_CipherInit_ex(context_.get(), EVP_aes_128_cbc(), nullptr, key.data(),
                                    iv.data(), encrypt),
                  1);
        EXPECT_EQ(EVP_CIPHER_CTX_set_padding(context_.get(), padding), 1);
        EXPECT_EQ(EVP_CipherUpdate(context_.get(), out.data(), &written, in.data(),
                                   static_cast<int>(in.size())),
                  1);
        if (EVP_CipherFinal_ex(context_.get(), out.data() + written, &rest) != 1) {
            return std::nullopt;
        }
        out.resize(static_cast<size_t>(written + rest));
        return out;
    }

    Wrapped Wrap(const Bytes& iv, const Bytes& plain) {
        return {iv, OpenSsl(true, true, key_, iv, plain).value()};
    }
    // With the last bytes as they are.
    Wrapped WrapWithout(const Bytes& iv, const Bytes& blocks) {
        return {iv, OpenSsl(true, false, key_, iv, blocks).value()};
    }

    // Unwrapped as OpenSSL does it, but for texts that end in a zero, which here have no padding.
    void ExpectAsOpenSsl(const Wrapped& wrapped, const std::string& attack) {
        const Bytes all = OpenSsl(false, false, key_, wrapped.iv, wrapped.text).value();
        std::optional<Bytes> expected = OpenSsl(false, true, key_, wrapped.iv, wrapped.text);
        if (all.back() == 0) {
            ASSERT_FALSE(expected.has_value());
            expected = all;
        }
        Bytes out(wrapped.text.size(), kMark);
        uint32_t length = kNoLength;
        const int32_t status =
            wb_aes_decrypt_cbc(wrapped.iv.data(), wrapped.text.data(),
                               static_cast<uint32_t>(wrapped.text.size()), out.data(), &length);
        ASSERT_EQ(status, expected.has_value() ? 0 : -1) << attack;
        if (expected.has_value()) {
            ASSERT_EQ(length, expected->size()) << attack;
            ASSERT_TRUE(std::equal(expected->begin(), expected->end(), out.begin())) << attack;
            ASSERT_TRUE(std::all_of(out.begin() + length, out.end(), [](uint8_t byte) {
                return byte == kMark;
            })) << attack;
            ++accepted_;
        } else {
            // No length, and nothing of the block with the padding.
            ASSERT_EQ(length, kNoLength) << attack;
            ASSERT_TRUE(std::all_of(out.end() - 16, out.end(), [](uint8_t byte) {
                return byte == kMark;
            })) << attack;
            ++refused_;
        }
        Bytes kept(wrapped.text.size(), kMark);
        ASSERT_EQ(
            wb_aes_decrypt_cbc_no_pad(wrapped.iv.data(), wrapped.text.data(),
                                      static_cast<uint32_t>(wrapped.text.size()), kept.data()),
            0);
        ASSERT_EQ(kept, all) << attack;
    }

    void TearDown() override {
        EXPECT_GT(accepted_ + refused_, 0);
        RecordProperty("accepted", accepted_);
        RecordProperty("refused", refused_);
    }

    const Bytes key_ = orvo_test::PackingKey("white_box_key");
    std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)> context_;
    int accepted_ = 0;
    int refused_ = 0;
};

TEST_F(CbcAttacks, TrueTextsOfAllLengths) {
    Random random(1);
    for (size_t length = 0; length <= 64; ++length) {
        ExpectAsOpenSsl(Wrap(RandomBytes(random, 16), RandomBytes(random, length)), "true");
    }
    EXPECT_EQ(accepted_, 65);
}

// Whatever the last byte says, with the bytes before it as it says or not.
TEST_F(CbcAttacks, EveryLastByte) {
    Random random(2);
    for (unsigned last = 0; last < 256; ++last) {
        for (const size_t blocks : {1u, 2u, 3u}) {
            Bytes plain = RandomBytes(random, 16 * blocks);
            plain.back() = static_cast<uint8_t>(last);
            ExpectAsOpenSsl(WrapWithout(RandomBytes(random, 16), plain), std::to_string(last));
            std::fill(plain.end() - 16, plain.end(), static_cast<uint8_t>(last));
            ExpectAsOpenSsl(WrapWithout(RandomBytes(random, 16), plain), std::to_string(last));
        }
    }
    EXPECT_GT(refused_, 1000);
    EXPECT_GT(accepted_, 50);
}

// Each byte of each padding with each of its bits flipped, and the byte before it.
TEST_F(CbcAttacks, WrongPadding) {
    Random random(3);
    for (uint8_t padding = 1; padding <= 16; ++padding) {
        Bytes plain = RandomBytes(random, 32);
        std::fill(plain.end() - padding, plain.end(), padding);
        for (size_t at = 32u - padding - 1; at < 32; ++at) {
            for (int bit = 0; bit < 8; ++bit) {
                Bytes changed = plain;
                changed[at] ^= static_cast<uint8_t>(1 << bit);
                ExpectAsOpenSsl(WrapWithout(RandomBytes(random, 16), changed),
                                std::to_string(padding) + " at " + std::to_string(at));
            }
        }
    }
    EXPECT_GT(refused_, 900);
}

// Whoever may ask whether a padding is right tries all values of a byte of the block before: the answers
// must be those that the padding gives.
TEST_F(CbcAttacks, AskingForThePadding) {
    Random random(4);
    for (int round = 0; round < 8; ++round) {
        Wrapped wrapped = Wrap(RandomBytes(random, 16), RandomBytes(random, 20));
        for (size_t at = 0; at < 16; ++at) {
            for (unsigned value = 0; value < 256; ++value) {
                Wrapped asked = wrapped;
                asked.text[at] = static_cast<uint8_t>(value); // of the block before the last
                ExpectAsOpenSsl(asked, "asked");
                asked = {Bytes(wrapped.text.begin(), wrapped.text.begin() + 16),
                         Bytes(wrapped.text.begin() + 16, wrapped.text.end())};
                asked.iv[at] = static_cast<uint8_t>(value);
                ExpectAsOpenSsl(asked, "asked by the IV");
            }
        }
    }
    EXPECT_GT(refused_, 1000);
    EXPECT_GT(accepted_, 1000);
}

TEST_F(CbcAttacks, FlippedBits) {
    Random random(5);
    for (const size_t length : {0u, 15u, 16u, 31u, 40u}) {
        Wrapped wrapped = Wrap(RandomBytes(random, 16), RandomBytes(random, length));
        for (Bytes* part : {&wrapped.iv, &wrapped.text}) {
            for (size_t bit = 0; bit < 8 * part->size(); ++bit) {
                (*part)[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
                ExpectAsOpenSsl(wrapped, "bit " + std::to_string(bit));
                (*part)[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
            }
        }
    }
}

TEST_F(CbcAttacks, MovedBlocks) {
    Random random(6);
    for (int round = 0; round < 100; ++round) {
        const Wrapped whole = Wrap(RandomBytes(random, 16), RandomBytes(random, 50));
        for (size_t blocks = 1; blocks < 4; ++blocks) {
            Wrapped cut = whole;
            cut.text.resize(16 * blocks);
            ExpectAsOpenSsl(cut, "the last blocks lost");
            cut = whole;
            cut.text.erase(cut.text.begin(), cut.text.begin() + 16 * static_cast<int>(blocks));
            ExpectAsOpenSsl(cut, "the first blocks lost");
            cut = whole;
            std::rotate(cut.text.begin(), cut.text.begin() + 16 * static_cast<int>(blocks),
                        cut.text.end());
            ExpectAsOpenSsl(cut, "turned");
        }
    }
}

TEST_F(CbcAttacks, WrongLengths) {
    Random random(7);
    const Wrapped whole = Wrap(RandomBytes(random, 16), RandomBytes(random, 60));
    for (uint32_t bytes = 0; bytes < 64; ++bytes) {
        if (bytes % 16 == 0 && bytes != 0) {
            continue;
        }
        Bytes out(64, kMark);
        uint32_t length = kNoLength;
        EXPECT_EQ(
            wb_aes_decrypt_cbc(whole.iv.data(), whole.text.data(), bytes, out.data(), &length), -1);
        EXPECT_EQ(wb_aes_decrypt_cbc_no_pad(whole.iv.data(), whole.text.data(), bytes, out.data()),
                  -1);
        EXPECT_EQ(out, Bytes(64, kMark));
        EXPECT_EQ(length, kNoLength);
        ++refused_;
    }
}

// AES-128 under a key has neither tag nor padding: each change gives what CBC gives, a garbled block and a
// bit in the next.
TEST_F(CbcAttacks, UnderAKeyEachChangeIsThatOfCbc) {
    Random random(8);
    for (const size_t blocks : {1u, 2u, 5u, 9u}) {
        const Bytes key = RandomBytes(random, 16);
        Bytes iv = RandomBytes(random, 16);
        Bytes text = RandomBytes(random, 16 * blocks);
        for (Bytes* part : {&iv, &text}) {
            for (size_t bit = 0; bit < 8 * part->size(); ++bit) {
                (*part)[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
                for (const bool encrypt : {false, true}) {
                    Bytes here = text;
                    AES_ctx ctx;
                    AES_init_ctx_iv(&ctx, key.data(), iv.data());
                    (encrypt ? AES_CBC_encrypt_buffer : AES_CBC_decrypt_buffer)(
                        &ctx, here.data(), static_cast<uint32_t>(here.size()));
                    ASSERT_EQ(here, OpenSsl(encrypt, false, key, iv, text).value());
                    ++accepted_;
                }
                (*part)[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
            }
        }
    }
}

} // namespace
