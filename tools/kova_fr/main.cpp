// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <numeric>
#include <sstream>
#include <vector>

#include "commands/commands.h"
#include "evaluation/shipped_thresholds.h"
#include "files/failure.h"
#include "files/output_file.h"
#include "manual.h"
#include "pictures/picture_io.h"
#include "terminal/help_format.h"
#include "terminal/label.h"

namespace {

enum Status { kSuccess = 0, kFailure = 1, kWrongUsage = 2, kNobody = 3 };

#ifdef ORVO_HAVE_SERVICE
#define ORVO_SERVICE_TEXT "\nserve: with cpp-httplib " ORVO_HTTPLIB_VERSION
#else
#define ORVO_SERVICE_TEXT "\nserve: not built, for want of cpp-httplib"
#endif

constexpr const char* kDescription =
    R"(Finds the faces in pictures, turns them upright, compares them and knows them again.
Pictures are whole photographs; --crop says that one face fills each. It cannot tell
a living person from a picture of one.
)";

constexpr const char* kNotes =
    R"(A picture (of any kind that kova-fr --version names, whatever its name; - is standard
input) may have up to 100 megapixels; of several in a file the first is taken. Faces are
found from 20 pixels on; a crop needs at least 16 x 12. Colour becomes luma with the
weights of BT.601, transparent parts count as black, marks of rotation (EXIF, and
HEIF's own) are followed.

Exit status: 0 success, 1 a picture or file cannot be used, 2 wrong usage,
3 (identify with --threshold) a face that nobody in the gallery is like enough.

)";

std::string Footer() {
    return kNotes + kova_cli::ThresholdsText() + R"(
Examples:
  kova-fr compare a.jpg b.png
  kova-fr extract --json face.png
  kova-fr enroll people.gallery ada ada1.jpg ada2.jpg
  kova-fr identify --threshold )" +
           kova_cli::ThresholdOfExamples() + R"( people.gallery somebody.jpg
  kova-fr eval --out result people/
  kova-fr calibrate --out door.calibration visitors/
  kova-fr bench
  kova-fr compare --help)";
}

std::string Version() {
    const std::string missing = kova_cli::MissingPictureKinds();
    return "kova-fr " ORVO_VERSION "\nreads " + kova_cli::KnownPictureKinds() +
           (missing.empty() ? "" : "\ndoes not read " + missing) + ORVO_SERVICE_TEXT;
}

// For packagers; nobody else needs to see it.
void AddManualCommand(CLI::App& program) {
    program.add_subcommand("manual", "Print the manual page (kova-fr manual | man -l -)")
        ->group("")
        ->callback([&program] { kova_cli::WriteStandardOutput(kova_cli::ManualPage(program)); });
}

// A program may be started with standard streams closed. Files opened later would take their places
// and receive what is meant for the user; these cannot be written.
void FillClosedStreams() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        if (fcntl(stream, F_GETFD) < 0) {
            open("/dev/null", O_RDONLY);
        }
    }
}

constexpr const char* kNoMemory = "there is not enough memory; use smaller pictures";

// Also where there is no memory for the line.
int Report(const char* what, Status status) {
    try {
        std::fprintf(stderr, "kova-fr: %s\n", kova_cli::OneLine(what).c_str());
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "kova-fr: %s\n", kNoMemory);
    }
    return status;
}

// The libraries for options and JSON ask for memory where they must not throw, also to free other memory.
// What was being written stays a stage, which the next run removes.
[[noreturn]] void EndWithoutMemory() {
    try {
        if (const std::exception_ptr thrown = std::current_exception()) {
            std::rethrow_exception(thrown);
        }
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "kova-fr: %s\n", kNoMemory);
        _exit(kFailure);
    } catch (...) { // the program's own mistake
    }
    std::abort();
}

// What CLI11 throws to be asked for help or for the version comes with its text.
void PrintRequested(const CLI::App& program, const CLI::ParseError& request) {
    std::ostringstream text;
    program.exit(request, text, text);
    kova_cli::WriteStandardOutput(text.str());
}

// How many letters are to be put in, taken out or changed.
size_t Difference(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = row[0]++;
        for (size_t j = 0; j < b.size(); ++j) {
            const size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

// Names a command that there is not, and one that may be meant.
void CheckCommand(const CLI::App& program, const std::string& word) {
    std::string meant;
    size_t least = 3; // more than that are another word
    for (const CLI::App* command : program.get_subcommands({})) {
        const size_t difference = Difference(word, command->get_name());
        if (difference == 0) {
            return;
        }
        if (difference < least) {
            least = difference;
            meant = " (" + command->get_name() + "?)";
        }
    }
    throw CLI::ExtrasError("there is no command '" + word + "'" + meant,
                           CLI::ExitCodes::ExtrasError);
}

int Run(CLI::App& program, int count, char** arguments) {
    try {
        if (count > 1 && arguments[1][0] != '-') {
            CheckCommand(program, arguments[1]);
        }
        program.parse(count, arguments);
        return kSuccess;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() != 0) {
            return Report((std::string(error.what()) + "; see kova-fr --help").c_str(),
                          kWrongUsage);
        }
        PrintRequested(program, error);
        return kSuccess;
    }
}

} // namespace

int main(int count, char** arguments) {
    FillClosedStreams();
    std::set_terminate(EndWithoutMemory);
    try {
        CLI::App program(kDescription, "kova-fr");
        program.formatter(std::make_shared<kova_cli::HelpFormat>()); // of its commands, too
        program.set_version_flag("--version", Version);
        program.require_subcommand(1);
        program.footer(Footer());
        kova_cli::AddCompareCommand(program);
        kova_cli::AddExtractCommand(program);
        kova_cli::AddFindCommand(program);
        kova_cli::AddInspectCommand(program);
        kova_cli::AddEnrollCommand(program);
        kova_cli::AddIdentifyCommand(program);
        kova_cli::AddGalleryCommand(program);
        kova_cli::AddEvalCommand(program);
        kova_cli::AddCalibrateCommand(program);
        kova_cli::AddBenchCommand(program);
        kova_cli::AddInfoCommand(program);
#ifdef ORVO_HAVE_SERVICE
        kova_cli::AddServeCommand(program);
#endif
        AddManualCommand(program);
        return Run(program, count, arguments);
    } catch (const kova_cli::NobodyRecognised&) {
        return kNobody;
    } catch (const kova_cli::Failure& failure) {
        return Report(failure.what(), kFailure);
    } catch (const std::bad_alloc&) {
        return Report(kNoMemory, kFailure);
    } catch (const std::exception& error) {
        return Report(error.what(), kFailure);
    }
}
