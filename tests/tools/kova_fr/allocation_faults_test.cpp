// SPDX-License-Identifier: MIT
// An allocation fails, once or from then on: the command says so in one line, and files are as they were or as
// they were to become.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string_view>

#include "faulted_commands.h"

namespace kova_fr_test {
namespace {

class AllocationFaults : public testing::TestWithParam<std::string> {
  protected:
    static Outcome Run(const std::vector<std::string>& arguments) {
        setenv("LD_PRELOAD", ORVO_ALLOCATION_FAULTS, 1);
        Outcome run = KovaFr(arguments);
        unsetenv("LD_PRELOAD");
        return run;
    }

    // How many the command makes, and the first of each chain of callers.
    struct Allocations {
        size_t count = 0;
        std::vector<size_t> firsts;
    };

    static Allocations AllocationsOf(FaultedCommand& command) {
        const TempFolder folder;
        command.PutBack();
        setenv("KOVA_COUNT_ALLOCATIONS", (folder / "count").c_str(), 1);
        EXPECT_EQ(command.Complaint(Run(command.arguments()), false), "");
        unsetenv("KOVA_COUNT_ALLOCATIONS");
        Allocations all;
        std::istringstream numbers(ReadFile(folder / "count"));
        numbers >> all.count;
        for (size_t first; numbers >> first;) {
            all.firsts.push_back(first);
        }
        std::sort(all.firsts.begin(), all.firsts.end());
        return all;
    }

    static std::vector<size_t> PlacesOf(const Allocations& all) {
        const char* const wanted = std::getenv("KOVA_FR_FAULTS");
        return wanted != nullptr && std::string_view(wanted) == "callers" ? all.firsts
                                                                          : Positions(all.count);
    }
};

TEST_P(AllocationFaults, LeaveALineAndWholeFiles) {
    FaultedCommand command(GetParam(), WordsOf(GetParam()));
    const Allocations all = AllocationsOf(command);
    ASSERT_GT(all.count, 100u);
    ASSERT_GT(all.firsts.size(), 50u);
    ASSERT_EQ(all.firsts.front(), 1u);
    ASSERT_LE(all.firsts.back(), all.count);
    int refused = 0;
    for (const size_t at : PlacesOf(all)) {
        for (const char* kind : {"", "+"}) {
            SCOPED_TRACE("allocation " + std::to_string(at) + kind + " of " +
                         std::to_string(all.count));
            command.PutBack();
            setenv("KOVA_FAIL_ALLOCATION", (std::to_string(at) + kind).c_str(), 1);
            const Outcome run = Run(command.arguments());
            unsetenv("KOVA_FAIL_ALLOCATION");
            EXPECT_EQ(command.Complaint(run, true), "");
            EXPECT_EQ(command.ComplaintAboutNextRun(), "");
            refused += run.status == 0 ? 0 : 1;
        }
    }
    EXPECT_GT(refused, 0);
    RecordProperty("allocations", static_cast<int>(all.count));
    RecordProperty("callers", static_cast<int>(all.firsts.size()));
}

INSTANTIATE_TEST_SUITE_P(Of, AllocationFaults, testing::ValuesIn(FaultedCommandNames()),
                         [](const auto& command) { return command.param; });

} // namespace
} // namespace kova_fr_test
