// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

namespace kova_cli {

// Each adds one command to the program. The command runs while the command line is parsed.
void AddCompareCommand(CLI::App& program);
void AddExtractCommand(CLI::App& program);
void AddFindCommand(CLI::App& program);
void AddInspectCommand(CLI::App& program);
void AddEnrollCommand(CLI::App& program);
void AddIdentifyCommand(CLI::App& program);
void AddGalleryCommand(CLI::App& program);
void AddEvalCommand(CLI::App& program);
void AddCalibrateCommand(CLI::App& program);
void AddBenchCommand(CLI::App& program);
void AddInfoCommand(CLI::App& program);
void AddServeCommand(CLI::App& program);

} // namespace kova_cli
