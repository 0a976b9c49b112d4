// SPDX-License-Identifier: MIT
#include "terminal/help_format.h"

#include "terminal/label.h"

namespace kova_cli {
namespace {

constexpr size_t kColumns = 100;

// A name, and beside it what it means.
std::string Entry(const std::string& name, const std::string& meaning, size_t indent) {
    const std::string blank(indent, ' ');
    std::string first = PadRight("  " + name, indent);
    std::string lines;
    if (LabelLength(name) + 2 >= indent) {
        lines = Wrapped("  " + name, "", blank, kColumns);
        first = blank;
    }
    return meaning.empty() ? Wrapped("  " + name, "", blank, kColumns)
                           : lines + Wrapped(meaning, first, blank, kColumns);
}

} // namespace

std::string HelpFormat::make_option(const CLI::Option* option, bool isPositional) const {
    return Entry(make_option_name(option, isPositional) + make_option_opts(option),
                 make_option_desc(option), column_width_);
}

std::string HelpFormat::make_subcommand(const CLI::App* command) const {
    return Entry(command->get_name(), command->get_description(), column_width_);
}

} // namespace kova_cli
