// SPDX-License-Identifier: MIT
#include "plain_model.h"

#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "orvo/model_store.h"
#include "reference/reference_conv.h"
#include "reference/reference_networks.h"

namespace orvo_test {
namespace {

using orvo_reference::Layer;
using orvo_reference::LayerKind;

struct ModelFile {
    std::string header; // without blanks
    std::string data;
};

ModelFile ReadModelFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    const std::string all((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    uint64_t headerSize = 0;
    std::memcpy(&headerSize, all.substr(0, 8).c_str(), 8);
    ModelFile model;
    for (const char c : all.substr(8, static_cast<size_t>(headerSize))) {
        if (c != ' ' && c != '\n') {
            model.header += c;
        }
    }
    model.data = all.substr(8 + static_cast<size_t>(headerSize));
    return model;
}

// The text between `before` and the next `after`, looked for from `at` on.
std::string Between(const std::string& text, size_t at, const std::string& before,
                    const std::string& after) {
    const size_t begin = text.find(before, at) + before.size();
    return text.substr(begin, text.find(after, begin) - begin);
}

std::vector<int32_t> TensorValues(const ModelFile& model, const std::string& name) {
    const size_t at = model.header.find("\"" + name + "\":{");
    if (at == std::string::npos) {
        throw std::runtime_error("no tensor " + name);
    }
    const std::string type = Between(model.header, at, "\"dtype\":\"", "\"");
    const std::string offsets = Between(model.header, at, "\"data_offsets\":[", "]");
    const size_t begin = std::stoul(offsets);
    const size_t end = std::stoul(offsets.substr(offsets.find(',') + 1));
    std::vector<int32_t> values;
    if (type == "I8") {
        for (size_t i = begin; i < end; ++i) {
            values.push_back(static_cast<int8_t>(model.data.at(i)));
        }
    } else if (type == "I32") {
        for (size_t i = begin; i < end; i += 4) {
            int32_t value = 0;
            std::memcpy(&value, model.data.substr(i, 4).c_str(), 4);
            values.push_back(value);
        }
    } else {
        throw std::runtime_error("a type that this reader does not know: " + type);
    }
    return values;
}

size_t ArraySize(const std::string& name) {
    for (const ModelArray& array : g_alignArray) {
        if (name == array.name) {
            return array.size;
        }
    }
    for (const ModelArray& array : g_frArray) {
        if (name == array.name) {
            return array.size;
        }
    }
    throw std::runtime_error("no array " + name);
}

// The library's size, so that what packing leaves unused is zero up to the end.
Bytes PackWeights(const Layer& layer, const std::vector<int32_t>& values, size_t size) {
    const std::vector<int8_t> natural(values.begin(), values.end());
    std::vector<int8_t> packed(size, 0);
    if (layer.kind == LayerKind::kConvolution) {
        orvo_reference::PackConvWeights(natural.data(), layer.outChannels, layer.inChannels, 3,
                                        packed.data(), size);
    } else if (layer.kind == LayerKind::kPointwise) {
        orvo_reference::PackPointwiseWeights(natural.data(), layer.outChannels, layer.inChannels,
                                             packed.data(), size);
    } else {
        packed = natural;
    }
    return {packed.begin(), packed.end()};
}

} // namespace

std::map<std::string, Bytes> PlainArrays(const std::string& network) {
    const ModelFile model =
        ReadModelFile(std::string(ORVO_MODEL_DIR) + "/" + network + ".safetensors");
    std::map<std::string, Bytes> arrays;
    for (const Layer& layer :
         network == "align" ? orvo_reference::AlignLayers() : orvo_reference::FrLayers()) {
        const std::string number = std::to_string(layer.number);
        const std::string weights = "g_" + network + "Weights" + number;
        arrays[weights] =
            PackWeights(layer, TensorValues(model, number + ".weight"), ArraySize(weights));
        const std::vector<int32_t> biases = TensorValues(model, number + ".bias");
        const auto* bytes = reinterpret_cast<const uint8_t*>(biases.data());
        arrays["g_" + network + "Bias" + number] = Bytes(bytes, bytes + 4 * biases.size());
    }
    return arrays;
}

} // namespace orvo_test
