// SPDX-License-Identifier: MIT
// Measures GCM, and the plain AES-128 under it, against OpenSSL. Links forward_cipher.cpp, so that
// both work with the same key.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "cipher/forward_cipher.h"
#include "cipher/gcm_vectors.h"
#include "cipher/hex.h"
#include "cipher/openssl_gcm.h"
#include "cipher/plain_gcm.h"
#include "orvo/cipher.h"
#include "support/random.h"

namespace {

using orvo_reference::Block;
using orvo_reference::Bytes;
using orvo_test::OpenSslGcm;
using orvo_test::OpenSslSealed;
using orvo_test::Random;

void SetForwardKey(const Bytes& key) {
    Block block;
    std::copy(key.begin(), key.end(), block.begin());
    orvo_test::SetForwardKey(block);
}

Bytes RandomBytes(Random& random, int32_t least, int32_t most) {
    Bytes bytes(static_cast<size_t>(random.Between(least, most)));
    random.Fill(bytes.data(), bytes.size());
    return bytes;
}

uint32_t Length(const Bytes& bytes) { return static_cast<uint32_t>(bytes.size()); }

// Both directions of one message.
void ExpectSame(OpenSslGcm& openSsl, const Bytes& key, const Bytes& iv, const Bytes& plaintext,
                const Bytes& additional, uint32_t tagLength) {
    SetForwardKey(key);
    OpenSslSealed expected = openSsl.Seal(key, iv, plaintext, additional);
    expected.tag.resize(tagLength);
    OpenSslSealed sealed = {Bytes(plaintext.size()), Bytes(tagLength)};
    ASSERT_EQ(wb_aes_encrypt_gcm(iv.data(), Length(iv), plaintext.data(), Length(plaintext),
                                 sealed.ciphertext.data(), additional.data(), Length(additional),
                                 sealed.tag.data(), tagLength),
              0);
    ASSERT_EQ(sealed.ciphertext, expected.ciphertext);
    ASSERT_EQ(sealed.tag, expected.tag);
    Bytes opened(plaintext.size());
    ASSERT_EQ(wb_aes_decrypt_gcm(iv.data(), Length(iv), expected.ciphertext.data(),
                                 Length(plaintext), opened.data(), additional.data(),
                                 Length(additional), expected.tag.data(), tagLength),
              0);
    ASSERT_EQ(opened, plaintext);
}

void ExpectRandomMessagesSame(uint64_t seed, int count) {
    OpenSslGcm openSsl;
    Random random(seed);
    for (int i = 0; i < count; ++i) {
        const Bytes key = RandomBytes(random, 16, 16);
        const Bytes iv = RandomBytes(random, 1, 64);
        const Bytes additional = RandomBytes(random, 0, 100);
        const Bytes plaintext = RandomBytes(random, 0, 300);
        const auto tagLength = static_cast<uint32_t>(random.Between(4, 16));
        ExpectSame(openSsl, key, iv, plaintext, additional, tagLength);
        if (testing::Test::HasFatalFailure()) {
            FAIL() << "message " << i << " of seed " << seed;
        }
    }
}

TEST(GcmAgainstOpenSsl, PublishedCasesAreWhatOpenSslGives) {
    OpenSslGcm openSsl;
    for (const auto& vector : orvo_test::kGcmVectors) {
        SCOPED_TRACE(&vector - orvo_test::kGcmVectors + 1);
        const OpenSslSealed sealed =
            openSsl.Seal(orvo_test::Hex(vector.key), orvo_test::Hex(vector.iv),
                         orvo_test::Hex(vector.plaintext), orvo_test::Hex(vector.additional));
        EXPECT_EQ(sealed.ciphertext, orvo_test::Hex(vector.ciphertext));
        EXPECT_EQ(sealed.tag, orvo_test::Hex(vector.tag));
    }
}

// 100,000 messages in all, in tests of their own so that they run side by side.
class GcmAgainstOpenSslRandom : public testing::TestWithParam<uint64_t> {};

TEST_P(GcmAgainstOpenSslRandom, TenThousandMessages) {
    ExpectRandomMessagesSame(GetParam(), 10000);
}

INSTANTIATE_TEST_SUITE_P(Seeds, GcmAgainstOpenSslRandom, testing::Range<uint64_t>(1, 11));

// Every combination of lengths near a block's end.
TEST(GcmAgainstOpenSsl, LengthsAroundWholeBlocks) {
    OpenSslGcm openSsl;
    Random random(106);
    for (const int32_t ivLength : {1, 11, 12, 13, 15, 16, 17, 64}) {
        for (const int32_t additionalLength : {0, 1, 15, 16, 17, 32}) {
            for (const int32_t textLength : {0, 1, 15, 16, 17, 31, 32, 33, 300}) {
                ExpectSame(openSsl, RandomBytes(random, 16, 16),
                           RandomBytes(random, ivLength, ivLength),
                           RandomBytes(random, textLength, textLength),
                           RandomBytes(random, additionalLength, additionalLength), 16);
            }
        }
    }
}

// The pre-counter block of an IV of 16 bytes can be chosen: here it ends with 32 ones.
TEST(GcmAgainstOpenSsl, CounterWrapsWithinItsLast32Bits) {
    OpenSslGcm openSsl;
    Random random(107);
    for (int round = 0; round < 20; ++round) {
        const Bytes key = RandomBytes(random, 16, 16);
        SetForwardKey(key);
        Block start;
        random.Fill(start.data(), start.size());
        std::fill(start.begin() + 12, start.end(), uint8_t{0xff});
        start[15] = static_cast<uint8_t>(0xff - round % 4);
        ExpectSame(openSsl, key, orvo_reference::IvForPreCounter(start),
                   RandomBytes(random, 100, 100), {}, 16);
    }
}

} // namespace
