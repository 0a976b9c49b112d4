// SPDX-License-Identifier: MIT
//
// WebAssembly protects no pages. Margins of a known pattern stand for them, and a copy of what must
// not be written: both are looked at when the buffer goes. A stray read stays unnoticed here unless
// it leaves the whole memory or its value changes a result; the guard pages of the native builds
// cover only what is compiled there, too, so not the kernels written for WebAssembly.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "support/guarded_buffer.h"

namespace orvo_test {
namespace {

constexpr size_t kMargin = 4096;
constexpr uint8_t kPattern = 0x5A;

void Require(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

bool IsUntouched(const uint8_t* margin) {
    for (size_t i = 0; i < kMargin; ++i) {
        if (margin[i] != kPattern) {
            return false;
        }
    }
    return true;
}

} // namespace

// margin, bytes, margin, and once it is read-only a copy of the bytes
GuardedBuffer::GuardedBuffer(size_t size, Place)
    : mapping_(static_cast<uint8_t*>(std::malloc(2 * kMargin + size))),
      mappingSize_(2 * kMargin + size),
      data_(mapping_ + kMargin),
      size_(size) {
    std::memset(mapping_, kPattern, mappingSize_);
    std::memset(data_, 0xA5, size);
}

GuardedBuffer::~GuardedBuffer() {
    Require(IsUntouched(mapping_), "written before a buffer");
    Require(IsUntouched(data_ + size_), "written behind a buffer");
    if (mappingSize_ > 2 * kMargin + size_) {
        Require(std::memcmp(data_, data_ + size_ + kMargin, size_) == 0, "input was written");
    }
    std::free(mapping_);
}

void GuardedBuffer::MakeReadOnly() {
    mappingSize_ = 2 * kMargin + 2 * size_;
    mapping_ = static_cast<uint8_t*>(std::realloc(mapping_, mappingSize_));
    data_ = mapping_ + kMargin;
    std::memcpy(data_ + size_ + kMargin, data_, size_);
}

} // namespace orvo_test
