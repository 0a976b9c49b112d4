// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ORVO_FUZZ_ADDRESSES 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define ORVO_FUZZ_ADDRESSES 1
#endif
#if defined(ORVO_FUZZ_ADDRESSES)
#include <sanitizer/asan_interface.h>
#else
#define ASAN_POISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#define ASAN_UNPOISON_MEMORY_REGION(address, size) ((void)(address), (void)(size))
#endif

namespace orvo_fuzz {

// Memory for the blocks of one run, each of the very size that was asked for: AddressSanitizer reports a byte
// read or written beside it, as it does for allocated blocks, without the time that allocating takes.
template <size_t kBytes>
class Arena {
  public:
    Arena() { ASAN_POISON_MEMORY_REGION(bytes_, sizeof bytes_); }

    // `skew` moves the block from where it is aligned. Null where no room is left.
    template <typename T>
    T* Take(size_t count, size_t skew = 0) {
        const size_t size = count * sizeof(T);
        const size_t begin = (used_ + kGap + 15) / 16 * 16 + skew % 16;
        if (size > kBytes || begin > kBytes - size - kGap) {
            return nullptr;
        }
        used_ = begin + size;
        ASAN_UNPOISON_MEMORY_REGION(bytes_ + begin, size);
        return reinterpret_cast<T*>(bytes_ + begin);
    }

    // Ends all blocks.
    void Reset() {
        ASAN_POISON_MEMORY_REGION(bytes_, used_);
        used_ = 0;
    }

  private:
    static constexpr size_t kGap = 64; // as wide as a vector

    alignas(64) uint8_t bytes_[kBytes];
    size_t used_ = 0;
};

} // namespace orvo_fuzz
