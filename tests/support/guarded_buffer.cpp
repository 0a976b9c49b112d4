// SPDX-License-Identifier: MIT
#include "support/guarded_buffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace orvo_test {
namespace {

constexpr uint8_t kFresh = 0xA5;

void Require(bool ok, const char* what) {
    if (!ok) {
        std::perror(what);
        std::abort();
    }
}

// Each byte is the one before it, and the first is fresh: so the C library compares them, which it does fast.
void RequireFresh(const uint8_t* from, const uint8_t* to, const char* what) {
    if (from != to &&
        (*from != kFresh || std::memcmp(from, from + 1, static_cast<size_t>(to - from) - 1) != 0)) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

size_t PageSize() { return static_cast<size_t>(sysconf(_SC_PAGESIZE)); }

} // namespace

GuardedBuffer::GuardedBuffer(size_t size, Place place) : size_(size) {
    const size_t page = PageSize();
    const size_t inner = (size + page - 1) / page * page;
    mappingSize_ = inner + 2 * page;
    void* mapping = mmap(nullptr, mappingSize_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    Require(mapping != MAP_FAILED, "mmap");
    mapping_ = static_cast<uint8_t*>(mapping);
    if (inner != 0) {
        Require(mprotect(mapping_ + page, inner, PROT_READ | PROT_WRITE) == 0, "mprotect");
    }
    data_ = place == kAtEnd ? mapping_ + page + inner - size : mapping_ + page;
    if (inner != 0) {
        std::memset(mapping_ + page, kFresh, inner);
    }
}

GuardedBuffer::~GuardedBuffer() {
    const size_t page = PageSize();
    RequireFresh(mapping_ + page, data_, "written before a buffer");
    RequireFresh(data_ + size_, mapping_ + mappingSize_ - page, "written behind a buffer");
    munmap(mapping_, mappingSize_);
}

void GuardedBuffer::MakeReadOnly() {
    const size_t page = PageSize();
    if (mappingSize_ > 2 * page) {
        Require(mprotect(mapping_ + page, mappingSize_ - 2 * page, PROT_READ) == 0, "mprotect");
    }
}

} // namespace orvo_test
