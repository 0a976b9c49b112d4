// SPDX-License-Identifier: MIT
// Writes the two models with random weights that stand in until trained ones come.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/pack_models/layers.h"
#include "tools/pack_models/output_files.h"
#include "tools/pack_models/packing.h"
#include "tools/seed_models/networks.h"
#include "tools/seed_models/pictures.h"
#include "tools/seed_models/seeder.h"

namespace {

using namespace orvo;

constexpr int kPictures = 12;
constexpr uint64_t kAlignSeed = 1;
constexpr uint64_t kFrSeed = 2;

// A safetensors file under construction.
struct ModelText {
    nlohmann::ordered_json header;
    std::string data;

    void Add(const std::string& name, const char* type, const std::vector<int64_t>& shape,
             const std::vector<uint8_t>& bytes) {
        const size_t begin = data.size();
        data.append(bytes.begin(), bytes.end());
        header[name] = {{"dtype", type}, {"shape", shape}, {"data_offsets", {begin, data.size()}}};
    }

    std::string Finish() const {
        std::string text = header.dump();
        text.resize((text.size() + 7) / 8 * 8, ' '); // the data begins at a multiple of 8
        std::string prefix;
        for (unsigned shift = 0; shift < 64; shift += 8) {
            prefix += static_cast<char>(static_cast<uint64_t>(text.size()) >> shift);
        }
        return prefix + text + data;
    }
};

// Biases first: they are four bytes wide and so stay aligned.
std::string ToSafetensors(std::span<const pack::Layer> layers, const seed::Seeder& seeder) {
    ModelText model;
    for (const pack::Layer& layer : layers) {
        model.Add(pack::BiasName(layer), "I32", {layer.out},
                  pack::PackBiases(seeder.parameters().at(layer.number).biases));
    }
    for (const pack::Layer& layer : layers) {
        const auto& weights = seeder.parameters().at(layer.number).weights;
        model.Add(pack::WeightName(layer), "I8", pack::WeightShape(layer),
                  {weights.begin(), weights.end()});
    }
    return model.Finish();
}

} // namespace

int main(int argc, char** argv) {
    try {
        CLI::App app("Writes align.safetensors and fr.safetensors with random weights.",
                     "seed_models");
        std::string folder;
        app.add_option("--out", folder, "folder for the models")->required();
        CLI11_PARSE(app, argc, argv);

        seed::Seeder align(pack::AlignLayers(), kAlignSeed);
        seed::SeedAlign(seed::DrawPictures(kPictures, 1, 24, {0, 0, 1, 1}), &align);
        seed::Seeder fr(pack::FrLayers(), kFrSeed);
        // The part of the picture that the alignment's box covers.
        seed::SeedFr(seed::DrawPictures(kPictures, 3, 96, {0.125, 0.125, 0.875, 0.875}), &fr);
        pack::WriteOutputFiles(folder,
                               {{"align.safetensors", ToSafetensors(pack::AlignLayers(), align)},
                                {"fr.safetensors", ToSafetensors(pack::FrLayers(), fr)}});
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "seed_models: %s\n", error.what());
        return 1;
    }
}
