// SPDX-License-Identifier: MIT
// Packs and enciphers the plain models and writes the sources that the library compiles in.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tools/pack_models/custom_data.h"
#include "tools/pack_models/key_file.h"
#include "tools/pack_models/layers.h"
#include "tools/pack_models/model_file.h"
#include "tools/pack_models/output_files.h"
#include "tools/pack_models/pack_error.h"
#include "tools/pack_models/store_sources.h"
#include "tools/pack_models/white_box_tables.h"

namespace {

struct Options {
    std::string align;
    std::string fr;
    std::string find;
    std::string key;
    std::string out;
    std::string customData;
    std::string customDataFile;
};

// One byte more than fits is read, so that too long a file is noticed whatever its size.
std::vector<uint8_t> ReadCustomData(const Options& options) {
    if (options.customDataFile.empty()) {
        return {options.customData.begin(), options.customData.end()};
    }
    std::ifstream file(options.customDataFile, std::ios::binary);
    std::vector<char> bytes(orvo::pack::kMaxCustomData + 1);
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file.is_open() || file.bad()) {
        throw orvo::pack::PackError(options.customDataFile + ": cannot be read");
    }
    bytes.resize(static_cast<size_t>(file.gcount()));
    if (bytes.size() > orvo::pack::kMaxCustomData) {
        throw orvo::pack::PackError(options.customDataFile + ": custom data has more than " +
                                    std::to_string(orvo::pack::kMaxCustomData) + " bytes");
    }
    return {bytes.begin(), bytes.end()};
}

// What libkova_fr has compiled in: its two models and the tables.
std::vector<orvo::pack::OutputFile> RecognitionSources(const Options& options,
                                                       const orvo::pack::KeyFile& keys) {
    using namespace orvo::pack;
    const std::string header = "orvo/model_store.h";
    const auto align = ReadModel(options.align, AlignLayers());
    const auto fr = ReadModel(options.fr, FrLayers());
    const auto decrypt = MakeDecryptTable(keys.whiteBoxKey, keys.seed, ReadCustomData(options));
    const auto encrypt = MakeEncryptTable(keys.whiteBoxKey, keys.seed);
    return {{"align_store.cpp", ModelStoreSource({"align", header, ""}, AlignLayers(), align,
                                                 keys.align, keys.whiteBoxKey)},
            {"fr_store.cpp",
             ModelStoreSource({"fr", header, ""}, FrLayers(), fr, keys.fr, keys.whiteBoxKey)},
            {"wb_decrypt_table.cpp", DecryptTableSource(decrypt)},
            {"wb_encrypt_table.cpp", EncryptTableSource(encrypt)}};
}

// What libkova_find has compiled in. Its key is wrapped for libkova_fr's tables.
orvo::pack::OutputFile FindSource(const Options& options, const orvo::pack::KeyFile& keys) {
    using namespace orvo::pack;
    if (!keys.find) {
        throw PackError(options.key + ": find_key is missing");
    }
    const auto find = ReadModel(options.find, FindLayers());
    return {"find_store.cpp", ModelStoreSource({"find", "find/model.h", "orvo::find"}, FindLayers(),
                                               find, *keys.find, keys.whiteBoxKey)};
}

void Pack(const Options& options) {
    using namespace orvo::pack;
    const KeyFile keys = ReadKeyFile(options.key);
    std::vector<OutputFile> files;
    if (!options.align.empty()) {
        files = RecognitionSources(options, keys);
    }
    if (!options.find.empty()) {
        files.push_back(FindSource(options, keys));
    }
    WriteOutputFiles(options.out, files);
}

} // namespace

int main(int argc, char** argv) {
    try {
        CLI::App app("Packs and enciphers the plain models into sources of the library.",
                     "pack_models");
        Options options;
        auto* align = app.add_option("--align", options.align, "alignment model (safetensors)");
        auto* fr = app.add_option("--fr", options.fr, "recognition model (safetensors)");
        align->needs(fr);
        fr->needs(align);
        app.add_option("--find", options.find, "model that finds faces (safetensors)");
        app.add_option("--key", options.key, "key file")->required();
        app.add_option("--out", options.out, "folder for the sources")->required();
        auto* text = app.add_option("--custom-data", options.customData,
                                    "text to hide in the decryption table (at most 256 bytes)");
        app.add_option("--custom-data-file", options.customDataFile, "file whose bytes to hide")
            ->excludes(text);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            if (error.get_exit_code() == 0) {
                return app.exit(error); // --help
            }
            throw orvo::pack::PackError(error.what());
        }
        if (options.align.empty() && options.find.empty()) {
            throw orvo::pack::PackError("--align and --fr, or --find, must be given");
        }
        Pack(options);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "pack_models: %s\n", error.what());
        return 1;
    }
}
