// SPDX-License-Identifier: MIT
// What is known to have been tried on GCM, as messages: each forgery is refused and leaves the output as it
// was, each true message is accepted with the plaintext that OpenSSL gives. The block cipher is the
// white box that the library was packed with.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "cipher/openssl_gcm.h"
#include "cipher/plain_gcm.h"
#include "cipher/test_keys.h"
#include "orvo/cipher.h"
#include "orvo/kova_mpi.h"
#include "support/random.h"

namespace {

using orvo_reference::Block;
using orvo_reference::Bytes;
using orvo_test::Random;

constexpr uint8_t kMark = 0x5c; // what unwritten output shows

struct Message {
    Bytes iv, additional, text, tag; // the text is enciphered
};

Bytes RandomBytes(Random& random, size_t length) {
    Bytes bytes(length);
    random.Fill(bytes.data(), length);
    return bytes;
}

uint32_t Length(const Bytes& bytes) { return static_cast<uint32_t>(bytes.size()); }

class GcmAttacks : public testing::Test {
  protected:
    GcmAttacks() { EXPECT_EQ(key_.size(), 16u) << "no key in " ORVO_KEY_FILE; }

    Message Seal(const Bytes& iv, const Bytes& plaintext, const Bytes& additional) {
        const orvo_test::OpenSslSealed sealed = openSsl_.Seal(key_, iv, plaintext, additional);
        return {iv, additional, sealed.ciphertext, sealed.tag};
    }

    // Messages of all kinds of lengths; the fourth has nothing but a tag.
    std::vector<Message> Messages() {
        struct Lengths {
            size_t iv, text, additional;
        };
        constexpr Lengths kLengths[] = {{12, 16, 0},  {12, 33, 20}, {12, 0, 16},
                                        {12, 0, 0},   {8, 32, 5},   {1, 15, 1},
                                        {16, 17, 16}, {17, 48, 0},  {64, 1, 33}};
        Random random(1);
        std::vector<Message> messages;
        for (const Lengths& lengths : kLengths) {
            messages.push_back(Seal(RandomBytes(random, lengths.iv),
                                    RandomBytes(random, lengths.text),
                                    RandomBytes(random, lengths.additional)));
        }
        return messages;
    }

    static int32_t Open(const Message& m, Bytes& plaintext) {
        plaintext.assign(m.text.size(), kMark);
        return wb_aes_decrypt_gcm(m.iv.data(), Length(m.iv), m.text.data(), Length(m.text),
                                  plaintext.data(), m.additional.data(), Length(m.additional),
                                  m.tag.data(), Length(m.tag));
    }

    void ExpectForgery(const Message& message, const std::string& attack) {
        Bytes plaintext;
        ASSERT_EQ(Open(message, plaintext), -1) << attack;
        ASSERT_EQ(plaintext, Bytes(message.text.size(), kMark)) << attack;
        // Where OpenSSL would take it the vector is none.
        ASSERT_FALSE(openSsl_.Open(key_, message.iv, message.text, message.additional, message.tag))
            << attack;
        ++vectors_;
    }

    void ExpectTrue(const Message& message, const std::string& kind) {
        const auto expected =
            openSsl_.Open(key_, message.iv, message.text, message.additional, message.tag);
        ASSERT_TRUE(expected.has_value()) << kind;
        Bytes plaintext;
        ASSERT_EQ(Open(message, plaintext), 0) << kind;
        ASSERT_EQ(plaintext, *expected) << kind;
        ++vectors_;
    }

    void TearDown() override {
        EXPECT_GT(vectors_, 0);
        RecordProperty("vectors", vectors_);
    }

    const Bytes key_ = orvo_test::PackingKey("white_box_key");
    orvo_test::OpenSslGcm openSsl_;
    int vectors_ = 0;
};

Message WithTag(Message message, const Bytes& tag) {
    message.tag = tag;
    return message;
}

TEST_F(GcmAttacks, TrueMessagesAreTakenWithEveryLengthOfTag) {
    for (Message message : Messages()) {
        for (; message.tag.size() >= 4; message.tag.pop_back()) {
            ExpectTrue(message, "true");
        }
    }
}

// One bit anywhere, under the longest tag and the shortest.
TEST_F(GcmAttacks, FlippedBits) {
    for (const size_t tagLength : {16u, 4u}) {
        for (Message message : Messages()) {
            message.tag.resize(tagLength);
            for (Bytes* part : {&message.tag, &message.text, &message.additional, &message.iv}) {
                for (size_t bit = 0; bit < 8 * part->size(); ++bit) {
                    (*part)[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
                    ExpectForgery(message, "bit " + std::to_string(bit));
                    (*part)[bit / 8] ^= static_cast<uint8_t>(1u << bit % 8);
                }
            }
        }
    }
}

// Several bits, whose differences a comparison by sum or by exclusive or of the bytes would lose.
TEST_F(GcmAttacks, ChangedTags) {
    for (const Message& message : Messages()) {
        Bytes tag = message.tag;
        for (size_t i = 0; i + 1 < tag.size(); ++i) {
            tag = message.tag;
            tag[i] ^= 0x80;
            tag[i + 1] ^= 0x80;
            ExpectForgery(WithTag(message, tag), "two equal flips");
            tag[i] = static_cast<uint8_t>(message.tag[i] + 1);
            tag[i + 1] = static_cast<uint8_t>(message.tag[i + 1] - 1);
            ExpectForgery(WithTag(message, tag), "one more and one less");
        }
        for (const uint8_t mask : {0xff, 0x80, 0x01, 0x55}) {
            tag = message.tag;
            std::ranges::for_each(tag, [mask](uint8_t& byte) { byte ^= mask; });
            ExpectForgery(WithTag(message, tag), "all bytes flipped");
        }
        tag = message.tag;
        std::ranges::reverse(tag);
        ExpectForgery(WithTag(message, tag), "reversed");
        std::rotate(tag.begin(), tag.begin() + 8, tag.end());
        ExpectForgery(WithTag(message, tag), "words changed over");
        ExpectForgery(WithTag(message, Bytes(16, 0)), "all zero");
        ExpectForgery(WithTag(message, Bytes(16, 0xff)), "all ones");
    }
}

// A tag that was cut is no longer one once it is filled up again; cut to fewer than four bytes it is refused,
// also where the bytes are right.
TEST_F(GcmAttacks, CutTags) {
    for (const Message& message : Messages()) {
        for (size_t kept = 4; kept < 16; ++kept) {
            for (const uint8_t fill : {0x00, 0xff}) {
                Bytes tag(message.tag.begin(), message.tag.begin() + static_cast<ptrdiff_t>(kept));
                tag.resize(16, fill);
                if (tag != message.tag) {
                    ExpectForgery(WithTag(message, tag), "filled up");
                }
            }
        }
        for (size_t kept = 0; kept < 4; ++kept) {
            Message cut = message;
            cut.tag.resize(kept);
            Bytes plaintext;
            ASSERT_EQ(Open(cut, plaintext), -1) << kept;
            ASSERT_EQ(plaintext, Bytes(message.text.size(), kMark)) << kept;
            ++vectors_;
        }
        Message longer = message;
        longer.tag.push_back(0);
        Bytes plaintext;
        ASSERT_EQ(Open(longer, plaintext), -1);
        ASSERT_EQ(plaintext, Bytes(message.text.size(), kMark));
    }
}

// What belongs to another message.
TEST_F(GcmAttacks, MixedMessages) {
    const std::vector<Message> messages = Messages();
    for (size_t i = 0; i < messages.size(); ++i) {
        const Message& other = messages[(i + 1) % messages.size()];
        Message mixed = messages[i];
        mixed.tag = other.tag;
        ExpectForgery(mixed, "another's tag");
        mixed = messages[i];
        mixed.iv = other.iv;
        ExpectForgery(mixed, "another's IV");
        mixed = messages[i];
        mixed.additional = other.additional;
        if (mixed.additional != messages[i].additional) {
            ExpectForgery(mixed, "another's additional data");
        }
        mixed = messages[i];
        mixed.text = other.text;
        if (mixed.text != messages[i].text) {
            ExpectForgery(mixed, "another's text");
        }
    }
}

// Bytes that come, go and change places: what the padding hides the lengths in the hash tell.
TEST_F(GcmAttacks, MovedBytes) {
    for (const Message& message : Messages()) {
        for (Bytes Message::*part : {&Message::text, &Message::additional, &Message::iv}) {
            Message changed = message;
            (changed.*part).push_back(0);
            ExpectForgery(changed, "a zero behind");
            changed = message;
            (changed.*part).insert((changed.*part).begin(), 0);
            ExpectForgery(changed, "a zero before");
            changed = message;
            (changed.*part).resize((message.*part).size() + 16, 0);
            ExpectForgery(changed, "a block of zeros behind");
            changed = message;
            if ((message.*part).size() > 1) {
                (changed.*part).pop_back();
                ExpectForgery(changed, "the last byte lost");
            }
            if ((message.*part).size() >= 32) {
                changed = message;
                std::swap_ranges((changed.*part).begin(), (changed.*part).begin() + 16,
                                 (changed.*part).begin() + 16);
                ExpectForgery(changed, "blocks changed over");
                changed = message;
                (changed.*part).erase((changed.*part).begin(), (changed.*part).begin() + 16);
                ExpectForgery(changed, "the first block lost");
            }
        }
        if (!message.additional.empty()) {
            Message moved = message;
            moved.text.insert(moved.text.begin(), moved.additional.begin(), moved.additional.end());
            moved.additional.clear();
            ExpectForgery(moved, "additional data in front of the text");
        }
        if (!message.text.empty()) {
            Message moved = message;
            moved.additional.insert(moved.additional.end(), moved.text.begin(), moved.text.end());
            moved.text.clear();
            ExpectForgery(moved, "the text behind the additional data");
        }
    }
}

// An IV of 12 bytes is not hashed, each other one is: one kind does not pass for the other.
TEST_F(GcmAttacks, IvsOfOtherLengths) {
    Random random(2);
    const Bytes text = RandomBytes(random, 40);
    // OpenSSL takes no more than 128 bytes.
    for (size_t length = 1; length <= 128; ++length) {
        const Message message = Seal(RandomBytes(random, length), text, {});
        ExpectTrue(message, "IV of " + std::to_string(length));
        Message cut = message;
        if (length != 12) {
            cut.iv.resize(12, 0);
            ExpectForgery(cut, "made 12 bytes long");
        }
        if (length == 12) {
            cut.iv.insert(cut.iv.end(), {0, 0, 0, 1});
            ExpectForgery(cut, "the counter block itself");
        }
    }
}

// No IV at all, which OpenSSL does not take: the counter starts at 0. No IV of zeros passes for it.
TEST_F(GcmAttacks, NoIv) {
    Random random(3);
    const Bytes plaintext = RandomBytes(random, 40);
    const orvo_reference::Sealed sealed = orvo_reference::SealGcm({}, plaintext, {});
    Message message = {{}, {}, sealed.ciphertext, Bytes(sealed.tag.begin(), sealed.tag.end())};
    Bytes opened;
    EXPECT_EQ(Open(message, opened), 0);
    EXPECT_EQ(opened, plaintext);
    for (size_t length = 1; length <= 32; ++length) {
        message.iv.assign(length, 0);
        ExpectForgery(message, "zeros");
    }
}

// Counters that wrap after the first block, the second and the third, and those whose carry would reach
// the upper 96 bits if it were let.
TEST_F(GcmAttacks, CountersThatWrap) {
    Random random(4);
    for (const uint32_t low : {0xffffffffu, 0xfffffffeu, 0xfffffffdu, 0xfffffffcu, 0x7fffffffu,
                               0x00ffffffu, 0x0000ffffu, 0x000000ffu, 0x00000000u}) {
        for (const uint8_t high : {0x00, 0xff, 0x5a}) {
            Block start;
            start.fill(high);
            for (size_t i = 0; i < 4; ++i) {
                start[12 + i] = static_cast<uint8_t>(low >> (24 - 8 * i));
            }
            Message message = Seal(orvo_reference::IvForPreCounter(start), RandomBytes(random, 80),
                                   RandomBytes(random, 3));
            ExpectTrue(message, "wraps");
            message.text[70] ^= 1;
            ExpectForgery(message, "behind the wrap");
        }
    }
}

// True messages whose tags look like none: a comparison that stops early, or takes zeros for nothing, would
// show. Only one text of 16 bytes has the tag that is wanted.
TEST_F(GcmAttacks, SpecialTags) {
    Random random(5);
    std::vector<Bytes> tags = {Bytes(16, 0x00), Bytes(16, 0xff), Bytes(16, 0x80), Bytes(16, 0x7f),
                               Bytes(16, 0x01)};
    for (size_t i = 0; i < 16; ++i) {
        tags.emplace_back(16, 0).at(i) = 0x01;
        tags.emplace_back(16, 0xff).at(i) = 0x7f;
    }
    for (const Bytes& tag : tags) {
        Message message = {RandomBytes(random, 12), {}, {}, tag};
        Block counter = {};
        std::ranges::copy(message.iv, counter.begin());
        counter[15] = 1;
        Block hash;
        wb_aes_encrypt(counter.data(), hash.data());
        for (size_t i = 0; i < 16; ++i) {
            hash[i] ^= tag[i];
        }
        // The hash of one block of text is that of one block of IV.
        message.text = orvo_reference::IvForPreCounter(hash);
        ExpectTrue(message, "special");
        message.text[0] ^= 0x80;
        ExpectForgery(message, "another text");
        message.text[0] ^= 0x80;
        for (size_t i = 0; i < 16; ++i) {
            message.tag[i] ^= 0x10;
            ExpectForgery(message, "another tag");
            message.tag[i] ^= 0x10;
        }
    }
}

// Additional data alone: a tag of nothing else, and its forgeries.
TEST_F(GcmAttacks, AdditionalDataAlone) {
    Random random(6);
    for (size_t length = 0; length <= 49; ++length) {
        Message message = Seal(RandomBytes(random, 12), {}, RandomBytes(random, length));
        ExpectTrue(message, "no text");
        for (uint8_t& byte : message.additional) {
            byte ^= 0x40;
            ExpectForgery(message, "changed");
            byte ^= 0x40;
        }
        message.text.assign(16, 0);
        ExpectForgery(message, "text that was not there");
    }
}

// What comes out of the other direction is what OpenSSL makes.
TEST_F(GcmAttacks, SealedAsOpenSslSeals) {
    Random random(7);
    for (const Message& message : Messages()) {
        const Bytes plaintext =
            *openSsl_.Open(key_, message.iv, message.text, message.additional, message.tag);
        Message sealed = {message.iv, message.additional, Bytes(plaintext.size(), kMark),
                          Bytes(16, kMark)};
        ASSERT_EQ(
            wb_aes_encrypt_gcm(sealed.iv.data(), Length(sealed.iv), plaintext.data(),
                               Length(plaintext), sealed.text.data(), sealed.additional.data(),
                               Length(sealed.additional), sealed.tag.data(), 16),
            0);
        EXPECT_EQ(sealed.text, message.text);
        EXPECT_EQ(sealed.tag, message.tag);
        ++vectors_;
    }
}

} // namespace
