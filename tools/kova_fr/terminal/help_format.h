// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace kova_cli {

// Help whose lines end before the 100th column.
class HelpFormat : public CLI::Formatter {
  public:
    std::string make_option(const CLI::Option* option, bool isPositional) const override;
    std::string make_subcommand(const CLI::App* command) const override;
};

} // namespace kova_cli
