// SPDX-License-Identifier: MIT
//
// Commands that write files, to be run with a fault: what lies there before, and what may lie there afterwards.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "program.h"

namespace kova_fr_test {

class FaultedCommand {
  public:
    // In a folder of its own; `words` name files in it by @.
    FaultedCommand(const std::string& name, const std::vector<std::string>& words);

    std::vector<std::string> arguments() const { return arguments_; }
    const std::string& folder() const { return folder_.path(); }

    // What lies there before each run.
    void PutBack();
    // Whether the run was none of these: what it would have been without a fault, with all files new; or a
    // refusal, one line and status 1, with each file old or new. Empty where all is well.
    std::string Complaint(const Outcome& run, bool mayLeaveStage);
    // The next run, without a fault, over what the faulted one left.
    std::string ComplaintAboutNextRun();

  private:
    std::map<std::string, std::string> Files() const;
    std::string Listing(const std::string& gallery) const;

    TempFolder folder_;
    // A picture that cannot be used is left out, and that is said: the result is another then.
    bool leavesOut_;
    std::vector<std::string> arguments_;
    std::map<std::string, std::string> old_, new_;
    Outcome whole_;
    std::string oldListing_, newListing_;
};

// One of each kind of writing, by its name.
std::vector<std::string> FaultedCommandNames();
std::vector<std::string> WordsOf(const std::string& name);

// Eight positions of all there are, spread over them, the first and the last among them; as many as the
// environment's KOVA_FR_FAULTS says, where it does.
std::vector<size_t> Positions(size_t all);

} // namespace kova_fr_test
