// SPDX-License-Identifier: MIT
#include "proof/family.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

#include "proof/paths.h"

namespace orvo_proof {
namespace {

constexpr size_t kMargin = 64;
constexpr uint8_t kMarginFill = 0xC3;

} // namespace

void Family::Compare(std::span<const uint8_t> expected,
                     const std::function<void(uint8_t* dst)>& run,
                     const std::function<std::string()>& describe) {
    wanted_.assign(expected.size() + 2 * kMargin, kMarginFill);
    std::copy(expected.begin(), expected.end(), wanted_.begin() + kMargin);
    const auto paths = Paths();
    for (size_t path = 0; path < paths.size(); ++path) {
        got_ = wanted_;
        for (size_t i = 0; i < expected.size(); ++i) {
            got_[kMargin + i] = static_cast<uint8_t>(~expected[i]);
        }
        UsePath(path);
        run(got_.data() + kMargin);
        if (plan_.spoil && cases_ == 0 && path + 1 == paths.size()) {
            got_[kMargin] ^= 1;
        }
        ++comparisons_;
        bytes_ += expected.size();
        if (got_ == wanted_) {
            continue;
        }
        if (first_.empty()) {
            const auto at = std::mismatch(got_.begin(), got_.end(), wanted_.begin()).first;
            first_ = std::string(paths[path]) + ": byte " +
                     std::to_string(at - got_.begin() - static_cast<ptrdiff_t>(kMargin)) + " of " +
                     describe();
        }
        for (size_t i = 0; i < got_.size(); ++i) {
            differing_ += got_[i] != wanted_[i] ? 1 : 0;
        }
    }
    ++cases_;
}

uint64_t Family::Report() const {
    std::printf("%-44s %9" PRIu64 " cases %10" PRIu64 " comparisons %14" PRIu64 " bytes %6" PRIu64
                " differ\n",
                name_, cases_, comparisons_, bytes_, differing_);
    if (differing_ != 0) {
        std::printf("    the first on %s\n", first_.c_str());
    }
    std::fflush(stdout);
    return differing_;
}

} // namespace orvo_proof
