// SPDX-License-Identifier: MIT
#include <array>
#include <memory>
#include <string>

#include "commands/commands.h"
#include "commands/face_options.h"
#include "evaluation/shipped_thresholds.h"
#include "faces/digest.h"
#include "faces/face.h"
#include "files/output_file.h"
#include "orvo/cipher.h"
#include "terminal/json_line.h"
#include "terminal/label.h"

namespace kova_cli {
namespace {

constexpr const char* kNotes =
    R"(A model's digest is the SHA-256 of its opened arrays, one after the other in the
order of the registry: it names the weights that this build really computes with.
Galleries and calibrations carry that of both models, one behind the other, since
features of other models mean nothing to these. The model cards show all three.

Examples:
  kova-fr info
  kova-fr info --json)";

struct Info {
    std::string instructionSet;
    uint32_t workingMemory = 0;
    std::string alignDigest;
    std::string recognitionDigest;
    std::string modelsDigest; // of both
    std::string customData;
};

std::string CustomData() {
    std::array<uint8_t, 65536> bytes; // the stored length has 16 bits
    uint32_t length = 0;
    wb_aes_get_custom_data_d(bytes.data(), &length);
    return std::string(reinterpret_cast<const char*>(bytes.data()), length);
}

Info Gather() {
    const Recogniser opened; // opens the models
    Info info;
    info.instructionSet = OrvoFrGetInstructionSet();
    info.workingMemory = OrvoFrGetMemorySize();
    info.alignDigest = Hex(AlignModelDigest());
    info.recognitionDigest = Hex(RecognitionModelDigest());
    info.modelsDigest = Hex(ModelsDigest());
    info.customData = CustomData();
    return info;
}

std::string Text(const Info& info) {
    return "version             " ORVO_VERSION "\ninstruction set     " + info.instructionSet +
           "\nworking memory      " + std::to_string(info.workingMemory) +
           " bytes\nalignment model     sha256 " + info.alignDigest +
           "\nrecognition model   sha256 " + info.recognitionDigest +
           "\nboth, as galleries  sha256 " + info.modelsDigest + "\ncustom data         " +
           (info.customData.empty() ? "none" : OneLine(info.customData)) + "\n\n" +
           ThresholdsText();
}

std::string Json(const Info& info) {
    nlohmann::ordered_json json;
    json["version"] = ORVO_VERSION;
    json["instruction_set"] = info.instructionSet;
    json["working_memory_bytes"] = info.workingMemory;
    json["align_sha256"] = info.alignDigest;
    json["fr_sha256"] = info.recognitionDigest;
    json["models_sha256"] = info.modelsDigest;
    // Any bytes may be hidden in the table, text or not.
    json["custom_data_hex"] =
        Hex({reinterpret_cast<const uint8_t*>(info.customData.data()), info.customData.size()});
    json["thresholds"] = ShippedThresholds();
    return JsonLine(json);
}

} // namespace

void AddInfoCommand(CLI::App& program) {
    CLI::App& command =
        *program.add_subcommand("info", "Say what this build is and what it computes with");
    const auto json = std::make_shared<bool>(false);
    command.add_flag("--json", *json, "Print one JSON object");
    command.footer(kNotes);
    command.callback([json] {
        const Info info = Gather();
        WriteStandardOutput(*json ? Json(info) : Text(info));
    });
}

} // namespace kova_cli
