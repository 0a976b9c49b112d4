// SPDX-License-Identifier: MIT
//
// Measures how much stack one OrvoFrRun() takes: runs it on a thread whose stack was filled with a
// pattern, and looks how far down the pattern is gone.
//
//   stack_depth [LIMIT]    prints the bytes; exit status 1 if they exceed LIMIT
#include <pthread.h>
#include <sys/mman.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "orvo/orvo_fr.h"

namespace {

constexpr size_t kStackBytes = 1 << 20;
constexpr uint8_t kUntouched = 0xA5;

// Not inlined, so that its frame is the one the depth is counted from.
__attribute__((noinline)) void RunFrom(uintptr_t* top, const FrImage* image, float* feature) {
    *top = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    if (OrvoFrRun(image, feature, ORVO_FR_FEATURE_BYTES) != ORVO_FR_OK) {
        std::exit(2);
    }
}

void* Thread(void* top) {
    std::vector<uint8_t> picture(ORVO_FR_IMAGE_SIZE * ORVO_FR_IMAGE_SIZE, 128);
    const FrImage image{picture.data(), ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE};
    static float feature[ORVO_FR_FEATURE_LENGTH];
    RunFrom(static_cast<uintptr_t*>(top), &image, feature);
    return nullptr;
}

void Require(bool ok, const char* what) {
    if (!ok) {
        std::fprintf(stderr, "stack_depth: %s failed\n", what);
        std::exit(2);
    }
}

// Runs once on a stack of its own and returns the bytes used below RunFrom().
size_t MeasureOnce() {
    void* stack =
        mmap(nullptr, kStackBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    Require(stack != MAP_FAILED, "mmap");
    std::memset(stack, kUntouched, kStackBytes);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    Require(pthread_attr_setstack(&attributes, stack, kStackBytes) == 0, "pthread_attr_setstack");
    pthread_t thread;
    uintptr_t top = 0;
    Require(pthread_create(&thread, &attributes, Thread, &top) == 0, "pthread_create");
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
    const uint8_t* lowest = static_cast<uint8_t*>(stack);
    while (*lowest == kUntouched) {
        ++lowest;
    }
    const size_t depth = top - reinterpret_cast<uintptr_t>(lowest);
    munmap(stack, kStackBytes);
    return depth;
}

} // namespace

int main(int argc, char** argv) {
    std::vector<uint8_t> memory(OrvoFrGetMemorySize());
    Require(OrvoFrInit() == ORVO_FR_OK, "OrvoFrInit");
    Require(OrvoFrSetMemory(memory.data(), OrvoFrGetMemorySize()) == ORVO_FR_OK, "OrvoFrSetMemory");
    MeasureOnce(); // the first run also binds the imported functions, which takes stack of its own
    const size_t depth = MeasureOnce();
    std::printf("%zu\n", depth);
    return argc > 1 && depth > std::strtoul(argv[1], nullptr, 10) ? 1 : 0;
}
