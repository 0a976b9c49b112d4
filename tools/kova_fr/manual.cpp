// SPDX-License-Identifier: MIT
#include "manual.h"

#include <algorithm>
#include <cctype>

namespace kova_cli {
namespace {

// A backslash begins an escape, a dot or an apostrophe at the begin of a line a request, and a bare
// hyphen may be typeset as one that no shell takes.
std::string Escaped(const std::string& text) {
    std::string escaped;
    bool isLineBegin = true;
    for (const char character : text) {
        if (isLineBegin && (character == '.' || character == '\'')) {
            escaped += "\\&";
        }
        escaped += character == '\\' ? "\\e" : character == '-' ? "\\-" : std::string(1, character);
        isLineBegin = character == '\n';
    }
    return escaped;
}

std::string Upper(std::string text) {
    std::ranges::transform(text, text.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return text;
}

std::string Section(const std::string& name) { return ".SH " + Upper(name) + "\n"; }

std::string Bold(const std::string& text) { return "\\fB" + Escaped(text) + "\\fR"; }

std::string Italic(const std::string& text) { return "\\fI" + Escaped(text) + "\\fR"; }

bool IsPositional(const CLI::Option& option) { return option.get_positional(); }

// The name of what stands for itself, or the option with its value.
std::string Heading(const CLI::Option& option) {
    const std::string value = option.get_type_name();
    if (IsPositional(option)) {
        return Italic(value.empty() ? Upper(option.get_name()) : value);
    }
    const bool takesValue = option.get_items_expected_max() > 0;
    return Bold(option.get_name(false, true)) + (takesValue ? " " + Italic(value) : "");
}

// Lines as they stand.
std::string AsItStands(const std::string& text) {
    return text.empty() ? "" : ".PP\n.nf\n" + Escaped(text) + "\n.fi\n";
}

std::string CommandText(const CLI::App& command) {
    std::string usage = Bold("kova-fr " + command.get_name());
    std::string options;
    for (const CLI::Option* option : command.get_options()) {
        if (option->get_name() == "--help") {
            continue;
        }
        usage += IsPositional(*option) ? " " + Heading(*option) : "";
        options += ".TP\n" + Heading(*option) + "\n" + Escaped(option->get_description()) + "\n";
    }
    return ".SS " + Escaped(command.get_name()) + "\n" + usage + " [" + Italic("OPTION") +
           "]...\n.PP\n" + Escaped(command.get_description()) + ".\n" + options +
           AsItStands(command.get_footer());
}

constexpr const char* kRest = R"(.SH ENVIRONMENT
.TP
\fBORVO_FR_PATH\fR
The instruction set to compute with, such as \fBplain\fR or \fBavx2\fR; every one gives the same
results. \fBkova\-fr info\fR shows which one it is.
.TP
\fBORVO_FR_CIPHER\fR
How the models are opened: \fBwide_instructions\fR, \fBinstructions\fR, \fBlook_up\fR or \fBplain\fR, with the same
results.
.SH FILES
A gallery is one file, readable by its owner alone when it is made. Its rules and its format stand in
docs/GALLERY.md of the sources.
)";

} // namespace

std::string ManualPage(const CLI::App& program) {
    std::string page =
        ".TH KOVA\\-FR 1 \"\" \"Orvo FR " ORVO_VERSION "\" \"User Commands\"\n" + Section("Name") +
        "kova\\-fr \\- find, compare and recognise faces in pictures\n" + Section("Synopsis") +
        Bold("kova-fr") + " " + Italic("COMMAND") + " [" + Italic("OPTION") + "]... [" +
        Italic("ARGUMENT") + "]...\n" + Section("Description") +
        Escaped(program.get_description()) + AsItStands(program.get_footer()) + Section("Commands");
    for (const CLI::App* command : program.get_subcommands([](const CLI::App* app) {
             return !app->get_group().empty(); // hidden ones have none
         })) {
        page += CommandText(*command);
    }
    return page + kRest;
}

} // namespace kova_cli
