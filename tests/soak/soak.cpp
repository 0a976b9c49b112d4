// SPDX-License-Identifier: MIT
//
//   soak PART COUNT [--fault growth|result|race]
//
// runs a part of the long test; `./run soak` runs them all. With a fault, something is done that the part
// must notice.
#include "soak/soak.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

#include "soak/silence.h"

namespace {

using orvo_soak::Fault;

struct Part {
    const char* name;
    const char* rounds;
    std::string (*run)(int64_t count, Fault fault);
};

constexpr Part kParts[] = {
    {"faces", "faces", orvo_soak::RunFaces},
    {"finds", "whole pictures", orvo_soak::RunFinds},
    {"cycles", "cycles of init and deinit", orvo_soak::RunCycles},
    {"calls", "mixed calls from each of 8 threads", orvo_soak::RunCalls},
    {"races", "races of init, deinit and extract", orvo_soak::RunRaces},
};

const Part* PartNamed(const char* name) {
    for (const Part& part : kParts) {
        if (std::strcmp(part.name, name) == 0) {
            return &part;
        }
    }
    return nullptr;
}

// @return 0 if it is no number of rounds
int64_t Count(const char* text) {
    char* end = nullptr;
    const long long count = std::strtoll(text, &end, 10);
    return end != text && *end == '\0' && count > 0 && count <= 1000000000 ? count : 0;
}

bool FaultNamed(const char* name, Fault& fault) {
    fault = std::strcmp(name, "growth") == 0   ? Fault::kGrowth
            : std::strcmp(name, "result") == 0 ? Fault::kResult
            : std::strcmp(name, "race") == 0   ? Fault::kRace
                                               : Fault::kNone;
    return fault != Fault::kNone;
}

int Run(const Part& part, int64_t count, Fault fault) {
    const auto start = std::chrono::steady_clock::now();
    std::string said;
    {
        const orvo_soak::Silence silence;
        said = part.run(count, fault);
    }
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    std::printf("%lld %s in %.0f s: %s\n", static_cast<long long>(count), part.rounds, took.count(),
                said.c_str());
    return 0;
}

} // namespace

#if defined(__SANITIZE_THREAD__)
// Standard error is turned away, and so would be what ThreadSanitizer has to say.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {
    return "log_path=stdout halt_on_error=1";
}
#endif

int main(int argc, char** argv) {
    const Part* const part = argc >= 3 ? PartNamed(argv[1]) : nullptr;
    const int64_t count = argc >= 3 ? Count(argv[2]) : 0;
    Fault fault = Fault::kNone;
    const bool isFaultRight = argc == 3 || (argc == 5 && std::strcmp(argv[3], "--fault") == 0 &&
                                            FaultNamed(argv[4], fault));
    if (part == nullptr || count == 0 || !isFaultRight) {
        std::fputs(
            "usage: soak faces|finds|cycles|calls|races COUNT [--fault growth|result|race]\n"
            "COUNT is 1 to 1000000000\n",
            stderr);
        return 2;
    }
    try {
        return Run(*part, count, fault);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "soak %s: %s\n", part->name, failure.what());
        return 1;
    }
}
