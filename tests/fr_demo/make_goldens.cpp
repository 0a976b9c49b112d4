// SPDX-License-Identifier: MIT
// Writes golden_steps.h to standard output: the digest of every step of both reference networks.
#include <cinttypes>
#include <cstdio>

#include "fr_demo/step_digest.h"

namespace {

void PrintArray(const char* name, const std::vector<uint64_t> (&pictures)[2]) {
    std::printf("inline constexpr uint64_t %s[%d][%zu] = {\n", name, orvo_reference::kPictures,
                pictures[0].size());
    for (const std::vector<uint64_t>& digests : pictures) {
        std::printf("    {\n");
        for (size_t i = 0; i < digests.size(); ++i) {
            std::printf("%s0x%016" PRIX64 "u,%s", i % 4 == 0 ? "        " : " ", digests[i],
                        i % 4 == 3 || i + 1 == digests.size() ? "\n" : "");
        }
        std::printf("    },\n");
    }
    std::printf("};\n");
}

} // namespace

int main() {
    std::printf(
        "// SPDX-License-Identifier: MIT\n"
        "// Written by make_goldens: do not edit.\n"
        "#pragma once\n\n"
        "#include <cstdint>\n\n"
        "namespace orvo_test {\n\n"
        "// clang-format off\n"
        "// [picture][step]\n");
    PrintArray("kAlignGolden", {orvo_test::AlignDigests(0), orvo_test::AlignDigests(1)});
    PrintArray("kFrGolden", {orvo_test::FrDigests(0), orvo_test::FrDigests(1)});
    std::printf("// clang-format on\n\n} // namespace orvo_test\n");
    return 0;
}
