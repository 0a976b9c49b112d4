// SPDX-License-Identifier: MIT
//
// kova-fr-bench SECONDS: times whole faces and their layers by kind on the path of this process and
// prints one JSON object. A program of its own, since it stands between the library and its kernels
// (kernel_routes.cpp), where kova-fr has no business. `kova-fr bench` runs it.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <numeric>
#include <span>
#include <stdexcept>

#include "layer_times/path_times.h"
#include "orvo/orvo_fr.h"

namespace kova_cli {
namespace {

using orvo_timing::Clock;

// Their middle is not one of two, and a slow machine still gets a few.
constexpr size_t kFewestRounds = 5;

Times Summarise(std::vector<double> times) {
    std::sort(times.begin(), times.end());
    return {times.front(), times[times.size() / 2]};
}

// A face-sized blob on a slope: the layers meet values of both signs, and the alignment finds a
// box.
std::vector<uint8_t> SomePicture() {
    std::vector<uint8_t> picture(size_t{ORVO_FR_IMAGE_SIZE} * ORVO_FR_IMAGE_SIZE);
    for (int y = 0; y < ORVO_FR_IMAGE_SIZE; ++y) {
        for (int x = 0; x < ORVO_FR_IMAGE_SIZE; ++x) {
            const int dx = x - 128;
            const int dy = y - 128;
            const int blob = std::max(0, 120 - (dx * dx + dy * dy) / 60);
            picture[static_cast<size_t>(y * ORVO_FR_IMAGE_SIZE + x)] =
                static_cast<uint8_t>(40 + x / 4 + blob + (x * y) % 7);
        }
    }
    return picture;
}

void Require(int32_t status, const char* what) {
    if (status != ORVO_FR_OK) {
        throw std::runtime_error(std::string(what) + " failed (" + std::to_string(status) +
                                 "); report this status");
    }
}

PathTimes Measure(double seconds) {
    PathTimes times;
    times.path = OrvoFrGetInstructionSet();
    times.memory = OrvoFrGetMemorySize();
    times.opening = orvo_timing::Milliseconds(
        orvo_timing::TimeWhole([] { Require(OrvoFrInit(), "opening the models"); }));
    std::vector<uint8_t> memory(times.memory);
    Require(OrvoFrSetMemory(memory.data(), times.memory), "setting the working memory");
    const std::vector<uint8_t> picture = SomePicture();
    const FrImage image{const_cast<uint8_t*>(picture.data()), ORVO_FR_IMAGE_SIZE,
                        ORVO_FR_IMAGE_SIZE, ORVO_FR_IMAGE_SIZE};
    const auto face = [&image] {
        float feature[ORVO_FR_FEATURE_LENGTH];
        Require(OrvoFrRun(&image, feature, sizeof feature), "computing a feature");
    };
    face(); // brings code and weights into the caches

    const unsigned allKinds =
        std::accumulate(std::begin(kKinds), std::end(kKinds), 0u,
                        [](unsigned parts, const Kind& kind) { return parts | kind.parts; });
    std::vector<double> whole;
    std::vector<double> rest;
    std::vector<std::vector<double>> kinds(std::size(kKinds));
    const auto start = Clock::now();
    while (whole.size() < kFewestRounds ||
           orvo_timing::Milliseconds(Clock::now() - start) < 1000 * seconds) {
        whole.push_back(orvo_timing::Milliseconds(orvo_timing::TimeWhole(face)));
        for (size_t i = 0; i < kinds.size(); ++i) {
            kinds[i].push_back(
                orvo_timing::Milliseconds(orvo_timing::TimeKinds(kKinds[i].parts, face)));
        }
        Clock::duration layers{};
        const Clock::duration all =
            orvo_timing::TimeWhole([&] { layers = orvo_timing::TimeKinds(allKinds, face); });
        rest.push_back(orvo_timing::Milliseconds(all - layers));
    }
    times.rounds = whole.size();
    times.face = Summarise(whole);
    times.rest = Summarise(rest);
    for (const std::vector<double>& kind : kinds) {
        times.kinds.push_back(Summarise(kind));
    }
    return times;
}

int Run(const char* seconds) {
    char* end = nullptr;
    const double wanted = std::strtod(seconds, &end);
    if (end == seconds || *end != '\0') {
        std::fputs("usage: kova-fr-bench SECONDS\n", stderr);
        return 2;
    }
    std::printf("%s\n", PathJson(Measure(wanted)).dump().c_str());
    return std::fflush(stdout) == 0 ? 0 : 1;
}

} // namespace
} // namespace kova_cli

int main(int count, char** arguments) {
    try {
        return kova_cli::Run(count == 2 ? arguments[1] : "");
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kova-fr-bench: %s\n", error.what());
        return 1;
    }
}
