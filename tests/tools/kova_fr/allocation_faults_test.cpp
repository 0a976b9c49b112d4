// SPDX-License-Identifier: MIT
// An allocation fails, once or from then on: the command says so in one line, and files are as they were or as
// they were to become.
#include <gtest/gtest.h>

#include <cstdlib>

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

    static size_t CountOf(FaultedCommand& command) {
        const TempFolder folder;
        command.PutBack();
        setenv("KOVA_COUNT_ALLOCATIONS", (folder / "count").c_str(), 1);
        EXPECT_EQ(command.Complaint(Run(command.arguments()), false), "");
        unsetenv("KOVA_COUNT_ALLOCATIONS");
        return std::stoul(ReadFile(folder / "count"));
    }
};

TEST_P(AllocationFaults, LeaveALineAndWholeFiles) {
    FaultedCommand command(GetParam(), WordsOf(GetParam()));
    const size_t count = CountOf(command);
    ASSERT_GT(count, 100u);
    int refused = 0;
    for (const size_t at : Positions(count)) {
        for (const char* kind : {"", "+"}) {
            SCOPED_TRACE("allocation " + std::to_string(at) + kind + " of " +
                         std::to_string(count));
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
    RecordProperty("allocations", static_cast<int>(count));
}

INSTANTIATE_TEST_SUITE_P(Of, AllocationFaults, testing::ValuesIn(FaultedCommandNames()),
                         [](const auto& command) { return command.param; });

} // namespace
} // namespace kova_fr_test
