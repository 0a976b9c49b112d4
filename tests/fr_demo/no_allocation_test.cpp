// SPDX-License-Identifier: MIT
// This executable defines the allocation functions, so that the library's calls would arrive here.
// operator new and delete come down to the same functions.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "orvo/orvo_fr.h"
#ifdef ORVO_HAVE_FIND
#include "orvo/orvo_find.h"
#endif

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ORVO_OWN_ALLOCATOR 0 // the sanitizer's allocator must stay in place
#else
#define ORVO_OWN_ALLOCATOR 1
#endif

namespace {

volatile bool trapSet = false;
volatile int trapped = 0;

#if ORVO_OWN_ALLOCATOR
void Note() {
    if (trapSet) {
        trapped = trapped + 1;
    }
}
#endif

} // namespace

#if ORVO_OWN_ALLOCATOR
// The C library's own, under the names that it keeps for this purpose.
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* block);

void* malloc(size_t size) {
    Note();
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    Note();
    return __libc_calloc(count, size);
}
void* realloc(void* block, size_t size) {
    Note();
    return __libc_realloc(block, size);
}
void* memalign(size_t alignment, size_t size) {
    Note();
    return __libc_memalign(alignment, size);
}
void* aligned_alloc(size_t alignment, size_t size) {
    Note();
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** block, size_t alignment, size_t size) {
    Note();
    *block = __libc_memalign(alignment, size);
    return *block == nullptr ? ENOMEM : 0;
}
void free(void* block) {
    Note();
    __libc_free(block);
}
}
#endif

namespace {

template <typename Body>
int AllocationsDuring(Body body) {
    trapped = 0;
    trapSet = true;
    body();
    trapSet = false;
    return trapped;
}

class NoAllocation : public testing::Test {
  protected:
    void SetUp() override {
        if (!ORVO_OWN_ALLOCATOR) {
            GTEST_SKIP() << "the sanitizer supplies the allocator, which cannot be replaced";
        }
    }

    std::vector<uint8_t> memory_ = std::vector<uint8_t>(1410052);
    std::vector<uint8_t> picture_ = std::vector<uint8_t>(256 * 256, 100);
    std::vector<float> feature_ = std::vector<float>(128);
    FrImage image_{picture_.data(), 256, 256, 256};
};

TEST_F(NoAllocation, TrapSeesAllocations) {
    EXPECT_EQ(AllocationsDuring([] {
                  void* volatile block = malloc(10);
                  free(block);
                  int* volatile number = new int(3);
                  delete number;
              }),
              4);
}

TEST_F(NoAllocation, HappensInARunOnPlainModels) {
    ASSERT_EQ(OrvoFrInit(), 0);
    ASSERT_EQ(OrvoFrSetMemory(memory_.data(), 1410052), 0);
    for (int run = 0; run < 2; ++run) {
        int32_t status = -1;
        EXPECT_EQ(AllocationsDuring([&] { status = OrvoFrRun(&image_, feature_.data(), 512); }), 0);
        EXPECT_EQ(status, 0);
    }
}

TEST_F(NoAllocation, HappensInInitialisationAndSetup) {
    EXPECT_EQ(AllocationsDuring([] { EXPECT_EQ(OrvoFrInit(), 0); }), 0);
    EXPECT_EQ(AllocationsDuring([&] { EXPECT_EQ(OrvoFrSetMemory(memory_.data(), 1410052), 0); }),
              0);
    EXPECT_EQ(
        AllocationsDuring([&] { OrvoFrGetDistance(feature_.data(), 512, feature_.data(), 512); }),
        0);
}

#ifdef ORVO_HAVE_FIND
TEST_F(NoAllocation, HappensInTheFinder) {
    const uint32_t size = OrvoFindGetMemorySize(256, 256, ORVO_FIND_SMALLEST);
    std::vector<uint8_t> memory(size);
    const OrvoFindPicture picture = {picture_.data(), 256, 256, 256};
    ASSERT_EQ(OrvoFrInit(), 0);
    ASSERT_EQ(OrvoFrSetMemory(memory_.data(), 1410052), 0);
    EXPECT_EQ(AllocationsDuring([&] {
                  EXPECT_EQ(OrvoFindInit(), 0);
                  EXPECT_EQ(OrvoFindSetMemory(memory.data(), size), 0);
              }),
              0);
    OrvoFindFace faces[2] = {};
    float features[2 * ORVO_FIND_FEATURE_LENGTH];
    uint8_t crop[ORVO_FIND_CROP_SIZE * ORVO_FIND_CROP_SIZE];
    int32_t count = -1;
    int32_t status = -1;
    EXPECT_EQ(AllocationsDuring([&] {
                  status =
                      OrvoFindFeatures(&picture, ORVO_FIND_SMALLEST, faces, features, 2, &count);
              }),
              0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(AllocationsDuring([&] {
                  status = OrvoFindMirroredFeatures(&picture, ORVO_FIND_SMALLEST, faces, features,
                                                    2, &count);
              }),
              0);
    EXPECT_EQ(status, 0);
    faces[0].side = 100;
    EXPECT_EQ(AllocationsDuring([&] { status = OrvoFindUpright(&picture, faces, crop); }), 0);
    EXPECT_EQ(status, 0);
}
#endif

} // namespace
