// SPDX-License-Identifier: MIT
//
// Classes of machines, by the instructions that they have, and how each engine is kept to those of a
// class on a machine that has more:
//
//   ours      ORVO_FR_PATH, read when the first kernel runs
//   oneDNN    ONEDNN_MAX_CPU_ISA, read when its first primitive is made
//   XNNPACK   has no switch. It asks libcpuinfo, whose answers are a table in memory; what the class
//             lacks is struck out of it before XNNPACK is initialised
//
// So an engine is held once in the life of a process, before it is used.
#pragma once

#include <string>
#include <vector>

namespace orvo_bench {

// What of x86-64's instructions XNNPACK finds, each with all before it.
enum class Instructions { kSse41, kAvx2, kAll };

struct MachineClass {
    std::string name;
    std::string path;   // of ours
    std::string oneDnn; // the value of its variable; empty: all that it finds
    Instructions xnnpack = Instructions::kAll;
};

// Those whose path this machine can run, best first: with ORVO_FR_PATH set the one of that path.
// A path that is no class of machine has the engines as they are.
std::vector<MachineClass> MachineClasses();

// Keeps this process to a class. Throws std::runtime_error where an engine would not be kept.
void HoldTo(const MachineClass& machine);

} // namespace orvo_bench
