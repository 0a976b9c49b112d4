// SPDX-License-Identifier: MIT
// Links support/bounded_faults.cpp, to fail the bounded copies, and forward_cipher.cpp, so that the
// block cipher is an AES-128 whose key is known.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

#include "cipher/forward_cipher.h"
#include "cipher/gcm_vectors.h"
#include "cipher/hex.h"
#include "cipher/plain_gcm.h"
#include "orvo/cipher.h"
#include "support/bounded_faults.h"
#include "support/guarded_buffer.h"
#include "support/random.h"

namespace {

using orvo_reference::Block;
using orvo_reference::Bytes;
using orvo_test::GuardedBuffer;
using orvo_test::Random;

constexpr uint8_t kMark = 0x5c; // what unwritten output shows

void SetKey(Random& random) {
    Block key;
    random.Fill(key.data(), key.size());
    orvo_test::SetForwardKey(key);
}

uint32_t Length(const Bytes& bytes) { return static_cast<uint32_t>(bytes.size()); }

Bytes RandomBytes(Random& random, int32_t least, int32_t most) {
    Bytes bytes(static_cast<size_t>(random.Between(least, most)));
    random.Fill(bytes.data(), bytes.size());
    return bytes;
}

struct Sealed {
    Bytes iv, additional, ciphertext, tag;
};

Sealed Seal(const Bytes& iv, const Bytes& plaintext, const Bytes& additional, size_t tagLength) {
    Sealed sealed = {iv, additional, Bytes(plaintext.size(), kMark), Bytes(tagLength, kMark)};
    EXPECT_EQ(wb_aes_encrypt_gcm(iv.data(), Length(iv), plaintext.data(), Length(plaintext),
                                 sealed.ciphertext.data(), additional.data(), Length(additional),
                                 sealed.tag.data(), static_cast<uint32_t>(tagLength)),
              0);
    return sealed;
}

struct Opened {
    int32_t status;
    Bytes plaintext;
};

Opened Open(const Sealed& sealed) {
    Opened opened = {0, Bytes(sealed.ciphertext.size(), kMark)};
    opened.status = wb_aes_decrypt_gcm(
        sealed.iv.data(), Length(sealed.iv), sealed.ciphertext.data(), Length(sealed.ciphertext),
        opened.plaintext.data(), sealed.additional.data(), Length(sealed.additional),
        sealed.tag.data(), Length(sealed.tag));
    return opened;
}

void ExpectRefused(const Sealed& sealed) {
    const Opened opened = Open(sealed);
    ASSERT_EQ(opened.status, -1);
    ASSERT_EQ(opened.plaintext, Bytes(sealed.ciphertext.size(), kMark));
}

// A copy of bytes at exactly their size between unmapped pages.
class Guarded {
  public:
    Guarded(const Bytes& bytes, bool readOnly)
        : buffer_(bytes.size(),
                  bytes.size() % 2 == 0 ? GuardedBuffer::kAtEnd : GuardedBuffer::kAtStart) {
        std::copy(bytes.begin(), bytes.end(), buffer_.bytes());
        if (readOnly) {
            buffer_.MakeReadOnly();
        }
    }
    uint8_t* data() { return buffer_.bytes(); }
    uint32_t length() const { return static_cast<uint32_t>(buffer_.size()); }
    Bytes bytes() { return Bytes(data(), data() + buffer_.size()); }

  private:
    GuardedBuffer buffer_;
};

// Both directions against the definition, every buffer at exactly its size.
void ExpectMatch(const Bytes& iv, const Bytes& plaintext, const Bytes& additional,
                 size_t tagLength) {
    const orvo_reference::Sealed expected = orvo_reference::SealGcm(iv, plaintext, additional);
    Guarded guardedIv(iv, true);
    Guarded guardedAdditional(additional, true);
    Guarded in(plaintext, true);
    Guarded ciphertext(Bytes(plaintext.size(), kMark), false);
    Guarded tag(Bytes(tagLength, kMark), false);
    ASSERT_EQ(wb_aes_encrypt_gcm(guardedIv.data(), guardedIv.length(), in.data(), in.length(),
                                 ciphertext.data(), guardedAdditional.data(),
                                 guardedAdditional.length(), tag.data(), tag.length()),
              0);
    ASSERT_EQ(ciphertext.bytes(), expected.ciphertext);
    ASSERT_EQ(tag.bytes(), Bytes(expected.tag.begin(),
                                 expected.tag.begin() + static_cast<ptrdiff_t>(tagLength)));
    Guarded received(ciphertext.bytes(), true);
    Guarded receivedTag(tag.bytes(), true);
    Guarded out(Bytes(plaintext.size(), kMark), false);
    ASSERT_EQ(
        wb_aes_decrypt_gcm(guardedIv.data(), guardedIv.length(), received.data(), received.length(),
                           out.data(), guardedAdditional.data(), guardedAdditional.length(),
                           receivedTag.data(), receivedTag.length()),
        0);
    ASSERT_EQ(out.bytes(), plaintext);
}

// ---- Values

TEST(Gcm, PublishedAes128Cases) {
    for (const auto& vector : orvo_test::kGcmVectors) {
        SCOPED_TRACE(&vector - orvo_test::kGcmVectors + 1);
        const Bytes key = orvo_test::Hex(vector.key);
        Block keyBlock;
        std::copy(key.begin(), key.end(), keyBlock.begin());
        orvo_test::SetForwardKey(keyBlock);
        const Bytes plaintext = orvo_test::Hex(vector.plaintext);
        const Sealed sealed =
            Seal(orvo_test::Hex(vector.iv), plaintext, orvo_test::Hex(vector.additional), 16);
        EXPECT_EQ(sealed.ciphertext, orvo_test::Hex(vector.ciphertext));
        EXPECT_EQ(sealed.tag, orvo_test::Hex(vector.tag));
        const Opened opened = Open(sealed);
        EXPECT_EQ(opened.status, 0);
        EXPECT_EQ(opened.plaintext, plaintext);
    }
}

TEST(Gcm, RandomMessagesMatchTheDefinition) {
    Random random(1);
    for (int round = 0; round < 300; ++round) {
        SetKey(random);
        ExpectMatch(RandomBytes(random, 1, 64), RandomBytes(random, 0, 100),
                    RandomBytes(random, 0, 60), static_cast<size_t>(random.Between(4, 16)));
    }
}

TEST(Gcm, EveryIvLengthAndTextLengthAroundABlockMatchesTheDefinition) {
    Random random(2);
    SetKey(random);
    for (int32_t n = 0; n <= 33; ++n) {
        ExpectMatch(RandomBytes(random, n, n), RandomBytes(random, 5, 5), {}, 16);
        ExpectMatch(RandomBytes(random, 12, 12), RandomBytes(random, n, n), {}, 16);
        ExpectMatch(RandomBytes(random, 12, 12), {}, RandomBytes(random, n, n), 16);
    }
}

// With IVs of 16 bytes the pre-counter block can be chosen.
TEST(Gcm, CounterWrapsWithinItsLast32Bits) {
    Random random(3);
    for (const uint32_t low : {0xffffffffu, 0xfffffffeu, 0xfffffffdu, 0x00ffffffu, 0x0000fffeu}) {
        SetKey(random);
        Block start;
        random.Fill(start.data(), 12);
        start[11] = 0xff;
        for (size_t i = 0; i < 4; ++i) {
            start[12 + i] = static_cast<uint8_t>(low >> (24 - 8 * i));
        }
        const Bytes iv = orvo_reference::IvForPreCounter(start);
        ExpectMatch(iv, RandomBytes(random, 70, 70), RandomBytes(random, 3, 3), 16);
    }
}

TEST(Gcm, EmptyIvIsAccepted) {
    Random random(4);
    SetKey(random);
    const Bytes plaintext = RandomBytes(random, 40, 40);
    const Bytes additional = RandomBytes(random, 7, 7);
    ExpectMatch({}, plaintext, additional, 16);
    // The hash of a block of zeros is zero, so the key stream starts with the counter 1.
    const Sealed sealed = Seal({}, plaintext, additional, 16);
    const Sealed counted =
        Seal(orvo_reference::IvForPreCounter(Block{}), plaintext, additional, 16);
    EXPECT_EQ(sealed.ciphertext, counted.ciphertext);
    EXPECT_EQ(sealed.tag, counted.tag);
}

TEST(Gcm, LongMessagesMatchTheDefinition) {
    Random random(5);
    SetKey(random);
    ExpectMatch(RandomBytes(random, 300, 300), RandomBytes(random, 5001, 5001),
                RandomBytes(random, 1000, 1000), 16);
}

// ---- Tags

TEST(Gcm, TagLengthsOutsideFourToSixteenFailBeforeAnythingIsComputed) {
    Random random(6);
    SetKey(random);
    const Bytes iv(12, 1);
    const Bytes text(20, 2);
    for (const uint32_t bad :
         {0u, 1u, 2u, 3u, 17u, 18u, 255u, 256u + 16u, 0x80000010u, UINT32_MAX}) {
        const int callsBefore = orvo_test::ForwardCalls();
        orvo_test::RecordBoundedCalls();
        Bytes out(20, kMark);
        Bytes tag(32, kMark);
        EXPECT_EQ(wb_aes_encrypt_gcm(iv.data(), 12, text.data(), 20, out.data(), nullptr, 0,
                                     tag.data(), bad),
                  -1);
        EXPECT_EQ(wb_aes_decrypt_gcm(iv.data(), 12, text.data(), 20, out.data(), nullptr, 0,
                                     tag.data(), bad),
                  -1);
        EXPECT_EQ(wb_aes_encrypt_gcm(nullptr, 12, nullptr, 20, nullptr, nullptr, 9, nullptr, bad),
                  -1);
        EXPECT_EQ(wb_aes_decrypt_gcm(nullptr, 12, nullptr, 20, nullptr, nullptr, 9, nullptr, bad),
                  -1);
        EXPECT_EQ(out, Bytes(20, kMark));
        EXPECT_EQ(tag, Bytes(32, kMark));
        EXPECT_EQ(orvo_test::ForwardCalls(), callsBefore);
        EXPECT_TRUE(orvo_test::BoundedCalls().empty());
        orvo_test::StopBoundedFaults();
    }
}

TEST(Gcm, ShorterTagsAreTheStartOfTheLongest) {
    Random random(7);
    SetKey(random);
    const Bytes plaintext = RandomBytes(random, 33, 33);
    const Bytes additional = RandomBytes(random, 5, 5);
    const Bytes iv = RandomBytes(random, 12, 12);
    const Sealed longest = Seal(iv, plaintext, additional, 16);
    for (size_t tagLength = 4; tagLength <= 16; ++tagLength) {
        ExpectMatch(iv, plaintext, additional, tagLength);
        EXPECT_TRUE(std::equal(longest.tag.begin(),
                               longest.tag.begin() + static_cast<ptrdiff_t>(tagLength),
                               Seal(iv, plaintext, additional, tagLength).tag.begin()));
    }
}

TEST(Gcm, TagLengthFourComparesTheFirstFourBytesOnly) {
    Random random(8);
    SetKey(random);
    const Bytes plaintext = RandomBytes(random, 21, 21);
    Sealed sealed = Seal(RandomBytes(random, 12, 12), plaintext, RandomBytes(random, 9, 9), 16);
    for (size_t i = 0; i < 16; ++i) {
        Bytes tag = sealed.tag;
        tag[i] ^= 0x10;
        Bytes out(21, kMark);
        const int32_t status =
            wb_aes_decrypt_gcm(sealed.iv.data(), 12, sealed.ciphertext.data(), 21, out.data(),
                               sealed.additional.data(), 9, tag.data(), 4);
        EXPECT_EQ(status, i < 4 ? -1 : 0) << i;
        EXPECT_EQ(out, i < 4 ? Bytes(21, kMark) : plaintext) << i;
    }
}

TEST(Gcm, EveryTagLengthComparesExactlyItsBytes) {
    Random random(9);
    SetKey(random);
    const Bytes plaintext = RandomBytes(random, 16, 16);
    const Sealed sealed = Seal(RandomBytes(random, 8, 8), plaintext, {}, 16);
    for (uint32_t tagLength = 4; tagLength <= 16; ++tagLength) {
        for (size_t i = 0; i < 16; ++i) {
            Bytes tag = sealed.tag;
            tag[i] ^= 0x01;
            Bytes out(16, kMark);
            EXPECT_EQ(wb_aes_decrypt_gcm(sealed.iv.data(), 8, sealed.ciphertext.data(), 16,
                                         out.data(), nullptr, 0, tag.data(), tagLength),
                      i < tagLength ? -1 : 0)
                << tagLength << ' ' << i;
        }
    }
}

TEST(Gcm, OneChangedCiphertextByteIsRefusedAndNothingIsWritten) {
    Random random(10);
    SetKey(random);
    Sealed sealed = Seal(RandomBytes(random, 12, 12), RandomBytes(random, 50, 50), {}, 16);
    for (uint8_t& byte : sealed.ciphertext) {
        const uint8_t kept = byte;
        byte = static_cast<uint8_t>(byte + random.Between(1, 255));
        ExpectRefused(sealed);
        byte = kept;
    }
    EXPECT_EQ(Open(sealed).status, 0);
}

TEST(Gcm, CutOrLengthenedMessagesAreRefused) {
    Random random(11);
    SetKey(random);
    const Sealed sealed = Seal(RandomBytes(random, 12, 12), RandomBytes(random, 32, 32),
                               RandomBytes(random, 16, 16), 16);
    // Zeros at the end that the padding would hide, but for the lengths; and a byte that changes
    // sides between additional data and text.
    for (Bytes Sealed::*part : {&Sealed::ciphertext, &Sealed::additional, &Sealed::iv}) {
        Sealed longer = sealed;
        (longer.*part).push_back(0);
        ExpectRefused(longer);
        Sealed shorter = sealed;
        (shorter.*part).pop_back();
        ExpectRefused(shorter);
    }
    Sealed moved = sealed;
    moved.ciphertext.insert(moved.ciphertext.begin(), moved.additional.begin(),
                            moved.additional.end());
    moved.additional.clear();
    ExpectRefused(moved);
}

// Every single bit of the tag, the text, the additional data and the IV, for 16 messages a test.
void ExpectEveryFlippedBitRefused(uint64_t seed) {
    Random random(seed);
    for (int message = 0; message < 16; ++message) {
        SetKey(random);
        const Bytes plaintext = RandomBytes(random, 0, 40);
        const bool usualIv = message % 2 == 0;
        const Bytes iv = usualIv ? RandomBytes(random, 12, 12) : RandomBytes(random, 1, 20);
        Sealed sealed = Seal(iv, plaintext, RandomBytes(random, 0, 24),
                             static_cast<size_t>(random.Between(4, 16)));
        const Opened opened = Open(sealed);
        ASSERT_EQ(opened.status, 0);
        ASSERT_EQ(opened.plaintext, plaintext);
        for (Bytes* part : {&sealed.tag, &sealed.ciphertext, &sealed.additional, &sealed.iv}) {
            for (size_t bit = 0; bit < part->size() * 8; ++bit) {
                const auto mask = static_cast<uint8_t>(1 << bit % 8);
                (*part)[bit / 8] ^= mask;
                ExpectRefused(sealed);
                (*part)[bit / 8] ^= mask;
            }
        }
    }
}

TEST(Gcm, EveryFlippedBitIsRefusedInMessages1To16) { ExpectEveryFlippedBitRefused(101); }

TEST(Gcm, EveryFlippedBitIsRefusedInMessages17To32) { ExpectEveryFlippedBitRefused(102); }

TEST(Gcm, EveryFlippedBitIsRefusedInMessages33To48) { ExpectEveryFlippedBitRefused(103); }

TEST(Gcm, EveryFlippedBitIsRefusedInMessages49To64) { ExpectEveryFlippedBitRefused(104); }

// ---- Memory

TEST(Gcm, NullAddressesAreFineWhereTheLengthIsZero) {
    Random random(12);
    SetKey(random);
    const Bytes empty = {};
    const orvo_reference::Sealed expected = orvo_reference::SealGcm(empty, empty, empty);
    Bytes tag(16, kMark);
    EXPECT_EQ(wb_aes_encrypt_gcm(nullptr, 0, nullptr, 0, nullptr, nullptr, 0, tag.data(), 16), 0);
    EXPECT_TRUE(std::equal(tag.begin(), tag.end(), expected.tag.begin()));
    EXPECT_EQ(wb_aes_decrypt_gcm(nullptr, 0, nullptr, 0, nullptr, nullptr, 0, tag.data(), 16), 0);
    tag[15] ^= 1;
    EXPECT_EQ(wb_aes_decrypt_gcm(nullptr, 0, nullptr, 0, nullptr, nullptr, 0, tag.data(), 16), -1);
}

TEST(Gcm, OutputMayBeTheInput) {
    Random random(13);
    for (int32_t length = 0; length <= 70; ++length) {
        SetKey(random);
        const Bytes plaintext = RandomBytes(random, length, length);
        const Bytes iv = RandomBytes(random, 1, 20);
        const Bytes additional = RandomBytes(random, 0, 20);
        const Sealed expected = Seal(iv, plaintext, additional, 16);
        Bytes buffer = plaintext;
        Bytes tag(16);
        EXPECT_EQ(
            wb_aes_encrypt_gcm(iv.data(), Length(iv), buffer.data(), Length(buffer), buffer.data(),
                               additional.data(), Length(additional), tag.data(), 16),
            0);
        ASSERT_EQ(buffer, expected.ciphertext);
        ASSERT_EQ(tag, expected.tag);
        EXPECT_EQ(
            wb_aes_decrypt_gcm(iv.data(), Length(iv), buffer.data(), Length(buffer), buffer.data(),
                               additional.data(), Length(additional), tag.data(), 16),
            0);
        ASSERT_EQ(buffer, plaintext);
        // A refusal leaves the buffer's ciphertext.
        tag[0] ^= 1;
        buffer = expected.ciphertext;
        EXPECT_EQ(
            wb_aes_decrypt_gcm(iv.data(), Length(iv), buffer.data(), Length(buffer), buffer.data(),
                               additional.data(), Length(additional), tag.data(), 16),
            -1);
        ASSERT_EQ(buffer, expected.ciphertext);
    }
}

// ---- Refused bounded copies

struct Attempt {
    int32_t status;
    Bytes out;
    Bytes tag;
    std::vector<orvo_test::BoundedCall> calls;
    bool lastCallWasTheTag;
};

// Whole blocks only, so that no partial block is copied about.
Attempt EncryptWithFault(int failing, bool forGood) {
    const Bytes iv(12, 7);
    const Bytes plaintext(32, 8);
    Attempt attempt = {0, Bytes(32, kMark), Bytes(12, kMark), {}, false};
    orvo_test::RecordBoundedCalls();
    orvo_test::FailBoundedCall(failing, ERANGE, forGood);
    attempt.status = wb_aes_encrypt_gcm(iv.data(), 12, plaintext.data(), 32, attempt.out.data(),
                                        nullptr, 0, attempt.tag.data(), 12);
    attempt.calls = orvo_test::BoundedCalls();
    orvo_test::StopBoundedFaults();
    attempt.lastCallWasTheTag =
        !attempt.calls.empty() && attempt.calls.back().dst == attempt.tag.data();
    return attempt;
}

TEST(GcmBoundedCopies, TagIsCopiedLastWithinItsLength) {
    Random random(14);
    SetKey(random);
    const Attempt clean = EncryptWithFault(0, false);
    ASSERT_EQ(clean.status, 0);
    ASSERT_TRUE(clean.lastCallWasTheTag);
    EXPECT_TRUE(clean.calls.back().isCopy);
    EXPECT_EQ(clean.calls.back().count, 12u);
    EXPECT_GE(clean.calls.back().dstSize, 12u);
    for (const auto& call : clean.calls) {
        EXPECT_EQ(call.result, 0);
    }
}

TEST(GcmBoundedCopies, RefusedCopyOfTheTagFails) {
    Random random(15);
    SetKey(random);
    const Attempt clean = EncryptWithFault(0, false);
    const Attempt refused = EncryptWithFault(static_cast<int>(clean.calls.size()), false);
    ASSERT_TRUE(refused.lastCallWasTheTag);
    EXPECT_EQ(refused.status, -1);
    EXPECT_EQ(refused.tag, Bytes(12, kMark));
}

TEST(GcmBoundedCopies, RefusedCopyOfThePreCounterBlockFailsBeforeAnyTextIsWritten) {
    Random random(16);
    SetKey(random);
    const Attempt clean = EncryptWithFault(0, false);
    int failures = 0;
    for (size_t n = 1; n < clean.calls.size(); ++n) {
        const Attempt refused = EncryptWithFault(static_cast<int>(n), false);
        if (refused.status == 0) {
            // Inside a step whose result does not count: a block is missing in the hash.
            EXPECT_NE(refused.tag, clean.tag);
            continue;
        }
        EXPECT_EQ(refused.status, -1);
        EXPECT_EQ(clean.calls[n - 1].count, 16u);
        EXPECT_EQ(refused.out, Bytes(32, kMark));
        EXPECT_EQ(refused.tag, Bytes(12, kMark));
        ++failures;
    }
    EXPECT_EQ(failures, 1);
}

TEST(GcmBoundedCopies, RefusedCopyOfThePreCounterBlockFailsDecryptionToo) {
    Random random(17);
    SetKey(random);
    const Sealed sealed = Seal(Bytes(12, 7), Bytes(32, 8), {}, 16);
    orvo_test::RecordBoundedCalls();
    ASSERT_EQ(Open(sealed).status, 0);
    const std::vector<orvo_test::BoundedCall> calls = orvo_test::BoundedCalls();
    orvo_test::StopBoundedFaults();
    int failuresAtTheStart = 0;
    for (size_t n = 1; n <= calls.size(); ++n) {
        const int forwardBefore = orvo_test::ForwardCalls();
        orvo_test::FailBoundedCall(static_cast<int>(n), EINVAL);
        const Opened opened = Open(sealed);
        orvo_test::StopBoundedFaults();
        // A block that is missing in the hash is a tag mismatch, so nothing succeeds.
        EXPECT_EQ(opened.status, -1);
        EXPECT_EQ(opened.plaintext, Bytes(32, kMark));
        // Without a counter block not even the tag is computed: the hash key was the only use of
        // the block cipher.
        failuresAtTheStart += orvo_test::ForwardCalls() == forwardBefore + 1;
    }
    EXPECT_EQ(failuresAtTheStart, 1);
}

TEST(GcmBoundedCopies, NothingIsSealedOrOpenedWhenEveryCopyIsRefused) {
    Random random(18);
    SetKey(random);
    const Attempt refused = EncryptWithFault(1, true);
    EXPECT_EQ(refused.status, -1);
    EXPECT_EQ(refused.out, Bytes(32, kMark));
    EXPECT_EQ(refused.tag, Bytes(12, kMark));
    const Sealed sealed = Seal(Bytes(12, 7), Bytes(32, 8), {}, 16);
    orvo_test::FailBoundedCall(1, ERANGE, true);
    ExpectRefused(sealed);
    orvo_test::StopBoundedFaults();
}

} // namespace
