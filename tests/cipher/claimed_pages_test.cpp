// SPDX-License-Identifier: MIT
// Before it deciphers, OrvoFrInit() tells the system which pages it will write. The program has a
// madvise() of its own, which the library meets first.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>

#include "orvo/model_store.h"
#include "orvo/orvo_fr.h"

namespace {

constexpr int kPopulateWrite = 23;

struct Claim {
    uintptr_t begin;
    uintptr_t end;
    bool isBeforeDeciphering; // of any array that was not claimed before
};

std::vector<Claim> claims;
std::vector<std::vector<uint8_t>> stored; // the arrays' contents as they were loaded
bool isRefused = false;

std::vector<ModelArray> Arrays() {
    std::vector<ModelArray> arrays(std::begin(g_alignArray), std::end(g_alignArray));
    arrays.insert(arrays.end(), std::begin(g_frArray), std::end(g_frArray));
    return arrays;
}

std::vector<uint8_t> BytesOf(const ModelArray& array) {
    const auto* data = static_cast<const uint8_t*>(array.data);
    return {data, data + array.size};
}

uintptr_t BeginOf(const ModelArray& array) { return reinterpret_cast<uintptr_t>(array.data); }

bool Holds(const Claim& claim, const ModelArray& array) {
    return claim.begin <= BeginOf(array) && BeginOf(array) + array.size <= claim.end;
}

bool IsClaimed(const ModelArray& array) {
    return std::ranges::any_of(claims,
                               [&array](const Claim& claim) { return Holds(claim, array); });
}

void Record(uintptr_t begin, uintptr_t end) {
    Claim claim = {begin, end, true};
    const std::vector<ModelArray> arrays = Arrays();
    for (size_t i = 0; i < arrays.size(); ++i) {
        if (Holds(claim, arrays[i]) && !IsClaimed(arrays[i]) && BytesOf(arrays[i]) != stored[i]) {
            claim.isBeforeDeciphering = false;
        }
    }
    claims.push_back(claim);
}

class ClaimedPages : public testing::Test {
  protected:
    ClaimedPages() {
        for (const ModelArray& array : Arrays()) {
            stored.push_back(BytesOf(array));
        }
    }
};

TEST_F(ClaimedPages, AreThoseOfAllArraysInFewCallsBeforeTheyAreDeciphered) {
    ASSERT_EQ(OrvoFrInit(), ORVO_FR_OK);
    ASSERT_FALSE(claims.empty());
    // One for each model, and one more where the linker put something between its arrays.
    EXPECT_LE(claims.size(), 4u);
    for (const ModelArray& array : Arrays()) {
        EXPECT_TRUE(IsClaimed(array)) << array.name;
    }
    for (const Claim& claim : claims) {
        EXPECT_EQ(claim.begin % static_cast<uintptr_t>(sysconf(_SC_PAGESIZE)), 0u);
        EXPECT_TRUE(claim.isBeforeDeciphering);
    }
}

// Elsewhere in memory there may be anything between them, or nothing.
TEST_F(ClaimedPages, OfArraysFarApartAreClaimedApart) {
    std::vector<uint8_t> far(stored[4].size() + 16);
    std::memcpy(far.data(), stored[4].data(), stored[4].size());
    g_alignArray[4].data = far.data();
    ASSERT_EQ(OrvoFrInit(), ORVO_FR_OK);
    size_t bytes = 0;
    size_t claimed = 0;
    for (const ModelArray& array : Arrays()) {
        bytes += array.size;
    }
    for (const Claim& claim : claims) {
        claimed += claim.end - claim.begin;
    }
    EXPECT_GE(claims.size(), 4u);
    // Beside the arrays, what fills them up to 16 bytes and what lies in front on a first page.
    EXPECT_LE(claimed, bytes + 16 * Arrays().size() +
                           claims.size() * static_cast<size_t>(sysconf(_SC_PAGESIZE)));
}

TEST_F(ClaimedPages, MayBeRefusedAndTheModelsOpenAllTheSame) {
    isRefused = true;
    errno = ERANGE;
    EXPECT_EQ(OrvoFrInit(), ORVO_FR_OK);
    EXPECT_EQ(errno, ERANGE);
    EXPECT_FALSE(claims.empty());
    const std::vector<ModelArray> arrays = Arrays();
    for (size_t i = 0; i < arrays.size(); ++i) {
        EXPECT_EQ(BytesOf(arrays[i]) != stored[i], arrays[i].size >= 16) << arrays[i].name;
    }
}

} // namespace

extern "C" ORVO_API int madvise(void* address, size_t length, int advice) noexcept {
    if (advice != kPopulateWrite) {
        return 0; // somebody else's; advice may be ignored
    }
    const auto begin = reinterpret_cast<uintptr_t>(address);
    Record(begin, begin + length);
    if (isRefused) {
        errno = EINVAL;
        return -1;
    }
    return 0;
}
#else
TEST(ClaimedPages, AreThoseOfAllArraysInFewCallsBeforeTheyAreDeciphered) {
    GTEST_SKIP() << "only Linux is told";
}
#endif
