// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>

// AES-128 as its definition reads, byte by byte and without a table that was given: slow, and
// shares nothing with the library.
namespace orvo_test {

class SlowAes {
  public:
    using Block = std::array<uint8_t, 16>;

    explicit SlowAes(const uint8_t key[16]) {
        for (int i = 0; i < 256; ++i) {
            const uint8_t b = Inverse(static_cast<uint8_t>(i));
            uint8_t s = 0x63;
            for (int turn = 0; turn < 5; ++turn) {
                s = static_cast<uint8_t>(s ^ (b << turn | b >> (8 - turn)));
            }
            box_[static_cast<size_t>(i)] = s;
            inverseBox_[s] = static_cast<uint8_t>(i);
        }
        for (int i = 0; i < 16; ++i) {
            expanded_[i] = key[i];
        }
        uint8_t constant = 1;
        for (int i = 16; i < 176; i += 4) {
            std::array<uint8_t, 4> t = {expanded_[i - 4], expanded_[i - 3], expanded_[i - 2],
                                        expanded_[i - 1]};
            if (i % 16 == 0) {
                t = {static_cast<uint8_t>(box_[t[1]] ^ constant), box_[t[2]], box_[t[3]],
                     box_[t[0]]};
                constant = Times(constant, 2);
            }
            for (int k = 0; k < 4; ++k) {
                expanded_[i + k] = static_cast<uint8_t>(expanded_[i + k - 16] ^ t[k]);
            }
        }
    }

    Block Encrypt(Block s) const {
        AddKey(&s, 0);
        for (int round = 1; round <= 10; ++round) {
            Block t;
            for (int i = 0; i < 16; ++i) {
                t[i] =
                    box_[s[(i + 4 * (i % 4)) % 16]]; // row r of a column comes from r to the right
            }
            s = round == 10 ? t : Mix(t, {2, 3, 1, 1});
            AddKey(&s, round);
        }
        return s;
    }

    Block Decrypt(Block s) const {
        AddKey(&s, 10);
        for (int round = 9; round >= 0; --round) {
            Block t;
            for (int i = 0; i < 16; ++i) {
                t[i] = inverseBox_[s[(i + 12 * (i % 4)) % 16]];
            }
            AddKey(&t, round);
            s = round == 0 ? t : Mix(t, {14, 11, 13, 9});
        }
        return s;
    }

  private:
    static uint8_t Times(uint8_t a, uint8_t b) {
        unsigned product = 0;
        for (int bit = 0; bit < 8; ++bit) {
            product ^= (b >> bit & 1) != 0 ? static_cast<unsigned>(a) << bit : 0;
        }
        for (int bit = 15; bit >= 8; --bit) {
            product ^= (product >> bit & 1) != 0 ? 0x11bu << (bit - 8) : 0;
        }
        return static_cast<uint8_t>(product);
    }

    static uint8_t Inverse(uint8_t a) {
        for (int b = 1; b < 256; ++b) {
            if (Times(a, static_cast<uint8_t>(b)) == 1) {
                return static_cast<uint8_t>(b);
            }
        }
        return 0;
    }

    static Block Mix(const Block& s, const std::array<uint8_t, 4>& row) {
        Block mixed = {};
        for (int i = 0; i < 16; ++i) {
            for (int k = 0; k < 4; ++k) {
                mixed[i] ^= Times(s[i / 4 * 4 + k], row[(k - i % 4 + 4) % 4]);
            }
        }
        return mixed;
    }

    void AddKey(Block* s, int round) const {
        for (int i = 0; i < 16; ++i) {
            (*s)[i] ^= expanded_[16 * round + i];
        }
    }

    std::array<uint8_t, 256> box_ = {};
    std::array<uint8_t, 256> inverseBox_ = {};
    std::array<uint8_t, 176> expanded_ = {};
};

} // namespace orvo_test
