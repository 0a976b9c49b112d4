// SPDX-License-Identifier: MIT
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace orvo_fuzz {

// The bytes of one run, which a target takes from the front. Where none are left numbers are 0, so that a
// short input is a small case and nothing depends on more than its bytes. libFuzzer has a consumer of its
// own; this one is there for compilers without libFuzzer as well, and allocates nothing.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : rest_(data, size) {}

    size_t left() const { return rest_.size(); }

    uint8_t Byte() { return Number<uint8_t>(); }
    bool Flag() { return (Byte() & 1) != 0; }

    // With its lowest byte first.
    template <typename T>
    T Number() {
        T number = {};
        const size_t count = sizeof number < left() ? sizeof number : left();
        if (count > 0) {
            std::memcpy(&number, rest_.data(), count);
            rest_ = rest_.subspan(count);
        }
        return number;
    }

    // From `low` to `high`, both included.
    uint32_t Between(uint32_t low, uint32_t high) {
        const uint32_t range = high - low + 1;
        return low + (range <= 256 ? Byte() : Number<uint16_t>()) % range;
    }

    // The next bytes; fewer where fewer are left.
    std::span<const uint8_t> Bytes(size_t count) {
        const auto bytes = rest_.first(count < left() ? count : left());
        rest_ = rest_.subspan(bytes.size());
        return bytes;
    }
    std::span<const uint8_t> Rest() { return Bytes(left()); }

    // Fills all of it with the next bytes; what they do not reach is 0.
    template <typename T>
    void Fill(T* to, size_t count) {
        const auto bytes = Bytes(count * sizeof(T));
        std::memset(static_cast<void*>(to), 0, count * sizeof(T));
        if (!bytes.empty()) {
            std::memcpy(static_cast<void*>(to), bytes.data(), bytes.size());
        }
    }

  private:
    static_assert(std::endian::native == std::endian::little, "corpora hold numbers as they lie");

    std::span<const uint8_t> rest_;
};

} // namespace orvo_fuzz
