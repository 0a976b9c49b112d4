// SPDX-License-Identifier: MIT
// Writes golden_find_steps.h to standard output: the digest of every step of the reference networks.
#include <cinttypes>
#include <cstdio>

#include "find/step_digests.h"

namespace {

void Write(const char* name, std::vector<uint64_t> (*digestsOf)(int picture)) {
    const size_t steps = digestsOf(0).size();
    std::printf("inline constexpr uint64_t %s[2][%zu] = {\n", name, steps);
    for (int picture = 0; picture < 2; ++picture) {
        std::printf("    {\n");
        const std::vector<uint64_t> digests = digestsOf(picture);
        for (size_t i = 0; i < steps; ++i) {
            std::printf("%s0x%016" PRIX64 "u,%s", i % 4 == 0 ? "        " : " ", digests[i],
                        i % 4 == 3 || i + 1 == steps ? "\n" : "");
        }
        std::printf("    },\n");
    }
    std::printf("};\n");
}

} // namespace

int main() {
    std::printf(
        "// SPDX-License-Identifier: MIT\n"
        "// Written by make_find_goldens: do not edit.\n"
        "#pragma once\n\n"
        "#include <cstdint>\n\n"
        "namespace orvo_test {\n\n"
        "// clang-format off\n"
        "// [picture][step]\n");
    Write("kFindGolden", orvo_test::FindDigests);
    Write("kLookGolden", orvo_test::WideDigests);
    Write("kCloseGolden", orvo_test::CloseDigests);
    std::printf("// clang-format on\n\n} // namespace orvo_test\n");
    return 0;
}
