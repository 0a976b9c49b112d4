// SPDX-License-Identifier: MIT
#pragma once

#include <cstring>
#include <vector>

#include "support/guarded_buffer.h"
#include "support/random.h"

namespace orvo_test {

inline constexpr GuardedBuffer::Place kBothPlaces[] = {GuardedBuffer::kAtEnd,
                                                       GuardedBuffer::kAtStart};

// A copy of `values` of exactly their size between unmapped pages.
template <typename T>
class GuardedCopy {
  public:
    GuardedCopy(const std::vector<T>& values, GuardedBuffer::Place place)
        : buffer_(values.size() * sizeof(T), place) {
        if (!values.empty()) {
            std::memcpy(buffer_.bytes(), values.data(), buffer_.size());
        }
    }
    T* data() { return buffer_.as<T>(); }
    std::vector<T> values() { return std::vector<T>(data(), data() + buffer_.size() / sizeof(T)); }

  protected:
    GuardedBuffer buffer_;
};

// The same, write-protected: for what a kernel may only read.
template <typename T>
class GuardedInput : public GuardedCopy<T> {
  public:
    GuardedInput(const std::vector<T>& values, GuardedBuffer::Place place)
        : GuardedCopy<T>(values, place) {
        this->buffer_.MakeReadOnly();
    }
    const T* data() { return GuardedCopy<T>::data(); }
};

inline std::vector<int8_t> RandomQ7(Random& random, size_t count) {
    std::vector<int8_t> values(count);
    random.Fill(values.data(), count);
    return values;
}

} // namespace orvo_test
