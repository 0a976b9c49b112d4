// SPDX-License-Identifier: MIT
#include <openssl/evp.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "face.h"
#include "face_options.h"
#include "failure.h"
#include "label.h"
#include "orvo/cipher.h"
#include "orvo/model_store.h"
#include "output_file.h"

namespace kova_cli {
namespace {

constexpr const char* kExamples =
    "A model's digest is the SHA-256 of its opened arrays, one after the other in the order of "
    "the\n"
    "registry: it names the weights that this build really computes with.\n"
    "\n"
    "Examples:\n"
    "  kova-fr info\n"
    "  kova-fr info --json";

struct Info {
    std::string instructionSet;
    uint32_t workingMemory = 0;
    std::string alignDigest;
    std::string recognitionDigest;
    std::string customData;
};

std::string Hex(const uint8_t* bytes, size_t count) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 15];
    }
    return text;
}

std::string ModelDigest(const ModelArray* arrays, size_t count) {
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                          EVP_MD_CTX_free);
    if (context == nullptr || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1) {
        throw Failure("the models' digests cannot be computed: libcrypto refused SHA-256");
    }
    for (size_t i = 0; i < count; ++i) {
        EVP_DigestUpdate(context.get(), arrays[i].data, arrays[i].size);
    }
    std::array<uint8_t, EVP_MAX_MD_SIZE> digest;
    unsigned length = 0;
    EVP_DigestFinal_ex(context.get(), digest.data(), &length);
    return Hex(digest.data(), length);
}

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
    info.alignDigest = ModelDigest(g_alignArray, std::size(g_alignArray));
    info.recognitionDigest = ModelDigest(g_frArray, std::size(g_frArray));
    info.customData = CustomData();
    return info;
}

std::string Text(const Info& info) {
    return "version             " ORVO_VERSION "\ninstruction set     " + info.instructionSet +
           "\nworking memory      " + std::to_string(info.workingMemory) +
           " bytes\nalignment model     sha256 " + info.alignDigest +
           "\nrecognition model   sha256 " + info.recognitionDigest + "\ncustom data         " +
           (info.customData.empty() ? "none" : OneLine(info.customData)) + "\n";
}

std::string Json(const Info& info) {
    nlohmann::ordered_json json;
    json["version"] = ORVO_VERSION;
    json["instruction_set"] = info.instructionSet;
    json["working_memory_bytes"] = info.workingMemory;
    json["align_sha256"] = info.alignDigest;
    json["fr_sha256"] = info.recognitionDigest;
    // Any bytes may be hidden in the table, text or not.
    json["custom_data_hex"] =
        Hex(reinterpret_cast<const uint8_t*>(info.customData.data()), info.customData.size());
    return JsonLine(json);
}

} // namespace

void AddInfoCommand(CLI::App& program) {
    CLI::App& command =
        *program.add_subcommand("info", "Say what this build is and what it computes with");
    const auto json = std::make_shared<bool>(false);
    command.add_flag("--json", *json, "Print one JSON object");
    command.footer(kExamples);
    command.callback([json] {
        const Info info = Gather();
        WriteStandardOutput(*json ? Json(info) : Text(info));
    });
}

} // namespace kova_cli
