// SPDX-License-Identifier: MIT
#include <memory>

#include "calibration/calibrating.h"
#include "calibration/calibration_file.h"
#include "calibration/calibration_words.h"
#include "commands/commands.h"
#include "commands/reading_options.h"
#include "evaluation/eval_features.h"
#include "evaluation/shipped_thresholds.h"
#include "files/failure.h"
#include "files/output_file.h"
#include "terminal/json_line.h"
#include "terminal/label.h"
#include "terminal/progress.h"
#include "terminal/warning.h"

namespace kova_cli {
namespace {

constexpr uint32_t kFewestStrangers = 50;
constexpr uint32_t kFewestPeople = 10; // with known names
constexpr size_t kMostPictures = 5000;

struct CalibrateOptions {
    std::string folder;
    std::string outPath;
    bool byName = false;
    bool json = false;
    FeatureReading reading;
    CalibratingOptions calibrating;
};

constexpr const char* kMeaning =
    R"(Real faces resemble one another more than the models expect, each camera's in
its own way. From pictures of your own camera this learns what everybody there has
in common, and writes a small file with which compare and identify take that off:
they then give scores that start near 0 for strangers, and say how many pairs of
strangers are as alike.

FOLDER has pictures of at least 50 different people, one picture each, whose names
nobody needs to know; or one sub-folder a person, as for eval, which tells how
often one person is refused, too. Nothing of the pictures is kept but features of
at most 200 of the people.

)";

constexpr const char* kExamples = R"(Examples:
  kova-fr calibrate --out door.calibration visitors/
  kova-fr compare --calibration door.calibration a.jpg b.jpg
  kova-fr identify --calibration door.calibration people.gallery a.jpg)";

EvalInput Find(const CalibrateOptions& options) {
    EvalInput input =
        options.byName ? FindPeople(options.folder, true) : FindPeopleOrStrangers(options.folder);
    if (input.pictures.size() > kMostPictures) {
        throw Failure(options.folder + ": has " + std::to_string(input.pictures.size()) +
                      " pictures; give at most " + std::to_string(kMostPictures));
    }
    return input;
}

void CheckEnough(const std::string& folder, const kova_statistics::Comparisons& comparisons) {
    const bool hasNames = comparisons.features.size() > comparisons.people;
    const uint32_t fewest = hasNames ? kFewestPeople : kFewestStrangers;
    if (comparisons.people < fewest) {
        throw Failure(folder + ": has usable pictures of " + std::to_string(comparisons.people) +
                      " people; at least " + std::to_string(fewest) + " are needed" +
                      (hasNames ? "" : ", a picture each"));
    }
}

// Twice the same picture is nobody else.
void WarnOfCopies(const std::vector<Feature>& features, const std::vector<uint32_t>& person) {
    size_t copies = 0;
    for (size_t b = 0; b < features.size(); ++b) {
        for (size_t a = 0; a < b; ++a) {
            copies += person[a] != person[b] && features[a] == features[b] ? 1 : 0;
        }
    }
    if (copies > 0) {
        Warn(std::to_string(copies) +
             " pairs of pictures have the same feature, as copies of one picture do; they make "
             "strangers look alike");
    }
}

void RunCalibrate(const CalibrateOptions& options) {
    const EvalInput input = Find(options);
    CheckOutputs({{options.outPath, true, {}}}, input.pictures);
    const Recogniser recogniser;
    std::vector<std::string> leftOut;
    const kova_statistics::Comparisons comparisons =
        MakeComparisons(input, ReadFeatures(recogniser, input, options.reading, leftOut));
    CheckEnough(options.folder, comparisons);
    WarnOfCopies(comparisons.features, comparisons.person);
    Progress progress("Calibrating");
    Calibration calibration = Calibrate(comparisons, options.calibrating,
                                        [&](size_t done, size_t all) { progress.Show(done, all); });
    progress.Clear();
    calibration.of = options.reading.isCrop ? OfFaces::kCrops : OfFaces::kFound;
    const std::string file = CalibrationText(calibration);
    WriteFiles({{options.outPath, true, std::vector<uint8_t>(file.begin(), file.end())}});
    if (!options.json) {
        WriteStandardOutput(Wrapped(options.outPath + ": written.") +
                            CalibrationWords(calibration));
        return;
    }
    WriteStandardOutput(JsonLine({{"path", options.outPath},
                                  {"pictures", calibration.pictures},
                                  {"people", calibration.people},
                                  {"stranger_pairs", calibration.strangerPairs},
                                  {"left_out", leftOut},
                                  {"thresholds", calibration.thresholds}}));
}

} // namespace

void AddCalibrateCommand(CLI::App& program) {
    CLI::App& command = *program.add_subcommand(
        "calibrate", "Learn from pictures of your own camera what its scores mean");
    const auto options = std::make_shared<CalibrateOptions>();
    command
        .add_option("folder", options->folder, "Pictures, one a person, or one sub-folder a person")
        ->required()
        ->type_name("FOLDER");
    command.add_option("--out", options->outPath, "Write the calibration there")
        ->required()
        ->type_name("FILE");
    command.add_flag("--by-name", options->byName,
                     "FOLDER has the pictures themselves; a person is what stands before the last "
                     "- or _ of their names (ada-1.png, ada-2.png)");
    AddReadingOptions(command, options->reading);
    command
        .add_option("--rounds", options->calibrating.rounds,
                    "Sets of redrawn people for the intervals")
        ->check(CLI::Range(10, 100000))
        ->capture_default_str();
    command.add_option("--seed", options->calibrating.seed, "Of everything drawn at random")
        ->capture_default_str();
    command.add_flag("--json", options->json, "Print one line of JSON");
    command.footer(kMeaning + ThresholdsText() + "\n" + kExamples);
    command.callback([options] { RunCalibrate(*options); });
}

} // namespace kova_cli
