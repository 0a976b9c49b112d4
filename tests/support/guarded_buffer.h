// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>

namespace orvo_test {

// Memory between two unmapped pages, so that a single byte read or written outside faults at once.
// The bytes touch the page after them (kAtEnd) or the page before them (kAtStart); a test that
// matters uses both. Fresh memory is filled with 0xA5. What is written on the other side, up to the
// page there, ends the process when the buffer goes.
class GuardedBuffer {
  public:
    enum Place { kAtEnd, kAtStart };

    explicit GuardedBuffer(size_t size, Place place = kAtEnd);
    ~GuardedBuffer();
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    uint8_t* bytes() { return data_; }
    int8_t* q7() { return reinterpret_cast<int8_t*>(data_); }
    template <typename T>
    T* as() {
        return reinterpret_cast<T*>(data_);
    }
    size_t size() const { return size_; }

    // Makes the pages that hold the bytes read-only: a kernel that writes its input faults.
    void MakeReadOnly();

  private:
    uint8_t* mapping_;
    size_t mappingSize_;
    uint8_t* data_;
    size_t size_;
};

} // namespace orvo_test
