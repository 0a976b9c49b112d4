// SPDX-License-Identifier: MIT
//
// Shows that all paths of this machine give the bytes of the plain definitions: a line for each family of
// cases with how many comparisons were made and how many bytes differ. Exits with 1 if any does.
//
//   prove [--seeds N] [--every N] [--spoil]
//
//   --seeds N   of each of the networks' shapes (100)
//   --every N   takes each Nth case alone; a prime, so that every kind of case comes up
//   --spoil     turns a bit of each family's first result over, to show that it is noticed
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "proof/families.h"
#include "proof/paths.h"

namespace {

int Usage() {
    std::fputs("usage: prove [--seeds N] [--every N] [--spoil], N from 1 on\n", stderr);
    return 2;
}

bool Number(const char* text, uint64_t& number) {
    char* end = nullptr;
    number = text == nullptr ? 0 : std::strtoull(text, &end, 10);
    return number >= 1 && *end == '\0';
}

} // namespace

int main(int argc, char** argv) {
    orvo_proof::Plan plan;
    for (int i = 1; i < argc; ++i) {
        uint64_t* number = nullptr;
        if (std::strcmp(argv[i], "--spoil") == 0) {
            plan.spoil = true;
            continue;
        }
        if (std::strcmp(argv[i], "--seeds") == 0) {
            number = &plan.seeds;
        } else if (std::strcmp(argv[i], "--every") == 0) {
            number = &plan.every;
        }
        if (number == nullptr || !Number(argv[++i], *number)) {
            return Usage();
        }
    }
    std::printf("paths:");
    for (const char* path : orvo_proof::Paths()) {
        std::printf(" %s", path);
    }
    std::printf("\n");
    const uint64_t differing = orvo_proof::ProveConvolutions(plan) +
                               orvo_proof::ProveReductions(plan) + orvo_proof::ProvePooling(plan) +
                               orvo_proof::ProveElementwise(plan);
    std::printf("%" PRIu64 " bytes differ\n", differing);
    return differing == 0 ? 0 : 1;
}
